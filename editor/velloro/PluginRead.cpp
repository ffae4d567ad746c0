#include "PluginRead.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <memory>
#include <vector>

#include "AudioDigest.h"
#include "Md5.h"
#include "PluginLoader.h"
#include "ProbeJson.h"
#include "host/FrameRates.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"
#include "vlhost/HostStats.h"

namespace velloro {

namespace {

using Morvane::makeFourCC;

// Frames asked for ahead of the one being hashed: the reads are serialised
// per file, so a few keep the disk busy, and each holds a whole frame.
constexpr unsigned kVideoWindow = 8;


const char* codecName(std::uint32_t fcc)
{
    switch (fcc) {
    case makeFourCC("UYVY"):
    case makeFourCC("YUY2"):
    case makeFourCC(" RGB"):
    case makeFourCC("ARGB"):
    case 0:
        return "rawvideo";
    case makeFourCC("dvsd"):
    case makeFourCC("dv25"):
    case makeFourCC("dv50"):
        return "dvvideo";
    case makeFourCC("MJPG"):
    case makeFourCC("mjpg"):
        return "mjpeg";
    case makeFourCC("mpg2"):
    case makeFourCC("MPG2"):
    case makeFourCC("MMES"):
    case makeFourCC("mmes"):
        return "mpeg2video";
    default:
        return "unknown";
    }
}

// The time base of an editor frame rate as ffmpeg prints it.
std::string timeBase(Vl::FrameRate rate)
{
    double fps = Vl::getFramesPerSecond(rate);
    if (fps <= 0.0)
        return "1/25";
    long whole = std::lround(fps);
    if (std::fabs(fps - whole) < 1e-9)
        return "1/" + std::to_string(whole);
    return "1001/" + std::to_string(whole * 1000);
}

const char* scanName(std::uint32_t scan)
{
    switch (scan) {
    case 1: return "upper field first";
    case 2: return "lower field first";
    case 3: return "progressive";
    case 4: return "progressive segmented";
    default: return "unknown";
    }
}

const char* aspectName(std::uint32_t aspect)
{
    switch (aspect) {
    case 1: return "4:3";
    case 2: return "16:9";
    case 10: return "256:135";
    default: return "unknown";
    }
}

const char* audioTypeName(std::uint32_t type)
{
    switch (type) {
    case 2: return "float";
    case 131: return "mpeg";
    case 201: return "pcm";
    case 232: return "ima-adpcm";
    case 233: return "adpcm";
    default: return "none";
    }
}

template <class... A>
void append(std::string& out, const char* fmt, A... args)
{
    char line[512];
    std::snprintf(line, sizeof line, fmt, args...);
    out += line;
}

// The container's reason, from the line the plug-in logged.
std::string openFailureReason()
{
    std::vector<std::string> lines = vlhost::logLines(0);
    if (lines.empty())
        return "nothing playable (no video or audio the editor can use)";
    std::string reason = lines.back();
    const std::string prefix = "AVI: Failed to open source file ";
    if (reason.rfind(prefix, 0) == 0)
        reason = reason.substr(prefix.size());
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
        reason.pop_back();
    return reason.empty() ? "the file could not be opened" : reason;
}

// Whether the first audio stream has sample n: one sample asked for there.
bool hasAudioSample(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file, std::uint64_t n)
{
    if (n > 0xFFFFFFFFu)
        return false;
    Vl::Ptr<AudioReadRequest> ask(new AudioReadRequest(file, 0, static_cast<std::uint32_t>(n), 1));
    reader.readAudioSample(ask, false);
    return ask->wait() == RequestStatus::eCompleted && ask->result().samples() == 1;
}

// The samples the first audio stream holds, which the editor's length (the
// video's, in samples) need not be: found by asking for single samples,
// about 2 log2(n) reads.
std::uint64_t audioSamplesInFile(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file)
{
    std::uint64_t present = 0;
    std::uint64_t absent = std::max<std::uint64_t>(1, file->metadata()->audio().lengthInSamples());
    if (!hasAudioSample(reader, file, 0))
        return 0;
    while (absent <= 0xFFFFFFFFu && hasAudioSample(reader, file, absent)) {
        present = absent;
        absent *= 2;
    }
    while (absent - present > 1) {
        const std::uint64_t mid = present + (absent - present) / 2;
        (hasAudioSample(reader, file, mid) ? present : absent) = mid;
    }
    return present + 1;
}

} // namespace

Vl::Ptr<FileReadInstance> openThrough(Vl::FileReaderResource& reader, const std::wstring& path, std::string& error)
{
    vlhost::clearLogs();
    Vl::Ptr<FileReadInstance> file = reader.openFile(VlWString(path), FileReadInstance::eOpenForInfo);
    if (!file)
        error = "cannot open: " + openFailureReason();
    return file;
}

bool pluginProbe(Vl::FileReaderResource& reader, const std::wstring& path, bool json, std::string& out,
                 std::string& error)
{
    Vl::Ptr<FileReadInstance> file = openThrough(reader, path, error);
    if (!file)
        return false;
    const PlayFileMetadata& md = *file->metadata();
    const ShotVideoMetadata& v = md.video();
    const Aud::Metadata& a = md.audio();
    int bits = reader.isFileFormatSupported(VlWString(path), FileReadInstance::eOpenForInfo, md);
    std::string label = md.startLabel().text();
    const ImageDescription& im = v.image();
    if (json) {
        struct stat st;
        const bool sized = ::stat(Morvane::convertString(path).c_str(), &st) == 0;
        out += probeJson(md, bits, sized ? static_cast<std::uint64_t>(st.st_size) : 0,
                         a.audioStreams() ? audioSamplesInFile(reader, file) : 0);
        return true;
    }
    append(out, "supported: %d (video %s, audio %s)\n", bits, (bits & 1) ? "decodable" : "not decodable",
           (bits & 2) ? "playable" : "not playable");
    if (v.videoTrackCount()) {
        append(out, "video: %ux%u fourcc=%s\n", im.width, im.height, fourccText(im.dataFormat).c_str());
        append(out, "  bits per component %u, bits per pixel %u, stride %u, %s\n", im.bitsPerComponent,
               im.bitsPerPixel, v.layout().stride, v.layout().topDown ? "top-down" : "bottom-up");
        append(out, "  scan mode %u (%s), aspect %u (%s), video format %u\n", v.scanMode(), scanName(v.scanMode()),
               v.aspectRatio(), aspectName(v.aspectRatio()), v.videoFormatUID());
        append(out, "  frame rate %.3f, length %u frames, GOP size %u, data rate %u\n",
               Vl::getFramesPerSecond(v.frameRate()), v.lengthInFrames(), v.gopSize(), v.dataRate());
    } else {
        out += "video: none\n";
    }
    append(out, "start timecode: %s\n", label.empty() ? "none" : label.c_str());
    if (a.audioStreams()) {
        append(out, "audio: %u stream(s), %u channel(s), %u bits, %u Hz, %s, %llu samples\n", a.audioStreams(),
               a.channelsPerStream(), a.bitsPerSample(), a.samplesPerSec(), audioTypeName(a.dataType()),
               static_cast<unsigned long long>(a.lengthInSamples()));
    } else {
        out += "audio: none\n";
    }
    return true;
}

bool pluginFrameMd5(Vl::FileReaderResource& reader, const std::wstring& path, std::string& out, std::string& error,
                    bool asServed)
{
    Vl::Ptr<FileReadInstance> file = openThrough(reader, path, error);
    if (!file)
        return false;
    const PlayFileMetadata& md = *file->metadata();
    const ShotVideoMetadata& v = md.video();
    const Aud::Metadata& a = md.audio();
    // The sound is asked for along with the pictures, as a player does, so
    // that the file is read once.
    std::vector<std::unique_ptr<AudioDigest>> audio;
    for (std::uint32_t k = 0; k < a.audioStreams(); ++k)
        audio.push_back(std::make_unique<AudioDigest>(reader, file, k));
    if (v.videoTrackCount()) {
        out += "#format: frame checksums\n#version: 2\n#hash: MD5\n#software: velloro avilib\n";
        append(out, "#tb 0: %s\n", timeBase(v.frameRate()).c_str());
        out += "#media_type 0: video\n";
        append(out, "#codec_id 0: %s\n", codecName(v.image().dataFormat));
        append(out, "#dimensions 0: %ux%u\n", v.image().width, v.image().height);
        out += "#sar 0: 1/1\n";
        out += "#stream#, dts,        pts, duration,     size, hash\n";

        const unsigned length = v.lengthInFrames();
        std::deque<Vl::Ptr<VideoReadRequest>> inFlight;
        unsigned next = 0;
        for (unsigned i = 0; i < length; ++i) {
            while (next < length && next - i < kVideoWindow)
                inFlight.push_back(reader.readVideoSample(file, next++, false, VideoReadRequest::eCompressed, nullptr,
                                                          nullptr, true));
            Vl::Ptr<VideoReadRequest> request = inFlight.front();
            inFlight.pop_front();
            Vl::Ptr<FrameBuffer> frame;
            if (request->wait() == RequestStatus::eCompleted)
                frame = request->getResult();
            if (!frame) {
                std::vector<std::string> logged = vlhost::logLines(0);
                error = "frame " + std::to_string(i) + " could not be read";
                if (!logged.empty()) {
                    std::string why = logged.back();
                    while (!why.empty() && why.back() == '\n')
                        why.pop_back();
                    error += " (" + why + ")";
                }
                inFlight.clear();
                reader.waitForIdle();
                return false;
            }
            // A dropped frame is the empty packet ffmpeg hands over, and
            // none at all before the first picture; the frames after it
            // keep their own times.
            if (!frame->isRepeat() || asServed)
                append(out, "0, %10u, %10u, %8d, %8u, %s\n", i, i, 1, frame->size(),
                       Md5::of(frame->bytes(), frame->size()).c_str());
            else if (frame->repeatOf() < i)
                append(out, "0, %10u, %10u, %8d, %8u, %s\n", i, i, 1, 0u, Md5::of(nullptr, 0).c_str());
            for (std::unique_ptr<AudioDigest>& stream : audio)
                stream->askUpTo(a.lengthInSamples() * (i + 1) / length);
        }
    }
    for (std::uint32_t k = 0; k < audio.size(); ++k)
        append(out, "audio %u MD5=%s\n", k, audio[k]->finish().c_str());
    reader.waitForIdle();
    return true;
}

namespace {

// The reader component of a freshly loaded plug-in, or an error line.
int withReader(const char* command, const char* path, auto&& work)
{
    PluginLoader loader;
    if (!loader.loadForCommand(command, path))
        return 1;
    std::string error;
    Vl::FileReaderResource* reader = loader.findReader("AVI FileReader");
    if (!reader) {
        std::fprintf(stderr, "velloro %s: %s: the plug-in has no \"AVI FileReader\"\n", command, path);
        return 1;
    }
    std::string out;
    // What the plug-in prints (its assertion lines) goes to standard error
    // while it works: standard output carries only the command's answer,
    // which scripts parse.
    std::fflush(stdout);
    const int answer = ::dup(STDOUT_FILENO);
    if (answer >= 0)
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
    bool ok = work(*reader, Morvane::convertString(path), out, error);
    std::fflush(stdout);
    if (answer >= 0) {
        ::dup2(answer, STDOUT_FILENO);
        ::close(answer);
    }
    std::fputs(out.c_str(), stdout);
    if (!ok) {
        commandError(command, path, error);
        return 1;
    }
    return 0;
}

} // namespace

int pluginProbeCommand(const char* path, bool json)
{
    return withReader("probe", path, [json](Vl::FileReaderResource& r, const std::wstring& p, std::string& out,
                                            std::string& error) { return pluginProbe(r, p, json, out, error); });
}

int pluginFrameMd5Command(const char* path)
{
    return withReader("framemd5", path, [](Vl::FileReaderResource& r, const std::wstring& p, std::string& out,
                                           std::string& error) { return pluginFrameMd5(r, p, out, error); });
}

} // namespace velloro
