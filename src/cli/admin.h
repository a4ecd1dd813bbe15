// The row-removal and ageing commands: each asks for confirmation, then runs one store write on
// the master's or the slave's database, names it by its address, and reports "OK" or "NG".
#pragma once

#include "store/pools.h"

namespace qor {

// What one administrative word does.
enum class AdminOp { kRemove, kRemoveAll, kSetOld, kSetTplOld };

// Reads the answer to "Are your sure [y/N] ? " from standard input: true only for a line that is
// exactly "y" or "Y" ended by its newline.
bool Confirmed();

// host is the operand (ignored by kRemoveAll); db is the database changed, and no other: NG when
// it does not answer. Exit status: 0 declined or OK, 1 NG.
int RunAdmin(AdminOp op, Db db, const char* host);

}  // namespace qor
