#pragma once
// Registered enumerations: a type name and its literals with their text forms.
//
// A registered enum E specialises Vex::EnumTraits<E> with `static
// Vex::EnumType const& type()`; it then prints and parses by its literal names.
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Vex {

class FALMROUTE_EXPORT EnumType {
 public:
  struct Literal {
    std::int64_t value;
    std::string name;
  };
  EnumType(std::string typeName, std::initializer_list<Literal> literals);
  std::string const& typeName() const { return typeName_; }
  std::vector<Literal> const& literals() const { return literals_; }
  // The literal's name, or null when the value has no literal.
  std::string const* name(std::int64_t value) const;
  std::optional<std::int64_t> value(std::string_view name) const;

 private:
  std::string typeName_;
  std::vector<Literal> literals_;
};

// Every registered enumeration type by name.
FALMROUTE_EXPORT EnumType const* enumTypeByName(std::string_view typeName);

// The text form of a value of a registered enum: its literal name, or the
// number when it has no literal.
template <RegisteredEnum E>
std::string enumName(E v) {
  auto n = static_cast<std::int64_t>(v);
  auto const* s = EnumTraits<E>::type().name(n);
  return s ? *s : std::to_string(n);
}

template <RegisteredEnum E>
void strepOut(std::ostream& os, E v) {
  os << enumName(v);
}

template <RegisteredEnum E>
E strepIn(StrepParser& p, StrepTag<E>) {
  auto tok = p.token();
  auto v = EnumTraits<E>::type().value(tok);
  if (!v) p.fail("a literal of " + EnumTraits<E>::type().typeName());
  return static_cast<E>(*v);
}

}  // namespace Vex
