#include "store/sql_text.h"

namespace qor {

SqlQuoted::SqlQuoted(const char* value) {
  size_t n = 0;
  for (const char* p = value ? value : ""; *p; ++p) {
    size_t len = *p == '\'' ? 2 : 1;
    if (*p == '\\' || n + len >= sizeof buf_) {
      buf_[0] = '\0';
      return;
    }
    buf_[n++] = *p;
    if (len == 2) buf_[n++] = '\'';
  }
  buf_[n] = '\0';
  ok_ = true;
}

}  // namespace qor
