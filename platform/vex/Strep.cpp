#include "platform/vex/Strep.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace Vex {

void StrepParser::skipSpace() {
  while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\n')) ++pos_;
}

void StrepParser::expect(std::string_view lit) {
  if (!tryConsume(lit)) fail("'" + std::string(lit) + "'");
}

bool StrepParser::tryConsume(std::string_view lit) {
  if (text_.substr(pos_, lit.size()) != lit) return false;
  pos_ += lit.size();
  return true;
}

std::string_view StrepParser::takeUntil(std::string_view stops) {
  auto end = text_.find_first_of(stops, pos_);
  if (end == std::string_view::npos) end = text_.size();
  auto out = text_.substr(pos_, end - pos_);
  pos_ = end;
  return out;
}

std::string_view StrepParser::token(std::string_view extra) {
  auto start = pos_;
  while (pos_ < text_.size()) {
    char c = text_[pos_];
    bool ok = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
              extra.find(c) != std::string_view::npos;
    if (!ok) break;
    ++pos_;
  }
  return text_.substr(start, pos_ - start);
}

void StrepParser::fail(std::string const& expected) const {
  throw ParseError("expected " + expected + " at offset " + std::to_string(pos_) + " of \"" + std::string(text_) + "\"");
}

void strepOut(std::ostream& os, bool v) { os << (v ? "True" : "False"); }

void strepOut(std::ostream& os, double v) {
  if (std::isnan(v)) {
    os << "nan";
  } else if (std::isinf(v)) {
    os << (v > 0 ? "inf" : "-inf");
  } else {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    os.write(buf, r.ptr - buf);
  }
}

void strepOut(std::ostream& os, std::string const& v) { strepOut(os, std::string_view(v)); }

void strepOut(std::ostream& os, char const* v) { strepOut(os, std::string_view(v)); }

void strepOut(std::ostream& os, std::string_view v) {
  os << '\'';
  for (char c : v) {
    if (c == '\'' || c == '\\') os << '\\';
    os << c;
  }
  os << '\'';
}

bool strepIn(StrepParser& p, StrepTag<bool>) {
  if (p.tryConsume("True")) return true;
  if (p.tryConsume("False")) return false;
  p.fail("True or False");
}

double strepIn(StrepParser& p, StrepTag<double>) {
  if (p.tryConsume("inf")) return std::numeric_limits<double>::infinity();
  if (p.tryConsume("-inf")) return -std::numeric_limits<double>::infinity();
  if (p.tryConsume("nan")) return std::numeric_limits<double>::quiet_NaN();
  auto tok = p.token("+-.");
  double v = 0;
  auto r = std::from_chars(tok.data(), tok.data() + tok.size(), v);
  if (tok.empty() || r.ec != std::errc() || r.ptr != tok.data() + tok.size()) p.fail("a number");
  return v;
}

std::string strepIn(StrepParser& p, StrepTag<std::string>) {
  p.expect("'");
  std::string out;
  for (;;) {
    auto rest = p.rest();
    if (rest.empty()) p.fail("closing quote");
    char c = rest[0];
    p.expect(std::string_view(&c, 1));
    if (c == '\'') return out;
    if (c == '\\') {
      rest = p.rest();
      if (rest.empty()) p.fail("escaped character");
      c = rest[0];
      p.expect(std::string_view(&c, 1));
    }
    out.push_back(c);
  }
}

std::int64_t parseSigned(StrepParser& p) {
  auto tok = p.token("-+");
  std::int64_t v = 0;
  auto r = std::from_chars(tok.data(), tok.data() + tok.size(), v);
  if (tok.empty() || r.ec != std::errc() || r.ptr != tok.data() + tok.size()) p.fail("an integer");
  return v;
}

std::uint64_t parseUnsigned(StrepParser& p) {
  auto tok = p.token();
  std::uint64_t v = 0;
  int base = 10;
  if (tok.size() > 2 && tok[0] == '0' && (tok[1] == 'x' || tok[1] == 'X')) {
    tok.remove_prefix(2);
    base = 16;
  }
  auto r = std::from_chars(tok.data(), tok.data() + tok.size(), v, base);
  if (tok.empty() || r.ec != std::errc() || r.ptr != tok.data() + tok.size()) p.fail("an unsigned integer");
  return v;
}

void strepOutRawPtr(std::ostream& os, char const* typeName, void const* ptr) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%jx", static_cast<std::uintmax_t>(reinterpret_cast<std::uintptr_t>(ptr)));
  os << "RawPtr('" << typeName << "', " << buf << ")";
}

void const* strepInRawPtr(StrepParser& p, char const* typeName) {
  p.expect("RawPtr('");
  p.expect(typeName);
  p.expect("', ");
  auto v = parseUnsigned(p);
  p.expect(")");
  return reinterpret_cast<void const*>(static_cast<std::uintptr_t>(v));
}

}  // namespace Vex
