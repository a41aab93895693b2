// Event table (mteEventTable) and the running of an event when a trigger test
// fires.
//
// Threads and locks: one process-wide pthread_rwlock_t guards the event list,
// the rows and their notification and set rows. The main thread writes under
// it (set, taken by the dispatch; recover, taken here) and reads under it (get,
// get-next). The sampling worker takes the read lock in mte_EVENT_Run only
// long enough to copy the sub-rows it needs; the notification and the set,
// which talk to the SNMP agent, run with no lock held, so a slow agent never
// blocks a management write. The event list lock is never held together with
// the objects list lock (the notification takes that one after this one has
// been released).
#include "mte_event.h"

#include <pthread.h>

#include <cstdlib>
#include <cstring>

#include "mte_catalogue.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_lock_guard.h"
#include "mte_memalert.h"
#include "mte_notify.h"
#include "mte_oid.h"
#include "mte_set.h"
#include "mte_sorted_list.h"

namespace {
constexpr uint32_t MTE_EVENT_MASK_STATUS = MTE_COLUMN_BIT(MTE_EVENT_COL_ENTRY_STATUS);

MTE_LIST_LOCK_S g_stEventListLock;

uint8_t PresenceFlags(const MTE_EVENT_ENTRY_S* pstEntry) {
    return (pstEntry->pstNotify != nullptr ? MTE_PRESENT_NOTIFY : 0) |
           (pstEntry->pstSet != nullptr ? MTE_PRESENT_SET : 0);
}

// The events in index order. Get-next walks and insertions start at the
// position where the last one ended (main thread only); the worker's lookups
// walk from the head, so that readers under the read lock never write shared
// state.
MTE_SORTED_LIST<MTE_EVENT_ENTRY_S, MTE_NAMED_ORDER<MTE_EVENT_ENTRY_S, PresenceFlags>> g_stEvents;

MTE_EVENT_ENTRY_S* FindEntry(const char* pszOwner, const char* pszName) {
    return g_stEvents.Find(
        MTE_NAMED_KEY_S{static_cast<uint32_t>(strlen(pszOwner)), pszOwner, pszName});
}

// Inserts after every row with an equal or smaller key.
void InsertEntry(MTE_EVENT_ENTRY_S* pstEntry) {
    pstEntry->uiOwnerLen = static_cast<uint32_t>(strlen(pstEntry->stRow.szOwner));
    g_stEvents.Insert(pstEntry);
}

void StoreRow(const MTE_EVENT_ROW_S& stRow) {
    mte_DBM_StoreRow(MTE_CAT_EVENT, &stRow);
}

// The sub-rows an action octet asks for; on failure whatever was made is
// destroyed again and the failed column names the sub-row that failed.
struct SUB_ROWS_S {
    MTE_SET_ENTRY_S* pstSet = nullptr;
    MTE_NOTIFY_ENTRY_S* pstNotify = nullptr;
};

uint32_t CreateSubRows(const MTE_EVENT_ROW_S& stRow, bool bSet, bool bNotify, SUB_ROWS_S* pstSub,
                       uint32_t* puiFailedColumn) {
    bool bFailed = false;
    if (bSet) {
        pstSub->pstSet = mte_SET_Create(stRow.szOwner, stRow.szName);
        if (pstSub->pstSet == nullptr) {
            *puiFailedColumn = MTE_EVENT_COL_ACTION_SET;
            bFailed = true;
        }
    }
    if (bNotify) {
        pstSub->pstNotify = mte_NOTIFY_Create(stRow.szOwner, stRow.szName);
        if (pstSub->pstNotify == nullptr) {
            *puiFailedColumn = MTE_EVENT_COL_ACTION_NOTIFICATION;
            bFailed = true;
        }
    }
    if (!bFailed) {
        return MTE_OK;
    }
    mte_SET_Destroy(pstSub->pstSet);
    mte_NOTIFY_Destroy(pstSub->pstNotify);
    *pstSub = SUB_ROWS_S{};
    return MTE_ERR_GENERAL;
}

uint32_t CreateEntry(const MTE_EVENT_ROW_S& stRequest, uint32_t uiMask, uint32_t* puiFailedColumn) {
    if ((uiMask & MTE_EVENT_MASK_STATUS) == 0) {
        *puiFailedColumn = MTE_EVENT_COL_ENTRY_STATUS;
        return MTE_ERR_NO_SUCH_ROW;
    }
    if (stRequest.uiEntryStatus != MTE_ROW_CREATE_AND_GO &&
        stRequest.uiEntryStatus != MTE_ROW_CREATE_AND_WAIT) {
        *puiFailedColumn = MTE_EVENT_COL_ENTRY_STATUS;
        return MTE_ERR_INCONSISTENT;
    }
    bool bRecovering = mte_BIN_GetRecover() == 1;
    if (!bRecovering && (uiMask & MTE_MASK_FORCE) == 0 && mte_MEMALERT_GetFlag() == 1) {
        return MTE_ERR_MEMORY_PRESSURE;
    }
    MTE_EVENT_ENTRY_S* pstEntry =
        static_cast<MTE_EVENT_ENTRY_S*>(calloc(1, sizeof(MTE_EVENT_ENTRY_S)));
    if (pstEntry == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_ENTRY_NO_MEMORY),
                          "Event", stRequest.szOwner, stRequest.szName);
        }
        return MTE_ERR_GENERAL;
    }
    MTE_EVENT_ROW_S& stRow = pstEntry->stRow;
    mte_StrCopy(stRow.szOwner, stRequest.szOwner, MTE_NAME_SIZE);
    mte_StrCopy(stRow.szName, stRequest.szName, MTE_NAME_SIZE);
    MTE_CAT_CopyColumns(MTE_CAT_EVENT, &stRequest, uiMask, &stRow);
    // A new row takes the request's whole action byte, whatever the mask says.
    stRow.ucActions = stRequest.ucActions;
    bool bGo = stRequest.uiEntryStatus == MTE_ROW_CREATE_AND_GO;
    stRow.uiEntryStatus = bGo ? MTE_ROW_ACTIVE : MTE_ROW_NOT_IN_SERVICE;
    stRow.uiEnabled = bGo ? MTE_TRUE : MTE_FALSE;

    SUB_ROWS_S stSub;
    uint32_t uiRet =
        CreateSubRows(stRow, (stRow.ucActions & MTE_ACTION_SET) != 0,
                      (stRow.ucActions & MTE_ACTION_NOTIFICATION) != 0, &stSub, puiFailedColumn);
    if (uiRet != MTE_OK) {
        free(pstEntry);
        return uiRet;
    }
    pstEntry->pstSet = stSub.pstSet;
    pstEntry->pstNotify = stSub.pstNotify;
    if (!bRecovering) {
        StoreRow(stRow);
    }
    InsertEntry(pstEntry);
    return MTE_OK;
}

void FreeEntryMemory(MTE_EVENT_ENTRY_S* pstEntry) {
    free(pstEntry->pstSet);
    free(pstEntry->pstNotify);
    free(pstEntry);
}

void DestroyEntry(MTE_EVENT_ENTRY_S* pstEntry) {
    mte_DBM_RemoveRow(MTE_CAT_EVENT, &pstEntry->stRow);
    mte_SET_Destroy(pstEntry->pstSet);
    mte_NOTIFY_Destroy(pstEntry->pstNotify);
    g_stEvents.Unlink(pstEntry);
    free(pstEntry);
}

// Applies an accepted write to an existing row. The sub-rows that the new
// actions need are made first, so that a failure leaves the row untouched.
uint32_t ModifyEntry(MTE_EVENT_ENTRY_S* pstEntry, const MTE_EVENT_ROW_S& stRequest, uint32_t uiMask,
                     uint32_t* puiFailedColumn) {
    MTE_EVENT_ROW_S& stRow = pstEntry->stRow;
    MTE_EVENT_ROW_S stNew = stRow;
    MTE_CAT_CopyColumns(MTE_CAT_EVENT, &stRequest, uiMask, &stNew);
    uint8_t ucOn = stNew.ucActions & ~stRow.ucActions;
    uint8_t ucOff = stRow.ucActions & ~stNew.ucActions;

    SUB_ROWS_S stSub;
    uint32_t uiRet = CreateSubRows(stRow, (ucOn & MTE_ACTION_SET) != 0,
                                   (ucOn & MTE_ACTION_NOTIFICATION) != 0, &stSub, puiFailedColumn);
    if (uiRet != MTE_OK) {
        return uiRet;
    }
    stRow = stNew;  // the status is the event's own step, below
    if (ucOff & MTE_ACTION_SET) {
        mte_SET_Destroy(pstEntry->pstSet);
        pstEntry->pstSet = nullptr;
    }
    if (ucOn & MTE_ACTION_SET) {
        pstEntry->pstSet = stSub.pstSet;
    }
    if (ucOn & MTE_ACTION_NOTIFICATION) {
        pstEntry->pstNotify = stSub.pstNotify;
    }
    if (ucOff & MTE_ACTION_NOTIFICATION) {
        mte_NOTIFY_Destroy(pstEntry->pstNotify);
        pstEntry->pstNotify = nullptr;
    }
    if (((ucOn | ucOff) & (MTE_ACTION_SET | MTE_ACTION_NOTIFICATION)) != 0) {
        g_stEvents.FlagsChanged();
    }
    if (stRequest.uiEntryStatus == MTE_ROW_ACTIVE) {
        stRow.uiEntryStatus = MTE_ROW_ACTIVE;
        stRow.uiEnabled = MTE_TRUE;
    } else if (stRequest.uiEntryStatus == MTE_ROW_NOT_IN_SERVICE) {
        stRow.uiEntryStatus = MTE_ROW_NOT_IN_SERVICE;
        stRow.uiEnabled = MTE_FALSE;
    }
    return MTE_OK;
}

// An active row can only be taken out of service or destroyed. Returns
// MTE_OK when the write may go on.
uint32_t CheckActiveWrite(const MTE_EVENT_ROW_S& stRequest, uint32_t uiMask, bool bChanges,
                          uint32_t* puiFailedColumn) {
    if (stRequest.uiEntryStatus == MTE_ROW_NONE) {
        return bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    }
    if (stRequest.uiEntryStatus != MTE_ROW_ACTIVE) {
        return MTE_OK;
    }
    if (bChanges) {
        *puiFailedColumn = MTE_EVENT_COL_ENTRY_STATUS;
        return MTE_ERR_INCONSISTENT;
    }
    // Re-affirming active is fine as long as nothing else is written; the
    // force bit does not count as a column.
    if ((uiMask & ~MTE_MASK_FORCE) == MTE_EVENT_MASK_STATUS) {
        return MTE_OK;
    }
    *puiFailedColumn = MTE_EVENT_COL_ENTRY_STATUS;
    return MTE_ERR_NO_CHANGE;
}

// The text is a template argument so that the compiler checks the format
// against the arguments (read from the table: clang 14 cannot evaluate
// mte_DBG_TextFormat on a template argument).
template <MTE_TEXT_ID_E eText>
void WarnRun(const MTE_FIRED_EVENT_S& stFired) {
    if (mte_DBG_IsEnable(MTE_DBG_WARNING)) {
        mte_DBG_Print(MTE_DBG_MNEMONIC_WARNING, g_astMteTexts[eText].pszText, stFired.szEventOwner,
                      stFired.szEventName);
    }
}

// The pieces of an event that its actions need, copied under the read lock.
struct RUN_COPY_S {
    uint8_t ucActions;
    MTE_NOTIFY_ENTRY_S stNotify;
    MTE_SET_ENTRY_S stSet;
};

// Copies what the event's actions need; false when the event cannot run.
bool CopyForRun(const MTE_FIRED_EVENT_S& stFired, RUN_COPY_S* pstCopy) {
    MTE_LOCK_GUARD stGuard(mte_EVENT_ListRdLock, mte_EVENT_ListUnLock);
    MTE_EVENT_ENTRY_S* pstEntry = FindEntry(stFired.szEventOwner, stFired.szEventName);
    if (pstEntry == nullptr) {
        WarnRun<MTE_TEXT_EVENT_NONEXISTENT>(stFired);
        return false;
    }
    if (pstEntry->stRow.uiEnabled != MTE_TRUE) {
        WarnRun<MTE_TEXT_EVENT_DISABLED>(stFired);
        return false;
    }
    pstCopy->ucActions = pstEntry->stRow.ucActions;
    if (pstEntry->pstNotify != nullptr) {
        pstCopy->stNotify = *pstEntry->pstNotify;
    }
    if (pstEntry->pstSet != nullptr) {
        pstCopy->stSet = *pstEntry->pstSet;
    }
    return true;
}

void CopyPair(char (*paszPair)[MTE_NAME_SIZE], const char* pszOwner, const char* pszName) {
    mte_StrCopy(paszPair[0], pszOwner, MTE_NAME_SIZE);
    mte_StrCopy(paszPair[1], pszName, MTE_NAME_SIZE);
}
}  // namespace

uint32_t mte_EVENT_Init(void) {
    (void)g_stEvents.Release();
    return g_stEventListLock.Ready();
}

void mte_EVENT_Fini(void) {
    g_stEventListLock.Destroy();
    MTE_EVENT_ENTRY_S* pst = g_stEvents.Release();
    while (pst != nullptr) {
        MTE_EVENT_ENTRY_S* pstNext = pst->pstNext;
        FreeEntryMemory(pst);  // the store keeps the rows for the next start
        pst = pstNext;
    }
}

uint32_t mte_EVENT_IsEmpty(void) {
    return g_stEvents.IsEmpty() ? 1 : 0;
}

void mte_EVENT_ListRdLock(void) {
    g_stEventListLock.RdLock();
}

void mte_EVENT_ListWrLock(void) {
    g_stEventListLock.WrLock();
}

void mte_EVENT_ListUnLock(void) {
    g_stEventListLock.UnLock();
}

MTE_EVENT_ENTRY_S* mte_EVENT_GetEventEntry(const char* pszOwner, const char* pszName) {
    if (pszOwner == nullptr || pszName == nullptr) {
        return nullptr;
    }
    return FindEntry(pszOwner, pszName);
}

MTE_EVENT_ROW_S* mte_EVENT_Get(const char* pszOwner, const char* pszName) {
    MTE_EVENT_ENTRY_S* pstEntry = mte_EVENT_GetEventEntry(pszOwner, pszName);
    return pstEntry == nullptr ? nullptr : &pstEntry->stRow;
}

MTE_EVENT_ENTRY_S* mte_EVENT_GetNextEventEntry(uint32_t uiOwnerLen, const char* pszOwner,
                                               const char* pszName, uint8_t* pucFlags) {
    if (pszOwner == nullptr || pszName == nullptr) {
        return nullptr;
    }
    return g_stEvents.Next(MTE_NAMED_KEY_S{uiOwnerLen, pszOwner, pszName}, pucFlags);
}

MTE_EVENT_ROW_S* mte_EVENT_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName) {
    MTE_EVENT_ENTRY_S* pstEntry =
        mte_EVENT_GetNextEventEntry(uiOwnerLen, pszOwner, pszName, nullptr);
    return pstEntry == nullptr ? nullptr : &pstEntry->stRow;
}

uint32_t mte_EVENT_Set(const MTE_EVENT_ROW_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn) {
    uint32_t uiScratch = 0;
    if (puiFailedColumn == nullptr) {
        puiFailedColumn = &uiScratch;
    }
    if (pstRequest == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_EVENT_ROW_S stRequest = MTE_CAT_TerminatedCopy(MTE_CAT_EVENT, *pstRequest);
    MTE_EVENT_ENTRY_S* pstEntry = FindEntry(stRequest.szOwner, stRequest.szName);
    if (stRequest.uiEntryStatus == MTE_ROW_DESTROY) {
        if (pstEntry != nullptr) {
            DestroyEntry(pstEntry);
        }
        return MTE_OK;
    }
    if (pstEntry == nullptr) {
        return CreateEntry(stRequest, uiColumnMask, puiFailedColumn);
    }
    if (stRequest.uiEntryStatus == MTE_ROW_CREATE_AND_GO ||
        stRequest.uiEntryStatus == MTE_ROW_CREATE_AND_WAIT) {
        *puiFailedColumn = MTE_EVENT_COL_ENTRY_STATUS;
        return MTE_ERR_ROW_EXISTS;
    }
    bool bChanges =
        MTE_CAT_ColumnsDiffer(MTE_CAT_EVENT, &stRequest, uiColumnMask, &pstEntry->stRow);
    if (pstEntry->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        uint32_t uiRet = CheckActiveWrite(stRequest, uiColumnMask, bChanges, puiFailedColumn);
        if (uiRet != MTE_OK) {
            return uiRet;
        }
    }
    if (!bChanges) {
        return MTE_OK;
    }
    uint32_t uiRet = ModifyEntry(pstEntry, stRequest, uiColumnMask, puiFailedColumn);
    if (uiRet == MTE_OK) {
        StoreRow(pstEntry->stRow);
    }
    return uiRet;
}

uint32_t mte_EVENT_Recover(uint32_t uiLen, const void* pRecord) {
    if (pRecord == nullptr || uiLen != sizeof(MTE_EVENT_ROW_S)) {
        return MTE_ERR_GENERAL;
    }
    MTE_EVENT_ROW_S stRecord;
    memcpy(&stRecord, pRecord, sizeof(stRecord));
    stRecord = MTE_CAT_TerminatedCopy(MTE_CAT_EVENT, stRecord);
    stRecord.uiEnabled = MTE_FALSE;
    if (stRecord.uiEntryStatus == MTE_ROW_ACTIVE) {
        stRecord.uiEntryStatus = MTE_ROW_CREATE_AND_GO;
    } else if (stRecord.uiEntryStatus == MTE_ROW_NOT_IN_SERVICE) {
        stRecord.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
    }
    uint32_t uiRet;
    {
        MTE_LOCK_GUARD stGuard(mte_EVENT_ListWrLock, mte_EVENT_ListUnLock);
        uint32_t uiFailedColumn = 0;
        // One stored record per index; a second would break the uniqueness.
        if (FindEntry(stRecord.szOwner, stRecord.szName) != nullptr) {
            uiRet = MTE_ERR_ROW_EXISTS;
        } else {
            uiRet = CreateEntry(stRecord, MTE_MASK_ALL_COLUMNS, &uiFailedColumn);
        }
    }
    if (uiRet != MTE_OK && mte_DBG_IsEnable(MTE_DBG_ERR)) {
        mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_RECOVER_FAILED), "Event");
    }
    return uiRet;
}

void mte_EVENT_Run(const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_FIRED_EVENT_S* pstFired) {
    if (pstTrigger == nullptr || pstFired == nullptr) {
        return;
    }
    RUN_COPY_S stCopy{};
    if (!CopyForRun(*pstFired, &stCopy)) {
        return;
    }
    // From here on only the copies are used and no lock is held: the agent
    // may take its time without holding up the management channel.
    MTE_OID_S stSuffix{};
    stSuffix.uiLen =
        pstFired->uiSuffixLen > MTE_OID_MAX_LEN ? MTE_OID_MAX_LEN : pstFired->uiSuffixLen;
    memcpy(stSuffix.auiOid, pstFired->auiSuffix, stSuffix.uiLen * sizeof(uint32_t));
    char szContext[MTE_NAME_SIZE];
    mte_StrCopy(szContext, pstFired->szContextName, sizeof(szContext));

    if (stCopy.ucActions & MTE_ACTION_NOTIFICATION) {
        char aszTrigger[2][MTE_NAME_SIZE];
        char aszTest[2][MTE_NAME_SIZE];
        char aszNotify[2][MTE_NAME_SIZE];
        CopyPair(aszTrigger, pstTrigger->szObjectsOwner, pstTrigger->szObjects);
        CopyPair(aszTest, pstFired->szObjectsOwner, pstFired->szObjectsName);
        CopyPair(aszNotify, stCopy.stNotify.szObjectsOwner, stCopy.stNotify.szObjects);
        mte_NOTIFY_SendNotify(&stCopy.stNotify, aszTrigger, aszTest, aszNotify, &stSuffix,
                              szContext);
    }
    if (stCopy.ucActions & MTE_ACTION_SET) {
        mte_SET_SetValueByOID(pstTrigger, &stCopy.stSet, &stSuffix, szContext);
    }
}
