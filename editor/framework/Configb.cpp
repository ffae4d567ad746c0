#include "host/configb.h"

void configb::set(const char* key, std::int64_t value)
{
    values_[key ? key : ""] = value;
}

int configb::in(const char* key, int& value) const
{
    auto it = values_.find(key ? key : "");
    if (it == values_.end())
        return 0;
    value = static_cast<int>(it->second);
    return 1;
}
