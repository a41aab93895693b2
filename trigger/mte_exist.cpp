// Existence test: the existence rows that triggers own, their management
// operations, and the present/absent/changed check. Create and destroy run on
// the main thread for the trigger table; set and recover run on the main
// thread and take the trigger's state lock; the check runs on the worker with
// that lock already held. No other lock is taken.
#include "mte_exist.h"

#include "mte_test_table.h"
#include "mte_trigger_priv.h"

namespace {

void Defaults(MTE_EXIST_ENTRY_S* pstRow) {
    pstRow->ucTest = MTE_EXIST_PRESENT | MTE_EXIST_ABSENT;
    pstRow->ucStartup = MTE_EXIST_PRESENT | MTE_EXIST_ABSENT;
    pstRow->usFirstCycle = 1;
}

uint32_t Validate(const MTE_EXIST_ENTRY_S* pstReq, uint32_t uiMask, const MTE_EXIST_ENTRY_S*) {
    return mte_test_CheckOwnerColumns(MTE_CAT_EXISTENCE, pstReq, uiMask);
}

// usFirstCycle is run state, not a column: no set or recovery touches it.
constexpr MTE_TEST_TABLE_S<MTE_EXIST_ENTRY_S> kTable = {
    &MTE_TRIGGER_ENTRY_S::pstExist, "Existence", MTE_CAT_EXISTENCE, Defaults, Validate, true,
};

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
    return mte_test_Create(kTable, pszOwner, pszName);
}

void mte_EXIST_Destroy(MTE_EXIST_ENTRY_S* pstRow) {
    mte_test_Destroy(kTable, pstRow);
}

MTE_EXIST_ENTRY_S* mte_EXIST_Get(const char* pszOwner, const char* pszName) {
    return mte_test_Get(kTable, pszOwner, pszName);
}

MTE_EXIST_ENTRY_S* mte_EXIST_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags) {
    return mte_test_GetNext(kTable, uiOwnerLen, pszOwner, pszName, pucFlags);
}

uint32_t mte_EXIST_Set(const MTE_EXIST_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn) {
    return mte_test_Set(kTable, pstRequest, uiColumnMask, puiFailedColumn);
}

uint32_t mte_EXIST_Recover(uint32_t uiLen, const void* pRecord) {
    return mte_test_Recover(kTable, uiLen, pRecord);
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
    // The first cycle reports an absent instance by the startup rule alone:
    // there was never a previous sample to lose.
    if (bFirstCycle) {
        return (pstRow->ucStartup & MTE_EXIST_ABSENT) ? MTE_CHECK_ABSENT : MTE_CHECK_NONE;
    }
    return bPrev ? MTE_CHECK_ABSENT : MTE_CHECK_NONE;
}
