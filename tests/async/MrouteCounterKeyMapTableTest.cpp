// The counter key map: its value types, the table as writer, reader and
// keyshadow, its notifications, its capacity and the hand-off of its last
// reference.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "async/MrouteCounterKeyMapTable.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "tests/doubles/ShmNames.h"

namespace {

using Fal::Mroute::MrouteCounterConstants;
using Fal::Mroute::MrouteCounterKey;
using Fal::Mroute::MrouteCounterKeyMapEntry;
using Fal::Mroute::MrouteCounterKeyMapTable;
using FalMrouteTest::shmLeftovers;
using FalMrouteTest::shmMapped;
using FalMrouteTest::uniqueShmName;
using Memtab::CollectionControl;
using Memtab::Mode;
using Routing::Multicast::Fib::IpGenRouteKey;

IpGenRouteKey sg(std::uint32_t n) {
  return IpGenRouteKey(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + n), 32),
                       Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF000001U + (n >> 16)), 32));
}
MrouteCounterKey key(std::uint32_t n, std::uint32_t vrf = 1) { return MrouteCounterKey(vrf, sg(n)); }
MrouteCounterKeyMapEntry entry(std::uint32_t n, std::uint64_t counterKey) { return {key(n), counterKey}; }

// ---- value types --------------------------------------------------------------------

TEST(MrouteCounterKeyTest, StrepFormRoundTripOrderingAndValidity) {
  MrouteCounterKey const k(3, IpGenRouteKey(Netcore::IpGenPrefix("10.0.0.1/32"), Netcore::IpGenPrefix("239.1.1.1/32")));
  std::string const text =
      "Value('Fal::Mroute::MrouteCounterKey', ** {'vrfId': 3, 'sg': Value('Routing::Multicast::Fib::IpGenRouteKey', ** "
      "{'source': 10.0.0.1/32, 'group': 239.1.1.1/32})})";
  EXPECT_EQ(Vex::strep(k), text);
  for (auto const& v : {k, MrouteCounterKey(), MrouteCounterKey(0xFFFFFFFF, IpGenRouteKey::wildcard6())}) {
    EXPECT_EQ(Vex::parse<MrouteCounterKey>(Vex::strep(v)), v) << Vex::strep(v);
    EXPECT_EQ(Vex::parse<MrouteCounterKey>(Vex::strep(v)).hash(), v.hash());
  }
  EXPECT_LT(key(9, 1), key(1, 2)) << "the VRF id comes first";
  EXPECT_LT(key(1, 2), key(2, 2));
  EXPECT_NE(key(1, 1), key(1, 2));
  EXPECT_TRUE(k.isValid());
  EXPECT_FALSE(MrouteCounterKey().isValid());
  EXPECT_NE(key(1, 1).hash(), key(1, 2).hash()) << "the VRF id is part of the hash";
}

TEST(MrouteCounterKeyMapEntryTest, StrepFormRoundTripAndEquality) {
  MrouteCounterKeyMapEntry const e(MrouteCounterKey(), 0xFFFFFFFFFFFFFFFFULL);
  EXPECT_EQ(Vex::strep(e),
            "Value('Fal::Mroute::MrouteCounterKeyMapEntry', ** {'key': Value('Fal::Mroute::MrouteCounterKey', ** {'vrfId': 0, "
            "'sg': Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'source': none/0, 'group': none/0})}), "
            "'counterKey': 18446744073709551615})");
  EXPECT_EQ(Vex::parse<MrouteCounterKeyMapEntry>(Vex::strep(e)), e);
  EXPECT_EQ(Vex::parse<MrouteCounterKeyMapEntry>(Vex::strep(entry(5, 77))), entry(5, 77));
  EXPECT_NE(entry(5, 77), entry(5, 78));
  EXPECT_NE(entry(5, 77), entry(6, 77));
}

// ---- the table ----------------------------------------------------------------------

struct Recorder : MrouteCounterKeyMapTable::Notifiee {
  std::vector<std::string> calls;
  void onMrouteCounterKeyMapEntry(MrouteCounterKey const& k) override { calls.push_back("key " + k.sg.pretty()); }
  void onMrouteCounterKeyMapEntry() override { calls.push_back("collection"); }
  void onMrouteCounterKeyMapEntryControl() override { calls.push_back("control"); }
  void onMrouteCounterKeyMapEntryControlImmediate() override { calls.push_back("control immediate"); }
  void onMrouteCounterKeyMapEntryMountStatus() override { calls.push_back("mount status"); }
  void onMrouteCounterKeyMapEntryQuiesced() override { calls.push_back("quiesced"); }
};

std::string told(std::uint32_t n) { return "key " + sg(n).pretty(); }

class MrouteCounterKeyMapTableTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override {
    Vex::fatalHandlerIs(previous_);
    EXPECT_EQ(shmLeftovers(), std::vector<std::string>()) << "a test left a segment in /dev/shm";
  }
  static Vex::Ptr<MrouteCounterKeyMapTable> open(std::string const& name, Mode mode) {
    auto table = Fal::Mroute::mrouteCounterKeyMapTableFactory(name);
    table->mrouteCounterKeyMapEntryControlIs(CollectionControl::collectionControlIs(name, mode));
    return table;
  }
  Vex::FatalHandler previous_;
};

TEST_F(MrouteCounterKeyMapTableTest, WriterNotifiesEachChangeAndReadersSeeIt) {
  std::string const name = uniqueShmName("keymap");
  auto writer = open(name, Mode::writer);
  ASSERT_TRUE(writer->mrouteCounterKeyMapEntryControl()->published()) << writer->mrouteCounterKeyMapEntryControl()->error();
  EXPECT_EQ(writer->mrouteCounterKeyMapEntryCapacity(), MrouteCounterConstants::maxCounterTableSize);
  Recorder rec;
  rec.notifierIs(writer);
  EXPECT_TRUE(writer->mrouteCounterKeyMapEntryIs(entry(1, 100)));
  EXPECT_TRUE(writer->mrouteCounterKeyMapEntryIs(entry(1, 100)));
  EXPECT_TRUE(writer->mrouteCounterKeyMapEntryIs(entry(2, 200)));
  EXPECT_TRUE(writer->mrouteCounterKeyMapEntryIs(entry(1, 101)));
  EXPECT_TRUE(writer->mrouteCounterKeyMapEntryDel(key(2)));
  EXPECT_FALSE(writer->mrouteCounterKeyMapEntryDel(key(2)));
  EXPECT_EQ(rec.calls, (std::vector<std::string>{told(1), told(2), told(1), told(2)})) << "an unchanged entry tells nobody";

  auto reader = open(name, Mode::reader);
  EXPECT_EQ(reader->mrouteCounterKeyMapEntry(key(1)), entry(1, 101));
  EXPECT_EQ(reader->mrouteCounterKeyMapEntry(key(2)), std::nullopt);
  EXPECT_EQ(reader->mrouteCounterKeyMapEntrySize(), 1U);
  EXPECT_EQ(reader->mrouteCounterKeyMapEntries(), std::vector<MrouteCounterKeyMapEntry>{entry(1, 101)});
}

TEST_F(MrouteCounterKeyMapTableTest, CommitWritesWithoutTellingAndNotifyTellsLater) {
  auto writer = open(uniqueShmName("commit"), Mode::writer);
  Recorder rec;
  rec.notifierIs(writer);
  writer->mrouteCounterKeyMapEntryCommit(entry(1, 1));
  writer->mrouteCounterKeyMapEntryCommit(entry(2, 2));
  EXPECT_TRUE(rec.calls.empty());
  EXPECT_EQ(writer->mrouteCounterKeyMapEntry(key(2)), entry(2, 2)) << "committed all the same";
  writer->mrouteCounterKeyMapEntryNotify(key(1));
  writer->mrouteCounterKeyMapEntryNotifyCollection();
  EXPECT_EQ(rec.calls, (std::vector<std::string>{told(1), "collection"}));
}

TEST_F(MrouteCounterKeyMapTableTest, DelAllRemovesAndTellsEachKey) {
  auto writer = open(uniqueShmName("delall"), Mode::writer);
  for (std::uint32_t n = 1; n <= 3; ++n) writer->mrouteCounterKeyMapEntryIs(entry(n, n));
  Recorder rec;
  rec.notifierIs(writer);
  EXPECT_EQ(writer->mrouteCounterKeyMapEntryDelAll(), 3U);
  std::sort(rec.calls.begin(), rec.calls.end());
  EXPECT_EQ(rec.calls, (std::vector<std::string>{told(1), told(2), told(3)}));
  EXPECT_EQ(writer->mrouteCounterKeyMapEntrySize(), 0U);
}

TEST_F(MrouteCounterKeyMapTableTest, NothingIsToldUntilNotificationsAreOn) {
  auto table = Vex::make<MrouteCounterKeyMapTable>("quiet");
  Recorder rec;
  rec.notifierIs(table);
  table->mrouteCounterKeyMapEntryControlIs(CollectionControl::privateCollectionControlIs());
  table->mrouteCounterKeyMapEntryIs(entry(1, 1));
  EXPECT_TRUE(rec.calls.empty());
  table->notificationsActiveIs(true);
  table->mrouteCounterKeyMapEntryDel(key(1));
  EXPECT_EQ(rec.calls, std::vector<std::string>{told(1)});
}

TEST_F(MrouteCounterKeyMapTableTest, AttachingAControlTellsTheImmediateHandlerFirstEvenWhenDeferred) {
  Vex::ActivityManager am;
  auto table = Fal::Mroute::mrouteCounterKeyMapTableFactory("deferred");
  Recorder rec;
  rec.deferredIs(true);
  rec.notifierIs(table);
  table->mrouteCounterKeyMapEntryControlIs(CollectionControl::privateCollectionControlIs());
  EXPECT_EQ(rec.calls, std::vector<std::string>{"control immediate"});
  am.runOnce();
  EXPECT_EQ(rec.calls, (std::vector<std::string>{"control immediate", "control"}));
}

TEST_F(MrouteCounterKeyMapTableTest, RefreshTellsReadersWhatTheWriterDid) {
  std::string const name = uniqueShmName("refresh");
  auto shadow = open(name, Mode::keyshadow);
  Recorder rec;
  rec.notifierIs(shadow);
  EXPECT_FALSE(shadow->mounted()) << "nothing published yet";
  {
    auto writer = open(name, Mode::writer);
    writer->mrouteCounterKeyMapEntryIs(entry(1, 10));
    writer->mrouteCounterKeyMapEntryIs(entry(2, 20));
    shadow->mrouteCounterKeyMapEntryRefresh();
    EXPECT_EQ(rec.calls[0], "mount status");
    EXPECT_EQ(rec.calls.back(), "collection");
    EXPECT_EQ(rec.calls.size(), 4U) << "mount status, two keys, the collection";
    rec.calls.clear();

    writer->mrouteCounterKeyMapEntryIs(entry(2, 21));
    writer->mrouteCounterKeyMapEntryQuiescedIs(true);
    shadow->mrouteCounterKeyMapEntryRefresh();
    EXPECT_EQ(rec.calls, (std::vector<std::string>{"quiesced", told(2), "collection"}));
    EXPECT_TRUE(shadow->mrouteCounterKeyMapEntryQuiesced());
    rec.calls.clear();
    shadow->mrouteCounterKeyMapEntryRefresh();
    EXPECT_TRUE(rec.calls.empty()) << "no change, nothing told";
  }
  shadow->mrouteCounterKeyMapEntryRefresh();
  std::sort(rec.calls.begin(), rec.calls.end());
  EXPECT_EQ(rec.calls, (std::vector<std::string>{"collection", told(1), told(2), "mount status", "quiesced"}))
      << "the writer went, and with it its rows and its quiescence";
  EXPECT_FALSE(shadow->mounted());
}

class ReaderWriteTest : public MrouteCounterKeyMapTableTest, public ::testing::WithParamInterface<Mode> {};

TEST_P(ReaderWriteTest, DeleteIsRefusedWithTheSharedMemoryFault) {
  std::string const name = uniqueShmName("readonly");
  auto writer = open(name, Mode::writer);
  writer->mrouteCounterKeyMapEntryIs(entry(1, 10));
  auto reader = open(name, GetParam());
  try {
    reader->mrouteCounterKeyMapEntryDel(key(1));
    FAIL() << "a reader deleted";
  } catch (Vex::FatalError const& e) {
    EXPECT_EQ(std::string(e.what()), "Memtab: delete on table '" + name + "' opened as " + Vex::enumName(GetParam()) + " not allowed");
  }
  EXPECT_THROW(reader->mrouteCounterKeyMapEntryDelAll(), Vex::FatalError);
  EXPECT_THROW(reader->mrouteCounterKeyMapEntryIs(entry(2, 2)), Vex::FatalError);
  EXPECT_EQ(writer->mrouteCounterKeyMapEntry(key(1)), entry(1, 10));
}

INSTANTIATE_TEST_SUITE_P(ReaderModes, ReaderWriteTest, ::testing::Values(Mode::reader, Mode::keyshadow),
                         [](auto const& info) { return Vex::enumName(info.param); });

TEST_F(MrouteCounterKeyMapTableTest, FullTableRefusesNewRoutesButUpdatesKnownOnes) {
  auto writer = open(uniqueShmName("full"), Mode::writer);
  std::uint32_t const cap = MrouteCounterConstants::maxCounterTableSize;
  for (std::uint32_t n = 0; n < cap; ++n) ASSERT_TRUE(writer->mrouteCounterKeyMapEntryCommit(entry(n, n))) << n;
  EXPECT_FALSE(writer->mrouteCounterKeyMapEntryIs(entry(cap, 1)));
  EXPECT_EQ(writer->mrouteCounterKeyMapEntry(key(cap)), std::nullopt);
  EXPECT_TRUE(writer->mrouteCounterKeyMapEntryIs(entry(7, 99)));
  EXPECT_EQ(writer->mrouteCounterKeyMapEntry(key(7)), entry(7, 99));
  EXPECT_EQ(writer->mrouteCounterKeyMapEntry(key(cap - 1)), entry(cap - 1, cap - 1));
  EXPECT_EQ(writer->mrouteCounterKeyMapEntrySize(), cap);
}

TEST_F(MrouteCounterKeyMapTableTest, LastReferenceHandsTheTableToItsControlWhichReleasesTheMapping) {
  std::string const name = uniqueShmName("handoff");
  auto table = open(name, Mode::writer);
  auto control = table->mrouteCounterKeyMapEntryControl();
  table->mrouteCounterKeyMapEntryIs(entry(1, 1));
  EXPECT_TRUE(shmMapped(name));
  table = nullptr;
  EXPECT_EQ(control->collectionsReleased(), 1U);
  EXPECT_EQ(control->mountStatus(), Memtab::MountStatus::unmounted);
  EXPECT_FALSE(shmMapped(name)) << "released while the control still lives";
  EXPECT_TRUE(shmLeftovers().empty());
}

// Another process reads the map while this one holds it as writer.
TEST_F(MrouteCounterKeyMapTableTest, ReaderInAnotherProcessFindsEveryCounterKey) {
  std::string const name = uniqueShmName("crossprocess");
  auto writer = open(name, Mode::writer);
  for (std::uint32_t n = 1; n <= 50; ++n) writer->mrouteCounterKeyMapEntryIs(entry(n, 1000 + n));
  int result[2];
  ASSERT_EQ(::pipe(result), 0);
  pid_t const pid = ::fork();
  if (pid == 0) {
    auto reader = open(name, Mode::reader);
    std::uint32_t found = 0;
    for (std::uint32_t n = 1; n <= 50; ++n) found += reader->mrouteCounterKeyMapEntry(key(n)) == entry(n, 1000 + n);
    (void)!::write(result[1], &found, sizeof found);
    ::_exit(0);
  }
  std::uint32_t found = 0;
  EXPECT_EQ(::read(result[0], &found, sizeof found), static_cast<ssize_t>(sizeof found));
  ::waitpid(pid, nullptr, 0);
  EXPECT_EQ(found, 50U);
  ::close(result[0]);
  ::close(result[1]);
}

}  // namespace
