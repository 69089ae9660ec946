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
  ~KernelNetns();
  KernelNetns(KernelNetns const&) = delete;
  KernelNetns& operator=(KernelNetns const&) = delete;

  int fd() const { return fd_; }
  // A socket in the namespace; -1 with errno set on failure.
  int openSocket(int domain, int type, int protocol) const;
  // Writes a sysctl of the namespace, path under /proc/sys ("net/ipv4/conf/all/rp_filter").
  // Throws std::system_error naming the path on failure.
  void sysctlIs(std::string const& path, std::string const& value) const;

  // Why this process cannot make one (one readable line), or nothing when it can.
  static std::optional<std::string> unavailable();

 private:
  int fd_ = -1;
};

}  // namespace FalKernel
