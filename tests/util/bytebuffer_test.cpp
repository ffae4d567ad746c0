#include "util/bytebuffer.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "common/AssertCapture.h"

using Morvane::CByteBuffer;
using testutil::captureStdout;

namespace {

// What the container calls: alloc, the used count and the offset within
// the block, pointers into it, and flush. A refusal asserts and moves
// nothing; under the sanitizer a pointer past the block or a lost block fails.
TEST(ByteBuffer, UsedCountOffsetAndPointersStayInTheBlock)
{
    CByteBuffer b;
    EXPECT_TRUE(testutil::isAssertion(captureStdout([&] { EXPECT_EQ(b.getBuffer(0), nullptr); }), "false",
                                      "util/bytebuffer"));
    ASSERT_TRUE(b.alloc(8));
    ASSERT_TRUE(b.setUsed(8));
    ASSERT_TRUE(b.setOffset(7));
    EXPECT_EQ(b.getBufferAtOffset(), b.getBuffer(0) + 7);
    const struct { const char* name; std::function<bool()> refused; const char* expression; } cases[] = {
        {"used past the block", [&] { return !b.setUsed(9); }, "0"},
        {"offset at the block's end", [&] { return !b.setOffset(8); }, "false"},
        {"pointer at the block's end", [&] { return b.getBuffer(8) == nullptr; }, "false"},
    };
    for (const auto& c : cases) {
        bool refused = false;
        std::string out = captureStdout([&] { refused = c.refused(); });
        EXPECT_TRUE(refused) << c.name;
        EXPECT_TRUE(testutil::isAssertion(out, c.expression, "util/bytebuffer")) << c.name << ": " << out;
        EXPECT_EQ(std::tuple(b.getCapacity(), b.getUsed(), b.getOffset()), std::tuple(8ul, 8ul, 7ul)) << c.name;
    }
    // A block no memory can hold leaves none.
    std::string out = captureStdout([&] { EXPECT_FALSE(b.alloc(~0ul >> 2)); });
    EXPECT_TRUE(testutil::isAssertion(out, "false", "util/bytebuffer")) << out;
    EXPECT_EQ(std::tuple(b.getCapacity(), b.getUsed(), b.getOffset()), std::tuple(0ul, 0ul, 0ul));

    // flush fills the whole block and empties it; a new alloc drops the old block.
    ASSERT_TRUE(b.alloc(4096));
    ASSERT_TRUE(b.setUsed(100));
    b.flush(0xAB);
    EXPECT_EQ(std::tuple(b.getUsed(), b.getOffset(), *b.getBuffer(0), *b.getBuffer(4095)),
              std::tuple(0ul, 0ul, (unsigned char)0xAB, (unsigned char)0xAB));
    ASSERT_TRUE(b.alloc(16));
    EXPECT_EQ(b.getCapacity(), 16u);
}

} // namespace
