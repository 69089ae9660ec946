#pragma once
// Captures the trace lines of one handle at chosen levels for the life of a
// test, and puts the handle's levels back afterwards.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vex/Trace.h"

namespace FalMrouteTest {

class TraceCapture {
 public:
  TraceCapture(std::string_view handle, int lo, int hi) : handle_(Vex::traceHandle(handle)), saved_(handle_.levels()) {
    handle_.disable();
    handle_.enable(lo, hi);
    Vex::traceSinkAdd(sink_);
  }
  ~TraceCapture() {
    Vex::traceSinkDel(sink_);
    handle_.levelsIs(saved_);
  }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;

  // "<level> <source> <text>" for every line of the handle, in order.
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    for (auto const& l : sink_->lines())
      if (l.handle == handle_.name()) out.push_back(std::to_string(l.level) + " " + l.source + " " + l.text);
    return out;
  }
  void clear() { sink_->clear(); }

 private:
  Vex::TraceHandle& handle_;
  std::uint16_t const saved_;
  std::shared_ptr<Vex::CaptureTraceSink> sink_ = std::make_shared<Vex::CaptureTraceSink>();
};

}  // namespace FalMrouteTest
