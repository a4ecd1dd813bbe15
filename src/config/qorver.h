// The platform's version, from the QOR_VERSION line of its environment file.
#pragma once

#include "base/fixed_text.h"

namespace qor {

// 0 with the value in out (cut at 127 characters), 1 when the file cannot be opened or holds no
// line beginning with QOR_VERSION.
int GetQorVer(FixedText<128>& out);
// The same from the environment file at path.
int ReadQorVersion(const char* path, FixedText<128>& out);

}  // namespace qor
