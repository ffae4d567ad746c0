#pragma once
// The AVI container reader: parses the header of the first RIFF, loads the
// legacy or OpenDML index of one stream at a time and reads whole frames
// and audio blocks with sector-aligned reads.
#include <cstdint>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.IndexEntry.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "FileFormats/AVI/avilib/avilib.ReadAhead.h"
#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "FileFormats/common/filereaderunbuffered.h"
#include "util/bytebuffer.h"
#include "util/videoutils.h"

namespace Morvane::Avi {

// One stream of the file as the header describes it, with its index state.
struct AviStream
{
    AVISTREAMHEADER strh;   // fccType 0 marks a free record
    BITMAPINFOHEADER bih;   // biSize non-zero once the format was read
    WAVEFORMATEX wfx;
    unsigned char* m_pStreamFormatExtra;
    std::uint32_t m_cbStreamFormatExtra;

    std::vector<AVISUPERINDEX_ENTRY> m_SuperIndex;
    std::uint32_t m_nSuperIndexEntriesInUse;
    std::uint32_t m_dwSuperIndexChunkId;
    std::uint8_t m_bIndexSubType;
    bool m_bTwoField;

    // What the index says of the stream, which wins over the header's
    // lengths: frames for video, whole blocks for audio.
    bool m_bIndexLengthKnown;
    std::uint32_t m_nIndexLength;
    // GOP length, fixed by the first index chunk loaded (0: none loaded),
    // so that the answer does not change with the chunk resident.
    std::uint32_t m_nGopLength;
    bool m_bGopLookedAhead;
    // Audio: the stream's first byte in each standard index chunk, and the
    // end (entries + 1), so that chunks that end inside a block are found.
    std::vector<std::uint64_t> m_AudioChunkStart;

    // Where the stream's header chunks lie (0: not in the file), for the
    // tools that rewrite them in place: the strh, the indx and a JUNK in the
    // strl after the strf (what ffmpeg reserves for an indx).
    std::uint64_t m_qwStrhPosition;
    std::uint64_t m_qwIndxPosition;
    std::uint32_t m_cbIndxSize;
    std::uint64_t m_qwStrfJunkPosition;
    std::uint32_t m_cbStrfJunkSize;
};

// A RIFF that the walk over the chunks went into: where its header and its
// LIST movi lie (movi 0: the file ends before it).
struct WalkedRiff
{
    std::uint64_t riff;
    std::uint64_t movi;
};

class FileReader : public Pell::CFileReaderUnbuffered
{
public:
    enum KfSearchType { kfBackward = 0, kfForward = 1, kfNearest = 2 };

    FileReader();
    ~FileReader() override;
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    using Pell::CFileReaderUnbuffered::load;
    using Pell::CFileReaderUnbuffered::read;
    HRESULT load(const std::wstring& path) override;
    virtual void InitVariables();

    // Header.
    HRESULT ReaderHeader();
    bool ChunkNext();
    HRESULT ParseChunkData();
    bool SkipMovi();
    bool STRF_MakeTypeMMES(unsigned int stream);
    bool STRF_MakeTypeMJPEG(unsigned int stream, unsigned char* strfData);
    bool STRF_MakeTypeDV(unsigned int stream, GUID subtype);
    void INFO_Extract(unsigned int fourcc, unsigned char* data, int size);
    int GetStreamIndexFromChunkId(unsigned int ckid);
    HRESULT updateMetadata();

    // Streams.
    bool ValidStream(int n) const;
    unsigned int get_StreamCount() const;
    bool get_IsVideo(int n) const;
    bool get_IsAudio(int n) const;
    unsigned int get_FCC(int n) const;
    unsigned int get_Length(int n) const;
    int get_Width(int n) const;
    int get_Height(int n) const;
    unsigned int get_BitsPerSample(int n) const;
    unsigned int get_ChannelCount(int n) const;
    double get_Rate(int n) const;
    bool get_RateAndScale(int n, int* rate, int* scale) const;
    unsigned int get_BufferSize(int n) const;
    bool get_HasIndexTable(int n) const;
    bool get_IsTimeCode(int n) const;
    HRESULT get_TimeCode(int n, unsigned int* timecode) const;
    int streamGetExtraData(int n, unsigned char* buf, int bufSize) const;
    const BITMAPINFOHEADER* get_VideoFormat() const;
    const AVIVIDEOPROPERTIES* get_VideoProperties() const { return &m_VideoProperties; }
    const VideoFieldLayout& get_VideoFieldLayout() const { return m_VideoFieldLayout; }
    // The INFO list's ISMP text (the first frame's SMPTE label), or "".
    const std::string& get_InfoTimecode() const { return m_InfoTimecode; }
    const AVIMAINHEADER& get_MainHeader() const { return m_AviHeader; }
    const AVIEXTHEADER& get_ExtendedHeader() const { return m_OpenDmlHeader; }
    const AM_MEDIA_TYPE& get_MediaType() const { return m_MT; }
    const AviStream* get_Stream(int n) const { return ValidStream(n) ? &m_pAviStreams[n] : nullptr; }
    int get_CurrentStream() const { return m_nCurrentStream; }
    bool get_HasIdx1() const { return m_cbIdx1Size != 0; }
    // Where the index of the streams without an OpenDML index came from.
    enum class IndexSource { none, idx1, walk };
    IndexSource get_IndexSource() const { return m_eFileIndexSource; }

    // Set before load: every stream's index comes from the walk over the
    // chunks, whatever idx1 and indx say (what the repair trusts).
    void set_WalkChunks(bool on) { m_bWalkChunks = on; }
    // After a walk: each stream's chunks in file order (data offset, size),
    // the RIFFs walked, where the walk stopped (the end of the last whole
    // chunk) and the id of a chunk that the end of the file cut off (0: none).
    const std::vector<IndexEntry>* get_WalkedEntries(int n) const
    {
        return n >= 0 && static_cast<std::size_t>(n) < m_FileIndex.size() ? &m_FileIndex[n] : nullptr;
    }
    const std::vector<WalkedRiff>& get_WalkedRiffs() const { return m_WalkedRiffs; }
    std::uint64_t get_WalkEnd() const { return m_qwWalkEnd; }
    std::uint32_t get_WalkCutId() const { return m_dwWalkCutId; }
    std::uint64_t get_AvihPosition() const { return m_qwAvihPosition; }
    std::uint64_t get_DmlhPosition() const { return m_qwDmlhPosition; }

    // Index.
    bool ParseINDX();
    bool LoadIDX1(int stream);
    bool LoadINDX(int stream, unsigned int sample);
    std::uint32_t ibpHeaderSkip(const MQ_AVIIBPINDEX_ENTRY& first, std::uint32_t chunkId);
    bool ensureSampleInRam(unsigned int sample);
    IndexEntry* getIndexEntryV(unsigned int sample);
    IndexEntry* getIndexEntryA(unsigned int sample, unsigned int& samplesLeft, unsigned int& entryStart);
    HRESULT get_IndexEntry(unsigned int sample, IndexEntry** entry);
    unsigned int get_IndexStartSample() const { return m_nIndexStartSample; }
    unsigned int get_IndexCount() const { return m_nIndexCount; }
    unsigned int get_ResidentLength() const { return m_nResidentLength; }
    unsigned int get_MaxGopLength() const { return m_nMaxGopLength; }
    // The frame whose bytes stand for `sample`: the sample itself, or, for
    // an empty entry (a dropped frame), the last frame before it that has
    // data (the first one after it at the start of the stream).
    unsigned int get_StoredFrame(unsigned int sample);

    // Samples.
    HRESULT essenceOpen(unsigned int stream);
    HRESULT ReadVideo(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                      std::vector<unsigned int>& offsets, std::vector<unsigned int>& sizes);
    HRESULT ReadVideo(unsigned int sample, unsigned char* buf, unsigned int bufSize, unsigned int* offset,
                      unsigned int* size);
    HRESULT ReadAudio(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                      unsigned int* offset, unsigned int* bytes);
    HRESULT CacheAudioData(unsigned int sample);
    // Frames first .. first + count - 1 are about to be read one by one (a
    // GOP): one read brings their whole span, and the reads copy from it.
    // True when the span is in the read-ahead now. alone: a GOP that is no
    // part of a run is left for the caller to read in one piece.
    bool prefetchVideo(unsigned int first, unsigned int count, bool alone = false);
    HRESULT essenceRead(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                        unsigned int* a, unsigned int* b);
    HRESULT essenceRead(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                        std::vector<unsigned int>& offsets, std::vector<unsigned int>& sizes);
    bool findKeyframe(unsigned int sample, bool forward, unsigned int& found);
    bool get_NearestKeyFrame(int stream, unsigned int frame, KfSearchType type, unsigned int& found);
    unsigned int get_GopSize(int stream);
    HRESULT get_PresentationOrder(unsigned int first, unsigned int count, unsigned int* out);
    HRESULT getGopAndPresentationOrder(unsigned int keyframe, std::vector<unsigned int>& gopIndexes,
                                       std::vector<unsigned int>& presentation);
    HRESULT get_GopAndPresentationOrder(unsigned int keyframe, GOPInfo& info);
    bool set_TemporalReordering(bool on);
    unsigned int get_ApproxDataRate(int stream);

private:
    // A bounds-checked view of the chunk at the header buffer's cursor.
    struct Chunk
    {
        std::uint32_t id = 0;
        std::uint32_t size = 0;      // as the file says
        std::uint32_t available = 0; // data bytes that are in the buffer
        unsigned char* data = nullptr;
    };
    bool chunkAtCursor(Chunk& chunk) const;
    HRESULT dispatchChunk(bool& stop);
    HRESULT onAvih(const Chunk& c);
    HRESULT onStrh(const Chunk& c);
    HRESULT onStrf(const Chunk& c);
    HRESULT onStrfAudio(unsigned int stream, const Chunk& c);
    void onStrfVideo(unsigned int stream, const Chunk& c);
    bool setStreamExtra(unsigned int stream, const unsigned char* p, std::uint32_t n);
    bool makeTypeUncompressed(unsigned int stream, const GUID& subtype, bool m102);
    bool allocFormat(std::uint32_t cb);
    void freeMediaType();
    void freeStreams();
    void freeIndex();
    bool hasIndex() const { return m_pIndex != nullptr; }
    unsigned int blockAlignOf(int stream) const;
    std::uint64_t frameTime32(unsigned int stream) const;
    bool refillHeaderBuffer(std::uint64_t at, std::uint64_t want);
    bool ensureChunkInBuffer(Chunk& c);
    std::uint64_t cursorPosition() const { return m_qwBufferFilePosition + m_HeaderBuffer.getOffset(); }
    bool readAt(std::uint64_t at, CByteBuffer& buf, std::uint32_t n, const unsigned char*& data,
                std::uint32_t& got);

    // The index of the streams that have no OpenDML index, taken at open
    // from the idx1 or, when there is none or it is unusable, by walking
    // the movi chunks; and every stream's length as the index gives it.
    void prepareIndex();
    bool indexFromIdx1();
    bool indexFromWalk();
    bool idx1BaseFrom(const INDEXENTRY& e, std::uint64_t& base);
    void addFileIndexEntry(unsigned int stream, std::uint64_t offset, std::uint32_t size);
    // The stream number of a sample chunk of a stream of the right kind:
    // ##dc or ##db for video, ##wb for audio; -1 for any other id.
    int sampleStreamOf(std::uint32_t ckid) const;
    std::vector<std::vector<IndexEntry>> m_FileIndex;
    IndexSource m_eFileIndexSource = IndexSource::none;
    bool m_bFollowingRiff = false;
    bool m_bWalkChunks = false;
    std::vector<WalkedRiff> m_WalkedRiffs;
    std::uint64_t m_qwWalkEnd = 0;
    std::uint32_t m_dwWalkCutId = 0;
    // Header chunk positions; the strl being read (its strh's stream) and its end.
    std::uint64_t m_qwAvihPosition = 0;
    std::uint64_t m_qwDmlhPosition = 0;
    int m_nHeaderStream = -1;
    std::uint64_t m_qwStrlEnd = 0;

    // Audio by bytes: the resident records' first bytes in the stream, so
    // that a chunk that is not whole blocks loses nothing and a lookup is
    // a binary search.
    bool findAudioEntry(std::uint64_t byte, std::uint32_t& entry, std::uint64_t& entryStart);
    void indexAudioStarts(int stream, std::uint64_t byteStart);
    bool audioChunkStarts(int stream);
    bool loadIndxChunk(int stream, std::size_t k, std::uint64_t startSample, std::uint32_t residentLength,
                       std::uint64_t byteStart);
    HRESULT cacheAudioBytes(std::uint64_t byte);
    std::vector<std::uint64_t> m_AudioEntryStart;
    std::uint64_t m_qwAudioCacheStart = 0;
    std::uint32_t m_cbAudioCacheBytes = 0;
    bool m_bWarnedAudioAlign = false;

    char m_szLabel[32];
    CByteBuffer m_HeaderBuffer;
    std::uint32_t m_cbHeaderBufferSize = 0;
    AVIMAINHEADER m_AviHeader;
    AVIEXTHEADER m_OpenDmlHeader;
    AVIVIDEOPROPERTIES m_VideoProperties;
    VideoFieldLayout m_VideoFieldLayout;
    std::string m_InfoTimecode;
    AviStream* m_pAviStreams = nullptr;
    AM_MEDIA_TYPE m_MT;
    std::uint32_t m_dwIdx1Position = 0xFFFFFFFF;
    std::uint32_t m_cbIdx1Size = 0;
    std::uint64_t m_qwMoviPosition = 0; // file position of the LIST movi header
    int m_nCurrentStream = -1;
    std::uint64_t m_qwBufferFilePosition = 0;
    // Walker marks; 64-bit so that a size from the file cannot wrap them.
    std::uint64_t m_cbEndOfList = 0;
    std::uint64_t m_cbEndOfChunk = 0;

    IndexEntry* m_pIndex = nullptr;
    std::uint32_t m_nIndexCount = 0;
    std::uint32_t m_nIndexStartSample = 0;
    std::uint32_t m_nResidentLength = 0;
    std::uint32_t m_nMaxGopLength = 1;

    // As read, at the position of the last seek; frames and audio chunks
    // go through the read-ahead window.
    HRESULT readEssence(unsigned char* buf, unsigned int bufSize, unsigned int n, unsigned int& actual,
                        unsigned int& offset);
    ReadAhead m_ReadAhead;

    CByteBuffer m_AudioBuffer;
    std::uint32_t m_dwAudioBufferStart = 0;
    std::uint32_t m_dwAudioBufferLength = 0;
    bool m_bTemporalReordering = false;

    // Index chunks parsed before, kept so that making a stream current again
    // (the read adapter does so before every read) costs no disk read and no
    // parse. A chunk is known by its stream, its super-index entry (or the
    // idx1) and the reordering flag, which decide its records.
    struct ParsedIndex
    {
        int stream = -1; // -1: the resident records are not kept
        std::uint64_t chunk = 0;
        bool reordering = false;
        IndexEntry* entries = nullptr;
        std::uint32_t count = 0;
        std::uint32_t startSample = 0;
        std::uint32_t residentLength = 0;
        std::uint32_t maxGopLength = 1;
        std::vector<std::uint64_t> audioStarts;
    };
    static constexpr std::uint64_t kIdx1Chunk = UINT64_MAX;
    // Chunks kept parsed: at least this many, and more while their records
    // take no more than kParsedIndexBytes, so that scrubbing a long file
    // (tens of chunks an hour) does not read and parse a chunk per frame.
    static constexpr std::size_t kParsedIndexSlots = 4;
    static constexpr std::uint64_t kParsedIndexBytes = 1u << 20;
    static std::uint64_t parsedBytes(const ParsedIndex& p)
    {
        return std::uint64_t(p.count) * sizeof(IndexEntry) + p.audioStarts.size() * sizeof(std::uint64_t);
    }
    bool residentFromParsed(int stream, std::uint64_t chunk);
    void markResident(int stream, std::uint64_t chunk);
    void dropParsedIndexes();
    ParsedIndex m_Resident;
    std::vector<ParsedIndex> m_ParsedIndexes;
};

} // namespace Morvane::Avi
