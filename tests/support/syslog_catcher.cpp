#include "support/syslog_catcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qortest {

namespace {

std::string StripHead(const std::string& raw) {
  // "<13>Nov 22 20:23:00 ident[pid]: text" or "<13>Nov 22 20:23:00 ident: text"
  size_t gt = raw.find('>');
  size_t colon = raw.find(": ", gt == std::string::npos ? 0 : gt + 16);
  return colon == std::string::npos ? raw : raw.substr(colon + 2);
}

std::string Fail(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string BindFile(const std::string& from, const std::string& to) {
  int fd = open(to.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
  if (fd >= 0) close(fd);
  if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0) return Fail("bind " + to);
  return "";
}

}  // namespace

SyslogCatcher::SyslogCatcher(const std::string& dir) : path_(dir + "/log.sock") {
  unlink(path_.c_str());
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path_.size() >= sizeof addr.sun_path) {
    close(fd_);
    fd_ = -1;
    return;
  }
  std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    close(fd_);
    fd_ = -1;
    return;
  }
  chmod(path_.c_str(), 0666);
}

SyslogCatcher::~SyslogCatcher() {
  stop_ = true;
  if (drainer_.joinable()) drainer_.join();
  if (fd_ >= 0) close(fd_);
  unlink(path_.c_str());
}

void SyslogCatcher::StartDraining() {
  if (fd_ < 0 || drainer_.joinable()) return;
  drainer_ = std::thread([this] {
    while (!stop_) Drain(true);
  });
}

// Moves what the socket holds into got_; with wait, first waits up to 100 ms for a datagram.
void SyslogCatcher::Drain(bool wait) {
  if (wait) {
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) return;
  }
  char msg[8192];
  for (;;) {
    ssize_t n = recv(fd_, msg, sizeof msg, MSG_DONTWAIT);
    if (n <= 0) return;
    std::lock_guard<std::mutex> lock(mu_);
    got_.emplace_back(msg, static_cast<size_t>(n));
  }
}

void SyslogCatcher::Take(std::vector<std::string>* texts, std::vector<std::string>* raw) {
  if (fd_ < 0) return;
  if (!drainer_.joinable()) Drain(false);
  std::vector<std::string> got;
  {
    std::lock_guard<std::mutex> lock(mu_);
    got.swap(got_);
  }
  for (std::string& r : got) {
    if (texts) texts->push_back(StripHead(r));
    if (raw) raw->push_back(std::move(r));
  }
}

std::vector<std::string> SyslogCatcher::Take() {
  std::vector<std::string> texts;
  Take(&texts);
  return texts;
}

std::string IsolateDevLog(const std::string& workdir, const std::string& socket) {
  if (unshare(CLONE_NEWNS) != 0) return Fail("unshare");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return Fail("private /");
  std::string hostdev = workdir + "/hostdev";
  mkdir(hostdev.c_str(), 0755);
  if (mount("/dev", hostdev.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
    return Fail("bind /dev");
  }
  if (mount("tmpfs", "/dev", "tmpfs", 0, "mode=755") != 0) return Fail("tmpfs /dev");
  for (const char* n : {"null", "zero", "full", "random", "urandom", "tty"}) {
    std::string e = BindFile(hostdev + "/" + n, std::string("/dev/") + n);
    if (!e.empty()) return e;
  }
  symlink("/proc/self/fd", "/dev/fd");
  symlink("/proc/self/fd/0", "/dev/stdin");
  symlink("/proc/self/fd/1", "/dev/stdout");
  symlink("/proc/self/fd/2", "/dev/stderr");
  mkdir("/dev/shm", 01777);
  std::string e = BindFile(socket, "/dev/log");
  umount2(hostdev.c_str(), MNT_DETACH);
  rmdir(hostdev.c_str());
  return e;
}

}  // namespace qortest
