// Trigger table: the list of triggers in index order, the lookups and get-next
// walks of the management handlers and test tables, the per-trigger state
// lock, and the whole-table operations of start-up, shutdown and the port
// service. The list (head and links) is touched only on the main thread, so
// walks and changes of it take no lock; the state lock of one entry at a time
// is taken around the sampling-engine calls that need it.
#include "mte_trigger.h"

#include <cstdlib>
#include <cstring>

#include "mte_run.h"
#include "mte_timer.h"
#include "mte_trigger_priv.h"

namespace {

MTE_TRIGGER_ENTRY_S* g_pstTriggerHead = nullptr;
// The entry last found or inserted. Recovery and bulk configuration visit
// keys in ascending order, so starting a walk here instead of at the head
// keeps them linear; any key before the hint still walks from the head.
MTE_TRIGGER_ENTRY_S* g_pstTriggerHint = nullptr;

uint32_t OwnerLen(const MTE_TRIGGER_ENTRY_S* pstEntry) {
    return static_cast<uint32_t>(strlen(pstEntry->stRow.szOwner));
}

// Sign of (key - entry) in index order.
int CompareWithEntry(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                     const MTE_TRIGGER_ENTRY_S* pstEntry) {
    return mte_TRIGGER_CompareKey(uiOwnerLen, pszOwner, pszName, OwnerLen(pstEntry),
                                  pstEntry->stRow.szOwner, pstEntry->stRow.szName);
}

// The first entry of a walk for the key: the hint when the key is at or after
// it, else the head. Everything before the returned entry is before the key.
MTE_TRIGGER_ENTRY_S* WalkStart(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName) {
    if (g_pstTriggerHint != nullptr &&
        CompareWithEntry(uiOwnerLen, pszOwner, pszName, g_pstTriggerHint) >= 0) {
        return g_pstTriggerHint;
    }
    return g_pstTriggerHead;
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
    g_pstTriggerHint = nullptr;
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
    g_pstTriggerHint = nullptr;
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
    uint32_t uiOwnerLen = static_cast<uint32_t>(strlen(pszOwner));
    for (MTE_TRIGGER_ENTRY_S* pstEntry = WalkStart(uiOwnerLen, pszOwner, pszName);
         pstEntry != nullptr; pstEntry = pstEntry->pstNext) {
        int iCmp = CompareWithEntry(uiOwnerLen, pszOwner, pszName, pstEntry);
        if (iCmp == 0) {
            g_pstTriggerHint = pstEntry;
            return pstEntry;
        }
        if (iCmp < 0) {
            return nullptr;  // every later entry is larger still
        }
    }
    return nullptr;
}

MTE_TRIGGER_ROW_S* mte_TRIGGER_Get(const char* pszOwner, const char* pszName) {
    MTE_TRIGGER_ENTRY_S* pstEntry = mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    return pstEntry != nullptr ? &pstEntry->stRow : nullptr;
}

MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetNextTriggerEntry(uint32_t uiOwnerLen, const char* pszOwner,
                                                     const char* pszName, uint8_t* pucFlags) {
    for (MTE_TRIGGER_ENTRY_S* pstEntry = g_pstTriggerHead; pstEntry != nullptr;
         pstEntry = pstEntry->pstNext) {
        if (CompareWithEntry(uiOwnerLen, pszOwner, pszName, pstEntry) < 0) {
            return pstEntry;
        }
        // Tells the test tables that a row of their kind exists before the
        // key, so that running out of rows means the end, not an empty table.
        if (pucFlags == nullptr) {
            continue;
        }
        if (pstEntry->pstBool != nullptr) {
            *pucFlags |= MTE_PRESENT_BOOLEAN;
        }
        if (pstEntry->pstExist != nullptr) {
            *pucFlags |= MTE_PRESENT_EXISTENCE;
        }
        if (pstEntry->pstThres != nullptr) {
            *pucFlags |= MTE_PRESENT_THRESHOLD;
        }
        if (pstEntry->pstDelta != nullptr) {
            *pucFlags |= MTE_PRESENT_DELTA;
        }
    }
    return nullptr;
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
    uint32_t uiOwnerLen = OwnerLen(pstEntry);
    MTE_TRIGGER_ENTRY_S* pstPrev = nullptr;
    MTE_TRIGGER_ENTRY_S* pstCur = WalkStart(uiOwnerLen, pstEntry->stRow.szOwner,
                                            pstEntry->stRow.szName);
    if (pstCur != g_pstTriggerHead) {
        // The hint is at or before the new key: the new entry goes after it.
        pstPrev = pstCur;
        pstCur = pstCur->pstNext;
    }
    while (pstCur != nullptr && CompareWithEntry(uiOwnerLen, pstEntry->stRow.szOwner,
                                                 pstEntry->stRow.szName, pstCur) >= 0) {
        pstPrev = pstCur;
        pstCur = pstCur->pstNext;
    }
    pstEntry->pstNext = pstCur;
    if (pstPrev == nullptr) {
        g_pstTriggerHead = pstEntry;
    } else {
        pstPrev->pstNext = pstEntry;
    }
    g_pstTriggerHint = pstEntry;
}

void mte_trigger_Unlink(MTE_TRIGGER_ENTRY_S* pstEntry) {
    if (g_pstTriggerHint == pstEntry) {
        g_pstTriggerHint = nullptr;
    }
    MTE_TRIGGER_ENTRY_S** ppstLink = &g_pstTriggerHead;
    while (*ppstLink != nullptr && *ppstLink != pstEntry) {
        ppstLink = &(*ppstLink)->pstNext;
    }
    if (*ppstLink == pstEntry) {
        *ppstLink = pstEntry->pstNext;
        pstEntry->pstNext = nullptr;
    }
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
