#pragma once
// FalSim::JsonReader: checked reading of a JSON file the tools are given (a
// scenario, an agent configuration): every value is checked for its type and
// range before it is used, and anything wrong ends in a FileError naming the
// file, the field as a JSON path and what was expected there.
//
// Loaders derive from it and read their sections with its typed accessors;
// paths are built with child() and item(). Unknown fields are errors
// (knownFields): a misspelt field would otherwise be ignored silently; so is
// a field given twice in one object, anywhere in the file (parse): JSON
// readers disagree on which of the two counts.
//
// Messages show what the file holds as it is written: a number as its text
// ("2.0", not 2), a name that is empty or odd in quotes, and bytes that are
// not printable UTF-8 escaped (Printable).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/fib/CounterMode.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/IntfId.h"
#include "platform/types/VlanId.h"
#include "platform/types/VrfId.h"
#include "platform/types/VrfName.h"
#include "platform/upg/RapidJson.h"
#include "platform/vex/Types.h"
#include "sim/FileError.h"

namespace FalSim {

class JsonReader {
 public:
  using Value = rapidjson::Value;
  // Nesting a document may have: the parser recurses once per level, so a
  // file of a million "[" would exhaust the stack.
  static constexpr std::size_t kMaxDepth = 64;

  explicit JsonReader(std::string file) : file_(std::move(file)) {}
  JsonReader(JsonReader const&) = delete;
  JsonReader& operator=(JsonReader const&) = delete;
  std::string const& file() const { return file_; }

  // The whole file at path; what names it in errors ("a readable scenario file").
  static std::string read(std::string const& path, std::string const& what);
  // The document in text, kept by the reader (text must outlive it); a
  // syntax error names its line and column, a repeated field its path.
  Value const& parse(std::string_view text);

  [[noreturn]] void fail(std::string const& path, std::string const& expected, Value const* got = nullptr) const;
  [[noreturn]] void failWith(std::string const& path, std::string const& expected, std::string const& got) const;

  // ---- typed access ----
  Value const& object(Value const& v, std::string const& path, char const* what = "an object") const;
  static Value const* member(Value const& obj, char const* name);
  Value const& required(Value const& obj, std::string const& path, char const* name, std::string const& what) const;
  void knownFields(Value const& obj, std::string const& path, std::initializer_list<char const*> names) const;
  double number(Value const& v, std::string const& path, std::string const& what, double lo, double hi) const;
  // A whole number; a fraction or an exponent ("2.0", "1e3") is refused as
  // not whole whatever its value.
  std::uint64_t integer(Value const& v, std::string const& path, std::string const& what, std::uint64_t lo,
                        std::uint64_t hi) const;
  bool boolean(Value const& v, std::string const& path) const;
  std::string string(Value const& v, std::string const& path, std::string const& what) const;
  Value::ConstArray array(Value const& v, std::string const& path, std::string const& what) const;
  bool optBool(Value const& obj, std::string const& path, char const* name, bool dflt) const;
  // The items of a (at path), each read by read(item, itemPath); one equal
  // to an item before it is refused as "<what> not listed before".
  template <class T, class Read>
  std::vector<T> distinct(Value::ConstArray a, std::string const& path, char const* what, Read read) const {
    std::vector<T> items;
    items.reserve(a.Size());
    for (std::size_t i = 0; i < a.Size(); ++i) {
      T x = read(a[i], item(path, i));
      if (std::find(items.begin(), items.end(), x) != items.end()) {
        fail(item(path, i), std::string(what) + " not listed before", &a[i]);
      }
      items.push_back(std::move(x));
    }
    return items;
  }

  // ---- values of this system ----
  L3::VrfName vrfName(Value const& v, std::string const& path) const;
  // The "name" and "id" of the VRF object at path, neither taken by one of
  // vrfs (anything whose members have .name and .id).
  template <class Vrfs>
  std::pair<L3::VrfName, Fal::VrfId> newVrf(Value const& obj, std::string const& path, Vrfs const& vrfs) const {
    L3::VrfName name = vrfName(required(obj, path, "name", "a VRF name"), child(path, "name"));
    auto const id = static_cast<Fal::VrfId>(integer(required(obj, path, "id", "a VRF id from 0 to 65535"), child(path, "id"),
                                                    "a VRF id from 0 to 65535", 0, 65535));
    for (auto const& d : vrfs) {
      if (d.name == name) fail(child(path, "name"), "a VRF name not declared before", member(obj, "name"));
      if (d.id == id) fail(child(path, "id"), "a VRF id not declared before", member(obj, "id"));
    }
    return {std::move(name), id};
  }
  Netcore::IntfId ethernet(Value const& v, std::string const& path) const;
  Bridging::VlanId vlan(Value const& v, std::string const& path) const;
  // "EthernetN.VLAN" or "EthernetN"; what says which ports are allowed.
  MrouteLib::PortVlan portVlan(Value const& v, std::string const& path, char const* what) const;
  Routing::Multicast::Fib::CounterMode counterMode(Value const& v, std::string const& path) const;

  // ---- sections every agent's file has ----
  // {"enabled": true, "lifetime": 4.0}: fields absent keep their value.
  void zombies(Value const& v, std::string const& path, bool& enabled, Vex::Seconds& lifetime) const;
  // {"activityPollingInterval": 10}.
  void aging(Value const& v, std::string const& path, std::uint8_t& activityPollingInterval) const;

  // ---- paths and texts ----
  // "chips.count"; a name that is not a plain identifier is quoted
  // ("vrfs[0].\"\"", "\"odd name\"").
  static std::string child(std::string const& path, std::string_view name);
  static std::string item(std::string const& path, std::size_t i) { return path + "[" + std::to_string(i) + "]"; }
  // "a, b, c".
  static std::string list(std::initializer_list<char const*> names);
  // What a JSON value is, for "got ..." in messages; a number as written in
  // the text parsed.
  std::string describe(Value const& v) const;
  // The text in quotes, escaped, cut after 60 bytes.
  static std::string quoted(std::string_view s);

 private:
  // The first field given twice in an object under v (path), or nothing.
  void refuseRepeatedFields(Value const& v, std::string const& path) const;
  // The number v as the text has it; empty when v is not in the document.
  std::string_view asWritten(Value const& v) const;

  std::string file_;
  std::string_view text_;
  rapidjson::Document doc_;
};

}  // namespace FalSim
