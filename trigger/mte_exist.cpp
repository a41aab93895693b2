// Existence test: the existence rows that triggers own, their management
// operations, and the present/absent/changed check. Create and destroy run on
// the main thread for the trigger table (the caller holds the trigger's state
// lock where the trigger is already shared); set and recover run on the main
// thread and take the trigger's state lock; the check runs on the worker with
// that lock already held. No other lock is taken.
#include "mte_exist.h"

#include <cstdlib>
#include <cstring>

#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_oid.h"
#include "mte_trigger.h"
#include "mte_trigger_priv.h"

namespace {

constexpr uint8_t kDefaultBits = MTE_EXIST_PRESENT | MTE_EXIST_ABSENT;

bool InMask(uint32_t uiMask, uint32_t uiColumn) {
    return (uiMask & MTE_COLUMN_BIT(uiColumn)) != 0;
}

void StoreRow(const MTE_EXIST_ENTRY_S* pstRow) {
    (void)mte_DBM_InsertSortList(MTE_DBM_CFG, MTE_LIST_EXISTENCE, MTE_LIST_EXISTENCE_NAME_SIZE,
                                 pstRow, MTE_EXIST_ROW_SIZE, MTE_TBL_EXISTENCE);
}

void TerminateRow(MTE_EXIST_ENTRY_S* pstRow) {
    mte_trigger_Terminate(pstRow->szOwner);
    mte_trigger_Terminate(pstRow->szName);
    mte_trigger_Terminate(pstRow->szObjectsOwner);
    mte_trigger_Terminate(pstRow->szObjects);
    mte_trigger_Terminate(pstRow->szEventOwner);
    mte_trigger_Terminate(pstRow->szEvent);
}

// Copies bit ucBit of ucFrom into *pucTo.
void CopyBit(uint8_t ucFrom, uint8_t ucBit, uint8_t* pucTo) {
    *pucTo = static_cast<uint8_t>((*pucTo & ~ucBit) | (ucFrom & ucBit));
}

struct BitColumn {
    uint32_t uiColumn;
    bool bStartup;  // a bit of ucStartup, else of ucTest
    uint8_t ucBit;
};
constexpr BitColumn kBitColumns[] = {
    {MTE_EXIST_COL_TEST_PRESENT, false, MTE_EXIST_PRESENT},
    {MTE_EXIST_COL_TEST_ABSENT, false, MTE_EXIST_ABSENT},
    {MTE_EXIST_COL_TEST_CHANGED, false, MTE_EXIST_CHANGED},
    {MTE_EXIST_COL_STARTUP_PRESENT, true, MTE_EXIST_PRESENT},
    {MTE_EXIST_COL_STARTUP_ABSENT, true, MTE_EXIST_ABSENT},
};

struct StrColumn {
    uint32_t uiColumn;
    size_t uiOffset;
};
constexpr StrColumn kStrColumns[] = {
    {MTE_EXIST_COL_OBJECTS_OWNER, offsetof(MTE_EXIST_ENTRY_S, szObjectsOwner)},
    {MTE_EXIST_COL_OBJECTS, offsetof(MTE_EXIST_ENTRY_S, szObjects)},
    {MTE_EXIST_COL_EVENT_OWNER, offsetof(MTE_EXIST_ENTRY_S, szEventOwner)},
    {MTE_EXIST_COL_EVENT, offsetof(MTE_EXIST_ENTRY_S, szEvent)},
};

const char* StrField(const MTE_EXIST_ENTRY_S* pstRow, size_t uiOffset) {
    return reinterpret_cast<const char*>(pstRow) + uiOffset;
}

char* StrField(MTE_EXIST_ENTRY_S* pstRow, size_t uiOffset) {
    return reinterpret_cast<char*>(pstRow) + uiOffset;
}

uint8_t BitsOf(const MTE_EXIST_ENTRY_S* pstRow, const BitColumn& stCol) {
    return stCol.bStartup ? pstRow->ucStartup : pstRow->ucTest;
}

bool RequestChanges(const MTE_EXIST_ENTRY_S* pstReq, uint32_t uiMask,
                    const MTE_EXIST_ENTRY_S* pstRow) {
    for (const BitColumn& stCol : kBitColumns) {
        if (InMask(uiMask, stCol.uiColumn) &&
            ((BitsOf(pstReq, stCol) ^ BitsOf(pstRow, stCol)) & stCol.ucBit) != 0) {
            return true;
        }
    }
    for (const StrColumn& stCol : kStrColumns) {
        if (InMask(uiMask, stCol.uiColumn) &&
            strcmp(StrField(pstReq, stCol.uiOffset), StrField(pstRow, stCol.uiOffset)) != 0) {
            return true;
        }
    }
    return false;
}

bool ValuesDiffer(const SNMP_VALUE_S* pstA, const SNMP_VALUE_S* pstB) {
    if (pstA->uiLen != pstB->uiLen || pstA->uiType != pstB->uiType) {
        return true;
    }
    if (pstA->uiLen == 0 || pstA->pData == pstB->pData) {
        return false;
    }
    if (pstA->pData == nullptr || pstB->pData == nullptr) {
        return true;
    }
    return memcmp(pstA->pData, pstB->pData, pstA->uiLen) != 0;
}

}  // namespace

MTE_EXIST_ENTRY_S* mte_EXIST_Create(const char* pszOwner, const char* pszName) {
    auto* pstRow = static_cast<MTE_EXIST_ENTRY_S*>(calloc(1, sizeof(MTE_EXIST_ENTRY_S)));
    if (pstRow == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s entry %s-%s: Insufficient memory.", "Existence",
                          pszOwner, pszName);
        }
        return nullptr;
    }
    mte_StrCopy(pstRow->szOwner, pszOwner, sizeof(pstRow->szOwner));
    mte_StrCopy(pstRow->szName, pszName, sizeof(pstRow->szName));
    pstRow->ucTest = kDefaultBits;
    pstRow->ucStartup = kDefaultBits;
    pstRow->usFirstCycle = 1;
    if (mte_BIN_GetRecover() != 1) {
        StoreRow(pstRow);
    }
    return pstRow;
}

void mte_EXIST_Destroy(MTE_EXIST_ENTRY_S* pstRow) {
    if (pstRow == nullptr) {
        return;
    }
    (void)mte_DBM_DelFromSortList(MTE_DBM_CFG, MTE_LIST_EXISTENCE, MTE_LIST_EXISTENCE_NAME_SIZE,
                                  pstRow, MTE_EXIST_ROW_SIZE);
    free(pstRow);
}

MTE_EXIST_ENTRY_S* mte_EXIST_Get(const char* pszOwner, const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    return pstTrigger != nullptr ? pstTrigger->pstExist : nullptr;
}

MTE_EXIST_ENTRY_S* mte_EXIST_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags) {
    MTE_TRIGGER_ENTRY_S* pstTrigger =
        mte_TRIGGER_GetNextTriggerEntry(uiOwnerLen, pszOwner, pszName, pucFlags);
    while (pstTrigger != nullptr && pstTrigger->pstExist == nullptr) {
        pstTrigger = pstTrigger->pstNext;
    }
    return pstTrigger != nullptr ? pstTrigger->pstExist : nullptr;
}

uint32_t mte_EXIST_Set(const MTE_EXIST_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn) {
    MTE_EXIST_ENTRY_S stReq{};
    memcpy(&stReq, pstRequest, MTE_EXIST_ROW_SIZE);
    TerminateRow(&stReq);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stReq.szOwner, stReq.szName);
    if (pstTrigger == nullptr || pstTrigger->pstExist == nullptr) {
        return MTE_ERR_NO_SUCH_ROW;
    }
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    MTE_EXIST_ENTRY_S* pstRow = pstTrigger->pstExist;
    uint32_t uiRet = MTE_OK;
    bool bChanges = RequestChanges(&stReq, uiColumnMask, pstRow);
    if (pstTrigger->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        uiRet = bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    } else if (!bChanges) {
        uiRet = MTE_OK;
    } else if (InMask(uiColumnMask, MTE_EXIST_COL_OBJECTS_OWNER) &&
               !mte_checkOwner(stReq.szObjectsOwner, stReq.szOwner)) {
        *puiFailedColumn = MTE_EXIST_COL_OBJECTS_OWNER;
        uiRet = MTE_ERR_INCONSISTENT;
    } else if (InMask(uiColumnMask, MTE_EXIST_COL_EVENT_OWNER) &&
               !mte_checkOwner(stReq.szEventOwner, stReq.szOwner)) {
        *puiFailedColumn = MTE_EXIST_COL_EVENT_OWNER;
        uiRet = MTE_ERR_INCONSISTENT;
    } else {
        for (const BitColumn& stCol : kBitColumns) {
            if (InMask(uiColumnMask, stCol.uiColumn)) {
                CopyBit(BitsOf(&stReq, stCol), stCol.ucBit,
                        stCol.bStartup ? &pstRow->ucStartup : &pstRow->ucTest);
            }
        }
        for (const StrColumn& stCol : kStrColumns) {
            if (InMask(uiColumnMask, stCol.uiColumn)) {
                mte_StrCopy(StrField(pstRow, stCol.uiOffset), StrField(&stReq, stCol.uiOffset),
                            MTE_NAME_SIZE);
            }
        }
        StoreRow(pstRow);
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return uiRet;
}

uint32_t mte_EXIST_Recover(uint32_t uiLen, const void* pRecord) {
    if (uiLen != MTE_EXIST_ROW_SIZE || pRecord == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_EXIST_ENTRY_S stRec{};
    memcpy(&stRec, pRecord, MTE_EXIST_ROW_SIZE);
    TerminateRow(&stRec);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stRec.szOwner, stRec.szName);
    if (pstTrigger == nullptr || pstTrigger->pstExist == nullptr) {
        return MTE_ERR_GENERAL;
    }
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    MTE_EXIST_ENTRY_S* pstRow = pstTrigger->pstExist;
    for (const BitColumn& stCol : kBitColumns) {
        CopyBit(BitsOf(&stRec, stCol), stCol.ucBit,
                stCol.bStartup ? &pstRow->ucStartup : &pstRow->ucTest);
    }
    for (const StrColumn& stCol : kStrColumns) {
        mte_StrCopy(StrField(pstRow, stCol.uiOffset), StrField(&stRec, stCol.uiOffset),
                    MTE_NAME_SIZE);
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return MTE_OK;
}

int32_t mte_EXIST_Check(const MTE_EXIST_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev,
                        const MTE_SAMPLE_S* pstCur) {
    bool bPrev = pstPrev != nullptr && pstPrev->pstValue != nullptr;
    bool bCur = pstCur != nullptr && pstCur->pstValue != nullptr;
    bool bFirstCycle = pstRow->usFirstCycle == 1;
    if (bPrev && bCur) {
        return (pstRow->ucTest & MTE_EXIST_CHANGED) &&
                       ValuesDiffer(pstPrev->pstValue, pstCur->pstValue)
                   ? MTE_CHECK_CHANGED
                   : MTE_CHECK_NONE;
    }
    if (bCur) {
        if (!(pstRow->ucTest & MTE_EXIST_PRESENT)) {
            return MTE_CHECK_NONE;
        }
        if (bFirstCycle && !(pstRow->ucStartup & MTE_EXIST_PRESENT)) {
            return MTE_CHECK_NONE;
        }
        return MTE_CHECK_PRESENT;
    }
    if (!(pstRow->ucTest & MTE_EXIST_ABSENT)) {
        return MTE_CHECK_NONE;
    }
    if (bFirstCycle) {
        return (pstRow->ucStartup & MTE_EXIST_ABSENT) ? MTE_CHECK_ABSENT : MTE_CHECK_NONE;
    }
    return bPrev ? MTE_CHECK_ABSENT : MTE_CHECK_NONE;
}
