// The editor's Vector as the plug-in's component list uses it.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "host/Vector.h"

namespace {

using Items = Vector<int*>;

int g_items[10];

// The items as indexes into g_items, -1 for anything else.
std::vector<int> contents(const Items& v)
{
    std::vector<int> out;
    for (unsigned i = 0; i < v.size(); ++i)
        out.push_back(v[i] >= g_items && v[i] < g_items + 10 ? int(v[i] - g_items) : -1);
    return out;
}

void fill(Items& v, unsigned n)
{
    for (unsigned i = 0; i < n; ++i)
        v.add(&g_items[i]);
}

TEST(Vector, GrowsFromFourByDoubling)
{
    Items v;
    std::vector<unsigned> capacities = {v.capacity()};
    for (int i = 0; i < 5; ++i) {
        i % 2 ? v.push_back(&g_items[i]) : v.add(&g_items[i]);
        capacities.push_back(v.capacity());
    }
    EXPECT_EQ(capacities, (std::vector<unsigned>{0, 4, 4, 4, 4, 8}));
    EXPECT_EQ(contents(v), (std::vector<int>{0, 1, 2, 3, 4}));

    Items w;
    w.resizeFor(9);
    EXPECT_EQ(std::pair(w.capacity(), w.size()), std::pair(16u, 0u));
    w.resizeFor(3); // never shrinks
    EXPECT_EQ(w.capacity(), 16u);
    w.resizeFor(0);
    EXPECT_EQ(w.capacity(), 0u);
}

TEST(Vector, LocateAndIntern)
{
    Items v;
    std::uint32_t index = 99;
    EXPECT_FALSE(v.locate(&g_items[0], index));
    EXPECT_EQ(index, 0u);

    fill(v, 3);
    EXPECT_TRUE(v.locate(&g_items[2], index));
    EXPECT_EQ(index, 2u);
    EXPECT_FALSE(v.locate(&g_items[7], index));
    EXPECT_EQ(index, 3u);
    EXPECT_FALSE(v.intern(&g_items[1], index));
    EXPECT_EQ(index, 1u);
    EXPECT_TRUE(v.intern(&g_items[7], index));
    EXPECT_EQ(index, 3u);
    EXPECT_EQ(contents(v), (std::vector<int>{0, 1, 2, 7}));
}

TEST(Vector, InsertAndRemove)
{
    Items v;
    fill(v, 5);
    v.insert(&g_items[9], 1);
    EXPECT_EQ(contents(v), (std::vector<int>{0, 9, 1, 2, 3, 4}));
    EXPECT_FALSE(v.removeIdx(v.size()));
    EXPECT_TRUE(v.removeIdx(1));
    EXPECT_EQ(contents(v), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(v.begin()[5], nullptr); // the vacated slot is cleared
    EXPECT_TRUE(v.remove(3, 3));
    EXPECT_TRUE(v.remove(1, 3)); // drops items 1 and 2
    EXPECT_EQ(contents(v), (std::vector<int>{0, 3, 4}));
    EXPECT_TRUE(v.removeItem(&g_items[3]));
    EXPECT_FALSE(v.removeItem(&g_items[3]));
    EXPECT_EQ(contents(v), (std::vector<int>{0, 4}));
    v.clear();
    EXPECT_EQ(std::pair(v.size(), v.capacity()), std::pair(0u, 0u));
}

TEST(Vector, ConsumeTakesTheOthersStorage)
{
    Items a, b;
    fill(a, 2);
    fill(b, 5);
    int* const* storage = b.begin();
    a.consume(b);
    EXPECT_EQ(std::tuple(a.size(), a.capacity(), a.begin()), std::tuple(5u, 8u, storage));
    EXPECT_EQ(std::tuple(b.size(), b.capacity(), b.begin()), std::tuple(0u, 0u, static_cast<int* const*>(nullptr)));
    a.consume(a);
    EXPECT_EQ(a.size(), 5u);
}

} // namespace
