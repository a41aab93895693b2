// Boolean test: the boolean rows that triggers own, their management
// operations, and the comparison check that fires when its condition becomes
// true. Set and recover run on the main thread under the trigger's state
// lock; the check runs on the worker with that lock held by the caller and
// writes only the current sample's state bit.
#include "mte_bool.h"

#include <cstdlib>
#include <cstring>

#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_oid.h"
#include "mte_test_value.h"
#include "mte_trigger.h"
#include "mte_trigger_priv.h"

namespace {

bool InMask(uint32_t uiMask, uint32_t uiColumn) {
    return (uiMask & MTE_COLUMN_BIT(uiColumn)) != 0;
}

void StoreRow(const MTE_BOOL_ENTRY_S* pstRow) {
    (void)mte_DBM_InsertSortList(MTE_DBM_CFG, MTE_LIST_BOOLEAN, MTE_LIST_BOOLEAN_NAME_SIZE, pstRow,
                                 sizeof(*pstRow), MTE_TBL_BOOLEAN);
}

void TerminateRow(MTE_BOOL_ENTRY_S* pstRow) {
    mte_trigger_Terminate(pstRow->szOwner);
    mte_trigger_Terminate(pstRow->szName);
    mte_trigger_Terminate(pstRow->szObjectsOwner);
    mte_trigger_Terminate(pstRow->szObjects);
    mte_trigger_Terminate(pstRow->szEventOwner);
    mte_trigger_Terminate(pstRow->szEvent);
}

struct StrColumn {
    uint32_t uiColumn;
    size_t uiOffset;
};
constexpr StrColumn kStrColumns[] = {
    {MTE_BOOL_COL_OBJECTS_OWNER, offsetof(MTE_BOOL_ENTRY_S, szObjectsOwner)},
    {MTE_BOOL_COL_OBJECTS, offsetof(MTE_BOOL_ENTRY_S, szObjects)},
    {MTE_BOOL_COL_EVENT_OWNER, offsetof(MTE_BOOL_ENTRY_S, szEventOwner)},
    {MTE_BOOL_COL_EVENT, offsetof(MTE_BOOL_ENTRY_S, szEvent)},
};

const char* StrField(const MTE_BOOL_ENTRY_S* pstRow, size_t uiOffset) {
    return reinterpret_cast<const char*>(pstRow) + uiOffset;
}

char* StrField(MTE_BOOL_ENTRY_S* pstRow, size_t uiOffset) {
    return reinterpret_cast<char*>(pstRow) + uiOffset;
}

bool RequestChanges(const MTE_BOOL_ENTRY_S* pstReq, uint32_t uiMask,
                    const MTE_BOOL_ENTRY_S* pstRow) {
    if ((InMask(uiMask, MTE_BOOL_COL_COMPARISON) && pstReq->uiComparison != pstRow->uiComparison) ||
        (InMask(uiMask, MTE_BOOL_COL_VALUE) && pstReq->iValue != pstRow->iValue) ||
        (InMask(uiMask, MTE_BOOL_COL_STARTUP) && pstReq->uiStartup != pstRow->uiStartup)) {
        return true;
    }
    for (const StrColumn& stCol : kStrColumns) {
        if (InMask(uiMask, stCol.uiColumn) &&
            strcmp(StrField(pstReq, stCol.uiOffset), StrField(pstRow, stCol.uiOffset)) != 0) {
            return true;
        }
    }
    return false;
}

void CopyValues(const MTE_BOOL_ENTRY_S* pstFrom, uint32_t uiMask, MTE_BOOL_ENTRY_S* pstRow) {
    if (InMask(uiMask, MTE_BOOL_COL_COMPARISON)) {
        pstRow->uiComparison = pstFrom->uiComparison;
    }
    if (InMask(uiMask, MTE_BOOL_COL_VALUE)) {
        pstRow->iValue = pstFrom->iValue;
    }
    if (InMask(uiMask, MTE_BOOL_COL_STARTUP)) {
        pstRow->uiStartup = pstFrom->uiStartup;
    }
    for (const StrColumn& stCol : kStrColumns) {
        if (InMask(uiMask, stCol.uiColumn)) {
            mte_StrCopy(StrField(pstRow, stCol.uiOffset), StrField(pstFrom, stCol.uiOffset),
                        MTE_NAME_SIZE);
        }
    }
}

// Whether the comparison holds for the sign of (number - iValue).
// Unknown comparison values never hold.
bool ConditionHolds(uint32_t uiComparison, int iSign) {
    switch (uiComparison) {
        case MTE_BOOL_UNEQUAL:
            return iSign != 0;
        case MTE_BOOL_EQUAL:
            return iSign == 0;
        case MTE_BOOL_LESS:
            return iSign < 0;
        case MTE_BOOL_LESS_OR_EQUAL:
            return iSign <= 0;
        case MTE_BOOL_GREATER:
            return iSign > 0;
        case MTE_BOOL_GREATER_OR_EQUAL:
            return iSign >= 0;
        default:
            return false;
    }
}

}  // namespace

MTE_BOOL_ENTRY_S* mte_BOOL_Create(const char* pszOwner, const char* pszName) {
    auto* pstRow = static_cast<MTE_BOOL_ENTRY_S*>(calloc(1, sizeof(MTE_BOOL_ENTRY_S)));
    if (pstRow == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s entry %s-%s: Insufficient memory.", "Boolean",
                          pszOwner, pszName);
        }
        return nullptr;
    }
    mte_StrCopy(pstRow->szOwner, pszOwner, sizeof(pstRow->szOwner));
    mte_StrCopy(pstRow->szName, pszName, sizeof(pstRow->szName));
    pstRow->uiComparison = MTE_BOOL_UNEQUAL;
    pstRow->uiStartup = MTE_TRUE;
    if (mte_BIN_GetRecover() != 1) {
        StoreRow(pstRow);
    }
    return pstRow;
}

void mte_BOOL_Destroy(MTE_BOOL_ENTRY_S* pstRow) {
    if (pstRow == nullptr) {
        return;
    }
    (void)mte_DBM_DelFromSortList(MTE_DBM_CFG, MTE_LIST_BOOLEAN, MTE_LIST_BOOLEAN_NAME_SIZE, pstRow,
                                  sizeof(*pstRow));
    free(pstRow);
}

MTE_BOOL_ENTRY_S* mte_BOOL_Get(const char* pszOwner, const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    return pstTrigger != nullptr ? pstTrigger->pstBool : nullptr;
}

MTE_BOOL_ENTRY_S* mte_BOOL_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                   uint8_t* pucFlags) {
    MTE_TRIGGER_ENTRY_S* pstTrigger =
        mte_TRIGGER_GetNextTriggerEntry(uiOwnerLen, pszOwner, pszName, pucFlags);
    while (pstTrigger != nullptr && pstTrigger->pstBool == nullptr) {
        pstTrigger = pstTrigger->pstNext;
    }
    return pstTrigger != nullptr ? pstTrigger->pstBool : nullptr;
}

uint32_t mte_BOOL_Set(const MTE_BOOL_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                      uint32_t* puiFailedColumn) {
    MTE_BOOL_ENTRY_S stReq;
    memcpy(&stReq, pstRequest, sizeof(stReq));
    TerminateRow(&stReq);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stReq.szOwner, stReq.szName);
    if (pstTrigger == nullptr || pstTrigger->pstBool == nullptr) {
        return MTE_ERR_NO_SUCH_ROW;
    }
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    MTE_BOOL_ENTRY_S* pstRow = pstTrigger->pstBool;
    uint32_t uiRet = MTE_OK;
    bool bChanges = RequestChanges(&stReq, uiColumnMask, pstRow);
    if (pstTrigger->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        uiRet = bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    } else if (!bChanges) {
        uiRet = MTE_OK;
    } else if (InMask(uiColumnMask, MTE_BOOL_COL_OBJECTS_OWNER) &&
               !mte_checkOwner(stReq.szObjectsOwner, stReq.szOwner)) {
        *puiFailedColumn = MTE_BOOL_COL_OBJECTS_OWNER;
        uiRet = MTE_ERR_INCONSISTENT;
    } else if (InMask(uiColumnMask, MTE_BOOL_COL_EVENT_OWNER) &&
               !mte_checkOwner(stReq.szEventOwner, stReq.szOwner)) {
        *puiFailedColumn = MTE_BOOL_COL_EVENT_OWNER;
        uiRet = MTE_ERR_INCONSISTENT;
    } else {
        CopyValues(&stReq, uiColumnMask, pstRow);
        StoreRow(pstRow);
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return uiRet;
}

uint32_t mte_BOOL_Recover(uint32_t uiLen, const void* pRecord) {
    if (uiLen != sizeof(MTE_BOOL_ENTRY_S) || pRecord == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_BOOL_ENTRY_S stRec;
    memcpy(&stRec, pRecord, sizeof(stRec));
    TerminateRow(&stRec);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stRec.szOwner, stRec.szName);
    if (pstTrigger == nullptr) {
        return MTE_ERR_GENERAL;
    }
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    if (pstTrigger->pstBool != nullptr) {
        CopyValues(&stRec, MTE_MASK_ALL_COLUMNS, pstTrigger->pstBool);
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return MTE_OK;
}

int32_t mte_BOOL_Check(const MTE_BOOL_ENTRY_S* pstRow, uint32_t uiSampleType,
                       const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
    if (!mte_test_HasValue(pstCur)) {
        return MTE_CHECK_NONE;
    }
    uint32_t uiKind = mte_test_ValueKind(pstCur->pstValue);
    if (uiKind == MTE_VKIND_NONE) {
        mte_test_WarnNotNumeric();
        return MTE_CHECK_BADTYPE;
    }
    bool bPrev;
    uint32_t uiFit;
    int32_t iNumber = 0;
    if (uiSampleType == MTE_SAMPLE_DELTA) {
        bPrev = mte_test_HasComparable(pstPrev, uiKind);
        if (!bPrev) {
            return MTE_CHECK_NONE;  // a delta needs two samples; the test stays armed
        }
        uiFit =
            mte_RUN_DeltaVal(uiKind, pstCur->pstValue->pData, pstPrev->pstValue->pData, &iNumber);
    } else {
        bPrev = mte_test_HasValue(pstPrev);
        if (!bPrev && pstRow->uiStartup != MTE_TRUE) {
            return MTE_CHECK_NONE;
        }
        uiFit = mte_RUN_AbsoluteVal(uiKind, pstCur->pstValue->pData, &iNumber);
    }
    int iSign;
    if (uiFit == 1) {
        iSign = 1;
    } else if (uiFit == 2) {
        iSign = -1;
    } else {
        iSign = iNumber > pstRow->iValue ? 1 : (iNumber < pstRow->iValue ? -1 : 0);
    }
    if (!ConditionHolds(pstRow->uiComparison, iSign)) {
        return MTE_CHECK_NONE;
    }
    pstCur->uiTestState &= ~MTE_TSTATE_BOOLEAN;
    // Fires once when the condition becomes true, again only after a cycle
    // in which it was false.
    if (bPrev && (pstPrev->uiTestState & MTE_TSTATE_BOOLEAN) == 0) {
        return MTE_CHECK_NONE;
    }
    return MTE_CHECK_BOOLEAN;
}
