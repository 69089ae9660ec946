#include "model/LinearProbeMap.h"

#include <cstdint>
#include <random>
#include <unordered_map>

#include <gtest/gtest.h>

namespace {

// A value whose default is its null, as a route handle's is.
struct Handle {
  std::uint32_t value = 0;
  bool isNull() const { return value == 0; }
  friend bool operator==(Handle, Handle) = default;
};

// The inverse of the map's hash multiplier modulo 2^64 (Newton's iteration).
constexpr std::uint64_t inverseOf(std::uint64_t odd) {
  std::uint64_t x = odd;
  for (int i = 0; i < 6; ++i) x *= 2 - odd * x;
  return x;
}
constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15ULL;
static_assert(inverseOf(kMultiplier) * kMultiplier == 1);

// Hashes every key to one of `homes` (at most 64) home slots among the last
// slots of the table, whatever its size, so that keys pile up in runs that
// cross each other and wrap past the end of the slots.
struct CrowdingHash {
  std::uint64_t homes;
  std::size_t operator()(std::uint32_t k) const {
    std::uint64_t const top = ~std::uint64_t{0} - ((k % homes) << 58);  // the product the map's home is taken from
    return inverseOf(kMultiplier) * top;
  }
};

using Map = Fal::LinearProbeMap<std::uint32_t, Handle, CrowdingHash>;

// Every key the model holds is found with its value, every other key of
// the range is not, and the map is never more than half full.
void expectSame(Map const& map, std::unordered_map<std::uint32_t, std::uint32_t> const& model, std::uint32_t keys) {
  ASSERT_EQ(map.size(), model.size());
  EXPECT_LE(2 * map.size(), map.capacity());
  for (std::uint32_t k = 0; k < keys; ++k) {
    Handle const* found = map.find(k);
    auto it = model.find(k);
    if (it == model.end()) {
      EXPECT_EQ(found, nullptr) << "key " << k;
    } else {
      ASSERT_NE(found, nullptr) << "key " << k;
      EXPECT_EQ(found->value, it->second) << "key " << k;
    }
  }
}

// Removal moves the keys probed past the removed one back; a fault there
// loses a key or leaves one where its probe cannot reach it. Random sets,
// replacements and removals over few homes exercise long runs that wrap,
// against a standard map; the growth from empty rehashes them all.
TEST(LinearProbeMap, AgreesWithAStandardMapThroughCrowdedRunsRemovalsAndGrowth) {
  for (std::uint64_t homes : {1U, 3U, 7U, 50U}) {
    Map map(CrowdingHash{homes});
    std::unordered_map<std::uint32_t, std::uint32_t> model;
    std::mt19937 rng(static_cast<std::uint32_t>(homes));
    constexpr std::uint32_t kKeys = 200;
    EXPECT_EQ(map.find(5), nullptr);
    EXPECT_FALSE(map.erase(5));
    map.prefetch(5);  // harmless on an empty map
    for (int step = 0; step < 4000; ++step) {
      std::uint32_t const key = rng() % kKeys;
      if (rng() % 3 == 0) {
        EXPECT_EQ(map.erase(key), model.erase(key) == 1) << "homes " << homes << " step " << step;
      } else {
        std::uint32_t const value = 1 + rng() % 1000;
        map.set(key, Handle{value});
        model[key] = value;
      }
      if (step % 97 == 0) expectSame(map, model, kKeys);
    }
    expectSame(map, model, kKeys);
    for (std::uint32_t k = 0; k < kKeys; ++k) map.erase(k);
    EXPECT_TRUE(map.empty());
    expectSame(map, {}, kKeys);
  }
}

// The default key is a key like any other, though an empty slot holds it too.
TEST(LinearProbeMap, TheDefaultKeyIsStoredFoundAndRemovedLikeAnyOther) {
  Map map(CrowdingHash{1});
  EXPECT_FALSE(map.erase(0));
  map.set(1, Handle{11});
  EXPECT_EQ(map.find(0), nullptr);
  EXPECT_FALSE(map.erase(0));
  map.set(0, Handle{10});
  ASSERT_NE(map.find(0), nullptr);
  EXPECT_EQ(map.find(0)->value, 10U);
  EXPECT_TRUE(map.erase(0));
  EXPECT_EQ(map.find(0), nullptr);
  ASSERT_NE(map.find(1), nullptr);
  EXPECT_EQ(map.find(1)->value, 11U);
  EXPECT_EQ(map.size(), 1U);
}

}  // namespace
