#include "sim/Printable.h"

#include <cstdint>

namespace FalSim {

namespace {

// The length of the valid UTF-8 sequence at s[i], or 0 when the byte there
// does not start one (overlong forms, surrogates and code points past
// U+10FFFF are not valid).
std::size_t utf8Length(std::string_view s, std::size_t i) {
  auto byte = [&](std::size_t k) { return static_cast<std::uint8_t>(s[k]); };
  std::uint8_t const b = byte(i);
  if (b < 0x80) return 1;
  std::size_t n = 0;
  std::uint32_t cp = 0;
  if (b >= 0xC2 && b <= 0xDF) {
    n = 2;
    cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    n = 3;
    cp = b & 0x0F;
  } else if (b >= 0xF0 && b <= 0xF4) {
    n = 4;
    cp = b & 0x07;
  } else {
    return 0;
  }
  if (i + n > s.size()) return 0;
  for (std::size_t k = 1; k < n; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (byte(i + k) & 0x3F);
  }
  if ((n == 3 && cp < 0x800) || (n == 4 && cp < 0x10000) || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return n;
}

void escapeInto(std::string& out, std::string_view s, bool inQuotes) {
  static constexpr char kHex[] = "0123456789abcdef";
  for (std::size_t i = 0; i < s.size();) {
    char const ch = s[i];
    std::size_t const n = utf8Length(s, i);
    if (n > 1) {
      out.append(s.substr(i, n));
      i += n;
      continue;
    }
    auto const b = static_cast<std::uint8_t>(ch);
    if (ch == '\\') {
      out += "\\\\";
    } else if (ch == '"' && inQuotes) {
      out += "\\\"";
    } else if (ch == '\n') {
      out += "\\n";
    } else if (ch == '\t') {
      out += "\\t";
    } else if (n == 0 || b < 0x20 || b == 0x7F) {
      out += "\\x";
      out += kHex[b >> 4];
      out += kHex[b & 0xF];
    } else {
      out += ch;
    }
    ++i;
  }
}

}  // namespace

std::string Printable::text(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  escapeInto(out, s, false);
  return out;
}

std::string Printable::quoted(std::string_view s, std::size_t maxBytes) {
  bool const cut = s.size() > maxBytes;
  if (cut) {
    // Back off to the start of the character the cut would split.
    std::size_t end = maxBytes;
    std::size_t start = end;
    while (start > 0 && start > end - 3 && (static_cast<std::uint8_t>(s[start]) & 0xC0) == 0x80) --start;
    if (start < end && utf8Length(s, start) > end - start) end = start;
    s = s.substr(0, end);
  }
  std::string out = "\"";
  escapeInto(out, s, true);
  if (cut) out += "...";
  return out + "\"";
}

bool Printable::plainName(std::string_view s) {
  if (s.empty()) return false;
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
  if (!letter(s[0])) return false;
  for (char c : s) {
    if (!letter(c) && !(c >= '0' && c <= '9')) return false;
  }
  return true;
}

}  // namespace FalSim
