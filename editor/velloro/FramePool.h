#pragma once
// Frame blocks for velloro render that go back to a pool when the writer
// lets go of them, as an editor's render buffers do: a render of
// uncompressed HD does not fault in and clear 4 MB of fresh pages for every
// frame, nor unmap them again on the writer thread.
#include <cstdint>
#include <memory>

#include "host/FrameBuffer.h"
#include "host/VlPtr.h"

namespace velloro {

class FramePool
{
public:
    // Frames of size bytes; each block has one spare byte after them, for
    // the pad of an odd-sized chunk.
    explicit FramePool(std::uint32_t size);
    ~FramePool();
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;

    // A frame to fill at bytes: a block the writer has finished with, or a
    // new one; null without memory.
    Vl::Ptr<FrameBuffer> take(unsigned char*& bytes);

    struct Shared;

private:
    std::shared_ptr<Shared> shared_;
};

} // namespace velloro
