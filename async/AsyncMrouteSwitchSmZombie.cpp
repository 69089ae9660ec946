// Fal::Mroute::AsyncMrouteSwitchSm: the zombie timer. The clock follows the
// earliest zombie of the switch; when it fires, a purge pass frees the
// zombies whose time has come (removing one from the switch's collection
// drops its last reference, and the switch deletes its group). A pass frees
// at least kZombiesPerPass and then stops once kZombiePassBudget has passed,
// leaving the rest, already due, to the next turn of the loop.
#include "async/AsyncMrouteSwitchSm.h"
#include "async/AsyncMrouteTrace.h"
#include "platform/vex/ActivityManager.h"

namespace Fal::Mroute {

void AsyncMrouteSwitchSm::handleZombie() {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::handleZombie()");
  if (!initialized_) return;
  if (mrouteSwitch_->deleted()) {
    FAL_ASYNC_TRACE(2, "MrouteSwitch marked for deletion. Skipping Zombie handling");
    return;
  }
  if (auto const* first = mrouteSwitch_->zombieOifSet().first()) {
    FAL_ASYNC_TRACE(2, "Starting zombie timer for mcastId: " << first->first.multicastId);
    zombieClock_->timeMinIs(first->first.expiryTime);
  } else {
    FAL_ASYNC_TRACE(2, "Cancelling zombie timer");
    zombieClock_->timeMinIs(Vex::kNever);
  }
}

void AsyncMrouteSwitchSm::handleZombie(ZombieKey const& key) {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::handleZombie()" << " key " << key);
  if (initialized_ && !mrouteSwitch_->deleted()) handleZombie();
}

void AsyncMrouteSwitchSm::handleZombieClock() {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::handleZombieClock()");
  if (!initialized_) return;
  Vex::Seconds const deadline = now() + kZombiePassBudget;
  std::uint32_t removed = 0;
  for (;;) {
    auto const* first = mrouteSwitch_->zombieOifSet().first();
    if (!first || first->first.expiryTime > now()) break;
    ZombieKey const key = first->first;
    FAL_ASYNC_TRACE(2, "Removing zombie with mcastId: " << key.multicastId);
    mrouteSwitch_->zombieOifSetDel(key);
    if (++removed >= kZombiesPerPass && now() >= deadline) {
      FAL_ASYNC_TRACE(2, "Not finishing reviewing all zombies.");
      break;
    }
  }
  handleZombie();
}

void AsyncMrouteSwitchSm::doForcePurgeOneZombie() {
  FAL_ASYNC_TRACE(2, "AsyncMrouteSwitchSm::doForcePurgeOneZombie()");
  auto const* first = mrouteSwitch_->zombieOifSet().first();
  if (!first) return;
  ZombieKey const key = first->first;
  FAL_ASYNC_TRACE(2, "Force removing zombie with mcastId: " << key.multicastId);
  RING_TRACE("AsyncMrouteSwitchSm::doForcePurgeOneZombie", " force removing zombie with mcastId " << key.multicastId);
  mrouteSwitch_->zombieOifSetDel(key);
}

void AsyncMrouteSwitchSm::doCleanup() {
  FAL_ASYNC_TRACE(4, "AsyncMrouteSwitchSm::doCleanup()");
  if (!initialized_) return;
  // From now on freed records skip the zombie stage: each removal below
  // deletes its group at once.
  mrouteSwitch_->deletedIs(true);
  while (auto const* first = mrouteSwitch_->zombieOifSet().first()) {
    ZombieKey const key = first->first;
    FAL_ASYNC_TRACE(4, "Deleting zombie with mcastId: " << key.multicastId);
    mrouteSwitch_->zombieOifSetDel(key);
  }
}

}  // namespace Fal::Mroute
