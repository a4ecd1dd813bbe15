// Rows of the clusters table as the database hands them over: rows end at a newline, columns at
// a tab, and a column that is exactly \N is SQL NULL. Up to a full array of rows is read into
// records with one shared count, as a query does.
#include <cstdlib>
#include <vector>

#include "fuzz_input.h"
#include "store/cluster_query.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace qor;
  static ClustRecord records[Maxcluster];
  ActInfo info;
  const std::vector<std::string> rows = fuzz::Split(data, size, '\n', Maxcluster);
  for (const std::string& row : rows) {
    const std::vector<std::string> columns =
        fuzz::Split(reinterpret_cast<const uint8_t*>(row.data()), row.size(), '\t', 32);
    std::vector<const char*> values;
    for (const std::string& c : columns) values.push_back(c == "\\N" ? nullptr : c.c_str());
    records[info.count] = ClustRecord{};
    // A fixed reader's clock, so that a crash found replays the same.
    FillClustRecord(records[info.count], static_cast<int>(values.size()), values.data(), info,
                    1700000000);
    ++info.count;
  }
  if (info.servers < 0 || info.servers > info.count) std::abort();
  return 0;
}
