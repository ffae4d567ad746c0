#pragma once
#include "VlPtr.h"

namespace Vl {

// Type-safe down-cast of a held object: null for an object of another type.
template <class To, class From>
Ptr<To> dynamicCast(const Ptr<From>& from)
{
    return Ptr<To>(dynamic_cast<To*>(from.get()));
}

} // namespace Vl
