#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/fal/L3Status.h"

namespace {

class L3StatusLog : public Fal::L3Status::Notifiee {
 public:
  void onMulticastRoutingEnabled() override { events.push_back("multicastRoutingEnabled"); }
  void onNumTimesMcastRoutingEnabled() override { events.push_back("numTimes"); }
  void onMrouteZombieEnabled() override { events.push_back("mrouteZombieEnabled"); }
  void onWaitForRoutingDisabledRefCnt() override { events.push_back("waitRefCnt"); }
  void onVrfNameToId(L3::VrfName const& n) override { events.push_back("name:" + n.stringValue()); }
  void onVrfIdToName(Fal::VrfId const& id) override { events.push_back("id:" + std::to_string(id)); }
  std::vector<std::string> events;
};

TEST(FalL3Status, VrfMapsStayInverseAndTellEveryAffectedKeyOnce) {
  auto l3 = Vex::make<Fal::L3Status>();
  L3StatusLog log;
  log.notifierIs(l3);
  l3->vrfIs("red", 5);
  l3->vrfIs("red", 5);
  l3->vrfDel("absent");
  l3->vrfIs("blue", 6);
  log.events.clear();

  l3->vrfIs("red", 6);  // red leaves 5 and takes 6 from blue
  EXPECT_EQ(log.events, (std::vector<std::string>{"name:blue", "id:5", "name:red", "id:6"}));
  EXPECT_EQ(l3->vrfNameToId("red"), 6u);
  EXPECT_EQ(l3->vrfIdToName(6), L3::VrfName("red"));
  EXPECT_EQ(l3->vrfIdToName(5), std::nullopt);
  EXPECT_EQ(l3->vrfNameToId("blue"), std::nullopt);
  EXPECT_EQ(l3->vrfIdToNameColl().size(), 1u);

  l3->vrfDel("red");
  EXPECT_EQ(l3->vrfIdToName(6), std::nullopt);
  EXPECT_EQ(l3->vrfNameToIdSize(), 0u);
  EXPECT_TRUE(l3->vrfIdToNameColl().empty());
}

TEST(FalL3Status, AttributesAndCountersNotifyOnChangeOnly) {
  auto l3 = Vex::make<Fal::L3Status>();
  L3StatusLog log;
  log.notifierIs(l3);
  EXPECT_TRUE(l3->mrouteZombieEnabled());
  l3->mrouteZombieEnabledIs(true);
  l3->multicastRoutingEnabledIs(false);
  l3->numTimesMcastRoutingEnabledInc(0);
  l3->multicastRoutingEnabledIs(true);
  l3->numTimesMcastRoutingEnabledInc(2);
  l3->waitForRoutingDisabledRefCntInc(1);
  l3->mrouteZombieEnabledIs(false);
  EXPECT_EQ(l3->numTimesMcastRoutingEnabled(), 2u);
  EXPECT_EQ(log.events,
            (std::vector<std::string>{"multicastRoutingEnabled", "numTimes", "waitRefCnt", "mrouteZombieEnabled"}));
}

}  // namespace
