// Sample store: the two sample lists of a trigger (previous cycle, cycle under
// way), the samples in them and the instance counts they hold.
//
// Thread: the worker makes, moves and frees samples; the main thread drops
// whole lists (mte_RUN_ClearSampleRes on deactivation, destruction and port
// down; mte_RUN_FreeResList when the table is torn down). Every operation
// here expects the caller to hold the trigger's stStateLock (or to own the
// trigger outright) and takes no lock itself.
//
// Counting: a wildcarded trigger holds one instance count per sample of its
// previous list and per counted (not over-limit, not marker) sample of its
// current list; a non-wildcarded trigger holds one count while
// usInstanceReleased is 0.
#include <cstdlib>
#include <cstring>

#include "mte_exist.h"
#include "mte_run_int.h"
#include "mte_scalar.h"
#include "plat_snmp.h"

namespace {

bool mte_run_IsCounted(const MTE_SAMPLE_S* pstSample) {
    return pstSample->usOverLimit == 0 && pstSample->uiOidLen != 0;
}

void mte_run_ListAppend(MTE_SAMPLE_S** ppstHead, MTE_SAMPLE_S** ppstTail, MTE_SAMPLE_S* pstSample) {
    pstSample->pstNext = nullptr;
    if (*ppstTail == nullptr) {
        *ppstHead = pstSample;
    } else {
        (*ppstTail)->pstNext = pstSample;
    }
    *ppstTail = pstSample;
}

uint32_t mte_run_CountList(const MTE_SAMPLE_S* pstHead) {
    uint32_t uiCount = 0;
    for (; pstHead != nullptr; pstHead = pstHead->pstNext) {
        uiCount += mte_run_IsCounted(pstHead) ? 1 : 0;
    }
    return uiCount;
}

}  // namespace

// The client made the value record (its bytes and the record), so the
// client releases it.
void mte_run_FreeValue(SNMP_VALUE_S* pstValue) {
    if (pstValue != nullptr) {
        SNMP_FreeInstanceValue(pstValue);
    }
}

MTE_SAMPLE_S* mte_run_MakeSample(const char* pszContext, const MTE_OID_S* pstOid,
                                 SNMP_VALUE_S* pstValue) {
    auto* pstSample = static_cast<MTE_SAMPLE_S*>(calloc(1, sizeof(MTE_SAMPLE_S)));
    if (pstSample == nullptr) {
        return nullptr;
    }
    if (pstOid != nullptr) {
        uint32_t uiLen = pstOid->uiLen > MTE_OID_MAX_LEN ? MTE_OID_MAX_LEN : pstOid->uiLen;
        pstSample->uiOidLen = uiLen;
        memcpy(pstSample->auiOid, pstOid->auiOid, uiLen * sizeof(uint32_t));
    }
    mte_run_StrCopy(pstSample->szContextName, pszContext != nullptr ? pszContext : "",
                    MTE_NAME_SIZE);
    pstSample->uiTestState = MTE_TSTATE_NEW;
    pstSample->pstValue = pstValue;
    pstSample->usOverLimit = 0;
    return pstSample;
}

void mte_run_FreeSample(MTE_SAMPLE_S* pstSample) {
    if (pstSample != nullptr) {
        mte_run_FreeValue(pstSample->pstValue);
        free(pstSample);
    }
}

void mte_run_AppendCur(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_SAMPLE_S* pstSample) {
    mte_run_ListAppend(&pstTrigger->pstCurSamples, &pstTrigger->pstCurSamplesTail, pstSample);
}

void mte_run_ProcForLimit(MTE_SAMPLE_S* pstSample, MTE_TRIGGER_ENTRY_S* pstTrigger) {
    MTE_SAMPLE_S* pstTail = pstTrigger->pstCurSamplesTail;
    if (pstSample->usOverLimit != 0 && pstTail != nullptr && pstTail->usOverLimit != 0) {
        mte_run_FreeCurTail(pstTrigger);
    }
}

void mte_run_FreeCurTail(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    MTE_SAMPLE_S* pstTail = pstTrigger->pstCurSamplesTail;
    if (pstTail == nullptr) {
        return;
    }
    MTE_SAMPLE_S* pstBefore = nullptr;
    for (MTE_SAMPLE_S* p = pstTrigger->pstCurSamples; p != pstTail; p = p->pstNext) {
        pstBefore = p;
    }
    if (pstBefore == nullptr) {
        pstTrigger->pstCurSamples = nullptr;
    } else {
        pstBefore->pstNext = nullptr;
    }
    pstTrigger->pstCurSamplesTail = pstBefore;
    mte_run_FreeSample(pstTail);
}

void mte_run_Commit(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_RUN_FreeResList(&pstTrigger->pstPrevSamples, &pstTrigger->pstPrevSamplesTail);
    MTE_SAMPLE_S* pstNext = nullptr;
    for (MTE_SAMPLE_S* p = pstTrigger->pstCurSamples; p != nullptr; p = pstNext) {
        pstNext = p->pstNext;
        if (!mte_run_IsCounted(p)) {
            mte_run_FreeSample(p);
            continue;
        }
        mte_run_ListAppend(&pstTrigger->pstPrevSamples, &pstTrigger->pstPrevSamplesTail, p);
    }
    pstTrigger->pstCurSamples = nullptr;
    pstTrigger->pstCurSamplesTail = nullptr;
}

void mte_run_DropCycle(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (pstTrigger->pstCurSamples == nullptr) {
        return;
    }
    uint32_t uiCounted =
        mte_run_IsWildcard(pstTrigger) ? mte_run_CountList(pstTrigger->pstCurSamples) : 0;
    mte_RUN_FreeResList(&pstTrigger->pstCurSamples, &pstTrigger->pstCurSamplesTail);
    if (uiCounted != 0) {
        mte_SCALAR_CurInstanceSub(uiCounted);
    }
}

void mte_run_SampleOid(const MTE_SAMPLE_S* pstSample, MTE_OID_S* pstOid) {
    pstOid->uiLen = pstSample->uiOidLen;
    memcpy(pstOid->auiOid, pstSample->auiOid, pstSample->uiOidLen * sizeof(uint32_t));
}

void mte_run_Suffix(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_SAMPLE_S* pstSample,
                    MTE_OID_S* pstSuffix) {
    uint32_t uiBase = pstTrigger->stRow.stValueID.uiLen;
    pstSuffix->uiLen = 0;
    if (pstSample == nullptr || pstSample->uiOidLen <= uiBase) {
        return;
    }
    pstSuffix->uiLen = pstSample->uiOidLen - uiBase;
    memcpy(pstSuffix->auiOid, pstSample->auiOid + uiBase, pstSuffix->uiLen * sizeof(uint32_t));
}

void mte_RUN_FreeResList(MTE_SAMPLE_S** ppstHead, MTE_SAMPLE_S** ppstTail) {
    MTE_SAMPLE_S* pstNext = nullptr;
    for (MTE_SAMPLE_S* p = *ppstHead; p != nullptr; p = pstNext) {
        pstNext = p->pstNext;
        mte_run_FreeSample(p);
    }
    *ppstHead = nullptr;
    if (ppstTail != nullptr) {
        *ppstTail = nullptr;
    }
}

// The run state is left alone: a cycle under way goes on and finds the lists
// empty, as if it were the trigger's first.
void mte_RUN_ClearSampleRes(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (!mte_run_IsWildcard(pstTrigger)) {
        mte_RUN_FreeResList(&pstTrigger->pstPrevSamples, &pstTrigger->pstPrevSamplesTail);
        mte_RUN_FreeResList(&pstTrigger->pstCurSamples, &pstTrigger->pstCurSamplesTail);
        if (pstTrigger->usInstanceReleased != 1) {
            mte_SCALAR_CurInstanceSub(1);
        }
    } else {
        uint32_t uiCount = mte_run_CountList(pstTrigger->pstPrevSamples) +
                           mte_run_CountList(pstTrigger->pstCurSamples);
        mte_RUN_FreeResList(&pstTrigger->pstPrevSamples, &pstTrigger->pstPrevSamplesTail);
        mte_RUN_FreeResList(&pstTrigger->pstCurSamples, &pstTrigger->pstCurSamplesTail);
        if (uiCount != 0) {
            mte_SCALAR_CurInstanceSub(uiCount);
        }
    }
    pstTrigger->usInstanceReleased = 1;
    if (pstTrigger->pstExist != nullptr) {
        pstTrigger->pstExist->usFirstCycle = 1;
    }
}
