// What the editor looks up in the library by name.
#include <cstdint>

#include "AVI/DeviceDriver.h"
#include "host/iOS.h"

#define AVI_EXPORT __attribute__((visibility("default")))

namespace {

std::uint32_t nextTlsSlot_ = 0;

} // namespace

extern "C" AVI_EXPORT bool vlPluginInstance(VlPluginBase** out)
{
    VlPluginBase* instance = avi::pluginInstance();
    if (out)
        *out = instance;
    return instance ? instance->initialised() : false;
}

// For the framework's inline code: thread-storage slots unique across threads, from 1.
extern "C" AVI_EXPORT unsigned getTlsSlot()
{
    return OS().atomics().increment(&nextTlsSlot_);
}
