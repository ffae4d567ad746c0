#pragma once
#include <cstdint>

#include "AudStreamBufferList.h"
#include "VlExport.h"

namespace Aud {

// The audio of a file being written: a thread-safe circular buffer, one ring
// per channel, filled by the editor's threads and emptied by the writer's.
class VL_HOST_API AudioSource
{
public:
    // channels rings of capacity samples of bytesPerSample bytes each.
    AudioSource(std::uint32_t channels, std::uint32_t bytesPerSample, std::uint32_t capacity);
    virtual ~AudioSource();
    AudioSource(const AudioSource&) = delete;
    AudioSource& operator=(const AudioSource&) = delete;

    // Copies count samples of every channel of buffers in; waits while the
    // rings are full. 1; the code of the failure that stopped writing, when
    // it did (also while waiting for room); or 0 when the buffers do not
    // match the rings, count is beyond them, the audio was finished or
    // writing was cancelled or is over.
    int copyToCircularBuffer(const StreamBufferList& buffers, std::uint32_t count);
    // No more audio will come. 1.
    int setAudioFinishedEvent();

protected:
    // Waits until wanted samples are there, or the audio is finished, or the
    // source is stopped. The samples available (at most wanted), or -1 when stopped.
    std::int64_t waitForSamples(std::uint32_t wanted);
    // Takes n samples of channel c into to (n must be available for every channel).
    void takeSamples(std::uint32_t c, unsigned char* to, std::uint32_t n, std::uint32_t toStride);
    // Marks n samples as consumed on every channel.
    void consumeSamples(std::uint32_t n);
    // Wakes every waiter for good; a failure's code (not 1) is what the
    // feeders are then told, 0 for a cancel or the end of writing.
    void stopAudio(int failure = 0);
    std::uint32_t audioChannels() const;

private:
    struct Ring;
    Ring* ring_;
};

} // namespace Aud
