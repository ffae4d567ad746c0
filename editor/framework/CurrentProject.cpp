#include "host/CurrentProject.h"

#include <mutex>

namespace Vl {

namespace {

std::mutex g_mutex;
// A new project: 1080i at 25 frames, the editor's default.
OutputImageFormat g_format{1920, 1080, eUpperFieldFirst, eFrameRate25, 28};
FrameRate g_rate = eFrameRate25;

} // namespace

OutputImageFormat CurrentProject::getOutputImageFormat()
{
    std::lock_guard lock(g_mutex);
    return g_format;
}

FrameRate CurrentProject::getFrameRate()
{
    std::lock_guard lock(g_mutex);
    return g_rate;
}

FrameRate CurrentProject::getOutputImageVLFrameRate()
{
    std::lock_guard lock(g_mutex);
    return g_format.frameRate;
}

void CurrentProject::setOutputImageFormat(const OutputImageFormat& format)
{
    std::lock_guard lock(g_mutex);
    g_format = format;
}

void CurrentProject::setFrameRate(FrameRate rate)
{
    std::lock_guard lock(g_mutex);
    g_rate = rate;
}

} // namespace Vl
