#include "base/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace qor {

LineReader::LineReader(const char* path) {
  fd_ = open(path, O_RDONLY | O_CLOEXEC);
}

LineReader::~LineReader() {
  if (fd_ >= 0) close(fd_);
}

bool LineReader::Fill() {
  for (;;) {
    ssize_t n = read(fd_, buf_, sizeof buf_);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    pos_ = 0;
    len_ = static_cast<size_t>(n);
    return true;
  }
}

bool LineReader::Next(char* out, size_t size) {
  if (fd_ < 0 || size == 0) return false;
  size_t n = 0;
  while (n + 1 < size) {
    if (pos_ == len_ && !Fill()) break;
    char c = buf_[pos_++];
    out[n++] = c;
    if (c == '\n') break;
  }
  out[n] = '\0';
  return n > 0;
}

}  // namespace qor
