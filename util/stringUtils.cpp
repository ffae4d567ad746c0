#include "util/stringUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <memory>
#include <new>

#include "util/bytebuffer.h"
#include "util/linux/platform.h"

namespace Morvane {

namespace {

// An empty result keeps doubling the buffer; stop long before memory runs out.
constexpr std::size_t kMaxFormatChars = std::size_t(1) << 24;
constexpr unsigned long kMaxAsciiFile = 0xA00000;

} // namespace

std::wstring toLower(const std::wstring& s)
{
    std::wstring out(s);
    for (auto& c : out)
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return out;
}

std::wstring toUpper(const std::wstring& s)
{
    std::wstring out(s);
    for (auto& c : out)
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    return out;
}

std::wstring format(const wchar_t* fmt, ...)
{
    std::size_t size = 512;
    while (size <= kMaxFormatChars) {
        std::unique_ptr<wchar_t[]> buf(new (std::nothrow) wchar_t[size]);
        if (!buf)
            return {};
        va_list ap;
        va_start(ap, fmt);
        int n = std::vswprintf(buf.get(), size, fmt, ap);
        va_end(ap);
        if (n > 0 && static_cast<std::size_t>(n) <= size)
            return std::wstring(buf.get(), static_cast<std::size_t>(n));
        size *= 2;
    }
    return {};
}

std::string convertString(const wchar_t* s)
{
    if (!s || !*s)
        return {};
    std::size_t len = std::wcslen(s);
    std::unique_ptr<char[]> buf(new (std::nothrow) char[len + 1]());
    if (!buf) {
        MORVANE_ASSERT_AT(0, "util/stringUtils line 104");
        return {};
    }
    std::size_t n = std::wcstombs(buf.get(), s, len + 1);
    if (n == static_cast<std::size_t>(-1))
        return {};
    buf[len] = '\0';
    return std::string(buf.get());
}

std::string convertString(const std::wstring& s)
{
    return convertString(s.c_str());
}

std::wstring convertString(const char* s)
{
    if (!s || !*s)
        return {};
    std::size_t len = std::strlen(s);
    std::unique_ptr<wchar_t[]> buf(new (std::nothrow) wchar_t[len + 1]());
    if (!buf) {
        MORVANE_ASSERT_AT(0, "util/stringUtils line 164");
        return {};
    }
    std::size_t n = std::mbstowcs(buf.get(), s, len + 1);
    if (n == static_cast<std::size_t>(-1))
        return {};
    buf[len] = L'\0';
    return std::wstring(buf.get());
}

std::wstring convertString(const std::string& s)
{
    return convertString(s.c_str());
}

std::wstring convertString(const long& value)
{
    wchar_t buf[32] = {};
    _ltow(static_cast<unsigned short>(value), buf, 10);
    return buf; // empty: _ltow reads the buffer rather than writing it
}

std::wstring convertString(const int& value)
{
    long v = value;
    return convertString(v);
}

std::wstring convertString(const unsigned int& value)
{
    return format(L"%u", value);
}

std::wstring getenv(const wchar_t* name)
{
    const wchar_t* value = _wgetenv(name);
    return value ? std::wstring(value) : std::wstring();
}

std::wstring getenv(const std::wstring& name)
{
    return getenv(name.c_str());
}

std::wstring replaceEnvVars(const wchar_t* text)
{
    std::wstring out;
    if (!text)
        return out;
    std::wstring varName;
    bool inName = false;
    for (const wchar_t* p = text; *p; ++p) {
        if (*p != L'%') {
            (inName ? varName : out) += *p;
            continue;
        }
        if (!inName) {
            inName = true;
            varName.clear();
            continue;
        }
        MORVANE_ASSERT_AT(! varName.empty(), "util/stringUtils line 197");
        std::wstring value = getenv(varName);
        out += value.empty() ? varName : value;
        inName = false;
    }
    return out;
}

std::wstring replaceEnvVars(const std::wstring& text)
{
    return replaceEnvVars(text.c_str());
}

bool isIpv4Address(const std::wstring& s)
{
    if (s.empty())
        return false;
    int dots = 0;
    for (wchar_t c : s) {
        if (c == L'.')
            ++dots;
        else if (!std::iswdigit(static_cast<wint_t>(c)))
            return false;
    }
    return dots == 3;
}

std::vector<std::wstring> splitString(const std::wstring& s, wchar_t sep)
{
    std::vector<std::wstring> tokens;
    if (s.empty())
        return tokens;
    std::wstring token;
    for (wchar_t c : s) {
        if (c == sep) {
            tokens.push_back(token);
            token.clear();
        } else {
            token += c;
        }
    }
    tokens.push_back(token);
    return tokens;
}

std::wstring joinString(const std::vector<std::wstring>& parts, wchar_t sep)
{
    std::wstring out;
    for (const auto& part : parts) {
        out += part;
        out += sep;
    }
    if (!out.empty())
        out.pop_back();
    return out;
}

std::vector<std::wstring> readAsciiFileToLines(const std::wstring& path)
{
    std::vector<std::wstring> lines;
    CByteBuffer buffer;
    if (FAILED(buffer.fromFile(path, kMaxAsciiFile)))
        return lines;
    const auto* bytes = buffer.getBuffer(0);
    std::string line;
    for (unsigned long i = 0; bytes && i < buffer.getUsed(); ++i) {
        char c = static_cast<char>(bytes[i]);
        if (c == '\r' || c == '\n') {
            if (!line.empty())
                lines.push_back(convertString(line));
            line.clear();
        } else {
            line += c;
        }
    }
    return lines; // a last line without its line end is not returned
}

bool writeAsciiFile(const std::wstring& path, const std::vector<std::wstring>& lines)
{
    unsigned long size = 64;
    for (const auto& line : lines)
        size += line.size() + 2;
    CByteBuffer buffer(size);
    for (const auto& line : lines) {
        std::string narrow = convertString(line);
        if (!narrow.empty() && !buffer.append(reinterpret_cast<const unsigned char*>(narrow.data()), narrow.size()))
            return false;
        if (!buffer.append(reinterpret_cast<const unsigned char*>("\r\n"), 2))
            return false;
    }
    return buffer.toFile(path) == 1;
}

std::wstring getCwd()
{
    MORVANE_ASSERT_AT(0, "util/stringUtils line 421");
    return {};
}

bool chdir(const std::wstring& path)
{
    MORVANE_ASSERT_AT(0, "util/stringUtils line 432");
    return ::chdir(convertString(path).c_str()) == 0;
}

bool mkdir(const std::wstring& path)
{
    MORVANE_ASSERT_AT(0, "util/stringUtils line 443");
    return ::mkdir(convertString(path).c_str(), 0) == 0;
}

} // namespace Morvane
