#pragma once
// FlexCounters::CounterKeyTable: the agent's table of flexible-counter keys,
// the 64-bit keys that name hardware counter slots.
//
// A chip agent takes a key for each counter it programs (counterKeyNew) and
// gives it back when the counter goes (counterKeyDel); the asynchronous hook
// object holds the table so that the agent's counter hooks find it. Keys are
// handed out lowest first, a returned key before a fresh one, so a table
// that churns stays dense. Key 0 is never handed out: it means "no key".
#include <cstddef>
#include <cstdint>
#include <set>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace FlexCounters {

class FALMROUTE_EXPORT CounterKeyTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<CounterKeyTable> {
   public:
    // The key was taken or given back.
    virtual void onCounterKey(std::uint64_t) {}
  };

  static constexpr std::uint64_t kNoKey = 0;

  // Keys first, first + 1, ...: at most capacity at a time.
  CounterKeyTable(Vex::Name name, std::uint64_t first, std::uint32_t capacity);

  Vex::Name const& name() const { return name_; }
  std::uint64_t first() const { return first_; }
  std::uint32_t capacity() const { return capacity_; }
  std::size_t size() const { return inUse_.size(); }

  // Takes the lowest free key; kNoKey when every key is in use.
  std::uint64_t counterKeyNew();
  // Gives key back; false when it was not in use.
  bool counterKeyDel(std::uint64_t key);
  bool counterKey(std::uint64_t key) const { return inUse_.count(key) != 0; }

 private:
  Vex::Name name_;
  std::set<std::uint64_t> inUse_;
  std::set<std::uint64_t> returned_;  // below next_, free again
  std::uint64_t first_;
  std::uint64_t next_;  // the lowest key never handed out
  std::uint32_t capacity_;
};

}  // namespace FlexCounters
