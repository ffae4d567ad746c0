#pragma once
#include <string>

namespace Pell {

// Holder of the last error text, at the root of the disk files and so of
// the container reader and writer.
class CPellBase
{
public:
    CPellBase() = default;
    CPellBase(const CPellBase& other) : lastError_(other.lastError_) {}
    CPellBase& operator=(const CPellBase& other) = default;
    virtual ~CPellBase() = default;

    virtual void setLastError(const std::wstring& text);
    // The text, a space and the system's message for err.
    virtual void setLastError(const std::wstring& text, int err);
    const std::wstring& getLastError() const { return lastError_; }

private:
    std::wstring lastError_;
};

} // namespace Pell
