#include "platform/bolt/CounterKeyTable.h"

#include "platform/vex/Assert.h"

namespace FlexCounters {

CounterKeyTable::CounterKeyTable(Vex::Name name, std::uint64_t first, std::uint32_t capacity)
    : name_(std::move(name)), first_(first), next_(first), capacity_(capacity) {
  VEX_ASSERT_MSG(first != kNoKey, "FlexCounters::CounterKeyTable keys start above 0");
}

std::uint64_t CounterKeyTable::counterKeyNew() {
  if (inUse_.size() >= capacity_) return kNoKey;
  std::uint64_t key;
  if (!returned_.empty()) {
    key = *returned_.begin();
    returned_.erase(returned_.begin());
  } else {
    key = next_++;
  }
  inUse_.insert(key);
  notify(&Notifiee::onCounterKey, key);
  return key;
}

bool CounterKeyTable::counterKeyDel(std::uint64_t key) {
  if (inUse_.erase(key) == 0) return false;
  // The highest keys handed out fold back into next_, so returned_ only
  // holds holes below it.
  if (key + 1 == next_) {
    --next_;
    while (!returned_.empty() && *returned_.rbegin() + 1 == next_) {
      returned_.erase(std::prev(returned_.end()));
      --next_;
    }
  } else {
    returned_.insert(key);
  }
  notify(&Notifiee::onCounterKey, key);
  return true;
}

}  // namespace FlexCounters
