// The mroute-agent command: its help, its verdict on a configuration file,
// and the exit status of each (2 and a message naming file, field and
// expected form for a bad one).
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Outcome {
  int status;
  std::string output;  // stdout and stderr
};

Outcome run(std::string const& args) {
  std::string const cmd = std::string(MROUTE_AGENT_PATH) + " " + args + " 2>&1";
  FILE* p = ::popen(cmd.c_str(), "r");
  Outcome r{-1, {}};
  if (!p) return r;
  char buf[4096];
  while (std::size_t n = std::fread(buf, 1, sizeof buf, p)) r.output.append(buf, n);
  int const st = ::pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

class MrouteAgentCommandTest : public ::testing::Test {
 protected:
  std::string file(std::string const& text) {
    char name[] = "/tmp/fal-agent-config-XXXXXX";
    int const fd = ::mkstemp(name);
    ::close(fd);
    std::ofstream(name) << text;
    files_.push_back(name);
    return name;
  }
  ~MrouteAgentCommandTest() override {
    for (auto const& f : files_) std::remove(f.c_str());
  }
  std::vector<std::string> files_;
};

TEST_F(MrouteAgentCommandTest, HelpDescribesTheConfigurationAndExitsZero) {
  Outcome const r = run("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.output.find("\"sync\", the only one it runs today"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("SIGHUP re-reads"), std::string::npos);
}

TEST_F(MrouteAgentCommandTest, GoodConfigurationPassesTheCheck) {
  std::string const f = file(R"({"interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100}]})");
  Outcome const r = run("--check " + f);
  EXPECT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("is good: 1 interfaces, 1 VRFs, 1 chips"), std::string::npos) << r.output;
}

TEST_F(MrouteAgentCommandTest, BadConfigurationExitsTwoNamingFileFieldAndForm) {
  std::string const f = file(R"({"interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100}],
                                 "chips": [{"flavour": "async"}]})");
  Outcome const r = run(f);
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.output, "mroute-agent: " + f +
                          ": chips[0].flavour: expected \"sync\" (the only flavour mroute-agent runs today), got the "
                          "string \"async\"\n");

  Outcome const missing = run("/nonexistent/agent.json");
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.output.find("/nonexistent/agent.json: (file): expected a readable agent configuration file"),
            std::string::npos)
      << missing.output;

  EXPECT_EQ(run("").status, 2);  // no file named
}

}  // namespace
