#pragma once
#include <cstdint>

#include "String.h"
#include "Vector.h"
#include "VlComponentBase.h"
#include "VlExport.h"

// The object a plug-in hands to the editor. Its inline parts are compiled
// into the plug-in; closedown() is the editor's.
class VlPluginBase
{
public:
    VlPluginBase(const String& version, const String& name) : version_(version), name_(name) {}
    VlPluginBase(const VlPluginBase&) = delete;
    VlPluginBase& operator=(const VlPluginBase&) = delete;
    virtual ~VlPluginBase()
    {
        closedown();
        components_.purge();
    }

    virtual void postLoadInitialization() {}
    virtual void postEnumerationInitialization() {}
    virtual void preUnloadDeinitialization() {}
    virtual bool enable() { return false; }
    virtual bool disable() { return false; }

    // Releases every registered component once and leaves the list empty.
    VL_HOST_API void closedown();

    bool initialised() const { return initialised_; }
    const String& version() const { return version_; }
    const String& name() const { return name_; }
    const Vector<VlComponentBase*>& components() const { return components_; }

protected:
    bool initialised_ = false;
    bool hostFlag_ = true;
    std::int32_t hostValue_ = 1;
    String version_;
    String name_;
    Vector<VlComponentBase*> components_;
};
