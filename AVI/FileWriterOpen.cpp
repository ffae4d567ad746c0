#include <new>

#include "AVI/FileWriter.h"
#include "AVI/FileWriterFileInfo.h"
#include "AVI/TrackDescriptions.h"
#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "OS/VlErrFromHresult.h"
#include "host/Log.h"
#include "host/VlDynamicCast.h"
#include "util/stringUtils.h"

namespace avi {

namespace {

void release(Morvane::Avi::TrackStructuralData* tracks, Morvane::Avi::TrackData* trackData, std::uint16_t n)
{
    for (std::uint16_t i = 0; tracks && i < n; ++i)
        delete[] tracks[i].pExtraData;
    delete[] tracks;
    delete[] trackData;
}

// Frames in a second of the take, at least 1: a writer that dies mid-take
// leaves a file that opens with all but its last second.
std::uint32_t framesPerFlush(const Morvane::Avi::TrackStructuralData& video)
{
    const std::uint32_t rate = video.Data.VInfo.rate;
    const std::uint32_t scale = video.Data.VInfo.scale;
    return scale && rate >= scale ? rate / scale : 1;
}

} // namespace

int FileWriter::openFile(const VlWString& path, const Vl::FileWriterParams& params,
                         Vl::Ptr<FileWriteInstance>& instance)
{
    const std::uint16_t n = trackCount(params);
    if (n == 0)
        return 0;
    auto* trackData = new (std::nothrow) Morvane::Avi::TrackData[n]();
    auto* tracks = new (std::nothrow) Morvane::Avi::TrackStructuralData[n]();
    Morvane::Avi::FileWriter* writer = nullptr;
    if (!trackData || !tracks || describeTracks(params, tracks) == 0 ||
        !(writer = new (std::nothrow) Morvane::Avi::FileWriter())) {
        release(tracks, trackData, n);
        return 0;
    }
    int result = VlErrFromHresult(writer->create(path, tracks, n));
    if (result != 1) {
        LogBoth("%s\n", Morvane::convertString(writer->getLastError()).c_str());
        delete writer;
        release(tracks, trackData, n);
        return result;
    }
    writer->set_FlushFrequency(framesPerFlush(tracks[kVideoTrack]));

    Vl::Ptr<FileWriteInstance> file(new FileInfo(path, writer, params, tracks, trackData, n, kHeaderTrack,
                                                 kVideoTrack, kFirstAudioTrack));
    instance = file;
    Vl::Ptr<Vl::FileInfoBase> base = Vl::dynamicCast<Vl::FileInfoBase>(instance);
    return base ? base->initialise() : 0;
}

} // namespace avi
