#pragma once
#include "PictureSettings.h"
#include "VlComponentBase.h"
#include "VlExport.h"

// A component that serves media: readers and writers of file types.
class VL_HOST_API VlResourceTypeBase : public VlComponentBase
{
public:
    VlResourceTypeBase(std::uint32_t typeCode, const String& name);
    ~VlResourceTypeBase() override;

    using VlComponentBase::operator==;
    virtual bool operator==(const VlResourceTypeBase& other) const;
    virtual void videoStandardIsAboutToChange();
    virtual void setVideoStandard(const PictureSettings& settings);
    virtual void videoStandardHasChanged();
    // The editor asks resources of one kind in descending priority.
    virtual int priority() const;
};
