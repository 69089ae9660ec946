#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/FlatHashColl.h"
#include "platform/vex/HashColl.h"
#include "platform/vex/OrderedColl.h"
#include "platform/vex/Ptr.h"

namespace {

struct Ordered {
  template <class K, class V>
  using Coll = Vex::OrderedColl<K, V>;
};
struct Hashed {
  template <class K, class V>
  using Coll = Vex::HashColl<K, V>;
};
struct Flat {
  template <class K, class V>
  using Coll = Vex::FlatHashColl<K, V>;
};
struct KindName {
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, Ordered> ? "Ordered" : std::is_same_v<T, Hashed> ? "Hashed" : "Flat";
  }
};

template <class C>
std::vector<int> keysOf(C const& c) {
  std::vector<int> out;
  for (auto it = c.iterator(); it; ++it) out.push_back(it.key());
  return out;
}

template <class Kind>
class CollTest : public ::testing::Test {
 protected:
  typename Kind::template Coll<int, int> coll_;
};
using Kinds = ::testing::Types<Ordered, Hashed, Flat>;
TYPED_TEST_SUITE(CollTest, Kinds, KindName);

TYPED_TEST(CollTest, IterationSurvivesErasingTheCurrentMemberAndOthers) {
  auto& c = this->coll_;
  for (int k = 0; k < 300; ++k) c.set(k, k);
  auto const order = keysOf(c);
  // Visiting k erases k itself, k + 1 and k + 50 (wherever those stand in the order).
  std::set<int> erased;
  std::vector<int> expected;
  for (int k : order) {
    if (erased.count(k)) continue;
    expected.push_back(k);
    if (k % 3 == 0)
      for (int gone : {k, k + 1, k + 50})
        if (gone < 300) erased.insert(gone);
  }
  std::vector<int> visited;
  for (auto it = c.iterator(); it; ++it) {
    int k = it.key();
    visited.push_back(k);
    if (k % 3 == 0) {
      c.erase(k);
      c.erase(k + 1);
      c.erase(k + 50);
    }
  }
  EXPECT_EQ(visited, expected);
  EXPECT_EQ(c.size(), 300 - erased.size());
}

TYPED_TEST(CollTest, IterationSurvivesInsertionsThatGrowTheCollection) {
  auto& c = this->coll_;
  for (int k = 0; k < 8; ++k) c.set(k, k);
  int next = 1000;
  std::vector<int> visited;
  for (auto it = c.iterator(); it; ++it) {
    visited.push_back(it.key());
    for (int j = 0; j < 64 && next < 4000; ++j) c.set(next++, 0);
  }
  auto const order = keysOf(c);
  std::vector<std::size_t> positions;
  for (int k : visited) positions.push_back(std::find(order.begin(), order.end(), k) - order.begin());
  EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end()));
  EXPECT_EQ(std::adjacent_find(positions.begin(), positions.end()), positions.end()) << "a member was visited twice";
  for (int k = 0; k < 8; ++k) EXPECT_NE(std::find(visited.begin(), visited.end(), k), visited.end()) << k;
}

TYPED_TEST(CollTest, IteratorAtTheEndStaysThereAfterAnErasure) {
  auto& c = this->coll_;
  for (int k = 1; k <= 3; ++k) c.set(k, k);
  auto it = c.iterator();
  while (it) ++it;
  c.erase(2);
  EXPECT_TRUE(it.done());
  c.clear();
  EXPECT_TRUE(it.done());
}

TYPED_TEST(CollTest, SetAndEraseReportWhetherAnythingChanged) {
  auto& c = this->coll_;
  EXPECT_TRUE(c.set(1, 10));
  EXPECT_FALSE(c.set(1, 10));
  EXPECT_TRUE(c.set(1, 11));
  EXPECT_EQ(*c.find(1), 11);
  EXPECT_TRUE(c.erase(1));
  EXPECT_FALSE(c.erase(1));
  EXPECT_EQ(c.find(1), nullptr);
}

// A value whose release calls back into the collection that held it.
struct Releaser : Vex::RefCounted {
  explicit Releaser(int id) : id(id) {}
  ~Releaser() override {
    if (onRelease) onRelease();
  }
  int id;
  std::function<void()> onRelease;
};

TYPED_TEST(CollTest, RemovalDetachesTheMemberBeforeReleasingItsValue) {
  typename TypeParam::template Coll<int, Vex::Ptr<Releaser>> c;
  std::vector<std::string> seen;
  auto a = Vex::make<Releaser>(1);
  a->onRelease = [&] { seen.push_back("erase again " + std::string(c.erase(5) ? "found it" : "missed") + ", size " + std::to_string(c.size())); };
  auto b = Vex::make<Releaser>(2);
  b->onRelease = [&] { seen.push_back("replaced by " + std::to_string((*c.find(6))->id)); };
  auto d = Vex::make<Releaser>(4);
  d->onRelease = [&] { seen.push_back("cleared, size " + std::to_string(c.size())); };
  c.set(5, std::exchange(a, nullptr));
  c.set(6, std::exchange(b, nullptr));
  c.erase(5);
  c.set(6, Vex::make<Releaser>(3));
  c.set(7, std::exchange(d, nullptr));
  c.clear();
  EXPECT_EQ(seen, (std::vector<std::string>{"erase again missed, size 1", "replaced by 3", "cleared, size 0"}));
}

// The two hashed collections: one stable hash order, whatever the history.
template <class Kind>
class HashOrderTest : public ::testing::Test {};
using HashKinds = ::testing::Types<Hashed, Flat>;
TYPED_TEST_SUITE(HashOrderTest, HashKinds, KindName);

TYPED_TEST(HashOrderTest, OrderIsStableAcrossGrowthAndInsertionHistory) {
  typename TypeParam::template Coll<int, int> forward, backward;
  for (int k = 0; k < 10; ++k) forward.set(k, k);
  auto const small = keysOf(forward);
  for (int k = 10; k < 5000; ++k) forward.set(k, k);
  for (int k = 4999; k >= 0; --k) backward.set(k, k);
  auto const grown = keysOf(forward);
  std::vector<int> firstTen;
  std::copy_if(grown.begin(), grown.end(), std::back_inserter(firstTen), [](int k) { return k < 10; });
  EXPECT_EQ(firstTen, small);
  EXPECT_EQ(keysOf(backward), grown);
  EXPECT_NE(grown, [] { std::vector<int> v(5000); for (int i = 0; i < 5000; ++i) v[i] = i; return v; }()) << "not hashed";
}

TYPED_TEST(HashOrderTest, IteratorAtAnAbsentKeyLandsOnItsSuccessorInIterationOrder) {
  typename TypeParam::template Coll<int, int> all, evens;
  for (int k = 0; k < 2000; ++k) {
    all.set(k, k);
    if (k % 2 == 0) evens.set(k, k);
  }
  auto const order = keysOf(all);
  for (std::size_t i = 0; i < order.size(); ++i) {
    auto succ = std::find_if(order.begin() + i, order.end(), [](int k) { return k % 2 == 0; });
    auto it = evens.iterator(order[i]);
    if (succ == order.end()) {
      EXPECT_TRUE(it.done()) << order[i];
    } else {
      ASSERT_FALSE(it.done()) << order[i];
      EXPECT_EQ(it.key(), *succ) << order[i];
    }
  }
}

// The flat collection stands in for the chained one where a walk's speed
// matters: after the same history, both hold the same members in the same
// order, and every lookup agrees.
TEST(FlatHashCollTest, MatchesTheChainedCollectionThroughARandomHistory) {
  Vex::HashColl<std::uint64_t, int> chained;
  Vex::FlatHashColl<std::uint64_t, int> flat;
  std::uint64_t x = 88172645463325252ULL;
  auto next = [&] {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    return x;
  };
  for (int step = 0; step < 60000; ++step) {
    std::uint64_t const key = next() % 5000;
    if (next() % 3 == 0) {
      ASSERT_EQ(chained.erase(key), flat.erase(key)) << step;
    } else {
      int const value = static_cast<int>(next() % 100);
      ASSERT_EQ(chained.set(key, value), flat.set(key, value)) << step;
    }
    if (step % 5000 == 0 || step == 59999) {
      ASSERT_EQ(chained.size(), flat.size());
      auto c = chained.iterator();
      auto f = flat.iterator();
      for (; c && f; ++c, ++f) {
        ASSERT_EQ(c.key(), f.key());
        ASSERT_EQ(c.value(), f.value());
      }
      EXPECT_TRUE(c.done() && f.done());
      for (std::uint64_t k = 0; k < 5000; k += 7) {
        auto const* a = chained.find(k);
        auto const* b = flat.find(k);
        ASSERT_EQ(a == nullptr, b == nullptr) << k;
        if (a) {
          EXPECT_EQ(*a, *b);
        }
        auto ci = chained.iterator(k);
        auto fi = flat.iterator(k);
        ASSERT_EQ(ci.done(), fi.done()) << k;
        if (!ci.done()) {
          EXPECT_EQ(ci.key(), fi.key()) << k;
        }
      }
    }
  }
}

TEST(FlatHashCollTest, PeekShowsTheMembersAheadUntilTheCollectionChanges) {
  Vex::FlatHashColl<int, int> c;
  for (int k = 0; k < 100; ++k) c.set(k, k * 10);
  auto const order = keysOf(c);
  auto it = c.iterator();
  for (std::size_t i = 0; i < order.size(); ++i, ++it) {
    for (std::size_t ahead : {0u, 1u, 4u, 8u}) {
      auto const* p = it.peek(ahead);
      if (i + ahead >= order.size()) {
        EXPECT_EQ(p, nullptr) << i << "+" << ahead;
      } else {
        ASSERT_NE(p, nullptr) << i << "+" << ahead;
        EXPECT_EQ(p->first, order[i + ahead]);
        EXPECT_EQ(p->second, order[i + ahead] * 10);
      }
    }
    if (i == 50) {
      c.set(1000, 0);  // the array may have moved: no hint until the iterator moves on
      EXPECT_EQ(it.peek(1), nullptr);
      c.erase(1000);
    }
  }
}

// A cursor made `ahead` members in front of a walk and moved one member per
// step shows what peek(ahead) shows at every step, to the end; a change to
// the collection makes it stale until it is made again.
TEST(FlatHashCollTest, CursorsMovedWithAWalkShowWhatPeekShows) {
  Vex::FlatHashColl<int, int> c;
  for (int k = 0; k < 300; k += 3) c.set(k, k + 1);  // free slots between the members
  for (std::size_t ahead : {0u, 1u, 4u, 8u}) {
    auto it = c.iterator();
    auto cursor = it.cursor(ahead);
    std::size_t steps = 0;
    for (; !it.done(); ++it, cursor.next(), ++steps) {
      ASSERT_FALSE(cursor.stale());
      auto const* want = it.peek(ahead);
      auto const* got = cursor.get();
      ASSERT_EQ(got == nullptr, want == nullptr) << steps << "+" << ahead;
      if (got) {
        EXPECT_EQ(got, want) << steps << "+" << ahead;
      }
    }
    EXPECT_EQ(steps, c.size());
    EXPECT_EQ(cursor.get(), nullptr);
  }
  auto it = c.iterator();
  auto cursor = it.cursor(4);
  ASSERT_NE(cursor.get(), nullptr);
  c.set(1, 2);
  EXPECT_TRUE(cursor.stale());
  EXPECT_EQ(cursor.get(), nullptr);
  cursor.next();
  EXPECT_EQ(cursor.get(), nullptr);
  ++it;
  EXPECT_FALSE(it.cursor(4).stale());
  EXPECT_TRUE((Vex::FlatHashColl<int, int>::Cursor().stale()));
}

}  // namespace
