#include "platform/vex/SignalDescriptor.h"

#include <cerrno>
#include <system_error>

#include <sys/signalfd.h>
#include <unistd.h>

#include "platform/vex/ActivityManager.h"

namespace Vex {

class SignalDescriptor::Reader : public FileDescriptor::Notifiee {
 public:
  Reader(SignalDescriptor* owner, Ptr<FileDescriptor> const& f) : owner_(owner) { notifierIs(f); }
  void onReadable() override { owner_->readSignals(); }

 private:
  SignalDescriptor* owner_;
};

Ptr<SignalDescriptor> SignalDescriptor::signalDescriptorNew(ActivityManager& manager, std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (int s : signals) sigaddset(&set, s);
  return Ptr<SignalDescriptor>(new SignalDescriptor(manager, set));
}

SignalDescriptor::SignalDescriptor(ActivityManager& manager, sigset_t const& set) {
  if (::pthread_sigmask(SIG_BLOCK, &set, &previousMask_) != 0) {
    throw std::system_error(errno, std::generic_category(), "pthread_sigmask");
  }
  fd_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (fd_ < 0) {
    int const e = errno;
    ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    throw std::system_error(e, std::generic_category(), "signalfd");
  }
  descriptor_ = manager.fileDescriptorNew(fd_);
  reader_ = std::make_unique<Reader>(this, descriptor_);
}

SignalDescriptor::~SignalDescriptor() {
  reader_.reset();
  descriptor_ = nullptr;
  ::close(fd_);
  ::pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

void SignalDescriptor::readSignals() {
  Ptr<SignalDescriptor> const self(this);  // a handler may drop the last reference
  signalfd_siginfo info[8];
  for (;;) {
    ssize_t const n = ::read(fd_, info, sizeof info);
    if (n <= 0) return;  // EAGAIN: all read
    for (std::size_t i = 0; i < static_cast<std::size_t>(n) / sizeof info[0]; ++i) {
      ++signalCount_;
      notify(&Notifiee::onSignal, static_cast<int>(info[i].ssi_signo));
    }
  }
}

}  // namespace Vex
