// Bounded, always-terminated text of N bytes (N - 1 characters). Every write either fits or is cut
// at the capacity (never inside a UTF-8 character) and says so; nothing ever writes past the
// buffer. Not thread-safe (nothing is).
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace qor {

// Where to cut text s at or before byte n so that no UTF-8 character is split: a cut text such as
// a host name stays valid text. Bytes that are not UTF-8 are cut where they are.
inline size_t Utf8Cut(const char* s, size_t n) {
  auto byte = [s](size_t i) { return static_cast<unsigned char>(s[i]); };
  size_t i = n;
  while (i > 0 && n - i < 3 && (byte(i - 1) & 0xC0) == 0x80) --i;
  if (i == 0) return n;
  unsigned char lead = byte(i - 1);
  size_t len = lead >= 0xF8 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  return i - 1 + len > n ? i - 1 : n;
}

// Copies at most size - 1 bytes of src into dst and terminates it, cutting at a character
// boundary. Returns false when src was cut.
inline bool CopyText(char* dst, size_t size, std::string_view src) {
  if (size == 0) return src.empty();
  size_t n = src.size() < size - 1 ? src.size() : Utf8Cut(src.data(), size - 1);
  if (n > 0) std::memmove(dst, src.data(), n);
  dst[n] = '\0';
  return n == src.size();
}

inline bool CopyText(char* dst, size_t size, const char* src) {
  return CopyText(dst, size, std::string_view(src ? src : ""));
}

// vsnprintf into dst; returns false when the result was cut (at a character boundary) or
// formatting failed.
__attribute__((format(printf, 3, 0))) inline bool FormatTextV(char* dst, size_t size,
                                                              const char* fmt, va_list ap) {
  int n = std::vsnprintf(dst, size, fmt, ap);
  if (n >= 0 && static_cast<size_t>(n) < size) return true;
  if (size > 0) dst[Utf8Cut(dst, std::strlen(dst))] = '\0';
  return false;
}

template <size_t N>
struct FixedText {
  static_assert(N >= 2, "a FixedText holds at least one character");
  static constexpr size_t kCapacity = N - 1;

  char buf[N] = {};

  FixedText() = default;
  FixedText(const char* s) { set(s); }  // NOLINT: implicit from literals keeps records readable

  bool set(std::string_view s) { return CopyText(buf, N, s); }
  bool set(const char* s) { return CopyText(buf, N, s); }
  template <size_t M>
  bool set(const FixedText<M>& o) {
    return CopyText(buf, N, o.view());
  }

  bool append(std::string_view s) {
    size_t len = size();
    return CopyText(buf + len, N - len, s);
  }

  bool format(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
    va_list ap;
    va_start(ap, fmt);
    bool ok = FormatTextV(buf, N, fmt, ap);
    va_end(ap);
    return ok;
  }

  void clear() { buf[0] = '\0'; }
  const char* c_str() const { return buf; }
  char* data() { return buf; }
  size_t size() const { return std::strlen(buf); }
  bool empty() const { return buf[0] == '\0'; }
  std::string_view view() const { return std::string_view(buf); }

  bool operator==(std::string_view s) const { return view() == s; }
  template <size_t M>
  bool operator==(const FixedText<M>& o) const {
    return view() == o.view();
  }
};

}  // namespace qor
