// FalHelper::AsyncMrouteHelper: the defaults of its hooks, FAL_NOOP_AGENT,
// and the two counter key sets.
#include <gtest/gtest.h>

#include <cstdlib>
#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "model/AsyncMrouteHelper.h"
#include "platform/vex/Assert.h"

namespace {

using Fal::Mroute::MrouteCounterKey;
using FalHelper::AsyncMrouteHelper;
using FalHelper::MrouteXactType;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::RouteKeyType;

constexpr char kMustImplement[] = "This function must be implemented by derived class";

IpGenRouteKey sg(std::uint32_t n) {
  return IpGenRouteKey(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + n), 32),
                       Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF000001U), 32));
}

class AsyncMrouteHelperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("FAL_NOOP_AGENT");
    previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  }
  void TearDown() override {
    unsetenv("FAL_NOOP_AGENT");
    Vex::fatalHandlerIs(previous_);
  }
  Vex::Ptr<FlexCounters::CounterKeyTable> keys_ = Vex::make<FlexCounters::CounterKeyTable>("flex", 1, 16);
  Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> map_ = Fal::Mroute::mrouteCounterKeyMapTableFactory("map");
  Vex::Ptr<AsyncMrouteHelper> helper_ = Vex::make<AsyncMrouteHelper>("helper", keys_, map_);
  Vex::FatalHandler previous_;
};

struct RequiredHook {
  char const* name;
  // Calls the hook and says whether its result is the neutral one.
  std::function<bool(AsyncMrouteHelper&)> callNeutral;
};

void PrintTo(RequiredHook const& h, std::ostream* os) { *os << h.name; }

MrouteLib::RouteHandle const kHandle(5);

RequiredHook const kRequiredHooks[] = {
    {"doAllocateSharableMulticastGroup",
     [](auto& h) { return h.doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo{}, nullptr, nullptr, false) == 0; }},
    {"doAllocateFixedMulticastGroup", [](auto& h) { return h.doAllocateFixedMulticastGroup(nullptr, nullptr, 9) == 0; }},
    {"doUpdateMulticastGroupInPlace", [](auto& h) { return h.doUpdateMulticastGroupInPlace(nullptr, 9), true; }},
    {"doGetXactForOifSet", [](auto& h) { return h.doGetXactForOifSet(9) == nullptr; }},
    {"doGetXactFailureReason", [](auto& h) { return h.doGetXactFailureReason(nullptr, MrouteXactType::ingress) == 0; }},
    {"doDeleteOifSet", [](auto& h) { return h.doDeleteOifSet(9), true; }},
    {"doAllocateRoute",
     [](auto& h) {
       return h.doAllocateRoute(sg(1), Bridging::VlanIdOrNone(10), false, 0, 0, false) == MrouteLib::RouteHandle(0);
     }},
    {"doSetMtableOifSet", [](auto& h) { return h.doSetMtableOifSet(kHandle, 9, nullptr), true; }},
    {"doGetXactForIngress", [](auto& h) { return h.doGetXactForIngress(kHandle) == nullptr; }},
    {"doDeleteRoute", [](auto& h) { return h.doDeleteRoute(kHandle), true; }},
    {"routeLastAccessedTime", [](auto& h) { return h.routeLastAccessedTime(kHandle) == 0.0; }},
};

class AsyncRequiredHookTest : public AsyncMrouteHelperTest, public ::testing::WithParamInterface<RequiredHook> {};

TEST_P(AsyncRequiredHookTest, StopsTheAgentUnlessNoopAgentIsSetReadOnEveryCall) {
  auto const& hook = GetParam();
  try {
    hook.callNeutral(*helper_);
    FAIL() << hook.name << " returned without FAL_NOOP_AGENT";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), kMustImplement);
  }
  setenv("FAL_NOOP_AGENT", "", 1);
  EXPECT_TRUE(hook.callNeutral(*helper_)) << hook.name << " must yield a neutral result; set to anything, even empty";
  unsetenv("FAL_NOOP_AGENT");
  EXPECT_THROW(hook.callNeutral(*helper_), Vex::FatalError) << "the variable is read again on the next call";
}

INSTANTIATE_TEST_SUITE_P(AllRequired, AsyncRequiredHookTest, ::testing::ValuesIn(kRequiredHooks),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncMrouteHelperTest, OtherHooksHaveFixedDefaultsWithoutNoopAgent) {
  EXPECT_FALSE(helper_->hasBackupSupport());
  EXPECT_NO_THROW(helper_->handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode::bytes));
  EXPECT_NO_THROW(helper_->handleWildcardCounter(true));
  EXPECT_TRUE(helper_->doCreateMrouteCounter(3, sg(1)));
  EXPECT_TRUE(helper_->doDeleteMrouteCounter(3, sg(1)));
  EXPECT_FALSE(helper_->needFixedOifSet(RouteKeyType::ipv4SG));
  EXPECT_TRUE(helper_->needIngressProgramming(RouteKeyType::ipv6StarG));
  EXPECT_TRUE(helper_->mcastIdReusable(17));
  EXPECT_FALSE(helper_->mcastIdIsValid(0xFFFFFFFF));
  EXPECT_TRUE(helper_->mcastIdIsValid(0));
  EXPECT_TRUE(helper_->mcastIdIsValid(0xFFFFFFFE));
  EXPECT_EQ(helper_->doGetAdjustedPollingInterval(1.5, Netcore::AddressFamily::ipv4), 1.5);
  EXPECT_EQ(helper_->doGetAdjustedActivityPollInterval(7.0, Netcore::AddressFamily::ipv6), 7.0);
  EXPECT_NO_THROW(helper_->doScheduleVerify());
  EXPECT_EQ(helper_->fwkType(), "FalHelper::AsyncMrouteHelper");
  EXPECT_EQ(helper_->name(), "helper");
}

TEST_F(AsyncMrouteHelperTest, HoldsCountedReferencesToBothTables) {
  EXPECT_EQ(helper_->activeCounterKeyTable(), keys_);
  EXPECT_EQ(helper_->mrouteCounterKeyMapTable(), map_);
  auto const before = keys_->references();
  auto other = Vex::make<AsyncMrouteHelper>("other", keys_, map_);
  EXPECT_EQ(keys_->references(), before + 1);
  other = nullptr;
  EXPECT_EQ(keys_->references(), before);
}

// ---- the two key sets, one test body ----

struct KeySetOps {
  char const* name;
  std::optional<bool> (AsyncMrouteHelper::*get)(MrouteCounterKey const&) const;
  void (AsyncMrouteHelper::*set)(MrouteCounterKey const&, bool);
  bool (AsyncMrouteHelper::*del)(MrouteCounterKey const&);
  void (AsyncMrouteHelper::*delAll)();
  std::size_t (AsyncMrouteHelper::*size)() const;
};

void PrintTo(KeySetOps const& k, std::ostream* os) { *os << k.name; }

KeySetOps const kKeySets[] = {
    {"deletedMrouteCounterKey", &AsyncMrouteHelper::deletedMrouteCounterKey, &AsyncMrouteHelper::deletedMrouteCounterKeyIs,
     &AsyncMrouteHelper::deletedMrouteCounterKeyDel, &AsyncMrouteHelper::deletedMrouteCounterKeyDelAll,
     &AsyncMrouteHelper::deletedMrouteCounterKeySize},
    {"noHwCounterMrouteKey", &AsyncMrouteHelper::noHwCounterMrouteKey, &AsyncMrouteHelper::noHwCounterMrouteKeyIs,
     &AsyncMrouteHelper::noHwCounterMrouteKeyDel, &AsyncMrouteHelper::noHwCounterMrouteKeyDelAll,
     &AsyncMrouteHelper::noHwCounterMrouteKeySize},
};

// Records which set told which key, so a test also sees a set telling
// through the other's handler.
struct Told : AsyncMrouteHelper::Notifiee {
  std::vector<std::string> calls;
  void onDeletedMrouteCounterKey(MrouteCounterKey const& k) override {
    calls.push_back("deletedMrouteCounterKey " + std::to_string(k.vrfId));
  }
  void onNoHwCounterMrouteKey(MrouteCounterKey const& k) override {
    calls.push_back("noHwCounterMrouteKey " + std::to_string(k.vrfId));
  }
};

class KeySetTest : public AsyncMrouteHelperTest, public ::testing::WithParamInterface<KeySetOps> {
 protected:
  void SetUp() override {
    AsyncMrouteHelperTest::SetUp();
    told_.notifierIs(helper_);
  }
  std::string call(std::uint32_t vrf) const { return std::string(GetParam().name) + " " + std::to_string(vrf); }
  Told told_;
};

TEST_P(KeySetTest, OnlyARealChangeIsTold) {
  auto const& ops = GetParam();
  AsyncMrouteHelper& h = *helper_;
  MrouteCounterKey const k(7, sg(1));
  (h.*ops.set)(k, true);
  (h.*ops.set)(k, true);
  EXPECT_EQ(told_.calls, std::vector<std::string>{call(7)}) << "the same value again tells nobody";
  (h.*ops.set)(k, false);
  EXPECT_EQ(told_.calls, (std::vector<std::string>{call(7), call(7)})) << "another value is a change";
  EXPECT_EQ((h.*ops.get)(k), false);
  EXPECT_EQ((h.*ops.get)(MrouteCounterKey(8, sg(1))), std::nullopt);

  told_.calls.clear();
  EXPECT_TRUE((h.*ops.del)(k));
  EXPECT_FALSE((h.*ops.del)(k)) << "deleting an absent key is not an error";
  EXPECT_EQ(told_.calls, std::vector<std::string>{call(7)});
  EXPECT_EQ((h.*ops.size)(), 0U);
}

TEST_P(KeySetTest, DelAllOfThreeKeysTellsEachOnce) {
  auto const& ops = GetParam();
  AsyncMrouteHelper& h = *helper_;
  for (std::uint32_t vrf : {1U, 2U, 3U}) (h.*ops.set)(MrouteCounterKey(vrf, sg(vrf)), true);
  told_.calls.clear();
  (h.*ops.delAll)();
  std::sort(told_.calls.begin(), told_.calls.end());
  EXPECT_EQ(told_.calls, (std::vector<std::string>{call(1), call(2), call(3)}));
  EXPECT_EQ((h.*ops.size)(), 0U);
  told_.calls.clear();
  (h.*ops.delAll)();
  EXPECT_TRUE(told_.calls.empty()) << "an empty set has nothing to tell";
}

INSTANTIATE_TEST_SUITE_P(BothSets, KeySetTest, ::testing::ValuesIn(kKeySets),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncMrouteHelperTest, KeySetsAreApart) {
  MrouteCounterKey const k(4, sg(4));
  helper_->deletedMrouteCounterKeyIs(k, true);
  EXPECT_EQ(helper_->noHwCounterMrouteKey(k), std::nullopt);
  EXPECT_EQ(helper_->deletedMrouteCounterKeySize(), 1U);
  EXPECT_EQ(helper_->noHwCounterMrouteKeySize(), 0U);
  auto it = helper_->deletedMrouteCounterKeyIterator();
  ASSERT_FALSE(it.done());
  EXPECT_EQ(it.key(), k);
  EXPECT_TRUE(it.value());
}

}  // namespace
