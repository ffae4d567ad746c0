#pragma once
// Windows-style names and results that the container code keeps on Linux.
#include <cstdint>
#include <cwchar>
#include <exception>
#include <string>

typedef std::int32_t HRESULT;
typedef int BOOL;
#ifndef FALSE
#define FALSE 0
#endif
#ifndef TRUE
#define TRUE 1
#endif

#define S_OK ((HRESULT)0x00000000)
#define S_FALSE ((HRESULT)0x00000001)
#define E_FAIL ((HRESULT)0x80004005)
#define E_OUTOFMEMORY ((HRESULT)0x8007000E)
#define E_UNEXPECTED ((HRESULT)0x8000FFFF)
#define E_NOTIMPL ((HRESULT)0x80004001)
#define E_INVALIDARG ((HRESULT)0x80070057)
#define E_INVALID_STATE ((HRESULT)0x8007139F)
#define E_NOT_SUPPORTED ((HRESULT)0x80070032)
#define E_HANDLE_EOF ((HRESULT)0x80070026)
#define E_INSUFFICIENT_BUFFER ((HRESULT)0x8007007A)
#define E_BUFFER_TOO_SMALL ((HRESULT)0x80090321)
#define E_NO_INDEX ((HRESULT)0x8007064B)
#define E_NOT_FOUND ((HRESULT)0x80070490)
#define E_FRAME_LIMIT ((HRESULT)0x800713A7)
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

class string_exception : public std::exception
{
public:
    explicit string_exception(std::string message) : message_(std::move(message)) {}
    const char* what() const noexcept override { return message_.c_str(); }

private:
    std::string message_;
};

// Prints "assertion failed <expression> at <where>" on standard output and
// returns: a failed check never stops the editor.
void assertImpl(const char* expression, const char* where);
// As assertImpl, with where made from a source path (its extension dropped)
// and a line.
void assertAt(const char* expression, const char* file, int line);

#define MORVANE_ASSERT(expr) ((expr) ? (void)0 : assertAt(#expr, __FILE__, __LINE__))
// For checks whose reported location is part of the system's fixed texts.
#define MORVANE_ASSERT_AT(expr, where) ((expr) ? (void)0 : assertImpl(#expr, where))

// errno as a result code: 0x80070000 | errno (a full disk as 0x80070070),
// E_FAIL for 0, negative as is.
HRESULT HRFromLastError();

int _ltow(unsigned short value, wchar_t* s, int base);
unsigned long wcslcat(wchar_t* dst, const wchar_t* src, unsigned long size);
unsigned long wcsntoupper(wchar_t* s, unsigned long n);
unsigned long wcsntolower(wchar_t* s, unsigned long n);
int wcscpy_s(wchar_t* dst, unsigned long size, const wchar_t* src);
wchar_t* _wgetenv(const wchar_t* name);
wchar_t* SysAllocString(const wchar_t* s);
HRESULT SysFreeString(wchar_t* s);
HRESULT StringCchPrintfW(wchar_t* dst, unsigned long cch, const wchar_t* fmt, ...);
