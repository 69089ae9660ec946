// The counter status published in shared memory: what a reader sees of the
// rows and of the control record, what it is told, a full table, and the
// mapping going with the last reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/fib/CounterStatus.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/vex/Assert.h"
#include "tests/doubles/ShmNames.h"

namespace {

using FalMrouteTest::shmLeftovers;
using FalMrouteTest::shmMapped;
using FalMrouteTest::uniqueShmName;
using Memtab::CollectionControl;
using Memtab::Mode;
using namespace Routing::Multicast::Fib;

IpGenRouteKey sg(std::uint32_t source) {
  return IpGenRouteKey(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + source), 32),
                       Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF010101U), 32));
}

struct Told : CounterStatus::Notifiee {
  std::vector<std::string> calls;
  void onCounter(IpGenRouteKey const& k) override { calls.push_back("row " + k.pretty()); }
  void onCounter() override { calls.push_back("table"); }
  void onMountStatus() override { calls.push_back("mount status"); }
};

class CounterStatusPublishTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(shmLeftovers(), std::vector<std::string>()); }
  static Vex::Ptr<CounterStatus> open(std::string const& name, Mode mode, std::uint32_t capacity = 8) {
    return Vex::make<CounterStatus>(CollectionControl::collectionControlIs(name, mode), capacity);
  }
  std::string const name_ = uniqueShmName("counters");
};

TEST_F(CounterStatusPublishTest, ControlRecordFollowsEveryChangeAndTakesTheTablesCapacity) {
  auto status = open(name_, Mode::writer, 8);
  auto ctl = Vex::make<CounterStatusCtl>(status);
  EXPECT_EQ(ctl->capacity(), 8U);
  auto reader = open(name_, Mode::reader);
  EXPECT_EQ(reader->ctlRecord(), (CounterStatus::CtlRecord{0, 0, 8}));
  ctl->currSizeInc(2);
  ctl->currActiveInc(1);
  EXPECT_EQ(reader->ctlRecord(), (CounterStatus::CtlRecord{2, 1, 8}));
  ctl->capacityIs(6);
  ctl->currSizeInc(-1);
  EXPECT_EQ(reader->ctlRecord(), (CounterStatus::CtlRecord{1, 1, 6}));
}

TEST_F(CounterStatusPublishTest, ReaderSeesRowsAndIsToldOnRefresh) {
  auto status = open(name_, Mode::writer);
  Told writerTold;
  writerTold.notifierIs(status);
  status->counterIs(Counter(sg(1), 5, 1.0, true));
  status->counterIs(Counter(sg(1), 5, 1.0, true));
  EXPECT_EQ(writerTold.calls, std::vector<std::string>{"row " + sg(1).pretty()}) << "an unchanged row tells nobody";

  auto reader = open(name_, Mode::reader);
  auto shadow = open(name_, Mode::keyshadow);
  Told readerTold, shadowTold;
  readerTold.notifierIs(reader);
  shadowTold.notifierIs(shadow);
  reader->refresh();
  shadow->refresh();
  readerTold.calls.clear();
  shadowTold.calls.clear();

  status->counterIs(Counter(sg(2), 9, 2.0, false));
  status->counterDel(sg(1));
  reader->refresh();
  shadow->refresh();
  EXPECT_EQ(readerTold.calls, std::vector<std::string>{"table"});
  std::sort(shadowTold.calls.begin(), shadowTold.calls.end());
  EXPECT_EQ(shadowTold.calls, (std::vector<std::string>{"row " + sg(1).pretty(), "row " + sg(2).pretty(), "table"}));
  EXPECT_EQ(reader->counter(sg(2)), Counter(sg(2), 9, 2.0, false));
  EXPECT_EQ(reader->counter(sg(1)).updateTime(), 0.0) << "gone reads as never written";
  EXPECT_EQ(reader->rows(), std::vector<Counter>{Counter(sg(2), 9, 2.0, false)});
}

TEST_F(CounterStatusPublishTest, FullTableRefusesANewRouteAndDelAllTellsEachRow) {
  auto status = Vex::make<CounterStatus>(2);
  EXPECT_TRUE(status->counterIs(Counter(sg(1), 1, 1.0, true)));
  EXPECT_TRUE(status->counterIs(Counter(sg(2), 1, 1.0, true)));
  EXPECT_FALSE(status->counterIs(Counter(sg(3), 1, 1.0, true)));
  EXPECT_TRUE(status->counterIs(Counter(sg(2), 4, 2.0, true))) << "a known route is still updated";
  Told told;
  told.notifierIs(status);
  status->counterDelAll();
  EXPECT_EQ(told.calls.size(), 2U);
  EXPECT_EQ(status->size(), 0U);
}

TEST_F(CounterStatusPublishTest, ReaderCannotWriteRows) {
  auto previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  auto status = open(name_, Mode::writer);
  auto reader = open(name_, Mode::reader);
  EXPECT_THROW(reader->counterIs(Counter(sg(1), 1, 1.0, true)), Vex::FatalError);
  EXPECT_THROW(reader->counterDel(sg(1)), Vex::FatalError);
  Vex::fatalHandlerIs(previous);
}

TEST_F(CounterStatusPublishTest, LastReferenceReleasesTheMappingThroughTheControl) {
  auto status = open(name_, Mode::writer);
  auto control = status->control();
  EXPECT_TRUE(shmMapped(name_));
  status = nullptr;
  EXPECT_EQ(control->collectionsReleased(), 1U);
  EXPECT_FALSE(shmMapped(name_));
}

}  // namespace
