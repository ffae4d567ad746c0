#include "util/bytebuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <tuple>
#include <vector>

#include "common/AssertCapture.h"
#include "common/TempDir.h"

using Morvane::CByteBuffer;
using testutil::captureStdout;

namespace {

const unsigned char kBytes[] = {1, 2, 3, 4, 5, 6, 7, 8};

TEST(ByteBuffer, RefusalsLeaveTheBufferAsItWas)
{
    const struct { const char* name; std::function<bool(CByteBuffer&)> op; const char* assertion; } cases[] = {
        {"inflate to the same capacity", [](CByteBuffer& b) { return b.inflate(8); }, "assertion failed 0"},
        {"inflate smaller", [](CByteBuffer& b) { return b.inflate(4); }, "assertion failed 0"},
        {"setUsed past capacity", [](CByteBuffer& b) { return b.setUsed(9); }, "assertion failed 0"},
        {"setOffset at capacity", [](CByteBuffer& b) { return b.setOffset(8); }, "assertion failed false"},
        {"append null", [](CByteBuffer& b) { return b.append(nullptr, 1); }, "assertion failed 0"},
        {"append past capacity", [](CByteBuffer& b) { return b.append(kBytes, 6); }, "assertion failed 0 at util/bytebuffer line"},
        {"claim past capacity", [](CByteBuffer& b) { return b.append(6ul); }, "assertion failed 0"},
        {"append3 past capacity", [](CByteBuffer& b) { return b.append3(0, 6); }, "assertion failed 0"},
    };
    for (const auto& c : cases) {
        CByteBuffer b(8);
        ASSERT_TRUE(b.append(kBytes, 3));
        bool result = true;
        std::string out = captureStdout([&] { result = c.op(b); });
        EXPECT_FALSE(result) << c.name;
        EXPECT_NE(out.find(c.assertion), std::string::npos) << c.name << ": " << out;
        EXPECT_EQ(std::tuple(b.getCapacity(), b.getUsed(), b.at(2)), std::tuple(8ul, 3ul, (unsigned char)3)) << c.name;
    }
    CByteBuffer none;
    EXPECT_NE(captureStdout([&] { EXPECT_FALSE(none.append(kBytes, 1)); }).find("assertion failed 0"), std::string::npos);

    // A full buffer has no end; reads past it are 0.
    CByteBuffer full(8);
    ASSERT_TRUE(full.append(kBytes, 6));
    ASSERT_TRUE(full.append3(0xEE, 2));
    std::string out = captureStdout([&] { EXPECT_EQ(full.getBufferAtEnd(), nullptr); });
    EXPECT_NE(out.find("assertion failed false at util/bytebuffer line"), std::string::npos) << out;
    EXPECT_EQ(std::pair(full.at(7), full.at(8)), (std::pair<unsigned char, unsigned char>(0xEE, 0)));
}

TEST(ByteBuffer, InflateKeepsContentsAllocDropsThem)
{
    CByteBuffer b(4);
    ASSERT_TRUE(b.append(kBytes, 4));
    ASSERT_TRUE(b.setOffset(1));
    ASSERT_TRUE(b.inflate(16));
    EXPECT_EQ(std::tuple(b.getCapacity(), b.getUsed(), b.getOffset()), std::tuple(16ul, 4ul, 1ul));
    EXPECT_EQ(std::memcmp(b.getBuffer(0), kBytes, 4), 0);

    // alloc drops them; a flush count past the capacity is clamped to it.
    ASSERT_TRUE(b.alloc(32));
    std::string out = captureStdout([&] { b.flush(0xAB, 40); });
    EXPECT_NE(out.find("assertion failed false"), std::string::npos);
    EXPECT_EQ(std::pair(b.getUsed(), b.at(31)), std::pair(0ul, static_cast<unsigned char>(0xAB)));
}

TEST(ByteBuffer, OffsetsOnAppendAndCopy)
{
    CByteBuffer b(8);
    ASSERT_TRUE(b.append(kBytes, 2));
    ASSERT_TRUE(b.setOffset(1));
    std::string out = captureStdout([&] { EXPECT_TRUE(b.append(kBytes + 4, 2)); });
    EXPECT_NE(out.find("assertion failed m_cbOffset == 0 at util/bytebuffer line"), std::string::npos) << out;
    EXPECT_EQ(std::tuple(b.getUsed(), b.at(2), b.at(3)), std::tuple(4ul, (unsigned char)5, (unsigned char)6));

    // Another buffer, and copyTo, take its used bytes from its offset.
    CByteBuffer src(8);
    ASSERT_TRUE(src.append(kBytes, 8));
    ASSERT_TRUE(src.setUsed(5));
    ASSERT_TRUE(src.setOffset(2));
    CByteBuffer dst(8);
    ASSERT_TRUE(dst.append(src));
    // src's used count (5), taken from its offset (2); it stops at the block's end.
    EXPECT_EQ(std::tuple(dst.getUsed(), dst.at(0), dst.at(4)), std::tuple(5ul, (unsigned char)3, (unsigned char)7));
    unsigned char copied[8] = {};
    src.setUsed(3);
    src.copyTo(copied);
    EXPECT_EQ(std::vector<unsigned char>(copied, copied + 4), (std::vector<unsigned char>{3, 4, 5, 0}));
}

// Who frees which block: under the sanitizer a wrong free crashes and a
// missing one is reported as a leak.
TEST(ByteBuffer, OwnershipCopyAndAssignment)
{
    unsigned char stack[16] = {};
    {
        CByteBuffer view(stack, sizeof stack);
        ASSERT_TRUE(view.append(kBytes, 4));
    }
    EXPECT_EQ(stack[3], 4);
    CByteBuffer owner, detached;
    owner.attach(CByteBuffer::allocateMemory(16, nullptr), 16);
    auto* kept = CByteBuffer::allocateMemory(8, nullptr);
    detached.attach(kept, 8);
    detached.detach();
    CByteBuffer::freeMemory(kept);

    // Copies own their block; assignment keeps a larger one.
    CByteBuffer a(8);
    ASSERT_TRUE(a.append(kBytes, 6));
    a.setOffset(2);
    CByteBuffer copy(a);
    EXPECT_EQ(std::tuple(copy.getCapacity(), copy.getUsed(), copy.getOffset(), copy.at(5)),
              std::tuple(8ul, 6ul, 2ul, (unsigned char)6));
    EXPECT_NE(copy.getBuffer(0), a.getBuffer(0));
    CByteBuffer big(64);
    big = a;
    EXPECT_EQ(std::pair(big.getCapacity(), big.at(5)), std::pair(64ul, (unsigned char)6));
    big = big;
    EXPECT_EQ(big.getUsed(), 6u);
    big = CByteBuffer();
    EXPECT_EQ(big.getCapacity(), 0u);
}

TEST(ByteBuffer, FileRoundTrip)
{
    testutil::TempDir dir;
    std::wstring path = dir.file("bytes.bin");
    CByteBuffer out(8);
    ASSERT_TRUE(out.append(kBytes, 8));
    ASSERT_TRUE(out.setOffset(2));
    EXPECT_EQ(out.toFile(path), 1); // success is 1, not S_OK
    CByteBuffer in;
    ASSERT_EQ(in.fromFile(path, 0), S_OK);
    EXPECT_EQ(std::tuple(in.getUsed(), in.getCapacity(), in.at(0)), std::tuple(6ul, 6ul + 32, (unsigned char)3));
    EXPECT_EQ(in.fromFile(path, 5), E_FAIL) << "larger than maxSize";
    HRESULT hr = S_OK;
    captureStdout([&] { hr = in.fromFile(dir.file("missing.bin"), 0); });
    EXPECT_EQ(hr, static_cast<HRESULT>(0x80070002)) << "ENOENT";
    EXPECT_EQ(out.toFile(dir.file("no/such/dir/x.bin")), static_cast<HRESULT>(0x80070002));
}

} // namespace
