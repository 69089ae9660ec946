#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/upg/RapidJson.h"
#include "platform/vex/Assert.h"
#include "recovery/UpgPStoreHelper.h"
#include "tests/recovery/TraceCapture.h"

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::Hardware::Status;
using Netcore::IntfId;
using Netcore::IpGenPrefix;

IpGenRouteKey routeKey(char const* source, char const* group) { return IpGenRouteKey(IpGenPrefix(source), IpGenPrefix(group)); }

class UpgPStoreHelperTest : public ::testing::Test {
 protected:
  UpgPStoreHelperTest() { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  ~UpgPStoreHelperTest() override { Vex::fatalHandlerIs(previous_); }

  rapidjson::Document parse(std::string const& json) {
    rapidjson::Document d;
    d.Parse(json.data(), json.size());
    EXPECT_FALSE(d.HasParseError()) << json;
    return d;
  }
  // The text of the fatal stop doRestore made, or "<no fatal>".
  std::string restoreFault(rapidjson::Value const& document) {
    try {
      helper_->doRestore(document);
    } catch (Vex::FatalError const& e) {
      return e.what();
    }
    return "<no fatal>";
  }
  // The accepting interface of a restored route; "<absent>" when there is no such route.
  std::string accepting(char const* vrf, char const* source, char const* group) const {
    auto v = std::as_const(*hw_).vrfStatus(vrf);
    auto r = v ? v->route(routeKey(source, group)) : nullptr;
    return r ? r->acceptingIntfId().stringValue() : "<absent>";
  }

  Vex::Ptr<Status> hw_ = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Fal::Mroute::UpgPStoreHelper> helper_ = Fal::Mroute::upgPStoreHelperFactory(hw_);

 private:
  Vex::FatalHandler previous_;
};

TEST_F(UpgPStoreHelperTest, FactoryMakesTheFalMrouteStoreOverTheGivenStatus) {
  EXPECT_EQ(helper_->storeName(), "FalMroute");
  EXPECT_EQ(helper_->fwkType(), "Fal::Mroute::UpgPStoreHelper");
  EXPECT_EQ(helper_->mfibHwStatus(), hw_);
  Vex::Ptr<Upg::UpgPStoreHelper> base = helper_;
  EXPECT_EQ(base->fwkType(), "Fal::Mroute::UpgPStoreHelper");
}

TEST_F(UpgPStoreHelperTest, RestoresEveryVrfAndRouteAndTheLastAcceptingInterfaceWins) {
  FalMrouteTest::TraceCapture trace("FalMroute", 0, 9);
  auto const doc = parse(R"({"mfibSgEntries": {
      "default": [["10.0.0.1/32", "239.1.1.1/32", "Vlan100"],
                  ["0.0.0.0/0", "239.1.1.2", "Vlan100"],
                  ["10.0.0.1", "239.1.1.1", "Vlan200"]],
      "red": [["2001:db8::1/128", "ff3e::1/128", "Vlan300"],
              ["::/0", "ff3e::2", ""],
              ["10.1.1.1", "239.5.5.5", "Port-Channel5"]],
      "idle": []}})");

  EXPECT_EQ(restoreFault(doc), "<no fatal>");

  EXPECT_EQ(hw_->vrfStatusSize(), 3u);
  EXPECT_EQ(hw_->vrfStatus("default")->routeSize(), 2u);
  EXPECT_EQ(accepting("default", "10.0.0.1", "239.1.1.1"), "Vlan200");
  EXPECT_EQ(accepting("default", "0.0.0.0/0", "239.1.1.2"), "Vlan100");
  EXPECT_EQ(hw_->vrfStatus("red")->routeSize(), 3u);
  EXPECT_EQ(accepting("red", "2001:db8::1", "ff3e::1"), "Vlan300");
  EXPECT_EQ(accepting("red", "::/0", "ff3e::2"), "");
  EXPECT_EQ(accepting("red", "10.1.1.1", "239.5.5.5"), "Port-Channel5");
  ASSERT_TRUE(hw_->vrfStatus("idle"));
  EXPECT_EQ(hw_->vrfStatus("idle")->routeSize(), 0u);

  std::string const s = "8 FalMrouteUpgPStoreHelper ";
  EXPECT_EQ(trace.lines(), (std::vector<std::string>{
                               s + "doRestore",
                               s + " Processing vrf default",
                               s + "  10.0.0.1/32 239.1.1.1/32 Vlan100",
                               s + "  0.0.0.0/0 239.1.1.2/32 Vlan100",
                               s + "  10.0.0.1/32 239.1.1.1/32 Vlan200",
                               s + " Processing vrf red",
                               s + "  2001:db8::1/128 ff3e::1/128 Vlan300",
                               s + "  ::/0 ff3e::2/128 ",
                               s + "  10.1.1.1/32 239.5.5.5/32 Port-Channel5",
                               s + " Processing vrf idle",
                           }));
}

TEST_F(UpgPStoreHelperTest, EmptyDocumentAndEmptyEntriesRestoreNothing) {
  EXPECT_EQ(restoreFault(parse("{}")), "<no fatal>");
  EXPECT_EQ(restoreFault(parse(R"({"mfibSgEntries": {}})")), "<no fatal>");
  EXPECT_EQ(hw_->vrfStatusSize(), 0u);
}

TEST_F(UpgPStoreHelperTest, RestoreAddsToTheStatusWithoutClearingIt) {
  hw_->vrfStatusIs("blue")->routeIs(routeKey("10.9.9.9", "239.9.9.9"))->acceptingIntfIdIs(IntfId::vlan(9));
  hw_->vrfStatusIs("red")->routeIs(routeKey("10.0.0.1", "239.1.1.1"))->acceptingIntfIdIs(IntfId::vlan(9));
  EXPECT_EQ(restoreFault(parse(R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Ethernet4"]]}})")), "<no fatal>");
  EXPECT_EQ(accepting("blue", "10.9.9.9", "239.9.9.9"), "Vlan9");
  EXPECT_EQ(accepting("red", "10.0.0.1", "239.1.1.1"), "Ethernet4");
  EXPECT_EQ(hw_->routes(), 2u);
}

TEST_F(UpgPStoreHelperTest, FrameworkRestoreHandsOverOnlyTheFalMrouteSection) {
  EXPECT_TRUE(helper_->restore(R"({"Other": {"mfibSgEntries": {"x": [["10.0.0.9", "239.0.0.9", ""]]}},
                                   "FalMroute": {"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Vlan5"]]}}})"));
  EXPECT_EQ(hw_->vrfStatusSize(), 1u);
  EXPECT_EQ(accepting("red", "10.0.0.1", "239.1.1.1"), "Vlan5");
}

// Member names are strings in any parsed document; only a value built or
// altered in memory can carry another type.
TEST_F(UpgPStoreHelperTest, MemberNameThatIsNotAStringIsFatal) {
  auto top = parse(R"({"mfibSgEntries": {}})");
  top.MemberBegin()->name.SetInt(1);
  EXPECT_EQ(restoreFault(top), "name.IsString()");

  auto vrf = parse(R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", ""]], "blue": []}})");
  vrf["mfibSgEntries"].MemberBegin()[1].name.SetNull();
  EXPECT_EQ(restoreFault(vrf), "name.IsString()");
  EXPECT_EQ(hw_->routes(), 1u);
}

TEST_F(UpgPStoreHelperTest, VrfNameOverItsMaximumLengthIsARangeErrorAfterEarlierVrfs) {
  std::string const longName(101, 'v');
  auto const doc = parse(R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Vlan1"]], ")" + longName + R"(": []}})");
  try {
    helper_->doRestore(doc);
    ADD_FAILURE() << "a 101-byte VRF name was accepted";
  } catch (Vex::RangeException const& e) {
    EXPECT_STREQ(e.what(), "VrfName::bytes > VrfName::maxLength not allowed");
  }
  EXPECT_EQ(accepting("red", "10.0.0.1", "239.1.1.1"), "Vlan1");
  EXPECT_EQ(hw_->vrfStatusSize(), 1u);

  auto const atLimit = parse(R"({"mfibSgEntries": {")" + std::string(100, 'v') + R"(": []}})");
  EXPECT_EQ(restoreFault(atLimit), "<no fatal>");
  EXPECT_EQ(hw_->vrfStatusSize(), 2u);
}

struct Malformed {
  char const* name;
  char const* json;
  char const* fault;
  std::size_t routesKept;  // restored before the fault, and still there after it
};
void PrintTo(Malformed const& m, std::ostream* os) { *os << m.name; }

class UpgPStoreHelperMalformedTest : public UpgPStoreHelperTest, public ::testing::WithParamInterface<Malformed> {};

TEST_P(UpgPStoreHelperMalformedTest, StopsWithItsAssertionAndKeepsWhatWasRestored) {
  auto const doc = parse(GetParam().json);
  EXPECT_EQ(restoreFault(doc), GetParam().fault);
  EXPECT_EQ(hw_->routes(), GetParam().routesKept);
}

constexpr char const* kWrongKey = R"(key == "mfibSgEntries")";
constexpr char const* kNotObject = "entries.GetType() == rapidjson::kObjectType";
constexpr char const* kShort = "index < data_.a.size";

INSTANTIATE_TEST_SUITE_P(
    Documents, UpgPStoreHelperMalformedTest,
    ::testing::Values(
        Malformed{"DocumentIsAnArray", R"([])", "IsObject()", 0},
        Malformed{"DocumentIsAString", R"("mfibSgEntries")", "IsObject()", 0},
        Malformed{"OtherTopLevelKey", R"({"mfibSgEntry": {}})", kWrongKey, 0},
        Malformed{"SecondKeyAfterEntries", R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Vlan1"]]}, "version": 2})",
                  kWrongKey, 1},
        Malformed{"SecondKeyBeforeEntries", R"({"version": 2, "mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Vlan1"]]}})",
                  kWrongKey, 0},
        Malformed{"EntriesIsAnArray", R"({"mfibSgEntries": []})", kNotObject, 0},
        Malformed{"EntriesIsNull", R"({"mfibSgEntries": null})", kNotObject, 0},
        Malformed{"VrfIsAnObject", R"({"mfibSgEntries": {"red": {}}})", "IsArray()", 0},
        Malformed{"VrfIsAString", R"({"mfibSgEntries": {"red": "10.0.0.1"}})", "IsArray()", 0},
        Malformed{"EntryIsAString", R"({"mfibSgEntries": {"red": ["10.0.0.1"]}})", "IsArray()", 0},
        Malformed{"EntryIsEmpty", R"({"mfibSgEntries": {"red": [[]]}})", kShort, 0},
        Malformed{"EntryWithoutInterface", R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1"]]}})", kShort, 0},
        Malformed{"SourceIsANumber", R"({"mfibSgEntries": {"red": [[167772161, "239.1.1.1", "Vlan1"]]}})", "IsString()", 0},
        Malformed{"GroupIsNull", R"({"mfibSgEntries": {"red": [["10.0.0.1", null, "Vlan1"]]}})", "IsString()", 0},
        Malformed{"InterfaceIsANumber", R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", 100]]}})", "IsString()", 0},
        Malformed{"SourceIsNotAnAddress", R"({"mfibSgEntries": {"red": [["10.0.0.256", "239.1.1.1", "Vlan1"]]}})",
                  R"(invalid source prefix "10.0.0.256" in VRF red (expected an IPv4 address, got "10.0.0.256"))", 0},
        Malformed{"GroupLengthTooLong", R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1/33", "Vlan1"]]}})",
                  R"(invalid group prefix "239.1.1.1/33" in VRF red (expected a prefix length, got "239.1.1.1/33"))", 0},
        Malformed{"InterfaceIsNotAnInterfaceName", R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Eth1"]]}})",
                  R"(invalid accepting interface "Eth1" in VRF red (expected an interface name (Ethernet<n>, Vlan<n>, Port-Channel<n>, Cpu), got "Eth1"))",
                  0},
        Malformed{"FaultInALaterVrf",
                  R"({"mfibSgEntries": {"red": [["10.0.0.1", "239.1.1.1", "Vlan1"], ["10.0.0.2", "239.1.1.1", "Vlan1"]],
                                        "blue": [["10.0.0.3", "239.1.1.1", "Vlan2"], ["10.0.0.4", "239.1.1.1"]]}})",
                  kShort, 3}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
