// Trigger row changes: one management set request (create, change, activate,
// deactivate, destroy, add or remove test rows) and the rebuilding of a stored
// trigger at start-up. Main thread only. A change works on a copy of the
// entry under the entry's state lock and writes the copy back only once it
// is accepted, so a refusal leaves the entry, the list and the store as they
// were; the worker never sees a half-changed trigger. The state lock may be
// held while the leaf locks of the debug switch and the memory flag are taken.
#include <cstdlib>
#include <cstring>

#include "mte_bool.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_delta.h"
#include "mte_exist.h"
#include "mte_memalert.h"
#include "mte_msg.h"
#include "mte_oid.h"
#include "mte_scalar.h"
#include "mte_thres.h"
#include "mte_trigger.h"
#include "mte_trigger_priv.h"
#include "mte_trigger_run.h"

namespace {

constexpr uint32_t kDefaultFrequency = 600;
constexpr const MTE_CAT_TABLE_S& kTable = g_astMteCatalogue[MTE_CAT_TRIGGER];
constexpr const MTE_CAT_COLUMN_S& kTestColumn =
    kTable.pstColumns[MTE_CAT_KindIndex(kTable, MTE_CAT_KIND_E::BITS)];

bool InMask(uint32_t uiMask, uint32_t uiColumn) {
    return (uiMask & MTE_COLUMN_BIT(uiColumn)) != 0;
}

bool IsRecovering() {
    return mte_BIN_GetRecover() == 1;
}

__attribute__((format(printf, 1, 2))) void PrintErr(const char* pszFormat, ...) {
    if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
        va_list args;
        va_start(args, pszFormat);
        mte_DBG_VPrint(MTE_DBG_MNEMONIC_ERR, pszFormat, args);
        va_end(args);
    }
}

void StoreRow(const MTE_TRIGGER_ROW_S* pstRow) {
    // A failed write is reported by the store; the accepted change stands.
    (void)mte_DBM_StoreRow(MTE_CAT_TRIGGER, pstRow);
}

uint32_t CheckObjOwner(const MTE_TRIGGER_ROW_S* pstReq, uint32_t uiMask,
                       uint32_t* puiFailedColumn) {
    if (InMask(uiMask, MTE_TRIGGER_COL_OBJECTS_OWNER) &&
        !mte_checkOwner(pstReq->szObjectsOwner, pstReq->szOwner)) {
        *puiFailedColumn = MTE_TRIGGER_COL_OBJECTS_OWNER;
        return MTE_ERR_INCONSISTENT;
    }
    // A value ID longer than an OID can hold cannot be copied into the row.
    if (InMask(uiMask, MTE_TRIGGER_COL_VALUE_ID) && pstReq->stValueID.uiLen > MTE_OID_MAX_LEN) {
        *puiFailedColumn = MTE_TRIGGER_COL_VALUE_ID;
        return MTE_ERR_INCONSISTENT;
    }
    return MTE_OK;
}

uint32_t CheckActivation(const MTE_TRIGGER_ROW_S* pstRow, uint32_t uiMask,
                         uint32_t* puiFailedColumn) {
    if (pstRow->stValueID.uiLen == 0) {
        *puiFailedColumn = MTE_TRIGGER_COL_VALUE_ID;
        return MTE_ERR_INCONSISTENT;
    }
    if (pstRow->uiFrequency < mte_SCALAR_GetSampMin() && !IsRecovering() &&
        (uiMask & MTE_MASK_FORCE) == 0) {
        *puiFailedColumn = MTE_TRIGGER_COL_FREQUENCY;
        return MTE_ERR_INCONSISTENT;
    }
    return MTE_OK;
}

// The test rows of one entry, and its delta row, made or to be destroyed
// together.
struct TestRows {
    MTE_BOOL_ENTRY_S* pstBool = nullptr;
    MTE_EXIST_ENTRY_S* pstExist = nullptr;
    MTE_THRES_ENTRY_S* pstThres = nullptr;
    MTE_DELTA_ENTRY_S* pstDelta = nullptr;
};

// Makes the rows of the bits in ucBits, boolean first; every one is tried and
// the failed column keeps the last failure. True when all were made.
bool CreateTestRows(uint8_t ucBits, const char* pszOwner, const char* pszName, TestRows* pstRows,
                    uint32_t* puiFailedColumn) {
    bool bAllMade = true;
    if (ucBits & MTE_TEST_BOOLEAN) {
        pstRows->pstBool = mte_BOOL_Create(pszOwner, pszName);
        if (pstRows->pstBool == nullptr) {
            *puiFailedColumn = MTE_TRIGGER_COL_TEST_BOOLEAN;
            bAllMade = false;
        }
    }
    if (ucBits & MTE_TEST_EXISTENCE) {
        pstRows->pstExist = mte_EXIST_Create(pszOwner, pszName);
        if (pstRows->pstExist == nullptr) {
            *puiFailedColumn = MTE_TRIGGER_COL_TEST_EXISTENCE;
            bAllMade = false;
        }
    }
    if (ucBits & MTE_TEST_THRESHOLD) {
        pstRows->pstThres = mte_THRES_Create(pszOwner, pszName);
        if (pstRows->pstThres == nullptr) {
            *puiFailedColumn = MTE_TRIGGER_COL_TEST_THRESHOLD;
            bAllMade = false;
        }
    }
    return bAllMade;
}

void DestroyTestRows(TestRows* pstRows) {
    if (pstRows->pstBool != nullptr) {
        mte_BOOL_Destroy(pstRows->pstBool);
        pstRows->pstBool = nullptr;
    }
    if (pstRows->pstExist != nullptr) {
        mte_EXIST_Destroy(pstRows->pstExist);
        pstRows->pstExist = nullptr;
    }
    if (pstRows->pstThres != nullptr) {
        mte_THRES_Destroy(pstRows->pstThres);
        pstRows->pstThres = nullptr;
    }
    if (pstRows->pstDelta != nullptr) {
        mte_DELTA_Destroy(pstRows->pstDelta);
        pstRows->pstDelta = nullptr;
    }
}

// A delta trigger owns a delta row: makes it when the sample type asks for
// one that the entry lacks. False when it could not be made.
bool CreateDeltaRow(const MTE_TRIGGER_ROW_S* pstRow, const MTE_DELTA_ENTRY_S* pstHave,
                    TestRows* pstRows, uint32_t* puiFailedColumn) {
    if (pstRow->uiSampleType != MTE_SAMPLE_DELTA || pstHave != nullptr) {
        return true;
    }
    pstRows->pstDelta = mte_DELTA_Create(pstRow->szOwner, pstRow->szName);
    if (pstRows->pstDelta == nullptr) {
        *puiFailedColumn = MTE_TRIGGER_COL_SAMPLE_TYPE;
        return false;
    }
    return true;
}

uint32_t Create(const MTE_TRIGGER_ROW_S* pstReq, uint32_t uiMask, uint32_t* puiFailedColumn) {
    uint32_t uiRet = CheckObjOwner(pstReq, uiMask, puiFailedColumn);
    if (uiRet != MTE_OK) {
        return uiRet;
    }
    switch (pstReq->uiEntryStatus) {
        case MTE_ROW_NONE:
            *puiFailedColumn = MTE_TRIGGER_COL_ENTRY_STATUS;
            return MTE_ERR_NO_SUCH_ROW;
        case MTE_ROW_ACTIVE:
        case MTE_ROW_NOT_IN_SERVICE:
            *puiFailedColumn = MTE_TRIGGER_COL_ENTRY_STATUS;
            return MTE_ERR_INCONSISTENT;
        case MTE_ROW_CREATE_AND_GO:
            // Checked on the request itself, not on the defaults it would get.
            uiRet = CheckActivation(pstReq, uiMask, puiFailedColumn);
            if (uiRet != MTE_OK) {
                return uiRet;
            }
            break;
        default:
            break;
    }
    if (mte_MEMALERT_GetFlag() != 0 && !IsRecovering() && (uiMask & MTE_MASK_FORCE) == 0) {
        return MTE_ERR_MEMORY_PRESSURE;
    }

    auto* pstEntry = static_cast<MTE_TRIGGER_ENTRY_S*>(calloc(1, sizeof(MTE_TRIGGER_ENTRY_S)));
    if (pstEntry == nullptr) {
        PrintErr(mte_DBG_TextFormat(MTE_TEXT_ENTRY_NO_MEMORY), "Trigger", pstReq->szOwner,
                 pstReq->szName);
        return MTE_ERR_GENERAL;
    }
    MTE_TRIGGER_ROW_S* pstRow = &pstEntry->stRow;
    pstRow->uiFrequency = kDefaultFrequency;
    pstRow->uiSampleType = MTE_SAMPLE_ABSOLUTE;
    pstRow->uiValueIDWildcard = MTE_FALSE;
    pstRow->uiContextNameWildcard = MTE_FALSE;
    pstRow->uiEnabled = MTE_FALSE;
    pstEntry->llTimerId = -1;
    pstEntry->uiRunState = MTE_RUN_IDLE;
    pstEntry->usInstanceReleased = 1;
    pthread_mutex_init(&pstEntry->stStateLock, nullptr);
    mte_StrCopy(pstRow->szOwner, pstReq->szOwner, sizeof(pstRow->szOwner));
    mte_StrCopy(pstRow->szName, pstReq->szName, sizeof(pstRow->szName));

    MTE_CAT_CopyColumns(MTE_CAT_TRIGGER, pstReq, uiMask, pstRow);
    if (pstRow->uiEntryStatus == MTE_ROW_CREATE_AND_WAIT) {
        pstRow->uiEntryStatus = MTE_ROW_NOT_IN_SERVICE;
        pstRow->uiEnabled = MTE_FALSE;
    } else if (pstRow->uiEntryStatus == MTE_ROW_CREATE_AND_GO) {
        pstRow->uiEntryStatus = MTE_ROW_ACTIVE;
        pstRow->uiEnabled = MTE_TRUE;
        if (mte_RUN_TriggerEnable(pstEntry) != MTE_OK) {
            pthread_mutex_destroy(&pstEntry->stStateLock);
            free(pstEntry);
            return MTE_ERR_GENERAL;
        }
    }

    // The whole test byte of the request decides, whatever the mask says.
    TestRows stRows;
    if (!CreateTestRows(pstReq->ucTest, pstRow->szOwner, pstRow->szName, &stRows,
                        puiFailedColumn) ||
        !CreateDeltaRow(pstRow, nullptr, &stRows, puiFailedColumn)) {
        DestroyTestRows(&stRows);
        if (pstEntry->llTimerId != -1) {
            mte_TIMER_Del(pstEntry->llTimerId);
            pstEntry->llTimerId = -1;
        }
        pthread_mutex_destroy(&pstEntry->stStateLock);
        free(pstEntry);
        return MTE_ERR_GENERAL;
    }
    pstEntry->pstBool = stRows.pstBool;
    pstEntry->pstExist = stRows.pstExist;
    pstEntry->pstThres = stRows.pstThres;
    pstEntry->pstDelta = stRows.pstDelta;
    pstRow->ucTest = pstReq->ucTest;

    if (!IsRecovering()) {
        StoreRow(pstRow);
    }
    if (pstRow->uiEnabled == MTE_TRUE) {
        MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstEntry);
        (void)mte_RUN_Sample4AtOnce(pstEntry);
    }
    mte_trigger_Insert(pstEntry);
    return MTE_OK;
}

// Run state after a stop: a trigger the worker holds is marked cancelled.
uint32_t StoppedRunState(uint32_t uiRunState) {
    return uiRunState == MTE_RUN_IDLE ? MTE_RUN_IDLE : MTE_RUN_CANCELLED;
}

// Status step of a change; MTE_OK to go on, else the result to return.
// *pbDone set when the request is settled without any further step.
uint32_t ApplyStatus(const MTE_TRIGGER_ROW_S* pstReq, uint32_t uiMask,
                     MTE_TRIGGER_ENTRY_S* pstEntry, MTE_TRIGGER_ENTRY_S* pstCopy, bool bChanges,
                     uint32_t* puiFailedColumn, bool* pbDone) {
    uint32_t uiOldStatus = pstEntry->stRow.uiEntryStatus;
    bool bWasActive = uiOldStatus == MTE_ROW_ACTIVE;
    switch (pstReq->uiEntryStatus) {
        case MTE_ROW_NONE:
            if (bWasActive) {
                return bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
            }
            MTE_CAT_CopyColumns(MTE_CAT_TRIGGER, pstReq, uiMask, &pstCopy->stRow);
            return MTE_OK;
        case MTE_ROW_ACTIVE:
            if (bWasActive) {
                // Re-asserting active alone is the only accepted write.
                if (bChanges || uiMask != MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS)) {
                    return MTE_ERR_INCONSISTENT;
                }
                *pbDone = true;
                return MTE_OK;
            }
            MTE_CAT_CopyColumns(MTE_CAT_TRIGGER, pstReq, uiMask, &pstCopy->stRow);
            if (uint32_t uiRet = CheckActivation(&pstCopy->stRow, uiMask, puiFailedColumn);
                uiRet != MTE_OK) {
                return uiRet;
            }
            if (pstEntry->uiRunState == MTE_RUN_CANCELLED) {
                // The worker still holds the cycle from before the stop; it
                // resumes the timer and samples when it lets go.
                pstCopy->uiRunState = MTE_RUN_RESTART;
            } else {
                // Also from notReady or another odd status that a create
                // stored as given: an active trigger must be sampled.
                // On the entry itself: the timer module keeps its address.
                if (mte_RUN_TriggerEnable(pstEntry) != MTE_OK) {
                    PrintErr("%s", mte_DBG_TextFormat(MTE_TEXT_TIMER_START_FAILED));
                    return MTE_ERR_GENERAL;
                }
                pstCopy->llTimerId = pstEntry->llTimerId;
                (void)mte_TIMER_Refresh(pstCopy->llTimerId, pstCopy->stRow.uiFrequency);
            }
            pstCopy->stRow.uiEnabled = MTE_TRUE;
            return MTE_OK;
        case MTE_ROW_NOT_IN_SERVICE:
            if (bWasActive) {
                if (pstEntry->uiRunState == MTE_RUN_RESTART) {
                    pstCopy->uiRunState = MTE_RUN_CANCELLED;
                } else {
                    if (uint32_t uiRet = mte_RUN_TriggerDisable(pstCopy); uiRet != MTE_OK) {
                        return uiRet;
                    }
                    pstCopy->uiRunState = StoppedRunState(pstCopy->uiRunState);
                }
            } else {
                pstCopy->uiRunState = StoppedRunState(pstCopy->uiRunState);
            }
            pstCopy->stRow.uiEnabled = MTE_FALSE;
            MTE_CAT_CopyColumns(MTE_CAT_TRIGGER, pstReq, uiMask, &pstCopy->stRow);
            return MTE_OK;
        case MTE_ROW_CREATE_AND_GO:
        case MTE_ROW_CREATE_AND_WAIT:
            *puiFailedColumn = MTE_TRIGGER_COL_ENTRY_STATUS;
            return MTE_ERR_ROW_EXISTS;
        default:
            // notReady or a status above destroy: no status step and no
            // column copy; only the test bits may change, and not those of
            // an active trigger, whose tests the worker is evaluating.
            return bWasActive && bChanges ? MTE_ERR_INCONSISTENT : MTE_OK;
    }
}

// Puts the trigger's timer back as it was before a refused change.
void UndoTimer(const MTE_TRIGGER_ENTRY_S* pstEntry, uint32_t uiOldRunState, uint32_t uiOldStatus,
               uint32_t uiOldFrequency, uint32_t uiRequested) {
    if (uiOldRunState == MTE_RUN_IDLE && uiRequested == MTE_ROW_ACTIVE) {
        (void)mte_TIMER_Refresh(pstEntry->llTimerId, uiOldFrequency);
        (void)mte_TIMER_Suspend(pstEntry->llTimerId);
    } else if (uiOldRunState != MTE_RUN_RESTART && uiOldStatus == MTE_ROW_ACTIVE) {
        (void)mte_TIMER_Active(pstEntry->llTimerId);
    }
}

// Called with the entry's state lock held.
uint32_t Modify(const MTE_TRIGGER_ROW_S* pstReq, uint32_t uiMask, MTE_TRIGGER_ENTRY_S* pstEntry,
                uint32_t* puiFailedColumn) {
    uint32_t uiRet = CheckObjOwner(pstReq, uiMask, puiFailedColumn);
    if (uiRet != MTE_OK) {
        return uiRet;
    }
    MTE_TRIGGER_ENTRY_S stCopy;
    memcpy(&stCopy, pstEntry, sizeof(stCopy));  // the copy's lock bytes are never used
    const uint32_t uiOldStatus = pstEntry->stRow.uiEntryStatus;
    const uint32_t uiOldRunState = pstEntry->uiRunState;
    const uint32_t uiOldFrequency = pstEntry->stRow.uiFrequency;
    const uint32_t uiRequested = pstReq->uiEntryStatus;

    bool bChanges = MTE_CAT_ColumnsDiffer(MTE_CAT_TRIGGER, pstReq, uiMask, &stCopy.stRow);
    bool bDone = false;
    uiRet = ApplyStatus(pstReq, uiMask, pstEntry, &stCopy, bChanges, puiFailedColumn, &bDone);
    if (uiRet != MTE_OK || bDone) {
        return uiRet;
    }
    if (!bChanges) {
        // Only an activation whose status column is not in the mask gets
        // here after starting the timer: the row stays as it was, so must
        // the timer.
        if (uiRequested == MTE_ROW_ACTIVE) {
            UndoTimer(pstEntry, uiOldRunState, uiOldStatus, uiOldFrequency, uiRequested);
        }
        return MTE_OK;
    }

    // The test bits are the one column the copy leaves alone: their rows
    // are made or destroyed with them, and only once the change is accepted.
    uint8_t ucOldTest = stCopy.stRow.ucTest;
    uint8_t ucNewTest = MTE_CAT_MergeBits(kTestColumn, pstReq->ucTest, uiMask, ucOldTest);
    const uint8_t ucTestBits = MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN | MTE_TEST_THRESHOLD;
    uint8_t ucAdded = static_cast<uint8_t>(ucNewTest & ~ucOldTest & ucTestBits);
    uint8_t ucRemoved = static_cast<uint8_t>(ucOldTest & ~ucNewTest & ucTestBits);

    TestRows stMade;
    if (!CreateTestRows(ucAdded, pstReq->szOwner, pstReq->szName, &stMade, puiFailedColumn) ||
        !CreateDeltaRow(&stCopy.stRow, stCopy.pstDelta, &stMade, puiFailedColumn)) {
        DestroyTestRows(&stMade);
        UndoTimer(pstEntry, uiOldRunState, uiOldStatus, uiOldFrequency, uiRequested);
        return MTE_ERR_GENERAL;
    }

    stCopy.stRow.ucTest = ucNewTest;
    if (stMade.pstBool != nullptr) {
        stCopy.pstBool = stMade.pstBool;
    }
    if (stMade.pstExist != nullptr) {
        stCopy.pstExist = stMade.pstExist;
    }
    if (stMade.pstThres != nullptr) {
        stCopy.pstThres = stMade.pstThres;
    }
    if (stMade.pstDelta != nullptr) {
        stCopy.pstDelta = stMade.pstDelta;
    }
    TestRows stGone;
    if (ucRemoved & MTE_TEST_BOOLEAN) {
        stGone.pstBool = stCopy.pstBool;
        stCopy.pstBool = nullptr;
    }
    if (ucRemoved & MTE_TEST_EXISTENCE) {
        stGone.pstExist = stCopy.pstExist;
        stCopy.pstExist = nullptr;
    }
    if (ucRemoved & MTE_TEST_THRESHOLD) {
        stGone.pstThres = stCopy.pstThres;
        stCopy.pstThres = nullptr;
    }
    if (stCopy.stRow.uiSampleType != MTE_SAMPLE_DELTA) {
        stGone.pstDelta = stCopy.pstDelta;
        stCopy.pstDelta = nullptr;
    }
    DestroyTestRows(&stGone);
    StoreRow(&stCopy.stRow);

    // Everything but the lock goes back into the entry.
    pstEntry->pstNext = stCopy.pstNext;
    pstEntry->pstExist = stCopy.pstExist;
    pstEntry->pstBool = stCopy.pstBool;
    pstEntry->pstThres = stCopy.pstThres;
    bool bRowsChanged = (ucAdded | ucRemoved) != 0 ||
                        (pstEntry->pstDelta == nullptr) != (stCopy.pstDelta == nullptr);
    pstEntry->pstDelta = stCopy.pstDelta;
    if (bRowsChanged) {
        mte_trigger_TestRowsChanged();  // the walks' presence flags count these rows
    }
    pstEntry->pstPrevSamples = stCopy.pstPrevSamples;
    pstEntry->pstPrevSamplesTail = stCopy.pstPrevSamplesTail;
    pstEntry->pstCurSamples = stCopy.pstCurSamples;
    pstEntry->pstCurSamplesTail = stCopy.pstCurSamplesTail;
    pstEntry->llTimerId = stCopy.llTimerId;
    pstEntry->uiRunState = stCopy.uiRunState;
    memcpy(&pstEntry->stRow, &stCopy.stRow, sizeof(pstEntry->stRow));
    pstEntry->usInstanceReleased = stCopy.usInstanceReleased;

    if (uiOldRunState == MTE_RUN_IDLE && uiRequested == MTE_ROW_ACTIVE) {
        (void)mte_RUN_Sample4AtOnce(pstEntry);
    } else if (uiOldStatus == MTE_ROW_ACTIVE) {
        // Samples taken under the old configuration must not meet new ones.
        mte_RUN_ClearSampleRes(pstEntry);
    }
    return MTE_OK;
}

// Takes the entry out of the list, the timers and the store, under its lock.
// True when the main thread frees it; false when the worker holds it and
// frees it when it next looks.
bool Retire(MTE_TRIGGER_ENTRY_S* pstEntry) {
    uint32_t uiOldStatus = pstEntry->stRow.uiEntryStatus;
    MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstEntry);
    if (pstEntry->llTimerId != -1) {
        mte_TIMER_Del(pstEntry->llTimerId);
        pstEntry->llTimerId = -1;
    }
    mte_trigger_Unlink(pstEntry);
    (void)mte_DBM_RemoveRow(MTE_CAT_TRIGGER, &pstEntry->stRow);
    if (pstEntry->pstBool != nullptr) {
        (void)mte_DBM_RemoveRow(MTE_CAT_BOOLEAN, pstEntry->pstBool);
    }
    if (pstEntry->pstExist != nullptr) {
        (void)mte_DBM_RemoveRow(MTE_CAT_EXISTENCE, pstEntry->pstExist);
    }
    if (pstEntry->pstThres != nullptr) {
        (void)mte_DBM_RemoveRow(MTE_CAT_THRESHOLD, pstEntry->pstThres);
    }
    if (pstEntry->pstDelta != nullptr) {
        (void)mte_DBM_RemoveRow(MTE_CAT_DELTA, pstEntry->pstDelta);
    }
    if (pstEntry->uiRunState != MTE_RUN_IDLE) {
        mte_RUN_ClearSampleRes(pstEntry);
        pstEntry->uiRunState = MTE_RUN_DELETED;
        return false;
    }
    if (uiOldStatus == MTE_ROW_ACTIVE) {
        mte_RUN_ClearSampleRes(pstEntry);
    }
    return true;
}

uint32_t Destroy(MTE_TRIGGER_ENTRY_S* pstEntry) {
    // The entry, its lock with it, is freed only once the lock is let go.
    if (pstEntry != nullptr && Retire(pstEntry)) {
        mte_TRIGGER_FreeNode(pstEntry);
    }
    return MTE_OK;
}

}  // namespace

uint32_t mte_TRIGGER_Set(const MTE_TRIGGER_ROW_S* pstRequest, uint32_t uiColumnMask,
                         uint32_t* puiFailedColumn) {
    MTE_TRIGGER_ROW_S stReq;
    memcpy(&stReq, pstRequest, sizeof(stReq));
    MTE_CAT_TerminateStrings(MTE_CAT_TRIGGER, &stReq);

    MTE_TRIGGER_ENTRY_S* pstEntry = mte_TRIGGER_GetTriggerEntry(stReq.szOwner, stReq.szName);
    if (stReq.uiEntryStatus == MTE_ROW_DESTROY) {
        return Destroy(pstEntry);
    }
    if (pstEntry == nullptr) {
        return Create(&stReq, uiColumnMask, puiFailedColumn);
    }
    MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstEntry);
    return Modify(&stReq, uiColumnMask, pstEntry, puiFailedColumn);
}

uint32_t mte_TRIGGER_Recover(uint32_t uiLen, const void* pRecord) {
    // The store hands over whole records only; anything else is not a row.
    if (uiLen != sizeof(MTE_TRIGGER_ROW_S) || pRecord == nullptr) {
        PrintErr(mte_DBG_TextFormat(MTE_TEXT_RECOVER_FAILED), "Trigger");
        return MTE_ERR_GENERAL;
    }
    MTE_TRIGGER_ROW_S stRow;
    memcpy(&stRow, pRecord, sizeof(stRow));
    MTE_CAT_TerminateStrings(MTE_CAT_TRIGGER, &stRow);
    if (stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_GO;
    } else if (stRow.uiEntryStatus == MTE_ROW_NOT_IN_SERVICE) {
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
    }
    // Owner and name are the store's keys, so a second record of a trigger
    // can only come from a replay run twice; it must not make a twin entry.
    if (mte_TRIGGER_GetTriggerEntry(stRow.szOwner, stRow.szName) != nullptr) {
        PrintErr(mte_DBG_TextFormat(MTE_TEXT_RECOVER_FAILED), "Trigger");
        return MTE_ERR_ROW_EXISTS;
    }
    uint32_t uiFailedColumn = 0;
    uint32_t uiRet = Create(&stRow, MTE_MASK_ALL_COLUMNS, &uiFailedColumn);
    if (uiRet != MTE_OK) {
        PrintErr(mte_DBG_TextFormat(MTE_TEXT_RECOVER_FAILED), "Trigger");
        return uiRet;
    }
    // The target tag has no column; a stored one comes back as it was.
    MTE_TRIGGER_ENTRY_S* pstEntry = mte_TRIGGER_GetTriggerEntry(stRow.szOwner, stRow.szName);
    if (pstEntry != nullptr) {
        MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstEntry);
        mte_StrCopy(pstEntry->stRow.szTargetTag, stRow.szTargetTag,
                    sizeof(pstEntry->stRow.szTargetTag));
    }
    return MTE_OK;
}
