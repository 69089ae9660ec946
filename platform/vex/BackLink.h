#pragma once
// Vex::BackLink: the one object through which many records reach an owner
// that does not hold them (a chip's table and the sets it hands out). The
// owner makes it, each record holds it counted, and the owner clears it
// when it goes away: every record still alive then finds no owner, at the
// cost of one pointer per record and no per-record bookkeeping.
#include "platform/vex/Ptr.h"

namespace Vex {

template <class T>
class BackLink : public RefCounted {
 public:
  explicit BackLink(T* target) : target_(target) {}

  // Null once the owner has gone.
  T* target() const { return target_; }
  void targetDel() { target_ = nullptr; }

 private:
  T* target_;
};

}  // namespace Vex
