// Module-private skeleton shared by the existence, boolean and threshold
// tables: each row is owned by its trigger through one pointer member, stored
// in its own sort list, and written by a set that follows the same steps
// (find, lock, detect a change, refuse on an active trigger, validate, copy,
// store). The tables supply their rules; the catalogue supplies their columns
// and how a set copies them. Main thread for everything here; set and recover
// take the trigger's state lock.
#ifndef MTE_TEST_TABLE_H
#define MTE_TEST_TABLE_H

#include <cstdlib>
#include <cstring>

#include "mte_catalogue.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_oid.h"
#include "mte_sorted_list.h"
#include "mte_trigger.h"

inline bool mte_test_InMask(uint32_t uiMask, uint32_t uiColumn) {
    return (uiMask & MTE_COLUMN_BIT(uiColumn)) != 0;
}

// 0, or the first owner column in the mask that names another owner.
template <typename Row>
uint32_t mte_test_CheckOwnerColumns(MTE_CAT_TABLE_E eTable, const Row* pstReq, uint32_t uiMask) {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[eTable];
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        const MTE_CAT_COLUMN_S& stColumn = stTable.pstColumns[i];
        const char* pszField = reinterpret_cast<const char*>(pstReq) + stColumn.usOffset;
        if (stColumn.eKind == MTE_CAT_KIND_E::OWNER_REF &&
            mte_test_InMask(uiMask, stColumn.uiColumn) &&
            !mte_checkOwner(pszField, pstReq->szOwner)) {
            return stColumn.uiColumn;
        }
    }
    return 0;
}

// What one test table tells the skeleton.
template <typename Row>
struct MTE_TEST_TABLE_S {
    Row* MTE_TRIGGER_ENTRY_S::*pstMember;  // the trigger's pointer to its row
    const char* pszKind;                   // "Existence", "Boolean", "Threshold"
    MTE_CAT_TABLE_E eTable;                // its store list and stored size
    void (*pfDefaults)(Row* pstRow);
    // 0, or the failed column of a request that breaks the table's rules.
    uint32_t (*pfValidate)(const Row* pstReq, uint32_t uiMask, const Row* pstRow);
    bool bRecoverNeedsRow;  // recovery of a trigger without this row fails
};

template <typename Row>
void mte_test_Store(const MTE_TEST_TABLE_S<Row>& stTable, const Row* pstRow) {
    // A failed write is reported by the store; the accepted change stands.
    (void)mte_DBM_StoreRow(stTable.eTable, pstRow);
}

template <typename Row>
Row* mte_test_Create(const MTE_TEST_TABLE_S<Row>& stTable, const char* pszOwner,
                     const char* pszName) {
    auto* pstRow = static_cast<Row*>(calloc(1, sizeof(Row)));
    if (pstRow == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_ENTRY_NO_MEMORY),
                          stTable.pszKind, pszOwner, pszName);
        }
        return nullptr;
    }
    mte_StrCopy(pstRow->szOwner, pszOwner, sizeof(pstRow->szOwner));
    mte_StrCopy(pstRow->szName, pszName, sizeof(pstRow->szName));
    stTable.pfDefaults(pstRow);
    // During recovery the record is already in the store.
    if (mte_BIN_GetRecover() != 1) {
        mte_test_Store(stTable, pstRow);
    }
    return pstRow;
}

template <typename Row>
void mte_test_Destroy(const MTE_TEST_TABLE_S<Row>& stTable, Row* pstRow) {
    if (pstRow == nullptr) {
        return;
    }
    (void)mte_DBM_RemoveRow(stTable.eTable, pstRow);
    free(pstRow);
}

template <typename Row>
Row* mte_test_Get(const MTE_TEST_TABLE_S<Row>& stTable, const char* pszOwner, const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    return pstTrigger != nullptr ? pstTrigger->*stTable.pstMember : nullptr;
}

template <typename Row>
Row* mte_test_GetNext(const MTE_TEST_TABLE_S<Row>& stTable, uint32_t uiOwnerLen,
                      const char* pszOwner, const char* pszName, uint8_t* pucFlags) {
    return mte_list_FirstSubRow(
        mte_TRIGGER_GetNextTriggerEntry(uiOwnerLen, pszOwner, pszName, pucFlags),
        stTable.pstMember);
}

template <typename Row>
uint32_t mte_test_Set(const MTE_TEST_TABLE_S<Row>& stTable, const Row* pstRequest, uint32_t uiMask,
                      uint32_t* puiFailedColumn) {
    Row stReq{};
    memcpy(&stReq, pstRequest, g_astMteCatalogue[stTable.eTable].uiRowSize);
    MTE_CAT_TerminateStrings(stTable.eTable, &stReq);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stReq.szOwner, stReq.szName);
    if (pstTrigger == nullptr || pstTrigger->*stTable.pstMember == nullptr) {
        return MTE_ERR_NO_SUCH_ROW;
    }
    MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstTrigger);
    Row* pstRow = pstTrigger->*stTable.pstMember;
    bool bChanges = MTE_CAT_ColumnsDiffer(stTable.eTable, &stReq, uiMask, pstRow);
    if (pstTrigger->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        // The worker evaluates an active trigger's tests: they are read-only.
        return bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    }
    if (!bChanges) {
        return MTE_OK;
    }
    if (uint32_t uiFailed = stTable.pfValidate(&stReq, uiMask, pstRow); uiFailed != 0) {
        *puiFailedColumn = uiFailed;
        return MTE_ERR_INCONSISTENT;
    }
    MTE_CAT_CopyColumns(stTable.eTable, &stReq, uiMask, pstRow);
    mte_test_Store(stTable, pstRow);
    return MTE_OK;
}

// Lays a stored record over the row that the trigger's recovery made with
// its defaults. Nothing is written to the store.
template <typename Row>
uint32_t mte_test_Recover(const MTE_TEST_TABLE_S<Row>& stTable, uint32_t uiLen,
                          const void* pRecord) {
    if (uiLen != g_astMteCatalogue[stTable.eTable].uiRowSize || pRecord == nullptr) {
        return MTE_ERR_GENERAL;
    }
    Row stRec{};
    memcpy(&stRec, pRecord, g_astMteCatalogue[stTable.eTable].uiRowSize);
    MTE_CAT_TerminateStrings(stTable.eTable, &stRec);
    MTE_TRIGGER_ENTRY_S* pstTrigger = mte_TRIGGER_GetTriggerEntry(stRec.szOwner, stRec.szName);
    if (pstTrigger == nullptr ||
        (stTable.bRecoverNeedsRow && pstTrigger->*stTable.pstMember == nullptr)) {
        return MTE_ERR_GENERAL;
    }
    MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstTrigger);
    if (pstTrigger->*stTable.pstMember != nullptr) {
        MTE_CAT_CopyColumns(stTable.eTable, &stRec, MTE_MASK_ALL_COLUMNS,
                            pstTrigger->*stTable.pstMember);
    }
    return MTE_OK;
}

#endif  // MTE_TEST_TABLE_H
