// Reads a file line by line with fgets semantics (at most size - 1 bytes per piece, the newline
// kept) from a fixed buffer: no heap allocation, so it may run every cycle.
#pragma once

#include <cstddef>

namespace qor {

class LineReader {
 public:
  // Opens path read-only; ok() tells whether that worked.
  explicit LineReader(const char* path);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool ok() const { return fd_ >= 0; }
  // Fills out (size bytes, always terminated) with the next piece; false at end of file.
  // NUL bytes in the file are copied like any other byte.
  bool Next(char* out, size_t size);

 private:
  bool Fill();

  int fd_ = -1;
  size_t pos_ = 0;
  size_t len_ = 0;
  char buf_[4096];
};

}  // namespace qor
