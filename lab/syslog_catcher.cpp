#include "lab/syslog_catcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace qorlab {

namespace {

std::string Fail(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

}  // namespace

std::string BindFile(const std::string& from, const std::string& to) {
  int fd = open(to.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
  if (fd >= 0) close(fd);
  if (mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0) return Fail("bind " + to);
  return "";
}

std::string WallStampMs() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm tm;
  localtime_r(&ts.tv_sec, &tm);
  char stamp[64];
  size_t len = strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
  snprintf(stamp + len, sizeof stamp - len, ".%03ld", ts.tv_nsec / 1000000);
  return stamp;
}

std::string SyslogText(const std::string& raw) {
  // "<13>Nov 22 20:23:00 ident[pid]: text" or "<13>Nov 22 20:23:00 ident: text"
  size_t gt = raw.find('>');
  size_t colon = raw.find(": ", gt == std::string::npos ? 0 : gt + 16);
  return colon == std::string::npos ? raw : raw.substr(colon + 2);
}

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
  if (file_ >= 0) close(file_);
  unlink(path_.c_str());
}

bool SyslogCatcher::WriteTo(const std::string& file) {
  file_ = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  return file_ >= 0;
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
  // Received and kept under one lock: a reader that takes the lines never misses one that the
  // drainer has received but not yet kept.
  std::lock_guard<std::mutex> lock(mu_);
  char msg[8192];
  for (;;) {
    ssize_t n = recv(fd_, msg, sizeof msg, MSG_DONTWAIT);
    if (n <= 0) return;
    Keep(msg, static_cast<size_t>(n));
  }
}

void SyslogCatcher::Keep(const char* msg, size_t n) {
  if (file_ < 0) {
    got_.emplace_back(msg, n);
    return;
  }
  while (n > 0 && (msg[n - 1] == '\n' || msg[n - 1] == '\0')) --n;
  // One write per line, so that a reader never sees half a line.
  std::string line = WallStampMs() + " ";
  const size_t stamp = line.size();
  line.append(msg, n);
  for (size_t i = stamp; i < line.size(); ++i) {
    if (line[i] == '\n') line[i] = ' ';
  }
  line += '\n';
  ssize_t w = write(file_, line.data(), line.size());
  (void)w;
}

void SyslogCatcher::Take(std::vector<std::string>* texts) {
  if (fd_ < 0) return;
  // Also with a drainer: what the caller logged just before may still wait in the socket.
  Drain(false);
  std::vector<std::string> got;
  {
    std::lock_guard<std::mutex> lock(mu_);
    got.swap(got_);
  }
  for (const std::string& r : got) texts->push_back(SyslogText(r));
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

}  // namespace qorlab
