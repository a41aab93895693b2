// Threshold test: the threshold rows that triggers own, their management
// operations with the ordering rules of the thresholds, and the absolute and
// delta checks whose hysteresis lives in the samples' state bits. Set and
// recover run on the main thread under the trigger's state lock; the checks
// run on the worker with that lock held by the caller and write only the
// current sample's state bits.
#include "mte_thres.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>

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

void StoreRow(const MTE_THRES_ENTRY_S* pstRow) {
    (void)mte_DBM_InsertSortList(MTE_DBM_CFG, MTE_LIST_THRESHOLD, MTE_LIST_THRESHOLD_NAME_SIZE,
                                 pstRow, sizeof(*pstRow), MTE_TBL_THRESHOLD);
}

struct NumColumn {
    uint32_t uiColumn;
    size_t uiOffset;
};
constexpr NumColumn kNumColumns[] = {
    {MTE_THRES_COL_STARTUP, offsetof(MTE_THRES_ENTRY_S, uiStartup)},
    {MTE_THRES_COL_RISING, offsetof(MTE_THRES_ENTRY_S, iRising)},
    {MTE_THRES_COL_FALLING, offsetof(MTE_THRES_ENTRY_S, iFalling)},
    {MTE_THRES_COL_DELTA_RISING, offsetof(MTE_THRES_ENTRY_S, iDeltaRising)},
    {MTE_THRES_COL_DELTA_FALLING, offsetof(MTE_THRES_ENTRY_S, iDeltaFalling)},
};

struct StrColumn {
    uint32_t uiColumn;
    size_t uiOffset;
    bool bOwner;  // must be empty or the row's owner
};
constexpr StrColumn kStrColumns[] = {
    {MTE_THRES_COL_OBJECTS_OWNER, offsetof(MTE_THRES_ENTRY_S, szObjectsOwner), true},
    {MTE_THRES_COL_OBJECTS, offsetof(MTE_THRES_ENTRY_S, szObjects), false},
    {MTE_THRES_COL_RISING_EVENT_OWNER, offsetof(MTE_THRES_ENTRY_S, szRisingEventOwner), true},
    {MTE_THRES_COL_RISING_EVENT, offsetof(MTE_THRES_ENTRY_S, szRisingEvent), false},
    {MTE_THRES_COL_FALLING_EVENT_OWNER, offsetof(MTE_THRES_ENTRY_S, szFallingEventOwner), true},
    {MTE_THRES_COL_FALLING_EVENT, offsetof(MTE_THRES_ENTRY_S, szFallingEvent), false},
    {MTE_THRES_COL_DELTA_RISING_EVENT_OWNER, offsetof(MTE_THRES_ENTRY_S, szDeltaRisingEventOwner),
     true},
    {MTE_THRES_COL_DELTA_RISING_EVENT, offsetof(MTE_THRES_ENTRY_S, szDeltaRisingEvent), false},
    {MTE_THRES_COL_DELTA_FALLING_EVENT_OWNER, offsetof(MTE_THRES_ENTRY_S, szDeltaFallingEventOwner),
     true},
    {MTE_THRES_COL_DELTA_FALLING_EVENT, offsetof(MTE_THRES_ENTRY_S, szDeltaFallingEvent), false},
};

template <typename Row>
auto Field(Row* pstRow, size_t uiOffset) {
    using Byte = std::conditional_t<std::is_const_v<Row>, const char, char>;
    return reinterpret_cast<Byte*>(pstRow) + uiOffset;
}

uint32_t Number(const MTE_THRES_ENTRY_S* pstRow, size_t uiOffset) {
    uint32_t uiValue;
    memcpy(&uiValue, Field(pstRow, uiOffset), sizeof(uiValue));
    return uiValue;
}

void TerminateRow(MTE_THRES_ENTRY_S* pstRow) {
    mte_trigger_Terminate(pstRow->szOwner);
    mte_trigger_Terminate(pstRow->szName);
    for (const StrColumn& stCol : kStrColumns) {
        Field(pstRow, stCol.uiOffset)[MTE_NAME_SIZE - 1] = '\0';
    }
}

bool RequestChanges(const MTE_THRES_ENTRY_S* pstReq, uint32_t uiMask,
                    const MTE_THRES_ENTRY_S* pstRow) {
    for (const NumColumn& stCol : kNumColumns) {
        if (InMask(uiMask, stCol.uiColumn) &&
            Number(pstReq, stCol.uiOffset) != Number(pstRow, stCol.uiOffset)) {
            return true;
        }
    }
    for (const StrColumn& stCol : kStrColumns) {
        if (InMask(uiMask, stCol.uiColumn) &&
            strcmp(Field(pstReq, stCol.uiOffset), Field(pstRow, stCol.uiOffset)) != 0) {
            return true;
        }
    }
    return false;
}

// Rising must not be below falling, delta rising not below delta falling;
// a threshold not in the request is taken from the row. 0 or the column.
uint32_t CheckOrdering(const MTE_THRES_ENTRY_S* pstReq, uint32_t uiMask,
                       const MTE_THRES_ENTRY_S* pstRow) {
    int32_t iFalling = InMask(uiMask, MTE_THRES_COL_FALLING) ? pstReq->iFalling : pstRow->iFalling;
    if (InMask(uiMask, MTE_THRES_COL_RISING)) {
        if (pstReq->iRising < iFalling) {
            return MTE_THRES_COL_RISING;
        }
    } else if (InMask(uiMask, MTE_THRES_COL_FALLING) && pstReq->iFalling > pstRow->iRising) {
        return MTE_THRES_COL_FALLING;
    }
    int32_t iDeltaFalling =
        InMask(uiMask, MTE_THRES_COL_DELTA_FALLING) ? pstReq->iDeltaFalling : pstRow->iDeltaFalling;
    if (InMask(uiMask, MTE_THRES_COL_DELTA_RISING)) {
        if (pstReq->iDeltaRising < iDeltaFalling) {
            return MTE_THRES_COL_DELTA_RISING;
        }
    } else if (InMask(uiMask, MTE_THRES_COL_DELTA_FALLING) &&
               pstReq->iDeltaFalling > pstRow->iDeltaRising) {
        return MTE_THRES_COL_DELTA_FALLING;
    }
    return 0;
}

// 0 or the first owner column naming another owner.
uint32_t CheckOwners(const MTE_THRES_ENTRY_S* pstReq, uint32_t uiMask,
                     const MTE_THRES_ENTRY_S* pstRow) {
    for (const StrColumn& stCol : kStrColumns) {
        if (stCol.bOwner && InMask(uiMask, stCol.uiColumn) &&
            !mte_checkOwner(Field(pstReq, stCol.uiOffset), pstRow->szOwner)) {
            return stCol.uiColumn;
        }
    }
    return 0;
}

void CopyValues(const MTE_THRES_ENTRY_S* pstFrom, uint32_t uiMask, MTE_THRES_ENTRY_S* pstRow) {
    for (const NumColumn& stCol : kNumColumns) {
        if (InMask(uiMask, stCol.uiColumn)) {
            memcpy(Field(pstRow, stCol.uiOffset), Field(pstFrom, stCol.uiOffset), sizeof(uint32_t));
        }
    }
    for (const StrColumn& stCol : kStrColumns) {
        if (InMask(uiMask, stCol.uiColumn)) {
            mte_StrCopy(Field(pstRow, stCol.uiOffset), Field(pstFrom, stCol.uiOffset),
                        MTE_NAME_SIZE);
        }
    }
}

// One alarm pair's hysteresis on the current sample: raising one alarm
// re-arms the other. Returns the result raised, or MTE_CHECK_NONE.
struct AlarmPair {
    uint32_t uiRisingBit;
    uint32_t uiFallingBit;
    int32_t iRisingResult;
    int32_t iFallingResult;
};

int32_t RaiseAlarms(const AlarmPair& stPair, uint32_t uiArmed, bool bAtOrAboveRising,
                    bool bAtOrBelowFalling, MTE_SAMPLE_S* pstCur) {
    int32_t iResult = MTE_CHECK_NONE;
    if ((uiArmed & stPair.uiRisingBit) && bAtOrAboveRising) {
        pstCur->uiTestState = (pstCur->uiTestState | stPair.uiFallingBit) & ~stPair.uiRisingBit;
        iResult = stPair.iRisingResult;
    }
    // With equal thresholds both hold: falling wins and rising is re-armed.
    if ((uiArmed & stPair.uiFallingBit) && bAtOrBelowFalling) {
        pstCur->uiTestState = (pstCur->uiTestState | stPair.uiRisingBit) & ~stPair.uiFallingBit;
        iResult = stPair.iFallingResult;
    }
    return iResult;
}

// The current sample keeps an alarm armed only if the previous one had it.
void CarryOver(const AlarmPair& stPair, const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
    uint32_t uiBits = stPair.uiRisingBit | stPair.uiFallingBit;
    pstCur->uiTestState &= (pstPrev->uiTestState & uiBits) | ~uiBits;
}

constexpr AlarmPair kAbsolutePair = {MTE_TSTATE_RISING, MTE_TSTATE_FALLING, MTE_CHECK_RISING,
                                     MTE_CHECK_FALLING};
constexpr AlarmPair kDeltaPair = {MTE_TSTATE_DELTA_RISING, MTE_TSTATE_DELTA_FALLING,
                                  MTE_CHECK_DELTA_RISING, MTE_CHECK_DELTA_FALLING};

}  // namespace

MTE_THRES_ENTRY_S* mte_THRES_Create(const char* pszOwner, const char* pszName) {
    auto* pstRow = static_cast<MTE_THRES_ENTRY_S*>(calloc(1, sizeof(MTE_THRES_ENTRY_S)));
    if (pstRow == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s entry %s-%s: Insufficient memory.", "Threshold",
                          pszOwner, pszName);
        }
        return nullptr;
    }
    mte_StrCopy(pstRow->szOwner, pszOwner, sizeof(pstRow->szOwner));
    mte_StrCopy(pstRow->szName, pszName, sizeof(pstRow->szName));
    pstRow->uiStartup = MTE_THRES_STARTUP_RISING_OR_FALLING;
    if (mte_BIN_GetRecover() != 1) {
        StoreRow(pstRow);
    }
    return pstRow;
}

void mte_THRES_Destroy(MTE_THRES_ENTRY_S* pstRow) {
    if (pstRow == nullptr) {
        return;
    }
    (void)mte_DBM_DelFromSortList(MTE_DBM_CFG, MTE_LIST_THRESHOLD, MTE_LIST_THRESHOLD_NAME_SIZE,
                                  pstRow, sizeof(*pstRow));
    free(pstRow);
}

MTE_THRES_ENTRY_S* mte_THRES_Get(const char* pszOwner, const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    return pstTrigger != nullptr ? pstTrigger->pstThres : nullptr;
}

MTE_THRES_ENTRY_S* mte_THRES_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags) {
    MTE_TRIGGER_ENTRY_S* pstTrigger =
        mte_TRIGGER_GetNextTriggerEntry(uiOwnerLen, pszOwner, pszName, pucFlags);
    while (pstTrigger != nullptr && pstTrigger->pstThres == nullptr) {
        pstTrigger = pstTrigger->pstNext;
    }
    return pstTrigger != nullptr ? pstTrigger->pstThres : nullptr;
}

uint32_t mte_THRES_Set(const MTE_THRES_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn) {
    MTE_THRES_ENTRY_S stReq;
    memcpy(&stReq, pstRequest, sizeof(stReq));
    TerminateRow(&stReq);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stReq.szOwner, stReq.szName);
    if (pstTrigger == nullptr || pstTrigger->pstThres == nullptr) {
        return MTE_ERR_NO_SUCH_ROW;
    }
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    MTE_THRES_ENTRY_S* pstRow = pstTrigger->pstThres;
    uint32_t uiRet = MTE_OK;
    uint32_t uiColumn = 0;
    bool bChanges = RequestChanges(&stReq, uiColumnMask, pstRow);
    if (pstTrigger->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        uiRet = bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    } else if (!bChanges) {
        uiRet = MTE_OK;
    } else if ((uiColumnMask & MTE_MASK_FORCE) == 0 &&
               (uiColumn = CheckOrdering(&stReq, uiColumnMask, pstRow)) != 0) {
        *puiFailedColumn = uiColumn;
        uiRet = MTE_ERR_INCONSISTENT;
    } else if ((uiColumn = CheckOwners(&stReq, uiColumnMask, pstRow)) != 0) {
        *puiFailedColumn = uiColumn;
        uiRet = MTE_ERR_INCONSISTENT;
    } else {
        CopyValues(&stReq, uiColumnMask, pstRow);
        StoreRow(pstRow);
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return uiRet;
}

uint32_t mte_THRES_Recover(uint32_t uiLen, const void* pRecord) {
    if (uiLen != sizeof(MTE_THRES_ENTRY_S) || pRecord == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_THRES_ENTRY_S stRec;
    memcpy(&stRec, pRecord, sizeof(stRec));
    TerminateRow(&stRec);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stRec.szOwner, stRec.szName);
    if (pstTrigger == nullptr) {
        return MTE_ERR_GENERAL;
    }
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    if (pstTrigger->pstThres != nullptr) {
        CopyValues(&stRec, MTE_MASK_ALL_COLUMNS, pstTrigger->pstThres);
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return MTE_OK;
}

int32_t mte_THRES_CheckByAbsolute(const MTE_THRES_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev,
                                  MTE_SAMPLE_S* pstCur) {
    if (!mte_test_HasValue(pstCur)) {
        return MTE_CHECK_NONE;
    }
    uint32_t uiKind = mte_test_ValueKind(pstCur->pstValue);
    if (uiKind == MTE_VKIND_NONE) {
        mte_test_WarnNotNumeric();
        return MTE_CHECK_BADTYPE;
    }
    int32_t iValue = 0;
    uint32_t uiFit = mte_RUN_AbsoluteVal(uiKind, pstCur->pstValue->pData, &iValue);
    bool bAtOrAboveRising = uiFit == 1 || (uiFit == 0 && iValue >= pstRow->iRising);
    bool bAtOrBelowFalling = uiFit == 0 && iValue <= pstRow->iFalling;

    if (!mte_test_HasValue(pstPrev)) {
        // First sample of the instance: the startup setting says which
        // alarms it may raise; both stay armed when it raises none.
        uint32_t uiArmed = 0;
        if (pstRow->uiStartup == MTE_THRES_STARTUP_RISING ||
            pstRow->uiStartup == MTE_THRES_STARTUP_RISING_OR_FALLING) {
            uiArmed |= MTE_TSTATE_RISING;
        }
        if (pstRow->uiStartup == MTE_THRES_STARTUP_FALLING ||
            pstRow->uiStartup == MTE_THRES_STARTUP_RISING_OR_FALLING) {
            uiArmed |= MTE_TSTATE_FALLING;
        }
        return RaiseAlarms(kAbsolutePair, uiArmed, bAtOrAboveRising, bAtOrBelowFalling, pstCur);
    }
    CarryOver(kAbsolutePair, pstPrev, pstCur);
    return RaiseAlarms(kAbsolutePair, pstPrev->uiTestState, bAtOrAboveRising, bAtOrBelowFalling,
                       pstCur);
}

int32_t mte_THRES_CheckByDelta(const MTE_THRES_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev,
                               MTE_SAMPLE_S* pstCur) {
    if (!mte_test_HasValue(pstCur)) {
        return MTE_CHECK_NONE;
    }
    uint32_t uiKind = mte_test_ValueKind(pstCur->pstValue);
    if (uiKind == MTE_VKIND_NONE) {
        mte_test_WarnNotNumeric();
        return MTE_CHECK_BADTYPE;
    }
    if (!mte_test_HasComparable(pstPrev, uiKind)) {
        return MTE_CHECK_NONE;  // no startup rule for deltas
    }
    int32_t iDelta = 0;
    uint32_t uiFit =
        mte_RUN_DeltaVal(uiKind, pstCur->pstValue->pData, pstPrev->pstValue->pData, &iDelta);
    bool bAtOrAboveRising = uiFit == 1 || (uiFit == 0 && iDelta >= pstRow->iDeltaRising);
    bool bAtOrBelowFalling = uiFit == 2 || (uiFit == 0 && iDelta <= pstRow->iDeltaFalling);
    CarryOver(kDeltaPair, pstPrev, pstCur);
    return RaiseAlarms(kDeltaPair, pstPrev->uiTestState, bAtOrAboveRising, bAtOrBelowFalling,
                       pstCur);
}
