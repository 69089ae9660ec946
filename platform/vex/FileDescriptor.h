#pragma once
// A file descriptor the event loop watches: an entity whose notifiees'
// onReadable() run, from the event loop, when the descriptor has something
// to read (or has hung up or failed: the read then says which).
//
// Level-triggered: a reactor that leaves data unread is told again at the
// next turn, so it may read in bounded batches and let clocks and other
// descriptors run in between. While readInterest is false the loop does not
// watch the descriptor at all (a reader that must not consume yet, for
// example, would otherwise be told again and again).
//
// The entity does not own the descriptor: its owner closes it after the
// entity has gone (or after readInterestIs(false)), never before, since the
// kernel drops a closed descriptor from the watch set only once every copy
// of it is closed.
#include <cstdint>

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Vex {

class ActivityManager;

class FALMROUTE_EXPORT FileDescriptor : public Entity {
 public:
  class Notifiee : public NotifieeOf<FileDescriptor> {
   public:
    virtual void onReadable() {}
  };

  ~FileDescriptor() override;
  int fd() const { return fd_; }
  bool readInterest() const { return readInterest_; }
  void readInterestIs(bool interest);
  // How many times its reactors were told the descriptor was readable.
  std::uint64_t readableCount() const { return readableCount_; }
  ActivityManager* activityManager() const { return manager_; }

 private:
  friend class ActivityManager;
  FileDescriptor(ActivityManager* manager, int fd, std::uint64_t id) : manager_(manager), id_(id), fd_(fd) {}
  void fire();

  ActivityManager* manager_;
  std::uint64_t id_;  // the manager's key for it: a ready event names the id, never a pointer
  std::uint64_t readableCount_ = 0;
  int fd_;
  bool readInterest_ = true;
};

}  // namespace Vex
