#pragma once
// A small entity and a recording reactor shared by the Vex tests.
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/vex/Entity.h"

namespace VexTest {

using Log = std::vector<std::string>;

class Gauge : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Gauge> {
   public:
    virtual void onValue() {}
    virtual void onFlag(int const& key) {}
  };
  explicit Gauge(bool* destroyed = nullptr) : destroyed_(destroyed) {}
  ~Gauge() override {
    if (destroyed_) *destroyed_ = true;
  }

  int value() const { return value_; }
  void valueIs(int v) {
    if (v == value_) return;
    value_ = v;
    notify(&Notifiee::onValue);
  }
  bool flag(int key) const { return flags_.count(key) > 0; }
  void flagIs(int key, bool on) {
    if (on == flag(key)) return;
    if (on) flags_[key] = true;
    else flags_.erase(key);
    notify(&Notifiee::onFlag, key);
  }

 private:
  bool* destroyed_;
  int value_ = 0;
  std::map<int, bool> flags_;
};

// Appends "<name>:value=<v>" and "<name>:flag<k>=<on>" to a log; an optional
// hook runs after each value delivery.
class GaugeRecorder : public Gauge::Notifiee {
 public:
  GaugeRecorder(std::string name, Log* log, Vex::Ptr<Gauge> const& g = nullptr) : name_(std::move(name)), log_(log) {
    if (g) notifierIs(g);
  }
  void onValue() override {
    log_->push_back(name_ + ":value=" + std::to_string(notifier()->value()));
    if (onValueHook) onValueHook();
  }
  void onFlag(int const& key) override {
    log_->push_back(name_ + ":flag" + std::to_string(key) + "=" + (notifier()->flag(key) ? "1" : "0"));
  }
  void onNotifier() override { ++bindings; }
  std::function<void()> onValueHook;
  int bindings = 0;

 private:
  std::string name_;
  Log* log_;
};

}  // namespace VexTest
