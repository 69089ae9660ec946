#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/VerifyData.h"

namespace {

class VerifyLog : public Fal::VerifyData::Notifiee {
 public:
  void onVerify() override { events.push_back("verify"); }
  void onVerifyRequests() override { events.push_back("requests"); }
  std::vector<std::string> events;
};

TEST(FalVerifyData, EachRequestCountsAndWakesVerificationReactorsWhileTheFlagNotifiesOnChangeOnly) {
  auto v = Vex::make<Fal::VerifyData>();
  VerifyLog log;
  log.notifierIs(v);
  v->verifyIs(false);
  v->verifyIs(true);
  v->verifyIs(true);
  v->doRequestVerify();
  v->doRequestVerify();
  EXPECT_EQ(v->verifyRequests(), 2u);
  EXPECT_EQ(log.events, (std::vector<std::string>{"verify", "requests", "verify", "requests", "verify"}));
}

TEST(FalCommonSmData, ReadOnlyHoldersStillRequestVerificationThroughItsVerifyData) {
  auto verify = Vex::make<Fal::VerifyData>(true);
  auto acsd = Vex::make<Fal::FalCommonSmData>(verify);
  Vex::Ptr<Fal::FalCommonSmData const> readOnly = acsd;
  readOnly->verifyData()->doRequestVerify();
  EXPECT_EQ(verify->verifyRequests(), 1u);
}

}  // namespace
