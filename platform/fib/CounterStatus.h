#pragma once
// The published route counters, one row per route key, in a shared-memory
// table (Memtab) that other processes read while the agent writes it.
//
// Users go through this class only (counter, counterIs, counterDel, size,
// iteration). A CounterStatus made with a capacity alone is private to its
// process; one made with a writer control publishes its rows under the
// control's name, and one made with a reader control reads the rows another
// process publishes (refresh() picks up its changes and notifies).
//
// The control record (CtlRecord: current size, active count, capacity) is
// kept in the same segment; CounterStatusCtl writes it when it is made over
// a CounterStatus.
//
// Capacity is fixed when the table is made: a row for a new key does not go
// in once capacity rows are held (counterIs says so). The counter code ages
// a row out before that happens, going by the control record's capacity,
// which therefore must not exceed this table's.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/fib/Counter.h"
#include "platform/fib/CounterStatusCtl.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/memtab/Collection.h"
#include "platform/memtab/CollectionControl.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Routing::Multicast::Fib {

class FALMROUTE_EXPORT CounterStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<CounterStatus> {
   public:
    // One row appeared, changed or went: told at once by the writer, and by
    // refresh() to a reader whose control is a keyshadow.
    virtual void onCounter(IpGenRouteKey const&) {}
    // Readers: something in the table changed since the last refresh.
    virtual void onCounter() {}
    // Readers: the table was mounted, or its writer went away.
    virtual void onMountStatus() {}
  };

  struct CtlRecord {
    std::uint32_t currSize = 0;
    std::uint32_t currActive = 0;
    std::uint32_t capacity = 0;
    friend bool operator==(CtlRecord const&, CtlRecord const&) = default;
  };

  struct Rows {
    using Key = IpGenRouteKey;
    using Value = Counter;
    using Record = CtlRecord;
    static constexpr std::string_view typeName = "Routing::Multicast::Fib::Counter";
    static IpGenRouteKey const& key(Counter const& c) { return c.routeKey(); }
    static std::uint64_t hash(IpGenRouteKey const& k) { return k.hash(); }
  };
  using Collection = Memtab::Collection<Rows>;

  // Rows as (route key, row) pairs, for `for (auto const& [key, row] : status)`.
  class Iterator {
   public:
    std::pair<IpGenRouteKey, Counter> operator*() const { return {it_->routeKey(), *it_}; }
    Iterator& operator++() {
      ++it_;
      return *this;
    }
    bool operator==(Iterator const& o) const { return it_ == o.it_; }

   private:
    friend class CounterStatus;
    explicit Iterator(Memtab::Table<Rows>::Iterator it) : it_(std::move(it)) {}
    Memtab::Table<Rows>::Iterator it_;
  };

  static constexpr std::uint32_t kDefaultCapacity = CounterStatusCtl::kDefaultCapacity;

  // A table of capacity rows that no other process sees.
  explicit CounterStatus(std::uint32_t capacity = kDefaultCapacity);
  // The table opened through control: a writer publishes capacity rows under
  // the control's name, a reader reads what its writer publishes.
  explicit CounterStatus(Vex::Ptr<Memtab::CollectionControl> const& control, std::uint32_t capacity = kDefaultCapacity);

  // The row of key; a default row (update time 0) when absent.
  Counter counter(IpGenRouteKey const& key) const { return rows_.find(key).value_or(Counter()); }
  // Publishes the row under its route key, replacing any row there; false
  // when the table is full and the key is new.
  bool counterIs(Counter const& row);
  void counterDel(IpGenRouteKey const& key);
  void counterDelAll();
  std::size_t size() const { return rows_.size(); }
  std::uint32_t capacity() const { return rows_.capacity(); }
  Iterator begin() const { return Iterator(rows_.begin()); }
  Iterator end() const { return Iterator(rows_.end()); }
  // Every row at one moment, as a reader in another process needs it.
  std::vector<Counter> rows() const { return rows_.snapshot(); }

  CtlRecord ctlRecord() const { return rows_.record(); }
  void ctlRecordIs(CtlRecord const& r) { rows_.recordIs(r); }

  Vex::Ptr<Memtab::CollectionControl> const& control() const { return rows_.control(); }
  bool mounted() const { return rows_.mounted(); }
  // Readers: takes in what the writer changed since the last refresh and
  // notifies it.
  void refresh();

 protected:
  // The last reference goes to the control, which releases the mapping.
  void zeroReferencesIs() override;

 private:
  Collection rows_;
};

}  // namespace Routing::Multicast::Fib
