#include "host/FrameBuffer.h"

FrameBuffer::FrameBuffer(const Vl::Ptr<PlayFileMetadata>& metadata, const Vl::Ptr<iMemHolder>& memory,
                         const Vl::Ptr<IndexInfo>& index)
    : metadata_(metadata), memory_(memory), index_(index)
{
}

FrameBuffer::~FrameBuffer() = default;

const unsigned char* FrameBuffer::bytes() const
{
    return memory_ ? memory_->data() + memory_->dataOffset() : nullptr;
}

std::uint32_t FrameBuffer::size() const
{
    return memory_ ? memory_->used() : 0;
}
