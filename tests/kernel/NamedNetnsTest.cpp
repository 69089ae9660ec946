// A kernel chip's devices in an existing, named namespace (one a script or an
// operator reaches): made there on demand, and removed with the chip, rules
// included, since the namespace itself stays. Needs root.
#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "kernel/KernelNetns.h"
#include "kernel/VethPorts.h"
#include "tests/doubles/TestNetns.h"

namespace {

// The lines `ip -n NS CMD` prints that contain what, counted.
int count(FalTest::TestNetns const& ns, std::string const& cmd, std::string const& what) {
  std::string const line = "ip -n " + ns.name() + " " + cmd + " | grep -c '" + what + "'";
  FILE* p = ::popen(line.c_str(), "r");
  int n = 0;
  if (p && std::fscanf(p, "%d", &n) != 1) n = -1;
  if (p) ::pclose(p);
  return n;
}

TEST(NamedNetnsTest, ChipDevicesAndRulesInAnExistingNamespaceGoWithTheChip) {
  if (auto why = FalTest::TestNetns::unavailable(); !why.empty()) GTEST_SKIP() << why;
  FalTest::TestNetns ns("named");
  {
    FalKernel::KernelNetns netns(ns.name());
    EXPECT_FALSE(netns.owned());
    FalKernel::VethPorts ports(netns);
    EXPECT_GT(ports.outputIfindex(MrouteLib::PortVlan("Ethernet2.200")), 0);
    EXPECT_GT(ports.inputIfindex(0, Bridging::VlanIdOrNone(100)), 0);
    EXPECT_GT(ports.inputIfindex(5, Bridging::VlanIdOrNone(300)), 0);  // another VRF: rules too
    EXPECT_EQ(count(ns, "link show", "out2v200@cap2v200"), 1);
    EXPECT_EQ(count(ns, "link show", "src0v100@in0v100"), 1);
    EXPECT_EQ(count(ns, "mrule show", "iif in5v300"), 1);
    EXPECT_EQ(count(ns, "-6 mrule show", "iif in5v300"), 1);
  }
  EXPECT_EQ(count(ns, "link show", "v[0-9]"), 0);
  EXPECT_EQ(count(ns, "mrule show", "in5v300"), 0);
  EXPECT_EQ(count(ns, "-6 mrule show", "in5v300"), 0);
  EXPECT_EQ(count(ns, "link show", "lo:"), 1);  // the namespace is still there
}

TEST(NamedNetnsTest, MissingNamespaceIsRefusedNamingIt) {
  if (auto why = FalTest::TestNetns::unavailable(); !why.empty()) GTEST_SKIP() << why;
  try {
    FalKernel::KernelNetns netns("fal-no-such-namespace");
    FAIL() << "opened";
  } catch (std::system_error const& e) {
    EXPECT_NE(std::string(e.what()).find("/var/run/netns/fal-no-such-namespace"), std::string::npos) << e.what();
  }
}

}  // namespace
