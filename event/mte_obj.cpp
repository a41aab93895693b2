// Objects table (mteObjectsTable): named groups of OIDs that events attach as
// variable bindings to their notifications.
//
// Threads and locks: the main thread reads (get, get-next) and writes (set,
// recover) the list under the objects list lock, a pthread_rwlock_t of its
// own; the dispatch takes it around get, get-next and set, recover takes it
// itself. The sampling worker takes the read lock in mte_OBJ_GetObjVBlist only
// while it copies OIDs into new binding elements, and asks the agent for the
// values after releasing it. This lock is never held together with the event
// list lock.
#include "mte_obj.h"

#include <pthread.h>

#include <cstdlib>
#include <cstring>

#include "mte_catalogue.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_lock_guard.h"
#include "mte_memalert.h"
#include "mte_msg.h"
#include "mte_oid.h"
#include "mte_sorted_list.h"
#include "plat_snmp.h"

namespace {
constexpr uint32_t MTE_OBJ_MASK_ID = MTE_COLUMN_BIT(MTE_OBJ_COL_ID);
constexpr uint32_t MTE_OBJ_MASK_WILDCARD = MTE_COLUMN_BIT(MTE_OBJ_COL_ID_WILDCARD);
constexpr uint32_t MTE_OBJ_MASK_STATUS = MTE_COLUMN_BIT(MTE_OBJ_COL_ENTRY_STATUS);

MTE_LIST_LOCK_S g_stObjListLock;

MTE_OBJ_KEY_S KeyOfEntry(const MTE_OBJ_ENTRY_S* pstEntry) {
    return MTE_OBJ_KEY_S{pstEntry->uiOwnerLen, pstEntry->stRow.szOwner, pstEntry->uiNameLen,
                         pstEntry->stRow.szName, pstEntry->stRow.uiIndex};
}

struct OBJ_ORDER_S {
    using Key = MTE_OBJ_KEY_S;
    static Key KeyOf(const MTE_OBJ_ENTRY_S* pstEntry) { return KeyOfEntry(pstEntry); }
    static int CompareKeys(const Key& stA, const Key& stB) {
        return mte_list_CompareObjects(stA, stB);
    }
    static int Compare(const MTE_OBJ_ENTRY_S* pstA, const MTE_OBJ_ENTRY_S* pstB) {
        return CompareKeys(KeyOf(pstA), KeyOf(pstB));
    }
    static uint8_t Flags(const MTE_OBJ_ENTRY_S*) { return 0; }
};
// The objects in index order. Get-next walks and insertions start at the
// position where the last one ended (main thread only); the worker's walks
// start at the head, so that readers under the read lock never write shared
// state.
MTE_SORTED_LIST<MTE_OBJ_ENTRY_S, OBJ_ORDER_S> g_stObjects;

MTE_OBJ_KEY_S KeyOf(const char* pszOwner, const char* pszName, uint32_t uiIndex) {
    return MTE_OBJ_KEY_S{static_cast<uint32_t>(strlen(pszOwner)), pszOwner,
                         static_cast<uint32_t>(strlen(pszName)), pszName, uiIndex};
}

MTE_OBJ_ENTRY_S* FindEntry(const MTE_OBJ_KEY_S& stKey) {
    return g_stObjects.Find(stKey);
}

// Inserts before the first row whose key is greater.
void InsertEntry(MTE_OBJ_ENTRY_S* pstEntry) {
    pstEntry->uiOwnerLen = static_cast<uint32_t>(strlen(pstEntry->stRow.szOwner));
    pstEntry->uiNameLen = static_cast<uint32_t>(strlen(pstEntry->stRow.szName));
    g_stObjects.Insert(pstEntry);
}

uint32_t CreateEntry(const MTE_OBJ_ROW_S& stRequest, uint32_t uiMask, uint32_t* puiFailedColumn) {
    if ((uiMask & MTE_OBJ_MASK_STATUS) == 0) {
        *puiFailedColumn = MTE_OBJ_COL_ENTRY_STATUS;
        return MTE_ERR_NO_SUCH_ROW;
    }
    // An ID longer than a record can hold is refused before anything is copied.
    if ((uiMask & MTE_OBJ_MASK_ID) == 0 || stRequest.stID.uiLen > MTE_OID_MAX_LEN) {
        *puiFailedColumn = MTE_OBJ_COL_ID;
        return MTE_ERR_INCONSISTENT;
    }
    if (stRequest.uiEntryStatus == MTE_ROW_ACTIVE) {
        *puiFailedColumn = MTE_OBJ_COL_ENTRY_STATUS;
        return MTE_ERR_INCONSISTENT;
    }
    bool bRecovering = mte_BIN_GetRecover() == 1;
    if (!bRecovering && (uiMask & MTE_MASK_FORCE) == 0 && mte_MEMALERT_GetFlag() == 1) {
        return MTE_ERR_MEMORY_PRESSURE;
    }
    MTE_OBJ_ENTRY_S* pstEntry = static_cast<MTE_OBJ_ENTRY_S*>(calloc(1, sizeof(MTE_OBJ_ENTRY_S)));
    if (pstEntry == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_OBJECT_NO_MEMORY),
                          stRequest.szOwner, stRequest.szName, stRequest.uiIndex);
        }
        return MTE_ERR_GENERAL;
    }
    MTE_OBJ_ROW_S& stRow = pstEntry->stRow;
    mte_StrCopy(stRow.szOwner, stRequest.szOwner, MTE_NAME_SIZE);
    mte_StrCopy(stRow.szName, stRequest.szName, MTE_NAME_SIZE);
    stRow.uiIndex = stRequest.uiIndex;
    stRow.uiIDWildcard = MTE_FALSE;
    MTE_CAT_CopyColumns(MTE_CAT_OBJECTS, &stRequest, uiMask, &stRow);
    stRow.uiEntryStatus = MTE_ROW_ACTIVE;
    if (!bRecovering) {
        mte_DBM_StoreRow(MTE_CAT_OBJECTS, &stRow);
    }
    InsertEntry(pstEntry);
    return MTE_OK;
}

void DestroyEntry(MTE_OBJ_ENTRY_S* pstEntry) {
    mte_DBM_RemoveRow(MTE_CAT_OBJECTS, &pstEntry->stRow);
    g_stObjects.Unlink(pstEntry);
    free(pstEntry);
}

// A row, once made, never changes: a write to it only tells the manager
// whether it matches.
uint32_t WriteExisting(const MTE_OBJ_ROW_S& stRow, const MTE_OBJ_ROW_S& stRequest,
                       uint32_t uiMask) {
    if ((uiMask & MTE_OBJ_MASK_ID) && MTE_MSG_IsSameOID(&stRequest.stID, &stRow.stID) != 1) {
        return MTE_ERR_INCONSISTENT;
    }
    if ((uiMask & MTE_OBJ_MASK_WILDCARD) && stRequest.uiIDWildcard != stRow.uiIDWildcard) {
        return MTE_ERR_INCONSISTENT;
    }
    if (stRequest.uiEntryStatus == MTE_ROW_CREATE_AND_GO) {
        return MTE_ERR_ROW_EXISTS;
    }
    // The force bit only lifts the memory guard; it does not make a write of
    // the status alone into something else.
    if ((uiMask & ~MTE_MASK_FORCE) == MTE_OBJ_MASK_STATUS) {
        return MTE_OK;
    }
    return MTE_ERR_INCONSISTENT;
}

// ---------------------------------------------------------------------------
// Variable bindings.
// ---------------------------------------------------------------------------
void AppendElement(MTE_VB_LIST_S* pstList, MTE_VB_S* pstVb) {
    if (pstList->pstTail == nullptr) {
        pstList->pstHead = pstVb;
    } else {
        pstList->pstTail->pstNext = pstVb;
    }
    pstList->pstTail = pstVb;
}

// Builds the binding of one group row, or none when it has to be left out.
MTE_VB_S* NewBinding(const MTE_OBJ_ROW_S& stRow, const MTE_OID_S* pstSuffix) {
    MTE_OID_S stOid = stRow.stID;
    if (stRow.uiIDWildcard == MTE_TRUE) {
        if (pstSuffix == nullptr || pstSuffix->uiLen == 0) {
            if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
                mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_OBJECT_WILDCARDED),
                              stRow.szOwner, stRow.szName, stRow.uiIndex);
            }
            return nullptr;
        }
        if (AppendSuffix2OID(pstSuffix, &stOid) != MTE_OK) {
            return nullptr;  // the helper has said "Invalid OID length."
        }
    }
    MTE_VB_S* pstVb = static_cast<MTE_VB_S*>(calloc(1, sizeof(MTE_VB_S)));
    if (pstVb != nullptr) {
        pstVb->stOID = stOid;
    }
    return pstVb;
}

// Copies the group's OIDs into new elements under the read lock; returns the
// number of group rows found.
uint32_t CollectGroup(const MTE_OBJ_KEY_S& stGroup, const MTE_OID_S* pstSuffix,
                      MTE_VB_LIST_S* pstList) {
    MTE_LOCK_GUARD stGuard(mte_OBJ_ListRdLock, mte_OBJ_ListUnLock);
    uint32_t uiFound = 0;
    for (MTE_OBJ_ENTRY_S* pst = g_stObjects.Head(); pst != nullptr; pst = pst->pstNext) {
        int iCmp = mte_list_CompareGroup(KeyOfEntry(pst), stGroup);
        if (iCmp > 0) {
            break;
        }
        if (iCmp < 0) {
            continue;
        }
        ++uiFound;
        MTE_VB_S* pstVb = NewBinding(pst->stRow, pstSuffix);
        if (pstVb != nullptr) {
            AppendElement(pstList, pstVb);
        }
    }
    return uiFound;
}

// Asks the agent for the value of each element after pstLast (of every
// element when pstLast is none); elements without a value are dropped.
void FetchValues(const char* pszOwner, const char* pszContext, MTE_VB_S* pstLast,
                 MTE_VB_LIST_S* pstList) {
    MTE_VB_S* pstPrev = pstLast;
    MTE_VB_S* pstVb = pstLast == nullptr ? pstList->pstHead : pstLast->pstNext;
    while (pstVb != nullptr) {
        MTE_VB_S* pstNext = pstVb->pstNext;
        uint32_t uiStatus = 0;
        pstVb->pValue = SNMP_GetInstanceValue(pszOwner, pszContext, &pstVb->stOID, &uiStatus);
        if (pstVb->pValue != nullptr) {
            pstPrev = pstVb;
        } else {
            if (pstPrev == nullptr) {
                pstList->pstHead = pstNext;
            } else {
                pstPrev->pstNext = pstNext;
            }
            if (pstList->pstTail == pstVb) {
                pstList->pstTail = pstPrev;
            }
            free(pstVb);
        }
        pstVb = pstNext;
    }
}
}  // namespace

uint32_t mte_OBJ_Init(void) {
    (void)g_stObjects.Release();
    return g_stObjListLock.Ready();
}

void mte_OBJ_Fini(void) {
    g_stObjListLock.Destroy();
    MTE_OBJ_ENTRY_S* pst = g_stObjects.Release();
    while (pst != nullptr) {
        MTE_OBJ_ENTRY_S* pstNext = pst->pstNext;
        free(pst);
        pst = pstNext;
    }
}

uint32_t mte_OBJ_IsEmpty(void) {
    return g_stObjects.IsEmpty() ? 1 : 0;
}

void mte_OBJ_ListRdLock(void) {
    g_stObjListLock.RdLock();
}

void mte_OBJ_ListWrLock(void) {
    g_stObjListLock.WrLock();
}

void mte_OBJ_ListUnLock(void) {
    g_stObjListLock.UnLock();
}

MTE_OBJ_ROW_S* mte_OBJ_Get(const char* pszOwner, const char* pszName, uint32_t uiIndex) {
    if (pszOwner == nullptr || pszName == nullptr) {
        return nullptr;
    }
    MTE_OBJ_ENTRY_S* pstEntry = FindEntry(KeyOf(pszOwner, pszName, uiIndex));
    return pstEntry == nullptr ? nullptr : &pstEntry->stRow;
}

MTE_OBJ_ROW_S* mte_OBJ_GetNext(uint32_t uiOwnerLen, const char* pszOwner, uint32_t uiNameLen,
                               const char* pszName, uint32_t uiIndex) {
    if (pszOwner == nullptr || pszName == nullptr) {
        return nullptr;
    }
    MTE_OBJ_ENTRY_S* pstNext =
        g_stObjects.Next(MTE_OBJ_KEY_S{uiOwnerLen, pszOwner, uiNameLen, pszName, uiIndex}, nullptr);
    return pstNext != nullptr ? &pstNext->stRow : nullptr;
}

uint32_t mte_OBJ_Set(const MTE_OBJ_ROW_S* pstRequest, uint32_t uiColumnMask,
                     uint32_t* puiFailedColumn) {
    uint32_t uiScratch = 0;
    if (puiFailedColumn == nullptr) {
        puiFailedColumn = &uiScratch;
    }
    if (pstRequest == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_OBJ_ROW_S stRequest = MTE_CAT_TerminatedCopy(MTE_CAT_OBJECTS, *pstRequest);
    MTE_OBJ_ENTRY_S* pstEntry =
        FindEntry(KeyOf(stRequest.szOwner, stRequest.szName, stRequest.uiIndex));
    if (stRequest.uiEntryStatus == MTE_ROW_DESTROY) {
        if (pstEntry != nullptr) {
            DestroyEntry(pstEntry);
        }
        return MTE_OK;
    }
    if (pstEntry == nullptr) {
        return CreateEntry(stRequest, uiColumnMask, puiFailedColumn);
    }
    if ((uiColumnMask & MTE_OBJ_MASK_ID) && stRequest.stID.uiLen > MTE_OID_MAX_LEN) {
        *puiFailedColumn = MTE_OBJ_COL_ID;
        return MTE_ERR_INCONSISTENT;
    }
    return WriteExisting(pstEntry->stRow, stRequest, uiColumnMask);
}

uint32_t mte_OBJ_Recover(uint32_t uiLen, const void* pRecord) {
    if (pRecord == nullptr || uiLen != sizeof(MTE_OBJ_ROW_S)) {
        return MTE_ERR_GENERAL;
    }
    MTE_OBJ_ROW_S stRecord;
    memcpy(&stRecord, pRecord, sizeof(stRecord));
    stRecord = MTE_CAT_TerminatedCopy(MTE_CAT_OBJECTS, stRecord);
    if (stRecord.uiEntryStatus == MTE_ROW_ACTIVE) {
        stRecord.uiEntryStatus = MTE_ROW_CREATE_AND_GO;
    }
    uint32_t uiRet;
    {
        MTE_LOCK_GUARD stGuard(mte_OBJ_ListWrLock, mte_OBJ_ListUnLock);
        uint32_t uiFailedColumn = 0;
        // The store holds one record per index; a second one would break the
        // list's uniqueness, so it is dropped.
        if (FindEntry(KeyOf(stRecord.szOwner, stRecord.szName, stRecord.uiIndex))) {
            uiRet = MTE_ERR_ROW_EXISTS;
        } else {
            uiRet = CreateEntry(stRecord, MTE_MASK_ALL_COLUMNS, &uiFailedColumn);
        }
    }
    if (uiRet != MTE_OK && mte_DBG_IsEnable(MTE_DBG_ERR)) {
        mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_RECOVER_FAILED), "Objects");
    }
    return uiRet;
}

void mte_OBJ_GetObjVBlist(const char (*paszOwnerAndName)[MTE_NAME_SIZE], const MTE_OID_S* pstSuffix,
                          const char* pszContextName, MTE_VB_LIST_S* pstList) {
    if (paszOwnerAndName == nullptr || pstList == nullptr) {
        return;
    }
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    mte_StrCopy(szOwner, paszOwnerAndName[0], sizeof(szOwner));
    mte_StrCopy(szName, paszOwnerAndName[1], sizeof(szName));
    MTE_VB_S* pstLast = pstList->pstTail;
    uint32_t uiFound = CollectGroup(KeyOf(szOwner, szName, 0), pstSuffix, pstList);
    if (uiFound == 0) {
        if (mte_DBG_IsEnable(MTE_DBG_WARNING)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_WARNING,
                          mte_DBG_TextFormat(MTE_TEXT_OBJECTS_NONEXISTENT), szOwner, szName);
        }
        return;
    }
    // No lock from here on: the objects table stays writable while the agent
    // is being asked.
    FetchValues(szOwner, pszContextName == nullptr ? "" : pszContextName, pstLast, pstList);
}

void mte_OBJ_FreeVBlist(MTE_VB_LIST_S* pstList) {
    if (pstList == nullptr) {
        return;
    }
    MTE_VB_S* pstVb = pstList->pstHead;
    while (pstVb != nullptr) {
        MTE_VB_S* pstNext = pstVb->pstNext;
        if (pstVb->pValue != nullptr) {
            SNMP_FreeInstanceValue(pstVb->pValue);
        }
        free(pstVb);
        pstVb = pstNext;
    }
    pstList->pstHead = nullptr;
    pstList->pstTail = nullptr;
}
