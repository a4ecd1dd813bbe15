// The program's name, version and date as every message and listing shows them.
#pragma once

namespace qor {

constexpr const char* Progname = "qorclustd";
constexpr const char* Progver = "4.0.16";
constexpr const char* Progdate = "2022/10/03";

}  // namespace qor
