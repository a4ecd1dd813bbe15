// Catches syslog lines: a datagram socket in a temporary directory, which a private mount
// namespace binds on /dev/log. Used by the sandbox for the real binary, and by test programs that
// isolate themselves to read what the code under test logs.
#pragma once

#include <string>
#include <vector>

namespace qortest {

class SyslogCatcher {
 public:
  // Binds the socket at dir/log.sock.
  explicit SyslogCatcher(const std::string& dir);
  ~SyslogCatcher();
  SyslogCatcher(const SyslogCatcher&) = delete;
  SyslogCatcher& operator=(const SyslogCatcher&) = delete;

  bool ok() const { return fd_ >= 0; }
  const std::string& path() const { return path_; }
  // Everything received so far: message texts (after "ident[pid]: ") and the raw datagrams.
  void Take(std::vector<std::string>* texts, std::vector<std::string>* raw = nullptr);
  std::vector<std::string> Take();

 private:
  int fd_ = -1;
  std::string path_;
};

// In the calling process (which must be the only thread, and root): a private mount namespace
// whose /dev is a fresh tmpfs with the host's usual devices and /dev/log bound to socket.
// workdir is a scratch directory. Returns an error text, empty on success.
std::string IsolateDevLog(const std::string& workdir, const std::string& socket);

}  // namespace qortest
