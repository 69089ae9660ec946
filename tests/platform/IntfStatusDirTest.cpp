#include <vector>

#include <gtest/gtest.h>

#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/vex/Strep.h"

namespace {

using Netcore::IntfId;

template <class Dir>
class IntfStatusDirTest : public ::testing::Test {
 protected:
  class Log : public Dir::Notifiee {
   public:
    void onIntfStatus(IntfId const& i) override { events.push_back(i); }
    std::vector<IntfId> events;
  };
};
using Dirs = ::testing::Types<Interface::EthIntfStatusDir, Interface::AllIntfStatusDir, Interface::AllIntfStatusLocalDir>;
TYPED_TEST_SUITE(IntfStatusDirTest, Dirs);

TYPED_TEST(IntfStatusDirTest, NotifiesAddAndRemoveAndIteratesInIdOrderThroughRemoval) {
  auto dir = Vex::make<TypeParam>();
  typename TestFixture::Log log;
  log.notifierIs(dir);
  for (std::uint32_t n : {7u, 1u, 4u}) dir->intfStatusIs(IntfId::ethernet(n));
  EXPECT_EQ(dir->intfStatusIs(IntfId::ethernet(7)), dir->intfStatus(IntfId::ethernet(7)));
  dir->intfStatusDel(IntfId::ethernet(9));
  EXPECT_EQ(log.events.size(), 3u);

  std::vector<IntfId> seen;
  for (auto it = dir->intfStatusIter(); it; ++it) {
    seen.push_back(it.key());
    dir->intfStatusDel(it.key());
  }
  EXPECT_EQ(seen, (std::vector<IntfId>{IntfId::ethernet(1), IntfId::ethernet(4), IntfId::ethernet(7)}));
  EXPECT_EQ(std::vector<IntfId>(log.events.begin() + 3, log.events.end()), seen);
  EXPECT_EQ(dir->intfStatus(IntfId::ethernet(1)), nullptr);
  EXPECT_EQ(dir->intfStatusSize(), 0u);
}

class OperStatusLog : public Interface::EthIntfStatus::Notifiee {
 public:
  void onOperStatus() override { ++count; }
  int count = 0;
};

TEST(IntfEthIntfStatus, OperStatusNotifiesOnChangeOnlyAndReadsByName) {
  auto s = Vex::make<Interface::EthIntfStatus>(IntfId::ethernet(3));
  OperStatusLog log;
  log.notifierIs(s);
  s->operStatusIs(Interface::intfOperDown);
  s->operStatusIs(Interface::IntfOperStatus::intfOperDown);
  EXPECT_EQ(log.count, 1);
  EXPECT_EQ(Vex::strep(s->operStatus()), "intfOperDown");
  EXPECT_EQ(Vex::parse<Interface::IntfOperStatus>("intfOperLowerLayerDown"), 7);
  EXPECT_NE(Vex::enumTypeByName("Interface::IntfOperStatus"), nullptr);
}

}  // namespace
