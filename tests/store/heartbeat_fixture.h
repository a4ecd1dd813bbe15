// Common ground of the heartbeat tests: the store fixture plus a configuration file of the test
// cluster that each heartbeat re-reads (own interface lo, so this node's address is 127.0.0.1
// whatever its role), pools to both servers, ClustCount 0 and Tplsync 0. Rows are set up and
// inspected with SQL as root.
#pragma once

#include <cstdint>
#include <string>

#include "store_fixture.h"
#include "lab/temp_dir.h"

namespace qortest {

class HeartbeatTest : public StoreTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Makes this node role ("master", "slave", "member") in memory and in the file it re-reads.
  void Become(const char* role);

  // Inserts a row on side with the columns the heartbeats decide on.
  void PutRow(const std::string& side, const std::string& hostname, const std::string& role,
              int status, int64_t lastwrite, int tplstate = 100);
  // The columns cols of every row of side in id order, tab-separated, one line per row.
  std::string Rows(const std::string& side,
                   const std::string& cols = "hostname,role,status,last_writemill");
  // Sets updated_at of every row on both sides far back, so that a write shows.
  void AgeRows();
  // Rows of side whose updated_at moved since AgeRows.
  int Moved(const std::string& side);

  std::string host;  // this node's host name
  TempDir dir;

 private:
  qor::FixedText<128> savedCnffile_;
};

// Tab-joined values ending in a newline, as Rows prints one row.
std::string Line(std::initializer_list<std::string> values);

}  // namespace qortest
