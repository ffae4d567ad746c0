#include "FileFormats/AVI/avilib/avilib.AutoUpdateSize.h"

#include <cstring>

#include "util/linux/platform.h"

namespace Morvane::Avi {

AutoUpdateChunkSize::AutoUpdateChunkSize(unsigned char* pSizeField, std::uint64_t count)
    : m_pSizeField(pSizeField), m_cbSize(count)
{
}

AutoUpdateChunkSize::~AutoUpdateChunkSize()
{
    std::uint64_t cbSize = m_cbSize;
    MORVANE_ASSERT(cbSize > 8);
    if (!m_pSizeField)
        return;
    std::uint32_t value = static_cast<std::uint32_t>(cbSize > 8 ? cbSize - 8 : 0);
    std::memcpy(m_pSizeField, &value, sizeof(value));
}

} // namespace Morvane::Avi
