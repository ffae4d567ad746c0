#pragma once
#include <cstdint>

#include "VlExport.h"
#include "iMemHolder.h"

// A plain block: capacity fixed at alloc, payload grown with append.
class VL_HOST_API ByteBufferImpl : public iMemHolder
{
public:
    ByteBufferImpl() = default;
    ByteBufferImpl(const ByteBufferImpl&) = delete;
    ByteBufferImpl& operator=(const ByteBufferImpl&) = delete;
    ~ByteBufferImpl() override;

    // False (and no block) when the memory is not there.
    bool alloc(std::uint32_t size);

    unsigned char* data() const override { return data_; }
    std::uint32_t capacity() const override { return capacity_; }
    std::uint32_t dataOffset() const override { return offset_; }
    std::uint32_t used() const override { return used_; }

    void setDataOffset(std::uint32_t offset) { offset_ = offset <= capacity_ ? offset : capacity_; }
    // Clamped to the block.
    void setUsed(std::uint32_t n);
    unsigned char* getBufferAtEnd() const { return data_ + offset_ + used_; }
    std::uint32_t freeSpace() const { return capacity_ - offset_ - used_; }
    // Clamped to the free space; the bytes taken.
    std::uint32_t append(std::uint32_t n);

protected:
    // storageBytes: the size of a block the host may keep for reuse when
    // this buffer goes; 0 for one it simply frees.
    void adopt(unsigned char* storage, unsigned char* data, std::uint32_t capacity, std::uint64_t storageBytes = 0);

private:
    void release();

    unsigned char* storage_ = nullptr;
    std::uint64_t storageBytes_ = 0;
    unsigned char* data_ = nullptr;
    std::uint32_t capacity_ = 0;
    std::uint32_t offset_ = 0;
    std::uint32_t used_ = 0;
};
