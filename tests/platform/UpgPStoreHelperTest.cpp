#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/upg/RapidJson.h"
#include "platform/upg/UpgPStoreHelper.h"

namespace {

// Keeps the string members of its section, in document order.
class RecordingStoreHelper : public Upg::UpgPStoreHelper {
 public:
  using UpgPStoreHelper::UpgPStoreHelper;
  void doRestore(rapidjson::Value const& section) override {
    ++restores;
    for (auto const& m : section.GetObject()) seen.push_back(std::string(m.name.GetString()) + "=" + m.value.GetString());
  }
  int restores = 0;
  std::vector<std::string> seen;
};

class UpgPStoreHelperTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override { Vex::fatalHandlerIs(previous_); }

  static std::string fatalText(auto&& f) {
    try {
      f();
    } catch (Vex::FatalError const& e) {
      return e.what();
    }
    return "<no fatal>";
  }

 private:
  Vex::FatalHandler previous_;
};

TEST_F(UpgPStoreHelperTest, RestoreHandsOnlyItsOwnSectionToDoRestore) {
  auto helper = Vex::make<RecordingStoreHelper>("FalMroute");
  EXPECT_TRUE(helper->restore(R"({"Other": {"x": "no"}, "FalMroute": {"a": "1", "b": "2"}})"));
  EXPECT_EQ(helper->seen, (std::vector<std::string>{"a=1", "b=2"}));
  EXPECT_FALSE(helper->restore(R"({"Other": {}})"));
  EXPECT_EQ(helper->restores, 1);
}

TEST_F(UpgPStoreHelperTest, DocumentThatIsNotAJsonObjectIsARestoreError) {
  auto helper = Vex::make<RecordingStoreHelper>("FalMroute");
  EXPECT_THROW(helper->restore(R"({"FalMroute": )"), Upg::RestoreError);
  EXPECT_THROW(helper->restore("[1, 2]"), Upg::RestoreError);
  EXPECT_EQ(helper->restores, 0);
}

TEST_F(UpgPStoreHelperTest, RapidJsonTypeAndIndexChecksReachTheFatalHandler) {
  rapidjson::Document d;
  d.Parse(R"({"vrf": ["10.0.0.0/8"]})");
  EXPECT_EQ(fatalText([&] { d.GetArray(); }), "IsArray()");
  EXPECT_EQ(fatalText([&] { d["vrf"].GetObject(); }), "IsObject()");
  EXPECT_EQ(fatalText([&] { d["vrf"][1]; }), "index < data_.a.size");
  EXPECT_EQ(fatalText([&] { d["vrf"][0].GetString(); }), "<no fatal>");
}

TEST_F(UpgPStoreHelperTest, MalformedSectionStopsInsideDoRestore) {
  auto helper = Vex::make<RecordingStoreHelper>("FalMroute");
  EXPECT_EQ(fatalText([&] { helper->restore(R"({"FalMroute": []})"); }), "IsObject()");
}

}  // namespace
