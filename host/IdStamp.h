#pragma once
#include <cstdint>

#include "VlExport.h"

// The editor's identity of an object: unique within one run.
class VL_HOST_API IdStamp
{
public:
    IdStamp();
    IdStamp(std::uint64_t value) : value_(value) {}
    std::uint64_t value() const { return value_; }
    bool operator==(const IdStamp& o) const { return value_ == o.value_; }

private:
    std::uint64_t value_;
};

// An object that carries an IdStamp.
class VL_HOST_API IdentifiedBase
{
public:
    virtual ~IdentifiedBase();
    virtual const IdStamp& id() const;
    virtual void id(const IdStamp& stamp);

private:
    IdStamp id_;
};
