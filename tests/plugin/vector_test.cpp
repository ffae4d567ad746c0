// The editor's Vector as the plug-in's component list uses it.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "host/Vector.h"

namespace {

using Items = Vector<int*>;

int g_items[10];

// The items as indexes into g_items.
std::vector<long> contents(const Items& v)
{
    std::vector<long> out;
    for (unsigned i = 0; i < v.size(); ++i)
        out.push_back(v[i] - g_items);
    return out;
}

TEST(Vector, GrowthLookupAndRemoval)
{
    Items v;
    std::uint32_t index = 99;
    EXPECT_FALSE(v.locate(&g_items[0], index));
    EXPECT_EQ(index, 0u);
    std::vector<unsigned> capacities;
    for (int i = 0; i < 5; ++i) {
        i % 2 ? v.push_back(&g_items[i]) : v.add(&g_items[i]);
        capacities.push_back(v.capacity());
    }
    EXPECT_EQ(capacities, (std::vector<unsigned>{4, 4, 4, 4, 8}));
    EXPECT_FALSE(v.intern(&g_items[1], index));
    EXPECT_EQ(std::pair(index, v.size()), std::pair(1u, 5u));
    EXPECT_TRUE(v.intern(&g_items[7], index));
    v.insert(&g_items[9], 1);
    EXPECT_EQ(contents(v), (std::vector<long>{0, 9, 1, 2, 3, 4, 7}));

    EXPECT_FALSE(v.removeIdx(v.size()));
    EXPECT_TRUE(v.removeIdx(1));
    EXPECT_EQ(v.begin()[6], nullptr); // the vacated slot is cleared
    EXPECT_TRUE(v.remove(3, 3));
    EXPECT_TRUE(v.remove(1, 3)); // drops items 1 and 2
    EXPECT_TRUE(v.removeItem(&g_items[3]));
    EXPECT_FALSE(v.removeItem(&g_items[3]));
    EXPECT_EQ(contents(v), (std::vector<long>{0, 4, 7}));

    Items w;
    w.resizeFor(9);
    EXPECT_EQ(std::pair(w.capacity(), w.size()), std::pair(16u, 0u));
    w.resizeFor(3); // never shrinks
    EXPECT_EQ(w.capacity(), 16u);
    // consume takes the other's storage and leaves it empty; clear releases it.
    w.consume(v);
    w.consume(w);
    EXPECT_EQ(std::tuple(w.size(), w.capacity(), v.size(), v.capacity()), std::tuple(3u, 8u, 0u, 0u));
    EXPECT_EQ(v.begin(), nullptr);
    w.clear();
    EXPECT_EQ(std::pair(w.size(), w.capacity()), std::pair(0u, 0u));
}

} // namespace
