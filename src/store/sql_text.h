// Text values placed between single quotes in a statement, safe whatever the server's sql_mode.
// A single quote is doubled, which reads as one quote in every mode. A backslash has no such
// form: it escapes the next character unless the mode holds NO_BACKSLASH_ESCAPES, where it stands
// for itself. Pinning the mode instead would cost one more statement on every connection taken
// (a reconnect inside the library resets it unseen), so a value holding a backslash is refused,
// like a value too long for its statement; host names, addresses, roles and versions never hold
// one. Ordinary values are placed unchanged.
#pragma once

#include <cstddef>

#include "base/fixed_text.h"

namespace qor {

// Longest statement any operation builds.
constexpr size_t kSqlMax = 8192;

// A statement as the store builds it.
using SqlText = FixedText<kSqlMax>;

// What a refused statement's log line says of its values.
constexpr const char* kSqlRefused = "value too long or holding a backslash";

// value made ready to stand between single quotes; ok() is false (and the text empty) when it
// holds a backslash or could not fit any statement.
class SqlQuoted {
 public:
  explicit SqlQuoted(const char* value);
  bool ok() const { return ok_; }
  const char* c_str() const { return buf_; }

 private:
  char buf_[kSqlMax];  // whatever its statement could hold
  bool ok_ = false;
};

}  // namespace qor
