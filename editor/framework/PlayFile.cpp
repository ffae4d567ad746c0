#include "host/FileReadInstance.h"

#include <sys/stat.h>

#include <map>
#include <mutex>
#include <utility>

#include "host/PlayFile.h"
#include "vlhost/HostStats.h"
#include "vlhost/OpenFiles.h"

PlayFile::PlayFile(const VlWString& path) : fileName_(path), metadata_(new PlayFileMetadata(path)) {}

PlayFile::~PlayFile() = default;

void PlayFile::VlFileIxCache_open(Vl::Ptr<IndexInfo>&, unsigned) {}

std::int64_t PlayFile::getAudioOrigin() const
{
    return 0;
}

std::int64_t PlayFile::getVideoOrigin() const
{
    return 0;
}

namespace {

// The files open for reading, by device and inode: a path tells nothing
// about which file it is once links are involved.
std::mutex g_readingMutex;
std::map<const FileReadInstance*, std::pair<dev_t, ino_t>> g_reading;

} // namespace

// The most derived class has set the path by now: PlayFile is a virtual base.
FileReadInstance::FileReadInstance(OpenType type) : PlayFile(VlWString()), openType_(type)
{
    struct stat st;
    if (::stat(vlhost::toSystemPath(fileName()).c_str(), &st) != 0)
        return;
    std::lock_guard lock(g_readingMutex);
    g_reading[this] = {st.st_dev, st.st_ino};
}

FileReadInstance::~FileReadInstance()
{
    std::lock_guard lock(g_readingMutex);
    g_reading.erase(this);
}

namespace vlhost {

bool isOpenForReading(const std::wstring& path)
{
    struct stat st;
    if (::stat(toSystemPath(path).c_str(), &st) != 0)
        return false;
    std::lock_guard lock(g_readingMutex);
    for (const auto& [file, id] : g_reading)
        if (id.first == st.st_dev && id.second == st.st_ino)
            return true;
    return false;
}

} // namespace vlhost
