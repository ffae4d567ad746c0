#pragma once
#include <cstdint>

#include "AudStreamBufferList.h"
#include "FileWriteInstance.h"
#include "FileWriterParams.h"
#include "ImageFormat.h"
#include "ShotVideoMetadata.h"
#include "String.h"
#include "SupportedFormat.h"
#include "VectorExt.h"
#include "VideoCompressionInfo.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "VlResourceTypeBase.h"
#include "VlWString.h"

namespace Vl {

// A component that writes one kind of media file.
class VL_HOST_API FileWriterResource : public VlResourceTypeBase
{
public:
    FileWriterResource(const String& name, std::uint32_t typeCode);
    ~FileWriterResource() override;

    // A host error code, 1 on success, with the open file in instance.
    virtual int openFile(const VlWString& path, const FileWriterParams& params,
                         Vl::Ptr<FileWriteInstance>& instance) = 0;
    // How the editor opens a file for writing: openFile, unless the file is
    // one a reader has open (0, with a log line), which it would truncate.
    int openForWriting(const VlWString& path, const FileWriterParams& params, Vl::Ptr<FileWriteInstance>& instance);
    virtual int writeAudioSamples(const Vl::Ptr<FileWriteInstance>& instance, const Aud::StreamBufferList& buffers,
                                  unsigned count) = 0;
    virtual int setVideoFinished(const Vl::Ptr<FileWriteInstance>& instance) = 0;
    virtual int setAudioFinished(const Vl::Ptr<FileWriteInstance>& instance) = 0;
    virtual int cancelAll(const Vl::Ptr<FileWriteInstance>& instance) = 0;
    virtual VectorExt<String> getSupportedFormatTypes(Compression::eUsage usage) = 0;
    // File name extensions of a type: the type name in lower case.
    virtual VectorExt<String> getExtensionsForFormat(const String& type);
    virtual bool isSupportedFileFormat(const FileWriterParams& params) = 0;
    virtual VectorExt<Vl::Image::Format> getSupportedFileFormats(const String& type,
                                                                 const ShotVideoMetadata& metadata) = 0;
    virtual void getSupportedFileFormats(const String& type, VectorExt<Compression::SupportedFormatT>& out) = 0;
    virtual bool formatHasConfigPanel(const VideoCompressionInfo& info) = 0;
    virtual bool showConfigPanel(const VideoCompressionInfo& info) = 0;
    virtual Vl::Image::Core::Object getInputImageFormat(const FileWriterParams& params) = 0;
};

} // namespace Vl
