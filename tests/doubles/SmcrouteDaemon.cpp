#include "tests/doubles/SmcrouteDaemon.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace FalTest {

namespace {

constexpr auto kStartLimit = std::chrono::seconds(10);

}  // namespace

std::string SmcrouteDaemon::unavailable() {
  if (std::system("command -v smcrouted >/dev/null 2>&1 && command -v smcroutectl >/dev/null 2>&1") != 0) {
    return "needs smcroute (the Debian package of that name)";
  }
  return {};
}

SmcrouteDaemon::SmcrouteDaemon(std::string const& netns, std::string const& conf) {
  char tmpl[] = "/tmp/fal-smcroute-XXXXXX";
  if (!::mkdtemp(tmpl)) throw std::runtime_error("mkdtemp failed");
  dir_ = tmpl;
  std::ofstream(dir_ + "/smcroute.conf") << conf;
  std::string const pidFile = dir_ + "/smcroute.pid";
  std::string const confFile = dir_ + "/smcroute.conf";
  std::string const sock = dir_ + "/smcroute.sock";
  std::string const log = dir_ + "/smcroute.log";
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    // A test that crashes takes its daemon with it.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    int const fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
      ::dup2(fd, 1);
      ::dup2(fd, 2);
    }
    // `ip netns exec` execs the daemon, so pid_ is the daemon's.
    ::execlp("ip", "ip", "netns", "exec", netns.c_str(), "smcrouted", "-n", "-N", "-l", "notice", "-f", confFile.c_str(),
             "-P", pidFile.c_str(), "-u", sock.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  auto const end = std::chrono::steady_clock::now() + kStartLimit;
  while (!std::filesystem::exists(pidFile) || std::filesystem::file_size(pidFile) == 0) {
    int status;
    if (::waitpid(pid_, &status, WNOHANG) == pid_ || std::chrono::steady_clock::now() > end) {
      pid_ = -1;
      throw std::runtime_error("smcrouted did not come up; see " + log);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

SmcrouteDaemon::~SmcrouteDaemon() {
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

void SmcrouteDaemon::control(std::string const& args) const {
  std::string const cmd = "smcroutectl -u " + dir_ + "/smcroute.sock " + args + " >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0) throw std::runtime_error(cmd + " failed");
}

void SmcrouteDaemon::add(std::string const& iif, std::string const& source, std::string const& group,
                         std::vector<std::string> const& oifs) const {
  std::string args = "add " + iif + " " + source + " " + group;
  for (auto const& o : oifs) args += " " + o;
  control(args);
}

void SmcrouteDaemon::remove(std::string const& iif, std::string const& source, std::string const& group) const {
  control("remove " + iif + " " + source + " " + group);
}

}  // namespace FalTest
