#include "host/FileReaderResource.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cwctype>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace Vl {

// A video or an audio request in the queue.
struct FileReaderResource::Job
{
    Vl::Ptr<VideoReadRequest> video;
    Vl::Ptr<AudioReadRequest> audio;
    bool wholeGroup = false; // the video request's group record is still to be looked up

    const FileReadInstance* file() const
    {
        return video ? video->getFileInstance().get() : audio ? audio->getFileInstance().get() : nullptr;
    }
};

// The editor's request queue of one reader; workers start with the first
// queued request. A reader serves one file's requests one at a time under
// the file's lock, so a second worker on the same file would only wait for
// the first and be woken per frame: each file has at most one server, and
// the others serve other files.
struct FileReaderResource::Queue
{
    // The first job, in the order asked, whose file no worker is serving.
    std::deque<Job>::iterator next()
    {
        return std::find_if(jobs.begin(), jobs.end(), [this](const Job& job) {
            const FileReadInstance* file = job.file();
            return !file || std::find(serving.begin(), serving.end(), file) == serving.end();
        });
    }

    // Takes the job out of the queue for its server, the queue locked.
    Job take(std::deque<Job>::iterator at)
    {
        Job job = std::move(*at);
        jobs.erase(at);
        if (const FileReadInstance* file = job.file())
            serving.push_back(file);
        ++inFlight;
        peak = std::max(peak, inFlight);
        // Another file's request may be waiting behind this one.
        if (next() != jobs.end())
            wake.notify_one();
        return job;
    }

    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kWatch{1};
    static constexpr std::chrono::milliseconds kActive{100};

    std::mutex mutex;
    std::condition_variable wake;
    std::condition_variable idle;
    std::deque<Job> jobs;
    std::vector<const FileReadInstance*> serving; // the files that workers are serving now
    std::vector<std::thread> workers;
    std::uint32_t queued = 0; // waiting or being served
    std::uint32_t inFlight = 0;
    std::uint32_t peak = 0;
    bool stopping = false;
    // A worker is looking at the queue every kWatch, as it does while the
    // last request is less than kActive old: a request needs no wake-up
    // then, which costs the asking thread more than reading a small frame
    // (a waiting thread serves its own request; others wait a kWatch).
    bool watching = false;
    Clock::time_point lastAsked;
};

FileReaderResource::FileReaderResource(const String& name, std::uint32_t typeCode)
    : VlResourceTypeBase(typeCode, name), queue_(new Queue)
{
}

FileReaderResource::~FileReaderResource()
{
    stopRequests();
    delete queue_;
}

void FileReaderResource::addFileType(const VlWString& type)
{
    fileTypes_.add(type);
}

const Vector<VlWString>& FileReaderResource::getSupportedFileTypes() const
{
    return fileTypes_;
}

void FileReaderResource::requestHasCompletedCb(Vl::Ptr<iObject>& request, RequestStatus::eFileReqStatus status)
{
    if (auto* video = dynamic_cast<VideoReadRequest*>(request.get()))
        video->invokeCallback(status);
}

Vl::Ptr<VideoReadRequest> FileReaderResource::readVideoSample(const Vl::Ptr<FileReadInstance>& instance,
                                                              unsigned frame, bool wholeGroup,
                                                              VideoReadRequest::eResultType type, void*, void*,
                                                              bool async)
{
    Vl::Ptr<VideoReadRequest> request(new VideoReadRequest(instance, frame, type));
    if (wholeGroup && async) {
        request->setResource(this);
        if (enqueue(request, nullptr, true))
            return request;
    }
    if (wholeGroup) {
        Vl::Ptr<FileReadInstance> file = instance;
        VlFileIxCache_open(file, request->getIndexInfo(), frame);
    }
    queueReadRequest(request, async);
    return request;
}

void FileReaderResource::serve(Queue& q)
{
    std::unique_lock lock(q.mutex);
    for (;;) {
        auto found = q.next();
        if (found == q.jobs.end() && q.stopping && q.jobs.empty())
            return; // stopping, and the queue is drained
        if (found == q.jobs.end()) {
            // While requests keep coming, one worker looks at the queue every
            // millisecond instead of being woken for each of them.
            if (!q.watching && Queue::Clock::now() - q.lastAsked < Queue::kActive) {
                q.watching = true;
                q.wake.wait_for(lock, Queue::kWatch);
                q.watching = false;
            } else {
                q.wake.wait(lock);
            }
            continue;
        }
        Job job = q.take(found);
        lock.unlock();
        run(q, job, true);
        lock.lock();
    }
}

// A taken job, served with the queue's lock released, and its end.
void FileReaderResource::run(Queue& q, Job& job, bool worker)
{
    const FileReadInstance* file = job.file();
    try {
        if (job.video && job.wholeGroup) {
            Vl::Ptr<FileReadInstance> instance = job.video->getFileInstance();
            VlFileIxCache_open(instance, job.video->getIndexInfo(), job.video->getFrame());
        }
        if (job.video)
            readVideo(job.video);
        else
            readAudio(job.audio);
    } catch (...) {
        // A reader that throws (the editor's memory ran out) fails its
        // request: whoever waits on it is told so, not left waiting.
        failRequest(job.video, job.audio);
    }
    job = Job(); // the request is released outside the queue's lock
    std::lock_guard lock(q.mutex);
    if (file)
        q.serving.erase(std::find(q.serving.begin(), q.serving.end(), file));
    --q.inFlight;
    if (--q.queued == 0)
        q.idle.notify_all();
    if (q.stopping && q.jobs.empty()) {
        // Workers that found only busy files wait for the end of the queue.
        q.wake.notify_all();
    } else if (!worker && q.next() != q.jobs.end()) {
        // The file's next request, queued while this one was served here,
        // has had no worker woken for it. A worker takes it itself.
        q.wake.notify_one();
    }
}

bool FileReaderResource::serveWaiting(const VideoReadRequest* request)
{
    Queue& q = *queue_;
    std::unique_lock lock(q.mutex);
    auto found = std::find_if(q.jobs.begin(), q.jobs.end(),
                              [request](const Job& job) { return job.video.get() == request; });
    if (found == q.jobs.end())
        return false;
    // Only a file's one request, and not while a worker serves the file: a
    // file's requests keep their order and their one at a time, and a file
    // with more asked of it (played, not scrubbed) keeps its worker busy
    // instead of handing the file back and forth.
    if (const FileReadInstance* file = found->file()) {
        if (std::find(q.serving.begin(), q.serving.end(), file) != q.serving.end() ||
            std::count_if(q.jobs.begin(), q.jobs.end(), [file](const Job& job) { return job.file() == file; }) > 1)
            return false;
    }
    Job job = q.take(found);
    lock.unlock();
    run(q, job, false);
    return true;
}

void FileReaderResource::failRequest(const Vl::Ptr<VideoReadRequest>& video, const Vl::Ptr<AudioReadRequest>& audio)
{
    try {
        if (video && !video->hasCompleted())
            video->requestHasCompleted(RequestStatus::eFailed);
        if (audio && !audio->hasCompleted()) {
            audio->setStatus(RequestStatus::eFailed);
            if (audio->hasCallback())
                audio->invokeCallback(RequestStatus::eFailed);
        }
    } catch (...) {
        // A callback that throws as well: the request is marked failed already.
    }
}

bool FileReaderResource::enqueue(Vl::Ptr<VideoReadRequest> video, Vl::Ptr<AudioReadRequest> audio, bool wholeGroup)
{
    std::unique_lock lock(queue_->mutex);
    if (queue_->stopping)
        return false;
    if (queue_->workers.empty()) {
        std::uint32_t n = std::max<std::uint32_t>(getMaxRequests(), 1);
        // As many workers as the system gives; with none, the caller's
        // thread serves the request.
        try {
            for (std::uint32_t i = 0; i < n; ++i)
                queue_->workers.emplace_back([this] { serve(*queue_); });
        } catch (const std::system_error&) {
            if (queue_->workers.empty())
                return false;
        }
    }
    queue_->jobs.push_back({std::move(video), std::move(audio), wholeGroup});
    ++queue_->queued;
    // A request for a file being served waits for that file's worker.
    const FileReadInstance* file = queue_->jobs.back().file();
    queue_->lastAsked = Queue::Clock::now();
    const bool wake = !queue_->watching && (!file || std::find(queue_->serving.begin(), queue_->serving.end(),
                                                               file) == queue_->serving.end());
    lock.unlock();
    // Outside the lock: the worker woken does not find it held.
    if (wake)
        queue_->wake.notify_one();
    return true;
}

void FileReaderResource::queueReadRequest(Vl::Ptr<VideoReadRequest>& request, bool async)
{
    request->setResource(this);
    if (async && enqueue(request, nullptr))
        return;
    readVideo(request);
}

void FileReaderResource::readAudioSample(Vl::Ptr<AudioReadRequest>& request, bool async)
{
    if (async && enqueue(nullptr, request))
        return;
    readAudio(request);
}

bool FileReaderResource::isFileTypeSupported(const VlWString& path, FileReadInstance::OpenType)
{
    auto dot = path.find_last_of(L'.');
    auto slash = path.find_last_of(L'/');
    if (dot == VlWString::npos || (slash != VlWString::npos && dot < slash))
        return false;
    std::wstring ext = path.substr(dot + 1);
    for (const VlWString& type : fileTypes_) {
        if (type.size() != ext.size())
            continue;
        bool same = true;
        for (std::size_t i = 0; i < ext.size() && same; ++i)
            same = std::towupper(static_cast<wint_t>(ext[i])) == std::towupper(static_cast<wint_t>(type[i]));
        if (same)
            return true;
    }
    return false;
}

void FileReaderResource::VlFileIndexClose(void*, Vl::Ptr<IndexInfo>&) {}

bool FileReaderResource::canExtractTo(const VlWString&, const VlWString&)
{
    return false;
}

int FileReaderResource::extractFiles(const VlWString&, const VlWString&)
{
    return 2005;
}

void FileReaderResource::waitForIdle()
{
    std::unique_lock lock(queue_->mutex);
    queue_->idle.wait(lock, [this] { return queue_->queued == 0; });
}

void FileReaderResource::stopRequests()
{
    std::vector<std::thread> workers;
    {
        std::lock_guard lock(queue_->mutex);
        queue_->stopping = true;
        workers.swap(queue_->workers);
        queue_->wake.notify_all();
    }
    for (auto& t : workers)
        t.join();
}

std::uint32_t FileReaderResource::peakInFlight() const
{
    std::lock_guard lock(queue_->mutex);
    return queue_->peak;
}

} // namespace Vl
