#pragma once
// Named trace handles with levels 0 to 9 and pluggable sinks.
//
// Levels are enabled per handle from the environment
// (VEX_TRACE=FalMroute/0-5,FalMrouteRecovery/*) or in code. A disabled trace
// costs one branch: VEX_TRACE does not evaluate its message when the level is
// off.
#include <cstdint>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Vex {

struct FALMROUTE_EXPORT TraceLine {
  Seconds time;
  std::string handle;
  int level;
  std::string source;
  int line;
  std::string text;
};

class FALMROUTE_EXPORT TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(TraceLine const& line) = 0;
};

class FALMROUTE_EXPORT TraceHandle {
 public:
  explicit TraceHandle(std::string name);
  std::string const& name() const { return name_; }
  bool enabled(int level) const noexcept { return (mask_ >> level) & 1U; }
  std::uint16_t levels() const { return mask_; }
  void levelsIs(std::uint16_t mask) { mask_ = mask; }
  // Enables levels lo..hi inclusive.
  void enable(int lo = 0, int hi = 9);
  void disable() { mask_ = 0; }
  void write(int level, char const* source, int line, std::string text) const;

 private:
  std::string name_;
  std::uint16_t mask_ = 0;
};

// The handle of that name, created on first use with the levels that
// VEX_TRACE names for it. The reference stays valid for the process.
FALMROUTE_EXPORT TraceHandle& traceHandle(std::string_view name);
// Applies a VEX_TRACE-style setting ("A/0-5,B/*,C/3") to every handle, now and later.
FALMROUTE_EXPORT void traceSettingIs(std::string_view setting);

// Sinks receive every written line. With no sink installed lines go to stderr.
FALMROUTE_EXPORT void traceSinkAdd(std::shared_ptr<TraceSink> sink);
FALMROUTE_EXPORT void traceSinkDel(std::shared_ptr<TraceSink> const& sink);

class FALMROUTE_EXPORT StderrTraceSink : public TraceSink {
 public:
  void write(TraceLine const& line) override;
};

class FALMROUTE_EXPORT FileTraceSink : public TraceSink {
 public:
  explicit FileTraceSink(std::string const& path);
  ~FileTraceSink() override;
  void write(TraceLine const& line) override;

 private:
  std::FILE* file_;
};

// Keeps lines in memory; tests read them.
class FALMROUTE_EXPORT CaptureTraceSink : public TraceSink {
 public:
  void write(TraceLine const& line) override { lines_.push_back(line); }
  std::vector<TraceLine> const& lines() const { return lines_; }
  // Whether any captured line contains text.
  bool contains(std::string_view text) const;
  std::size_t count(std::string_view text) const;
  void clear() { lines_.clear(); }

 private:
  std::vector<TraceLine> lines_;
};

FALMROUTE_EXPORT std::string formatTraceLine(TraceLine const& line);

}  // namespace Vex

#define VEX_TRACE(handle, level, source, expr)                      \
  do {                                                              \
    ::Vex::TraceHandle const& vexTraceHandle_ = (handle);           \
    if (vexTraceHandle_.enabled(level)) {                           \
      std::ostringstream vexTraceOs_;                               \
      vexTraceOs_ << expr;                                          \
      vexTraceHandle_.write(level, source, __LINE__, vexTraceOs_.str()); \
    }                                                               \
  } while (0)
