#include "sim/JsonReader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "sim/ExactNumbers.h"
#include "sim/Printable.h"

namespace FalSim {

namespace {

// Line and column (both from 1) of a byte offset, for syntax errors.
std::pair<std::size_t, std::size_t> lineColumn(std::string_view text, std::size_t offset) {
  std::size_t line = 1, column = 1;
  for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  return {line, column};
}

// The offset of the first bracket that opens a level deeper than maxDepth, or npos.
std::size_t tooDeep(std::string_view text, std::size_t maxDepth) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char const ch = text[i];
    if (inString) {
      if (ch == '\\') {
        ++i;
      } else if (ch == '"') {
        inString = false;
      }
    } else if (ch == '"') {
      inString = true;
    } else if (ch == '[' || ch == '{') {
      if (++depth > maxDepth) return i;
    } else if ((ch == ']' || ch == '}') && depth > 0) {
      --depth;
    }
  }
  return std::string_view::npos;
}

// The text of the n-th number (from 0) of a valid JSON text, in document
// order: the n-th token outside strings that starts with '-' or a digit.
std::string_view nthNumber(std::string_view text, std::size_t n) {
  auto numberChar = [](char c) { return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E'; };
  std::size_t seen = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char const ch = text[i];
    if (ch == '"') {
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\') ++i;
      }
    } else if (ch == '-' || (ch >= '0' && ch <= '9')) {
      std::size_t end = i;
      while (end < text.size() && numberChar(text[end])) ++end;
      if (seen++ == n) return text.substr(i, end - i);
      i = end - 1;
    }
  }
  return {};
}

// Counts the numbers before target in document order; true once it is found.
bool numbersBefore(rapidjson::Value const& v, rapidjson::Value const& target, std::size_t& count) {
  if (&v == &target) return true;
  if (v.IsNumber()) {
    ++count;
  } else if (v.IsArray()) {
    for (auto const& x : v.GetArray()) {
      if (numbersBefore(x, target, count)) return true;
    }
  } else if (v.IsObject()) {
    for (auto const& m : v.GetObject()) {
      if (numbersBefore(m.value, target, count)) return true;
    }
  }
  return false;
}

std::string at(std::string_view text, std::size_t offset) {
  auto const [line, column] = lineColumn(text, offset);
  return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

}  // namespace

std::string JsonReader::read(std::string const& path, std::string const& what) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) throw FileError(path, "(file)", what, "a directory");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw FileError(path, "(file)", what, "a file that cannot be opened");
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) throw FileError(path, "(file)", what, "a read error");
  return text.str();
}

JsonReader::Value const& JsonReader::parse(std::string_view text) {
  if (std::size_t const deep = tooDeep(text, kMaxDepth); deep != std::string_view::npos) {
    throw FileError(file_, at(text, deep), "JSON nested at most " + std::to_string(kMaxDepth) + " levels deep");
  }
  text_ = text;
  // Numbers are converted by ExactNumbers, to the nearest double: a written
  // file prints the shortest text that reads back exactly, and must.
  rapidjson::Reader reader;
  rapidjson::MemoryStream stream(text.data(), text.size());
  auto read = [&](rapidjson::Document& doc) {
    ExactNumbers handler(doc);
    return !reader.Parse<rapidjson::kParseNumbersAsStringsFlag>(stream, handler).IsError();
  };
  doc_.Populate(read);
  if (reader.HasParseError()) {
    throw FileError(file_, at(text, reader.GetErrorOffset()),
                    std::string("valid JSON (") + rapidjson::GetParseError_En(reader.GetParseErrorCode()) + ")");
  }
  refuseRepeatedFields(doc_, "");
  return doc_;
}

void JsonReader::refuseRepeatedFields(Value const& v, std::string const& path) const {
  if (v.IsArray()) {
    auto const a = v.GetArray();
    for (rapidjson::SizeType i = 0; i < a.Size(); ++i) {
      if (a[i].IsArray() || a[i].IsObject()) refuseRepeatedFields(a[i], item(path, i));
    }
    return;
  }
  if (!v.IsObject()) return;
  // Names in order, then sorted stably: the second of two equal names is
  // the later one in the file.
  std::vector<std::pair<std::string_view, std::size_t>> names;
  names.reserve(v.MemberCount());
  for (auto const& m : v.GetObject()) names.emplace_back(std::string_view(m.name.GetString(), m.name.GetStringLength()), names.size());
  std::stable_sort(names.begin(), names.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
  std::size_t repeated = names.size();
  for (std::size_t i = 1; i < names.size(); ++i) {
    if (names[i].first == names[i - 1].first) repeated = std::min(repeated, names[i].second);
  }
  if (repeated < names.size()) {
    auto const& m = *(v.MemberBegin() + static_cast<std::ptrdiff_t>(repeated));
    failWith(child(path, std::string_view(m.name.GetString(), m.name.GetStringLength())), "each field once per object",
             "a second one");
  }
  for (auto const& m : v.GetObject()) {
    if (m.value.IsArray() || m.value.IsObject()) {
      refuseRepeatedFields(m.value, child(path, std::string_view(m.name.GetString(), m.name.GetStringLength())));
    }
  }
}

std::string_view JsonReader::asWritten(Value const& v) const {
  std::size_t before = 0;
  if (text_.empty() || !numbersBefore(doc_, v, before)) return {};
  return nthNumber(text_, before);
}

void JsonReader::fail(std::string const& path, std::string const& expected, Value const* got) const {
  throw FileError(file_, path, expected, got ? describe(*got) : "nothing");
}

void JsonReader::failWith(std::string const& path, std::string const& expected, std::string const& got) const {
  throw FileError(file_, path, expected, got);
}

JsonReader::Value const& JsonReader::object(Value const& v, std::string const& path, char const* what) const {
  if (!v.IsObject()) fail(path, what, &v);
  return v;
}

JsonReader::Value const* JsonReader::member(Value const& obj, char const* name) {
  auto it = obj.FindMember(name);
  return it == obj.MemberEnd() ? nullptr : &it->value;
}

JsonReader::Value const& JsonReader::required(Value const& obj, std::string const& path, char const* name,
                                              std::string const& what) const {
  Value const* v = member(obj, name);
  if (!v) fail(child(path, name), what);
  return *v;
}

void JsonReader::knownFields(Value const& obj, std::string const& path, std::initializer_list<char const*> names) const {
  for (auto it = obj.MemberBegin(); it != obj.MemberEnd(); ++it) {
    std::string_view const n(it->name.GetString(), it->name.GetStringLength());
    if (std::none_of(names.begin(), names.end(), [&](char const* k) { return n == k; })) {
      failWith(child(path, n), "a known field (one of " + list(names) + ")", "an unknown field");
    }
  }
}

double JsonReader::number(Value const& v, std::string const& path, std::string const& what, double lo, double hi) const {
  if (!v.IsNumber()) fail(path, what, &v);
  double const d = v.GetDouble();
  if (!std::isfinite(d) || d < lo || d > hi) fail(path, what, &v);
  return d;
}

std::uint64_t JsonReader::integer(Value const& v, std::string const& path, std::string const& what, std::uint64_t lo,
                                  std::uint64_t hi) const {
  if (v.IsDouble()) fail(path, "a whole number (" + what + ")", &v);
  if (!v.IsUint64() || v.GetUint64() < lo || v.GetUint64() > hi) fail(path, what, &v);
  return v.GetUint64();
}

bool JsonReader::boolean(Value const& v, std::string const& path) const {
  if (!v.IsBool()) fail(path, "true or false", &v);
  return v.GetBool();
}

std::string JsonReader::string(Value const& v, std::string const& path, std::string const& what) const {
  if (!v.IsString()) fail(path, what, &v);
  return std::string(v.GetString(), v.GetStringLength());
}

JsonReader::Value::ConstArray JsonReader::array(Value const& v, std::string const& path, std::string const& what) const {
  if (!v.IsArray()) fail(path, what, &v);
  return v.GetArray();
}

bool JsonReader::optBool(Value const& obj, std::string const& path, char const* name, bool dflt) const {
  Value const* v = member(obj, name);
  return v ? boolean(*v, child(path, name)) : dflt;
}

L3::VrfName JsonReader::vrfName(Value const& v, std::string const& path) const {
  std::string const text = string(v, path, "a VRF name");
  if (text.empty() || text.size() > L3::VrfName::maxLength) fail(path, "a VRF name of 1 to 100 bytes", &v);
  return L3::VrfName(text);
}

Netcore::IntfId JsonReader::ethernet(Value const& v, std::string const& path) const {
  std::string const text = string(v, path, "an Ethernet interface name (\"Ethernet3\")");
  Netcore::IntfId intf;
  try {
    intf = Netcore::IntfId(text);
  } catch (std::exception const&) {
    fail(path, "an Ethernet interface name (\"Ethernet3\")", &v);
  }
  if (intf.kind() != Netcore::IntfId::Kind::ethernet) fail(path, "an Ethernet interface name (\"Ethernet3\")", &v);
  return intf;
}

Bridging::VlanId JsonReader::vlan(Value const& v, std::string const& path) const {
  return Bridging::VlanId(static_cast<std::uint32_t>(integer(v, path, "a VLAN id from 1 to 4094", 1, 4094)));
}

MrouteLib::PortVlan JsonReader::portVlan(Value const& v, std::string const& path, char const* what) const {
  std::string const text = string(v, path, what);
  MrouteLib::PortVlan pv;
  try {
    pv = MrouteLib::PortVlan(text);
  } catch (std::exception const&) {
    fail(path, what, &v);
  }
  if (pv.port().kind() != Netcore::IntfId::Kind::ethernet) fail(path, what, &v);
  return pv;
}

Routing::Multicast::Fib::CounterMode JsonReader::counterMode(Value const& v, std::string const& path) const {
  using Routing::Multicast::Fib::CounterMode;
  char const* const what = "one of \"packets\", \"bytes\", \"packetsAndBytes\"";
  std::string const text = string(v, path, what);
  if (text == "packets") return CounterMode::packets;
  if (text == "bytes") return CounterMode::bytes;
  if (text == "packetsAndBytes") return CounterMode::packetsAndBytes;
  fail(path, what, &v);
}

void JsonReader::zombies(Value const& v, std::string const& path, bool& enabled, Vex::Seconds& lifetime) const {
  object(v, path);
  knownFields(v, path, {"enabled", "lifetime"});
  enabled = optBool(v, path, "enabled", enabled);
  if (auto const* l = member(v, "lifetime")) {
    lifetime = number(*l, child(path, "lifetime"), "a lifetime in seconds from 0 to 3600", 0, 3600);
  }
}

void JsonReader::aging(Value const& v, std::string const& path, std::uint8_t& activityPollingInterval) const {
  object(v, path);
  knownFields(v, path, {"activityPollingInterval"});
  if (auto const* i = member(v, "activityPollingInterval")) {
    activityPollingInterval = static_cast<std::uint8_t>(
        integer(*i, child(path, "activityPollingInterval"), "an interval in seconds from 1 to 255", 1, 255));
  }
}

std::string JsonReader::list(std::initializer_list<char const*> names) {
  std::string out;
  for (char const* n : names) {
    if (!out.empty()) out += ", ";
    out += n;
  }
  return out;
}

std::string JsonReader::child(std::string const& path, std::string_view name) {
  std::string const shown = Printable::plainName(name) ? std::string(name) : Printable::quoted(name);
  return path.empty() ? shown : path + "." + shown;
}

std::string JsonReader::quoted(std::string_view s) { return Printable::quoted(s); }

std::string JsonReader::describe(Value const& v) const {
  if (v.IsNull()) return "null";
  if (v.IsBool()) return v.GetBool() ? "true" : "false";
  if (v.IsNumber()) {
    if (std::string_view const written = asWritten(v); !written.empty()) return "the number " + std::string(written);
    std::ostringstream os;
    if (v.IsUint64()) {
      os << v.GetUint64();
    } else if (v.IsInt64()) {
      os << v.GetInt64();
    } else {
      os << v.GetDouble();
    }
    return "the number " + os.str();
  }
  if (v.IsString()) return "the string " + quoted(std::string_view(v.GetString(), v.GetStringLength()));
  if (v.IsArray()) return "an array";
  return "an object";
}

}  // namespace FalSim
