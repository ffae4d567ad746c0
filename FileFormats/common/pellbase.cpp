#include "FileFormats/common/pellbase.h"

#include <cstring>
#include <cwchar>

#include "util/stringUtils.h"

namespace Pell {

void CPellBase::setLastError(const std::wstring& text)
{
    lastError_ = text;
}

void CPellBase::setLastError(const std::wstring& text, int err)
{
    setLastError(text);
    std::wstring full = getLastError();
    full += L' ';
    if (const char* message = ::strerrordesc_np(err)) {
        full += Morvane::convertString(message);
    } else {
        wchar_t code[32];
        std::swprintf(code, 32, L"Error Code 0x%x", static_cast<unsigned>(err));
        full += code;
    }
    lastError_ = full;
}

} // namespace Pell
