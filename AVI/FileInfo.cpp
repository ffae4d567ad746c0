// Opening an AVI file and translating its stream descriptions into the
// editor's metadata.
#include "AVI/FileInfo.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "AVI/DvFrameInfo.h"
#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "OS/VlErrFromHresult.h"
#include "host/CompressionFormat.h"
#include "host/CurrentProject.h"
#include "host/DigitalVideoFormats.h"
#include "host/FrameRates.h"
#include "host/Log.h"
#include "host/VideoFormatLookup.h"
#include "host/iFileSystem.h"
#include "host/iOS.h"
#include "util/fourcc.h"
#include "util/pellistimecode.h"
#include "util/stringUtils.h"

namespace avi {

namespace {

using Morvane::makeFourCC;

constexpr int kErrSuccess = 1;
constexpr std::uint32_t kWaveFormatExtensible = 0xFFFE;

bool isDvFormat(std::uint32_t fcc)
{
    static const std::uint32_t kCodes[] = {
        makeFourCC("dvsd"), makeFourCC("dvc "), makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dv5n"),
        makeFourCC("dv5p"), makeFourCC("dvcp"), makeFourCC("dvcn"), makeFourCC("dvpp"), makeFourCC("dvpn"),
        makeFourCC("dvh1"), makeFourCC("dvh2"), makeFourCC("dvh3"), makeFourCC("dvh4"), makeFourCC("dvh5"),
        makeFourCC("dvh6"), makeFourCC("dvhp"), makeFourCC("dvhq"), makeFourCC("DVSD"), makeFourCC("CDVC"),
        makeFourCC("CDVH"),
    };
    return std::find(std::begin(kCodes), std::end(kCodes), fcc) != std::end(kCodes);
}

// "HH:MM:SS:FF", with ';' or '.' (or ',') before the frames for drop frame,
// as writers put it in ISMP; spaces around it are allowed.
bool parseLabel(const std::string& text, unsigned& h, unsigned& m, unsigned& s, unsigned& f, bool& drop)
{
    std::size_t at = text.find_first_not_of(' ');
    if (at == std::string::npos || text.size() - at < 11)
        return false;
    const char* p = text.c_str() + at;
    unsigned values[4];
    for (int i = 0; i < 4; ++i) {
        const char a = p[3 * i], b = p[3 * i + 1];
        if (a < '0' || a > '9' || b < '0' || b > '9')
            return false;
        values[i] = unsigned(a - '0') * 10 + unsigned(b - '0');
        if (i < 3) {
            const char sep = p[3 * i + 2];
            if (i < 2 ? sep != ':' : (sep != ':' && sep != ';' && sep != '.' && sep != ','))
                return false;
        }
    }
    if (text.find_first_not_of(' ', at + 11) != std::string::npos)
        return false;
    h = values[0];
    m = values[1];
    s = values[2];
    f = values[3];
    drop = p[8] != ':';
    return h < 24 && m < 60 && s < 60;
}

bool isCompressedFormat(std::uint32_t fcc)
{
    static const std::uint32_t kCodes[] = {
        makeFourCC("hdv1"), makeFourCC("hdv2"), makeFourCC("hdv3"), makeFourCC("hdv4"), makeFourCC("hdv5"),
        makeFourCC("hdv6"), makeFourCC("hdv7"), makeFourCC("hdv8"), makeFourCC("hdv9"), makeFourCC("hdva"),
        makeFourCC("dvh1"), makeFourCC("dvh2"), makeFourCC("dvh3"), makeFourCC("dvh4"), makeFourCC("dvh5"),
        makeFourCC("dvh6"), makeFourCC("dvhp"), makeFourCC("dvhq"), makeFourCC("dvsd"), makeFourCC("dvc "),
        makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dv5n"), makeFourCC("dv5p"), makeFourCC("dvcn"),
        makeFourCC("dvcp"), makeFourCC("dvpn"), makeFourCC("dvpp"), makeFourCC("mjpa"), makeFourCC("mjpb"),
        makeFourCC("mx3n"), makeFourCC("mx4n"), makeFourCC("mx5n"), makeFourCC("mx3p"), makeFourCC("mx4p"),
        makeFourCC("mx5p"), makeFourCC("M704"), makeFourCC("M705"),
    };
    if (std::find(std::begin(kCodes), std::end(kCodes), fcc) != std::end(kCodes))
        return true;
    // "NPG2" to "WPG2", tested as one interval of the code.
    return fcc >= 0x3247504Eu && fcc <= 0x32475057u;
}

bool isExtraDataFormat(std::uint32_t fcc)
{
    return fcc == makeFourCC("M101") || fcc == makeFourCC("m101") || fcc == makeFourCC("M102") ||
           fcc == makeFourCC("m102") || fcc == makeFourCC("M103") || fcc == makeFourCC("m103");
}

std::uint32_t le32(const unsigned char* p)
{
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}

// A double that came from a file can be anything: keep the conversion defined.
std::uint64_t truncated(double v)
{
    if (!(v > 0.0))
        return 0;
    if (v >= 18446744073709549568.0)
        return UINT64_MAX;
    return static_cast<std::uint64_t>(v);
}

std::uint32_t truncated32(double v)
{
    std::uint64_t t = truncated(v);
    return t > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(t);
}

} // namespace

FileInfo::FileInfo(const VlWString& path, OpenType type) : PlayFile(path), FileReadInstance(type)
{
    reader_ = new Morvane::Avi::FileReader();
    Vl::Ptr<iDriveDescription> drive = OS().fileSystem().getDriveDescription(path);
    if (drive) {
        std::uint32_t size = drive->getSectorSize();
        // Blocks are aligned to it: only a power of two will do.
        if (size != 0 && (size & (size - 1)) == 0 && size <= (1u << 20))
            sectorSize_ = size;
    }
    if (VlErrFromHresult(reader_->load(path)) != kErrSuccess) {
        Log("AVI: Failed to open source file %s\n", Morvane::convertString(reader_->getLastError()).c_str());
        delete reader_;
        reader_ = nullptr;
    }
}

FileInfo::~FileInfo()
{
    delete reader_;
    reader_ = nullptr;
    indexCache_.clear();
}

std::size_t FileInfo::indexCacheSize()
{
    CriticalSection::Lock lock(cacheLock_);
    return indexCache_.size();
}

bool FileInfo::isTimeCodeStream(int stream) const
{
    return reader_->get_IsTimeCode(stream);
}

std::uint32_t FileInfo::streamStartTimecode(int stream) const
{
    unsigned int tc = 0;
    if (FAILED(reader_->get_TimeCode(stream, &tc)))
        return 0;
    return tc;
}

void FileInfo::readImageDimensions()
{
    ShotVideoMetadata& v = metadata()->video();
    // Bottom-up bitmaps give a negative height.
    v.setHeight(static_cast<std::uint32_t>(std::abs(reader_->get_Height(static_cast<int>(videoStream_)))));
    v.setWidth(static_cast<std::uint32_t>(std::max(reader_->get_Width(static_cast<int>(videoStream_)), 0)));
}

double FileInfo::readTrackRate(int stream)
{
    int rate = 0;
    int scale = 0;
    if (!reader_ || !reader_->get_RateAndScale(stream, &rate, &scale) || scale == 0) {
        MORVANE_ASSERT_AT(false, "AVI/FileInfo line 690");
        return 0.0;
    }
    return static_cast<double>(rate) / static_cast<double>(scale);
}

std::uint32_t FileInfo::readScanMode()
{
    ShotVideoMetadata& v = metadata()->video();
    if (v.scanMode() != 0)
        return v.scanMode();
    const ImageDescription& image = v.image();
    std::uint32_t scan = Vl::eProgressive;
    const DvFrameInfo& dv = firstDvFrame();
    const Morvane::Avi::AVIVIDEOPROPERTIES& props = *reader_->get_VideoProperties();
    const Morvane::Avi::VideoFieldLayout& fields = reader_->get_VideoFieldLayout();
    if (dv.hasScan) {
        // A DV frame records its own scan; the headers around it were
        // written by whatever wrapped it.
        scan = dv.scanMode;
    } else if (props.fcc == Morvane::Avi::ckid::vprp && props.nbFieldPerFrame == 2 && fields.descriptions == 2 &&
               fields.startLine[0] != fields.startLine[1]) {
        // The first field in time is described first: the upper one starts higher.
        scan = fields.startLine[0] < fields.startLine[1] ? Vl::eUpperFieldFirst : Vl::eLowerFieldFirst;
    } else if (props.fcc == Morvane::Avi::ckid::vprp && props.nbFieldPerFrame == 1 && fields.descriptions == 2 &&
               fields.startLine[0] != fields.startLine[1]) {
        // One field per frame, described as two segments: PsF.
        scan = Vl::eProgressiveSegmented;
    } else if (props.nbFieldPerFrame != 1) {
        bool lowerFirst = (image.width == 720 && (image.height == 480 || image.height == 486)) ||
                          image.dataFormat == makeFourCC("dv25") || image.dataFormat == makeFourCC("dv50");
        scan = lowerFirst ? Vl::eLowerFieldFirst : Vl::eUpperFieldFirst;
    }
    v.setScanMode(scan);
    return scan;
}

const DvFrameInfo& FileInfo::firstDvFrame()
{
    if (dvFrameRead_)
        return dvFrame_;
    dvFrameRead_ = true;
    const ShotVideoMetadata& v = metadata()->video();
    if (!isDvFormat(v.image().dataFormat) || v.lengthInFrames() == 0)
        return dvFrame_;
    Vl::Ptr<iMemHolder> memory;
    Vl::Ptr<IndexInfo> single;
    if (readVideo(memory, 0, single) && memory)
        dvFrame_ = readDvFrameInfo(memory->data() + memory->dataOffset(), memory->used(), v.image().height);
    return dvFrame_;
}

bool FileInfo::readFileTimecode()
{
    const double rate = videoRate_ > 0.0 ? videoRate_ : baseRate_;
    if (rate <= 0.0)
        return false;
    unsigned h = 0, m = 0, s = 0, f = 0;
    bool drop = false;
    const std::string& text = reader_->get_InfoTimecode();
    if (!parseLabel(text, h, m, s, f, drop)) {
        const DvFrameInfo& dv = firstDvFrame();
        if (!dv.hasTimecode)
            return false;
        h = dv.hours;
        m = dv.minutes;
        s = dv.seconds;
        f = dv.frames;
        drop = dv.dropFrame;
    }
    // Drop frame exists only at the 1000/1001 rates of 30 and 60.
    const double nominal = std::round(rate * 1.001);
    drop = drop && (nominal == 30.0 || nominal == 60.0) && std::fabs(rate * 1.001 - nominal) < 1e-3;
    const double labelRate = std::round(rate) > 0.0 ? std::round(rate) : 1.0;
    if (f >= labelRate)
        return false;
    Morvane::CTimeCodeEx tc(rate);
    tc.setDropFrame(drop);
    const std::uint64_t frames = tc.toFrameCount(h, m, s, f, 1);
    if (frames > 0xFFFFFFFFu)
        return false;
    startTimecode_ = static_cast<std::uint32_t>(frames);
    dropFrame_ = drop;
    return true;
}

void FileInfo::readPictureFormat(std::uint32_t bpp)
{
    ShotVideoMetadata& v = metadata()->video();
    const std::uint32_t fcc = v.image().dataFormat;
    std::uint32_t stride = 0;
    bool topDown = true;

    if (isCompressedFormat(fcc)) {
        v.setBitsPerComponent(8);
        v.setBitsPerPixel(16);
        v.setCoreDataSet(true);
    } else if (isExtraDataFormat(fcc)) {
        unsigned char extra[24];
        int got = reader_->streamGetExtraData(static_cast<int>(videoStream_), extra, sizeof extra);
        if (got < 24) {
            v.setBitsPerComponent(bpp == 30 ? 10 : 8);
            v.setBitsPerPixel(bpp == 30 ? 20 : 16);
            stride = CompressionFormat::getMatroxStride(v);
        } else {
            std::uint32_t scan = le32(extra + 12);
            if (scan >= 1 && scan <= 4)
                v.setScanMode(scan);
            else
                MORVANE_ASSERT_AT(false, "AVI/FileInfo line 267");
            std::uint32_t bitsPerComponent = le32(extra + 8) & 0xFFFF;
            v.setBitsPerComponent(bitsPerComponent);
            v.setBitsPerPixel(bitsPerComponent == 10 ? 20 : 16);
            stride = le32(extra + 20);
            std::uint32_t layout = le32(extra + 16);
            if (layout == Vl::eLayout422 || layout == Vl::eLayout444 || layout == Vl::eLayout420) {
                v.colour().layout = layout;
            } else {
                MORVANE_ASSERT_AT(false, "AVI/FileInfo line 292");
                v.colour().layout = Vl::eLayout420;
            }
        }
        v.setCoreDataSet(true);
    } else {
        topDown = !(fcc == 0 || fcc == makeFourCC("DIB "));
        switch (bpp) {
        case 8:
        case 16:
            v.setBitsPerComponent(8);
            v.setBitsPerPixel(16);
            break;
        case 10:
        case 30:
            v.setBitsPerComponent(10);
            v.setBitsPerPixel(20);
            break;
        case 12:
            v.setBitsPerComponent(6);
            v.setBitsPerPixel(12);
            break;
        case 24:
            v.setBitsPerComponent(8);
            if (fcc == makeFourCC("UYVY") || fcc == makeFourCC("YUY2") || fcc == makeFourCC("M101") ||
                fcc == makeFourCC("M102")) {
                v.setBitsPerPixel(16);
            } else {
                if (fcc == 0)
                    v.setDataFormat(makeFourCC(" RGB"));
                v.setBitsPerPixel(24);
            }
            break;
        case 32:
            if (fcc == 0)
                v.setDataFormat(makeFourCC("ARGB"));
            v.setBitsPerComponent(8);
            v.setBitsPerPixel(32);
            break;
        default:
            MORVANE_ASSERT_AT(false, "AVI/FileInfo line 362");
            break;
        }
        v.setCoreDataSet(true);
    }

    BufferLayout& layout = v.layout();
    if (stride == 0)
        stride = static_cast<std::uint32_t>(static_cast<std::uint16_t>(v.image().bitsPerPixel) * v.image().width) / 8;
    layout.stride = stride;
    layout.planes = 1;
    layout.topDown = topDown;
    layout.alignment = 1;
}

void FileInfo::readVideoMetadata()
{
    ShotVideoMetadata& v = metadata()->video();
    const int vs = static_cast<int>(videoStream_);
    // A hint from the header, sizing the block of a group's later frames:
    // no frame is larger than the file, whatever the header claims.
    videoBufferSize_ =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(reader_->get_BufferSize(vs), reader_->getSize()));
    v.setLengthInFrames(reader_->get_Length(vs));
    v.setDataRate(reader_->get_ApproxDataRate(vs));
    v.setGopSize(reader_->get_GopSize(vs));
    readImageDimensions();
    v.setDataFormat(reader_->get_FCC(vs));
    readPictureFormat(reader_->get_BitsPerSample(vs));
    std::uint32_t scan = readScanMode();

    const std::uint32_t fcc = v.image().dataFormat;
    if (fcc == makeFourCC("AVdn") || fcc == makeFourCC("AVdx")) {
        resolutionCoded_ = true;
        std::uint32_t resolution = Vl::getResolutionFromImage(v.image(), scan, v.dataRate());
        if (scan == 0) {
            scan = Vl::eProgressive;
            resolution = Vl::getResolutionFromImage(v.image(), scan, v.dataRate());
            if (resolution == Vl::kResolutionNotFound) {
                scan = Vl::eUpperFieldFirst;
                resolution = Vl::getResolutionFromImage(v.image(), scan, v.dataRate());
            }
        }
        v.setDataFormat(resolution);
        v.setScanMode(scan);
    }

    const std::uint32_t width = v.image().width;
    const std::uint32_t height = v.image().height;
    switch (reader_->get_VideoProperties()->dwFrameAspectRatio) {
    case 0x00100009u:
        v.setAspectRatio(Vl::eAspect16x9);
        break;
    case 0x01000087u:
        v.setAspectRatio(Vl::eAspect256x135);
        break;
    case 0x00040003u:
        v.setAspectRatio(Vl::eAspect4x3);
        break;
    default:
        v.setAspectRatio(width <= 720 ? Vl::eAspect4x3 : Vl::eAspect16x9);
        break;
    }

    Vl::OutputImageFormat project = Vl::CurrentProject::getOutputImageFormat();
    std::vector<std::uint32_t> order = Vl::DigitalVideoFormats::determinePreferredFormatGroupOrder(project);
    std::vector<Vl::DigitalVideoFormat> formats;
    Vl::DigitalVideoFormats::getMatchingFormats(width, height, true, formats, order);
    if (!formats.empty()) {
        const Vl::DigitalVideoFormat& first = formats.front();
        v.setVideoFormatUID(first.uid);
        if (std::find(first.aspectRatios.begin(), first.aspectRatios.end(), v.aspectRatio()) ==
            first.aspectRatios.end()) {
            LogBoth("Not a valid aspect ratio for format\n");
            MORVANE_ASSERT_AT(false, "AVI/FileInfo line 450");
        }
    }

    v.setValid(1);
    videoRate_ = readTrackRate(vs);
    v.setFrameRate(Vl::getEquivalentVlFrameRate(videoRate_));
    v.setFrameRateSet(1);

    ColourDescription& colour = v.colour();
    colour.matrix = width > 720 ? Vl::eMatrixRec709 : Vl::eMatrixRec601;
    if (colour.layout == 0) {
        if (height >= 480 && height <= 486)
            colour.layout = Vl::eLayout420;
        else if (v.scanMode() == Vl::eProgressive || v.scanMode() == Vl::eProgressiveSegmented)
            colour.layout = Vl::eLayout422;
        else
            colour.layout = Vl::eLayout420;
    }
    colour.primaries = 1;
    colour.transfer = 1;
}

std::uint32_t FileInfo::extensibleSubFormat(int stream) const
{
    // The extension: valid bits (16), channel mask (32), then the sub-format
    // GUID, whose first two bytes are the plain format tag.
    unsigned char extension[22];
    if (reader_->streamGetExtraData(stream, extension, sizeof extension) < static_cast<int>(sizeof extension))
        return 0;
    static const unsigned char kTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                            0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    if (std::memcmp(extension + 8, kTail, sizeof kTail) != 0)
        return 0;
    return std::uint32_t(extension[6]) | std::uint32_t(extension[7]) << 8;
}

void FileInfo::readAudioMetadata()
{
    PlayFileMetadata& md = *metadata();
    Aud::Metadata& a = md.audio();
    const int as = static_cast<int>(audioStream_);
    a.setChannelsPerStream(reader_->get_ChannelCount(as));
    audioBufferSize_ =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(reader_->get_BufferSize(as), reader_->getSize()));
    double rate = readTrackRate(as);

    const bool hasVideo = md.video().videoTrackCount() != 0;
    if (hasVideo && videoRate_ > 0.0)
        a.setLengthInSamples(truncated(md.video().lengthInFrames() / videoRate_ * rate + 0.5));
    else if (hasVideo)
        a.setLengthInSamples(0); // no video rate to measure the audio against
    else
        a.setLengthInSamples(reader_->get_Length(as));

    std::uint32_t bits = reader_->get_BitsPerSample(as);
    a.setBitsPerSample(bits);
    a.setStride(bits / 8);
    a.setSamplesPerSec(truncated32(rate + 0.5));
    a.setEndianType(Aud::eLittleEndian);

    std::uint32_t dataType = Aud::eDataNone;
    std::uint32_t tag = reader_->get_FCC(as);
    if (tag == kWaveFormatExtensible)
        tag = extensibleSubFormat(as);
    switch (tag) {
    case 1: dataType = Aud::eDataPcm; break;
    case 2: dataType = Aud::eDataAdpcm; break;
    case 3: dataType = Aud::eDataFloat; break;
    case 17: dataType = Aud::eDataImaAdpcm; break;
    case 80: dataType = Aud::eDataMpeg; break;
    default: break;
    }
    // A block of PCM holds one sample of every channel. A header that
    // claims more channels than its blocks can hold (a damaged strf) has
    // no audio that the editor can play.
    const Morvane::Avi::AviStream* stream = reader_->get_Stream(as);
    const std::uint32_t blockAlign = stream ? stream->wfx.nBlockAlign : 0;
    const std::uint64_t frameBytes = std::uint64_t(a.channelsPerStream()) * ((bits + 7) / 8);
    if ((dataType == Aud::eDataPcm || dataType == Aud::eDataFloat) && (frameBytes == 0 || frameBytes > blockAlign)) {
        Log("AVI: audio stream %d: %u channels of %u bits do not fit its blocks of %u bytes; not playable\n", as,
            a.channelsPerStream(), bits, blockAlign);
        dataType = Aud::eDataNone;
    }
    a.setDataType(dataType);
    if (dataType != Aud::eDataNone)
        a.calculateSampleTypeNumber();

    if (!hasVideo) {
        md.video().setScanMode(Vl::CurrentProject::getOutputImageFormat().scanMode);
        md.config().set("useAudioImportSettings", true);
        if (baseRate_ != 0.0)
            md.video().setFrameRate(Vl::getEquivalentVlFrameRate(baseRate_));
    }
}

void FileInfo::readExtendedMetadata()
{
    // Without a timecode stream, the file's own label of its first frame:
    // ISMP, or what a DV frame recorded. Either counts even at 00:00:00:00.
    bool given = false;
    if (timecodeStreamCount_ == 0 && metadata()->video().videoTrackCount() != 0 && readFileTimecode()) {
        given = true;
        baseRate_ = videoRate_ > 0.0 ? videoRate_ : baseRate_;
    }
    if ((startTimecode_ == 0 && !given) || baseRate_ == 0.0)
        return;
    PlayFileMetadata& md = *metadata();
    std::uint32_t scan = md.video().scanMode();
    if (scan == 0)
        scan = Vl::CurrentProject::getOutputImageFormat().scanMode;
    Vl::FrameRate rate = Vl::getEquivalentVlFrameRate(baseRate_);
    if (rate == Vl::eFrameRateNone)
        rate = Vl::CurrentProject::getFrameRate();
    // An audio base stream counts its timecode in samples.
    if (baseRate_ > 31999.0 && baseRate_ < 192001.0) {
        double fps = Vl::getFramesPerSecond(Vl::CurrentProject::getOutputImageVLFrameRate());
        startTimecode_ = truncated32(fps * (startTimecode_ / baseRate_) + 0.5);
    }
    md.setStartLabel(editLabFrom(startTimecode_, scan, rate, dropFrame_));
}

bool FileInfo::readMetadata()
{
    if (!reader_)
        return false;
    PlayFileMetadata& md = *metadata();
    ShotVideoMetadata& v = md.video();
    Aud::Metadata& a = md.audio();

    const unsigned streams = reader_->get_StreamCount();
    for (unsigned i = 0; i < streams; ++i) {
        const int n = static_cast<int>(i);
        if (reader_->get_IsVideo(n)) {
            if (v.videoTrackCount() == 0)
                videoStream_ = i;
            v.setVideoTrackCount(v.videoTrackCount() + 1);
        }
        if (reader_->get_IsAudio(n)) {
            if (a.audioStreams() == 0)
                audioStream_ = i;
            a.setAudioStreams(a.audioStreams() + 1);
        }
        if (isTimeCodeStream(n)) {
            if (timecodeStreamCount_ == 0)
                timecodeStream_ = i;
            ++timecodeStreamCount_;
        }
    }

    bool haveBase = true;
    std::uint32_t base = 0;
    if (timecodeStreamCount_ != 0)
        base = timecodeStream_;
    else if (v.videoTrackCount() != 0)
        base = videoStream_;
    else if (a.audioStreams() != 0)
        base = audioStream_;
    else
        haveBase = false;

    if (haveBase) {
        baseRate_ = readTrackRate(static_cast<int>(base));
        startTimecode_ = streamStartTimecode(static_cast<int>(base));
        dropFrame_ = false;
        if (v.videoTrackCount() != 0)
            readVideoMetadata();
        if (a.audioStreams() != 0)
            readAudioMetadata();
    }
    readExtendedMetadata();

    const bool hasVideo = v.videoTrackCount() != 0;
    if (!hasVideo || v.lengthInFrames() == 0) {
        if (a.audioStreams() == 0 || a.lengthInSamples() == 0)
            return false;
        if (!hasVideo)
            return true;
    }

    // Some decoders need the first frame before they can start.
    Vl::Ptr<IndexInfo> record;
    VlFileIxCache_open(record, 0);
    const std::uint32_t fcc = v.image().dataFormat;
    const std::uint32_t playout = Vl::lookupPlayoutFCC(fcc);
    if (playout == makeFourCC("avc5") || playout == makeFourCC("avc6") || fcc == makeFourCC("CFHD")) {
        Vl::Ptr<iMemHolder> memory;
        if (readVideo(memory, 0, record))
            v.setSampleFrame(memory);
    }
    return true;
}

} // namespace avi
