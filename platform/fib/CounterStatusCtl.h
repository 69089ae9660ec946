#pragma once
// The control record of the published route counters: how many rows there
// are, how many of them are active, and how many the table can hold.
//
// Kept apart from CounterStatus for its users; made over a CounterStatus it
// also writes its values into that table's segment (the table's control
// record), so a reader in another process sees the counts with the rows.
#include <cstdint>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace Routing::Multicast::Fib {

class CounterStatus;

class FALMROUTE_EXPORT CounterStatusCtl : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<CounterStatusCtl> {
   public:
    virtual void onCurrSize() {}
    virtual void onCurrActive() {}
    virtual void onCapacity() {}
  };

  static constexpr std::uint32_t kDefaultCapacity = 4096;

  explicit CounterStatusCtl(std::uint32_t capacity = kDefaultCapacity) : capacity_(capacity) {}
  // Publishes its values beside status's rows; its capacity is the table's.
  explicit CounterStatusCtl(Vex::Ptr<CounterStatus> const& status);
  ~CounterStatusCtl() override;

  std::uint32_t currSize() const { return currSize_; }
  void currSizeIs(std::uint32_t n) {
    if (currSize_ == n) return;
    currSize_ = n;
    publish();
    notify(&Notifiee::onCurrSize);
  }
  // Adds n (which may be negative); the count never goes below 0.
  void currSizeInc(int n);

  std::uint32_t currActive() const { return currActive_; }
  void currActiveIs(std::uint32_t n) {
    if (currActive_ == n) return;
    currActive_ = n;
    publish();
    notify(&Notifiee::onCurrActive);
  }
  // Adds n (which may be negative); the count never goes below 0.
  void currActiveInc(int n);

  std::uint32_t capacity() const { return capacity_; }
  void capacityIs(std::uint32_t n) {
    if (capacity_ == n) return;
    capacity_ = n;
    publish();
    notify(&Notifiee::onCapacity);
  }

 private:
  void publish() const;

  Vex::Ptr<CounterStatus> published_;
  std::uint32_t currSize_ = 0;
  std::uint32_t currActive_ = 0;
  std::uint32_t capacity_;
};

}  // namespace Routing::Multicast::Fib
