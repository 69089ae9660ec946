#pragma once
// The multicast FIB configuration of one address family: how routes are
// counted, how often route activity is polled, and one Config per VRF.
#include <cstddef>
#include <cstdint>

#include "platform/fib/Config.h"
#include "platform/fib/CounterMode.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/OrderedColl.h"
#include "platform/vex/Ptr.h"

namespace Routing::Multicast::Fib {

class FALMROUTE_EXPORT VrfConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<VrfConfig> {
   public:
    virtual void onCounterMode() {}
    virtual void onAllCounter() {}
    virtual void onPollingInterval() {}
    virtual void onActivityPollingInterval() {}
    virtual void onConfig(L3::VrfName const&) {}
  };
  using ConfigColl = Vex::OrderedColl<L3::VrfName, Vex::Ptr<Config>>;

  static constexpr std::uint8_t kDefaultPollingInterval = 10;
  static constexpr std::uint8_t kDefaultActivityPollingInterval = 10;

  VrfConfig() = default;

  CounterMode counterMode() const { return counterMode_; }
  void counterModeIs(CounterMode m) {
    if (counterMode_ == m) return;
    counterMode_ = m;
    notify(&Notifiee::onCounterMode);
  }
  // Whether every route is counted (the wildcard counter).
  bool allCounter() const { return allCounter_; }
  void allCounterIs(bool on) {
    if (allCounter_ == on) return;
    allCounter_ = on;
    notify(&Notifiee::onAllCounter);
  }
  // Seconds.
  std::uint8_t pollingInterval() const { return pollingInterval_; }
  void pollingIntervalIs(std::uint8_t s) {
    if (pollingInterval_ == s) return;
    pollingInterval_ = s;
    notify(&Notifiee::onPollingInterval);
  }
  // Seconds between two route activity reviews.
  std::uint8_t activityPollingInterval() const { return activityPollingInterval_; }
  void activityPollingIntervalIs(std::uint8_t s) {
    if (activityPollingInterval_ == s) return;
    activityPollingInterval_ = s;
    notify(&Notifiee::onActivityPollingInterval);
  }

  // The VRF's configuration, or null.
  Vex::Ptr<Config> config(L3::VrfName const& name) {
    auto const* c = config_.find(name);
    return c ? *c : nullptr;
  }
  Vex::Ptr<Config const> config(L3::VrfName const& name) const { return const_cast<VrfConfig*>(this)->config(name); }
  // Returns the VRF's configuration, creating it when absent.
  Vex::Ptr<Config> configIs(L3::VrfName const& name);
  void configDel(L3::VrfName const& name) {
    L3::VrfName const n = name;  // name may belong to the member being erased
    if (config_.erase(n)) notify(&Notifiee::onConfig, n);
  }
  void configDelAll() {
    while (auto const* first = config_.first()) configDel(first->first);
  }
  std::size_t configSize() const { return config_.size(); }
  // In VRF-name order; survives deletion of any member.
  ConfigColl::Iterator configIterator() const { return config_.iterator(); }
  ConfigColl::Iterator configIterator(L3::VrfName const& name) const { return config_.iterator(name); }
  auto begin() const { return config_.begin(); }
  auto end() const { return config_.end(); }

 private:
  ConfigColl config_;
  CounterMode counterMode_ = CounterMode::packets;
  bool allCounter_ = false;
  std::uint8_t pollingInterval_ = kDefaultPollingInterval;
  std::uint8_t activityPollingInterval_ = kDefaultActivityPollingInterval;
};

inline Vex::Ptr<Config> VrfConfig::configIs(L3::VrfName const& name) {
  if (auto const* c = config_.find(name)) return *c;
  auto c = Vex::make<Config>(name);
  config_.set(name, c);
  notify(&Notifiee::onConfig, name);
  return c;
}

}  // namespace Routing::Multicast::Fib
