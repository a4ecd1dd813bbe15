// The two-database listing as JSON, for scripts and jq: one object per database, its rows with
// every column under the column's own name and each row's age. Pure text building: the caller
// reads the rows and prints the result.
#pragma once

#include <cstdint>
#include <string>

#include "store/clust_record.h"

namespace qor {

// Appends text as a JSON string: quotes, and escapes for '"', '\\' and every control character;
// a byte that is not part of well-formed UTF-8 becomes \ufffd.
void AppendJsonString(std::string& out, const char* text);
// Appends one row as a JSON object; age_seconds is now (seconds since the epoch) - updated_at.
void AppendRowJson(std::string& out, const ClustRecord& r, int64_t now);
// Appends {"database":NAME,"address":ADDR,"answers":BOOL,"read":BOOL,"rows":[...]} for count
// rows: answers whether the server answered ping, read whether its rows could be read.
void AppendDatabaseJson(std::string& out, const char* name, const char* address, bool answers,
                        bool read, ClustRecord* const* rows, int count, int64_t now);

}  // namespace qor
