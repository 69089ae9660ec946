#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/Assert.h"
#include "platform/vex/FlatEntityColl.h"
#include "platform/vex/FlatHashColl.h"
#include "platform/vex/Ptr.h"

namespace {

// An entity that holds its own key; its release may call back into the
// collection that held it.
struct Member : Vex::RefCounted {
  explicit Member(std::uint64_t k) : k(k) {}
  ~Member() override {
    if (onRelease) onRelease();
  }
  std::uint64_t const& key() const { return k; }
  std::uint64_t k;
  std::function<void()> onRelease;
};
using Entities = Vex::FlatEntityColl<std::uint64_t, Member>;
using Pairs = Vex::FlatHashColl<std::uint64_t, Vex::Ptr<Member>>;

std::uint64_t xorshift(std::uint64_t& x) {
  x ^= x << 13;
  x ^= x >> 7;
  x ^= x << 17;
  return x;
}

// The entity collection replaces a pair collection keyed by a copy of each
// entity's key: through the same history of insertions, removals (of the
// member a walk stands on too), growth and walks resumed at absent keys, both
// hold the same members in the same order, and their iterators and fetch-ahead
// hints agree at every step.
TEST(FlatEntityCollTest, BehavesAsThePairCollectionKeyedByACopyOfTheKey) {
  Entities entities;
  Pairs pairs;
  auto e = entities.iterator();
  auto p = pairs.iterator();
  std::uint64_t x = 88172645463325252ULL;
  for (int step = 0; step < 40000; ++step) {
    std::uint64_t const key = xorshift(x) % 3000;
    switch (xorshift(x) % 8) {
      case 0:
      case 1:
      case 2: {
        bool made = false;
        auto [member, inserted] = entities.findOrInsert(key, [&] {
          made = true;
          return Vex::make<Member>(key);
        });
        ASSERT_EQ(inserted, made) << step;
        ASSERT_EQ(member->key(), key);
        auto [value, pairInserted] = pairs.findOrInsert(key);
        ASSERT_EQ(inserted, pairInserted) << step;
        if (pairInserted) *value = member;
        ASSERT_EQ(value->get(), member) << step;
        break;
      }
      case 3:
        ASSERT_EQ(entities.erase(key), pairs.erase(key)) << step;
        break;
      case 4:
        if (!e.done()) {
          std::uint64_t const current = e.key();  // the walk's own member goes
          ASSERT_TRUE(entities.erase(current));
          ASSERT_TRUE(pairs.erase(current));
        }
        break;
      case 5:
        e = entities.iterator(key);  // resumed at a key that may be absent
        p = pairs.iterator(key);
        break;
      default:
        if (!e.done()) ++e;
        if (!p.done()) ++p;
        break;
    }
    ASSERT_EQ(e.done(), p.done()) << step;
    if (e.done()) {
      e = entities.iterator();
      p = pairs.iterator();
      ASSERT_EQ(e.done(), p.done()) << step;
    }
    if (!e.done()) {
      ASSERT_EQ(e.key(), p.key()) << step;
      ASSERT_EQ(e.value(), p.value()) << step;
      for (std::size_t ahead : {0u, 1u, 4u, 8u}) {
        auto const* ep = e.peek(ahead);
        auto const* pp = p.peek(ahead);
        ASSERT_EQ(ep == nullptr, pp == nullptr) << step << "+" << ahead;
        if (ep) {
          ASSERT_EQ(*ep, pp->second) << step << "+" << ahead;
        }
      }
    }
    if (step % 4000 == 0) {
      ASSERT_EQ(entities.size(), pairs.size());
      std::vector<Member*> walked;
      for (auto const& m : entities) walked.push_back(m.get());
      std::vector<Member*> expected;
      for (auto const& [k, m] : pairs) expected.push_back(m.get());
      ASSERT_EQ(walked, expected) << step;
      for (std::uint64_t k = 0; k < 3000; k += 11) {
        Vex::Ptr<Member> const* found = pairs.find(k);
        ASSERT_EQ(entities.find(k), found ? found->get() : nullptr) << k;
      }
    }
  }
  EXPECT_GT(entities.size(), 1000u) << "the history should have grown the collection";
}

TEST(FlatEntityCollTest, RemovalDetachesTheMemberBeforeReleasingIt) {
  Entities c;
  std::vector<std::string> seen;
  for (std::uint64_t k : {5, 6, 7}) {
    c.findOrInsert(k, [&] {
      auto m = Vex::make<Member>(k);
      m->onRelease = [&c, &seen, k] {
        seen.push_back(std::to_string(k) + ": " + (c.find(k) ? "still found" : "gone") + ", erase again " +
                       (c.erase(k) ? "found it" : "missed") + ", size " + std::to_string(c.size()));
      };
      return m;
    });
  }
  c.erase(5);
  c.clear();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0], "5: gone, erase again missed, size 2");
  EXPECT_EQ(seen[1].substr(1), ": gone, erase again missed, size 0");
  EXPECT_EQ(seen[2].substr(1), ": gone, erase again missed, size 0");
}

TEST(FlatEntityCollTest, AMemberMadeUnderAnotherKeyIsRefused) {
  auto const previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  Entities c;
  try {
    c.findOrInsert(1, [] { return Vex::make<Member>(2); });
    ADD_FAILURE() << "no assertion";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "FlatEntityColl: the new member's key differs from its place");
  }
  Vex::fatalHandlerIs(previous);
  EXPECT_EQ(c.size(), 0u);
  EXPECT_FALSE(c.contains(1));
  EXPECT_FALSE(c.contains(2));
}

}  // namespace
