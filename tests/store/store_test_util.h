// Helpers shared by the store tests: synthetic row records, and the message
// texts registered once so that trace lines can be compared.
#ifndef STORE_TEST_UTIL_H
#define STORE_TEST_UTIL_H

#include <cstring>
#include <string>

#include "mte_dbg.h"
#include "mte_types.h"

inline void StoreDiagnosticsUp() {
    static const uint32_t s_uiInit = mte_DBG_Init();
    (void)s_uiInit;
}

inline MTE_EVENT_ROW_S StoreEventRow(const std::string& strOwner, const std::string& strName,
                                     const std::string& strComment = "") {
    MTE_EVENT_ROW_S stRow = {};
    stRow.uiEntryStatus = MTE_ROW_NOT_IN_SERVICE;
    stRow.uiEnabled = MTE_FALSE;
    strncpy(stRow.szOwner, strOwner.c_str(), sizeof(stRow.szOwner) - 1);
    strncpy(stRow.szName, strName.c_str(), sizeof(stRow.szName) - 1);
    strncpy(stRow.szComment, strComment.c_str(), sizeof(stRow.szComment) - 1);
    return stRow;
}

inline MTE_TRIGGER_ROW_S StoreTriggerRow(const std::string& strOwner, const std::string& strName) {
    MTE_TRIGGER_ROW_S stRow = {};
    strncpy(stRow.szOwner, strOwner.c_str(), sizeof(stRow.szOwner) - 1);
    strncpy(stRow.szName, strName.c_str(), sizeof(stRow.szName) - 1);
    return stRow;
}

template <typename REC>
std::string StoreBytes(const REC& stRec) {
    return std::string(reinterpret_cast<const char*>(&stRec), sizeof(stRec));
}

#endif  // STORE_TEST_UTIL_H
