#include "store/clust_record.h"

#include <cstring>

namespace qor {

int RoleIdOf(const char* role) {
  int code = RoleCodeOf(role);
  return code == kRoleOther ? 0 : code;
}

}  // namespace qor
