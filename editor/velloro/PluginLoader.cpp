#include "PluginLoader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

#include "vlhost/HostStats.h"

namespace velloro {

namespace {

using InstanceFn = bool (*)(VlPluginBase**);

} // namespace

std::string PluginLoader::defaultPath()
{
    if (const char* env = std::getenv("VELLORO_PLUGIN"); env && *env)
        return env;
    char exe[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0)
        return "libvelloro_avi.so";
    std::string dir(exe, static_cast<std::size_t>(n));
    dir.resize(dir.find_last_of('/') == std::string::npos ? 0 : dir.find_last_of('/'));
    return dir + "/../lib/libvelloro_avi.so";
}

void commandError(const char* command, const char* path, const std::string& reason)
{
    std::fprintf(stderr, "velloro %s: %s: %s\n", command, path, reason.c_str());
}

bool PluginLoader::loadForCommand(const char* command, const char* path)
{
    std::string error;
    vlhost::setLogEcho(false);
    if (load(defaultPath(), error))
        return true;
    commandError(command, path, error);
    return false;
}

bool PluginLoader::load(const std::string& path, std::string& error)
{
    unload();
    handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        const char* why = ::dlerror();
        error = "cannot load plug-in " + path + ": " + (why ? why : "unknown error");
        return false;
    }
    auto instance = reinterpret_cast<InstanceFn>(::dlsym(handle_, "vlPluginInstance"));
    VlPluginBase* plugin = nullptr;
    if (!instance) {
        error = "plug-in " + path + " has no vlPluginInstance";
    } else {
        instance(&plugin);
        if (!plugin)
            error = "plug-in " + path + " gave no instance";
    }
    if (!plugin) {
        ::dlclose(handle_);
        handle_ = nullptr;
        return false;
    }
    plugin_ = plugin;
    plugin_->postLoadInitialization();
    return true;
}

void PluginLoader::unload()
{
    if (plugin_) {
        plugin_->preUnloadDeinitialization();
        // The editor owns the object it obtained; the library frees it in its own memory.
        delete plugin_;
        plugin_ = nullptr;
    }
    if (handle_) {
        ::dlclose(handle_);
        handle_ = nullptr;
    }
}

Vl::FileReaderResource* PluginLoader::findReader(const char* name) const
{
    if (!plugin_)
        return nullptr;
    for (VlComponentBase* component : plugin_->components()) {
        if (component->name() != name)
            continue;
        if (auto* reader = dynamic_cast<Vl::FileReaderResource*>(component))
            return reader;
    }
    return nullptr;
}

Vl::FileWriterResource* PluginLoader::findWriter(const char* name) const
{
    if (!plugin_)
        return nullptr;
    for (VlComponentBase* component : plugin_->components()) {
        if (component->name() != name)
            continue;
        if (auto* writer = dynamic_cast<Vl::FileWriterResource*>(component))
            return writer;
    }
    return nullptr;
}

std::string fourccText(std::uint32_t v)
{
    std::string s;
    for (int i = 0; i < 4; ++i) {
        char c = static_cast<char>((v >> (8 * i)) & 0xFF);
        s += (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') ? c : '.';
    }
    return s;
}

} // namespace velloro
