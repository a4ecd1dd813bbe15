// Catches syslog lines: a datagram socket in a temporary directory, which a private mount
// namespace binds on /dev/log. Used by the sandbox for the real binary, and by test programs that
// isolate themselves to read what the code under test logs.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qorlab {

class SyslogCatcher {
 public:
  // Binds the socket at dir/log.sock.
  explicit SyslogCatcher(const std::string& dir);
  ~SyslogCatcher();
  SyslogCatcher(const SyslogCatcher&) = delete;
  SyslogCatcher& operator=(const SyslogCatcher&) = delete;

  bool ok() const { return fd_ >= 0; }
  // From now on every datagram is appended to file as one line, prefixed with the time it was
  // received (to the millisecond), instead of being kept for Take: a host that runs for hours
  // keeps nothing in memory, and its log can be read after the catcher is gone. Call before
  // StartDraining. False when the file cannot be opened.
  bool WriteTo(const std::string& file);
  // Reads continuously from a thread of its own from now on. The socket queues only a few
  // datagrams (net.unix.max_dgram_qlen), and a writer whose datagram does not fit blocks: a
  // daemon that logs every cycle needs a reader that keeps up. Start it only after the process
  // has made its namespaces (a second thread forbids that).
  void StartDraining();
  const std::string& path() const { return path_; }
  // Everything received so far: message texts (after "ident[pid]: ").
  void Take(std::vector<std::string>* texts);
  std::vector<std::string> Take();

 private:
  void Drain(bool wait);
  void Keep(const char* msg, size_t n);

  int fd_ = -1;
  int file_ = -1;
  std::string path_;
  std::mutex mu_;
  std::vector<std::string> got_;
  std::atomic<bool> stop_{false};
  std::thread drainer_;
};

// In the calling process (which must be the only thread, and root): a private mount namespace
// whose /dev is a fresh tmpfs with the host's usual devices and /dev/log bound to socket.
// workdir is a scratch directory. Returns an error text, empty on success.
std::string IsolateDevLog(const std::string& workdir, const std::string& socket);

// Binds the file from on to, making an empty to first; an error text, empty on success.
std::string BindFile(const std::string& from, const std::string& to);

// The wall-clock time to the millisecond, as each line of a WriteTo file begins:
// "2026-01-31 12:00:00.123".
std::string WallStampMs();

// The message text of a datagram or of a line of a WriteTo file: what follows "ident[pid]: ".
std::string SyslogText(const std::string& raw);

}  // namespace qorlab
