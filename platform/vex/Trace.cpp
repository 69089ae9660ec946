#include "platform/vex/Trace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>

#include "platform/vex/ActivityManager.h"

namespace Vex {
namespace {

struct Registry {
  std::deque<TraceHandle> handles;
  std::vector<std::shared_ptr<TraceSink>> sinks;
  std::string setting;
  bool settingRead = false;
};

Registry& registry() {
  static Registry r;
  return r;
}

// Levels for a handle from a setting such as "FalMroute/0-5,Other/*,X/3".
std::uint16_t levelsFor(std::string_view setting, std::string_view name) {
  std::uint16_t mask = 0;
  while (!setting.empty()) {
    auto comma = setting.find(',');
    std::string_view item = setting.substr(0, comma);
    setting = comma == std::string_view::npos ? std::string_view{} : setting.substr(comma + 1);
    auto slash = item.find('/');
    std::string_view who = item.substr(0, slash);
    std::string_view lv = slash == std::string_view::npos ? "*" : item.substr(slash + 1);
    if (who != name && who != "*") continue;
    if (lv == "*") {
      mask = 0x3FF;
      continue;
    }
    auto dash = lv.find('-');
    int lo = std::atoi(std::string(lv.substr(0, dash)).c_str());
    int hi = dash == std::string_view::npos ? lo : std::atoi(std::string(lv.substr(dash + 1)).c_str());
    for (int l = std::max(lo, 0); l <= std::min(hi, 9); ++l) mask |= static_cast<std::uint16_t>(1U << l);
  }
  return mask;
}

std::string const& envSetting() {
  auto& r = registry();
  if (!r.settingRead) {
    r.settingRead = true;
    if (char const* env = std::getenv("VEX_TRACE")) r.setting = env;
  }
  return r.setting;
}

}  // namespace

TraceHandle::TraceHandle(std::string name) : name_(std::move(name)) {}

void TraceHandle::enable(int lo, int hi) {
  for (int l = std::max(lo, 0); l <= std::min(hi, 9); ++l) mask_ |= static_cast<std::uint16_t>(1U << l);
}

void TraceHandle::write(int level, char const* source, int line, std::string text) const {
  auto* am = ActivityManager::current();
  TraceLine tl{am ? am->now() : 0.0, name_, level, source, line, std::move(text)};
  auto& sinks = registry().sinks;
  if (sinks.empty()) {
    StderrTraceSink().write(tl);
    return;
  }
  auto snapshot = sinks;
  for (auto const& s : snapshot) s->write(tl);
}

TraceHandle& traceHandle(std::string_view name) {
  auto& r = registry();
  for (auto& h : r.handles)
    if (h.name() == name) return h;
  auto& h = r.handles.emplace_back(std::string(name));
  h.levelsIs(levelsFor(envSetting(), name));
  return h;
}

void traceSettingIs(std::string_view setting) {
  auto& r = registry();
  envSetting();
  r.setting = std::string(setting);
  for (auto& h : r.handles) h.levelsIs(levelsFor(setting, h.name()));
}

void traceSinkAdd(std::shared_ptr<TraceSink> sink) { registry().sinks.push_back(std::move(sink)); }

void traceSinkDel(std::shared_ptr<TraceSink> const& sink) {
  auto& s = registry().sinks;
  s.erase(std::remove(s.begin(), s.end(), sink), s.end());
}

std::string formatTraceLine(TraceLine const& l) {
  char head[96];
  std::snprintf(head, sizeof head, "%12.6f %s/%d ", l.time, l.handle.c_str(), l.level);
  return std::string(head) + l.source + ":" + std::to_string(l.line) + " " + l.text;
}

void StderrTraceSink::write(TraceLine const& line) { std::fprintf(stderr, "%s\n", formatTraceLine(line).c_str()); }

FileTraceSink::FileTraceSink(std::string const& path) : file_(std::fopen(path.c_str(), "w")) {}
FileTraceSink::~FileTraceSink() {
  if (file_) std::fclose(file_);
}
void FileTraceSink::write(TraceLine const& line) {
  if (file_) std::fprintf(file_, "%s\n", formatTraceLine(line).c_str());
}

bool CaptureTraceSink::contains(std::string_view text) const { return count(text) > 0; }

std::size_t CaptureTraceSink::count(std::string_view text) const {
  return static_cast<std::size_t>(
      std::count_if(lines_.begin(), lines_.end(), [&](TraceLine const& l) { return l.text.find(text) != std::string::npos; }));
}

}  // namespace Vex
