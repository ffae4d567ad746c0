#include "util/morvaneguid.h"

#include <uuid/uuid.h>

#include <cstring>

HRESULT UuidCreate(GUID* guid)
{
    bool result = guid != nullptr;
    MORVANE_ASSERT_AT(result, "util/morvaneguid line 21");
    if (!result)
        return E_INVALIDARG;
    uuid_t bytes;
    uuid_generate(bytes);
    static_assert(sizeof(GUID) == sizeof(uuid_t));
    std::memcpy(guid, bytes, sizeof(GUID));
    return S_OK;
}

bool operator==(const GUID& a, const GUID& b)
{
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

bool operator!=(const GUID& a, const GUID& b)
{
    return !(a == b);
}
