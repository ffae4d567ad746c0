#pragma once
#include <cstdint>

#include "String.h"
#include "VlComponentBaseSharedResourceTag.h"
#include "VlExport.h"

// A component that a plug-in registers with the editor: a type code and a name.
class VL_HOST_API VlComponentBase : public virtual VlComponentBaseSharedResourceTag
{
public:
    VlComponentBase(std::uint32_t typeCode, const String& name);
    VlComponentBase(const VlComponentBase&) = delete;
    VlComponentBase& operator=(const VlComponentBase&) = delete;
    ~VlComponentBase() override;

    virtual bool debug(void* context);
    virtual bool operator==(const VlComponentBase& other) const;

    std::uint32_t typeCode() const { return typeCode_; }
    const String& name() const { return name_; }

private:
    std::uint32_t typeCode_;
    String name_;
};
