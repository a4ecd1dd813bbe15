// The updated_at texts of the rows read back from the databases.
#include <string>

#include "base/clock.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  qor::ParseUpdatedAt(text.c_str(), 1792890000);
  return 0;
}
