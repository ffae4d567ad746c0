#pragma once
#include <cstdint>

#include "FrameBuffer.h"
#include "PlayFile.h"
#include "VlExport.h"
#include "VlPtr.h"

// A file opened by a writer resource.
class VL_HOST_API FileWriteInstance : public PlayFile
{
public:
    enum State : std::uint32_t { eWriting = 0, eFinished = 1, eFailed = 2, eCancelled = 3 };
    struct Status
    {
        State state = eWriting;
        std::uint32_t framesWritten = 0;
        int error = 1; // the first failing host code, or 1
    };

    explicit FileWriteInstance(const VlWString& path);
    ~FileWriteInstance() override;

    // 1 when the file is ready for frames.
    virtual int initialise() = 0;
    virtual void deinitialise() = 0;
    // Queues an encoded frame; waits while the queue is full. 1, or the
    // failure that stopped writing.
    virtual int writeSurface(Vl::Ptr<FrameBuffer>& frame) = 0;
    // Writes what is queued and stops: 1, or the first failure.
    virtual int writeFinish() = 0;
    virtual std::uint32_t getItemsPending() const = 0;
    virtual Status getStatus() const = 0;
};
