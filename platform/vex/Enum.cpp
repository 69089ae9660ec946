#include "platform/vex/Enum.h"

#include <deque>

namespace Vex {
namespace {
std::deque<EnumType const*>& types() {
  static std::deque<EnumType const*> t;
  return t;
}
}  // namespace

EnumType::EnumType(std::string typeName, std::initializer_list<Literal> literals)
    : typeName_(std::move(typeName)), literals_(literals) {
  types().push_back(this);
}

std::string const* EnumType::name(std::int64_t value) const {
  for (auto const& l : literals_)
    if (l.value == value) return &l.name;
  return nullptr;
}

std::optional<std::int64_t> EnumType::value(std::string_view name) const {
  for (auto const& l : literals_)
    if (l.name == name) return l.value;
  return std::nullopt;
}

EnumType const* enumTypeByName(std::string_view typeName) {
  for (auto const* t : types())
    if (t->typeName() == typeName) return t;
  return nullptr;
}

}  // namespace Vex
