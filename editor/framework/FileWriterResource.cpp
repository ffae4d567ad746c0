#include "host/FileWriterResource.h"

#include <cctype>

#include "host/FileWriteInstance.h"

namespace Vl {

FileWriterResource::FileWriterResource(const String& name, std::uint32_t typeCode)
    : VlResourceTypeBase(typeCode, name)
{
}

FileWriterResource::~FileWriterResource() = default;

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
