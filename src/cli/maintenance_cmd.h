// -maintenance: lists the maintenance marks, sets one on a server for some minutes with a reason,
// or takes one off. A mark reaches every database that answers.
#pragma once

namespace qor {

// operands: none (list), "HOST on MINUTES REASON..." or "HOST off". thisHost: the host the
// command runs on, for who set the mark. 0, or 1 when no database took it or the operands are
// wrong (said on standard output).
int MaintenanceCommand(int operandCount, char* const* operands, const char* thisHost);

}  // namespace qor
