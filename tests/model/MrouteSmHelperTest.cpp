#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "model/MrouteSmHelper.h"
#include "platform/vex/Assert.h"
// The hook signatures name these; passing null pointers needs their definitions.
#include "sync/Boundary.h"
#include "sync/MrouteSm.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace {

using FalHelper::MrouteSmHelper;
using Routing::Multicast::Fib::IpGenRouteKey;

constexpr char kMustImplement[] = "This function must be implemented by derived class";

class MrouteSmHelperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("FAL_NOOP_AGENT");
    previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  }
  void TearDown() override {
    unsetenv("FAL_NOOP_AGENT");
    Vex::fatalHandlerIs(previous_);
  }
  Vex::Ptr<MrouteSmHelper> helper_ = Vex::make<MrouteSmHelper>("helper");
  IpGenRouteKey key_ = IpGenRouteKey::wildcard();
  Vex::FatalHandler previous_;
};

struct RequiredHook {
  char const* name;
  // Calls the hook and says whether its result is the neutral one.
  std::function<bool(MrouteSmHelper&, IpGenRouteKey const&)> callNeutral;
};

RequiredHook const kRequiredHooks[] = {
    {"mrouteInit", [](auto& h, auto&) { return h.mrouteInit(true), true; }},
    {"handleMulticastRouting", [](auto& h, auto&) { return h.handleMulticastRouting(true), true; }},
    {"verifyMulticastRouting", [](auto& h, auto&) { return h.verifyMulticastRouting(true), true; }},
    {"mrouteSwitchInit", [](auto& h, auto&) { return h.mrouteSwitchInit(1, true), true; }},
    {"doAllocateMtableOifSet", [](auto& h, auto&) { return h.doAllocateMtableOifSet(1, 0, nullptr) == 0; }},
    {"doReallocateMtableOifSet", [](auto& h, auto&) { return h.doReallocateMtableOifSet(1, 5, nullptr) == 0; }},
    {"handleFreeMtableOifSet", [](auto& h, auto&) { return h.handleFreeMtableOifSet(1, nullptr), true; }},
    {"doAllocateMroute",
     [](auto& h, auto& k) {
       return h.doAllocateMroute(1, 0, k, Bridging::VlanIdOrNone(5), false, 3, false, 0) == MrouteLib::RouteHandle(0);
     }},
    {"doAllocateMrouteNoRpf",
     [](auto& h, auto& k) { return h.doAllocateMrouteNoRpf(1, 0, k, false, 3, false, 0) == MrouteLib::RouteHandle(0); }},
    {"doSetMtableOifSet", [](auto& h, auto&) { return h.doSetMtableOifSet(1, 0, MrouteLib::RouteHandle(1), nullptr, 3), true; }},
    {"doDeleteMroute", [](auto& h, auto&) { return h.doDeleteMroute(1, 0, MrouteLib::RouteHandle(1), nullptr), true; }},
    {"doDeleteMrouteBoundary",
     [](auto& h, auto&) { return h.doDeleteMrouteBoundary(1, 0, MrouteLib::RouteHandle(1), nullptr), true; }},
    {"mrouteFull", [](auto& h, auto&) { return !h.mrouteFull(1); }},
    {"mrouteBoundaryFull", [](auto& h, auto&) { return !h.mrouteBoundaryFull(1); }},
    {"mtableFull", [](auto& h, auto&) { return !h.mtableFull(1); }},
    {"mrouteHitBit", [](auto& h, auto& k) { return !h.mrouteHitBit(1, 0, k, Bridging::VlanIdOrNone(0), false); }},
    {"verifyMroute", [](auto& h, auto&) { return h.verifyMroute(1, 0, nullptr), true; }},
    {"verifyMrouteBoundary", [](auto& h, auto&) { return h.verifyMrouteBoundary(1, 0, nullptr), true; }},
};

class RequiredHookTest : public MrouteSmHelperTest, public ::testing::WithParamInterface<RequiredHook> {};

TEST_P(RequiredHookTest, StopsTheAgentUnlessNoopAgentIsSet) {
  auto const& hook = GetParam();
  try {
    hook.callNeutral(*helper_, key_);
    FAIL() << hook.name << " returned without FAL_NOOP_AGENT";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), kMustImplement);
  }
  setenv("FAL_NOOP_AGENT", "1", 1);
  EXPECT_TRUE(hook.callNeutral(*helper_, key_)) << hook.name << " must yield a neutral result";
  // The variable is read on every call, not once.
  unsetenv("FAL_NOOP_AGENT");
  EXPECT_THROW(hook.callNeutral(*helper_, key_), Vex::FatalError);
}

INSTANTIATE_TEST_SUITE_P(AllRequired, RequiredHookTest, ::testing::ValuesIn(kRequiredHooks),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(MrouteSmHelperTest, OptionalHooksHaveFixedDefaults) {
  MrouteLib::PortVlanSet pvs;
  EXPECT_TRUE(helper_->mrouteHitBitCacheRefresh(1));
  EXPECT_TRUE(helper_->verifyZombieUsable(pvs, 7));
  EXPECT_FALSE(helper_->verifyOifSetCache(nullptr));
  EXPECT_FALSE(helper_->doCreateMrouteCounter(0, key_));
  EXPECT_FALSE(helper_->doClearMrouteCounter(key_));
  EXPECT_EQ(helper_->doReadMrouteCounter(key_), 0);
  EXPECT_NO_THROW(helper_->handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode{}));
  EXPECT_NO_THROW(helper_->doDeleteMrouteCounter(key_));
  EXPECT_NO_THROW(helper_->ageOutHwMcastCounter(key_));
  EXPECT_NO_THROW(helper_->mrouteHitBitCacheClear(1));
  EXPECT_NO_THROW(helper_->triggerRouteAgingReview());
  EXPECT_NO_THROW(helper_->doCommitMrouteBatch());
  EXPECT_TRUE(helper_->hasBackupSupport());
  EXPECT_EQ(helper_->fwkType(), "FalHelper::MrouteSmHelper");
  EXPECT_EQ(helper_->mrouteSm(), nullptr);
}

class CommittingHelper : public MrouteSmHelper {
 public:
  using MrouteSmHelper::MrouteSmHelper;
  void doCommitMrouteBatch() override { ++commits; }
  int commits = 0;
};

TEST_F(MrouteSmHelperTest, OnlyDefaultsOfOptionalHooksAreMarkedSkippable) {
  using Hook = MrouteSmHelper::OptionalHook;
  EXPECT_FALSE(helper_->isDefault(Hook::doCommitMrouteBatch));
  helper_->doCommitMrouteBatch();
  helper_->addOifSetCache(nullptr);
  EXPECT_TRUE(helper_->isDefault(Hook::doCommitMrouteBatch));
  EXPECT_TRUE(helper_->isDefault(Hook::addOifSetCache));
  EXPECT_FALSE(helper_->isDefault(Hook::deleteOifSetCache));

  auto overriding = Vex::make<CommittingHelper>("chip");
  overriding->doCommitMrouteBatch();
  EXPECT_EQ(overriding->commits, 1);
  EXPECT_FALSE(overriding->isDefault(Hook::doCommitMrouteBatch));
}

}  // namespace
