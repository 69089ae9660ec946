#pragma once
// The framework's textual "strep" form of values, and its parser.
//
// A value type T prints through an ADL-found `void strepOut(std::ostream&, T const&)`
// and parses through `T strepIn(Vex::StrepParser&, Vex::StrepTag<T>)` declared in
// T's namespace. Vex::strep(v) and Vex::parse<T>(text) are the entry points.
#include <charconv>
#include <cstdint>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Vex {

class FALMROUTE_EXPORT ParseError : public std::runtime_error {
 public:
  explicit ParseError(std::string const& what) : std::runtime_error(what) {}
};

template <class T>
struct StrepTag {};

class FALMROUTE_EXPORT StrepParser {
 public:
  explicit StrepParser(std::string_view text) : text_(text) {}
  std::string_view rest() const { return text_.substr(pos_); }
  bool atEnd() const { return pos_ >= text_.size(); }
  std::size_t pos() const { return pos_; }
  void skipSpace();
  // Consumes lit exactly or throws a ParseError naming it.
  void expect(std::string_view lit);
  bool tryConsume(std::string_view lit);
  // Consumes characters up to (not including) the first of stops, or the end.
  std::string_view takeUntil(std::string_view stops);
  // A token of letters, digits and the characters in extra.
  std::string_view token(std::string_view extra = "");
  [[noreturn]] void fail(std::string const& expected) const;

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
};

// Built-in forms: integers in decimal, bools True/False, doubles in their
// shortest round-trip form (inf, -inf, nan), strings single-quoted with
// backslash escapes.
FALMROUTE_EXPORT void strepOut(std::ostream& os, bool v);
FALMROUTE_EXPORT void strepOut(std::ostream& os, double v);
FALMROUTE_EXPORT void strepOut(std::ostream& os, std::string const& v);
// Without these a literal would print as a bool ("True").
FALMROUTE_EXPORT void strepOut(std::ostream& os, std::string_view v);
FALMROUTE_EXPORT void strepOut(std::ostream& os, char const* v);
template <class I>
  requires(std::is_integral_v<I> && !std::is_same_v<I, bool>)
void strepOut(std::ostream& os, I v) {
  os << +v;
}

FALMROUTE_EXPORT bool strepIn(StrepParser& p, StrepTag<bool>);
FALMROUTE_EXPORT double strepIn(StrepParser& p, StrepTag<double>);
FALMROUTE_EXPORT std::string strepIn(StrepParser& p, StrepTag<std::string>);
FALMROUTE_EXPORT std::int64_t parseSigned(StrepParser& p);
FALMROUTE_EXPORT std::uint64_t parseUnsigned(StrepParser& p);
template <class I>
  requires(std::is_integral_v<I> && !std::is_same_v<I, bool>)
I strepIn(StrepParser& p, StrepTag<I>) {
  if constexpr (std::is_signed_v<I>) {
    auto v = parseSigned(p);
    if (v < std::numeric_limits<I>::min() || v > std::numeric_limits<I>::max()) p.fail("an integer in range");
    return static_cast<I>(v);
  } else {
    auto v = parseUnsigned(p);
    if (v > std::numeric_limits<I>::max()) p.fail("an integer in range");
    return static_cast<I>(v);
  }
}

// Registered enumerations (see Enum.h) print and parse by their literal names.
template <class E>
struct EnumTraits;
template <class E>
concept RegisteredEnum = std::is_enum_v<E> && requires { EnumTraits<E>::type(); };
template <RegisteredEnum E>
void strepOut(std::ostream& os, E v);
template <RegisteredEnum E>
E strepIn(StrepParser& p, StrepTag<E>);

template <class T>
std::string strep(T const& v) {
  std::ostringstream os;
  strepOut(os, v);
  return os.str();
}

template <class T>
T parseFrom(StrepParser& p) {
  return strepIn(p, StrepTag<T>{});
}

// Parses the whole text as a T; throws ParseError on anything left over.
template <class T>
T parse(std::string_view text) {
  StrepParser p(text);
  T v = parseFrom<T>(p);
  p.skipSpace();
  if (!p.atEnd()) p.fail("end of text");
  return v;
}

// Prints fields into a template whose "%s" marks stand for each field's strep:
// strepFormat(os, "Value('T', ** {'a': %s, 'b': %s})", a, b).
template <class... T>
void strepFormat(std::ostream& os, std::string_view templ, T const&... fields) {
  auto one = [&](auto const& field) {
    auto mark = templ.find("%s");
    os << templ.substr(0, mark);
    strepOut(os, field);
    templ.remove_prefix(mark + 2);
  };
  (one(fields), ...);
  os << templ;
}

// Parses text written by strepFormat with the same template back into fields.
template <class... T>
void strepScan(StrepParser& p, std::string_view templ, T&... fields) {
  auto one = [&](auto& field) {
    auto mark = templ.find("%s");
    p.expect(templ.substr(0, mark));
    field = parseFrom<std::remove_reference_t<decltype(field)>>(p);
    templ.remove_prefix(mark + 2);
  };
  (one(fields), ...);
  p.expect(templ);
}

// Strep of a non-owning raw pointer: "RawPtr('Type', 0x...)".
FALMROUTE_EXPORT void strepOutRawPtr(std::ostream& os, char const* typeName, void const* p);
FALMROUTE_EXPORT void const* strepInRawPtr(StrepParser& p, char const* typeName);

}  // namespace Vex
