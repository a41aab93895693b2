// Shared pieces of the objects, event and action tests: request builders, the
// lock-taking wrappers the dispatch would use, and a fixture that brings up
// the store, the memory guard and the two tables on the fakes.
#ifndef EVENT_TEST_UTIL_H
#define EVENT_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fake_dbm.h"
#include "fake_log.h"
#include "fake_memalert.h"
#include "fake_snmp.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_memalert.h"
#include "mte_notify.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_set.h"

inline void CopyStr(char* pszDst, size_t uiSize, const std::string& str) {
    memset(pszDst, 0, uiSize);
    memcpy(pszDst, str.data(), std::min(str.size(), uiSize - 1));
}

inline MTE_EVENT_ROW_S EventReq(const std::string& strOwner, const std::string& strName,
                                uint32_t uiStatus, uint8_t ucActions = 0,
                                const std::string& strComment = "") {
    MTE_EVENT_ROW_S stRow{};
    CopyStr(stRow.szOwner, sizeof(stRow.szOwner), strOwner);
    CopyStr(stRow.szName, sizeof(stRow.szName), strName);
    CopyStr(stRow.szComment, sizeof(stRow.szComment), strComment);
    stRow.uiEntryStatus = uiStatus;
    stRow.ucActions = ucActions;
    return stRow;
}

inline MTE_OBJ_ROW_S ObjReq(const std::string& strOwner, const std::string& strName,
                            uint32_t uiIndex, uint32_t uiStatus, const FAKE_OID& astId = {1, 3, 6},
                            uint32_t uiWildcard = MTE_FALSE) {
    MTE_OBJ_ROW_S stRow{};
    CopyStr(stRow.szOwner, sizeof(stRow.szOwner), strOwner);
    CopyStr(stRow.szName, sizeof(stRow.szName), strName);
    stRow.uiIndex = uiIndex;
    stRow.uiEntryStatus = uiStatus;
    stRow.stID = FAKE_SNMP_MakeOid(astId);
    stRow.uiIDWildcard = uiWildcard;
    return stRow;
}

inline MTE_NOTIFY_ENTRY_S NotifyReq(const std::string& strOwner, const std::string& strName,
                                    const FAKE_OID& astOid, const std::string& strObjOwner = "",
                                    const std::string& strObjects = "") {
    MTE_NOTIFY_ENTRY_S stRow{};
    stRow.stNotification = FAKE_SNMP_MakeOid(astOid);
    CopyStr(stRow.szOwner, sizeof(stRow.szOwner), strOwner);
    CopyStr(stRow.szName, sizeof(stRow.szName), strName);
    CopyStr(stRow.szObjectsOwner, sizeof(stRow.szObjectsOwner), strObjOwner);
    CopyStr(stRow.szObjects, sizeof(stRow.szObjects), strObjects);
    return stRow;
}

inline MTE_SET_ENTRY_S SetReq(const std::string& strOwner, const std::string& strName,
                              const FAKE_OID& astOid, int32_t iValue,
                              uint32_t uiObjWild = MTE_FALSE, const std::string& strContext = "",
                              uint32_t uiCtxWild = MTE_FALSE) {
    MTE_SET_ENTRY_S stRow{};
    stRow.stObject = FAKE_SNMP_MakeOid(astOid);
    stRow.iValue = iValue;
    stRow.uiObjectWildcard = uiObjWild;
    stRow.uiContextNameWildcard = uiCtxWild;
    CopyStr(stRow.szOwner, sizeof(stRow.szOwner), strOwner);
    CopyStr(stRow.szName, sizeof(stRow.szName), strName);
    CopyStr(stRow.szContextName, sizeof(stRow.szContextName), strContext);
    return stRow;
}

// Set operations under the write lock, as the dispatch calls them.
template <typename ROW>
uint32_t Locked(void (*pfLock)(void), void (*pfUnlock)(void),
                uint32_t (*pfSet)(const ROW*, uint32_t, uint32_t*), const ROW& stReq,
                uint32_t uiMask, uint32_t* puiFc) {
    uint32_t uiFc = 0;
    pfLock();
    uint32_t uiRet = pfSet(&stReq, uiMask, &uiFc);
    pfUnlock();
    if (puiFc != nullptr) {
        *puiFc = uiFc;
    }
    return uiRet;
}
inline uint32_t SetEvent(const MTE_EVENT_ROW_S& stReq, uint32_t uiMask, uint32_t* puiFc = nullptr) {
    return Locked(mte_EVENT_ListWrLock, mte_EVENT_ListUnLock, mte_EVENT_Set, stReq, uiMask, puiFc);
}
inline uint32_t SetNotify(const MTE_NOTIFY_ENTRY_S& stReq, uint32_t uiMask,
                          uint32_t* puiFc = nullptr) {
    return Locked(mte_EVENT_ListWrLock, mte_EVENT_ListUnLock, mte_NOTIFY_Set, stReq, uiMask, puiFc);
}
inline uint32_t SetObj(const MTE_OBJ_ROW_S& stReq, uint32_t uiMask, uint32_t* puiFc = nullptr) {
    return Locked(mte_OBJ_ListWrLock, mte_OBJ_ListUnLock, mte_OBJ_Set, stReq, uiMask, puiFc);
}
inline uint32_t SetSet(const MTE_SET_ENTRY_S& stReq, uint32_t uiMask) {
    mte_EVENT_ListWrLock();
    uint32_t uiRet = mte_SET_Set(&stReq, uiMask);
    mte_EVENT_ListUnLock();
    return uiRet;
}

constexpr uint32_t kEventMaskAll = 0x04 | 0x08 | 0x10 | 0x40;
constexpr uint32_t kObjMaskCreate = 0x08 | 0x10 | 0x20;

class EventFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_DBM_Reset();
        FAKE_LOG_Clear();
        FAKE_SNMP_Reset();
        FAKE_MEMALERT_Reset();
        ASSERT_EQ(mte_DBG_Init(), 0u);
        ASSERT_EQ(mte_EPOLL_Init(), 0u);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_OBJ_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
    }
    void TearDown() override {
        mte_DBG_DisableSwitch(0xffffffffu);
        mte_EVENT_Fini();
        mte_OBJ_Fini();
        mte_DBM_Fini();
        mte_MEMALERT_Fini();
        mte_EPOLL_Fini();
        mte_DBG_Fini();
    }
    // Finalises the tables and replays the store into fresh ones, as a restart does.
    void Restart() {
        mte_EVENT_Fini();
        mte_OBJ_Fini();
        ASSERT_EQ(mte_OBJ_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
        ASSERT_EQ(mte_DBM_Recover(), 0u);
    }
};

#endif  // EVENT_TEST_UTIL_H
