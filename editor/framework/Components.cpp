#include "host/VlComponentBase.h"
#include "host/VlResourceTypeBase.h"

VlComponentBaseSharedResourceTag::~VlComponentBaseSharedResourceTag() = default;

VlComponentBase::VlComponentBase(std::uint32_t typeCode, const String& name) : typeCode_(typeCode), name_(name) {}

VlComponentBase::~VlComponentBase() = default;

bool VlComponentBase::debug(void*)
{
    return true;
}

bool VlComponentBase::operator==(const VlComponentBase& other) const
{
    return typeCode_ == other.typeCode_ && name_ == other.name_;
}

VlResourceTypeBase::VlResourceTypeBase(std::uint32_t typeCode, const String& name) : VlComponentBase(typeCode, name)
{
}

VlResourceTypeBase::~VlResourceTypeBase() = default;

bool VlResourceTypeBase::operator==(const VlResourceTypeBase& other) const
{
    return VlComponentBase::operator==(other);
}

void VlResourceTypeBase::videoStandardIsAboutToChange() {}

void VlResourceTypeBase::setVideoStandard(const PictureSettings&) {}

void VlResourceTypeBase::videoStandardHasChanged() {}

int VlResourceTypeBase::priority() const
{
    return 0;
}
