#pragma once
// What the plug-in tests share: the corpus, framemd5 lines to compare, and
// the plug-in loaded exactly as the editor loads it.
#include <gtest/gtest.h>

#include <string>

#include "PluginLoader.h"
#include "common/FfmpegFiles.h"
#include "util/stringUtils.h"

namespace plugintest {

using testutil::comparable;
using testutil::corpus;
using testutil::dataPath;
using testutil::slurp;

inline std::wstring wide(const std::string& s)
{
    return Morvane::convertString(s);
}

// The built plug-in, loaded through dlopen and its load hook.
class LoadedPlugin : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(loader_.load(VELLORO_PLUGIN_PATH, error)) << error;
        reader_ = loader_.findReader("AVI FileReader");
        ASSERT_NE(reader_, nullptr);
    }
    void TearDown() override { loader_.unload(); }

    velloro::PluginLoader loader_;
    Vl::FileReaderResource* reader_ = nullptr;
};

} // namespace plugintest
