#include "AVI/DeviceDriver.h"

#include <cstdio>

#include "AVI/FileReader.h"
#include "AVI/FileWriter.h"
#include "host/String.h"

namespace {

const String kStartBatch("StartBatch");
const String kEndBatch("EndBatch");

// Never deleted by the library: the editor owns the object once it has it.
VlPluginBase* g_instance = new avi::DeviceDriver();

} // namespace

namespace avi {

VlPluginBase* pluginInstance()
{
    return g_instance;
}

DeviceDriver::DeviceDriver() : VlDeviceDriverBase("12.5.0.0", "Velloro avi") {}

DeviceDriver::~DeviceDriver() = default;

void DeviceDriver::postLoadInitialization()
{
    reader_ = new FileReader();
    writer_ = new FileWriter();
    components_.add(reader_);
    components_.add(writer_);
    initialised_ = true;
}

void DeviceDriver::preUnloadDeinitialization()
{
    if (!initialised_)
        return;
    initialised_ = false;
    try {
        closedown();
    } catch (...) {
        std::printf("Exception freeing deleting avi devices\n");
    }
    // closedown() released both components.
    reader_ = nullptr;
    writer_ = nullptr;
}

} // namespace avi
