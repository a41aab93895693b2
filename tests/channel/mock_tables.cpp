// Scripted table operations: see mock_tables.h.
#include "mock_tables.h"

#include <cstring>

#include "mte_bool.h"
#include "mte_dbg.h"
#include "mte_delta.h"
#include "mte_event.h"
#include "mte_exist.h"
#include "mte_notify.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_set.h"
#include "mte_thres.h"
#include "mte_trigger.h"

MOCK_TABLES_S g_stMockTables;

namespace {

MOCK_TABLES_S& M() {
    return g_stMockTables;
}

void Record(const char* pszCall) {
    M().vecCalls.push_back(std::string(pszCall) + " lock=" + M().strHeldLock);
}

template <typename T>
T* Get(const char* pszCall, const char* pszOwner, const char* pszName) {
    Record(pszCall);
    M().strLastOwner = pszOwner;
    M().strLastName = pszName;
    return static_cast<T*>(const_cast<void*>(M().pGetResult));
}

template <typename T>
T* GetNext(const char* pszCall, uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
           uint8_t* pucFlags) {
    Record(pszCall);
    M().uiLastOwnerLen = uiOwnerLen;
    M().strLastOwner = pszOwner;
    M().strLastName = pszName;
    if (pucFlags != nullptr) {
        *pucFlags |= M().ucFlagsToSet;
    }
    return static_cast<T*>(const_cast<void*>(M().pGetNextResult));
}

template <typename T>
uint32_t Set(const char* pszCall, const T* pstRow, uint32_t uiMask, uint32_t* puiFailed) {
    Record(pszCall);
    M().uiLastMask = uiMask;
    const uint8_t* pucRow = reinterpret_cast<const uint8_t*>(pstRow);
    M().vecLastRow.assign(pucRow, pucRow + sizeof(T));
    if (puiFailed != nullptr) {
        *puiFailed = M().uiFailedColumnToSet;
    }
    return M().uiSetResult;
}

void Lock(const char* pszLock) {
    M().strHeldLock = pszLock;
    M().iLockBalance++;
}
void UnLock() {
    M().strHeldLock.clear();
    M().iLockBalance--;
}

}  // namespace

uint32_t mte_TRIGGER_IsEmpty(void) {
    return M().uiTriggerEmpty;
}
MTE_TRIGGER_ROW_S* mte_TRIGGER_Get(const char* o, const char* n) {
    return Get<MTE_TRIGGER_ROW_S>("trigger.get", o, n);
}
MTE_TRIGGER_ROW_S* mte_TRIGGER_GetNext(uint32_t l, const char* o, const char* n) {
    return GetNext<MTE_TRIGGER_ROW_S>("trigger.next", l, o, n, nullptr);
}
uint32_t mte_TRIGGER_Set(const MTE_TRIGGER_ROW_S* r, uint32_t m, uint32_t* f) {
    return Set("trigger.set", r, m, f);
}
MTE_BOOL_ENTRY_S* mte_BOOL_Get(const char* o, const char* n) {
    return Get<MTE_BOOL_ENTRY_S>("bool.get", o, n);
}
MTE_BOOL_ENTRY_S* mte_BOOL_GetNext(uint32_t l, const char* o, const char* n, uint8_t* f) {
    return GetNext<MTE_BOOL_ENTRY_S>("bool.next", l, o, n, f);
}
uint32_t mte_BOOL_Set(const MTE_BOOL_ENTRY_S* r, uint32_t m, uint32_t* f) {
    return Set("bool.set", r, m, f);
}
MTE_EXIST_ENTRY_S* mte_EXIST_Get(const char* o, const char* n) {
    return Get<MTE_EXIST_ENTRY_S>("exist.get", o, n);
}
MTE_EXIST_ENTRY_S* mte_EXIST_GetNext(uint32_t l, const char* o, const char* n, uint8_t* f) {
    return GetNext<MTE_EXIST_ENTRY_S>("exist.next", l, o, n, f);
}
uint32_t mte_EXIST_Set(const MTE_EXIST_ENTRY_S* r, uint32_t m, uint32_t* f) {
    return Set("exist.set", r, m, f);
}
MTE_THRES_ENTRY_S* mte_THRES_Get(const char* o, const char* n) {
    return Get<MTE_THRES_ENTRY_S>("thres.get", o, n);
}
MTE_THRES_ENTRY_S* mte_THRES_GetNext(uint32_t l, const char* o, const char* n, uint8_t* f) {
    return GetNext<MTE_THRES_ENTRY_S>("thres.next", l, o, n, f);
}
uint32_t mte_THRES_Set(const MTE_THRES_ENTRY_S* r, uint32_t m, uint32_t* f) {
    return Set("thres.set", r, m, f);
}
MTE_DELTA_ENTRY_S* mte_DELTA_Get(const char* o, const char* n) {
    return Get<MTE_DELTA_ENTRY_S>("delta.get", o, n);
}
MTE_DELTA_ENTRY_S* mte_DELTA_GetNext(uint32_t l, const char* o, const char* n, uint8_t* f) {
    return GetNext<MTE_DELTA_ENTRY_S>("delta.next", l, o, n, f);
}
uint32_t mte_DELTA_Set(const MTE_DELTA_ENTRY_S* r, uint32_t m, uint32_t* f) {
    return Set("delta.set", r, m, f);
}
uint32_t mte_OBJ_IsEmpty(void) {
    return M().uiObjEmpty;
}
void mte_OBJ_ListRdLock(void) {
    Lock("obj:rd");
}
void mte_OBJ_ListWrLock(void) {
    Lock("obj:wr");
}
void mte_OBJ_ListUnLock(void) {
    UnLock();
}
MTE_OBJ_ROW_S* mte_OBJ_Get(const char* o, const char* n, uint32_t i) {
    M().uiLastIndex = i;
    return Get<MTE_OBJ_ROW_S>("obj.get", o, n);
}
MTE_OBJ_ROW_S* mte_OBJ_GetNext(uint32_t l, const char* o, uint32_t nl, const char* n, uint32_t i) {
    M().uiLastNameLen = nl;
    M().uiLastIndex = i;
    return GetNext<MTE_OBJ_ROW_S>("obj.next", l, o, n, nullptr);
}
uint32_t mte_OBJ_Set(const MTE_OBJ_ROW_S* r, uint32_t m, uint32_t* f) {
    return Set("obj.set", r, m, f);
}
uint32_t mte_EVENT_IsEmpty(void) {
    return M().uiEventEmpty;
}
void mte_EVENT_ListRdLock(void) {
    Lock("evt:rd");
}
void mte_EVENT_ListWrLock(void) {
    Lock("evt:wr");
}
void mte_EVENT_ListUnLock(void) {
    UnLock();
}
MTE_EVENT_ROW_S* mte_EVENT_Get(const char* o, const char* n) {
    return Get<MTE_EVENT_ROW_S>("event.get", o, n);
}
MTE_EVENT_ROW_S* mte_EVENT_GetNext(uint32_t l, const char* o, const char* n) {
    return GetNext<MTE_EVENT_ROW_S>("event.next", l, o, n, nullptr);
}
uint32_t mte_EVENT_Set(const MTE_EVENT_ROW_S* r, uint32_t m, uint32_t* f) {
    return Set("event.set", r, m, f);
}
MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Get(const char* o, const char* n) {
    return Get<MTE_NOTIFY_ENTRY_S>("notify.get", o, n);
}
MTE_NOTIFY_ENTRY_S* mte_NOTIFY_GetNext(uint32_t l, const char* o, const char* n, uint8_t* f) {
    return GetNext<MTE_NOTIFY_ENTRY_S>("notify.next", l, o, n, f);
}
uint32_t mte_NOTIFY_Set(const MTE_NOTIFY_ENTRY_S* r, uint32_t m, uint32_t* f) {
    return Set("notify.set", r, m, f);
}
MTE_SET_ENTRY_S* mte_SET_Get(const char* o, const char* n) {
    return Get<MTE_SET_ENTRY_S>("set.get", o, n);
}
MTE_SET_ENTRY_S* mte_SET_GetNext(uint32_t l, const char* o, const char* n, uint8_t* f) {
    return GetNext<MTE_SET_ENTRY_S>("set.next", l, o, n, f);
}
uint32_t mte_SET_Set(const MTE_SET_ENTRY_S* r, uint32_t m) {
    return Set<MTE_SET_ENTRY_S>("set.set", r, m, nullptr);
}
void mte_SCALAR_Get(MTE_SCALAR_S* pstOut) {
    Record("scalar.get");
    *pstOut = M().stScalars;
}
uint32_t mte_SCALAR_GetSamplesMissed(void) {
    return 9;
}
uint32_t mte_SCALAR_GetNotificationDrops(void) {
    return 10;
}
uint32_t mte_SCALAR_SetSampleMin(uint32_t v) {
    M().uiSampleMin = v;
    return MTE_ERR_GENERAL;  // the reply must say 0 anyway
}
uint32_t mte_SCALAR_SetInstancesMax(uint32_t v) {
    M().uiInstancesMax = v;
    return MTE_ERR_GENERAL;
}
void mte_DBG_EnableSwitch(uint32_t m) {
    M().uiDbgSwitch |= m;
}
void mte_DBG_DisableSwitch(uint32_t m) {
    M().uiDbgSwitch &= ~m;
}
uint32_t mte_DBG_GetSwitch(void) {
    return M().uiDbgSwitch;
}
