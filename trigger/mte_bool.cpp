// Boolean test: the boolean rows that triggers own, their management
// operations, and the comparison check that fires when its condition becomes
// true. Set and recover run on the main thread under the trigger's state
// lock; the check runs on the worker with that lock held by the caller and
// writes only the current sample's state bit.
#include "mte_bool.h"

#include "mte_test_table.h"
#include "mte_test_value.h"
#include "mte_trigger_priv.h"

namespace {

void Defaults(MTE_BOOL_ENTRY_S* pstRow) {
    pstRow->uiComparison = MTE_BOOL_UNEQUAL;
    pstRow->uiStartup = MTE_TRUE;
}

uint32_t Validate(const MTE_BOOL_ENTRY_S* pstReq, uint32_t uiMask, const MTE_BOOL_ENTRY_S*) {
    return mte_test_CheckOwnerColumns(MTE_CAT_BOOLEAN, pstReq, uiMask);
}

// Comparison and startup are stored as given; unknown values never fire.
constexpr MTE_TEST_TABLE_S<MTE_BOOL_ENTRY_S> kTable = {
    &MTE_TRIGGER_ENTRY_S::pstBool, "Boolean", MTE_CAT_BOOLEAN, Defaults, Validate, false,
};

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
    return mte_test_Create(kTable, pszOwner, pszName);
}

void mte_BOOL_Destroy(MTE_BOOL_ENTRY_S* pstRow) {
    mte_test_Destroy(kTable, pstRow);
}

MTE_BOOL_ENTRY_S* mte_BOOL_Get(const char* pszOwner, const char* pszName) {
    return mte_test_Get(kTable, pszOwner, pszName);
}

MTE_BOOL_ENTRY_S* mte_BOOL_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                   uint8_t* pucFlags) {
    return mte_test_GetNext(kTable, uiOwnerLen, pszOwner, pszName, pucFlags);
}

uint32_t mte_BOOL_Set(const MTE_BOOL_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                      uint32_t* puiFailedColumn) {
    return mte_test_Set(kTable, pstRequest, uiColumnMask, puiFailedColumn);
}

uint32_t mte_BOOL_Recover(uint32_t uiLen, const void* pRecord) {
    return mte_test_Recover(kTable, uiLen, pRecord);
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
