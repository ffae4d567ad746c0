// The plug-in as the editor sees it after dlopen: what it exports, its
// load and unload hooks, its components, and where its memory comes from.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <new>
#include <set>
#include <thread>
#include <vector>

#include "PluginLoader.h"
#include "host/VlPluginBase.h"
#include "plugin/plugin_support.h"
#include "vlhost/HostStats.h"

namespace {

using InstanceFn = bool (*)(VlPluginBase**);

// dlopen without the loader's hooks, to see the states in between.
class RawPlugin : public testing::Test
{
protected:
    void SetUp() override
    {
        handle_ = dlopen(VELLORO_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        instance_ = reinterpret_cast<InstanceFn>(dlsym(handle_, "vlPluginInstance"));
        ASSERT_NE(instance_, nullptr);
    }
    void TearDown() override
    {
        VlPluginBase* plugin = nullptr;
        if (instance_)
            instance_(&plugin);
        if (plugin) {
            plugin->preUnloadDeinitialization();
            delete plugin;
        }
        if (handle_)
            dlclose(handle_);
    }
    template <class F>
    F* symbol(const char* name)
    {
        void* p = dlsym(handle_, name);
        EXPECT_NE(p, nullptr) << name;
        return reinterpret_cast<F*>(p);
    }
    void* handle_ = nullptr;
    InstanceFn instance_ = nullptr;
};

// Exported: the entry points and the allocation operators, which take their
// blocks from the editor's memory service. The container and the adapter
// stay inside.
TEST_F(RawPlugin, ExportsOnlyTheEntryPointsAndTheAllocationOperators)
{
    for (const char* name : {"_ZN7Morvane3Avi10FileReaderC1Ev", "_ZN3avi12DeviceDriverC1Ev",
                             "_ZN3avi8FileInfo12readMetadataEv", "_ZN4Pell9CPellBase12getLastErrorEv"})
        EXPECT_EQ(dlsym(handle_, name), nullptr) << name;
    auto opNew = symbol<void*(std::size_t)>("_Znwm");
    auto opNewArray = symbol<void*(std::size_t)>("_Znam");
    auto opNewNothrow = symbol<void*(std::size_t, const std::nothrow_t&)>("_ZnwmRKSt9nothrow_t");
    auto opNewArrayNothrow = symbol<void*(std::size_t, const std::nothrow_t&)>("_ZnamRKSt9nothrow_t");
    auto opDelete = symbol<void(void*)>("_ZdlPv");
    auto opDeleteArray = symbol<void(void*)>("_ZdaPv");
    auto opDeleteNothrow = symbol<void(void*, const std::nothrow_t&)>("_ZdlPvRKSt9nothrow_t");
    auto opDeleteArrayNothrow = symbol<void(void*, const std::nothrow_t&)>("_ZdaPvRKSt9nothrow_t");
    ASSERT_FALSE(HasFailure());

    auto before = vlhost::memoryStats();
    void* blocks[] = {opNew(24), opNewArray(8192), opNewNothrow(7, std::nothrow), opNewArrayNothrow(9, std::nothrow)};
    auto mid = vlhost::memoryStats();
    EXPECT_EQ(mid.allocations - before.allocations, 4u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[1]) % 4096, 0u); // the service aligns large blocks
    opDelete(blocks[0]);
    opDeleteArray(blocks[1]);
    opDeleteNothrow(blocks[2], std::nothrow);
    opDeleteArrayNothrow(blocks[3], std::nothrow);
    opDelete(nullptr);
    EXPECT_EQ(vlhost::memoryStats().frees - mid.frees, 4u);
}

// The hooks, the components they register, and the plug-in's own objects
// (the driver's components, an open file and its container reader) taken
// from the service and given back: the stand-in's own objects are not, so
// every counted block is the plug-in's.
TEST_F(RawPlugin, HooksRegisterReaderThenWriterAndGiveBackTheirMemory)
{
    VlPluginBase* plugin = nullptr;
    EXPECT_FALSE(instance_(&plugin));
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(std::pair(plugin->name(), plugin->version()), std::pair(String("Velloro avi"), String("12.5.0.0")));
    // Before the load hook, and again after the unload hook, unloading
    // finds nothing to release.
    auto unloadDoesNothing = [&] {
        auto before = vlhost::memoryStats();
        plugin->preUnloadDeinitialization();
        EXPECT_EQ(vlhost::memoryStats().frees, before.frees);
        EXPECT_EQ(plugin->components().size(), 0u);
        VlPluginBase* again = nullptr;
        EXPECT_FALSE(instance_(&again));
    };
    unloadDoesNothing();

    auto before = vlhost::memoryStats();
    plugin->postLoadInitialization();
    auto loaded = vlhost::memoryStats();
    EXPECT_GE(loaded.allocations - before.allocations, 2u); // reader and writer
    VlPluginBase* again = nullptr;
    EXPECT_TRUE(instance_(&again));
    EXPECT_EQ(again, plugin);
    ASSERT_EQ(plugin->components().size(), 2u);
    VlComponentBase* reader = plugin->components()[0];
    const VlComponentBase* writer = plugin->components()[1];
    EXPECT_EQ(std::pair(reader->name(), reader->typeCode()), std::pair(String("AVI FileReader"), 77u));
    EXPECT_EQ(std::pair(writer->name(), writer->typeCode()), std::pair(String("AVI FileWriter"), 0x20495641u));
    auto* resource = dynamic_cast<Vl::FileReaderResource*>(reader);
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(std::pair(resource->priority(), resource->getMaxRequests()), std::pair(100, 32u));
    ASSERT_EQ(resource->getSupportedFileTypes().size(), 1u);
    EXPECT_EQ(resource->getSupportedFileTypes()[0], L"AVI");
    EXPECT_EQ(dynamic_cast<const Vl::FileReaderResource*>(writer), nullptr);
    {
        Vl::Ptr<FileReadInstance> file = resource->openFile(
            VlWString(plugintest::wide(plugintest::dataPath("dv_pal.avi"))), FileReadInstance::eOpenForPlayback);
        ASSERT_TRUE(file);
        EXPECT_GT(vlhost::memoryStats().allocations - loaded.allocations, 2u);
    }

    plugin->preUnloadDeinitialization();
    // Everything the plug-in took, it gave back (the driver itself goes in
    // TearDown); it also frees blocks the framework handed it, so more
    // frees than allocations are fine.
    auto after = vlhost::memoryStats();
    EXPECT_GE(after.frees - before.frees, after.allocations - before.allocations);
    EXPECT_FALSE(instance_(&again));
    unloadDoesNothing();
}

TEST_F(RawPlugin, TlsSlotsStartAtOneAndAreUniqueAcrossThreads)
{
    auto getTlsSlot = symbol<unsigned()>("getTlsSlot");
    ASSERT_NE(getTlsSlot, nullptr);
    EXPECT_EQ(getTlsSlot(), 1u);
    std::vector<std::vector<unsigned>> got(4);
    std::vector<std::thread> threads;
    for (auto& g : got)
        threads.emplace_back([&g, getTlsSlot] {
            for (int i = 0; i < 100; ++i)
                g.push_back(getTlsSlot());
        });
    std::set<unsigned> all;
    for (std::size_t t = 0; t < threads.size(); ++t) {
        threads[t].join();
        all.insert(got[t].begin(), got[t].end());
    }
    EXPECT_EQ(all.size(), 400u);
    EXPECT_EQ(*all.begin(), 2u);
    EXPECT_EQ(*all.rbegin(), 401u);
}

} // namespace
