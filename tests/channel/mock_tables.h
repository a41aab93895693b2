// Scripted table operations for the dispatch tests: each table answers what
// the test put in g_stMockTables and records how it was called, including
// which list lock was held at the time.
#ifndef MOCK_TABLES_H
#define MOCK_TABLES_H

#include <cstdint>
#include <string>
#include <vector>

#include "mte_types.h"

struct MOCK_TABLES_S {
    // What the tables answer.
    const void* pGetResult = nullptr;
    const void* pGetNextResult = nullptr;
    uint8_t ucFlagsToSet = 0;
    uint32_t uiTriggerEmpty = 1;
    uint32_t uiObjEmpty = 1;
    uint32_t uiEventEmpty = 1;
    uint32_t uiSetResult = 0;
    uint32_t uiFailedColumnToSet = 0;
    MTE_SCALAR_S stScalars = {};
    uint32_t uiDbgSwitch = 0;
    // What they saw.
    std::vector<std::string> vecCalls;  // "<table>.<op> lock=<held lock>"
    std::string strLastOwner, strLastName;
    uint32_t uiLastOwnerLen = 0, uiLastNameLen = 0, uiLastIndex = 0;
    uint32_t uiLastMask = 0;
    std::vector<uint8_t> vecLastRow;
    uint32_t uiSampleMin = 0xdead, uiInstancesMax = 0xdead;
    std::string strHeldLock;  // "", "obj:rd", "obj:wr", "evt:rd", "evt:wr"
    int iLockBalance = 0;
};

extern MOCK_TABLES_S g_stMockTables;

#endif  // MOCK_TABLES_H
