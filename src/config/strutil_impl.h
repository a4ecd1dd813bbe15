// Template bodies of strutil.h.
#pragma once

#include <cstring>
#include <string_view>

namespace qor {

template <size_t K, size_t V>
void GetVal2(FixedText<K>& key, FixedText<V>& value, char* line, char sep) {
  StrTrimLf(line);
  if (sep == '\0') sep = '=';
  const char* at = std::strchr(line, sep);
  if (at == nullptr) {
    key.set(line);
    value.clear();
    return;
  }
  key.set(std::string_view(line, static_cast<size_t>(at - line) + 1));
  value.set(at + 1);
}

}  // namespace qor
