// The mroute-agent command: its help, its verdict on a configuration file,
// and the exit status of each (2 and a message naming file, field and
// expected form for a bad one); and a running agent's life: status lines,
// SIGHUP re-reading its file, SIGTERM stopping it cleanly.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>
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

// A running mroute-agent, its stdout and stderr on a pipe read line by line.
class RunningAgent {
 public:
  explicit RunningAgent(std::string const& config) {
    int fds[2];
    if (::pipe(fds) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(fds[1], 1);
      ::dup2(fds[1], 2);
      ::close(fds[0]);
      ::execl(MROUTE_AGENT_PATH, MROUTE_AGENT_PATH, config.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(fds[1]);
    fd_ = fds[0];
  }
  ~RunningAgent() {
    if (pid_ > 0 && status_ < 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    if (fd_ >= 0) ::close(fd_);
  }
  // Reads output until a line containing text, for at most 10 s; the
  // lines read so far (all of them when it never came).
  std::string until(std::string const& text) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < end) {
      if (auto at = buffer_.find(text); at != std::string::npos) {
        auto const eol = buffer_.find('\n', at);
        if (eol != std::string::npos) {
          std::string lines = buffer_.substr(0, eol + 1);
          buffer_.erase(0, eol + 1);
          return lines;
        }
      }
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, 100) <= 0) continue;
      char buf[4096];
      ssize_t const n = ::read(fd_, buf, sizeof buf);
      if (n <= 0) break;
      buffer_.append(buf, static_cast<std::size_t>(n));
    }
    return buffer_;
  }
  void signal(int signo) const { ::kill(pid_, signo); }
  // The exit status, once it has ended.
  int wait() {
    int st = 0;
    ::waitpid(pid_, &st, 0);
    status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return status_;
  }

 private:
  pid_t pid_ = -1;
  int fd_ = -1;
  int status_ = -1;
  std::string buffer_;
};

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

// The agent's own namespace needs no privilege to be read.
TEST_F(MrouteAgentCommandTest, RunningAgentReportsReReadsItsFileAndStopsCleanlyOnSignals) {
  std::string const f = file(R"({"interfaces": [{"name": "lo", "port": "Ethernet1", "vlan": 100}],
                                 "status": {"interval": 0.1}})");
  RunningAgent agent(f);
  EXPECT_NE(agent.until("mroute-agent: mirroring").find("mirroring the multicast tables of this namespace onto 1 chip"),
            std::string::npos);
  std::string const status = agent.until("routes wanted");
  EXPECT_NE(status.find("in sync, dumps 1"), std::string::npos) << status;

  std::ofstream(f) << R"({"interfaces": [{"name": "lo", "port": "Ethernet1", "vlan": 100}],
                          "chips": [{}, {}], "status": {"interval": 0.1}})";
  agent.signal(SIGHUP);
  std::string const reread = agent.until("configuration re-read");
  EXPECT_NE(reread.find("a restart is needed to change: chips"), std::string::npos) << reread;

  std::ofstream(f) << "{";
  agent.signal(SIGHUP);
  std::string const refused = agent.until("configuration not re-read");
  EXPECT_NE(refused.find(f + ": line 1, column 2: expected valid JSON"), std::string::npos) << refused;
  EXPECT_NE(agent.until("routes wanted").find("routes wanted"), std::string::npos) << "it runs on";

  agent.signal(SIGTERM);
  EXPECT_NE(agent.until("mroute-agent: stopped").find("terminated, removing 0 routes from the chips"), std::string::npos);
  EXPECT_EQ(agent.wait(), 0);
}

}  // namespace
