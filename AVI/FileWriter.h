#pragma once
#include "host/FileWriterResource.h"
#include "host/VectorExt.h"

namespace avi {

// The component through which the editor writes AVI files: it offers the
// compressions an AVI file can carry, and opens files for the editor's
// writer thread.
class FileWriter : public Vl::FileWriterResource
{
public:
    class FileInfo;

    FileWriter();
    ~FileWriter() override;

    int openFile(const VlWString& path, const Vl::FileWriterParams& params,
                 Vl::Ptr<FileWriteInstance>& instance) override;
    int writeAudioSamples(const Vl::Ptr<FileWriteInstance>& instance, const Aud::StreamBufferList& buffers,
                          unsigned count) override;
    int setVideoFinished(const Vl::Ptr<FileWriteInstance>& instance) override;
    int setAudioFinished(const Vl::Ptr<FileWriteInstance>& instance) override;
    int cancelAll(const Vl::Ptr<FileWriteInstance>& instance) override;
    VectorExt<String> getSupportedFormatTypes(Compression::eUsage usage) override;
    bool isSupportedFileFormat(const Vl::FileWriterParams& params) override;
    VectorExt<Vl::Image::Format> getSupportedFileFormats(const String& type,
                                                         const ShotVideoMetadata& metadata) override;
    void getSupportedFileFormats(const String& type, VectorExt<Compression::SupportedFormatT>& out) override;
    bool formatHasConfigPanel(const VideoCompressionInfo& info) override;
    bool showConfigPanel(const VideoCompressionInfo& info) override;
    Vl::Image::Core::Object getInputImageFormat(const Vl::FileWriterParams& params) override;

    // The compressed formats offered per picture when the editor has an
    // encoder for them, in the order offered.
    static const std::uint32_t* compressedCandidates(std::uint32_t& count);

private:
    bool isTypeName(const String& type) const;

    VectorExt<String> typeNames_;
};

} // namespace avi
