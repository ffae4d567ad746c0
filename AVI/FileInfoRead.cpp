// The data paths of an open AVI file: frames and whole groups into
// sector-aligned blocks, the group index cache, and PCM audio.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "AVI/FileInfo.h"
#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "OS/VlErrFromHresult.h"
#include "host/AlignedByteBufferImpl.h"
#include "host/ByteBufferImpl.h"
#include "host/Log.h"
#include "host/RequestStatus.h"
#include "host/resourceStr.h"

namespace avi {

namespace {

constexpr int kErrSuccess = 1;
constexpr int kErrBufferTooSmall = 8;
constexpr int kErrEndOfFile = 11;
constexpr int kFailed = -1; // a failure the reader has reported already
// The most of a previous frame that a later one's first sector can hold.
constexpr std::uint64_t kMaxLead = 4096;

Vl::Ptr<AlignedByteBufferImpl> alignedBlock(std::uint64_t size, std::uint32_t alignment)
{
    if (size > UINT32_MAX)
        return nullptr;
    Vl::Ptr<AlignedByteBufferImpl> block(new AlignedByteBufferImpl);
    if (!block->alloc(static_cast<std::uint32_t>(size), alignment))
        return nullptr;
    return block;
}

} // namespace

bool FileInfo::readVideo(Vl::Ptr<iMemHolder>& out, unsigned frame, Vl::Ptr<IndexInfo>& gop)
{
    CriticalSection::Lock fileLock(lock());
    if (!reader_ || VlErrFromHresult(reader_->essenceOpen(videoStream_)) != kErrSuccess)
        return false;

    unsigned count = 1;
    unsigned first = frame;
    if (gop) {
        count = gop->getNumGopFrames();
        first = gop->getStartGopFrameIndex();
        if (count == 0)
            return false;
    }

    // A frame counts with the bytes that the file holds from its offset on:
    // one that an index claims past the end fails its read below, and no
    // block is sized by the claim.
    const std::uint64_t fileBytes = reader_->getSize();
    std::uint64_t total = 0;
    for (std::uint8_t i = 0; i < count; ++i) {
        Morvane::Avi::IndexEntry* entry = nullptr;
        if (SUCCEEDED(reader_->get_IndexEntry(first + i, &entry)) && entry) {
            const std::uint64_t offset = entry->offset;
            const std::uint64_t size = entry->size;
            total += sectorSize_ + std::min(size, fileBytes - std::min(offset, fileBytes));
        }
    }

    // A group that is no part of a run (a scrub) is read whole, straight
    // into its block, when little but its frames lies between them; a
    // group of a run is read frame by frame from the read-ahead, whose one
    // disk read brings them all.
    std::uint64_t span = 0;
    const bool alone = count > 1 && groupSpan(first, count, fileBytes, span) && span <= total + total / 4;
    const bool windowed = count > 1 && reader_->prefetchVideo(first, count, alone);

    Vl::Ptr<AlignedByteBufferImpl> group = alignedBlock(std::max(total, alone ? span : 0) + sectorSize_, sectorSize_);
    if (!group)
        return false;
    out = group;
    if (alone && !windowed)
        return readGroupWhole(*group, first, count, total);
    Vl::Ptr<AlignedByteBufferImpl> frameBlock; // for a later frame that cannot be read in place

    std::uint64_t used = 0;
    for (unsigned i = 0; i < count; ++i) {
        if (total <= used)
            return false;
        unsigned offset = 0;
        unsigned bytes = 0;
        if (i > 0) {
            const int err = readInPlace(*group, first + i, total, used);
            if (err == kErrSuccess)
                continue;
            if (err == kFailed)
                return false;
            if (err != kErrBufferTooSmall) {
                LogBoth("AVI API error %s\n", resourceStr(err));
                return false;
            }
            if (!frameBlock)
                frameBlock = alignedBlock(std::uint64_t(videoBufferSize_) + sectorSize_, sectorSize_);
            if (!frameBlock)
                return false;
        }
        Vl::Ptr<AlignedByteBufferImpl>& block = i == 0 ? group : frameBlock;
        int err = VlErrFromHresult(reader_->essenceRead(first + i, 1, block->data(), block->capacity(), &offset, &bytes));
        while (err == kErrBufferTooSmall) {
            LogBoth("readSamples: buffer required larger than expected\n");
            Vl::Ptr<AlignedByteBufferImpl> bigger = alignedBlock(std::uint64_t(block->capacity()) * 2, sectorSize_);
            if (!bigger)
                return false;
            block = bigger;
            if (i == 0) {
                // The block that holds the frames is the one handed back.
                out = group;
                videoBufferSize_ = std::max(videoBufferSize_, group->capacity());
            }
            err = VlErrFromHresult(reader_->essenceRead(first + i, 1, block->data(), block->capacity(), &offset, &bytes));
        }
        if (err != kErrSuccess) {
            LogBoth("AVI API error %s\n", resourceStr(err));
            return false;
        }
        if (offset > block->capacity() || bytes > block->capacity() - offset)
            return false; // the reader claims more than the block holds
        if (i == 0) {
            group->setDataOffset(offset);
            auto address = reinterpret_cast<std::uintptr_t>(group->data() + offset);
            if (resolutionCoded_ && address % 16 != 0) {
                Vl::Ptr<AlignedByteBufferImpl> fresh = alignedBlock(group->capacity(), sectorSize_);
                if (!fresh)
                    return false;
                std::memcpy(fresh->data(), group->data() + offset, bytes);
                group = fresh;
                out = group;
            }
        } else {
            // Equality fails too: a later frame must leave room behind it.
            if (total - used <= bytes)
                return false;
            if (std::uint64_t(group->dataOffset()) + used + bytes > group->capacity())
                return false;
            std::memcpy(group->data() + group->dataOffset() + used, frameBlock->data() + offset, bytes);
        }
        used += bytes;
    }
    group->setUsed(static_cast<std::uint32_t>(used));
    return true;
}

// The bytes from the sector of a group's first frame to the end of its last,
// when its frames lie in the file in their order, none over another: then
// one read brings them and closing the gaps between them moves each to its
// place. False for any other group.
bool FileInfo::groupSpan(unsigned first, unsigned count, std::uint64_t fileBytes, std::uint64_t& span)
{
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    for (unsigned i = 0; i < count; ++i) {
        Morvane::Avi::IndexEntry* entry = nullptr;
        if (FAILED(reader_->get_IndexEntry(reader_->get_StoredFrame(first + i), &entry)) || !entry)
            return false;
        const std::uint64_t offset = entry->offset;
        const std::uint64_t size = entry->size;
        if (size == 0 || offset > fileBytes || size > fileBytes - offset || (i > 0 && offset < end))
            return false;
        if (i == 0)
            start = offset;
        end = offset + size;
    }
    const std::uint64_t lead = start % sectorSize_;
    span = (end - start + lead + sectorSize_ - 1) / sectorSize_ * sectorSize_;
    return true;
}

// A whole group in one read, its frames then moved down over the chunk
// headers and padding between them, each to the end of the one before:
// the same bytes as frame-by-frame reads put there, with no copy out of a
// window.
bool FileInfo::readGroupWhole(AlignedByteBufferImpl& group, unsigned first, unsigned count, std::uint64_t total)
{
    std::vector<unsigned> offsets;
    std::vector<unsigned> sizes;
    const int err =
        VlErrFromHresult(reader_->essenceRead(first, count, group.data(), group.capacity(), offsets, sizes));
    if (err != kErrSuccess) {
        LogBoth("AVI API error %s\n", resourceStr(err));
        return false;
    }
    if (sizes.size() != count || offsets.size() != count)
        return false;
    std::uint64_t used = 0;
    for (unsigned i = 0; i < count; ++i) {
        if (offsets[i] < used || offsets[i] > group.capacity() || sizes[i] > group.capacity() - offsets[i])
            return false; // the reader claims more than the block holds
        // Equality fails too: a later frame must leave room behind it.
        if (i > 0 && total - used <= sizes[i])
            return false;
        std::memmove(group.data() + used, group.data() + offsets[i], sizes[i]);
        used += sizes[i];
    }
    group.setDataOffset(0);
    group.setUsed(static_cast<std::uint32_t>(used));
    return true;
}

// A later frame of a group read straight to its place behind the frames
// before it, instead of into a block of its own and copied from there: the
// reader writes whole sectors, so the bytes of the previous frame that share
// the first sector are kept aside and put back. kErrBufferTooSmall leaves
// the frame to be read the other way; kErrSuccess adds it to used.
int FileInfo::readInPlace(AlignedByteBufferImpl& group, unsigned frame, std::uint64_t total, std::uint64_t& used)
{
    Morvane::Avi::IndexEntry* entry = nullptr;
    if (FAILED(reader_->get_IndexEntry(reader_->get_StoredFrame(frame), &entry)) || !entry)
        return kErrBufferTooSmall;
    // Where the reader will put the frame within its first sector.
    const std::uint64_t lead = entry->offset % sectorSize_;
    const std::uint64_t at = std::uint64_t(group.dataOffset()) + used;
    if (lead > kMaxLead || at < lead || at - lead >= group.capacity())
        return kErrBufferTooSmall;
    unsigned char* base = group.data() + (at - lead);
    const auto room = static_cast<unsigned>(group.capacity() - (at - lead));
    unsigned char kept[kMaxLead];
    std::memcpy(kept, base, lead);
    unsigned offset = 0;
    unsigned bytes = 0;
    const int err = VlErrFromHresult(reader_->essenceRead(frame, 1, base, room, &offset, &bytes));
    if (err == kErrSuccess && (offset > room || bytes > room - offset)) {
        std::memcpy(base, kept, lead);
        return kFailed; // the reader claims more than the block holds
    }
    if (err != kErrSuccess) {
        std::memcpy(base, kept, lead);
        return err;
    }
    // Equality fails too: a later frame must leave room behind it.
    if (total - used <= bytes || at + bytes > group.capacity())
        return kFailed;
    if (offset != lead)
        std::memmove(base + lead, base + offset, bytes);
    std::memcpy(base, kept, lead);
    used += bytes;
    return kErrSuccess;
}

int FileInfo::readVideo(Vl::Ptr<FrameBuffer>& out, Vl::Ptr<VideoReadRequest>& request)
{
    Vl::Ptr<iMemHolder> memory;
    if (!readVideo(memory, request->getFrame(), request->getIndexInfo()))
        return RequestStatus::eFailed;
    out = Vl::Ptr<FrameBuffer>(new FrameBuffer(metadata(), memory, request->getIndexInfo()));
    if (!request->getIndexInfo()) {
        unsigned stored = storedFrame(request->getFrame());
        if (stored != request->getFrame())
            out->setRepeatOf(stored);
    }
    return RequestStatus::eCompleted;
}

unsigned FileInfo::storedFrame(unsigned frame)
{
    CriticalSection::Lock fileLock(lock());
    if (!reader_ || VlErrFromHresult(reader_->essenceOpen(videoStream_)) != kErrSuccess)
        return frame;
    return reader_->get_StoredFrame(frame);
}

void FileInfo::VlFileIxCache_open(Vl::Ptr<IndexInfo>& out, unsigned frame)
{
    if (metadata()->video().gopSize() < 2)
        return;
    CriticalSection::Lock cache(cacheLock_);
    if (Vl::Ptr<IndexInfo> record = cachedRecord(frame)) {
        out = record;
        return;
    }
    CriticalSection::Lock fileLock(lock());
    if (!reader_ || VlErrFromHresult(reader_->essenceOpen(videoStream_)) != kErrSuccess)
        return;
    unsigned keyframe = frame;
    reader_->get_NearestKeyFrame(reader_->get_CurrentStream(), frame, Morvane::Avi::FileReader::kfBackward, keyframe);
    out = Vl::Ptr<IndexInfo>(new IndexInfo);
    if (FAILED(reader_->getGopAndPresentationOrder(keyframe, out->decodeOrder(), out->presentationOrder())))
        return;
    if (out->getNumValidFrames() == 0) {
        MORVANE_ASSERT_AT(false, "AVI/FileInfo line 963");
        out = nullptr;
        return;
    }
    cacheRecord(out);
}

// The earliest cached record that holds frame, as a search of the cache in
// order finds it; null when none does.
Vl::Ptr<IndexInfo> FileInfo::cachedRecord(unsigned frame) const
{
    const std::uint32_t from = frame >= indexLongest_ ? frame - indexLongest_ + 1 : 0;
    std::size_t best = indexCache_.size();
    for (auto it = indexStarts_.lower_bound(from); it != indexStarts_.end() && it->first <= frame; ++it) {
        if (it->second < best && indexCache_[it->second]->containsValidFrame(frame))
            best = it->second;
    }
    return best < indexCache_.size() ? indexCache_[best] : nullptr;
}

void FileInfo::cacheRecord(const Vl::Ptr<IndexInfo>& record)
{
    indexStarts_.emplace(record->getStartGopFrameIndex(), indexCache_.size());
    indexLongest_ = std::max<std::uint32_t>(indexLongest_, record->getNumValidFrames());
    indexCache_.push_back(record);
}

int FileInfo::readAudio(Aud::StreamBufferList& buffers, Vl::Ptr<AudioReadRequest>& request)
{
    CriticalSection::Lock fileLock(lock());
    int result = RequestStatus::eFailed;
    const Aud::Metadata& audio = metadata()->audio();
    if (!reader_)
        return result;
    // Strict on purpose: a stream number equal to the count is attempted.
    if (request->getChannelStream() > audio.audioStreams())
        return result;
    const int Err_Fail = 0;
    int err = VlErrFromHresult(reader_->essenceOpen(audioStream_ + request->getChannelStream()));
    MORVANE_ASSERT_AT(err != Err_Fail, "AVI/FileInfo line 711");

    // The file holds no more blocks than it has bytes: a longer request is
    // cut to that, so that the block is sized by the file, never by the
    // count asked for or the channels a header claims.
    std::uint32_t count = request->getSampleCount();
    const Morvane::Avi::AviStream* stream = reader_->get_Stream(reader_->get_CurrentStream());
    const std::uint32_t blockAlign =
        stream && reader_->get_IsAudio(reader_->get_CurrentStream()) ? stream->wfx.nBlockAlign : 0;
    const std::uint64_t fileBytes = reader_->getSize();
    const std::uint64_t slack = 2ull * sectorSize_;
    if (blockAlign)
        count = static_cast<std::uint32_t>(
            std::min<std::uint64_t>({count, fileBytes / blockAlign + 1, (UINT32_MAX - slack) / blockAlign}));
    // Never more than the reader can put in it: the blocks asked for, or
    // for what is not audio, the file.
    const std::uint64_t hint = std::max<std::uint64_t>(audioBufferSize_, request->getBytesPerMCS());
    const std::uint32_t blockSize = static_cast<std::uint32_t>(
        std::min(hint, blockAlign ? std::uint64_t(blockAlign) * count : fileBytes + slack));
    Vl::Ptr<ByteBufferImpl> block(new ByteBufferImpl);
    if (!block->alloc(blockSize))
        return result;
    unsigned offset = 0;
    unsigned bytes = 0;
    const std::uint32_t space = block->freeSpace();
    err = VlErrFromHresult(reader_->essenceRead(request->getStartSample(), count, block->getBufferAtEnd(), space,
                                                &offset, &bytes));
    if (err == kErrSuccess || err == kErrEndOfFile) {
        std::uint64_t wanted = std::uint64_t(audio.stride()) * audio.channelsPerStream() * count;
        bytes = static_cast<unsigned>(std::min<std::uint64_t>(bytes, wanted));
        if (offset > space)
            offset = space;
        bytes = std::min(bytes, space - offset);
        if (offset != 0) {
            MORVANE_ASSERT_AT(false, "AVI/FileInfo line 735");
            std::memmove(block->getBufferAtEnd(), block->getBufferAtEnd() + offset, bytes);
        }
        block->append(bytes);
        interleaver().deinterleaveAudio(count, *block, buffers);
        result = RequestStatus::eCompleted;
    }
    return result;
}

} // namespace avi
