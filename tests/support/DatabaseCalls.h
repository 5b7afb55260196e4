#pragma once
// SQLite's own system calls, led through the table of replaceable ones: from then on faults, kills
// and stops (FaultyCalls.h) strike inside the database of a hive as well.

namespace qeltest {

// For good, in this process and its forked children; while the table is the usual one, nothing
// changes. Memory that SQLite maps (its index of the log) is no call and stays out.
void leadDatabaseThroughTable();

}  // namespace qeltest
