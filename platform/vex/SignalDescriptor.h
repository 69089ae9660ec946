#pragma once
// Signals as a descriptor: the signals given are blocked in the calling
// thread and read from a signalfd that the event loop watches, so a signal
// becomes an ordinary notification (onSignal(signo)) delivered between two
// handlers, never an interruption that touches state halfway through one.
//
// Made on the thread that runs the loop, before any other thread starts (the
// blocked mask is inherited). Destroying it closes the descriptor and
// restores the signal mask it found; a signal still pending then takes its
// default action.
#include <cstdint>
#include <initializer_list>
#include <memory>

#include <signal.h>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/FileDescriptor.h"
#include "platform/vex/Ptr.h"

namespace Vex {

class ActivityManager;

class FALMROUTE_EXPORT SignalDescriptor : public Entity {
 public:
  class Notifiee : public NotifieeOf<SignalDescriptor> {
   public:
    virtual void onSignal(int signo) {}
  };

  // Throws std::system_error when the descriptor cannot be made.
  static Ptr<SignalDescriptor> signalDescriptorNew(ActivityManager& manager, std::initializer_list<int> signals);
  ~SignalDescriptor() override;

  int fd() const { return fd_; }
  // Signals received so far.
  std::uint64_t signalCount() const { return signalCount_; }

 private:
  class Reader;
  SignalDescriptor(ActivityManager& manager, sigset_t const& set);
  void readSignals();

  sigset_t previousMask_;
  int fd_ = -1;
  std::uint64_t signalCount_ = 0;
  Ptr<FileDescriptor> descriptor_;
  std::unique_ptr<Reader> reader_;
};

}  // namespace Vex
