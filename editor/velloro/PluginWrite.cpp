#include "PluginWrite.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <vector>

#include "Coding.h"
#include "FramePool.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "PluginLoader.h"
#include "PluginRead.h"
#include "Progress.h"
#include "Synth.h"
#include "host/EditLabel.h"
#include "host/EncoderInfo.h"
#include "host/FileInfoBase.h"
#include "host/FrameRates.h"
#include "host/VlDynamicCast.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"
#include "vlhost/HostStats.h"

namespace velloro {

namespace {

using Morvane::makeFourCC;

constexpr unsigned kVideoWindow = 8;

bool exists(const std::wstring& path)
{
    struct stat st;
    return ::stat(vlhost::toSystemPath(path).c_str(), &st) == 0;
}

// The last thing the plug-in logged, or the host code.
std::string loggedReason(int code)
{
    for (int log : {1, 0}) {
        std::vector<std::string> lines = vlhost::logLines(log);
        if (lines.empty())
            continue;
        std::string reason = lines.back();
        while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
            reason.pop_back();
        if (!reason.empty())
            return reason;
    }
    return "the editor's error " + std::to_string(code);
}

// What a failed read of `path` at `what` tells: the reader's last word on it.
std::string readFailure(const std::wstring& path, const std::string& what)
{
    std::string error = vlhost::toSystemPath(path) + ": " + what + " could not be read";
    std::vector<std::string> logged = vlhost::logLines(0);
    std::string why = logged.empty() ? std::string() : logged.back();
    while (!why.empty() && (why.back() == '\n' || why.back() == ' '))
        why.pop_back();
    return why.empty() ? error : error + " (" + why + ")";
}

// Whether the writer takes the compression of params at its size: offered
// for the file type, accepted for the picture, or an uncompressed kind it
// takes as it comes.
bool writerAccepts(Vl::FileWriterResource& writer, const Vl::FileWriterParams& params)
{
    const std::uint32_t fcc = params.videoCompressionInfo_.compression().fcc();
    if (!VlEncoder::isSupportedSize(params.image_.width, params.image_.height))
        return false;
    if (writer.isSupportedFileFormat(params))
        return true;
    VectorExt<Compression::SupportedFormatT> offered;
    writer.getSupportedFileFormats(params.typeName_, offered);
    for (const Compression::SupportedFormatT& f : offered)
        if (f.fcc == fcc)
            return true;
    return writer.getInputImageFormat(params).dataFormat == fcc;
}

// One file being written: frames and audio in, and on any failure none of
// it left behind.
class WriteSession
{
public:
    WriteSession(Vl::FileReaderResource& reader, Vl::FileWriterResource& writer, const std::wstring& path)
        : reader_(reader), writer_(writer), path_(path)
    {
    }
    ~WriteSession()
    {
        if (instance_)
            abandon();
    }
    WriteSession(const WriteSession&) = delete;
    WriteSession& operator=(const WriteSession&) = delete;

    bool open(const Vl::FileWriterParams& params, std::string& error)
    {
        existed_ = exists(path_);
        vlhost::clearLogs();
        int result = writer_.openForWriting(VlWString(path_), params, instance_);
        if (result != 1 || !instance_) {
            error = "cannot create: " + loggedReason(result);
            instance_ = nullptr;
            if (!existed_)
                std::remove(vlhost::toSystemPath(path_).c_str());
            return false;
        }
        base_ = Vl::dynamicCast<Vl::FileInfoBase>(instance_);
        if (!base_) {
            error = "the writer gave no editor file object";
            abandon();
            return false;
        }
        return true;
    }

    // Samples per channel due by the end of frame n.
    std::uint64_t audioDue(std::uint64_t frame) const { return base_->audioSamplesBefore(frame); }

    bool audio(const Aud::StreamBufferList& buffers, std::uint32_t count, std::string& error)
    {
        if (writer_.writeAudioSamples(instance_, buffers, count) == 1)
            return true;
        // A writer that failed refuses audio from then on: its failure is the reason.
        FileWriteInstance::Status status = instance_->getStatus();
        if (status.state == FileWriteInstance::eFailed)
            return fail("cannot write", status.error, error);
        return fail("the audio was refused", 0, error);
    }

    // The source has no more audio: the writer stops waiting for it and
    // gives the remaining frames what is there.
    void audioEnded() { writer_.setAudioFinished(instance_); }

    // The source failed: the error is the source's, and no file is left.
    bool sourceFailed(std::string reason, std::string& error)
    {
        error = std::move(reason) + replaced();
        abandon();
        return false;
    }

    // Interrupted before frame n of total: the file ends with the frames
    // written, closed as at a normal end; with none, there is no file.
    bool stopped(std::uint64_t n, std::uint64_t total, std::string& error)
    {
        if (n == 0)
            return sourceFailed("interrupted before the first frame", error);
        if (!finish(error))
            return false;
        error = "stopped at frame " + std::to_string(n) + " of " + std::to_string(total) + " (interrupted)";
        return false;
    }

    // An encoded frame goes with its kind and presentation place; any other
    // is an I frame shown where it is queued.
    bool frame(Vl::Ptr<FrameBuffer>& buffer, std::string& error, VlroMpeg2FrameTypes type = eVlroFrameUnknown,
               std::uint32_t presentation = 0)
    {
        int result = type == eVlroFrameUnknown ? instance_->writeSurface(buffer)
                                               : base_->writeSurface(buffer, type, presentation);
        if (result != 1)
            return fail("cannot write", result, error);
        ++frames_;
        return true;
    }

    // Writes what is queued, closes the file and reads it back.
    bool finish(std::string& error)
    {
        writer_.setAudioFinished(instance_);
        writer_.setVideoFinished(instance_);
        int result = instance_->writeFinish();
        if (result != 1)
            return fail("cannot write", result, error);
        base_ = nullptr;
        instance_ = nullptr;
        // The file is closed now; a disk that filled while the indexes were
        // written shows as a file that does not read back whole.
        std::string why;
        Vl::Ptr<FileReadInstance> file = openThrough(reader_, path_, why);
        if (!file || file->metadata()->video().lengthInFrames() != frames_) {
            file = nullptr;
            remove();
            error = "cannot complete the file" + (why.empty() ? std::string() : ": " + why) + replaced();
            return false;
        }
        return true;
    }

private:
    bool fail(const char* what, int code, std::string& error)
    {
        error = std::string(what) + ": " + loggedReason(code);
        // The editor's number for a full disk.
        if (code == 2)
            error = std::string(what) + ": the disk is full (" + loggedReason(code) + ")";
        error += replaced();
        abandon();
        return false;
    }

    void abandon()
    {
        if (instance_)
            writer_.cancelAll(instance_);
        base_ = nullptr;
        instance_ = nullptr;
        remove();
    }

    void remove() { std::remove(vlhost::toSystemPath(path_).c_str()); }

    // The file that was there went when ours was created: say so, as ours goes too.
    std::string replaced() const { return existed_ ? " (the file it replaced is gone)" : ""; }

    Vl::FileReaderResource& reader_;
    Vl::FileWriterResource& writer_;
    std::wstring path_;
    bool existed_ = false;
    Vl::Ptr<FileWriteInstance> instance_;
    Vl::Ptr<Vl::FileInfoBase> base_;
    std::uint32_t frames_ = 0;
};

// "HH:MM:SS:FF" (";" before the frames for drop frame) as a frame count
// at rate; false for a label the rate does not have.
bool labelFrames(const std::string& text, Vl::FrameRate rate, std::uint32_t& frames, bool& drop)
{
    unsigned h = 0, m = 0, s = 0, f = 0;
    char sep[3] = {};
    int used = 0;
    if (std::sscanf(text.c_str(), "%2u%c%2u%c%2u%c%2u%n", &h, &sep[0], &m, &sep[1], &s, &sep[2], &f, &used) != 7 ||
        used != static_cast<int>(text.size()) || text.size() != 11 || sep[0] != ':' || sep[1] != ':' ||
        (sep[2] != ':' && sep[2] != ';'))
        return false;
    drop = sep[2] == ';';
    const double fps = Vl::getFramesPerSecond(rate);
    const long nominal = std::lround(fps);
    const bool dropRate = (nominal == 30 || nominal == 60) && std::fabs(fps - nominal) > 1e-3;
    if ((drop && !dropRate) || h > 23 || m > 59 || s > 59 || f >= static_cast<unsigned>(nominal))
        return false;
    // Drop frame skips the first labels of every minute but each tenth.
    const unsigned skipped = drop ? static_cast<unsigned>(nominal / 15) : 0;
    const unsigned minutes = 60 * h + m;
    if (drop && m % 10 != 0 && s == 0 && f < skipped)
        return false;
    std::uint64_t n = (std::uint64_t(3600) * h + 60 * m + s) * std::uint64_t(nominal) + f;
    n -= std::uint64_t(skipped) * (minutes - minutes / 10);
    frames = static_cast<std::uint32_t>(n);
    return true;
}

std::uint32_t scanFor(std::uint32_t fcc, std::uint32_t height)
{
    // DV's standard-definition pictures are lower field first at either rate.
    if (fcc == makeFourCC("dvsd") || fcc == makeFourCC("dv25") || fcc == makeFourCC("dv50"))
        return Vl::eLowerFieldFirst;
    if (height == 1080 || height == 576)
        return Vl::eUpperFieldFirst;
    if (height == 480 || height == 486)
        return Vl::eLowerFieldFirst;
    return Vl::eProgressive;
}

} // namespace

bool renderFile(Vl::FileReaderResource& reader, Vl::FileWriterResource& writer, const std::wstring& out,
                const RenderOptions& o, Progress* progress, std::string& error)
{
    const std::uint32_t fcc = o.fcc;
    const std::vector<std::uint32_t> encoders = Vl::EncoderInfo::installed();
    const bool encoded = std::find(encoders.begin(), encoders.end(), fcc) != encoders.end();
    if (!synthStride(fcc, o.width) && !encoded) {
        error = "unsupported format " + fourccText(fcc) +
                " (render makes UYVY, YUY2, M101, M102, v210, dvsd, dv25, dv50, dvh1, MMES, M701 or MJPG)";
        return false;
    }
    Vl::FrameRate rate = Vl::getEquivalentVlFrameRate(double(o.rateNum) / o.rateDen);
    if (rate == Vl::eFrameRateNone) {
        error = "unsupported frame rate " + std::to_string(o.rateNum) + "/" + std::to_string(o.rateDen);
        return false;
    }
    const bool tenBit = fcc == makeFourCC("v210");
    Vl::FileWriterParams params;
    params.typeName_ = "AVI";
    ImageDescription& image = params.image_;
    image.width = o.width;
    image.height = o.height;
    image.dataFormat = fcc;
    image.bitsPerComponent = tenBit ? 10 : 8;
    image.bitsPerPixel = 2 * image.bitsPerComponent;
    image.coreDataSet = true;
    VideoCompressionInfo& info = params.videoCompressionInfo_;
    info.image() = image;
    info.setScanMode(o.scanMode ? o.scanMode : scanFor(fcc, o.height));
    info.setAspectRatio(std::uint64_t(o.width) * 3 > std::uint64_t(o.height) * 4 ? Vl::eAspect16x9 : Vl::eAspect4x3);
    info.setFrameRate(rate);
    info.setVideoTrackCount(1);
    info.compression().setFcc(fcc);
    params.stride_ = synthStride(fcc, o.width);
    if (!o.timecode.empty()) {
        std::uint32_t frames = 0;
        bool drop = false;
        if (!labelFrames(o.timecode, rate, frames, drop)) {
            error = "timecode " + o.timecode + " is not a label at " + std::to_string(o.rateNum) + "/" +
                    std::to_string(o.rateDen) + " frames per second" +
                    (drop ? " (drop frame is for 30000/1001 and 60000/1001 only)" : "");
            return false;
        }
        params.startTimecode_ = editLabFrom(frames, info.scanMode(), rate, drop);
    }
    if (o.channels) {
        params.audioSettings_.setAudioStreams(1);
        params.audioSettings_.setChannelsPerStream(o.channels);
        params.audioSettings_.setBitsPerSample(16);
        params.audioSettings_.setStride(2);
        params.audioSettings_.setSamplesPerSec(o.sampleRate);
        params.audioSettings_.setDataType(Aud::eDataPcm);
    }
    if (!writerAccepts(writer, params)) {
        error = "unsupported format " + fourccText(fcc) + " at " + std::to_string(o.width) + "x" +
                std::to_string(o.height);
        return false;
    }
    const double fps = double(o.rateNum) / o.rateDen;
    const std::uint64_t frames = std::max<std::uint64_t>(1, std::llround(o.seconds * fps));
    if (frames > 2000000) {
        error = "too long: at most 2000000 frames in one file";
        return false;
    }
    // Encoded frames go in storage order, with their kinds and places.
    BarsEncoder coder;
    std::vector<VlEncodedFrame> coded;
    if (encoded && !coder.open(info, writer.getInputImageFormat(params), error))
        return false;

    WriteSession session(reader, writer, out);
    if (!session.open(params, error))
        return false;
    auto put = [&](std::uint64_t n, bool last) {
        if (!(last ? coder.flush(coded, error) : coder.picture(n, coded, error))) {
            error = "cannot encode frame " + std::to_string(n) + ": " + error;
            return false;
        }
        for (const VlEncodedFrame& f : coded) {
            Vl::Ptr<FrameBuffer> buffer = frameOf(f.bytes);
            if (!buffer) {
                error = "out of memory";
                return false;
            }
            if (!session.frame(buffer, error, f.type, f.presentation))
                return false;
        }
        coded.clear();
        return true;
    };
    // At most 4096 rows of 11008 bytes: the product fits.
    FramePool pool(static_cast<std::uint32_t>(std::uint64_t(params.stride_) * o.height));
    Aud::StreamBufferList tone;
    std::uint64_t fed = 0;
    for (std::uint64_t n = 0; n < frames; ++n) {
        if (interruptSignal()) {
            if (progress)
                progress->finish();
            if (encoded && !put(n, true))
                return false;
            return session.stopped(n, frames, error);
        }
        if (o.channels) {
            std::uint64_t due = session.audioDue(n + 1);
            std::uint32_t count = static_cast<std::uint32_t>(due - fed);
            tone.reset(o.channels, count, 2);
            for (std::uint32_t c = 0; c < o.channels; ++c)
                synthTone(o.sampleRate, fed, count, tone.channel(c));
            tone.setSamples(count);
            if (!session.audio(tone, count, error))
                return false;
            fed = due;
        }
        if (encoded) {
            if (!put(n, false))
                return false;
            if (progress)
                progress->update(n + 1);
            continue;
        }
        // Painted where the writer takes it from: no copy on the way.
        unsigned char* bytes = nullptr;
        Vl::Ptr<FrameBuffer> picture = pool.take(bytes);
        if (!picture) {
            error = "out of memory";
            return false;
        }
        synthFrame(fcc, o.width, o.height, n, bytes);
        if (!session.frame(picture, error))
            return false;
        if (progress)
            progress->update(n + 1);
    }
    if (encoded && !put(frames, true))
        return false;
    bool ok = session.finish(error);
    if (progress)
        progress->finish();
    return ok;
}

bool exportFile(Vl::FileReaderResource& reader, Vl::FileWriterResource& writer, const std::wstring& in,
                const std::wstring& out, Progress* progress, std::string& error)
{
    Vl::Ptr<FileReadInstance> file = openThrough(reader, in, error);
    if (!file)
        return false;
    const PlayFileMetadata& md = *file->metadata();
    const ShotVideoMetadata& v = md.video();
    const Aud::Metadata& a = md.audio();
    if (v.videoTrackCount() == 0) {
        error = "no video to export";
        return false;
    }
    if (v.frameRate() == Vl::eFrameRateNone) {
        error = "unsupported frame rate (not one of the editor's rates)";
        return false;
    }
    if (a.audioStreams() && a.dataType() != Aud::eDataPcm) {
        error = "unsupported audio: only PCM is written";
        return false;
    }
    Vl::FileWriterParams params;
    params.typeName_ = "AVI";
    static_cast<Aud::Metadata&>(params.audioSettings_) = a;
    params.videoCompressionInfo_.setPicture(v);
    params.videoCompressionInfo_.compression().setFcc(writtenCode(v.image().dataFormat, v.image().width));
    params.image_ = v.image();
    params.stride_ = v.layout().stride;
    // The copy starts at the same label as its source.
    params.startTimecode_ = md.startLabel();
    if (!writerAccepts(writer, params)) {
        error = "unsupported format " + fourccText(v.image().dataFormat) + " at " + std::to_string(v.image().width) +
                "x" + std::to_string(v.image().height);
        return false;
    }

    WriteSession session(reader, writer, out);
    if (!session.open(params, error))
        return false;
    const std::uint32_t streams = a.audioStreams();
    const std::uint32_t perStream = a.channelsPerStream();
    const std::uint32_t bytes = a.stride();
    std::uint64_t total = streams ? a.lengthInSamples() : 0;
    std::uint64_t fed = 0;
    Aud::StreamBufferList all;
    const unsigned length = v.lengthInFrames();
    // Long-GOP frames keep their kinds and places in presentation order.
    StorageOrder order(reader, file);
    std::deque<Vl::Ptr<VideoReadRequest>> inFlight;
    // Every way out lets the reads in flight finish before the file goes.
    auto stop = [&](bool ok) {
        inFlight.clear();
        reader.waitForIdle();
        return ok;
    };
    unsigned next = 0;
    for (unsigned i = 0; i < length; ++i) {
        if (interruptSignal()) {
            stop(true);
            file = nullptr;
            if (progress)
                progress->finish();
            return session.stopped(i, length, error);
        }
        while (next < length && next - i < kVideoWindow)
            inFlight.push_back(
                reader.readVideoSample(file, next++, false, VideoReadRequest::eCompressed, nullptr, nullptr, true));
        Vl::Ptr<VideoReadRequest> request = inFlight.front();
        inFlight.pop_front();
        Vl::Ptr<FrameBuffer> frame;
        if (request->wait() == RequestStatus::eCompleted)
            frame = request->getResult();
        if (!frame)
            return stop(session.sourceFailed(readFailure(in, "frame " + std::to_string(i)), error));
        // This frame's audio goes in before the frame, in every stream.
        std::uint64_t due = std::min(total, session.audioDue(i + 1));
        while (fed < due) {
            // The reader answers a run past the end of its audio with nothing,
            // and one it cannot serve with a failure: shrink the run until a
            // single sample is refused, and stop at a failure.
            std::uint32_t want = static_cast<std::uint32_t>(std::min<std::uint64_t>(due - fed, 65536));
            std::uint32_t got = 0;
            for (; want >= 1 && got == 0; want /= 2) {
                got = want;
                all.reset(streams * perStream, want, bytes);
                for (std::uint32_t s = 0; s < streams && got; ++s) {
                    Vl::Ptr<AudioReadRequest> ask(
                        new AudioReadRequest(file, s, static_cast<std::uint32_t>(fed), want));
                    reader.readAudioSample(ask, false);
                    if (ask->wait() != RequestStatus::eCompleted)
                        return stop(session.sourceFailed(
                            readFailure(in, "audio stream " + std::to_string(s) + " at sample " + std::to_string(fed)),
                            error));
                    std::uint32_t n = ask->result().samples();
                    got = std::min(got, n);
                    // An empty answer holds no channel buffers at all.
                    for (std::uint32_t c = 0; n != 0 && c < perStream && c < ask->result().channels(); ++c)
                        std::memcpy(all.channel(s * perStream + c), ask->result().channel(c),
                                    std::size_t(std::min(n, want)) * bytes);
                }
            }
            if (got == 0) {
                // The file has less audio than it said: the rest is not there,
                // and the writer must not wait for it.
                total = fed;
                session.audioEnded();
                break;
            }
            all.setSamples(got);
            if (!session.audio(all, got, error))
                return stop(false);
            fed += got;
        }
        VlroMpeg2FrameTypes type = eVlroFrameUnknown;
        std::uint32_t place = 0;
        std::string why;
        if (order.predicted() && !order.describe(i, *frame, type, place, why))
            return stop(session.sourceFailed(vlhost::toSystemPath(in) + ": " + why, error));
        if (!session.frame(frame, error, type, place))
            return stop(false);
        if (progress)
            progress->update(i + 1);
    }
    reader.waitForIdle();
    file = nullptr;
    bool ok = session.finish(error);
    if (progress)
        progress->finish();
    return ok;
}

namespace {

// The take, with Ctrl-C and SIGTERM stopping it between frames: then the
// status is the shell's for that signal, 128 + its number.
int withPlugin(const char* command, const char* path, auto&& work)
{
    InterruptGuard guard;
    PluginLoader loader;
    if (!loader.loadForCommand(command, path))
        return 1;
    std::string error;
    Vl::FileReaderResource* reader = loader.findReader("AVI FileReader");
    Vl::FileWriterResource* writer = loader.findWriter("AVI FileWriter");
    if (!reader || !writer) {
        std::fprintf(stderr, "velloro %s: %s: the plug-in lacks \"AVI FileReader\" or \"AVI FileWriter\"\n",
                     command, path);
        return 1;
    }
    if (!work(*reader, *writer, error)) {
        commandError(command, path, error);
        return interruptSignal() ? 128 + interruptSignal() : 1;
    }
    return 0;
}

std::uint64_t fileSize(const char* path)
{
    struct stat st;
    return ::stat(path, &st) == 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
}

} // namespace

int renderCommand(const char* out, bool overwrite, const RenderOptions& options, bool quiet)
{
    if (!mayWrite("render", nullptr, out, overwrite))
        return 1;
    return withPlugin("render", out, [&](Vl::FileReaderResource& r, Vl::FileWriterResource& w, std::string& e) {
        double fps = double(options.rateNum) / options.rateDen;
        Progress progress(std::max<std::uint64_t>(1, std::llround(options.seconds * fps)), fps,
                          Progress::forStderr(quiet));
        if (!renderFile(r, w, Morvane::convertString(out), options, &progress, e))
            return false;
        progress.summary("render", out, fileSize(out));
        return true;
    });
}

int exportCommand(const char* in, const char* out, bool overwrite, bool quiet)
{
    if (!mayWrite("export", in, out, overwrite))
        return 1;
    return withPlugin("export", out, [&](Vl::FileReaderResource& r, Vl::FileWriterResource& w, std::string& e) {
        Vl::Ptr<FileReadInstance> probe;
        std::string ignored;
        std::uint64_t frames = 0;
        double fps = 0.0;
        if ((probe = openThrough(r, Morvane::convertString(in), ignored))) {
            frames = probe->metadata()->video().lengthInFrames();
            fps = Vl::getFramesPerSecond(probe->metadata()->video().frameRate());
        }
        probe = nullptr;
        Progress shown(frames, fps, Progress::forStderr(quiet));
        if (!exportFile(r, w, Morvane::convertString(in), Morvane::convertString(out), &shown, e))
            return false;
        shown.summary("export", out, fileSize(out));
        return true;
    });
}

} // namespace velloro
