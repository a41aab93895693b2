// Fixture of the trigger-table tests: the in-memory store, the memory guard on
// the fake alert service, a main epoll set for it, and an empty trigger table,
// with the port service down (no timers, no sampling). Helpers build requests
// and take snapshots of everything a refused request must leave untouched.
#ifndef TRIGGER_TABLE_FIXTURE_H
#define TRIGGER_TABLE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fake_dbm.h"
#include "fake_memalert.h"
#include "mte_core.h"
#include "mte_dbm.h"
#include "mte_memalert.h"
#include "mte_scalar.h"
#include "mte_trigger.h"

constexpr uint32_t COL(uint32_t c) {
    return MTE_COLUMN_BIT(c);
}
constexpr uint32_t kGoMask = COL(MTE_TRIGGER_COL_VALUE_ID) | COL(MTE_TRIGGER_COL_FREQUENCY) |
                             COL(MTE_TRIGGER_COL_ENTRY_STATUS);

inline MTE_TRIGGER_ROW_S TriggerReq(const char* pszOwner, const char* pszName, uint32_t uiStatus,
                                    uint32_t uiFrequency = 60) {
    MTE_TRIGGER_ROW_S st{};
    strncpy(st.szOwner, pszOwner, sizeof(st.szOwner) - 1);
    strncpy(st.szName, pszName, sizeof(st.szName) - 1);
    const uint32_t auiSysUpTime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
    st.stValueID.uiLen = 9;
    memcpy(st.stValueID.auiOid, auiSysUpTime, sizeof(auiSysUpTime));
    st.uiFrequency = uiFrequency;
    st.uiEntryStatus = uiStatus;
    return st;
}

inline std::string Bytes(const void* p, size_t n) {
    return std::string(static_cast<const char*>(p), n);
}

// Everything a refused request must leave as it was.
struct Snapshot {
    std::vector<std::string> astrEntries;  // row, test rows, run fields per entry in list order
    std::vector<std::string> astrStored[4];

    bool operator==(const Snapshot& o) const {
        for (int i = 0; i < 4; ++i) {
            if (astrStored[i] != o.astrStored[i]) {
                return false;
            }
        }
        return astrEntries == o.astrEntries;
    }
};

inline Snapshot TakeSnapshot() {
    Snapshot st;
    uint8_t ucFlags = 0;
    MTE_TRIGGER_ENTRY_S* pstEntry = mte_TRIGGER_GetNextTriggerEntry(0, "", "", &ucFlags);
    for (; pstEntry != nullptr; pstEntry = mte_TRIGGER_GetNextTriggerEntry(
                                    static_cast<uint32_t>(strlen(pstEntry->stRow.szOwner)),
                                    pstEntry->stRow.szOwner, pstEntry->stRow.szName, &ucFlags)) {
        std::string s = Bytes(&pstEntry->stRow, sizeof(pstEntry->stRow));
        s += Bytes(&pstEntry->llTimerId, sizeof(pstEntry->llTimerId));
        s += Bytes(&pstEntry->uiRunState, sizeof(pstEntry->uiRunState));
        s += pstEntry->pstBool ? Bytes(pstEntry->pstBool, sizeof(MTE_BOOL_ENTRY_S)) : "-";
        s += pstEntry->pstExist ? Bytes(pstEntry->pstExist, sizeof(MTE_EXIST_ENTRY_S)) : "-";
        s += pstEntry->pstThres ? Bytes(pstEntry->pstThres, sizeof(MTE_THRES_ENTRY_S)) : "-";
        st.astrEntries.push_back(s);
    }
    const char* apszLists[] = {"mteTrigger", "mteBoolean", "mteExistence", "mteThreshold"};
    for (int i = 0; i < 4; ++i) {
        st.astrStored[i] = FAKE_DBM_Records(apszLists[i]);
    }
    return st;
}

class TriggerTableTest : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_DBM_Reset();
        FAKE_MEMALERT_Reset();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_EPOLL_Init(), 0u);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        mte_SCALAR_SetSampleMin(10);
    }
    void TearDown() override {
        mte_TRIGGER_Fini();
        mte_MEMALERT_Fini();
        mte_EPOLL_Fini();
        mte_DBM_Fini();
        mte_SCALAR_SetSampleMin(1);
    }
    // Restarts the memory guard in the given platform state (1 exceeded, 6 normal).
    void SetMemoryState(uint32_t uiState) {
        mte_MEMALERT_Fini();
        FAKE_MEMALERT_SetCurrentState(uiState);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    }
    uint32_t Set(const MTE_TRIGGER_ROW_S& stReq, uint32_t uiMask, uint32_t* puiFailed = nullptr) {
        uint32_t uiFailed = 0;
        uint32_t uiRet = mte_TRIGGER_Set(&stReq, uiMask, &uiFailed);
        if (puiFailed) {
            *puiFailed = uiFailed;
        }
        return uiRet;
    }
    MTE_TRIGGER_ENTRY_S* Entry(const char* pszOwner, const char* pszName) {
        return mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    }
    // The stored trigger record of (owner, name), or "" when there is none.
    std::string StoredTrigger(const char* pszOwner, const char* pszName) {
        for (const std::string& s : FAKE_DBM_Records("mteTrigger")) {
            MTE_TRIGGER_ROW_S st;
            if (s.size() != sizeof(st)) {
                continue;
            }
            memcpy(&st, s.data(), sizeof(st));
            if (strcmp(st.szOwner, pszOwner) == 0 && strcmp(st.szName, pszName) == 0) {
                return s;
            }
        }
        return "";
    }
    void CreateActive(const char* pszOwner, const char* pszName, uint8_t ucTest = 0) {
        MTE_TRIGGER_ROW_S st = TriggerReq(pszOwner, pszName, MTE_ROW_CREATE_AND_GO);
        st.ucTest = ucTest;
        ASSERT_EQ(Set(st, kGoMask), 0u);
    }
    void CreateWaiting(const char* pszOwner, const char* pszName, uint8_t ucTest = 0) {
        MTE_TRIGGER_ROW_S st = TriggerReq(pszOwner, pszName, MTE_ROW_CREATE_AND_WAIT);
        st.ucTest = ucTest;
        ASSERT_EQ(Set(st, kGoMask), 0u);
    }
};

#endif  // TRIGGER_TABLE_FIXTURE_H
