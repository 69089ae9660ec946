#include "platform/log/RingTrace.h"

#include <utility>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

RingTrace::RingTrace(std::size_t capacity) : ring_(capacity) { VEX_ASSERT(capacity > 0); }

RingTrace& RingTrace::instance() {
  static RingTrace ring;
  return ring;
}

Vex::Seconds RingTrace::currentTime() {
  auto const* am = Vex::ActivityManager::current();
  return am ? am->now() : 0.0;
}

// The slot the next record goes to, with its time and source written.
RingTrace::Slot& RingTrace::startNext(std::string_view source) {
  Slot& r = ring_[head_];
  r.time = currentTime();
  r.literalSource = {};
  r.literalText = {};
  r.formatValue = nullptr;
  r.source.assign(source);  // reuses the overwritten record's buffers
  return r;
}

void RingTrace::record(std::string_view source, std::string text) {
  if (!enabled_) return;
  startNext(source).text = std::move(text);
  finishNext();
}

void RingTrace::recordView(std::string_view source, std::string_view text) {
  if (!enabled_) return;
  startNext(source).text.assign(text);
  finishNext();
}

std::vector<RingTrace::Record> RingTrace::records() const {
  std::vector<Record> out;
  out.reserve(size_);
  std::string scratch;
  for (std::size_t age = 0; age < size_; ++age) {
    Slot const& r = ring_[slot(age)];
    out.push_back(Record{r.time, std::string(r.sourceText()), std::string(r.textOf(scratch))});
  }
  return out;
}

bool RingTrace::contains(std::string_view text) const {
  std::string scratch;
  for (std::size_t age = 0; age < size_; ++age)
    if (ring_[slot(age)].textOf(scratch).find(text) != std::string_view::npos) return true;
  return false;
}

void RingTrace::clear() {
  for (auto& r : ring_) r = Slot{};
  head_ = 0;
  size_ = 0;
  recorded_ = 0;
}

void RingTrace::capacityIs(std::size_t capacity) {
  VEX_ASSERT(capacity > 0);
  if (capacity == ring_.size()) return;
  std::size_t const keep = size_ < capacity ? size_ : capacity;
  std::vector<Slot> next(capacity);
  for (std::size_t i = 0; i < keep; ++i) next[i] = std::move(ring_[slot(size_ - keep + i)]);
  ring_ = std::move(next);
  size_ = keep;
  head_ = keep % capacity;
}
