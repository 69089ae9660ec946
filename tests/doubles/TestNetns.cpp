#include "tests/doubles/TestNetns.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include <unistd.h>

namespace FalTest {

namespace {

int run(std::string const& cmd) { return std::system((cmd + " >/dev/null 2>&1").c_str()); }

}  // namespace

std::string TestNetns::unavailable() {
  if (::geteuid() != 0) return "needs root (CAP_NET_ADMIN and CAP_SYS_ADMIN) to make network namespaces";
  if (run("ip -V") != 0) return "needs iproute2 (`ip`)";
  return {};
}

TestNetns::TestNetns(std::string const& tag) {
  static std::atomic<int> counter{0};
  name_ = "fal-" + tag + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
  if (run("ip netns add " + name_) != 0) throw std::runtime_error("ip netns add " + name_ + " failed");
  ip("link set lo up");
}

TestNetns::~TestNetns() { run("ip netns del " + name_); }

void TestNetns::ip(std::string const& args) const {
  std::string const cmd = "ip -n " + name_ + " " + args;
  if (run(cmd) != 0) throw std::runtime_error(cmd + " failed");
}

void TestNetns::ipBatch(std::string const& lines) const {
  char path[] = "/tmp/fal-ip-batch-XXXXXX";
  int const fd = ::mkstemp(path);
  if (fd < 0) throw std::runtime_error("mkstemp failed");
  ::close(fd);
  std::ofstream(path) << lines;
  std::string const cmd = "ip -n " + name_ + " -batch " + path;
  int const rc = run(cmd);
  std::remove(path);
  if (rc != 0) throw std::runtime_error(cmd + " failed");
}

void TestNetns::vethIs(std::string const& a, std::string const& b) const {
  ip("link add " + a + " type veth peer name " + b);
  ip("link set " + a + " up");
  ip("link set " + b + " up");
}

}  // namespace FalTest
