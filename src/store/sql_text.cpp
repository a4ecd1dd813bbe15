#include "store/sql_text.h"

namespace qor {

bool SqlEscape(char* out, size_t size, const char* value) {
  if (size == 0) return false;
  size_t n = 0;
  for (const char* p = value ? value : ""; *p; ++p) {
    bool esc = *p == '\'' || *p == '\\';
    if (n + (esc ? 2 : 1) >= size) {
      out[0] = '\0';
      return false;
    }
    if (esc) out[n++] = '\\';
    out[n++] = *p;
  }
  out[n] = '\0';
  return true;
}

}  // namespace qor
