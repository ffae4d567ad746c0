#pragma once
#include <cstdint>
#include <functional>

#include "AudStreamBufferList.h"
#include "FileReadInstance.h"
#include "RequestStatus.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "iObject.h"

// A run of samples of one audio stream asked of a reader resource; the
// result comes back split into one buffer per channel.
class VL_HOST_API AudioReadRequest : public iObject
{
public:
    using Callback = std::function<void(AudioReadRequest&, RequestStatus::eFileReqStatus)>;

    AudioReadRequest(const Vl::Ptr<FileReadInstance>& instance, std::uint32_t channelStream, std::uint32_t startSample,
                     std::uint32_t sampleCount, std::uint32_t word = 0);
    ~AudioReadRequest() override;

    const Vl::Ptr<FileReadInstance>& getFileInstance() const { return instance_; }
    std::uint32_t getChannelStream() const { return stream_; }
    std::uint32_t getWord() const { return word_; }
    std::uint32_t getStartSample() const { return start_; }
    std::uint32_t getSampleCount() const { return count_; }
    // Bytes of the whole request's interleaved block as the file's metadata sizes it.
    std::uint32_t getBytesPerMCS() const;

    Aud::StreamBufferList& result() { return result_; }
    const Aud::StreamBufferList& result() const { return result_; }

    void setStatus(RequestStatus::eFileReqStatus status);
    RequestStatus::eFileReqStatus getStatus() const;
    void setCallback(Callback cb);
    bool hasCallback() const;
    void invokeCallback(RequestStatus::eFileReqStatus status);
    RequestStatus::eFileReqStatus wait() const;
    bool hasCompleted() const;

private:
    struct State;
    Vl::Ptr<FileReadInstance> instance_;
    std::uint32_t stream_;
    std::uint32_t start_;
    std::uint32_t count_;
    std::uint32_t word_;
    Aud::StreamBufferList result_;
    State* state_;
};
