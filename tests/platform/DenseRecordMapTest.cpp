#include "platform/mroutelib/DenseRecordMap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <utility>

namespace {

using MrouteLib::DenseRecordMap;

struct Record {
  std::uint64_t value = 0;
  std::shared_ptr<int> held;
};
using Map = DenseRecordMap<std::uint64_t, Record>;

TEST(DenseRecordMapTest, FindsEveryHeldKeyThroughGrowthAndScrambledRemovals) {
  Map map;
  std::map<std::uint64_t, std::pair<Map::value_type*, std::uint64_t>> ref;  // key -> (pair, value)
  std::mt19937_64 rng(7);
  for (int step = 0; step < 20000; ++step) {
    std::uint64_t const key = rng() % 3000;
    if (rng() % 3 != 0) {
      auto [pair, made] = map.try_emplace(key);
      ASSERT_EQ(made, !ref.contains(key));
      ASSERT_EQ(pair->first, key);
      if (made) {
        pair->second.value = rng();
        ref[key] = {pair, pair->second.value};
      } else {
        // The pair stays where it was made, whatever came and went since.
        ASSERT_EQ(pair, ref[key].first);
      }
    } else if (auto* pair = map.find(key)) {
      ASSERT_TRUE(ref.contains(key));
      map.erase(pair);
      ref.erase(key);
    } else {
      ASSERT_FALSE(ref.contains(key));
    }
  }
  ASSERT_EQ(map.size(), ref.size());
  for (auto const& [key, held] : ref) {
    auto const* pair = std::as_const(map).find(key);
    ASSERT_EQ(pair, held.first);
    EXPECT_EQ(pair->second.value, held.second);
  }
  std::size_t seen = 0;
  map.forEach([&](Map::value_type& pair) {
    ++seen;
    auto it = ref.find(pair.first);
    ASSERT_NE(it, ref.end());
    EXPECT_EQ(&pair, it->second.first);
  });
  EXPECT_EQ(seen, ref.size());
}

TEST(DenseRecordMapTest, RemovedRecordReleasesWhatItHeldAndItsSlotComesBackFresh) {
  Map map;
  auto resource = std::make_shared<int>(1);
  auto [first, made] = map.try_emplace(42);
  ASSERT_TRUE(made);
  first->second = Record{5, resource};
  ASSERT_EQ(resource.use_count(), 2);
  map.erase(first);
  EXPECT_EQ(resource.use_count(), 1);
  EXPECT_EQ(map.find(42), nullptr);
  EXPECT_TRUE(map.empty());
  auto [again, madeAgain] = map.try_emplace(43);
  ASSERT_TRUE(madeAgain);
  EXPECT_EQ(again->first, 43U);
  EXPECT_EQ(again->second.value, 0U);
  EXPECT_EQ(again->second.held, nullptr);
}

}  // namespace
