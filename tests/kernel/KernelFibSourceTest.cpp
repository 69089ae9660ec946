// The kernel FIB source against a kernel played by FakeRtnlKernel, in
// virtual time: dumps, notifications, and the faults that force a
// resynchronisation (an interrupted dump, an overflowing notification queue,
// a refused dump), plus link and mapping changes.
#include <cerrno>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <linux/if.h>

#include "kernel/netlink/KernelFibSource.h"
#include "platform/vex/ActivityManager.h"
#include "tests/doubles/FakeRtnlKernel.h"
#include "tests/doubles/RecordingFibSink.h"

namespace {

using FalKernel::KernelFibSource;
using FalKernel::LinkEntry;
using FalKernel::MfcEntry;
using FalKernel::SourceMap;
using MrouteLib::PortVlan;
using Netcore::IntfId;
using Netcore::IpGenAddr;
using Skip = FalKernel::MrouteTranslator::Skip;
using PortVlans = MrouteLib::PortVlanSet::PortVlanColl;

constexpr std::uint32_t kDefaultTable = 253;
constexpr int kIn = 2, kOut1 = 3, kOut2 = 4, kOut1b = 5, kStray = 6;

MfcEntry mfc(char const* source, char const* group, int iif, std::initializer_list<int> oifs,
             std::uint32_t table = kDefaultTable) {
  MfcEntry e;
  e.source = IpGenAddr(source);
  e.group = IpGenAddr(group);
  e.af = e.group.af();
  e.table = table;
  e.iif = iif;
  e.oifs.assign(oifs.begin(), oifs.end());
  return e;
}

std::string keyOf(MfcEntry const& e) {
  unsigned const len = e.af == Netcore::AddressFamily::ipv6 ? 128 : 32;
  return Routing::Multicast::Fib::IpGenRouteKey(Netcore::IpGenPrefix(e.source, len), Netcore::IpGenPrefix(e.group, len))
      .pretty();
}

class KernelFibSourceTest : public ::testing::Test {
 protected:
  KernelFibSourceTest() {
    kernel_.linkIs({1, "lo", true, IF_OPER_UNKNOWN});
    kernel_.linkIs({kIn, "in0", true, IF_OPER_UP});
    kernel_.linkIs({kOut1, "out1", true, IF_OPER_UP});
    kernel_.linkIs({kOut2, "out2", true, IF_OPER_UP});
    kernel_.linkIs({kOut1b, "out1b", true, IF_OPER_UP});
    kernel_.linkIs({kStray, "stray", true, IF_OPER_UP});
    map_.vrfIs(Netcore::AddressFamily::ipv4, kDefaultTable, L3::VrfName("default"));
    map_.vrfIs(Netcore::AddressFamily::ipv6, kDefaultTable, L3::VrfName("default"));
    map_.interfaceIs("in0", {PortVlan("Ethernet1.100"), {}});
    map_.interfaceIs("out1", {PortVlan("Ethernet2.200"), {PortVlan("Ethernet4.200")}});
    map_.interfaceIs("out1b", {PortVlan("Ethernet2.201"), {}});
    map_.interfaceIs("out2", {PortVlan("Ethernet3.200"), {}});
  }

  void start() {
    source_ = std::make_unique<KernelFibSource>(kernel_.dumpChannel(), kernel_.eventChannel(), map_, sink_);
    source_->start();
  }
  // Runs the loop until nothing is left to do at this instant.
  void settle() { am_.runFor(0); }
  MrouteLib::DesiredRoute const* route(MfcEntry const& e, std::string const& vrf = "default") const {
    return sink_.route(vrf, keyOf(e));
  }
  bool everGiven(MfcEntry const& e) const { return sink_.everGiven.contains({"default", keyOf(e)}); }

  Vex::ActivityManager am_{std::make_unique<Vex::VirtualTimeSource>(0.0)};
  FalTest::FakeRtnlKernel kernel_;
  FalTest::RecordingFibSink sink_;
  SourceMap map_;
  std::unique_ptr<KernelFibSource> source_;
};

TEST_F(KernelFibSourceTest, DumpAtStartMirrorsTheMappedEntriesOfBothFamilies) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1, kOut2});
  MfcEntry const otherTable = mfc("10.0.0.2", "239.1.1.2", kIn, {kOut1}, 10);
  MfcEntry const strayInput = mfc("10.0.0.2", "239.1.1.3", kStray, {kOut1});
  MfcEntry const v6 = mfc("2001:db8::2", "ff3e::1", kIn, {kOut2});
  for (auto const& e : {a, otherTable, strayInput, v6}) kernel_.mfcIs(e);
  start();
  EXPECT_FALSE(source_->synchronized());
  settle();

  ASSERT_TRUE(source_->synchronized());
  EXPECT_EQ(sink_.routes.size(), 2u);
  ASSERT_TRUE(route(a));
  EXPECT_EQ(route(a)->acceptingVlan(), Bridging::VlanIdOrNone(100));
  EXPECT_EQ(route(a)->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")}));
  EXPECT_EQ(route(a)->outputs().portVlanFrr(), (PortVlans{PortVlan("Ethernet4.200")}));
  ASSERT_TRUE(route(v6));
  EXPECT_EQ(route(v6)->outputs().portVlan(), (PortVlans{PortVlan("Ethernet3.200")}));

  auto const s = source_->summary();
  EXPECT_EQ(s.entries, 4u);
  EXPECT_EQ(s.routes, 2u);
  EXPECT_EQ(s.skipped[static_cast<std::size_t>(Skip::unmappedTable)], 1u);
  EXPECT_EQ(s.skipped[static_cast<std::size_t>(Skip::unmappedInput)], 1u);
  EXPECT_EQ(kernel_.dumpRequests(), 3u);  // links, IPv4, IPv6
  EXPECT_EQ(sink_.uncommitted, 0u);
  for (char const* port : {"Ethernet1", "Ethernet2", "Ethernet3"}) {
    EXPECT_EQ(sink_.ports.at(IntfId(port)), Interface::intfOperUp) << port;
  }
}

class KernelFibSourceFamilyTest : public KernelFibSourceTest, public ::testing::WithParamInterface<bool> {
 protected:
  MfcEntry entry(int iif, std::initializer_list<int> oifs) const {
    return GetParam() ? mfc("2001:db8::7", "ff3e::7", iif, oifs) : mfc("10.0.0.7", "239.7.7.7", iif, oifs);
  }
};

TEST_P(KernelFibSourceFamilyTest, NotificationsAddChangeAndDeleteRoutesWithTheirInterfaces) {
  start();
  settle();
  std::size_t const commits = sink_.commits;

  kernel_.mfcIs(entry(kIn, {kOut1}));
  settle();
  ASSERT_TRUE(route(entry(kIn, {})));
  EXPECT_EQ(route(entry(kIn, {}))->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200")}));
  EXPECT_GT(sink_.commits, commits);

  kernel_.mfcIs(entry(kIn, {kOut1, kOut2}));
  settle();
  EXPECT_EQ(route(entry(kIn, {}))->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")}));

  kernel_.mfcIs(entry(kOut2, {kOut1}));  // the input moves to another VLAN
  settle();
  EXPECT_EQ(route(entry(kIn, {}))->acceptingVlan(), Bridging::VlanIdOrNone(200));
  EXPECT_EQ(route(entry(kIn, {}))->acceptingIntfId(), IntfId("Vlan200"));

  kernel_.mfcDel(entry(kOut2, {kOut1}));
  settle();
  EXPECT_FALSE(route(entry(kIn, {})));
  EXPECT_EQ(source_->summary().entries, 0u);
  EXPECT_EQ(sink_.uncommitted, 0u);
  EXPECT_EQ(source_->counts().notifications, 4u);
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, KernelFibSourceFamilyTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "IPv6" : "IPv4"; });

TEST_F(KernelFibSourceTest, ChangesDuringTheDumpWaitForItsEndAndAreThenAppliedInOrder) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1});
  MfcEntry const b = mfc("10.0.0.2", "239.1.1.2", kIn, {kOut1});
  MfcEntry const c = mfc("10.0.0.2", "239.1.1.3", kIn, {kOut1});
  MfcEntry const cChanged = mfc("10.0.0.2", "239.1.1.3", kIn, {kOut2});
  MfcEntry const d = mfc("10.0.0.2", "239.1.1.4", kIn, {kOut2});
  for (auto const& e : {a, b, c}) kernel_.mfcIs(e);
  start();
  am_.runOnce();  // reads the links; the IPv4 dump is answered now, with a, b and c
  kernel_.mfcDel(a);
  kernel_.mfcIs(d);
  kernel_.mfcIs(cChanged);
  am_.runOnce();  // reads the IPv4 dump
  EXPECT_TRUE(route(a));
  EXPECT_FALSE(route(d));
  EXPECT_EQ(route(c)->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200")}));
  EXPECT_EQ(kernel_.eventsWaiting(), 3u);

  settle();
  ASSERT_TRUE(source_->synchronized());
  EXPECT_FALSE(route(a));
  EXPECT_TRUE(route(b));
  EXPECT_TRUE(route(d));
  EXPECT_EQ(route(c)->outputs().portVlan(), (PortVlans{PortVlan("Ethernet3.200")}));
  EXPECT_EQ(source_->counts().sweptEntries, 0u);
}

TEST_F(KernelFibSourceTest, InterruptedDumpIsDumpedAgainAndItsContentNeverReachesTheSink) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1});
  MfcEntry const ghost = mfc("10.0.0.9", "239.9.9.9", kIn, {kOut2});
  kernel_.mfcIs(a);
  kernel_.nextDumpInterruptedIs({ghost});
  start();
  settle();
  ASSERT_TRUE(source_->synchronized());
  EXPECT_EQ(source_->counts().interruptedDumps, 1u);
  EXPECT_EQ(source_->counts().dumps, 1u);
  EXPECT_TRUE(route(a));
  EXPECT_FALSE(everGiven(ghost));
  EXPECT_EQ(kernel_.dumpRequests(), 5u);  // links, IPv4 (interrupted), then links, IPv4, IPv6
}

TEST_F(KernelFibSourceTest, InterruptedResynchronisationRemovesWhatTheCompleteDumpNoLongerHas) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1});
  MfcEntry const b = mfc("10.0.0.2", "239.1.1.2", kIn, {kOut1});
  kernel_.mfcIs(a);
  kernel_.mfcIs(b);
  start();
  settle();
  // b goes without a word, and the next dump is interrupted reporting it still.
  kernel_.mfcDelQuietly(b);
  kernel_.nextDumpInterruptedIs({b});
  source_->resync();
  settle();
  EXPECT_TRUE(route(a));
  EXPECT_FALSE(route(b));
  EXPECT_EQ(source_->counts().sweptEntries, 1u);
  EXPECT_EQ(source_->counts().interruptedDumps, 1u);
  EXPECT_EQ(source_->counts().dumps, 2u);
}

TEST_F(KernelFibSourceTest, OverflowDropsWhatWaitsAndResynchronisesRemovingWhatDisappeared) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1});
  MfcEntry const b = mfc("10.0.0.2", "239.1.1.2", kIn, {kOut1});
  MfcEntry const brief = mfc("10.0.0.2", "239.1.1.3", kIn, {kOut1});
  MfcEntry const d = mfc("10.0.0.2", "239.1.1.4", kIn, {kOut2});
  kernel_.mfcIs(a);
  kernel_.mfcIs(b);
  start();
  settle();
  kernel_.eventCapacityIs(1);
  kernel_.mfcIs(brief);  // waits in the queue...
  kernel_.mfcDel(brief);  // ...and what undoes it is lost, with the rest
  kernel_.mfcDel(a);
  kernel_.mfcIs(d);
  kernel_.eventCapacityIs(1000);
  settle();

  ASSERT_TRUE(source_->synchronized());
  EXPECT_EQ(source_->counts().overflows, 1u);
  EXPECT_EQ(source_->counts().dumps, 2u);
  EXPECT_FALSE(route(a));
  EXPECT_TRUE(route(b));
  EXPECT_TRUE(route(d));
  EXPECT_FALSE(everGiven(brief));
  EXPECT_EQ(source_->counts().sweptEntries, 1u);

  MfcEntry const f = mfc("10.0.0.2", "239.1.1.6", kIn, {kOut2});
  kernel_.mfcIs(f);
  settle();
  EXPECT_TRUE(route(f));
}

TEST_F(KernelFibSourceTest, RefusedDumpIsAskedForAgain) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1});
  kernel_.mfcIs(a);
  kernel_.nextDumpErrorIs(EBUSY);
  start();
  settle();
  ASSERT_TRUE(source_->synchronized());
  EXPECT_EQ(source_->counts().failedDumps, 1u);
  EXPECT_TRUE(route(a));
}

TEST_F(KernelFibSourceTest, LinksComingGoingAndRenamedRetranslateTheirRoutes) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1, kOut2});
  kernel_.mfcIs(a);
  start();
  settle();

  kernel_.linkDel(kOut2);
  settle();
  EXPECT_EQ(route(a)->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200")}));
  EXPECT_EQ(sink_.ports.at(IntfId("Ethernet3")), Interface::intfOperNotPresent);
  EXPECT_EQ(source_->summary().outputsUnmapped, 1u);

  kernel_.linkIs({kOut2, "out2", true, IF_OPER_UP});
  settle();
  EXPECT_EQ(route(a)->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")}));
  EXPECT_EQ(sink_.ports.at(IntfId("Ethernet3")), Interface::intfOperUp);

  kernel_.linkIs({kIn, "in-renamed", true, IF_OPER_UP});
  settle();
  EXPECT_FALSE(route(a));
  EXPECT_EQ(source_->summary().entries, 1u);  // held, waiting for its input to be known again
  kernel_.linkIs({kIn, "in0", true, IF_OPER_UP});
  settle();
  EXPECT_TRUE(route(a));
}

TEST_F(KernelFibSourceTest, PortIsDownWhenAnyOfItsInterfacesIs) {
  start();
  settle();
  kernel_.linkIs({kOut1b, "out1b", true, IF_OPER_LOWERLAYERDOWN});
  settle();
  EXPECT_EQ(sink_.ports.at(IntfId("Ethernet2")), Interface::intfOperLowerLayerDown);
  kernel_.linkIs({kOut1, "out1", false, IF_OPER_DOWN});
  settle();
  EXPECT_EQ(sink_.ports.at(IntfId("Ethernet2")), Interface::intfOperDown);  // the first by name
  kernel_.linkIs({kOut1, "out1", true, IF_OPER_UP});
  kernel_.linkIs({kOut1b, "out1b", true, IF_OPER_UP});
  settle();
  EXPECT_EQ(sink_.ports.at(IntfId("Ethernet2")), Interface::intfOperUp);
}

TEST_F(KernelFibSourceTest, NewMapMovesRoutesWithoutADump) {
  MfcEntry const a = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1, kOut2});
  MfcEntry const red = mfc("10.0.0.2", "239.1.1.1", kIn, {kOut1}, 10);
  kernel_.mfcIs(a);
  kernel_.mfcIs(red);
  start();
  settle();
  EXPECT_EQ(sink_.routes.size(), 1u);

  SourceMap blue;
  blue.vrfIs(Netcore::AddressFamily::ipv4, kDefaultTable, L3::VrfName("blue"));
  blue.vrfIs(Netcore::AddressFamily::ipv4, 10, L3::VrfName("red"));
  blue.interfaceIs("in0", {PortVlan("Ethernet1.100"), {}});
  blue.interfaceIs("out1", {PortVlan("Ethernet2.200"), {}});
  source_->sourceMapIs(blue);
  EXPECT_EQ(sink_.uncommitted, 0u);
  EXPECT_EQ(kernel_.dumpRequests(), 3u);
  EXPECT_FALSE(route(a, "default"));
  ASSERT_TRUE(route(a, "blue"));
  EXPECT_EQ(route(a, "blue")->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200")}));
  EXPECT_TRUE(route(a, "blue")->outputs().intfId().isEmpty());
  EXPECT_TRUE(route(red, "red"));
}

}  // namespace
