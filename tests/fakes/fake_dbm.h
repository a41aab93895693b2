// Fake database manager: sort lists and items kept in memory for the life of
// the test process, so a test can finalise the daemon's modules, initialise
// them again and watch the stored configuration come back.
#ifndef FAKE_DBM_H
#define FAKE_DBM_H

#include <cstdint>
#include <string>
#include <vector>

// Forgets every database, list and item, and clears the failure switches.
void FAKE_DBM_Reset(void);
// Makes every insert, removal and binary write fail.
void FAKE_DBM_FailWrites(bool bFail);
// The stored records of a list, in key order.
std::vector<std::string> FAKE_DBM_Records(const std::string& strList);
// Stores a raw record (any length) directly, as a damaged store would hold it.
void FAKE_DBM_PutRaw(const std::string& strList, const std::string& strRecord);
// Number of write calls (inserts, removals, binary writes) so far.
uint64_t FAKE_DBM_WriteCount(void);

#endif  // FAKE_DBM_H
