#include "AVI/FileWriter.h"

#include <iterator>

#include "AVI/FileWriterFileInfo.h"
#include "AVI/FileWriterFormats.h"
#include "host/EncoderInfo.h"
#include "host/VlDynamicCast.h"
#include "util/fourcc.h"

namespace avi {

namespace {

using Morvane::makeFourCC;

// Compressed formats that the container writer can carry and the editor
// may have an encoder for: DV 25 and 50, DVCPRO HD, MPEG-2 (SD and HD), MJPEG.
constexpr std::uint32_t kCandidates[] = {
    makeFourCC("dvsd"), makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dvh1"),
    makeFourCC("MMES"), makeFourCC("M701"), makeFourCC("MJPG"),
};

void offer(std::uint32_t fcc, std::initializer_list<RasterTable> tables, VectorExt<Compression::SupportedFormatT>& out)
{
    Compression::SupportedFormatT format;
    format.fcc = fcc;
    for (RasterTable table : tables)
        appendRasterTable(table, format.imageFormats);
    out.add(format);
}

// Whether the editor can encode fcc for the editor's raster uid.
bool probeEncoder(std::uint32_t uid, std::uint32_t fcc)
{
    VideoCompressionInfo probe(CompressionFormat(0xFFFFFFFF, 50));
    probe.setFromVideoFormat(uid, makeFourCC("YUY2"), 8);
    probe.colour().matrix = Vl::eMatrixRec601;
    probe.colour().layout = Vl::eLayout420;
    probe.compression().setFcc(fcc);
    return static_cast<bool>(Vl::EncoderInfo::getEncoderFor(probe));
}

bool isUncompressed(std::uint32_t fcc)
{
    return fcc == makeFourCC("M101") || fcc == makeFourCC("M102") || fcc == makeFourCC("YUY2") ||
           fcc == makeFourCC("UYVY") || fcc == makeFourCC("v210");
}

} // namespace

FileWriter::FileWriter() : Vl::FileWriterResource("AVI FileWriter", 0x20495641)
{
    typeNames_.add(String("AVI"));
}

FileWriter::~FileWriter() = default;

const std::uint32_t* FileWriter::compressedCandidates(std::uint32_t& count)
{
    count = static_cast<std::uint32_t>(std::size(kCandidates));
    return kCandidates;
}

bool FileWriter::isTypeName(const String& type) const
{
    for (const String& name : typeNames_)
        if (name == type)
            return true;
    return false;
}

VectorExt<String> FileWriter::getSupportedFormatTypes(Compression::eUsage)
{
    return typeNames_;
}

void FileWriter::getSupportedFileFormats(const String& type, VectorExt<Compression::SupportedFormatT>& out)
{
    if (!isTypeName(type))
        return;
    if (probeEncoder(3, makeFourCC("dvsd"))) {
        offer(makeFourCC("dvsd"), {RasterTable::SD}, out);
        offer(makeFourCC("dv25"), {RasterTable::SD}, out);
        offer(makeFourCC("dv50"), {RasterTable::SD}, out);
    }
    if (probeEncoder(28, makeFourCC("dvh1")))
        offer(makeFourCC("dvh1"), {RasterTable::DvcproHD}, out);
    offer(makeFourCC("YUY2"), {RasterTable::SD, RasterTable::HD}, out);
    offer(makeFourCC("UYVY"), {RasterTable::SD, RasterTable::HD}, out);
    offer(makeFourCC("M101"), {RasterTable::SD}, out);
    offer(makeFourCC("M102"), {RasterTable::HD}, out);
    offer(makeFourCC("MMES"), {RasterTable::SD}, out);
    offer(makeFourCC("M701"), {RasterTable::HD}, out);
}

VectorExt<Vl::Image::Format> FileWriter::getSupportedFileFormats(const String& type, const ShotVideoMetadata& metadata)
{
    VectorExt<Vl::Image::Format> out;
    if (!isTypeName(type))
        return out;
    VideoCompressionInfo info(CompressionFormat(0xFFFFFFFF, 50));
    info.setPicture(metadata);
    if (type == "AVI") {
        for (std::uint32_t fcc : kCandidates) {
            info.compression().setFcc(fcc);
            if (Vl::EncoderInfo::isEncodable(info))
                out.add(fcc);
        }
    }
    if (type == "AVI") {
        out.add(metadata.image().width > 720 ? makeFourCC("M102") : makeFourCC("M101"));
        const std::uint32_t data = metadata.image().dataFormat;
        if (data != makeFourCC("YUY2") && data != makeFourCC("M101") && data != makeFourCC("M102"))
            out.add(makeFourCC("ARGB"));
    }
    return out;
}

bool FileWriter::isSupportedFileFormat(const Vl::FileWriterParams& params)
{
    VectorExt<Vl::Image::Format> formats = getSupportedFileFormats(params.typeName_, params.videoCompressionInfo_);
    if (!VlEncoder::isSupportedSize(params.image_.width, params.image_.height) || formats.empty())
        return false;
    const std::uint32_t fcc = params.videoCompressionInfo_.compression().fcc();
    for (Vl::Image::Format f : formats)
        if (f == fcc)
            return true;
    return false;
}

Vl::Image::Core::Object FileWriter::getInputImageFormat(const Vl::FileWriterParams& params)
{
    Vl::Image::Core::Object image(params.image_);
    const std::uint32_t fcc = params.videoCompressionInfo_.compression().fcc();
    if (isUncompressed(fcc)) {
        image.dataFormat = fcc;
        image.bitsPerPixel = 2 * image.bitsPerComponent;
        return image;
    }
    Vl::Ptr<VlEncoder> encoder = Vl::EncoderInfo::getEncoderFor(params.videoCompressionInfo_);
    if (!encoder) {
        image.dataFormat = Vl::Image::kInvalidFormat;
        return image;
    }
    ImageDescription wanted = encoder->getInputImageFormat(params.videoCompressionInfo_);
    image.width = wanted.width;
    image.height = wanted.height;
    image.dataFormat = wanted.dataFormat;
    image.bitsPerComponent = wanted.bitsPerComponent;
    image.bitsPerPixel = wanted.bitsPerPixel;
    image.coreDataSet = wanted.coreDataSet;
    return image;
}

bool FileWriter::formatHasConfigPanel(const VideoCompressionInfo& info)
{
    Vl::Ptr<VlEncoder> encoder = Vl::EncoderInfo::getEncoderFor(info);
    return encoder ? encoder->formatHasConfigPanel(info) : false;
}

bool FileWriter::showConfigPanel(const VideoCompressionInfo& info)
{
    Vl::Ptr<VlEncoder> encoder = Vl::EncoderInfo::getEncoderFor(info);
    return encoder ? encoder->showConfigPanel(info) : false;
}

int FileWriter::writeAudioSamples(const Vl::Ptr<FileWriteInstance>& instance, const Aud::StreamBufferList& buffers,
                                  unsigned count)
{
    Vl::Ptr<Vl::FileInfoBase> file = Vl::dynamicCast<Vl::FileInfoBase>(instance);
    return file ? file->copyToCircularBuffer(buffers, count) : 0;
}

int FileWriter::setAudioFinished(const Vl::Ptr<FileWriteInstance>& instance)
{
    Vl::Ptr<Vl::FileInfoBase> file = Vl::dynamicCast<Vl::FileInfoBase>(instance);
    return file ? file->setAudioFinishedEvent() : 0;
}

int FileWriter::setVideoFinished(const Vl::Ptr<FileWriteInstance>& instance)
{
    Vl::Ptr<Vl::FileInfoBase> file = Vl::dynamicCast<Vl::FileInfoBase>(instance);
    if (file) {
        file->signalVideoFinished();
        file->deinitialise();
    }
    return 0;
}

int FileWriter::cancelAll(const Vl::Ptr<FileWriteInstance>& instance)
{
    Vl::Ptr<Vl::FileInfoBase> file = Vl::dynamicCast<Vl::FileInfoBase>(instance);
    if (file) {
        file->deinitialise();
        file->signalCancel();
    }
    return 0;
}

} // namespace avi
