// The read-ahead under the editor's budget, shared by every open file: the
// windows of all readers together never hold more than the budget, a file
// that starts to play gets windows even while others hold the budget, an
// idle reader's windows are taken back by the budget's own thread, and a
// closed reader leaves nothing counted.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.ReadAhead.h"
#include "avi/readahead_support.h"
#include "common/Eventually.h"
#include "vlhost/ReadAheadSettings.h"

using Morvane::Avi::ReadAhead;
using namespace readaheadtest;

namespace {

// The stand-in's settings for one test, put back afterwards.
class Budget : public testing::Test
{
protected:
    void SetUp() override { saved_ = vlhost::readAheadBudget(); }
    void TearDown() override
    {
        vlhost::setReadAheadBudget(saved_);
        vlhost::setReadAheadIdleAfter(std::chrono::milliseconds(500));
    }

private:
    std::uint64_t saved_ = 0;
};

// A clip being played: DV-sized frames, read forward one after the other.
struct Player
{
    explicit Player(std::uint64_t size) : file(size) {}
    MemoryFile file;
    ReadAhead ra;
    std::uint64_t next = 4096;
    unsigned served = 0;
    unsigned reads = 0;
    bool wrongBytes = false;

    bool step()
    {
        if (next + kDvRead > file.getSize())
            return false;
        std::vector<unsigned char> got(kDvRead);
        ++reads;
        if (ra.read(file, next, kDvRead, got.data())) {
            ++served;
            wrongBytes = wrongBytes || !holdsPositions(got.data(), kDvRead, next);
        }
        next += kDvStep;
        return true;
    }
};

struct Shape
{
    std::uint64_t budget;
    unsigned players;
    bool windows; // the share is large enough for windows
};

class SharedBudget : public Budget, public testing::WithParamInterface<Shape>
{};

TEST_P(SharedBudget, PlayersTogetherStayWithinItAndNoneStarves)
{
    const Shape shape = GetParam();
    vlhost::setReadAheadBudget(shape.budget);
    std::vector<std::unique_ptr<Player>> players;
    for (unsigned k = 0; k < shape.players; ++k)
        players.push_back(std::make_unique<Player>(24 * kMiB));
    // One after the other, as the editor's threads interleave them; the
    // first has the budget to itself for a while, then the others come.
    for (unsigned round = 0; round < 40; ++round)
        players[0]->step();
    bool more = true;
    while (more) {
        more = false;
        for (auto& p : players) {
            more = p->step() || more;
            ASSERT_LE(vlhost::readAheadInUse(), shape.budget);
        }
    }
    for (auto& p : players) {
        EXPECT_FALSE(p->wrongBytes);
        if (shape.windows)
            EXPECT_GT(p->served, p->reads / 2) << "a player was starved of windows";
        else
            EXPECT_EQ(p->served, 0u);
    }
    players.clear();
    EXPECT_EQ(vlhost::readAheadInUse(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Shapes, SharedBudget,
                         testing::Values(Shape{0, 2, false}, Shape{512 * 1024, 2, false},
                                         Shape{8 * kMiB, 1, true}, Shape{16 * kMiB, 4, true},
                                         Shape{64 * kMiB, 3, true}, Shape{64 * kMiB, 8, true}),
                         [](const testing::TestParamInfo<Shape>& i) {
                             return std::to_string(i.param.budget >> 10) + "KiB_" +
                                    std::to_string(i.param.players) + "Players";
                         });

TEST_F(Budget, AnIdleReaderGivesItsWindowsBackAndReadsOnAfterwards)
{
    vlhost::setReadAheadIdleAfter(std::chrono::milliseconds(10));
    Player p(24 * kMiB);
    for (int k = 0; k < 60; ++k)
        p.step();
    ASSERT_GT(p.served, 0u);
    EXPECT_TRUE(testutil::eventually([&] { return p.ra.held() == 0 && vlhost::readAheadInUse() == 0; }));
    const unsigned before = p.served;
    for (int k = 0; k < 60; ++k)
        p.step();
    EXPECT_GT(p.served, before);
    EXPECT_FALSE(p.wrongBytes);
}

// A reader that has taken the whole budget and keeps reading. The budget
// may call giveBack from its own thread at any time.
struct Hog : Vl::ReadAheadClient
{
    explicit Hog(std::uint64_t n) : size(n)
    {
        Vl::ReadAheadBudget::join(*this);
        std::lock_guard lock(mutex);
        block = Vl::ReadAheadBudget::allocate(*this, size);
    }
    ~Hog()
    {
        giveBack();
        Vl::ReadAheadBudget::leave(*this);
    }
    bool giveBack() override
    {
        std::lock_guard lock(mutex);
        if (block)
            gaveBack = true;
        Vl::ReadAheadBudget::free(*this, block, size);
        block = nullptr;
        return true;
    }
    bool holds()
    {
        std::lock_guard lock(mutex);
        return block != nullptr;
    }
    std::mutex mutex;
    const std::uint64_t size;
    void* block = nullptr;
    std::atomic<bool> gaveBack{false};
};

TEST_F(Budget, AFileThatStartsToPlayTakesItsShareFromOneHoldingMore)
{
    vlhost::setReadAheadBudget(16 * kMiB);
    Hog hog(16 * kMiB);
    ASSERT_TRUE(hog.holds());
    Player player(24 * kMiB);
    while (player.step())
        Vl::ReadAheadBudget::touch(hog);
    EXPECT_TRUE(hog.gaveBack);
    EXPECT_GT(player.served, player.reads / 2);
    EXPECT_FALSE(player.wrongBytes);
    EXPECT_LE(vlhost::readAheadInUse(), 16 * kMiB);
}

TEST_F(Budget, ReadersOnThreadsOfTheirOwnWhileTheBudgetTakesWindowsBack)
{
    // Windows are taken from under readers between reads, on the budget's
    // thread; what every reader hands out must stay the file's bytes.
    vlhost::setReadAheadBudget(12 * kMiB);
    vlhost::setReadAheadIdleAfter(std::chrono::milliseconds(1));
    std::vector<std::unique_ptr<Player>> players;
    for (int k = 0; k < 4; ++k)
        players.push_back(std::make_unique<Player>(16 * kMiB));
    std::vector<std::thread> threads;
    for (auto& p : players)
        threads.emplace_back([&p] {
            while (p->step())
                std::this_thread::yield();
        });
    for (std::thread& t : threads)
        t.join();
    for (auto& p : players)
        EXPECT_FALSE(p->wrongBytes);
    players.clear();
    EXPECT_EQ(vlhost::readAheadInUse(), 0u);
}

} // namespace
