// The kernel chip's limits and refusals: the 33rd virtual interface is a full
// replication table, routes the kernel's cache cannot hold are refused, and a
// kernel error is traced with its errno and refuses the one allocation.
#include <gtest/gtest.h>

#include <memory>

#include "kernel/MrouteCache.h"
#include "tests/kernel/KernelRig.h"

namespace FalKernelTest {
namespace {

using MrouteLib::RouteProgrammer;
using Names = std::vector<std::string>;

class KernelChipTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (auto why = KernelRig::unavailable()) GTEST_SKIP() << *why;
    rig_ = std::make_unique<KernelRig>();
  }
  bool inKernel(char const* source, char const* group) const {
    for (auto const& e : FalKernel::MrouteCache::read(rig_->netns, Netcore::AddressFamily::ipv4)) {
      if (e.group == Netcore::IpGenAddr(group) && e.origin == Netcore::IpGenAddr(source)) return true;
    }
    return false;
  }

  std::unique_ptr<KernelRig> rig_;
};

TEST_F(KernelChipTest, ThirtyThirdVirtualInterfaceIsAFullReplicationTable) {
  // The input and 31 outputs take the 32 virtual interfaces.
  MrouteLib::PortVlanSet many;
  for (std::uint32_t n = 1; n <= 31; ++n) many.portVlanIs(MrouteLib::PortVlan(KernelRig::eth(n), Bridging::VlanIdOrNone()));
  auto const wide = KernelRig::key("192.0.2.1", "239.2.0.1");
  rig_->program({KernelRig::route("default", wide, 100, many)});
  ASSERT_EQ(rig_->failure("default", wide), RouteProgrammer::kFailureNone);
  ASSERT_EQ(rig_->chip->vifsInUse(), FalKernel::KernelChip::kMaxVifs);

  auto const extra = KernelRig::key("192.0.2.1", "239.2.0.2");
  rig_->program({KernelRig::route("default", extra, 100, KernelRig::outputs({"Ethernet32"}))});
  EXPECT_EQ(rig_->failure("default", extra), RouteProgrammer::kFailureReplicationTableFull);
  EXPECT_TRUE(rig_->capture->contains("Full multicast replication table. Skipping oif allocation"));
  EXPECT_FALSE(inKernel("192.0.2.1", "239.2.0.2"));
  EXPECT_EQ(rig_->chip->vifsInUse(), FalKernel::KernelChip::kMaxVifs);

  // Outputs that already have their interfaces still fit, and forward.
  auto const narrow = KernelRig::key("192.0.2.1", "239.2.0.3");
  rig_->program({KernelRig::route("default", narrow, 100, KernelRig::outputs({"Ethernet1", "Ethernet31"}))});
  EXPECT_EQ(rig_->failure("default", narrow), RouteProgrammer::kFailureNone);
  EXPECT_EQ(rig_->copies(0, 100, "192.0.2.1", "239.2.0.3", 2), (Names{"Ethernet1", "Ethernet31"}));

  // Interfaces come back with the routes that held them.
  rig_->remove("default", wide);
  rig_->am.runUntil(rig_->am.now() + 5.0);  // past the zombie lifetime
  EXPECT_EQ(rig_->chip->vifsInUse(), 3);
  // The refusal left the replication table's free flag as it was, so the
  // parked route waits for the chip agent's review kick.
  rig_->sw->mrouteReviewKickInc();
  EXPECT_EQ(rig_->failure("default", extra), RouteProgrammer::kFailureNone);
  EXPECT_EQ(rig_->copies(0, 100, "192.0.2.1", "239.2.0.2", 1), Names{"Ethernet32"});
}

TEST_F(KernelChipTest, RoutesTheKernelsCacheCannotHoldAreRefused) {
  MrouteLib::DesiredRoute noRpf(L3::VrfName("default"), KernelRig::key("192.0.2.1", "239.3.0.1"));
  noRpf.noRpfIs(true);
  noRpf.outputsIs(KernelRig::outputs({"Ethernet1"}));
  auto const prefix = KernelRig::key("192.0.2.0/24", "239.3.0.2");
  auto const fine = KernelRig::key("192.0.2.1", "239.3.0.3");
  rig_->program({noRpf, KernelRig::route("default", prefix, 100, KernelRig::outputs({"Ethernet1"})),
                 KernelRig::route("default", fine, 100, KernelRig::outputs({"Ethernet1"}))});
  EXPECT_EQ(rig_->failure("default", noRpf.key()), RouteProgrammer::kFailureOther);
  EXPECT_EQ(rig_->failure("default", prefix), RouteProgrammer::kFailureOther);
  EXPECT_EQ(rig_->failure("default", fine), RouteProgrammer::kFailureNone);
  EXPECT_EQ(rig_->chip->statistics().refusedRoutes, 2u);
  EXPECT_EQ(rig_->chip->routeCount(), 1u);
  EXPECT_FALSE(inKernel("192.0.2.1", "239.3.0.1"));
}

// Hands the chip a device that does not exist for one output.
class VanishedOutput final : public FalKernel::KernelPortMap {
 public:
  explicit VanishedOutput(FalKernel::VethPorts& real) : real_(real) {}
  int outputIfindex(MrouteLib::PortVlan output) override {
    return output.port() == KernelRig::eth(9) ? kNoSuchDevice : real_.outputIfindex(output);
  }
  int inputIfindex(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) override { return real_.inputIfindex(vrfId, vlan); }
  int openSocket(int domain, int type, int protocol) override { return real_.openSocket(domain, type, protocol); }
  static constexpr int kNoSuchDevice = 999999;

 private:
  FalKernel::VethPorts& real_;
};

TEST_F(KernelChipTest, KernelErrorIsTracedWithErrnoAndRefusesOnlyThatRoute) {
  VanishedOutput ports(rig_->ports);
  auto chip = Vex::make<FalKernel::KernelChip>("FalKernel::KernelChip", 0, ports);
  auto const broken = rig_->registry->oifSetIs(KernelRig::outputs({"Ethernet9"}));
  auto const working = rig_->registry->oifSetIs(KernelRig::outputs({"Ethernet8"}));
  std::uint32_t const brokenIndex = chip->doAllocateMtableOifSet(0, 0, broken);
  std::uint32_t const workingIndex = chip->doAllocateMtableOifSet(0, 0, working);
  ASSERT_NE(brokenIndex, FalKernel::KernelChip::kInvalidIndex);
  Bridging::VlanIdOrNone const vlan(100);

  auto const refused = chip->doAllocateMroute(0, 0, KernelRig::key("192.0.2.1", "239.4.0.1"), vlan, false, brokenIndex,
                                              false, 0);
  EXPECT_TRUE(refused.isNull());
  EXPECT_EQ(chip->statistics().kernelErrors, 1u);
  EXPECT_NE(chip->lastError(), 0);
  EXPECT_TRUE(rig_->capture->contains("errno " + std::to_string(chip->lastError())));
  EXPECT_FALSE(chip->mrouteFull(0));

  auto const programmed = chip->doAllocateMroute(0, 0, KernelRig::key("192.0.2.1", "239.4.0.2"), vlan, false,
                                                 workingIndex, false, 0);
  EXPECT_FALSE(programmed.isNull());
  EXPECT_TRUE(inKernel("192.0.2.1", "239.4.0.2"));
  EXPECT_EQ(rig_->copies(0, 100, "192.0.2.1", "239.4.0.2", 1), Names{"Ethernet8"});
}

TEST_F(KernelChipTest, ChipAnswersForItsOwnSwitchOnly) {
  auto const set = rig_->registry->oifSetIs(KernelRig::outputs({"Ethernet1"}));
  EXPECT_EQ(rig_->chip->doAllocateMtableOifSet(KernelRig::kSwitchId + 1, 0, set), FalKernel::KernelChip::kInvalidIndex);
  EXPECT_TRUE(rig_->chip->entries().empty());
  EXPECT_TRUE(rig_->chip->doAllocateMroute(KernelRig::kSwitchId + 1, 0, KernelRig::key("192.0.2.1", "239.4.0.3"),
                                           Bridging::VlanIdOrNone(100), false, 0, false, 0)
                  .isNull());
}

}  // namespace
}  // namespace FalKernelTest
