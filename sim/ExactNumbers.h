#pragma once
// FalSim::ExactNumbers: builds a RapidJSON document from a reader that hands
// numbers over as their text (kParseNumbersAsStringsFlag), and converts each
// number itself.
//
// A double is read to the nearest one, as strtod reads it, so that a file
// written with the shortest text of each double reads back into the same
// numbers: RapidJSON's default number parse may land a unit off for a long
// mantissa, and its full-precision parse reads a zero of many digits
// ("0.000…0" past 22 places, "0e-30") as a tiny nonzero number. An integer
// takes the type the default parse gives it (Uint or Int where 32 bits hold
// it, else Uint64 or Int64, else a double), so readers see the same kinds.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>

#include "platform/upg/RapidJson.h"

namespace FalSim {

class ExactNumbers {
 public:
  using SizeType = rapidjson::SizeType;
  explicit ExactNumbers(rapidjson::Document& doc) : doc_(doc) {}

  bool RawNumber(char const* text, SizeType length, bool /*copy*/) {
    char const* const end = text + length;
    bool const integral = std::none_of(text, end, [](char c) { return c == '.' || c == 'e' || c == 'E'; });
    if (integral && *text == '-') {
      std::int64_t v = 0;
      if (auto const [p, ec] = std::from_chars(text, end, v); ec == std::errc() && p == end) {
        return v >= std::numeric_limits<std::int32_t>::min() ? doc_.Int(static_cast<int>(v)) : doc_.Int64(v);
      }
    } else if (integral) {
      std::uint64_t v = 0;
      if (auto const [p, ec] = std::from_chars(text, end, v); ec == std::errc() && p == end) {
        return v <= std::numeric_limits<std::uint32_t>::max() ? doc_.Uint(static_cast<unsigned>(v)) : doc_.Uint64(v);
      }
    }
    double d = 0;
    if (auto const [p, ec] = std::from_chars(text, end, d); ec == std::errc() && p == end) return doc_.Double(d);
    // Beyond the range of a double: strtod's answer (zero or the smallest
    // denormals below, the reader has refused too large a number already).
    return doc_.Double(std::strtod(std::string(text, end).c_str(), nullptr));
  }

  // Everything else goes to the document as it is.
  bool Null() { return doc_.Null(); }
  bool Bool(bool b) { return doc_.Bool(b); }
  bool Int(int i) { return doc_.Int(i); }
  bool Uint(unsigned u) { return doc_.Uint(u); }
  bool Int64(std::int64_t i) { return doc_.Int64(i); }
  bool Uint64(std::uint64_t u) { return doc_.Uint64(u); }
  bool Double(double d) { return doc_.Double(d); }
  bool String(char const* s, SizeType length, bool copy) { return doc_.String(s, length, copy); }
  bool StartObject() { return doc_.StartObject(); }
  bool Key(char const* s, SizeType length, bool copy) { return doc_.Key(s, length, copy); }
  bool EndObject(SizeType members) { return doc_.EndObject(members); }
  bool StartArray() { return doc_.StartArray(); }
  bool EndArray(SizeType elements) { return doc_.EndArray(elements); }

 private:
  rapidjson::Document& doc_;
};

}  // namespace FalSim
