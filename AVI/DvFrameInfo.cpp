#include "AVI/DvFrameInfo.h"

namespace avi {

namespace {

constexpr std::size_t kBlock = 80;        // one DIF block
constexpr std::size_t kSequence = 150;    // DIF blocks in a sequence
constexpr unsigned kSubcode = 1;          // section types, from a block's first byte
constexpr unsigned kVaux = 2;
constexpr unsigned char kTimecodePack = 0x13;
constexpr unsigned char kVideoControlPack = 0x61;

unsigned sectionType(const unsigned char* block)
{
    return block[0] >> 5;
}

// Two BCD digits, the tens digit masked to `tensBits` bits; false for digits
// that are not decimal (an unrecorded pack is all ones).
bool bcd(unsigned char byte, unsigned tensBits, unsigned& out)
{
    const unsigned units = byte & 0x0F;
    const unsigned tens = (byte >> 4) & ((1u << tensBits) - 1);
    if (units > 9)
        return false;
    out = tens * 10 + units;
    return true;
}

bool readTimecode(const unsigned char* pack, DvFrameInfo& info)
{
    unsigned f = 0, s = 0, m = 0, h = 0;
    if (pack[1] == 0xFF || !bcd(pack[1], 2, f) || !bcd(pack[2], 3, s) || !bcd(pack[3], 3, m) || !bcd(pack[4], 2, h))
        return false;
    if (s > 59 || m > 59 || h > 23 || f > 59)
        return false;
    info.hasTimecode = true;
    info.hours = h;
    info.minutes = m;
    info.seconds = s;
    info.frames = f;
    info.dropFrame = (pack[1] & 0x40) != 0;
    return true;
}

void readVideoControl(const unsigned char* pack, std::uint32_t height, DvFrameInfo& info)
{
    const unsigned char flags = pack[3];
    const bool interlaced = (flags & 0x10) != 0;
    const bool firstFieldFlag = (flags & 0x40) != 0;
    info.hasScan = true;
    if (height == 720)
        info.scanMode = 3;
    else if (height == 1080)
        info.scanMode = firstFieldFlag ? 1 : 2;
    else if (!interlaced)
        info.scanMode = 3;
    else
        info.scanMode = firstFieldFlag ? 2 : 1;
}

} // namespace

DvFrameInfo readDvFrameInfo(const unsigned char* frame, std::size_t size, std::uint32_t height)
{
    DvFrameInfo info;
    if (!frame)
        return info;
    const std::size_t blocks = size / kBlock < kSequence ? size / kBlock : kSequence;
    for (std::size_t b = 0; b < blocks && !(info.hasScan && info.hasTimecode); ++b) {
        const unsigned char* block = frame + b * kBlock;
        if (sectionType(block) == kSubcode) {
            // Six sync blocks of 8 bytes after the 3-byte ID: 2 ID bytes, one
            // reserved, then a 5-byte pack.
            for (std::size_t k = 0; k < 6 && !info.hasTimecode; ++k) {
                const unsigned char* pack = block + 3 + 8 * k + 3;
                if (pack[0] == kTimecodePack)
                    readTimecode(pack, info);
            }
        } else if (sectionType(block) == kVaux) {
            // Fifteen 5-byte packs after the 3-byte ID.
            for (std::size_t k = 0; k < 15 && !info.hasScan; ++k) {
                const unsigned char* pack = block + 3 + 5 * k;
                if (pack[0] == kVideoControlPack)
                    readVideoControl(pack, height, info);
            }
        }
    }
    return info;
}

} // namespace avi
