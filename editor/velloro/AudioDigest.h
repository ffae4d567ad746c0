#pragma once
// The MD5 of one audio stream's samples, interleaved as the file stores
// them. Its requests can stay in flight beside the frames', so that a file
// is read once for its pictures and its sound together.
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "Md5.h"
#include "host/FileReaderResource.h"

namespace velloro {

class AudioDigest
{
public:
    AudioDigest(Vl::FileReaderResource& reader, Vl::Ptr<FileReadInstance> file, std::uint32_t stream);
    ~AudioDigest();
    AudioDigest(const AudioDigest&) = delete;
    AudioDigest& operator=(const AudioDigest&) = delete;

    // Asks for the samples up to limit, in whole requests, and hashes those
    // that have come.
    void askUpTo(std::uint64_t limit);
    // Hashes what is in flight, then reads on to the end of the stream one
    // request at a time, and gives the digest.
    std::string finish();

private:
    static constexpr std::uint32_t kRequest = 16384; // samples per request
    static constexpr std::size_t kMaxInFlight = 16;

    void take(bool wait);
    void hash(const Aud::StreamBufferList& buffers, std::uint32_t samples);

    Vl::FileReaderResource& reader_;
    Vl::Ptr<FileReadInstance> file_;
    std::uint32_t stream_;
    Md5 md5_;
    std::vector<unsigned char> interleaved_;
    std::deque<Vl::Ptr<AudioReadRequest>> inFlight_;
    std::uint32_t asked_ = 0;   // first sample not yet asked for
    std::uint32_t hashed_ = 0;  // first sample not yet hashed
    bool shortAnswer_ = false;  // the requests in flight start at the wrong samples
    std::uint32_t resume_ = kRequest; // the request size to go on with
};

} // namespace velloro
