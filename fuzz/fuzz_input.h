// What the targets share: the fuzzer's bytes as a file the program's readers can open by path,
// and as a list of texts.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace qor::fuzz {

// An in-memory file rewritten for every input; readers open it afresh through /proc, so each
// read starts at its first byte.
class BytesFile {
 public:
  BytesFile() {
    fd_ = memfd_create("qorfuzz", MFD_CLOEXEC);
    if (fd_ < 0) std::abort();
    std::snprintf(path_, sizeof path_, "/proc/self/fd/%d", fd_);
  }
  const char* Write(const uint8_t* data, size_t size) {
    if (ftruncate(fd_, 0) != 0) std::abort();
    if (size > 0 && pwrite(fd_, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    return path_;
  }

 private:
  int fd_ = -1;
  char path_[64] = {};
};

// The bytes cut at every sep; at most max pieces, the last one taking the rest.
inline std::vector<std::string> Split(const uint8_t* data, size_t size, char sep, size_t max) {
  std::vector<std::string> pieces(1);
  for (size_t i = 0; i < size; ++i) {
    if (static_cast<char>(data[i]) == sep && pieces.size() < max) {
      pieces.emplace_back();
    } else {
      pieces.back() += static_cast<char>(data[i]);
    }
  }
  return pieces;
}

}  // namespace qor::fuzz
