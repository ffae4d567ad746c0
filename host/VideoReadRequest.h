#pragma once
#include <cstdint>
#include <functional>

#include "FileReadInstance.h"
#include "FrameBuffer.h"
#include "IndexInfo.h"
#include "RequestStatus.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "iObject.h"

namespace Vl {
class FileReaderResource;
}

// One frame (or group) asked of a reader resource.
class VL_HOST_API VideoReadRequest : public iObject
{
public:
    enum eResultType : int { eCompressed = 0, eDecoded = 1 };
    using Callback = std::function<void(VideoReadRequest&, RequestStatus::eFileReqStatus)>;

    VideoReadRequest(const Vl::Ptr<FileReadInstance>& instance, unsigned frame, eResultType type = eCompressed);
    ~VideoReadRequest() override;

    const Vl::Ptr<FileReadInstance>& getFileInstance() const { return instance_; }
    unsigned getFrame() const { return frame_; }
    eResultType getResultType() const { return type_; }
    Vl::Ptr<IndexInfo>& getIndexInfo() { return index_; }

    void setResult(const Vl::Ptr<FrameBuffer>& result);
    Vl::Ptr<FrameBuffer> getResult() const;
    RequestStatus::eFileReqStatus getStatus() const;
    // Called once, on the thread that completes the request.
    void setCallback(Callback cb);
    void setResource(Vl::FileReaderResource* resource) { resource_ = resource; }

    // Records the outcome, tells the resource, wakes wait().
    void requestHasCompleted(RequestStatus::eFileReqStatus status);
    bool hasCompleted() const;
    RequestStatus::eFileReqStatus wait() const;

    // For the resource: the callback, if any, with the final status.
    void invokeCallback(RequestStatus::eFileReqStatus status);

private:
    struct State;
    Vl::Ptr<FileReadInstance> instance_;
    unsigned frame_;
    eResultType type_;
    Vl::Ptr<IndexInfo> index_;
    Vl::FileReaderResource* resource_ = nullptr;
    State* state_;
};
