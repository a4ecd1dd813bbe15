// The texts that need no configuration: the usage text and the two version answers.
#pragma once

namespace qor {

// Prints the usage text; the caller exits 0.
void Usage();
// Prints Progver; exit status 0.
int ShowVersion();
// Prints the platform version from the environment file: 0, or 1 without output when it is
// missing.
int ShowQorVersion();

}  // namespace qor
