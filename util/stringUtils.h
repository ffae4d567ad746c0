#pragma once
#include <string>
#include <vector>

namespace Morvane {

std::wstring toLower(const std::wstring& s);
std::wstring toUpper(const std::wstring& s);
std::wstring format(const wchar_t* fmt, ...);

std::string convertString(const wchar_t* s);
std::string convertString(const std::wstring& s);
std::wstring convertString(const char* s);
std::wstring convertString(const std::string& s);
std::wstring convertString(const long& value);
std::wstring convertString(const int& value);
std::wstring convertString(const unsigned int& value);

std::wstring getenv(const wchar_t* name);
std::wstring getenv(const std::wstring& name);
std::wstring replaceEnvVars(const wchar_t* text);
std::wstring replaceEnvVars(const std::wstring& text);

bool isIpv4Address(const std::wstring& s);
std::vector<std::wstring> splitString(const std::wstring& s, wchar_t sep);
std::wstring joinString(const std::vector<std::wstring>& parts, wchar_t sep);

std::vector<std::wstring> readAsciiFileToLines(const std::wstring& path);
bool writeAsciiFile(const std::wstring& path, const std::vector<std::wstring>& lines);

std::wstring getCwd();
bool chdir(const std::wstring& path);
bool mkdir(const std::wstring& path);

} // namespace Morvane
