#include "base/process.h"

#include <unistd.h>

namespace qor {

int checkroot() {
  return getuid() == 0 && geteuid() == 0 ? 0 : 1;
}

}  // namespace qor
