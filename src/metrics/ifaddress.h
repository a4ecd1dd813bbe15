// This server's own address: the last IPv4 address of the configured interface.
#pragma once

#include "base/fixed_text.h"

namespace qor {

// Empty or "0" interface: address "0". No IPv4 address on it: address unchanged. A failing
// interface list or address conversion ends the process. Always 0.
int GetIfAddress(FixedText<128>& address, const char* ifname);

}  // namespace qor
