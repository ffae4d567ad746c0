// Opens arbitrary bytes as an AVI file and asks every header question of
// every stream, before and after re-reading the header.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FuzzInput.h"

using Morvane::Avi::FileReader;

namespace {

volatile std::uint64_t g_sink;

void askEverything(FileReader& r)
{
    std::uint64_t sum = r.get_StreamCount() + r.get_MainHeader().dwStreams + r.get_ExtendedHeader().dwTotalFrames +
                        r.get_VideoProperties()->dwFrameAspectRatio + r.get_MediaType().cbFormat +
                        r.get_HasIdx1();
    // Past the last stream and a negative number must be refused cleanly too.
    int n = static_cast<int>(std::min<unsigned>(r.get_StreamCount(), 64));
    for (int s = -1; s <= n; ++s) {
        sum += r.ValidStream(s) + r.get_IsVideo(s) + r.get_IsAudio(s) + r.get_FCC(s) + r.get_Length(s);
        sum += static_cast<std::uint64_t>(r.get_Width(s)) + static_cast<std::uint64_t>(r.get_Height(s));
        sum += r.get_BitsPerSample(s) + r.get_ChannelCount(s) + static_cast<std::uint64_t>(r.get_Rate(s));
        int rate = 0, scale = 0;
        sum += r.get_RateAndScale(s, &rate, &scale) + static_cast<unsigned>(rate) + static_cast<unsigned>(scale);
        sum += r.get_BufferSize(s) + r.get_HasIndexTable(s) + r.get_IsTimeCode(s);
        unsigned tc = 0;
        sum += static_cast<std::uint64_t>(r.get_TimeCode(s, &tc));
        int extra = r.streamGetExtraData(s, nullptr, 0);
        if (extra > 0) {
            std::vector<unsigned char> buf(static_cast<std::size_t>(extra));
            sum += static_cast<unsigned>(r.streamGetExtraData(s, buf.data(), extra));
            if (extra > 1)
                sum += static_cast<unsigned>(r.streamGetExtraData(s, buf.data(), extra - 1));
        }
        if (const auto* st = r.get_Stream(s))
            sum += st->m_SuperIndex.size() + st->m_cbStreamFormatExtra;
    }
    if (const auto* f = r.get_VideoFormat())
        sum += f->biSize;
    g_sink = g_sink + sum;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::ScratchFile file("open", fuzz::sectorSizeOf(data, size));
    if (!file.write(data, size))
        return 0;
    FileReader r;
    HRESULT hr = r.load(file.path());
    askEverything(r);
    (void) r.getLastError();
    if (SUCCEEDED(hr)) {
        r.updateMetadata();
        askEverything(r);
        // With a current stream, the re-read opens it again.
        if (r.get_StreamCount() > 0 && SUCCEEDED(r.essenceOpen(0))) {
            r.updateMetadata();
            askEverything(r);
        }
    }
    return 0;
}
