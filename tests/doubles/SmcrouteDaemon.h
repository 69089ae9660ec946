#pragma once
// SmcrouteDaemon: smcroute (a static multicast routing daemon) running in a
// test's namespace with a configuration of static routes, and its control
// command for changes at run time. It programs the kernel's multicast table
// through the mroute socket, as an operator's daemon would.
#include <string>
#include <vector>

#include <sys/types.h>

namespace FalTest {

class SmcrouteDaemon {
 public:
  // Why smcroute cannot run here (for GTEST_SKIP), or empty.
  static std::string unavailable();

  // Starts smcrouted in netns on conf (smcroute.conf lines) and waits, a
  // bounded time, for its PID file: it has read its configuration and set
  // its routes. Throws std::runtime_error when it does not come up.
  SmcrouteDaemon(std::string const& netns, std::string const& conf);
  // Stops the daemon (the kernel then flushes the table it held).
  ~SmcrouteDaemon();
  SmcrouteDaemon(SmcrouteDaemon const&) = delete;
  SmcrouteDaemon& operator=(SmcrouteDaemon const&) = delete;

  // smcroutectl add / remove; throws std::runtime_error when it fails. An add
  // of an existing (S, G) merges the outputs: a change is a remove then an add.
  void add(std::string const& iif, std::string const& source, std::string const& group,
           std::vector<std::string> const& oifs) const;
  void remove(std::string const& iif, std::string const& source, std::string const& group) const;
  pid_t pid() const { return pid_; }

 private:
  void control(std::string const& args) const;

  std::string dir_;
  pid_t pid_ = -1;
};

}  // namespace FalTest
