// The kernel FIB source against the real kernel, in a namespace of its own:
// entries written through the mroute sockets are seen added, changed and
// deleted with their interfaces, a 10K dump arrives whole, and an overflow of
// the notification socket ends in a table that matches the kernel's. Needs
// root; otherwise every case is skipped with the reason.
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include "kernel/netlink/KernelFibSource.h"
#include "kernel/netlink/MnlChannel.h"
#include "platform/vex/ActivityManager.h"
#include "tests/doubles/MfcWriter.h"
#include "tests/doubles/RecordingFibSink.h"
#include "tests/doubles/RunUntil.h"
#include "tests/doubles/TestNetns.h"

namespace {

using FalKernel::KernelFibSource;
using FalKernel::MnlChannel;
using FalKernel::SourceMap;
using MrouteLib::PortVlan;
using Netcore::AddressFamily;
using Netcore::IpGenAddr;
using PortVlans = MrouteLib::PortVlanSet::PortVlanColl;

// The kernel's default multicast tables.
constexpr std::uint32_t kIpv4Table = 253;
constexpr std::uint32_t kIpv6Table = 254;

std::string keyOf(IpGenAddr const& s, IpGenAddr const& g) {
  unsigned const len = g.isV6() ? 128 : 32;
  return Routing::Multicast::Fib::IpGenRouteKey(Netcore::IpGenPrefix(s, len), Netcore::IpGenPrefix(g, len)).pretty();
}

IpGenAddr group4(std::uint32_t i) { return IpGenAddr::v4(0xEF010000 + i); }  // 239.1.x.y

class KernelFibRootTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (auto why = FalTest::TestNetns::unavailable(); !why.empty()) GTEST_SKIP() << why;
    ns_ = std::make_unique<FalTest::TestNetns>("fib");
    for (char const* l : {"in0", "out1", "out2"}) ns_->vethIs(l, std::string(l) + "p");
    writer_ = std::make_unique<FalTest::MfcWriter>(ns_->name());
    for (char const* l : {"in0", "out1", "out2"}) writer_->vifIs(l);
    map_.vrfIs(AddressFamily::ipv4, kIpv4Table, L3::VrfName("default"));
    map_.vrfIs(AddressFamily::ipv6, kIpv6Table, L3::VrfName("default"));
    map_.interfaceIs("in0", {PortVlan("Ethernet1.100"), {}});
    map_.interfaceIs("out1", {PortVlan("Ethernet2.200"), {}});
    map_.interfaceIs("out2", {PortVlan("Ethernet3.200"), {}});
  }
  void TearDown() override {
    source_.reset();
    writer_.reset();
    ns_.reset();
  }

  void start(int eventBuffer = 8 << 20) {
    auto dump = MnlChannel::open({ns_->name(), {}, 0});
    auto events = MnlChannel::open(
        {ns_->name(), {RTNLGRP_LINK, RTNLGRP_IPV4_MROUTE, RTNLGRP_IPV6_MROUTE}, eventBuffer});
    source_ = std::make_unique<KernelFibSource>(std::move(dump), std::move(events), map_, sink_);
    source_->start();
  }
  bool runUntil(std::function<bool()> const& done) { return FalTest::runUntil(am_, done); }
  MrouteLib::DesiredRoute const* route(IpGenAddr const& s, IpGenAddr const& g) const {
    return sink_.route("default", keyOf(s, g));
  }

  Vex::ActivityManager am_{std::make_unique<Vex::MonotonicTimeSource>()};
  std::unique_ptr<FalTest::TestNetns> ns_;
  std::unique_ptr<FalTest::MfcWriter> writer_;
  SourceMap map_;
  FalTest::RecordingFibSink sink_;
  std::unique_ptr<KernelFibSource> source_;
};

class KernelFibRootFamilyTest : public KernelFibRootTest, public ::testing::WithParamInterface<AddressFamily> {
 protected:
  IpGenAddr source() const { return IpGenAddr(GetParam() == AddressFamily::ipv6 ? "2001:db8::2" : "10.0.0.2"); }
  IpGenAddr group() const { return IpGenAddr(GetParam() == AddressFamily::ipv6 ? "ff3e::1:7" : "239.1.2.7"); }
};

TEST_P(KernelFibRootFamilyTest, EntriesAddedChangedAndDeletedAreSeenWithTheirInterfaces) {
  start();
  ASSERT_TRUE(runUntil([&] { return source_->synchronized(); }));

  writer_->mfcIs(source(), group(), "in0", {"out1"});
  ASSERT_TRUE(runUntil([&] { return route(source(), group()) != nullptr; }));
  EXPECT_EQ(route(source(), group())->acceptingVlan(), Bridging::VlanIdOrNone(100));
  EXPECT_EQ(route(source(), group())->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200")}));

  writer_->mfcIs(source(), group(), "in0", {"out1", "out2"});
  ASSERT_TRUE(runUntil([&] { return route(source(), group())->outputs().portVlanSize() == 2; }));
  EXPECT_EQ(route(source(), group())->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")}));

  writer_->mfcIs(source(), group(), "out2", {"out1"});
  ASSERT_TRUE(runUntil([&] { return route(source(), group())->acceptingVlan() == Bridging::VlanIdOrNone(200); }));

  writer_->mfcDel(source(), group(), "out2");
  ASSERT_TRUE(runUntil([&] { return route(source(), group()) == nullptr; }));
  EXPECT_EQ(source_->summary().entries, 0u);
  EXPECT_EQ(source_->counts().overflows, 0u);
  EXPECT_EQ(source_->counts().malformed, 0u);
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, KernelFibRootFamilyTest, ::testing::Values(AddressFamily::ipv4, AddressFamily::ipv6),
                         [](auto const& info) { return info.param == AddressFamily::ipv6 ? "IPv6" : "IPv4"; });

TEST_F(KernelFibRootTest, DumpOfTenThousandEntriesArrivesWhole) {
  constexpr std::uint32_t kEntries = 10000;
  IpGenAddr const s("10.0.0.2");
  for (std::uint32_t i = 0; i < kEntries; ++i) writer_->mfcIs(s, group4(i), "in0", {i % 2 ? "out1" : "out2"});
  start();
  ASSERT_TRUE(runUntil([&] { return source_->synchronized(); }));
  EXPECT_EQ(sink_.routes.size(), kEntries);
  EXPECT_EQ(source_->summary().entries, kEntries);
  EXPECT_EQ(route(s, group4(4321))->outputs().portVlan(), (PortVlans{PortVlan("Ethernet2.200")}));
  EXPECT_EQ(route(s, group4(4322))->outputs().portVlan(), (PortVlans{PortVlan("Ethernet3.200")}));
  EXPECT_EQ(source_->counts().dumps, 1u);
}

TEST_F(KernelFibRootTest, OverflowingNotificationsEndInTheKernelsTable) {
  IpGenAddr const s("10.0.0.2");
  for (std::uint32_t i = 0; i < 500; ++i) writer_->mfcIs(s, group4(i), "in0", {"out1"});
  start(1);  // the smallest receive buffer the kernel allows: a few messages
  ASSERT_TRUE(runUntil([&] { return source_->synchronized(); }));
  ASSERT_EQ(sink_.routes.size(), 500u);

  // While the source does not read: half the entries go, others come, some change.
  for (std::uint32_t i = 0; i < 250; ++i) writer_->mfcDel(s, group4(i), "in0");
  for (std::uint32_t i = 500; i < 1000; ++i) writer_->mfcIs(s, group4(i), "in0", {"out2"});
  for (std::uint32_t i = 250; i < 300; ++i) writer_->mfcIs(s, group4(i), "in0", {"out1", "out2"});

  ASSERT_TRUE(runUntil([&] { return source_->counts().overflows > 0 && source_->synchronized(); }));
  EXPECT_EQ(sink_.routes.size(), 750u);
  EXPECT_EQ(route(s, group4(0)), nullptr);
  EXPECT_EQ(route(s, group4(249)), nullptr);
  ASSERT_NE(route(s, group4(999)), nullptr);
  EXPECT_EQ(route(s, group4(999))->outputs().portVlan(), (PortVlans{PortVlan("Ethernet3.200")}));
  EXPECT_EQ(route(s, group4(260))->outputs().portVlanSize(), 2u);
  EXPECT_EQ(route(s, group4(300))->outputs().portVlanSize(), 1u);
  EXPECT_EQ(source_->counts().sweptEntries, 250u);
}

}  // namespace
