#pragma once
// mroute-sim run as its own process, as a user runs it: its exit status and
// what it printed on stdout (add " 2>&1" to the arguments for stderr too).
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace SimTest {

struct MrouteSimProcess {
  int status = -1;
  std::string out;

  static MrouteSimProcess run(std::string const& arguments) {
    MrouteSimProcess run;
    std::string const command = std::string("'") + MROUTE_SIM + "' " + arguments;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;) run.out.append(buf, n);
    int const raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
  }
};

}  // namespace SimTest
