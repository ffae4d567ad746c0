#pragma once
#include "VlExport.h"

// Shared virtual base of the editor's component classes.
class VL_HOST_API VlComponentBaseSharedResourceTag
{
public:
    virtual ~VlComponentBaseSharedResourceTag();
};
