#pragma once
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace testutil {

// A fresh directory that is removed with everything in it at scope end.
// Under base when given (a real disk or tmpfs), else under the working
// directory, which is the build tree and so on a real disk.
class TempDir
{
public:
    explicit TempDir(const std::filesystem::path& base = std::filesystem::current_path())
    {
        std::string pattern = (base / "vltest.XXXXXX").string();
        if (::mkdtemp(pattern.data()))
            path_ = pattern;
    }
    ~TempDir()
    {
        std::error_code ec;
        if (!path_.empty() && !std::getenv("VELLORO_KEEP_TEMP"))
            std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool ok() const { return !path_.empty(); }
    const std::filesystem::path& path() const { return path_; }
    std::wstring file(const std::string& name) const { return (path_ / name).wstring(); }

private:
    std::filesystem::path path_;
};

} // namespace testutil
