#pragma once
// Where structured log messages go: every emitted record is handed to each
// sink installed; with none installed, to standard error. Tests install a
// CaptureSink and read what was logged.
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/log/LogSeverity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Log {

struct FALMROUTE_EXPORT Record {
  Vex::Seconds time = 0;  // the event loop's time, 0 outside one
  std::string name;       // the message's name
  Severity severity = Severity::info;
  std::string text;  // the format with its arguments filled in
};

class FALMROUTE_EXPORT Sink {
 public:
  virtual ~Sink() = default;
  virtual void write(Record const& record) = 0;
};

FALMROUTE_EXPORT void sinkAdd(std::shared_ptr<Sink> sink);
FALMROUTE_EXPORT void sinkDel(std::shared_ptr<Sink> const& sink);
// Hands record to every sink (to standard error when there is none).
FALMROUTE_EXPORT void emit(Record const& record);

// "    12.500000 %FALMROUTE-4-NAME: text" (time, severity number, name).
FALMROUTE_EXPORT std::string formatRecord(Record const& record);

class FALMROUTE_EXPORT StderrSink : public Sink {
 public:
  void write(Record const& record) override;
};

class FALMROUTE_EXPORT CaptureSink : public Sink {
 public:
  void write(Record const& record) override { records_.push_back(record); }
  std::vector<Record> const& records() const { return records_; }
  // Records of the message name.
  std::size_t count(std::string_view name) const;
  void clear() { records_.clear(); }

 private:
  std::vector<Record> records_;
};

// Installs a CaptureSink for its own life (a test's scope).
class FALMROUTE_EXPORT ScopedCapture {
 public:
  ScopedCapture() { sinkAdd(sink_); }
  ~ScopedCapture() { sinkDel(sink_); }
  ScopedCapture(ScopedCapture const&) = delete;
  ScopedCapture& operator=(ScopedCapture const&) = delete;
  CaptureSink const& operator*() const { return *sink_; }
  CaptureSink const* operator->() const { return sink_.get(); }
  void clear() { sink_->clear(); }

 private:
  std::shared_ptr<CaptureSink> sink_ = std::make_shared<CaptureSink>();
};

}  // namespace Log
