#pragma once
#include "AudioChannelCache.h"
#include "AudioReadRequest.h"
#include "FileReaderResource.h"
#include "FrameBuffer.h"
#include "TimedTaskManager.h"
#include "VideoReadRequest.h"
#include "VlDynamicCast.h"

namespace Vl {

// The request handling every file reader shares, for a file class T that
// provides readMetadata, readVideo(frame buffer, request),
// readAudio(buffers, request) and VlFileIxCache_open.
template <class T>
class FileReaderCommon : public FileReaderResource
{
public:
    using FileReaderResource::FileReaderResource;

    // Nothing thrown inside a reader (the memory ran out) leaves it: the
    // open fails, the request completes as failed.
    Vl::Ptr<FileReadInstance> openFile(const VlWString& path, FileReadInstance::OpenType type) override
    {
        try {
            Vl::Ptr<T> file(new T(path, type));
            if (!file->readMetadata())
                return nullptr;
            if (file->metadata()->audio().channelsPerStream() != 0)
                file->interleaver().setAudioFormat(file->metadata()->audio());
            return Vl::Ptr<FileReadInstance>(file.get());
        } catch (...) {
            return nullptr;
        }
    }

    void VlFileIxCache_open(Vl::Ptr<FileReadInstance>& instance, Vl::Ptr<IndexInfo>& record, unsigned frame) override
    {
        try {
            if (Vl::Ptr<T> file = Vl::dynamicCast<T>(instance))
                file->VlFileIxCache_open(record, frame);
        } catch (...) {
            record = nullptr;
        }
    }

    int readVideo(Vl::Ptr<VideoReadRequest>& request) override
    {
        try {
            return serveVideo(request);
        } catch (...) {
            failRequest(request, nullptr);
            return RequestStatus::eFailed;
        }
    }

    int readAudio(Vl::Ptr<AudioReadRequest>& request) override
    {
        try {
            return serveAudio(request);
        } catch (...) {
            failRequest(nullptr, request);
            return RequestStatus::eFailed;
        }
    }

private:
    int serveVideo(Vl::Ptr<VideoReadRequest>& request)
    {
        TimedTaskScope timing(TimedTaskManager::getTimedTask("VlResources/VlFileReader"), "readVideo");
        Vl::Ptr<T> file = Vl::dynamicCast<T>(request->getFileInstance());
        if (!file) {
            request->requestHasCompleted(RequestStatus::eFailed);
            return RequestStatus::eFailed;
        }
        Vl::Ptr<FrameBuffer> frame;
        int status = file->readVideo(frame, request);
        if (status == RequestStatus::eCompleted) {
            request->setResult(frame);
            request->requestHasCompleted(RequestStatus::eCompleted);
        } else if (status != RequestStatus::eStaysOpen) {
            request->requestHasCompleted(RequestStatus::eFailed);
        }
        return status;
    }

    int serveAudio(Vl::Ptr<AudioReadRequest>& request)
    {
        Vl::Ptr<T> file = Vl::dynamicCast<T>(request->getFileInstance());
        int status = RequestStatus::eFailed;
        if (file) {
            CriticalSection::Lock lock(file->lock());
            AudioChannelCacheReq key{request->getChannelStream(), request->getWord(), request->getStartSample(),
                                     request->getSampleCount()};
            AudioChannelCache& cache = file->channelCache();
            const std::uint32_t bytesPerSample = file->metadata()->audio().stride();
            if (cache.contains(key)) {
                status = cache.getResult(key, bytesPerSample, *request) ? RequestStatus::eCompleted
                                                                        : RequestStatus::eFailed;
            } else {
                Aud::StreamBufferList& buffers =
                    cache.getBuffers(key, file->interleaver().channels(), file->interleaver().bytesPerSample());
                status = file->readAudio(buffers, request);
                if (status == RequestStatus::eCompleted) {
                    cache.markFilled(key);
                    if (!cache.getResult(key, bytesPerSample, *request))
                        status = RequestStatus::eFailed;
                } else {
                    cache.forget(key);
                }
            }
            request->setStatus(static_cast<RequestStatus::eFileReqStatus>(status));
            if (request->hasCallback())
                request->invokeCallback(static_cast<RequestStatus::eFileReqStatus>(status));
            return status;
        }
        request->setStatus(RequestStatus::eFailed);
        if (request->hasCallback())
            request->invokeCallback(RequestStatus::eFailed);
        return status;
    }
};

} // namespace Vl
