#pragma once
// FalKernel::KernelNetns: a network namespace of this process's own, empty
// when made, for a kernel chip and its devices.
//
// The namespace is anonymous: no name under /run/netns, reachable only
// through the descriptor this object holds and the sockets opened in it
// (nsenter -t PID -n finds it while the process runs). So its removal is
// guaranteed: when the object is destroyed and the sockets opened in it are
// closed, or when the process ends in any way (exit, error, Ctrl-C, a kill),
// the kernel drops the namespace and every device, table and entry in it.
// Nothing made in it is ever seen from the namespace the process runs in.
//
// It can also stand for an existing, named namespace (a chip whose devices
// an operator or a script reaches, an agent reading another namespace's
// tables); that one is not removed with the object.
//
// The calling thread enters the namespace only for the moment an operation
// needs (opening a socket, writing a sysctl) and returns to where it was.
// Single-threaded use: the thread's namespace is switched in place.
#include <optional>
#include <string>
#include <system_error>

namespace FalKernel {

class KernelNetns {
 public:
  // Runs the current thread inside the namespace until destroyed.
  class Inside {
   public:
    explicit Inside(KernelNetns const& netns);
    ~Inside();
    Inside(Inside const&) = delete;
    Inside& operator=(Inside const&) = delete;

   private:
    int home_;
  };

  // Makes the namespace, with its loopback device up. Throws
  // std::system_error when the kernel refuses (EPERM: the process lacks the
  // privilege; see unavailable()).
  KernelNetns();
  // An existing namespace, by the name `ip netns` gives it (under
  // /var/run/netns) or the path of a namespace file, for a chip whose
  // devices must be reachable from outside (to send packets in, to look).
  // It is not this object's: it stays when the object goes, and whoever
  // made devices in it removes them. Throws std::system_error naming it.
  explicit KernelNetns(std::string const& existing);
  ~KernelNetns();
  KernelNetns(KernelNetns const&) = delete;
  KernelNetns& operator=(KernelNetns const&) = delete;

  int fd() const { return fd_; }
  // Made by this object (anonymous, gone with it), not an existing one.
  bool owned() const { return owned_; }
  // A socket in the namespace; -1 with errno set on failure.
  int openSocket(int domain, int type, int protocol) const;
  // Writes a sysctl of the namespace, path under /proc/sys ("net/ipv4/conf/all/rp_filter").
  // Throws std::system_error naming the path on failure.
  void sysctlIs(std::string const& path, std::string const& value) const;

  // Why this process cannot make one (one readable line), or nothing when it can.
  static std::optional<std::string> unavailable();

 private:
  int fd_ = -1;
  bool owned_ = true;
};

}  // namespace FalKernel
