#include "platform/log/LogSink.h"

#include <algorithm>
#include <cstdio>

namespace Log {
namespace {
std::vector<std::shared_ptr<Sink>>& sinks() {
  static std::vector<std::shared_ptr<Sink>> s;
  return s;
}
}  // namespace

void sinkAdd(std::shared_ptr<Sink> sink) { sinks().push_back(std::move(sink)); }

void sinkDel(std::shared_ptr<Sink> const& sink) {
  auto& s = sinks();
  s.erase(std::remove(s.begin(), s.end(), sink), s.end());
}

void emit(Record const& record) {
  if (sinks().empty()) {
    StderrSink().write(record);
    return;
  }
  auto const snapshot = sinks();  // a sink may add or remove sinks
  for (auto const& s : snapshot) s->write(record);
}

std::string formatRecord(Record const& r) {
  char head[64];
  std::snprintf(head, sizeof head, "%12.6f %%FALMROUTE-%d-", r.time, static_cast<int>(r.severity));
  return std::string(head) + r.name + ": " + r.text;
}

void StderrSink::write(Record const& record) { std::fprintf(stderr, "%s\n", formatRecord(record).c_str()); }

std::size_t CaptureSink::count(std::string_view name) const {
  return static_cast<std::size_t>(
      std::count_if(records_.begin(), records_.end(), [&](Record const& r) { return r.name == name; }));
}

}  // namespace Log
