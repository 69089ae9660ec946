#include <vector>

#include <gtest/gtest.h>

#include "platform/intf/IntfVlanIdTable.h"

namespace {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Netcore::IntfId;

class IntfIdLog : public IntfVlanId::Table::Notifiee {
 public:
  void onIntfId(IntfId const& i) override { events.push_back(i); }
  std::vector<IntfId> events;
};

TEST(IntfVlanIdTable, MapsBothWaysAndRemappingEitherSideDropsTheOldPairing) {
  auto t = Vex::make<IntfVlanId::Table>();
  IntfIdLog log;
  log.notifierIs(t);
  EXPECT_EQ(t->intfIdToVlanId(IntfId::vlan(10)), VlanIdOrNone(0));
  EXPECT_TRUE(t->vlanIdToIntfId(VlanId(10)).isEmpty());

  t->mappingIs(IntfId::vlan(10), VlanId(10));
  t->mappingIs(IntfId::vlan(10), VlanId(10));
  t->mappingIs(IntfId::vlan(20), VlanId(20));
  EXPECT_EQ(t->intfIdToVlanId(IntfId::vlan(10)), VlanIdOrNone(10));
  EXPECT_EQ(t->vlanIdToIntfId(VlanId(20)), IntfId::vlan(20));

  t->mappingIs(IntfId::vlan(10), VlanId(11));  // the interface changes VLAN
  EXPECT_TRUE(t->vlanIdToIntfId(VlanId(10)).isEmpty());
  EXPECT_EQ(t->vlanIdToIntfId(VlanId(11)), IntfId::vlan(10));

  t->mappingIs(IntfId::vlan(30), VlanId(20));  // the VLAN changes interface
  EXPECT_EQ(t->intfIdToVlanId(IntfId::vlan(20)), VlanIdOrNone(0));
  EXPECT_EQ(t->vlanIdToIntfId(VlanId(20)), IntfId::vlan(30));
  EXPECT_EQ(t->mappingSize(), 2u);

  t->mappingDel(IntfId::vlan(30));
  t->mappingDel(IntfId::vlan(99));
  EXPECT_TRUE(t->vlanIdToIntfId(VlanId(20)).isEmpty());
  EXPECT_EQ(log.events, (std::vector<IntfId>{IntfId::vlan(10), IntfId::vlan(20), IntfId::vlan(10), IntfId::vlan(20),
                                             IntfId::vlan(30), IntfId::vlan(30)}));
}

}  // namespace
