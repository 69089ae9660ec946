#include "platform/log/LogMessage.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <deque>

#include "platform/log/LogSink.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Strep.h"

namespace Vex {
EnumType const& EnumTraits<Log::Severity>::type() {
  static EnumType const t("Log::Severity", {{0, "emergency"},
                                            {1, "alert"},
                                            {2, "critical"},
                                            {3, "error"},
                                            {4, "warning"},
                                            {5, "notice"},
                                            {6, "info"},
                                            {7, "debug"}});
  return t;
}
}  // namespace Vex

namespace Log {
namespace {

[[maybe_unused]] auto const& kSeverityRegistered = Vex::EnumTraits<Severity>::type();

std::deque<Message>& registry() {
  static std::deque<Message> r;
  return r;
}

std::string asText(Arg const& a) {
  return std::visit(
      [](auto const& v) -> std::string {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>)
          return v;
        else
          return Vex::strep(v);
      },
      a.value());
}

// One conversion: directive is "%", flags, width and precision (without the letter).
std::string convert(std::string directive, char letter, Arg const& a) {
  char buf[128];
  auto const& v = a.value();
  switch (letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X': {
      bool const isSigned = letter == 'd' || letter == 'i';
      std::int64_t s = 0;
      std::uint64_t u = 0;
      if (auto const* i = std::get_if<std::int64_t>(&v)) {
        s = *i;
        u = static_cast<std::uint64_t>(*i);
      } else if (auto const* n = std::get_if<std::uint64_t>(&v)) {
        s = static_cast<std::int64_t>(*n);
        u = *n;
      } else if (auto const* d = std::get_if<double>(&v)) {
        double const t = std::isfinite(*d) ? std::trunc(*d) : 0.0;
        s = t <= -9.2e18 ? INT64_MIN : t >= 9.2e18 ? INT64_MAX : static_cast<std::int64_t>(t);
        u = t <= 0 ? 0 : t >= 1.8e19 ? UINT64_MAX : static_cast<std::uint64_t>(t);
      } else {
        return asText(a);
      }
      if (isSigned) {
        directive += PRId64;
        std::snprintf(buf, sizeof buf, directive.c_str(), s);
      } else {
        directive += letter == 'u' ? PRIu64 : letter == 'x' ? PRIx64 : PRIX64;
        std::snprintf(buf, sizeof buf, directive.c_str(), u);
      }
      return buf;
    }
    case 'f':
    case 'e':
    case 'g': {
      double d = 0;
      if (auto const* i = std::get_if<std::int64_t>(&v))
        d = static_cast<double>(*i);
      else if (auto const* n = std::get_if<std::uint64_t>(&v))
        d = static_cast<double>(*n);
      else if (auto const* f = std::get_if<double>(&v))
        d = *f;
      else
        return asText(a);
      directive += letter;
      std::snprintf(buf, sizeof buf, directive.c_str(), d);
      return buf;
    }
    default: {  // 's'
      directive += 's';
      std::string const text = asText(a);
      int const n = std::snprintf(nullptr, 0, directive.c_str(), text.c_str());
      std::string out(static_cast<std::size_t>(std::max(n, 0)), '\0');
      std::snprintf(out.data(), out.size() + 1, directive.c_str(), text.c_str());
      return out;
    }
  }
}

}  // namespace

std::string formatText(std::string_view format, std::vector<Arg> const& args) {
  std::string out;
  std::size_t next = 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    char const c = format[i];
    if (c != '%') {
      out += c;
      continue;
    }
    std::size_t j = i + 1;
    if (j < format.size() && format[j] == '%') {
      out += '%';
      i = j;
      continue;
    }
    std::string directive = "%";
    while (j < format.size() && std::string_view("-+ #0").find(format[j]) != std::string_view::npos) directive += format[j++];
    for (int digits = 0; j < format.size() && format[j] >= '0' && format[j] <= '9' && digits < 3; ++digits) directive += format[j++];
    if (j < format.size() && format[j] == '.') {
      directive += format[j++];
      for (int digits = 0; j < format.size() && format[j] >= '0' && format[j] <= '9' && digits < 2; ++digits)
        directive += format[j++];
    }
    char const letter = j < format.size() ? format[j] : '\0';
    if (std::string_view("diuxXfegs").find(letter) == std::string_view::npos || letter == '\0') {
      out.append(format.substr(i, j - i + (letter ? 1 : 0)));  // not a conversion: kept as written
      i = j;
      continue;
    }
    out += next < args.size() ? convert(directive, letter, args[next]) : std::string("<missing>");
    ++next;
    i = j;
  }
  return out;
}

Message const& Message::messageIs(MessageDef def) {
  for (Message const& m : registry()) {
    if (m.name() != def.name) continue;
    VEX_ASSERT_MSG(m.def() == def, "structured log message " + def.name + " defined twice with different contents");
    return m;
  }
  return registry().emplace_back(std::move(def));
}

Message const* Message::message(std::string_view name) {
  for (Message const& m : registry())
    if (m.name() == name) return &m;
  return nullptr;
}

bool Message::logArgs(std::vector<Arg> const& args) const {
  auto* am = Vex::ActivityManager::current();
  Vex::Seconds const now = am ? am->now() : 0.0;
  if (def_.throttle.burst > 0) {
    Vex::Seconds const since = now - def_.throttle.interval;
    recent_.erase(std::remove_if(recent_.begin(), recent_.end(), [&](Vex::Seconds t) { return t <= since; }), recent_.end());
    if (recent_.size() >= def_.throttle.burst) {
      ++suppressed_;
      return false;
    }
    recent_.push_back(now);
  }
  ++emitted_;
  emit(Record{now, def_.name, def_.severity, formatText(def_.format, args)});
  return true;
}

}  // namespace Log
