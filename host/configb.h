#pragma once
#include <cstdint>
#include <map>
#include <string>

#include "VlExport.h"

// A block of the editor's configuration: named integer settings.
class VL_HOST_API configb
{
public:
    void set(const char* key, std::int64_t value);
    void set(const char* key, bool value) { set(key, static_cast<std::int64_t>(value ? 1 : 0)); }
    // 1 when the key is present (value then holds it), 0 otherwise.
    int in(const char* key, int& value) const;

private:
    std::map<std::string, std::int64_t> values_;
};
