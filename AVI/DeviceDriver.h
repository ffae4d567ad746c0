#pragma once
#include "host/VlDeviceDriverBase.h"

namespace avi {

class FileReader;
class FileWriter;

// The plug-in object the editor obtains through vlPluginInstance: registers
// the AVI reader and writer once the library has been loaded.
class DeviceDriver : public VlDeviceDriverBase
{
public:
    DeviceDriver();
    ~DeviceDriver() override;

    void postLoadInitialization() override;
    void preUnloadDeinitialization() override;

    FileReader* reader() const { return reader_; }
    FileWriter* writer() const { return writer_; }

private:
    FileReader* reader_ = nullptr;
    FileWriter* writer_ = nullptr;
};

// The single instance, built when the library is loaded.
VlPluginBase* pluginInstance();

} // namespace avi
