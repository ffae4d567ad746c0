#pragma once
#include <string>

// The editor's narrow string.
class String : public std::string
{
public:
    using std::string::string;
    String() = default;
    String(const std::string& s) : std::string(s) {}
    String(std::string&& s) : std::string(std::move(s)) {}
};
