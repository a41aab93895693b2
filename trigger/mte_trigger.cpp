// Trigger table: the list of triggers in index order, the lookups and get-next
// walks of the management handlers and test tables, the per-trigger state
// lock, and the whole-table operations of start-up, shutdown and the port
// service. The list (head and links) is touched only on the main thread, so
// walks and changes of it take no lock; the state lock of one entry at a time
// is taken around the sampling-engine calls that need it.
#include "mte_trigger.h"

#include <cstdlib>
#include <cstring>

#include "mte_sorted_list.h"
#include "mte_trigger_priv.h"
#include "mte_trigger_run.h"

namespace {

uint8_t PresenceFlags(const MTE_TRIGGER_ENTRY_S* pstEntry) {
    return (pstEntry->pstBool != nullptr ? MTE_PRESENT_BOOLEAN : 0) |
           (pstEntry->pstExist != nullptr ? MTE_PRESENT_EXISTENCE : 0) |
           (pstEntry->pstThres != nullptr ? MTE_PRESENT_THRESHOLD : 0) |
           (pstEntry->pstDelta != nullptr ? MTE_PRESENT_DELTA : 0);
}

// The triggers in index order. Get-next after the row just returned, and the
// ascending keys of recovery and bulk configuration, start at the position
// where the last walk ended.
MTE_SORTED_LIST<MTE_TRIGGER_ENTRY_S, MTE_NAMED_ORDER<MTE_TRIGGER_ENTRY_S, PresenceFlags>>
    g_stTriggers;

void FreeTestRows(MTE_TRIGGER_ENTRY_S* pstEntry) {
    free(pstEntry->pstBool);
    free(pstEntry->pstExist);
    free(pstEntry->pstThres);
    free(pstEntry->pstDelta);
    pstEntry->pstBool = nullptr;
    pstEntry->pstDelta = nullptr;
    pstEntry->pstExist = nullptr;
    pstEntry->pstThres = nullptr;
}

}  // namespace

int mte_TRIGGER_CompareKey(uint32_t uiOwnerLenA, const char* pszOwnerA, const char* pszNameA,
                           uint32_t uiOwnerLenB, const char* pszOwnerB, const char* pszNameB) {
    return mte_list_CompareNamed(MTE_NAMED_KEY_S{uiOwnerLenA, pszOwnerA, pszNameA},
                                 MTE_NAMED_KEY_S{uiOwnerLenB, pszOwnerB, pszNameB});
}

uint32_t mte_TRIGGER_Init(void) {
    (void)g_stTriggers.Release();
    return MTE_OK;
}

void mte_TRIGGER_Fini(void) {
    MTE_TRIGGER_ENTRY_S* pstEntry = g_stTriggers.Release();
    while (pstEntry != nullptr) {
        MTE_TRIGGER_ENTRY_S* pstNext = pstEntry->pstNext;
        FreeTestRows(pstEntry);
        if (pstEntry->llTimerId != -1) {
            mte_TIMER_Del(pstEntry->llTimerId);
            pstEntry->llTimerId = -1;
        }
        mte_RUN_FreeResList(&pstEntry->pstCurSamples, &pstEntry->pstCurSamplesTail);
        mte_RUN_FreeResList(&pstEntry->pstPrevSamples, &pstEntry->pstPrevSamplesTail);
        pthread_mutex_destroy(&pstEntry->stStateLock);
        free(pstEntry);
        pstEntry = pstNext;
    }
}

uint32_t mte_TRIGGER_IsEmpty(void) {
    return g_stTriggers.IsEmpty() ? 1 : 0;
}

int mte_TRIGGER_StateLock(pthread_mutex_t* pstLock) {
    return pthread_mutex_lock(pstLock);
}

int mte_TRIGGER_StateUnLock(pthread_mutex_t* pstLock) {
    return pthread_mutex_unlock(pstLock);
}

MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetTriggerEntry(const char* pszOwner, const char* pszName) {
    return g_stTriggers.FindRemembered(
        MTE_NAMED_KEY_S{static_cast<uint32_t>(strlen(pszOwner)), pszOwner, pszName});
}

MTE_TRIGGER_ROW_S* mte_TRIGGER_Get(const char* pszOwner, const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstEntry = mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    return pstEntry != nullptr ? &pstEntry->stRow : nullptr;
}

MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetNextTriggerEntry(uint32_t uiOwnerLen, const char* pszOwner,
                                                     const char* pszName, uint8_t* pucFlags) {
    // The flags tell the test tables that a row of their kind exists at or
    // before the key, so that running out of rows means the end, not an
    // empty table.
    return g_stTriggers.Next(MTE_NAMED_KEY_S{uiOwnerLen, pszOwner, pszName}, pucFlags);
}

MTE_TRIGGER_ROW_S* mte_TRIGGER_GetNext(uint32_t uiOwnerLen, const char* pszOwner,
                                       const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstEntry =
        mte_TRIGGER_GetNextTriggerEntry(uiOwnerLen, pszOwner, pszName, nullptr);
    return pstEntry != nullptr ? &pstEntry->stRow : nullptr;
}

void mte_TRIGGER_FreeNode(MTE_TRIGGER_ENTRY_S* pstEntry) {
    if (pstEntry == nullptr) {
        return;
    }
    FreeTestRows(pstEntry);
    pthread_mutex_destroy(&pstEntry->stStateLock);
    free(pstEntry);
}

void mte_trigger_Insert(MTE_TRIGGER_ENTRY_S* pstEntry) {
    pstEntry->uiOwnerLen = static_cast<uint32_t>(strlen(pstEntry->stRow.szOwner));
    g_stTriggers.Insert(pstEntry);
}

void mte_trigger_Unlink(MTE_TRIGGER_ENTRY_S* pstEntry) {
    g_stTriggers.Unlink(pstEntry);
}

void mte_trigger_TestRowsChanged(void) {
    g_stTriggers.FlagsChanged();
}

void mte_TRIGGER_StartAll(void) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_stTriggers.Head(); pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (pstEntry->stRow.uiEntryStatus != MTE_ROW_ACTIVE) {
            continue;
        }
        // Results are not checked: a trigger whose timer cannot start is
        // simply not sampled, and the timer module reports why.
        (void)mte_RUN_TriggerEnable(pstEntry);
        (void)mte_TIMER_Refresh(pstEntry->llTimerId, pstEntry->stRow.uiFrequency);
        MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstEntry);
        (void)mte_RUN_Sample4AtOnce(pstEntry);
    }
}

void mte_TRIGGER_SuspendTmr(void) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_stTriggers.Head(); pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (pstEntry->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
            (void)mte_RUN_TriggerDisable(pstEntry);
        }
    }
}

void mte_TRIGGER_ClearAllSpl(void) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_stTriggers.Head(); pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (pstEntry->stRow.uiEntryStatus != MTE_ROW_ACTIVE) {
            continue;
        }
        MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstEntry);
        mte_RUN_ClearSampleRes(pstEntry);
    }
}
