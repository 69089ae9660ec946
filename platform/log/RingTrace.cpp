#include "platform/log/RingTrace.h"

#include <utility>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

RingTrace::RingTrace(std::size_t capacity) : ring_(capacity) { VEX_ASSERT(capacity > 0); }

RingTrace& RingTrace::instance() {
  static RingTrace ring;
  return ring;
}

void RingTrace::record(std::string_view source, std::string text) {
  if (!enabled_) return;
  auto const* am = Vex::ActivityManager::current();
  Record& r = ring_[head_];
  r.time = am ? am->now() : 0.0;
  r.source.assign(source);  // reuses the overwritten record's buffers
  r.text = std::move(text);
  head_ = (head_ + 1) % ring_.size();
  if (size_ < ring_.size()) ++size_;
  ++recorded_;
}

void RingTrace::recordView(std::string_view source, std::string_view text) {
  if (!enabled_) return;
  auto const* am = Vex::ActivityManager::current();
  Record& r = ring_[head_];
  r.time = am ? am->now() : 0.0;
  r.source.assign(source);
  r.text.assign(text);
  head_ = (head_ + 1) % ring_.size();
  if (size_ < ring_.size()) ++size_;
  ++recorded_;
}

std::vector<RingTrace::Record> RingTrace::records() const {
  std::vector<Record> out;
  out.reserve(size_);
  for (std::size_t age = 0; age < size_; ++age) out.push_back(ring_[slot(age)]);
  return out;
}

bool RingTrace::contains(std::string_view text) const {
  for (std::size_t age = 0; age < size_; ++age)
    if (ring_[slot(age)].text.find(text) != std::string::npos) return true;
  return false;
}

void RingTrace::clear() {
  for (auto& r : ring_) r = Record{};
  head_ = 0;
  size_ = 0;
  recorded_ = 0;
}

void RingTrace::capacityIs(std::size_t capacity) {
  VEX_ASSERT(capacity > 0);
  if (capacity == ring_.size()) return;
  std::size_t const keep = size_ < capacity ? size_ : capacity;
  std::vector<Record> next(capacity);
  for (std::size_t i = 0; i < keep; ++i) next[i] = std::move(ring_[slot(size_ - keep + i)]);
  ring_ = std::move(next);
  size_ = keep;
  head_ = keep % capacity;
}
