#pragma once
// Structured log messages: each is defined once per process by name, with
// its severity, its text format, an explanation of what it means and the
// action an operator should take; code then logs it with the values its
// format calls for.
//
//   static Log::Message const& kTooLow = Log::Message::messageIs({
//       .name = "SOME_NAME", .severity = Log::Severity::warning,
//       .format = "The value is %ds instead of %ds", .explanation = "...",
//       .recommendedAction = Log::kNoActionRequired});
//   kTooLow.log(actual, configured);
//
// Formats take %d %i %u %x %X (integers; a floating value is truncated
// toward zero), %f %e %g (floating), %s (any value as text) and %%, with the
// usual flags, width and precision. A missing argument prints as
// "<missing>"; extra arguments are ignored. Logging never throws.
//
// Throttle: at most `burst` emissions in any window of `interval` seconds of
// the event loop's time; burst 0 means every call is emitted. `flags` is
// carried for the sinks and not interpreted here.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "platform/log/LogSeverity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Log {

inline constexpr char kNoActionRequired[] = "No action is required.";

struct FALMROUTE_EXPORT Throttle {
  std::uint32_t burst = 0;
  Vex::Seconds interval = 0;
  friend bool operator==(Throttle const&, Throttle const&) = default;
};

struct FALMROUTE_EXPORT MessageDef {
  std::string name;
  Severity severity = Severity::info;
  std::string format;
  std::string explanation;
  std::string recommendedAction;
  Throttle throttle;
  std::uint32_t flags = 0;
  friend bool operator==(MessageDef const&, MessageDef const&) = default;
};

// One argument of a message.
class FALMROUTE_EXPORT Arg {
 public:
  template <class T>
    requires std::is_arithmetic_v<T>
  Arg(T v) {  // NOLINT(google-explicit-constructor)
    if constexpr (std::is_floating_point_v<T>)
      v_ = static_cast<double>(v);
    else if constexpr (std::is_same_v<T, bool>)
      v_ = std::int64_t{v};
    else if constexpr (std::is_signed_v<T>)
      v_ = static_cast<std::int64_t>(v);
    else
      v_ = static_cast<std::uint64_t>(v);
  }
  Arg(std::string_view v) : v_(std::string(v)) {}  // NOLINT(google-explicit-constructor)
  Arg(char const* v) : v_(std::string(v)) {}       // NOLINT(google-explicit-constructor)
  Arg(std::string v) : v_(std::move(v)) {}         // NOLINT(google-explicit-constructor)

  std::variant<std::int64_t, std::uint64_t, double, std::string> const& value() const { return v_; }

 private:
  std::variant<std::int64_t, std::uint64_t, double, std::string> v_;
};

// The format with args filled in (the rules above).
FALMROUTE_EXPORT std::string formatText(std::string_view format, std::vector<Arg> const& args);

class FALMROUTE_EXPORT Message {
 public:
  // Defines the message, or returns the one already defined under its name.
  // A second definition that differs stops the agent: a name means one
  // message for the life of the process.
  static Message const& messageIs(MessageDef def);
  // The message defined under name, or null.
  static Message const* message(std::string_view name);

  MessageDef const& def() const { return def_; }
  std::string const& name() const { return def_.name; }
  Severity severity() const { return def_.severity; }

  // Emits the message with args; false when the throttle held it back.
  template <class... A>
  bool log(A const&... args) const {
    return logArgs({Arg(args)...});
  }
  bool logArgs(std::vector<Arg> const& args) const;
  // How many times it was emitted, and held back.
  std::uint64_t emitted() const { return emitted_; }
  std::uint64_t suppressed() const { return suppressed_; }

  explicit Message(MessageDef def) : def_(std::move(def)) {}

 private:
  MessageDef def_;
  mutable std::vector<Vex::Seconds> recent_;  // emission times inside the throttle window
  mutable std::uint64_t emitted_ = 0;
  mutable std::uint64_t suppressed_ = 0;
};

}  // namespace Log
