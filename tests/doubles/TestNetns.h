#pragma once
// TestNetns: a network namespace of its own for one test, made and removed
// with iproute2, with helpers for the links tests need. Its name carries the
// process id, so tests running side by side never meet.
#include <string>

namespace FalTest {

class TestNetns {
 public:
  // Why namespaces cannot be made here (for GTEST_SKIP), or empty.
  static std::string unavailable();

  explicit TestNetns(std::string const& tag);
  // Removes the namespace and with it every link inside.
  ~TestNetns();
  TestNetns(TestNetns const&) = delete;
  TestNetns& operator=(TestNetns const&) = delete;

  std::string const& name() const { return name_; }
  // Runs `ip -n NAME args`; throws std::runtime_error with the command when it fails.
  void ip(std::string const& args) const;
  // Runs `ip -n NAME -batch FILE` over the lines given.
  void ipBatch(std::string const& lines) const;
  // A veth pair inside the namespace, both ends up.
  void vethIs(std::string const& a, std::string const& b) const;

 private:
  std::string name_;
};

}  // namespace FalTest
