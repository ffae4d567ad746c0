#pragma once
#include "VlExport.h"

// The editor's user text for one of its error numbers; never null.
VL_HOST_API const char* resourceStr(int errorNumber);
