#pragma once
// The common base of the hook objects through which the library reaches
// chip-specific code.
//
// falAssert stops the agent through the fatal handler with the given text,
// the way the library's own invariants do, so a chip agent's broken
// invariant reads the same as the library's.

#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Fal {

// The base of both hook interfaces: a named entity with the hooks' way of
// stopping the agent.
class FALMROUTE_EXPORT FalBaseHelper : public Vex::Entity {
 public:
  // An object named `name`.
  explicit FalBaseHelper(Vex::Name name) : name_(std::move(name)) {}

  // The name given at construction, for traces and diagnostics.
  Vex::Name const& name() const { return name_; }
  // Whether the object takes part in the entity framework's backup of
  // entities; the library itself never reads it.
  virtual bool hasBackupSupport() const { return false; }
  // The class name of the hook object, for traces and diagnostics.
  virtual Vex::String fwkType() const { return "Fal::FalBaseHelper"; }

  // Stops the agent with text unless cond holds. The place reported is the
  // caller's (__builtin_FILE and __builtin_LINE, which both compilers the
  // project builds with evaluate at the call, unlike std::source_location,
  // which clang 14 with libstdc++ 12 lacks).
  static void falAssert(bool cond, char const* text, char const* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!cond) falAssert(text, file, line);
  }
  // Always stops the agent with text.
  [[noreturn]] static void falAssert(char const* text, char const* file = __builtin_FILE(), int line = __builtin_LINE());

 protected:
  ~FalBaseHelper() override = default;

 private:
  Vex::Name name_;
};

}  // namespace Fal
