#pragma once
#include "IndexInfo.h"
#include "PlayFileMetadata.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "iMemHolder.h"
#include "iObject.h"

// Compressed bytes of a frame (or of a whole group) on their way to a decoder.
class VL_HOST_API FrameBuffer : public iObject
{
public:
    FrameBuffer(const Vl::Ptr<PlayFileMetadata>& metadata, const Vl::Ptr<iMemHolder>& memory,
                const Vl::Ptr<IndexInfo>& index);
    ~FrameBuffer() override;

    const Vl::Ptr<PlayFileMetadata>& metadata() const { return metadata_; }
    const Vl::Ptr<iMemHolder>& memory() const { return memory_; }
    const Vl::Ptr<IndexInfo>& indexInfo() const { return index_; }
    // The payload: memory's data at its data offset.
    const unsigned char* bytes() const;
    std::uint32_t size() const;

    // A frame the file has no picture of its own for (a dropped frame of a
    // capture): the bytes are those of frame repeatOf(), shown again here.
    void setRepeatOf(std::uint32_t frame)
    {
        repeat_ = true;
        repeatOf_ = frame;
    }
    bool isRepeat() const { return repeat_; }
    std::uint32_t repeatOf() const { return repeatOf_; }

private:
    Vl::Ptr<PlayFileMetadata> metadata_;
    Vl::Ptr<iMemHolder> memory_;
    Vl::Ptr<IndexInfo> index_;
    bool repeat_ = false;
    std::uint32_t repeatOf_ = 0;
};
