// Trigger table: the list of triggers in index order, the lookups and get-next
// walks of the management handlers and test tables, the per-trigger state
// lock, and the whole-table operations of start-up, shutdown and the port
// service. The list (head and links) is touched only on the main thread, so
// walks and changes of it take no lock; the state lock of one entry at a time
// is taken around the sampling-engine calls that need it.
#include "mte_trigger.h"

#include <cstdlib>
#include <cstring>

#include "mte_list_cursor.h"
#include "mte_trigger_priv.h"
#include "mte_trigger_run.h"

namespace {

MTE_TRIGGER_ENTRY_S* g_pstTriggerHead = nullptr;

struct TRIGGER_ORDER_S {
    static int Compare(const MTE_TRIGGER_ENTRY_S* pstA, const MTE_TRIGGER_ENTRY_S* pstB) {
        return mte_TRIGGER_CompareKey(pstA->uiOwnerLen, pstA->stRow.szOwner, pstA->stRow.szName,
                                      pstB->uiOwnerLen, pstB->stRow.szOwner, pstB->stRow.szName);
    }
    static uint8_t Flags(const MTE_TRIGGER_ENTRY_S* pstEntry) {
        return (pstEntry->pstBool != nullptr ? MTE_PRESENT_BOOLEAN : 0) |
               (pstEntry->pstExist != nullptr ? MTE_PRESENT_EXISTENCE : 0) |
               (pstEntry->pstThres != nullptr ? MTE_PRESENT_THRESHOLD : 0) |
               (pstEntry->pstDelta != nullptr ? MTE_PRESENT_DELTA : 0);
    }
};
// Where the last walks ended: get-next after the row just returned, and the
// ascending keys of recovery and bulk configuration, start there.
MTE_LIST_CURSORS<MTE_TRIGGER_ENTRY_S, TRIGGER_ORDER_S> g_stTriggerCursors;

// Sign of (entry - key) in index order, as the cursors' walks want it.
auto EntryVsKey(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName) {
    return [=](const MTE_TRIGGER_ENTRY_S* pstEntry) {
        return mte_TRIGGER_CompareKey(pstEntry->uiOwnerLen, pstEntry->stRow.szOwner,
                                      pstEntry->stRow.szName, uiOwnerLen, pszOwner, pszName);
    };
}

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
    if (uiOwnerLenA != uiOwnerLenB) {
        return uiOwnerLenA < uiOwnerLenB ? -1 : 1;
    }
    int iCmp = strcmp(pszOwnerA, pszOwnerB);
    if (iCmp == 0) {
        iCmp = strcmp(pszNameA, pszNameB);
    }
    return iCmp < 0 ? -1 : (iCmp > 0 ? 1 : 0);
}

uint32_t mte_TRIGGER_Init(void) {
    g_pstTriggerHead = nullptr;
    g_stTriggerCursors.Reset();
    return MTE_OK;
}

void mte_TRIGGER_Fini(void) {
    MTE_TRIGGER_ENTRY_S* pstEntry = g_pstTriggerHead;
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
    g_pstTriggerHead = nullptr;
    g_stTriggerCursors.Reset();
}

uint32_t mte_TRIGGER_IsEmpty(void) {
    return g_pstTriggerHead == nullptr ? 1 : 0;
}

int mte_TRIGGER_StateLock(pthread_mutex_t* pstLock) {
    return pthread_mutex_lock(pstLock);
}

int mte_TRIGGER_StateUnLock(pthread_mutex_t* pstLock) {
    return pthread_mutex_unlock(pstLock);
}

MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetTriggerEntry(const char* pszOwner, const char* pszName) {
    auto stWalk = g_stTriggerCursors.Seek(
        g_pstTriggerHead, EntryVsKey(static_cast<uint32_t>(strlen(pszOwner)), pszOwner, pszName),
        false);
    MTE_TRIGGER_ENTRY_S* pstEntry = stWalk.pstAtOrBefore;
    if (pstEntry == nullptr || strcmp(pstEntry->stRow.szOwner, pszOwner) != 0 ||
        strcmp(pstEntry->stRow.szName, pszName) != 0) {
        return nullptr;
    }
    g_stTriggerCursors.Remember(stWalk, false);
    return pstEntry;
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
    auto stWalk = g_stTriggerCursors.Seek(
        g_pstTriggerHead, EntryVsKey(uiOwnerLen, pszOwner, pszName), pucFlags != nullptr);
    if (pucFlags != nullptr) {
        *pucFlags |= stWalk.ucFlags;
    }
    g_stTriggerCursors.Remember(stWalk, stWalk.pstAfter != nullptr);
    return stWalk.pstAfter;
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
    g_stTriggerCursors.Insert(&g_pstTriggerHead, pstEntry);
}

void mte_trigger_Unlink(MTE_TRIGGER_ENTRY_S* pstEntry) {
    g_stTriggerCursors.Unlink(&g_pstTriggerHead, pstEntry);
}

void mte_trigger_TestRowsChanged(void) {
    g_stTriggerCursors.FlagsChanged();
}

void mte_TRIGGER_StartAll(void) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_pstTriggerHead; pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (pstEntry->stRow.uiEntryStatus != MTE_ROW_ACTIVE) {
            continue;
        }
        // Results are not checked: a trigger whose timer cannot start is
        // simply not sampled, and the timer module reports why.
        (void)mte_RUN_TriggerEnable(pstEntry);
        (void)mte_TIMER_Refresh(pstEntry->llTimerId, pstEntry->stRow.uiFrequency);
        mte_TRIGGER_StateLock(&pstEntry->stStateLock);
        (void)mte_RUN_Sample4AtOnce(pstEntry);
        mte_TRIGGER_StateUnLock(&pstEntry->stStateLock);
    }
}

void mte_TRIGGER_SuspendTmr(void) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_pstTriggerHead; pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (pstEntry->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
            (void)mte_RUN_TriggerDisable(pstEntry);
        }
    }
}

void mte_TRIGGER_ClearAllSpl(void) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_pstTriggerHead; pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (pstEntry->stRow.uiEntryStatus != MTE_ROW_ACTIVE) {
            continue;
        }
        mte_TRIGGER_StateLock(&pstEntry->stStateLock);
        mte_RUN_ClearSampleRes(pstEntry);
        mte_TRIGGER_StateUnLock(&pstEntry->stStateLock);
    }
}
