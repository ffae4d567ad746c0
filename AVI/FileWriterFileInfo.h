#pragma once
#include <cstdint>

#include "AVI/FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.TrackData.h"
#include "host/FileInfoBase.h"

namespace Morvane::Avi {
class FileWriter;
}

namespace avi {

// One AVI file being written: the container writer on it and the records
// each frame's video and audio are handed over in.
class FileWriter::FileInfo : public Vl::FileInfoBase
{
public:
    // Takes ownership of writer, tracks and trackData (allocated with new[]).
    FileInfo(const VlWString& path, Morvane::Avi::FileWriter* writer, const Vl::FileWriterParams& params,
             Morvane::Avi::TrackStructuralData* tracks, Morvane::Avi::TrackData* trackData, std::uint16_t trackCount,
             std::uint16_t headerTrack, std::uint16_t videoTrack, std::uint16_t firstAudioTrack);
    ~FileInfo() override;
    FileInfo(const FileInfo&) = delete;
    FileInfo& operator=(const FileInfo&) = delete;

    int initialise() override;
    void deinitialise() override;
    using Vl::FileInfoBase::writeSurface;
    int writeSurface(unsigned char* data, unsigned int size, VlroMpeg2FrameTypes type) override;
    // Once every frame is written, closes the file; a close that fails
    // (indexes, header or the sync to disk) fails the take.
    int writeFinish() override;

    const Morvane::Avi::TrackStructuralData* tracks() const { return tracks_; }
    const Morvane::Avi::TrackData* trackData() const { return trackData_; }
    std::uint16_t trackCount() const { return trackCount_; }

private:
    Morvane::Avi::TrackStructuralData* tracks_;
    Morvane::Avi::TrackData* trackData_;
    std::uint32_t trackCount_;
    std::uint32_t headerTrack_;
    std::uint32_t videoTrack_;
    std::uint32_t firstAudioTrack_;
    Morvane::Avi::FileWriter* writer_;
};

} // namespace avi
