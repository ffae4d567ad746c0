#pragma once
#include <string>

#include "host/iFile.h"
#include "util/linux/platform.h"

namespace Morvane {

// Fixed-capacity byte buffer with a used count and a read offset. It never
// grows by itself: appending past the capacity fails; alloc (dropping the
// contents) and inflate (keeping them) are the only ways to grow.
class CByteBuffer
{
public:
    CByteBuffer();
    explicit CByteBuffer(unsigned long n);
    // A view of memory the buffer never frees.
    CByteBuffer(unsigned char* p, unsigned long n);
    CByteBuffer(const CByteBuffer& other);
    CByteBuffer& operator=(const CByteBuffer& other);
    ~CByteBuffer();

    void reset();
    bool alloc(unsigned long n);
    bool inflate(unsigned long n);
    bool assign(const CByteBuffer& other);
    // Takes p as the block; the buffer frees it later (unlike the view constructor).
    bool attach(unsigned char* p, unsigned long n);
    void detach();

    void clear();
    void flush(unsigned char fill);
    void flush(unsigned char fill, unsigned long n);
    void empty();

    unsigned char* getBuffer(unsigned long i) const;
    unsigned char* getBufferAtOffset() const;
    unsigned char* getBufferAtEnd() const;
    unsigned char at(unsigned long i) const;

    bool setOffset(unsigned long i);
    bool setUsed(unsigned long n);
    unsigned long getOffset() const { return m_cbOffset; }
    unsigned long getUsed() const { return m_cbUsed; }
    unsigned long getCapacity() const { return m_cbCapacity; }
    bool ownsBuffer() const { return m_bOwns; }

    bool append(unsigned long n);
    bool append(const unsigned char* p, unsigned long n);
    bool append2(const unsigned char* p, unsigned long n);
    bool append(const CByteBuffer& other);
    bool append3(unsigned char value, unsigned long n);
    void copyTo(unsigned char* dst) const;

    HRESULT write(const Vl::Ptr<iFile>& file, unsigned long* pWritten) const;
    HRESULT writeAt(const Vl::Ptr<iFile>& file, unsigned long pos, unsigned long* pWritten) const;
    HRESULT fromFile(const Vl::Ptr<iFile>& file, unsigned long pos, unsigned long n);
    HRESULT fromFile(const wchar_t* path, unsigned long maxSize);
    HRESULT fromFile(const std::wstring& path, unsigned long maxSize);
    HRESULT toFile(const wchar_t* path) const;
    HRESULT toFile(const std::wstring& path) const;

    static unsigned char* allocateMemory(unsigned long n, unsigned long* pSize);
    static void freeMemory(unsigned char* p);

private:
    unsigned long bytesFromOffset() const;

    unsigned long m_cbCapacity = 0;
    unsigned char* m_pData = nullptr;
    unsigned long m_cbOffset = 0;
    unsigned long m_cbUsed = 0;
    bool m_bOwns = true;
};

} // namespace Morvane
