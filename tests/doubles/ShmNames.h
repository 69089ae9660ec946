#pragma once
// Shared-memory table names for tests, and what a test left behind.
//
// Every name a test process makes is "test-<pid>-<n>-<what>", unique in the
// machine for the life of the process, so tests running at once never meet.
// leftovers() lists what this process still has in /dev/shm and mapped() says
// whether a segment is still mapped here: fixtures check both after each test.
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/memtab/Segment.h"

namespace FalMrouteTest {

inline std::string shmTestPrefix() { return "test-" + std::to_string(::getpid()) + "-"; }

inline std::string uniqueShmName(std::string_view what) {
  static std::atomic<unsigned> next{0};
  return shmTestPrefix() + std::to_string(next++) + "-" + std::string(what);
}

// This process's table names still present in /dev/shm.
inline std::vector<std::string> shmLeftovers() {
  std::vector<std::string> out;
  std::string const prefix = std::string(Memtab::kShmPrefix) + shmTestPrefix();
  std::error_code ec;
  for (auto const& e : std::filesystem::directory_iterator(Memtab::kShmDir, ec)) {
    std::string const file = e.path().filename().string();
    if (file.rfind(prefix, 0) == 0) out.push_back(file);
  }
  return out;
}

// Whether this process still maps the segment of the table name.
inline bool shmMapped(std::string_view name) {
  std::ifstream maps("/proc/self/maps");
  std::string const path = Memtab::shmPath(name);
  for (std::string line; std::getline(maps, line);) {
    auto at = line.find(path);
    // "/dev/shm/falmroute.x" or "/dev/shm/falmroute.x (deleted)", not a longer name
    if (at != std::string::npos && (at + path.size() == line.size() || line[at + path.size()] == ' ')) return true;
  }
  return false;
}

}  // namespace FalMrouteTest
