#pragma once
// An in-memory ring of compact event records: the short history of
// important events (programming decisions, zombie timers, table-full
// episodes) that is still there after the fact, when full tracing was off.
//
// The ring has a fixed capacity; once full, each new record overwrites the
// oldest. Records carry the event loop's time (0 outside one), a source
// (the operation that wrote it) and a text. Recording can be switched off
// process-wide; RING_TRACE then costs one branch and formats nothing.
//
// Single-threaded, like the event loop that writes it.
#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vex/Types.h"

class RingTrace {
 public:
  static constexpr std::size_t kDefaultCapacity = 4096;

  struct Record {
    Vex::Seconds time = 0;
    std::string source;
    std::string text;
  };

  explicit RingTrace(std::size_t capacity = kDefaultCapacity);

  // The process-wide ring that RING_TRACE writes to.
  static RingTrace& instance();

  // The process-wide switch; on by default.
  static bool enabled() noexcept { return enabled_; }
  static void enabledIs(bool on) noexcept { enabled_ = on; }

  // Appends a record, overwriting the oldest when full. Does nothing while
  // recording is switched off.
  void record(std::string_view source, std::string text);

  // Oldest first.
  std::vector<Record> records() const;
  std::size_t size() const { return size_; }
  std::size_t capacity() const { return ring_.size(); }
  // Records written since the ring was made or cleared, overwritten ones included.
  std::size_t recorded() const { return recorded_; }
  // Whether any record's text contains text.
  bool contains(std::string_view text) const;
  void clear();
  // Changes the capacity (at least 1), keeping the newest records that fit.
  void capacityIs(std::size_t capacity);

 private:
  std::size_t slot(std::size_t age) const { return (head_ + ring_.size() - size_ + age) % ring_.size(); }

  static inline bool enabled_ = true;
  std::vector<Record> ring_;
  std::size_t head_ = 0;  // where the next record goes
  std::size_t size_ = 0;
  std::size_t recorded_ = 0;
};

// Writes the pieces, streamed in order, as one record of the process-wide
// ring; evaluates every piece but formats nothing while recording is off.
template <class... Pieces>
void ringTrace(std::string_view source, Pieces const&... pieces) {
  if (!RingTrace::enabled()) return;
  std::ostringstream os;
  (os << ... << pieces);
  RingTrace::instance().record(source, os.str());
}

// RING_TRACE("handleZombie", ", Set timer for zombie oifSetIndex: " << index)
// streams expr into one record of the process-wide ring. Nothing of expr is
// evaluated while recording is off.
#define RING_TRACE(source, expr)                                    \
  do {                                                              \
    if (::RingTrace::enabled()) {                                   \
      std::ostringstream ringTraceOs_;                              \
      ringTraceOs_ << expr;                                         \
      ::RingTrace::instance().record((source), ringTraceOs_.str()); \
    }                                                               \
  } while (0)
