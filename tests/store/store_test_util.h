// Helpers shared by the store tests: synthetic row records and a check for
// whether the diagnostics module is linked in its real form.
#ifndef STORE_TEST_UTIL_H
#define STORE_TEST_UTIL_H

#include <cstring>
#include <string>

#include "mte_dbg.h"
#include "mte_types.h"

// Trace lines can only be looked at once the diagnostics module formats them.
inline bool StoreDiagnosticsReady() {
    return mte_DBG_Text(0) != nullptr;
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
