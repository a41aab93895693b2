// Notification action (mteEventNotificationTable): one row per event whose
// actions have the notification bit, made and destroyed by the event table,
// and the sending of the event's configured notification.
//
// Threads and locks: the rows have no lock of their own. Get, get-next and set
// run on the main thread under the event list lock that the dispatch holds;
// recover takes the event list write lock itself. mte_NOTIFY_SendNotify runs
// on the sampling worker on a copy of the row with no event lock held; the
// objects module takes the objects list lock while it builds the bindings.
#include "mte_notify.h"

#include <cstdlib>
#include <cstring>

#include "mte_catalogue.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_lock_guard.h"
#include "mte_sorted_list.h"
#include "mte_msg.h"
#include "mte_obj.h"
#include "mte_oid.h"
#include "mte_scalar.h"
#include "mte_trap.h"
#include "plat_snmp.h"

namespace {
constexpr uint32_t MTE_NOTIFY_MASK_OID = MTE_COLUMN_BIT(MTE_NOTIFY_COL_NOTIFICATION);
constexpr uint32_t MTE_NOTIFY_MASK_OBJECTS_OWNER = MTE_COLUMN_BIT(MTE_NOTIFY_COL_OBJECTS_OWNER);

void StoreRow(const MTE_NOTIFY_ENTRY_S& stRow) {
    mte_DBM_StoreRow(MTE_CAT_NOTIFY, &stRow);
}

// Appends the bindings of one objects group when both owner and name are set.
void AppendGroup(const char (*paszPair)[MTE_NAME_SIZE], const MTE_OID_S* pstSuffix,
                 const char* pszContext, MTE_VB_LIST_S* pstList) {
    if (paszPair == nullptr || paszPair[0][0] == '\0' || paszPair[1][0] == '\0') {
        return;
    }
    mte_OBJ_GetObjVBlist(paszPair, pstSuffix, pszContext, pstList);
}
}  // namespace

MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Create(const char* pszOwner, const char* pszName) {
    MTE_NOTIFY_ENTRY_S* pstRow =
        static_cast<MTE_NOTIFY_ENTRY_S*>(calloc(1, sizeof(MTE_NOTIFY_ENTRY_S)));
    if (pstRow == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_ENTRY_NO_MEMORY),
                          "Notification", pszOwner, pszName);
        }
        return nullptr;
    }
    mte_StrCopy(pstRow->szOwner, pszOwner, MTE_NAME_SIZE);
    mte_StrCopy(pstRow->szName, pszName, MTE_NAME_SIZE);
    if (mte_BIN_GetRecover() != 1) {
        StoreRow(*pstRow);
    }
    return pstRow;
}

void mte_NOTIFY_Destroy(MTE_NOTIFY_ENTRY_S* pstRow) {
    if (pstRow == nullptr) {
        return;
    }
    mte_DBM_RemoveRow(MTE_CAT_NOTIFY, pstRow);
    free(pstRow);
}

MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Get(const char* pszOwner, const char* pszName) {
    MTE_EVENT_ENTRY_S* pstEvent = mte_EVENT_GetEventEntry(pszOwner, pszName);
    return pstEvent == nullptr ? nullptr : pstEvent->pstNotify;
}

MTE_NOTIFY_ENTRY_S* mte_NOTIFY_GetNext(uint32_t uiOwnerLen, const char* pszOwner,
                                       const char* pszName, uint8_t* pucFlags) {
    return mte_list_FirstSubRow(
        mte_EVENT_GetNextEventEntry(uiOwnerLen, pszOwner, pszName, pucFlags),
        &MTE_EVENT_ENTRY_S::pstNotify);
}

uint32_t mte_NOTIFY_Set(const MTE_NOTIFY_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                        uint32_t* puiFailedColumn) {
    uint32_t uiScratch = 0;
    if (puiFailedColumn == nullptr) {
        puiFailedColumn = &uiScratch;
    }
    *puiFailedColumn = 0;
    if (pstRequest == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_NOTIFY_ENTRY_S stRequest = MTE_CAT_TerminatedCopy(MTE_CAT_NOTIFY, *pstRequest);
    MTE_EVENT_ENTRY_S* pstEvent = mte_EVENT_GetEventEntry(stRequest.szOwner, stRequest.szName);
    if (pstEvent == nullptr || pstEvent->pstNotify == nullptr) {
        return MTE_ERR_NO_SUCH_ROW;
    }
    MTE_NOTIFY_ENTRY_S* pstRow = pstEvent->pstNotify;
    bool bChanges = MTE_CAT_ColumnsDiffer(MTE_CAT_NOTIFY, &stRequest, uiColumnMask, pstRow);
    if (pstEvent->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        return bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    }
    if (!bChanges) {
        return MTE_OK;
    }
    if ((uiColumnMask & MTE_NOTIFY_MASK_OBJECTS_OWNER) &&
        mte_checkOwner(stRequest.szObjectsOwner, pstRow->szOwner) != 1) {
        *puiFailedColumn = MTE_NOTIFY_COL_OBJECTS_OWNER;
        return MTE_ERR_INCONSISTENT;
    }
    // An OID longer than a record can hold is refused before anything is copied.
    if ((uiColumnMask & MTE_NOTIFY_MASK_OID) && stRequest.stNotification.uiLen > MTE_OID_MAX_LEN) {
        *puiFailedColumn = MTE_NOTIFY_COL_NOTIFICATION;
        return MTE_ERR_INCONSISTENT;
    }
    MTE_CAT_CopyColumns(MTE_CAT_NOTIFY, &stRequest, uiColumnMask, pstRow);
    StoreRow(*pstRow);
    return MTE_OK;
}

uint32_t mte_NOTIFY_Recover(uint32_t uiLen, const void* pRecord) {
    if (pRecord == nullptr || uiLen != sizeof(MTE_NOTIFY_ENTRY_S)) {
        return MTE_ERR_GENERAL;
    }
    MTE_NOTIFY_ENTRY_S stRecord;
    memcpy(&stRecord, pRecord, sizeof(stRecord));
    stRecord = MTE_CAT_TerminatedCopy(MTE_CAT_NOTIFY, stRecord);
    MTE_LOCK_GUARD stGuard(mte_EVENT_ListWrLock, mte_EVENT_ListUnLock);
    MTE_EVENT_ENTRY_S* pstEvent = mte_EVENT_GetEventEntry(stRecord.szOwner, stRecord.szName);
    if (pstEvent == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_NOTIFY_ENTRY_S* pstRow = pstEvent->pstNotify;
    if (pstRow == nullptr) {
        return MTE_OK;
    }
    // A damaged OID is not laid over the row (the copy skips it); the rest
    // of the record is.
    MTE_CAT_CopyColumns(MTE_CAT_NOTIFY, &stRecord, MTE_MASK_ALL_COLUMNS, pstRow);
    return MTE_OK;
}

void mte_NOTIFY_SendNotify(const MTE_NOTIFY_ENTRY_S* pstRow,
                           const char (*paszTriggerObjects)[MTE_NAME_SIZE],
                           const char (*paszTestObjects)[MTE_NAME_SIZE],
                           const char (*paszNotifyObjects)[MTE_NAME_SIZE],
                           const MTE_OID_S* pstSuffix, const char* pszContextName) {
    if (pstRow == nullptr || pstRow->stNotification.uiLen == 0) {
        return;
    }
    const char* pszContext = pszContextName == nullptr ? "" : pszContextName;
    MTE_VB_LIST_S stList{};
    AppendGroup(paszTriggerObjects, pstSuffix, pszContext, &stList);
    AppendGroup(paszTestObjects, pstSuffix, pszContext, &stList);
    AppendGroup(paszNotifyObjects, pstSuffix, pszContext, &stList);
    uint32_t uiResult = SNMP_SendTrapByVBList(&pstRow->stNotification, pszContext, &stList);
    if (uiResult != 0) {
        mte_SCALAR_EventFailuresInc();
    }
    mte_TRAP_CountSend(uiResult);
    mte_OBJ_FreeVBlist(&stList);
}
