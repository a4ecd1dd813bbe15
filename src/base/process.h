// Facts about this process that several commands check.
#pragma once

namespace qor {

// 0 when the real and the effective user id are both 0 (root), 1 otherwise.
int checkroot();

}  // namespace qor
