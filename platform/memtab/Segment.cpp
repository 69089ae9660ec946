#include "platform/memtab/Segment.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace Memtab {
namespace {

std::string describe(std::string_view what, std::string_view name, int err) {
  return std::string(what) + " " + shmPath(name) + ": " + std::strerror(err);
}

// The pid recorded in the segment now under name, or 0 when there is none
// that can be read.
int currentOwner(std::string const& object, Segment::OwnerPid ownerPid) {
  int fd = ::shm_open(object.c_str(), O_RDONLY, 0);
  if (fd < 0) return 0;
  int pid = 0;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && st.st_size > 0) {
    void* p = ::mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
    if (p != MAP_FAILED) {
      pid = ownerPid(p, static_cast<std::size_t>(st.st_size));
      ::munmap(p, static_cast<std::size_t>(st.st_size));
    }
  }
  ::close(fd);
  return pid;
}

}  // namespace

bool processAlive(int pid) { return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM); }

bool nameValid(std::string_view name, std::string* why) {
  auto fail = [&](char const* text) {
    if (why) *why = text;
    return false;
  };
  if (name.empty()) return fail("a table name must not be empty");
  if (name.size() > kMaxNameLength) return fail("a table name is at most 200 characters");
  for (char c : name) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
    if (!ok) return fail("a table name is made of letters, digits, '.', '_' and '-'");
  }
  return true;
}

std::string shmName(std::string_view name) { return std::string("/") + std::string(kShmPrefix) + std::string(name); }

std::string shmPath(std::string_view name) { return std::string(kShmDir) + std::string(kShmPrefix) + std::string(name); }

Segment::Segment(Segment&& o) noexcept
    : data_(std::exchange(o.data_, nullptr)),
      bytes_(std::exchange(o.bytes_, 0)),
      fd_(std::exchange(o.fd_, -1)),
      name_(std::move(o.name_)),
      writable_(std::exchange(o.writable_, false)),
      creator_(std::exchange(o.creator_, 0)) {}

Segment& Segment::operator=(Segment&& o) noexcept {
  if (this != &o) {
    close();
    data_ = std::exchange(o.data_, nullptr);
    bytes_ = std::exchange(o.bytes_, 0);
    fd_ = std::exchange(o.fd_, -1);
    name_ = std::move(o.name_);
    writable_ = std::exchange(o.writable_, false);
    creator_ = std::exchange(o.creator_, 0);
  }
  return *this;
}

Segment::~Segment() { close(); }

Segment Segment::create(std::string_view name, std::size_t bytes, OwnerPid ownerPid, std::string* error) {
  Segment s;
  if (!nameValid(name, error)) return s;
  std::string const object = shmName(name);
  int fd = ::shm_open(object.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  if (fd < 0 && errno == EEXIST) {
    int const owner = currentOwner(object, ownerPid);
    if (owner != ::getpid() && processAlive(owner)) {
      *error = std::string("a writer (pid ") + std::to_string(owner) + ") already publishes " + shmPath(name);
      return s;
    }
    ::shm_unlink(object.c_str());
    fd = ::shm_open(object.c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  }
  if (fd < 0) {
    *error = describe("cannot create", name, errno);
    return s;
  }
  if (::ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
    *error = describe("cannot size", name, errno);
    ::close(fd);
    ::shm_unlink(object.c_str());
    return s;
  }
  void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) {
    *error = describe("cannot map", name, errno);
    ::close(fd);
    ::shm_unlink(object.c_str());
    return s;
  }
  s.data_ = p;
  s.bytes_ = bytes;
  s.fd_ = fd;
  s.name_ = std::string(name);
  s.writable_ = true;
  s.creator_ = ::getpid();
  return s;
}

Segment Segment::open(std::string_view name, std::string* error) {
  Segment s;
  if (!nameValid(name, error)) return s;
  int fd = ::shm_open(shmName(name).c_str(), O_RDONLY, 0);
  if (fd < 0) {
    *error = errno == ENOENT ? std::string("nothing is published under ") + shmPath(name) : describe("cannot open", name, errno);
    return s;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || st.st_size <= 0) {
    *error = std::string("nothing is published yet under ") + shmPath(name) + " (empty segment)";
    ::close(fd);
    return s;
  }
  auto const bytes = static_cast<std::size_t>(st.st_size);
  void* p = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) {
    *error = describe("cannot map", name, errno);
    ::close(fd);
    return s;
  }
  s.data_ = p;
  s.bytes_ = bytes;
  s.fd_ = fd;
  s.name_ = std::string(name);
  return s;
}

Segment Segment::anonymous(std::size_t bytes, std::string* error) {
  Segment s;
  void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) {
    *error = std::string("cannot map anonymous shared memory: ") + std::strerror(errno);
    return s;
  }
  s.data_ = p;
  s.bytes_ = bytes;
  s.writable_ = true;
  return s;
}

bool Segment::unlinked() const {
  if (fd_ < 0) return false;
  struct stat st {};
  return ::fstat(fd_, &st) == 0 && st.st_nlink == 0;
}

void Segment::unlinkName() {
  if (fd_ < 0 || name_.empty()) return;
  std::string const object = shmName(name_);
  int fd = ::shm_open(object.c_str(), O_RDONLY, 0);
  if (fd < 0) return;
  struct stat mine {}, now {};
  bool const same = ::fstat(fd_, &mine) == 0 && ::fstat(fd, &now) == 0 && mine.st_ino == now.st_ino && mine.st_dev == now.st_dev;
  ::close(fd);
  if (same) ::shm_unlink(object.c_str());
}

void Segment::close() {
  if (!data_) return;
  // A child forked from the writer shares the mapping but not the name.
  if (writable_ && creator_ == ::getpid()) unlinkName();
  ::munmap(data_, bytes_);
  if (fd_ >= 0) ::close(fd_);
  data_ = nullptr;
  bytes_ = 0;
  fd_ = -1;
  writable_ = false;
  creator_ = 0;
}

}  // namespace Memtab
