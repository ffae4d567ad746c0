#include "host/IdStamp.h"

#include <atomic>

namespace {

std::atomic<std::uint64_t> g_nextId{1};

} // namespace

IdStamp::IdStamp() : value_(g_nextId.fetch_add(1, std::memory_order_relaxed)) {}

IdentifiedBase::~IdentifiedBase() = default;

const IdStamp& IdentifiedBase::id() const
{
    return id_;
}

void IdentifiedBase::id(const IdStamp& stamp)
{
    id_ = stamp;
}
