#include "store/clust_record.h"

#include <cstring>

namespace qor {

ClustRecord Clust;
ClustRecord* ClustsOnMaster[Maxcluster];
ClustRecord* ClustsOnSlave[Maxcluster];
ClustRecord* ClustsTemp[Maxcluster];

namespace {

// The records live as long as the process; static storage gives them that without a free.
ClustRecord records[3][Maxcluster];

}  // namespace

void InitClusterMem() {
  for (int i = 0; i < Maxcluster; ++i) {
    ClustsOnMaster[i] = &records[0][i];
    ClustsOnSlave[i] = &records[1][i];
    ClustsTemp[i] = &records[2][i];
  }
}

int RoleIdOf(const char* role) {
  int code = RoleCodeOf(role);
  return code == kRoleOther ? 0 : code;
}

}  // namespace qor
