#include "platform/vex/Entity.h"

#include <algorithm>

#include "platform/vex/ActivityManager.h"

namespace Vex {

NotifieeBase::~NotifieeBase() {
  notifierBaseIs(nullptr);
  if (pendingDeferred_ > 0) {
    if (auto* am = ActivityManager::current()) am->deferredCancel(this);
  }
}

void NotifieeBase::notifierBaseIs(Entity const* e) {
  if (e == notifier_) return;
  if (notifier_) notifier_->notifieeDel(this);
  notifier_ = e;
  if (notifier_) notifier_->notifieeAdd(this);
}

Entity::~Entity() {
  if (!notifiees_) return;
  for (auto* n : *notifiees_)
    if (n) n->notifier_ = nullptr;
  delete notifiees_;
}

std::size_t Entity::notifieeCount() const {
  if (!notifiees_) return 0;
  return static_cast<std::size_t>(std::count_if(notifiees_->begin(), notifiees_->end(), [](auto* n) { return n != nullptr; }));
}

void Entity::notifieeAdd(NotifieeBase* n) const {
  if (!notifiees_) notifiees_ = new std::vector<NotifieeBase*>();
  notifiees_->push_back(n);
}

void Entity::notifieeDel(NotifieeBase* n) const {
  if (!notifiees_) return;
  auto it = std::find(notifiees_->begin(), notifiees_->end(), n);
  if (it == notifiees_->end()) return;
  if (iterating_ > 0) {
    *it = nullptr;
    holes_ = true;
  } else {
    notifiees_->erase(it);
  }
}

void Entity::compact() const {
  holes_ = false;
  notifiees_->erase(std::remove(notifiees_->begin(), notifiees_->end(), nullptr), notifiees_->end());
}

}  // namespace Vex
