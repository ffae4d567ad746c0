#pragma once
#include "util/linux/platform.h"

HRESULT UuidCreate(GUID* guid);
bool operator==(const GUID& a, const GUID& b);
bool operator!=(const GUID& a, const GUID& b);
