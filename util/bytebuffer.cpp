#include "util/bytebuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "host/iFileSystem.h"

namespace Morvane {

namespace {

// Page-aligned, so that the writer's buffers go to the disk by direct I/O:
// an unaligned block sends every write through the page cache instead.
constexpr std::align_val_t kBlockAlign{4096};

} // namespace

unsigned char* CByteBuffer::allocateMemory(unsigned long n, unsigned long* pSize)
{
    auto* p = new (kBlockAlign, std::nothrow) unsigned char[n];
    if (!p)
        errno = ENOMEM;
    if (p && pSize)
        *pSize = n;
    return p;
}

void CByteBuffer::freeMemory(unsigned char* p)
{
    ::operator delete[](p, kBlockAlign);
}

CByteBuffer::CByteBuffer() = default;

CByteBuffer::CByteBuffer(unsigned long n)
{
    if (n)
        alloc(n);
}

CByteBuffer::CByteBuffer(unsigned char* p, unsigned long n)
{
    attach(p, n);
    m_bOwns = false;
}

CByteBuffer::CByteBuffer(const CByteBuffer& other)
{
    assign(other);
}

CByteBuffer& CByteBuffer::operator=(const CByteBuffer& other)
{
    if (this != &other)
        assign(other);
    return *this;
}

CByteBuffer::~CByteBuffer()
{
    if (!m_bOwns)
        detach();
    reset();
}

void CByteBuffer::reset()
{
    if (m_pData)
        freeMemory(m_pData);
    m_pData = nullptr;
    m_cbCapacity = 0;
    m_cbOffset = 0;
    m_cbUsed = 0;
    m_bOwns = true;
}

bool CByteBuffer::alloc(unsigned long n)
{
    reset();
    unsigned char* p = allocateMemory(n, &m_cbCapacity);
    if (!p) {
        MORVANE_ASSERT(false);
        m_cbCapacity = 0;
        return false;
    }
    m_pData = p;
    m_cbCapacity = n;
    return true;
}

bool CByteBuffer::inflate(unsigned long n)
{
    if (n <= m_cbCapacity) {
        MORVANE_ASSERT(0);
        return false;
    }
    unsigned char* p = allocateMemory(n, nullptr);
    if (!p) {
        MORVANE_ASSERT(0);
        return false;
    }
    if (m_pData) {
        std::memcpy(p, m_pData, m_cbCapacity);
        freeMemory(m_pData);
    }
    m_pData = p;
    m_cbCapacity = n;
    return true;
}

bool CByteBuffer::assign(const CByteBuffer& other)
{
    if (!other.m_pData) {
        reset();
        return true;
    }
    if (m_cbCapacity < other.m_cbCapacity) {
        reset();
        if (!alloc(other.m_cbCapacity)) {
            MORVANE_ASSERT(false);
            return false;
        }
    }
    std::memcpy(m_pData, other.m_pData, other.m_cbCapacity);
    m_cbOffset = other.m_cbOffset;
    m_cbUsed = other.m_cbUsed;
    return true;
}

bool CByteBuffer::attach(unsigned char* p, unsigned long n)
{
    reset();
    m_pData = p;
    m_cbCapacity = n;
    return true;
}

void CByteBuffer::detach()
{
    m_pData = nullptr;
    m_cbCapacity = 0;
}

void CByteBuffer::clear()
{
    m_cbOffset = 0;
    m_cbUsed = 0;
}

void CByteBuffer::flush(unsigned char fill)
{
    if (m_pData)
        std::memset(m_pData, fill, m_cbCapacity);
    clear();
}

void CByteBuffer::flush(unsigned char fill, unsigned long n)
{
    if (n > m_cbCapacity) {
        MORVANE_ASSERT(false);
        n = m_cbCapacity;
    }
    if (m_pData)
        std::memset(m_pData, fill, n);
    clear();
}

void CByteBuffer::empty()
{
    m_cbUsed = 0;
}

unsigned char* CByteBuffer::getBuffer(unsigned long i) const
{
    if (i < m_cbCapacity && m_pData)
        return m_pData + i;
    MORVANE_ASSERT(false);
    return nullptr;
}

unsigned char* CByteBuffer::getBufferAtOffset() const
{
    if (m_cbOffset < m_cbCapacity && m_pData)
        return m_pData + m_cbOffset;
    MORVANE_ASSERT(0);
    return nullptr;
}

unsigned char* CByteBuffer::getBufferAtEnd() const
{
    if (m_cbUsed < m_cbCapacity && m_pData)
        return m_pData + m_cbUsed;
    MORVANE_ASSERT(false);
    return nullptr;
}

unsigned char CByteBuffer::at(unsigned long i) const
{
    return (i < m_cbCapacity && m_pData) ? m_pData[i] : 0;
}

bool CByteBuffer::setOffset(unsigned long i)
{
    if (i < m_cbCapacity) {
        m_cbOffset = i;
        return true;
    }
    MORVANE_ASSERT(false);
    return false;
}

bool CByteBuffer::setUsed(unsigned long n)
{
    if (n <= m_cbCapacity) {
        m_cbUsed = n;
        return true;
    }
    MORVANE_ASSERT(0);
    return false;
}

bool CByteBuffer::append(unsigned long n)
{
    if (n > m_cbCapacity - m_cbUsed) // used never exceeds capacity: no wrap
        return setUsed(m_cbCapacity + 1);
    return setUsed(m_cbUsed + n);
}

bool CByteBuffer::append(const unsigned char* p, unsigned long n)
{
    return append2(p, n);
}

bool CByteBuffer::append2(const unsigned char* p, unsigned long n)
{
    if (!m_pData || !p) {
        MORVANE_ASSERT(0);
        return false;
    }
    MORVANE_ASSERT(m_cbOffset == 0);
    if (n > m_cbCapacity - m_cbUsed) {
        MORVANE_ASSERT(0);
        return false;
    }
    std::memmove(m_pData + m_cbUsed, p, n);
    m_cbUsed += n;
    return true;
}

bool CByteBuffer::append(const CByteBuffer& other)
{
    return append2(other.getBufferAtOffset(), other.bytesFromOffset());
}

bool CByteBuffer::append3(unsigned char value, unsigned long n)
{
    if (!m_pData || n > m_cbCapacity - m_cbUsed) {
        MORVANE_ASSERT(0);
        return false;
    }
    std::memset(m_pData + m_cbUsed, value, n);
    m_cbUsed += n;
    return true;
}

unsigned long CByteBuffer::bytesFromOffset() const
{
    // The used count is taken from the offset; never past the block's end.
    if (m_cbOffset >= m_cbCapacity)
        return 0;
    return std::min(m_cbUsed, m_cbCapacity - m_cbOffset);
}

void CByteBuffer::copyTo(unsigned char* dst) const
{
    if (m_pData && dst && bytesFromOffset())
        std::memcpy(dst, m_pData + m_cbOffset, bytesFromOffset());
}

HRESULT CByteBuffer::write(const Vl::Ptr<iFile>& file, unsigned long* pWritten) const
{
    if (!file || (m_cbUsed && !m_pData))
        return E_INVALIDARG;
    Vl::Ptr<iFile> f = file;
    unsigned long n = bytesFromOffset();
    if (!f->write(m_pData ? m_pData + m_cbOffset : nullptr, n))
        return HRFromLastError();
    if (pWritten)
        *pWritten = n;
    return S_OK;
}

HRESULT CByteBuffer::writeAt(const Vl::Ptr<iFile>& file, unsigned long pos, unsigned long* pWritten) const
{
    if (!file)
        return E_INVALIDARG;
    Vl::Ptr<iFile> f = file;
    if (!f->setPosition(pos))
        return HRFromLastError();
    return write(f, pWritten);
}

HRESULT CByteBuffer::fromFile(const Vl::Ptr<iFile>& file, unsigned long pos, unsigned long n)
{
    if (!file)
        return E_INVALIDARG;
    Vl::Ptr<iFile> f = file;
    if (n > ~0ul - 32) {
        errno = ENOMEM;
        return HRFromLastError();
    }
    if (!f->setPosition(pos) || !alloc(n + 32))
        return HRFromLastError();
    std::uint64_t got = f->read(m_pData, n);
    if (got == 0) {
        HRESULT hr = HRFromLastError();
        MORVANE_ASSERT(false);
        return hr;
    }
    m_cbUsed = got;
    return S_OK;
}

HRESULT CByteBuffer::fromFile(const wchar_t* path, unsigned long maxSize)
{
    if (!path)
        return E_INVALIDARG;
    Vl::Ptr<iFile> file =
        OS().fileSystem().open(path, iFile::eRead, iFile::eOpenExisting, iFile::eShareReadWrite, iFile::eNone);
    if (!file) {
        HRESULT hr = HRFromLastError();
        MORVANE_ASSERT(false);
        return hr;
    }
    std::uint64_t size = file->getSize();
    if (maxSize && size > maxSize)
        return E_FAIL;
    return fromFile(file, 0, size);
}

HRESULT CByteBuffer::fromFile(const std::wstring& path, unsigned long maxSize)
{
    return fromFile(path.c_str(), maxSize);
}

HRESULT CByteBuffer::toFile(const wchar_t* path) const
{
    auto failure = [] {
        int err = errno;
        return err > 0 ? static_cast<HRESULT>(0x80070000u | (static_cast<unsigned>(err) & 0xFFFFu)) : E_FAIL;
    };
    if (!path)
        return E_INVALIDARG;
    Vl::Ptr<iFile> file =
        OS().fileSystem().open(path, iFile::eWrite, iFile::eCreateAlways, iFile::eShareRead, iFile::eNone);
    if (!file)
        return failure();
    if (FAILED(write(file, nullptr)))
        return failure();
    return 1;
}

HRESULT CByteBuffer::toFile(const std::wstring& path) const
{
    return toFile(path.c_str());
}

} // namespace Morvane
