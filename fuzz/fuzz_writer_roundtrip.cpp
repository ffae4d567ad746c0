// Arbitrary track descriptions and frames through the writer: each create
// and each write either fails with a code and a text, or the file reads
// back through the reader with every frame and every audio byte the same.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "avi/mpeg2_codec_block.h"
#include "FuzzInput.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"

using namespace Morvane::Avi;

namespace {

// Pulls fields off the input; zeros once it runs out.
class Input
{
public:
    Input(const std::uint8_t* p, std::size_t n) : p_(p), n_(n) {}
    template <class T>
    T get()
    {
        T v{};
        std::size_t k = std::min(sizeof v, n_ - at_);
        std::memcpy(&v, p_ + at_, k);
        at_ += k;
        return v;
    }

private:
    const std::uint8_t* p_;
    std::size_t n_;
    std::size_t at_ = 0;
};

[[noreturn]] void mismatch(const char* what, unsigned stream, unsigned item, const std::wstring& text)
{
    std::fprintf(stderr, "read back differs: %s, stream %u, item %u (%s)\n", what, stream, item,
                 Morvane::convertString(text).c_str());
    std::abort();
}

std::vector<unsigned char> bytesFor(unsigned stream, unsigned frame, std::uint32_t size)
{
    std::vector<unsigned char> v(size);
    std::uint32_t x = (stream + 1) * 2654435761u ^ (frame * 40503u + 17u);
    for (auto& b : v) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<unsigned char>(x >> 24);
    }
    return v;
}

const char kVideoCodes[][5] = {"UYVY", "YUY2", "dvsd", "dv50", "MJPG", "MMES", "M102", "M101"};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietStdout();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input in(data, size);
    std::uint8_t shape = in.get<std::uint8_t>();
    unsigned nAudio = shape % 4;
    bool timecode = (shape & 4) != 0;
    bool ownOrder = (shape & 8) != 0; // display numbers and frame types from the input

    std::vector<TrackStructuralData> tracks;
    std::vector<unsigned char> extra;
    TrackStructuralData v = {};
    v.Type = StreamVideo;
    v.Data.VInfo.width = in.get<std::uint32_t>();
    v.Data.VInfo.height = in.get<std::uint32_t>();
    v.Data.VInfo.bitCount = in.get<std::uint8_t>();
    std::uint8_t code = in.get<std::uint8_t>();
    v.Data.VInfo.fourcc = Morvane::makeFourCC(kVideoCodes[code % 8]);
    v.Data.VInfo.fieldCode = in.get<std::uint8_t>();
    v.Data.VInfo.aspectRatio = in.get<std::uint32_t>();
    v.Data.VInfo.rate = in.get<std::uint64_t>();
    v.Data.VInfo.scale = in.get<std::uint64_t>();
    v.Data.VInfo.gopLength = in.get<std::uint8_t>();
    if (v.Data.VInfo.fourcc == Morvane::makeFourCC("MMES")) {
        extra = testutil::mpeg2CodecBlock();
        // Some inputs cut the codec block short.
        if (code & 0x80)
            extra.resize(in.get<std::uint8_t>() % 212);
        v.pExtraData = extra.data();
        v.cbExtra = static_cast<std::uint16_t>(extra.size());
    }
    // The video track need not be the first.
    std::uint8_t videoAt = in.get<std::uint8_t>() % (nAudio + 1);
    for (unsigned a = 0; a < nAudio; ++a) {
        TrackStructuralData t = {};
        t.Type = StreamAudio;
        t.Data.AInfo.formatTag = in.get<std::uint16_t>();
        t.Data.AInfo.channels = in.get<std::uint16_t>();
        t.Data.AInfo.samplesPerSec = in.get<std::uint32_t>();
        t.Data.AInfo.bitsPerSample = in.get<std::uint16_t>();
        t.Data.AInfo.blockAlign = in.get<std::uint16_t>();
        t.Data.AInfo.avgBytesPerSec = in.get<std::uint32_t>();
        tracks.push_back(t);
    }
    tracks.insert(tracks.begin() + videoAt, v);
    if (timecode) {
        TrackStructuralData t = {};
        t.Type = StreamTimecode;
        t.Data.TCInfo.startFrame = in.get<std::uint32_t>();
        t.Data.TCInfo.flags = in.get<std::uint8_t>();
        tracks.push_back(t);
    }

    fuzz::ScratchFile file("writer", fuzz::sectorSizeOf(data, size));
    FileWriter w;
    HRESULT hr = w.create(file.path(), tracks.data(), static_cast<std::uint16_t>(tracks.size()));
    if (FAILED(hr))
        return 0;

    // Per written frame: the bytes of each track, in track order.
    std::vector<std::vector<std::vector<unsigned char>>> written;
    unsigned nFrames = in.get<std::uint8_t>() % 48;
    // Display numbers, when given, are a permutation within groups of four:
    // the writer keeps an index whose real locations it cannot find short
    // on purpose, so only orders a host really gives are asked to read back.
    std::vector<std::uint32_t> display(nFrames);
    for (unsigned g = 0; g < nFrames; g += 4) {
        unsigned n = std::min(4u, nFrames - g);
        for (unsigned i = 0; i < n; ++i)
            display[g + i] = g + i;
        std::uint8_t swaps = ownOrder ? in.get<std::uint8_t>() : 0;
        for (unsigned i = n; i > 1; --i, swaps /= 4)
            std::swap(display[g + i - 1], display[g + swaps % i]);
    }
    for (unsigned f = 0; f < nFrames; ++f) {
        std::vector<std::vector<unsigned char>> bytes(tracks.size());
        std::vector<TrackData> td(tracks.size());
        for (unsigned k = 0; k < tracks.size(); ++k) {
            std::uint32_t n = 0;
            if (tracks[k].Type == StreamVideo) {
                // The reader refuses a dropped (empty) frame on purpose: the host never gives one.
                n = std::max<std::uint32_t>(in.get<std::uint16_t>(), 1);
            } else if (tracks[k].Type == StreamAudio) {
                std::uint32_t align = std::max<std::uint32_t>(tracks[k].Data.AInfo.blockAlign, 1);
                // The reader refuses an empty chunk in a standard index on purpose, audio too.
                std::uint32_t blocks = std::max<std::uint32_t>(in.get<std::uint8_t>(), 1);
                n = std::min(blocks, std::max<std::uint32_t>(0x20000 / align, 1)) * align;
            }
            bytes[k] = bytesFor(k, f, n);
            td[k] = {bytes[k].data(), n, kDisplayNumberNotGiven, 4, 0};
            if (tracks[k].Type == StreamVideo && ownOrder) {
                std::uint8_t type = in.get<std::uint8_t>();
                td[k].dwFrameType = f == 0 ? 4 : (type % 3 == 0 ? 4 : type % 3 == 1 ? 16 : 8);
                td[k].dwDisplayNumber = display[f];
            }
        }
        hr = w.WriteSamples(td.data(), static_cast<short>(td.size()));
        if (FAILED(hr))
            break;
        written.push_back(std::move(bytes));
    }
    w.close();
    // An empty take leaves no file behind.
    if (written.empty())
        return 0;
    // A take the writer stopped inside a group leaves display numbers of
    // frames that never came; the index entries from there on stay unwritten
    // on purpose, so such a file is only read, not compared.
    bool complete = true;
    for (std::size_t f = 0; f < written.size(); ++f)
        complete = complete && (!ownOrder || display[f] < written.size());
    if (!complete) {
        FileReader r;
        if (SUCCEEDED(r.load(file.path())) && SUCCEEDED(r.essenceOpen(0))) {
            std::vector<unsigned char> buf(0x10000 + 3 * 4096);
            for (unsigned f = 0; f < written.size(); ++f)
                r.ReadVideo(f, buf.data(), static_cast<unsigned>(buf.size()), nullptr, nullptr);
        }
        return 0;
    }

    // Read back: the streams are the video then the audio tracks in order.
    std::vector<unsigned> order(1, videoAt);
    for (unsigned k = 0; k < tracks.size(); ++k)
        if (tracks[k].Type == StreamAudio)
            order.push_back(k);
    FileReader r;
    if (FAILED(r.load(file.path())))
        mismatch("load", 0, 0, r.getLastError());
    if (r.get_StreamCount() != order.size())
        mismatch("stream count", r.get_StreamCount(), 0, r.getLastError());
    std::vector<unsigned char> buf;
    for (unsigned s = 0; s < order.size(); ++s) {
        unsigned k = order[s];
        if (s == 0) {
            if (r.get_Length(0) != written.size())
                mismatch("video length", s, r.get_Length(0), r.getLastError());
            if (written.empty())
                continue;
            if (FAILED(r.essenceOpen(0)))
                mismatch("open", s, 0, r.getLastError());
            for (unsigned f = 0; f < written.size(); ++f) {
                const auto& want = written[f][k];
                buf.assign(want.size() + 3 * 4096, 0);
                unsigned offset = 0, got = 0;
                if (FAILED(r.ReadVideo(f, buf.data(), static_cast<unsigned>(buf.size()), &offset, &got)))
                    mismatch("video read", s, f, r.getLastError());
                if (got != want.size() || !std::equal(want.begin(), want.end(), buf.begin() + offset))
                    mismatch("video bytes", s, f, r.getLastError());
            }
            continue;
        }
        std::vector<unsigned char> want;
        for (const auto& frame : written)
            want.insert(want.end(), frame[k].begin(), frame[k].end());
        unsigned align = tracks[k].Data.AInfo.blockAlign;
        if (align == 0)
            continue; // nothing to count samples by
        unsigned samples = static_cast<unsigned>(want.size() / align);
        if (r.get_Length(static_cast<int>(s)) != samples)
            mismatch("audio length", s, r.get_Length(static_cast<int>(s)), r.getLastError());
        if (samples == 0)
            continue;
        if (FAILED(r.essenceOpen(s)))
            mismatch("open", s, 0, r.getLastError());
        buf.assign(want.size(), 0);
        unsigned offset = 0, got = 0;
        if (FAILED(r.ReadAudio(0, samples, buf.data(), static_cast<unsigned>(buf.size()), &offset, &got)))
            mismatch("audio read", s, 0, r.getLastError());
        if (got != want.size() || !std::equal(want.begin(), want.end(), buf.begin()))
            mismatch("audio bytes", s, 0, r.getLastError());
    }
    return 0;
}
