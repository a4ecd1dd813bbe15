#include "cli/admin.h"

#include <cstdio>
#include <cstring>

#include "store/cluster_writes.h"

namespace qor {

bool Confirmed() {
  std::printf("Are your sure [y/N] ? ");
  std::fflush(stdout);
  char answer[128] = {};
  if (std::fgets(answer, sizeof answer, stdin) == nullptr) return false;
  return !std::strcmp(answer, "y\n") || !std::strcmp(answer, "Y\n");
}

int RunAdmin(AdminOp op, Db db, const char* host) {
  if (!Confirmed()) return 0;
  const char* server = AddressOf(db);
  int rc = 0;
  switch (op) {
    case AdminOp::kRemove:
      std::printf("removing %s from %s...", host, server);
      rc = RemoveClusterSvrsSql(db, host);
      break;
    case AdminOp::kRemoveAll:
      std::printf("removing all from %s...", server);
      rc = RemoveClusterSvrsSql(db, "-all");
      break;
    case AdminOp::kSetOld:
      std::printf("set %s old on %s...", host, server);
      rc = SetOldClusterSvrSql(db, host);
      break;
    case AdminOp::kSetTplOld:
      std::printf("set %s tpl old on %s...", host, server);
      rc = SetTplOldClusterSvrSql(db, host);
      break;
  }
  std::puts(rc == 0 ? "OK" : "NG");
  return rc == 0 ? 0 : 1;
}

}  // namespace qor
