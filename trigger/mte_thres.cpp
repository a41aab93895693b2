// Threshold test: the threshold rows that triggers own, their management
// operations with the ordering rules of the thresholds, and the absolute and
// delta checks whose hysteresis lives in the samples' state bits. Set and
// recover run on the main thread under the trigger's state lock; the checks
// run on the worker with that lock held by the caller and write only the
// current sample's state bits.
#include "mte_thres.h"

#include "mte_test_table.h"
#include "mte_test_value.h"
#include "mte_trigger_priv.h"

namespace {

void Defaults(MTE_THRES_ENTRY_S* pstRow) {
    pstRow->uiStartup = MTE_THRES_STARTUP_RISING_OR_FALLING;
}

// Rising must not be below falling, delta rising not below delta falling;
// a threshold not in the request is taken from the row. 0 or the column.
uint32_t CheckOrdering(const MTE_THRES_ENTRY_S* pstReq, uint32_t uiMask,
                       const MTE_THRES_ENTRY_S* pstRow) {
    bool bRising = mte_test_InMask(uiMask, MTE_THRES_COL_RISING);
    bool bFalling = mte_test_InMask(uiMask, MTE_THRES_COL_FALLING);
    if (bRising) {
        if (pstReq->iRising < (bFalling ? pstReq->iFalling : pstRow->iFalling)) {
            return MTE_THRES_COL_RISING;
        }
    } else if (bFalling && pstReq->iFalling > pstRow->iRising) {
        return MTE_THRES_COL_FALLING;
    }
    bool bDeltaRising = mte_test_InMask(uiMask, MTE_THRES_COL_DELTA_RISING);
    bool bDeltaFalling = mte_test_InMask(uiMask, MTE_THRES_COL_DELTA_FALLING);
    if (bDeltaRising) {
        if (pstReq->iDeltaRising <
            (bDeltaFalling ? pstReq->iDeltaFalling : pstRow->iDeltaFalling)) {
            return MTE_THRES_COL_DELTA_RISING;
        }
    } else if (bDeltaFalling && pstReq->iDeltaFalling > pstRow->iDeltaRising) {
        return MTE_THRES_COL_DELTA_FALLING;
    }
    return 0;
}

// Bit 31 waives the ordering rules, never the owner rule.
uint32_t Validate(const MTE_THRES_ENTRY_S* pstReq, uint32_t uiMask,
                  const MTE_THRES_ENTRY_S* pstRow) {
    if ((uiMask & MTE_MASK_FORCE) == 0) {
        if (uint32_t uiColumn = CheckOrdering(pstReq, uiMask, pstRow); uiColumn != 0) {
            return uiColumn;
        }
    }
    return mte_test_CheckOwnerColumns(MTE_CAT_THRESHOLD, pstReq, uiMask);
}

// Startup is stored as given; values other than 1 to 3 raise no startup alarm.
constexpr MTE_TEST_TABLE_S<MTE_THRES_ENTRY_S> kTable = {
    &MTE_TRIGGER_ENTRY_S::pstThres, "Threshold", MTE_CAT_THRESHOLD, Defaults, Validate, false,
};

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
    return mte_test_Create(kTable, pszOwner, pszName);
}

void mte_THRES_Destroy(MTE_THRES_ENTRY_S* pstRow) {
    mte_test_Destroy(kTable, pstRow);
}

MTE_THRES_ENTRY_S* mte_THRES_Get(const char* pszOwner, const char* pszName) {
    return mte_test_Get(kTable, pszOwner, pszName);
}

MTE_THRES_ENTRY_S* mte_THRES_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags) {
    return mte_test_GetNext(kTable, uiOwnerLen, pszOwner, pszName, pucFlags);
}

uint32_t mte_THRES_Set(const MTE_THRES_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn) {
    return mte_test_Set(kTable, pstRequest, uiColumnMask, puiFailedColumn);
}

uint32_t mte_THRES_Recover(uint32_t uiLen, const void* pRecord) {
    return mte_test_Recover(kTable, uiLen, pRecord);
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
