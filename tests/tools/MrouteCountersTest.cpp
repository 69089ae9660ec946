// mroute-counters: reading the published counter tables of an agent, as a
// table and as JSON, in this process and from the program itself.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "platform/fib/CounterStatusCtl.h"
#include "platform/upg/RapidJson.h"
#include "tests/doubles/ShmNames.h"
#include "tools/CountersReport.h"
#include "tools/PublishedCounters.h"

extern char** environ;

namespace {

using Fal::Mroute::MrouteCounterKey;
using Fal::Mroute::MrouteCounterKeyMapEntry;
using FalMrouteTest::shmLeftovers;
using FalMrouteTest::uniqueShmName;
using FalTools::PublishedCounters;
using Memtab::CollectionControl;
using Memtab::Mode;
using Routing::Multicast::Fib::Counter;
using Routing::Multicast::Fib::CounterStatus;
using Routing::Multicast::Fib::CounterStatusCtl;
using Routing::Multicast::Fib::IpGenRouteKey;

IpGenRouteKey key(char const* s, char const* g) { return IpGenRouteKey(Netcore::IpGenPrefix(s), Netcore::IpGenPrefix(g)); }

// An agent's side: the counter status with its control record, and the
// counter key map, published under one base name.
struct PublishingAgent {
  explicit PublishingAgent(std::string const& base, bool withKeyMap = true)
      : status(Vex::make<CounterStatus>(CollectionControl::collectionControlIs(base + ".counterStatus", Mode::writer), 64)),
        ctl(Vex::make<CounterStatusCtl>(status)) {
    if (!withKeyMap) return;
    keyMap = Fal::Mroute::mrouteCounterKeyMapTableFactory(base + ".counterKeyMap");
    keyMap->mrouteCounterKeyMapEntryControlIs(CollectionControl::collectionControlIs(base + ".counterKeyMap", Mode::writer));
  }
  void count(IpGenRouteKey const& k, std::int64_t value, double when, bool active) {
    status->counterIs(Counter(k, value, when, active));
    ctl->currSizeInc(1);
    if (active) ctl->currActiveInc(1);
  }
  Vex::Ptr<CounterStatus> status;
  Vex::Ptr<CounterStatusCtl> ctl;
  Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> keyMap;
};

class MrouteCountersTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(shmLeftovers(), std::vector<std::string>()); }
  std::string const base_ = uniqueShmName("agent");
};

TEST_F(MrouteCountersTest, TableShowsCountsAndRowsInRouteOrder) {
  PublishingAgent agent(base_);
  agent.count(key("10.0.0.2/32", "239.1.1.1/32"), 1500, 4.25, true);
  agent.count(key("10.0.0.1/32", "239.1.1.1/32"), 20, 2.0, false);
  agent.keyMap->mrouteCounterKeyMapEntryIs({MrouteCounterKey(3, key("10.0.0.1/32", "239.1.1.1/32")), 0x2a});
  PublishedCounters counters(base_);
  ASSERT_TRUE(counters.refresh());
  std::ostringstream os;
  FalTools::printHuman(os, counters);
  std::string const shm = "/dev/shm/falmroute." + base_;
  EXPECT_EQ(os.str(),
            "Counters published as " + base_ + "\n"
            "  counter status (" + shm + ".counterStatus): 2 rows (control record: size 2, active 1, capacity 64)\n"
            "    route                                                       value    updated (s)  active\n"
            "    (10.0.0.1, 239.1.1.1)                                          20       2.000000  no\n"
            "    (10.0.0.2, 239.1.1.1)                                        1500       4.250000  yes\n"
            "  counter key map (" + shm + ".counterKeyMap): 1 routes of 32768\n"
            "           vrf  route                                               counter key\n"
            "             3  (10.0.0.1, 239.1.1.1)                                      0x2a\n");
}

TEST_F(MrouteCountersTest, JsonCarriesEveryFieldAndSaysWhatIsNotPublished) {
  PublishingAgent agent(base_, /*withKeyMap=*/false);
  agent.count(IpGenRouteKey::wildcard(), 8020, 12.5, true);
  PublishedCounters counters(base_);
  counters.refresh();
  std::ostringstream os;
  FalTools::printJson(os, counters);
  rapidjson::Document d;
  ASSERT_FALSE(d.Parse(os.str().c_str()).HasParseError()) << os.str();
  EXPECT_EQ(std::string(d["name"].GetString()), base_);
  auto const& status = d["counterStatus"];
  EXPECT_TRUE(status["published"].GetBool());
  EXPECT_EQ(status["capacity"].GetUint(), 64U);
  EXPECT_EQ(status["currSize"].GetUint(), 1U);
  EXPECT_EQ(status["currActive"].GetUint(), 1U);
  ASSERT_EQ(status["rows"].Size(), 1U);
  auto const& row = status["rows"][0];
  EXPECT_EQ(std::string(row["source"].GetString()), "0.0.0.0/0");
  EXPECT_EQ(std::string(row["group"].GetString()), "224.0.0.0/4");
  EXPECT_EQ(row["value"].GetInt64(), 8020);
  EXPECT_EQ(row["updateTime"].GetDouble(), 12.5);
  EXPECT_TRUE(row["active"].GetBool());
  auto const& keyMap = d["counterKeyMap"];
  EXPECT_FALSE(keyMap["published"].GetBool());
  EXPECT_EQ(std::string(keyMap["error"].GetString()),
            "nothing is published under /dev/shm/falmroute." + base_ + ".counterKeyMap");
  EXPECT_FALSE(keyMap.HasMember("rows"));
}

TEST_F(MrouteCountersTest, RefreshSaysWhenSomethingChangedAndMountsLateTables) {
  PublishedCounters counters(base_);
  counters.refresh();
  EXPECT_FALSE(counters.anyPublished());
  EXPECT_FALSE(counters.refresh());
  PublishingAgent agent(base_);
  EXPECT_TRUE(counters.refresh()) << "published since the last look";
  EXPECT_TRUE(counters.anyPublished());
  EXPECT_FALSE(counters.refresh());
  agent.count(key("10.0.0.1/32", "239.1.1.1/32"), 1, 1.0, true);
  EXPECT_TRUE(counters.refresh());
  EXPECT_EQ(counters.counterStatus().counter(key("10.0.0.1/32", "239.1.1.1/32")).value(), 1);
  EXPECT_EQ(counters.counterStatus().ctlRecord().currActive, 1U);
}

TEST_F(MrouteCountersTest, PublishedBasesListsEachAgentOnce) {
  std::string const other = uniqueShmName("other");
  PublishingAgent agent(base_);
  PublishingAgent second(other, /*withKeyMap=*/false);
  auto const bases = FalTools::publishedBases();
  EXPECT_EQ(std::count(bases.begin(), bases.end(), base_), 1) << "both tables, one base";
  EXPECT_EQ(std::count(bases.begin(), bases.end(), other), 1);
}

// ---- the program, from another process ----

struct ProgramRun {
  int status = -1;
  std::string out;
  std::string err;
};

ProgramRun runProgram(std::vector<std::string> args) {
  args.insert(args.begin(), MROUTE_COUNTERS_PROGRAM);
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int out[2], err[2];
  EXPECT_EQ(::pipe(out), 0);
  EXPECT_EQ(::pipe(err), 0);
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_adddup2(&fa, out[1], 1);
  posix_spawn_file_actions_adddup2(&fa, err[1], 2);
  pid_t pid = 0;
  EXPECT_EQ(posix_spawn(&pid, argv[0], &fa, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&fa);
  ::close(out[1]);
  ::close(err[1]);
  ProgramRun r;
  auto drain = [](int fd, std::string& into) {
    char buf[4096];
    for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;) into.append(buf, static_cast<std::size_t>(n));
    ::close(fd);
  };
  drain(out[0], r.out);
  drain(err[0], r.err);
  int status = 0;
  ::waitpid(pid, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

TEST_F(MrouteCountersTest, ProgramReadsWhatThisProcessPublishes) {
  PublishingAgent agent(base_);
  agent.count(key("10.0.0.1/32", "239.1.1.1/32"), 77, 3.0, true);
  agent.keyMap->mrouteCounterKeyMapEntryIs({MrouteCounterKey(1, key("10.0.0.1/32", "239.1.1.1/32")), 9});
  ProgramRun const r = runProgram({"--name", base_, "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  rapidjson::Document d;
  ASSERT_FALSE(d.Parse(r.out.c_str()).HasParseError()) << r.out;
  EXPECT_EQ(d["counterStatus"]["rows"][0]["value"].GetInt64(), 77);
  EXPECT_EQ(d["counterKeyMap"]["rows"][0]["counterKey"].GetUint64(), 9U);

  ProgramRun const watched = runProgram({"--name", base_, "--watch", "--count", "1", "--interval", "0.05"});
  EXPECT_EQ(watched.status, 0) << watched.err;
  EXPECT_NE(watched.out.find("(10.0.0.1, 239.1.1.1)"), std::string::npos) << watched.out;
}

TEST_F(MrouteCountersTest, ProgramSaysClearlyWhenNothingIsPublished) {
  ProgramRun const r = runProgram({"--name", base_});
  EXPECT_EQ(r.status, 1);
  std::string const shm = "/dev/shm/falmroute." + base_;
  EXPECT_EQ(r.err, "mroute-counters: cannot read the counters published as '" + base_ +
                       "': counter status: nothing is published under " + shm +
                       ".counterStatus; counter key map: nothing is published under " + shm + ".counterKeyMap\n");
  EXPECT_TRUE(r.out.empty());
  ProgramRun const bad = runProgram({"--name", "a/b"});
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.err, "mroute-counters: --name a/b: a table name is made of letters, digits, '.', '_' and '-'\n");
}

}  // namespace
