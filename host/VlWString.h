#pragma once
#include <string>

// The editor's wide string (paths); wchar_t is 32 bits on this platform.
class VlWString : public std::wstring
{
public:
    using std::wstring::wstring;
    VlWString() = default;
    VlWString(const std::wstring& s) : std::wstring(s) {}
    VlWString(std::wstring&& s) : std::wstring(std::move(s)) {}
};
