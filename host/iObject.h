#pragma once
#include "VlPtr.h"

// Root of the editor's reference-counted objects: held through Vl::Ptr.
class iObject : public virtual Vl::RefCounted
{
};
