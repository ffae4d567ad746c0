#pragma once
#include <cstdint>
#include <string>

#include "host/iFile.h"
#include "vlhost/FileFaults.h"

namespace vlhost {

// A file on a POSIX descriptor. With eUnbuffered the file is opened with
// O_DIRECT where the file system takes it; a call whose buffer, position or
// length is not aligned for direct I/O goes through a second, buffered
// descriptor instead, so alignment is never an error.
class PosixFile final : public iFile
{
public:
    static Vl::Ptr<iFile> open(const std::string& path, eAccess access, eOpenBehaviour behaviour, eFlags flags,
                               const FileFaults& faults);
    ~PosixFile() override;

    std::uint64_t read(void* buf, std::uint64_t n) override;
    bool write(const void* buf, std::uint64_t n) override;
    bool setPosition(std::uint64_t pos) override;
    std::uint64_t getPosition() const override;
    std::uint64_t getSize() const override;
    bool sync() override;

    bool isDirect() const { return direct_; }

private:
    PosixFile(std::string path, int fd, int openFlags, bool direct, const FileFaults& faults);
    bool aligned(const void* buf, std::uint64_t pos, std::uint64_t n) const;
    int fdFor(const void* buf, std::uint64_t pos, std::uint64_t n);

    std::string path_;
    int fd_;
    int bufferedFd_ = -1;
    int openFlags_;
    bool direct_;
    std::uint32_t memAlign_ = 512;
    std::uint32_t offsetAlign_ = 512;
    std::uint64_t pos_ = 0;
    FileFaults faults_;
    std::int64_t written_ = 0;
    std::int64_t writeCalls_ = 0;
    std::int64_t syncCalls_ = 0;
    std::int64_t fullSize_ = -1; // the file's size when the disk became full
};

} // namespace vlhost
