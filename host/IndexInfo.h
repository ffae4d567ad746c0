#pragma once
#include <cstdint>
#include <vector>

#include "VlExport.h"
#include "iObject.h"

// One group of pictures: its frames in decode order and, for each, the
// position at which it is presented.
class VL_HOST_API IndexInfo : public iObject
{
public:
    IndexInfo();
    ~IndexInfo() override;

    std::vector<unsigned int>& decodeOrder() { return decodeOrder_; }
    std::vector<unsigned int>& presentationOrder() { return presentationOrder_; }
    const std::vector<unsigned int>& decodeOrder() const { return decodeOrder_; }
    const std::vector<unsigned int>& presentationOrder() const { return presentationOrder_; }

    // Frames of the group (at most 255 are described).
    std::uint8_t getNumGopFrames() const;
    std::uint32_t getStartGopFrameIndex() const;
    // Frames that have both a decode and a presentation position.
    std::uint8_t getNumValidFrames() const;
    bool containsValidFrame(std::uint32_t frame) const;

private:
    std::vector<unsigned int> decodeOrder_;
    std::vector<unsigned int> presentationOrder_;
};
