#include "platform/log/RingTrace.h"

#include <utility>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

RingTrace::RingTrace(std::size_t capacity) : ring_(capacity), copies_(capacity) { VEX_ASSERT(capacity > 0); }

RingTrace& RingTrace::instance() {
  static RingTrace ring;
  return ring;
}

Vex::Seconds RingTrace::currentTime() {
  auto const* am = Vex::ActivityManager::current();
  return am ? am->now() : 0.0;
}

std::string& RingTrace::startCopied(std::string_view source) {
  Slot& r = ring_[head_];
  r.time = currentTime();
  r.copiedSource = true;
  r.textKind = TextKind::copied;
  Copies& c = copies_[head_];
  c.source.assign(source);  // reuses the buffers of the last copy in this slot
  return c.text;
}

void RingTrace::record(std::string_view source, std::string text) {
  if (!enabled_) return;
  startCopied(source) = std::move(text);
  finishNext();
}

void RingTrace::recordView(std::string_view source, std::string_view text) {
  if (!enabled_) return;
  startCopied(source).assign(text);
  finishNext();
}

std::string_view RingTrace::textOf(std::size_t at, std::string& scratch) const {
  Slot const& r = ring_[at];
  switch (r.textKind) {
    case TextKind::literal:
      return r.literalText;
    case TextKind::copied:
      return copies_[at].text;
    case TextKind::value:
      scratch.clear();
      r.formatValue(scratch, r.value);
      return scratch;
  }
  return {};
}

std::vector<RingTrace::Record> RingTrace::records() const {
  std::vector<Record> out;
  out.reserve(size_);
  std::string scratch;
  for (std::size_t age = 0; age < size_; ++age) {
    std::size_t const at = slot(age);
    out.push_back(Record{ring_[at].time, std::string(sourceOf(at)), std::string(textOf(at, scratch))});
  }
  return out;
}

bool RingTrace::contains(std::string_view text) const {
  std::string scratch;
  for (std::size_t age = 0; age < size_; ++age)
    if (textOf(slot(age), scratch).find(text) != std::string_view::npos) return true;
  return false;
}

void RingTrace::clear() {
  for (auto& r : ring_) r = Slot{};
  for (auto& c : copies_) c = Copies{};
  head_ = 0;
  size_ = 0;
  recorded_ = 0;
}

void RingTrace::capacityIs(std::size_t capacity) {
  VEX_ASSERT(capacity > 0);
  if (capacity == ring_.size()) return;
  std::size_t const keep = size_ < capacity ? size_ : capacity;
  std::vector<Slot> next(capacity);
  std::vector<Copies> nextCopies(capacity);
  for (std::size_t i = 0; i < keep; ++i) {
    std::size_t const from = slot(size_ - keep + i);
    next[i] = ring_[from];
    nextCopies[i] = std::move(copies_[from]);
  }
  ring_ = std::move(next);
  copies_ = std::move(nextCopies);
  size_ = keep;
  head_ = keep % capacity;
}
