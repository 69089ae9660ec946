// FlexCounters::CounterKeyTable: handing out and taking back counter keys.
#include <gtest/gtest.h>

#include <vector>

#include "platform/bolt/CounterKeyTable.h"
#include "platform/vex/Assert.h"

namespace {

using FlexCounters::CounterKeyTable;

struct Told : CounterKeyTable::Notifiee {
  std::vector<std::uint64_t> keys;
  void onCounterKey(std::uint64_t k) override { keys.push_back(k); }
};

TEST(CounterKeyTableTest, HandsOutTheLowestFreeKeyAndNoneWhenFull) {
  auto table = Vex::make<CounterKeyTable>("flex", 100, 3);
  Told told;
  told.notifierIs(table);
  EXPECT_EQ(table->counterKeyNew(), 100U);
  EXPECT_EQ(table->counterKeyNew(), 101U);
  EXPECT_EQ(table->counterKeyNew(), 102U);
  EXPECT_EQ(table->counterKeyNew(), CounterKeyTable::kNoKey) << "three at a time";
  EXPECT_TRUE(table->counterKeyDel(100));
  EXPECT_FALSE(table->counterKeyDel(100)) << "a key given back twice";
  EXPECT_FALSE(table->counterKey(100));
  EXPECT_EQ(table->counterKeyNew(), 100U) << "a returned key before a fresh one";
  EXPECT_EQ(told.keys, (std::vector<std::uint64_t>{100, 101, 102, 100, 100}));
  EXPECT_EQ(table->size(), 3U);
}

TEST(CounterKeyTableTest, KeysGivenBackAtTheTopAreHandedOutAgainInOrder) {
  auto table = Vex::make<CounterKeyTable>("flex", 1, 10);
  for (int i = 0; i < 5; ++i) table->counterKeyNew();  // 1..5
  table->counterKeyDel(2);
  table->counterKeyDel(5);
  table->counterKeyDel(4);
  std::vector<std::uint64_t> next;
  for (int i = 0; i < 4; ++i) next.push_back(table->counterKeyNew());
  EXPECT_EQ(next, (std::vector<std::uint64_t>{2, 4, 5, 6}));
}

TEST(CounterKeyTableTest, KeyZeroIsNeverAKey) {
  auto previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  EXPECT_THROW(Vex::make<CounterKeyTable>("flex", 0, 4), Vex::FatalError);
  Vex::fatalHandlerIs(previous);
}

}  // namespace
