// One-shot status and listing commands: configuration values, the servers the master's database
// records, whether a database listens here, the two-database table listing, the cluster target
// and the master check. Each prints its answer and returns the exit status.
#pragma once

namespace qor {

// Selector codes of ShowConf.
constexpr int kShowConf = 10, kShowRole = 11, kShowCluster = 12;
constexpr int kShowMaster = 20, kShowSlave = 21, kShowMembers = 22, kShowAll = 23,
              kShowAllNotMaster = 24;

int ShowConf(int mode);
int ShowThisMysqlListen();
// Both databases' tables, each only when its server answers ping.
int ShowTwoDatabases(int full);
// The same as one JSON object, {"databases":[master's, slave's]}, each with "answers" and its
// rows with their ages.
int ShowTwoDatabasesJson();
int ShowTarget();
// "1" and 0 when hostname's row is the master's, else "0" and 1.
int ShowIsMaster(const char* hostname);

}  // namespace qor
