// The two-database listing as JSON, for scripts and jq: one object per database, its rows with
// every column under the column's own name and each row's age. Pure text building: the caller
// reads the rows and prints the result.
#pragma once

#include <cstdint>
#include <string>

#include "store/clust_record.h"

namespace qor {

// Appends text as a JSON string: quotes, and escapes for '"', '\\' and every control character.
void AppendJsonString(std::string& out, const char* text);
// Appends one row as a JSON object; age_seconds is now (seconds since the epoch) - updated_at.
void AppendRowJson(std::string& out, const ClustRecord& r, int64_t now);
// Appends {"database":NAME,"address":ADDR,"answers":BOOL,"rows":[...]} for count rows.
void AppendDatabaseJson(std::string& out, const char* name, const char* address, bool answers,
                        ClustRecord* const* rows, int count, int64_t now);

}  // namespace qor
