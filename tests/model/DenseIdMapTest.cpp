// Fal::DenseIdMap under the id patterns chips produce and some they might:
// whatever the pattern, every id finds its own value, removal hands the
// value back detached, and iteration visits each value once.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "model/DenseIdMap.h"

namespace FalTest {
namespace {

struct IdPattern {
  std::string name;
  std::vector<std::uint32_t> ids;
};

std::vector<IdPattern> patterns() {
  std::vector<IdPattern> out;
  IdPattern dense{"Dense", {}};
  for (std::uint32_t i = 1; i <= 3000; ++i) dense.ids.push_back(i);
  out.push_back(dense);
  // One id per page: too scattered for pages, so a hash map of their own.
  IdPattern strided{"OnePerPage", {}};
  for (std::uint32_t i = 0; i < 500; ++i) strided.ids.push_back(i << 8 | 17);
  out.push_back(strided);
  IdPattern random{"Random32Bit", {}};
  std::mt19937 rng(7);
  for (int i = 0; i < 2000; ++i) random.ids.push_back(static_cast<std::uint32_t>(rng()));
  out.push_back(random);
  // Scattered first, then the ranges around them fill up: the pages made
  // then take the scattered ids in.
  IdPattern filling{"ScatteredThenFilled", {}};
  for (std::uint32_t i = 0; i < 64; ++i) filling.ids.push_back(i * 4096 + 5);
  for (std::uint32_t i = 0; i < 64 * 4096; i += 3) filling.ids.push_back(i);
  out.push_back(filling);
  IdPattern edges{"Edges", {0, 1, 255, 256, 0xFFFFFFFE, 0xFFFFFF00, 0x7FFFFFFF, 0x80000000}};
  out.push_back(edges);
  for (auto& p : out) {  // each id once, in the order given
    std::set<std::uint32_t> seen;
    std::vector<std::uint32_t> unique;
    for (auto id : p.ids) {
      if (seen.insert(id).second) unique.push_back(id);
    }
    p.ids = unique;
  }
  return out;
}

class DenseIdMapTest : public ::testing::TestWithParam<IdPattern> {};

// Values are shared pointers, so a value still held by the map after its
// removal, or dropped twice, would show in its use count.
TEST_P(DenseIdMapTest, EveryIdFindsItsValueUntilRemovedAndIterationSeesEachOnce) {
  std::vector<std::uint32_t> const& ids = GetParam().ids;
  Fal::DenseIdMap<std::shared_ptr<std::uint32_t>> map;
  std::map<std::uint32_t, std::shared_ptr<std::uint32_t>> expected;
  for (auto id : ids) {
    auto v = std::make_shared<std::uint32_t>(id);
    ASSERT_TRUE(map.insert(id, v)) << id;
    expected[id] = v;
  }
  EXPECT_FALSE(map.insert(ids.front(), std::make_shared<std::uint32_t>(0)));
  EXPECT_EQ(map.size(), expected.size());
  for (auto const& [id, v] : expected) {
    auto const* found = map.find(id);
    ASSERT_NE(found, nullptr) << id;
    EXPECT_EQ(found->get(), v.get());
  }
  EXPECT_EQ(map.find(ids.front() ^ 0x40000000), nullptr);

  std::map<std::uint32_t, std::uint32_t> visited;
  for (auto [id, v] : map) visited[id] += *v == id ? 1 : 1000;
  std::map<std::uint32_t, std::uint32_t> visitedByForEach;
  map.forEach([&](std::uint32_t id, auto const& v) { visitedByForEach[id] += *v == id ? 1 : 1000; });
  std::map<std::uint32_t, std::uint32_t> once;
  for (auto const& [id, v] : expected) once[id] = 1;
  EXPECT_EQ(visited, once);
  EXPECT_EQ(visitedByForEach, once);

  // Every other id goes, then the rest: each comes back detached.
  std::size_t n = 0;
  for (auto const& [id, v] : expected) {
    if (n++ % 2) continue;
    auto out = map.extract(id);
    EXPECT_EQ(out.get(), v.get());
    EXPECT_EQ(v.use_count(), 2);  // here and in `out`, no longer in the map
    EXPECT_FALSE(map.contains(id));
    EXPECT_EQ(map.extract(id), nullptr);
  }
  for (auto const& [id, v] : expected) map.extract(id);
  EXPECT_TRUE(map.empty());
  EXPECT_TRUE(map.begin() == map.end());
  for (auto const& [id, v] : expected) EXPECT_EQ(v.use_count(), 1) << id;
}

INSTANTIATE_TEST_SUITE_P(Patterns, DenseIdMapTest, ::testing::ValuesIn(patterns()),
                         [](::testing::TestParamInfo<IdPattern> const& info) { return info.param.name; });

}  // namespace
}  // namespace FalTest
