#include "ProbeJson.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "PluginLoader.h"
#include "host/FrameDuration.h"
#include "host/FrameRates.h"

namespace velloro {

namespace {

// Seconds as ffprobe prints them.
std::string seconds(double s)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6f", s);
    return text;
}

// A tag as ffprobe prints codec_tag_string: printable bytes as they are,
// others as [n].
std::string tagString(std::uint32_t tag)
{
    std::string out;
    for (int i = 0; i < 4; ++i) {
        const unsigned char c = static_cast<unsigned char>(tag >> (8 * i));
        char text[8];
        if (c >= 0x20 && c < 0x7F && c != '[' && c != ']')
            std::snprintf(text, sizeof text, "%c", c);
        else
            std::snprintf(text, sizeof text, "[%u]", unsigned(c));
        out.append(text);
    }
    return out;
}

const char* fieldOrder(std::uint32_t scan)
{
    switch (scan) {
    case 1: return "tt";
    case 2: return "bb";
    case 3:
    case 4: return "progressive";
    default: return "unknown";
    }
}

// The wave format tag of the editor's audio data type.
std::uint32_t waveTag(std::uint32_t dataType)
{
    switch (dataType) {
    case 201: return 1;
    case 233: return 2;
    case 2: return 3;
    case 232: return 17;
    case 131: return 80;
    default: return 0;
    }
}

} // namespace

std::string probeJson(const PlayFileMetadata& md, int supported, std::uint64_t size, std::uint64_t audioSamples)
{
    using nlohmann::ordered_json;
    const ShotVideoMetadata& v = md.video();
    const Aud::Metadata& a = md.audio();
    ordered_json streams = ordered_json::array();
    double duration = 0.0;
    if (v.videoTrackCount()) {
        const double fps = Vl::getFramesPerSecond(v.frameRate());
        std::uint32_t num = 0, den = 0;
        // A frame lasts num/den seconds: the rate is den/num.
        const bool rational = toRational(Vl::getFrameDuration(v.frameRate()), num, den) && num;
        const double length = fps > 0.0 ? v.lengthInFrames() / fps : 0.0;
        // The file lasts as long as its pictures, as ffprobe says too.
        duration = length;
        ordered_json s = {
            {"index", streams.size()},
            {"codec_type", "video"},
            {"codec_tag_string", tagString(v.image().dataFormat)},
            {"width", v.image().width},
            {"height", v.image().height},
            {"field_order", fieldOrder(v.scanMode())},
            {"r_frame_rate", rational ? std::to_string(den) + "/" + std::to_string(num) : "0/0"},
            {"duration", seconds(length)},
            {"nb_frames", std::to_string(v.lengthInFrames())},
        };
        streams.push_back(s);
    }
    for (std::uint32_t i = 0; i < a.audioStreams(); ++i) {
        // The editor is told one audio format, the first stream's: of the
        // others only that they are there.
        if (i > 0) {
            streams.push_back({{"index", streams.size()}, {"codec_type", "audio"}});
            continue;
        }
        const double length = a.samplesPerSec() ? double(audioSamples) / a.samplesPerSec() : 0.0;
        if (!v.videoTrackCount())
            duration = length;
        ordered_json s = {
            {"index", streams.size()},
            {"codec_type", "audio"},
            {"codec_tag_string", tagString(waveTag(a.dataType()))},
            {"sample_rate", std::to_string(a.samplesPerSec())},
            {"channels", a.channelsPerStream()},
            {"bits_per_sample", a.bitsPerSample()},
            {"duration", seconds(length)},
            {"nb_frames", std::to_string(audioSamples)},
        };
        streams.push_back(s);
    }
    ordered_json format = {
        {"nb_streams", streams.size()},
        {"duration", seconds(duration)},
        {"size", std::to_string(size)},
    };
    const std::string label = md.startLabel().text();
    if (!label.empty())
        format["tags"] = {{"timecode", label}};
    ordered_json editor = {
        {"supported", supported},
        {"video_decodable", (supported & 1) != 0},
        {"audio_playable", (supported & 2) != 0},
        {"video_tracks", v.videoTrackCount()},
        {"fourcc", fourccText(v.image().dataFormat)},
        {"scan_mode", v.scanMode()},
        {"aspect", v.aspectRatio()},
        {"gop_size", v.gopSize()},
        {"data_rate", v.dataRate()},
        {"start_timecode", label},
        {"audio_streams", a.audioStreams()},
    };
    const ordered_json all = {{"streams", streams}, {"format", format}, {"editor", editor}};
    return all.dump(4) + "\n";
}

} // namespace velloro
