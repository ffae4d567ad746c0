// The editor's Vector as the plug-in's component list uses it.
#include <gtest/gtest.h>

#include "host/Vector.h"

namespace {

using Items = Vector<int*>;

int g_items[10];

void fill(Items& v, unsigned n)
{
    for (unsigned i = 0; i < n; ++i)
        v.add(&g_items[i]);
}

TEST(Vector, GrowsFromFourByDoubling)
{
    Items v;
    EXPECT_EQ(v.capacity(), 0u);
    v.add(&g_items[0]);
    EXPECT_EQ(v.capacity(), 4u);
    for (int i = 1; i < 4; ++i)
        v.push_back(&g_items[i]);
    EXPECT_EQ(v.capacity(), 4u);
    v.add(&g_items[4]);
    EXPECT_EQ(v.capacity(), 8u);
    ASSERT_EQ(v.size(), 5u);
    for (unsigned i = 0; i < 5; ++i)
        EXPECT_EQ(v[i], &g_items[i]);

    Items w;
    w.resizeFor(9);
    EXPECT_EQ(w.capacity(), 16u);
    EXPECT_EQ(w.size(), 0u);
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
    EXPECT_EQ(v.size(), 3u);
    EXPECT_TRUE(v.intern(&g_items[7], index));
    EXPECT_EQ(index, 3u);
    ASSERT_EQ(v.size(), 4u);
    EXPECT_EQ(v[3], &g_items[7]);
}

TEST(Vector, InsertAndRemove)
{
    Items v;
    fill(v, 5);
    v.insert(&g_items[9], 1);
    ASSERT_EQ(v.size(), 6u);
    EXPECT_EQ(v[0], &g_items[0]);
    EXPECT_EQ(v[1], &g_items[9]);
    EXPECT_EQ(v[2], &g_items[1]);

    EXPECT_FALSE(v.removeIdx(v.size()));
    EXPECT_TRUE(v.removeIdx(1));
    ASSERT_EQ(v.size(), 5u);
    EXPECT_EQ(v[1], &g_items[1]);
    EXPECT_EQ(v.begin()[5], nullptr); // the vacated slot is cleared

    EXPECT_TRUE(v.remove(3, 3));
    EXPECT_EQ(v.size(), 5u);
    EXPECT_TRUE(v.remove(1, 3)); // drops items 1 and 2
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(v[0], &g_items[0]);
    EXPECT_EQ(v[1], &g_items[3]);
    EXPECT_EQ(v[2], &g_items[4]);

    EXPECT_TRUE(v.removeItem(&g_items[3]));
    EXPECT_FALSE(v.removeItem(&g_items[3]));
    EXPECT_EQ(v.size(), 2u);
    v.clear();
    EXPECT_EQ(v.size(), 0u);
    EXPECT_EQ(v.capacity(), 0u);
}

TEST(Vector, ConsumeTakesTheOthersStorage)
{
    Items a;
    Items b;
    fill(a, 2);
    fill(b, 5);
    int* const* storage = b.begin();
    a.consume(b);
    EXPECT_EQ(a.size(), 5u);
    EXPECT_EQ(a.capacity(), 8u);
    EXPECT_EQ(a.begin(), storage);
    EXPECT_EQ(b.size(), 0u);
    EXPECT_EQ(b.capacity(), 0u);
    EXPECT_EQ(b.begin(), nullptr);
    a.consume(a);
    EXPECT_EQ(a.size(), 5u);
}

} // namespace
