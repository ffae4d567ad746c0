#include "Repair.h"

#include <sys/stat.h>

#include <cstdio>

#include "OutputFile.h"
#include "util/stringUtils.h"

namespace velloro {

namespace {

std::string counted(std::uint64_t n, const char* one, const char* many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

} // namespace

std::string repairSummaryLine(const Morvane::Avi::RepairSummary& s)
{
    std::string line = "repaired: " + counted(s.frames, "frame", "frames");
    if (s.hasAudio) {
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%.1f",
                      s.audioBytesPerSec ? double(s.audioBytes) / s.audioBytesPerSec : 0.0);
        line += std::string(", ") + seconds + " s of audio";
    }
    std::string dropped;
    auto add = [&](std::uint64_t n, const char* one, const char* many) {
        if (n)
            dropped += (dropped.empty() ? "" : ", ") + counted(n, one, many);
    };
    add(s.partialFrames, "partial frame", "partial frames");
    add(s.partialAudioChunks, "partial audio chunk", "partial audio chunks");
    add(s.audioChunksAfterLastFrame, "audio chunk after the last frame", "audio chunks after the last frame");
    return line + "; " + (dropped.empty() ? "nothing" : dropped) + " dropped";
}

int repairCommand(const char* in, const char* out, bool overwrite)
{
    if (out && !mayWrite("repair", in, out, overwrite))
        return 1;
    struct stat st;
    const bool existed = out && ::lstat(out, &st) == 0;
    Morvane::Avi::FileRepair repair;
    HRESULT hr = repair.open(Morvane::convertString(in));
    const char* failed = in;
    std::string also;
    if (SUCCEEDED(hr)) {
        if (out) {
            hr = repair.writeTo(Morvane::convertString(out));
            failed = out;
            if (FAILED(hr) && existed)
                also = " (the file it replaced is gone)";
        } else {
            hr = repair.repairInPlace();
        }
    }
    if (FAILED(hr)) {
        std::fprintf(stderr, "velloro repair: %s: %s%s\n", failed, Morvane::convertString(repair.getLastError()).c_str(),
                     also.c_str());
        return 1;
    }
    std::printf("%s\n", repairSummaryLine(repair.get_Summary()).c_str());
    return 0;
}

} // namespace velloro
