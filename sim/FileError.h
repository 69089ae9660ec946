#pragma once
// FalSim::FileError: a file the tools cannot use: a scenario that cannot be
// run, an agent configuration that cannot be applied.
//
// Carries the file, the field as a JSON path ("events[3].at", "routeSets[0]
// .routes[2].outputs[1]"), what was expected there and, when there was
// something, what was found. The text reads
//   "iptv.json: events[3].at: expected a number of seconds >= 0, got a string \"soon\""
// so a user can go straight to the field.
#include <stdexcept>
#include <string>

namespace FalSim {

class FileError : public std::runtime_error {
 public:
  FileError(std::string file, std::string field, std::string expected, std::string got = {})
      : std::runtime_error(text(file, field, expected, got)),
        file_(std::move(file)),
        field_(std::move(field)),
        expected_(std::move(expected)),
        got_(std::move(got)) {}

  std::string const& file() const { return file_; }
  std::string const& field() const { return field_; }
  std::string const& expected() const { return expected_; }
  // Empty when the field held nothing worth quoting.
  std::string const& got() const { return got_; }

 private:
  static std::string text(std::string const& file, std::string const& field, std::string const& expected,
                          std::string const& got) {
    std::string t = file + ": " + field + ": expected " + expected;
    if (!got.empty()) t += ", got " + got;
    return t;
  }

  std::string file_;
  std::string field_;
  std::string expected_;
  std::string got_;
};

}  // namespace FalSim
