#include <string>

#include <gtest/gtest.h>

#include "platform/fal/FalBaseHelper.h"
#include "platform/vex/Assert.h"

namespace {

TEST(FalBaseHelper, FalAssertStopsWithItsTextAndTheCallersPlaceOnlyWhenTheConditionFails) {
  auto previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  auto helper = Vex::make<Fal::FalBaseHelper>("chip0");
  EXPECT_NO_THROW(helper->falAssert(true, "never"));
  int line = 0;
  try {
    line = __LINE__, helper->falAssert(false, "oifSetIndex != invalid");
    ADD_FAILURE() << "falAssert(false, ...) returned";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "oifSetIndex != invalid");
    EXPECT_NE(std::string(e.file()).find("FalBaseHelperTest.cpp"), std::string::npos);
    EXPECT_EQ(e.line(), line);
  }
  try {
    helper->falAssert("This function must be implemented by derived class");
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "This function must be implemented by derived class");
  }
  Vex::fatalHandlerIs(previous);
}

}  // namespace
