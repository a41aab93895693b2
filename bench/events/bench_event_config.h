// Configuration shared by the event benchmarks: an active event whose
// notification carries an objects list of five objects, created through the
// same table operations the control socket's dispatch uses, and the
// fired-event record that runs it.
#ifndef BENCH_EVENT_CONFIG_H
#define BENCH_EVENT_CONFIG_H

#include <cstring>
#include <string>
#include <vector>

#include "mte_event.h"
#include "mte_notify.h"
#include "mte_obj.h"
#include "mte_types.h"

namespace mte_bench {

// The notification the event sends (an enterprise OID of the test table).
constexpr uint32_t kNotifyOid[] = {1, 3, 6, 1, 4, 1, 99999, 0, 1};
constexpr const char* kNotifyOidText = "1.3.6.1.4.1.99999.0.1";

inline void CopyName(char* pszDst, size_t uiSize, const char* pszSrc) {
    memset(pszDst, 0, uiSize);
    strncpy(pszDst, pszSrc, uiSize - 1);
}

inline MTE_OID_S MakeOid(const std::vector<uint32_t>& auiOid) {
    MTE_OID_S stOid{};
    stOid.uiLen = static_cast<uint32_t>(auiOid.size());
    memcpy(stOid.auiOid, auiOid.data(), auiOid.size() * sizeof(uint32_t));
    return stOid;
}

// Creates objects group "bench"/"five" with the OIDs, event "bench"/"notify"
// sending kNotifyOid with that group, and activates the event. False when a
// table refused a row.
inline bool ConfigureNotifyEvent(const std::vector<std::vector<uint32_t>>& aauiObjects) {
    bool bOk = true;
    uint32_t uiFailed = 0;
    uint32_t uiIndex = 1;
    for (const std::vector<uint32_t>& auiOid : aauiObjects) {
        MTE_OBJ_ROW_S stObj{};
        CopyName(stObj.szOwner, sizeof(stObj.szOwner), "bench");
        CopyName(stObj.szName, sizeof(stObj.szName), "five");
        stObj.uiIndex = uiIndex++;
        stObj.uiEntryStatus = MTE_ROW_CREATE_AND_GO;
        stObj.stID = MakeOid(auiOid);
        stObj.uiIDWildcard = MTE_FALSE;
        mte_OBJ_ListWrLock();
        bOk = bOk && mte_OBJ_Set(&stObj, 0x08 | 0x10 | 0x20, &uiFailed) == 0;
        mte_OBJ_ListUnLock();
    }
    MTE_EVENT_ROW_S stEvent{};
    CopyName(stEvent.szOwner, sizeof(stEvent.szOwner), "bench");
    CopyName(stEvent.szName, sizeof(stEvent.szName), "notify");
    stEvent.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
    stEvent.ucActions = MTE_ACTION_NOTIFICATION;
    MTE_NOTIFY_ENTRY_S stNotify{};
    stNotify.stNotification =
        MakeOid(std::vector<uint32_t>(std::begin(kNotifyOid), std::end(kNotifyOid)));
    CopyName(stNotify.szOwner, sizeof(stNotify.szOwner), "bench");
    CopyName(stNotify.szName, sizeof(stNotify.szName), "notify");
    CopyName(stNotify.szObjectsOwner, sizeof(stNotify.szObjectsOwner), "bench");
    CopyName(stNotify.szObjects, sizeof(stNotify.szObjects), "five");
    mte_EVENT_ListWrLock();
    bOk = bOk && mte_EVENT_Set(&stEvent, 0x04 | 0x08 | 0x10 | 0x40, &uiFailed) == 0;
    bOk = bOk && mte_NOTIFY_Set(&stNotify, 0x0e, &uiFailed) == 0;
    stEvent.uiEntryStatus = MTE_ROW_ACTIVE;
    bOk = bOk && mte_EVENT_Set(&stEvent, 0x40, &uiFailed) == 0;
    mte_EVENT_ListUnLock();
    return bOk;
}

// The trigger row and fired-event record of a non-wildcarded trigger that
// names the event.
struct FiredNotify {
    MTE_TRIGGER_ROW_S stTrigger{};
    MTE_FIRED_EVENT_S stFired{};
    FiredNotify() {
        CopyName(stTrigger.szOwner, sizeof(stTrigger.szOwner), "bench");
        CopyName(stTrigger.szName, sizeof(stTrigger.szName), "trigger");
        stTrigger.uiValueIDWildcard = MTE_FALSE;
        stTrigger.uiContextNameWildcard = MTE_FALSE;
        CopyName(stFired.szEventOwner, sizeof(stFired.szEventOwner), "bench");
        CopyName(stFired.szEventName, sizeof(stFired.szEventName), "notify");
    }
    void Run() { mte_EVENT_Run(&stTrigger, &stFired); }
};

}  // namespace mte_bench

#endif  // BENCH_EVENT_CONFIG_H
