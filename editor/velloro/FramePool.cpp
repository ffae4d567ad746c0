#include "FramePool.h"

#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "host/iMemHolder.h"

namespace velloro {

namespace {

// Blocks kept for reuse: the writer's queue and the frame it writes, with
// room to spare; more than that go back to the system.
constexpr std::size_t kKept = 16;

} // namespace

struct FramePool::Shared
{
    std::uint32_t size = 0;
    std::mutex mutex;
    std::vector<std::unique_ptr<unsigned char[]>> free;
};

namespace {

// One frame's block; its last release (on the writer thread, as often as
// not) hands the block back to the pool.
class PooledBlock final : public iMemHolder
{
public:
    PooledBlock(std::shared_ptr<FramePool::Shared> pool, std::unique_ptr<unsigned char[]> block)
        : pool_(std::move(pool)), block_(std::move(block))
    {
    }
    ~PooledBlock() override
    {
        std::lock_guard lock(pool_->mutex);
        if (pool_->free.size() < kKept)
            pool_->free.push_back(std::move(block_));
    }

    unsigned char* data() const override { return block_.get(); }
    std::uint32_t capacity() const override { return pool_->size + 1; }
    std::uint32_t dataOffset() const override { return 0; }
    std::uint32_t used() const override { return pool_->size; }

private:
    std::shared_ptr<FramePool::Shared> pool_;
    std::unique_ptr<unsigned char[]> block_;
};

} // namespace

FramePool::FramePool(std::uint32_t size) : shared_(std::make_shared<Shared>())
{
    shared_->size = size;
}

FramePool::~FramePool() = default;

Vl::Ptr<FrameBuffer> FramePool::take(unsigned char*& bytes)
{
    std::unique_ptr<unsigned char[]> block;
    {
        std::lock_guard lock(shared_->mutex);
        if (!shared_->free.empty()) {
            block = std::move(shared_->free.back());
            shared_->free.pop_back();
        }
    }
    if (!block)
        block.reset(new (std::nothrow) unsigned char[std::size_t(shared_->size) + 1]);
    if (!block)
        return nullptr;
    bytes = block.get();
    Vl::Ptr<iMemHolder> memory(new PooledBlock(shared_, std::move(block)));
    return Vl::Ptr<FrameBuffer>(new FrameBuffer(nullptr, memory, nullptr));
}

} // namespace velloro
