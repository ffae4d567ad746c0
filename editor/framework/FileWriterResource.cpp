#include "host/FileWriterResource.h"

#include <cctype>

#include "host/FileWriteInstance.h"
#include "host/Log.h"
#include "vlhost/HostStats.h"
#include "vlhost/OpenFiles.h"

namespace Vl {

FileWriterResource::FileWriterResource(const String& name, std::uint32_t typeCode)
    : VlResourceTypeBase(typeCode, name)
{
}

FileWriterResource::~FileWriterResource() = default;

int FileWriterResource::openForWriting(const VlWString& path, const FileWriterParams& params,
                                       Vl::Ptr<FileWriteInstance>& instance)
{
    if (vlhost::isOpenForReading(path)) {
        LogBoth("%s: is open for reading\n", vlhost::toSystemPath(path).c_str());
        return 0;
    }
    return openFile(path, params, instance);
}

VectorExt<String> FileWriterResource::getExtensionsForFormat(const String& type)
{
    String lower = type;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    VectorExt<String> out;
    out.add(lower);
    return out;
}

} // namespace Vl

FileWriteInstance::FileWriteInstance(const VlWString& path) : PlayFile(path) {}

FileWriteInstance::~FileWriteInstance() = default;
