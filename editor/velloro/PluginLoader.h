#pragma once
// Loads a plug-in library as the editor does: dlopen, vlPluginInstance,
// the load hook; at the end the pre-unload hook, the object's release and
// dlclose.
#include <string>

#include "host/FileReaderResource.h"
#include "host/FileWriterResource.h"
#include "host/VlPluginBase.h"

namespace velloro {

class PluginLoader
{
public:
    PluginLoader() = default;
    ~PluginLoader() { unload(); }
    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    // $VELLORO_PLUGIN, else lib/libvelloro_avi.so beside the bin/ that holds
    // this program.
    static std::string defaultPath();

    // False with the reason in error.
    bool load(const std::string& path, std::string& error);
    // The default plug-in for a velloro command, with the editor's log kept
    // off the terminal; on failure the command's error line is printed.
    bool loadForCommand(const char* command, const char* path);
    void unload();

    VlPluginBase* plugin() const { return plugin_; }
    // The registered reader component of that name, or null.
    Vl::FileReaderResource* findReader(const char* name) const;
    // The registered writer component of that name, or null.
    Vl::FileWriterResource* findWriter(const char* name) const;

private:
    void* handle_ = nullptr;
    VlPluginBase* plugin_ = nullptr;
};

// A FourCC as text; a byte that is not printable (or would need escaping
// in JSON) shows as '.'.
std::string fourccText(std::uint32_t v);

// The one line a failed command prints: "velloro COMMAND: PATH: REASON".
void commandError(const char* command, const char* path, const std::string& reason);

} // namespace velloro
