// Values placed between single quotes in a statement: a single quote or a backslash is escaped
// with a backslash, so an ordinary value gives the statement unchanged and a hostile one cannot
// end its literal.
#pragma once

#include <cstddef>

namespace qor {

// Writes the escaped value into out; false (out empty) when it does not fit.
bool SqlEscape(char* out, size_t size, const char* value);

// Longest statement any operation builds.
constexpr size_t kSqlMax = 8192;

}  // namespace qor
