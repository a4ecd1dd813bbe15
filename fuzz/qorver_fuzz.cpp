// The platform's environment file, searched for its version line.
#include <cstdlib>

#include "config/qorver.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static qor::fuzz::BytesFile file;
  qor::FixedText<128> version;
  int rc = qor::ReadQorVersion(file.Write(data, size), version);
  if (rc != 0 && rc != 1) std::abort();
  return 0;
}
