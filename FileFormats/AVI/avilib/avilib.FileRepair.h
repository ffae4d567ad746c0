#pragma once
// Rebuilds an AVI file whose writer never finished it (killed, power cut):
// the chunks are walked whatever the indexes and list sizes say; every whole
// video frame is kept with the audio that lies before the end of the last
// one, and a chunk cut off by the end of the file is dropped.
#include <cstdint>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FileFormats/common/pellbase.h"

namespace Morvane::Avi {

struct RepairSummary
{
    std::uint32_t frames = 0; // of the first video stream
    bool hasAudio = false;
    std::uint64_t audioBytes = 0; // kept, of the first audio stream
    std::uint32_t audioBytesPerSec = 0;
    std::uint32_t partialFrames = 0;      // cut off by the end of the file
    std::uint32_t partialAudioChunks = 0; // likewise
    std::uint32_t audioChunksAfterLastFrame = 0;
};

class FileRepair : public Pell::CPellBase
{
public:
    // Walks the file and decides what is kept; writes nothing. Refuses a
    // file that is not an AVI, has no video stream or no whole frame.
    HRESULT open(const std::wstring& path);
    // Puts new indexes after the last kept chunk, then the sizes and
    // lengths in the headers, syncing after each step; a refusal writes nothing.
    HRESULT repairInPlace();
    // Writes what is kept to a new file through the container writer; a
    // failure leaves no file at out.
    HRESULT writeTo(const std::wstring& out);
    const RepairSummary& get_Summary() const { return m_Summary; }

private:
    struct Stream
    {
        bool bVideo = false;
        bool bAudio = false;
        AVISTREAMHEADER strh = {};
        BITMAPINFOHEADER bih = {};
        WAVEFORMATEX wfx = {};
        std::vector<unsigned char> m_Extra; // after the strf's BITMAPINFOHEADER
        std::uint32_t m_dwChunkId = 0;
        std::vector<IndexEntry> m_Kept; // data offset and size, in file order
        std::uint64_t m_qwStrhPosition = 0;
        std::uint64_t m_qwIndxPosition = 0; // an indx, or a JUNK that may become one
        std::uint32_t m_cbIndxSize = 0;
        bool m_bIndxFromJunk = false;
    };
    struct Patch
    {
        std::uint64_t at;
        std::vector<unsigned char> bytes;
    };

    // The index chunks and what must go with them (written first), and
    // the header fields and sizes (written once those are on the disk).
    bool planIndexes(std::vector<Patch>& first, std::vector<Patch>& patches);
    std::uint32_t riffOf(std::uint64_t offset) const;
    bool readFrom(const Vl::Ptr<iFile>& file, std::uint64_t at, unsigned char* p, std::uint32_t n);

    std::wstring m_sPath;
    std::uint64_t m_qwFileSize = 0;
    std::vector<Stream> m_Streams;
    int m_nVideo = -1; // the stream whose frames are counted
    std::vector<WalkedRiff> m_Riffs; // those that hold kept chunks
    std::vector<std::uint32_t> m_MoviSizes; // as the file says
    std::uint64_t m_qwKeptEnd = 0;   // after the last kept chunk and its pad byte
    std::uint64_t m_qwAvihPosition = 0;
    std::uint64_t m_qwDmlhPosition = 0;
    std::uint32_t m_dwAvihFlags = 0;
    RepairSummary m_Summary;
};

} // namespace Morvane::Avi
