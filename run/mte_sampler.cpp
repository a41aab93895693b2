// Sampler: what the worker does with a trigger it took from the queue in
// state MTE_RUN_BUSY. A trigger whose value identifier and context name are
// both fully specified needs one get per cycle. A wildcarded trigger is
// walked (get-next under the value identifier, context names under the
// context prefix, or both) in batches of at most five steps; between batches
// the trigger goes back into the queue so that other triggers are not held
// up. Every new sample is paired with the previous cycle's sample of the same
// instance (the previous list is sorted as the walk reads) and evaluated.
//
// Thread: the worker. Locks: the trigger's stStateLock, taken for every state
// check and held while samples are merged, evaluated and stored; never held
// across an SNMP request, nor while events run.
//
// Walk positions: the tail of the current list is the point from which the
// next step or batch resumes. A context that answers "no such instance"
// leaves a context marker (a sample without OID) so that the walk carries on
// after it instead of restarting from an earlier context.
#include <cstring>

#include "mte_conv.h"
#include "mte_dbg.h"
#include "mte_run_int.h"
#include "mte_scalar.h"
#include "mte_trigger.h"
#include "plat_snmp.h"

namespace {

// What a step hands to the step handler.
struct MTE_STEP_S {
    int iStep;
    int32_t iReason;
    const char* pszContext;
    const MTE_OID_S* pstOid;  // uiLen 0: a context marker is to be appended
    SNMP_VALUE_S* pstValue;   // released by the handler unless a sample takes it
    bool bContinue;
    bool bRequeued = false;  // set by the handler: the cycle goes on in the next batch
    const MTE_DISC_READ_S* pstDisc = nullptr;  // delta triggers: read with the value
};

int mte_run_CompareOid(const uint32_t* puiA, uint32_t uiLenA, const uint32_t* puiB,
                       uint32_t uiLenB) {
    uint32_t uiLen = uiLenA < uiLenB ? uiLenA : uiLenB;
    for (uint32_t i = 0; i < uiLen; ++i) {
        if (puiA[i] != puiB[i]) {
            return puiA[i] < puiB[i] ? -1 : 1;
        }
    }
    if (uiLenA == uiLenB) {
        return 0;
    }
    return uiLenA < uiLenB ? -1 : 1;
}

// The order in which walks read instances: context name, then OID.
int mte_run_CompareSamples(const MTE_SAMPLE_S* pstA, const MTE_SAMPLE_S* pstB) {
    int iCmp = strcmp(pstA->szContextName, pstB->szContextName);
    if (iCmp != 0) {
        return iCmp;
    }
    return mte_run_CompareOid(pstA->auiOid, pstA->uiOidLen, pstB->auiOid, pstB->uiOidLen);
}

bool mte_run_OidUnder(const MTE_OID_S* pstOid, const MTE_OID_S* pstBase) {
    return pstOid->uiLen > pstBase->uiLen &&
           memcmp(pstOid->auiOid, pstBase->auiOid, pstBase->uiLen * sizeof(uint32_t)) == 0;
}

bool mte_run_ContextUnder(const char* pszContext, const char* pszPrefix) {
    size_t uiPrefix = strlen(pszPrefix);
    return strlen(pszContext) > uiPrefix && strncmp(pszContext, pszPrefix, uiPrefix) == 0;
}

void mte_run_CopyOid(MTE_OID_S* pstDst, const MTE_OID_S* pstSrc) {
    pstDst->uiLen = pstSrc->uiLen > MTE_OID_MAX_LEN ? MTE_OID_MAX_LEN : pstSrc->uiLen;
    memcpy(pstDst->auiOid, pstSrc->auiOid, pstDst->uiLen * sizeof(uint32_t));
}

void mte_run_CopyContext(char* pszDst, const char* pszSrc) {
    mte_run_StrCopy(pszDst, pszSrc, MTE_NAME_SIZE);
}

// A pair, not the guard: the worker's turn with a trigger is taken in one
// function and ended in mte_run_Leave, which lets go before it frees the
// trigger and runs the events.
void mte_run_Lock(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
}

void mte_run_Unlock(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
}

void mte_run_EvaluateGone(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_SAMPLE_S* pstPrev,
                          MTE_EVENT_LIST_S* pstEvents) {
    MTE_OID_S stSuffix;
    mte_run_Suffix(pstTrigger, pstPrev, &stSuffix);
    mte_run_Evaluate(&stSuffix, pstTrigger, pstPrev, nullptr, pstEvents);
}

MTE_SAMPLE_S* mte_run_PopPrev(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    MTE_SAMPLE_S* pstHead = pstTrigger->pstPrevSamples;
    pstTrigger->pstPrevSamples = pstHead->pstNext;
    if (pstTrigger->pstPrevSamples == nullptr) {
        pstTrigger->pstPrevSamplesTail = nullptr;
    }
    return pstHead;
}

// A new instance takes a count of its own; at the instance maximum it is
// refused, kept only as an over-limit sample and not evaluated.
void mte_run_NewInstance(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_SAMPLE_S* pstNew,
                         MTE_EVENT_LIST_S* pstEvents) {
    if (mte_SCALAR_CurInstanceInc() != MTE_OK) {
        mte_SCALAR_InstanceLacksInc();
        MTE_OID_S stOid;
        mte_run_SampleOid(pstNew, &stOid);
        mte_run_ReportFailure(pstTrigger, &stOid, pstNew->szContextName,
                              MTE_REASON_LOCAL_RESOURCE_LACK);
        pstNew->usOverLimit = 1;
        return;
    }
    MTE_OID_S stSuffix;
    mte_run_Suffix(pstTrigger, pstNew, &stSuffix);
    mte_run_Evaluate(&stSuffix, pstTrigger, nullptr, pstNew, pstEvents);
}

// Pairs the new sample with the previous cycle's, consuming the previous list
// from its head: instances passed over have gone away.
void mte_run_Merge(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_SAMPLE_S* pstNew,
                   MTE_EVENT_LIST_S* pstEvents) {
    while (pstTrigger->pstPrevSamples != nullptr) {
        int iCmp = mte_run_CompareSamples(pstTrigger->pstPrevSamples, pstNew);
        if (iCmp > 0) {
            break;
        }
        MTE_SAMPLE_S* pstPrev = mte_run_PopPrev(pstTrigger);
        if (iCmp < 0) {
            mte_run_EvaluateGone(pstTrigger, pstPrev, pstEvents);
            mte_run_FreeSample(pstPrev);
            mte_SCALAR_CurInstanceDec();
            continue;
        }
        MTE_OID_S stSuffix;
        mte_run_Suffix(pstTrigger, pstNew, &stSuffix);
        mte_run_Evaluate(&stSuffix, pstTrigger, pstPrev, pstNew, pstEvents);
        mte_run_FreeSample(pstPrev);
        return;
    }
    mte_run_NewInstance(pstTrigger, pstNew, pstEvents);
}

// End of a walk: every instance of the previous cycle not seen again is
// evaluated as gone and gives back its count.
void mte_run_Flush(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_EVENT_LIST_S* pstEvents) {
    uint32_t uiGone = 0;
    while (pstTrigger->pstPrevSamples != nullptr) {
        MTE_SAMPLE_S* pstPrev = mte_run_PopPrev(pstTrigger);
        mte_run_EvaluateGone(pstTrigger, pstPrev, pstEvents);
        mte_run_FreeSample(pstPrev);
        ++uiGone;
    }
    if (uiGone != 0) {
        mte_SCALAR_CurInstanceSub(uiGone);
    }
}

void mte_run_EndCycle(MTE_TRIGGER_ENTRY_S* pstTrigger, bool bCycleEvaluated) {
    mte_run_Commit(pstTrigger);
    if (bCycleEvaluated && pstTrigger->pstExist != nullptr) {
        pstTrigger->pstExist->usFirstCycle = 0;
    }
    pstTrigger->uiRunState = MTE_RUN_IDLE;
}

// Ends the worker's turn with the trigger, which is locked: copies the row
// for the collected events while the lock is still held, releases the lock
// and the value that no sample took, frees a trigger the main thread
// destroyed, and runs the events.
void mte_run_Leave(MTE_TRIGGER_ENTRY_S* pstTrigger, bool bDeleted, SNMP_VALUE_S* pstValue,
                   MTE_EVENT_LIST_S* pstEvents) {
    MTE_TRIGGER_ROW_S stRowCopy;
    bool bEvents = pstEvents != nullptr && pstEvents->pstHead != nullptr;
    if (bEvents) {
        stRowCopy = pstTrigger->stRow;
    }
    mte_run_Unlock(pstTrigger);
    mte_run_FreeValue(pstValue);
    if (bDeleted) {
        mte_run_FreeTrigger(pstTrigger);
    }
    if (bEvents) {
        mte_run_ExEvent(&stRowCopy, pstEvents->pstHead);
        pstEvents->pstHead = nullptr;
        pstEvents->pstTail = nullptr;
    }
}

void mte_run_SingleRequest(MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_RUN_CFG_S* pstCfg) {
    uint32_t uiStatus = 0;
    MTE_DISC_READ_S stDisc{};
    SNMP_VALUE_S* pstValue =
        pstCfg->bDelta ? mte_run_ReadWithDisc(pstCfg, pstCfg->szContext, &pstCfg->stValueID,
                                              &pstCfg->stValueID, &uiStatus, &stDisc)
                       : SNMP_GetInstanceValue(pstCfg->szOwner, pstCfg->szContext,
                                               &pstCfg->stValueID, &uiStatus);
    int32_t iReason = mte_RUN_convertErrCodeMor2Mte(uiStatus);
    const MTE_OID_S* pstFailedOid = &pstCfg->stValueID;
    if (iReason == MTE_REASON_NO_ERROR && stDisc.uiStatus != SNMP_ST_OK) {
        iReason = mte_RUN_convertErrCodeMor2Mte(stDisc.uiStatus);
        pstFailedOid = &stDisc.stFailedOid;
    }

    MTE_EVENT_LIST_S stEvents{};
    bool bDeleted = false;
    mte_run_Lock(pstTrigger);
    if (pstTrigger->uiRunState != MTE_RUN_BUSY) {
        bDeleted = mte_run_TakeOver(pstTrigger);
    } else {
        if (iReason != MTE_REASON_NO_ERROR) {
            mte_run_ReportFailure(pstTrigger, pstFailedOid, pstCfg->szContext, iReason);
        } else {
            if (pstValue == nullptr && mte_DBG_IsEnable(MTE_DBG_INFO) != 0) {
                mte_DBG_Print(MTE_DBG_MNEMONIC_INFO, "%s",
                              mte_DBG_Text(MTE_TEXT_SAMPLE_VALUE_NULL));
            }
            MTE_SAMPLE_S* pstSample =
                mte_run_MakeSample(pstCfg->szContext, &pstCfg->stValueID, pstValue);
            if (pstSample != nullptr) {
                pstValue = nullptr;
                mte_run_SetDisc(pstSample, pstCfg->bDelta ? &stDisc : nullptr);
                MTE_OID_S stNoSuffix{};
                mte_run_Evaluate(&stNoSuffix, pstTrigger, pstTrigger->pstPrevSamplesTail, pstSample,
                                 &stEvents);
                mte_run_AppendCur(pstTrigger, pstSample);
            }
        }
        // A failed request commits too: the next good cycle has nothing to
        // compare with rather than a stale sample.
        mte_run_EndCycle(pstTrigger, true);
    }
    mte_run_Leave(pstTrigger, bDeleted, pstValue, &stEvents);
}

// Hands one step's result to the trigger, under its lock. False when the walk
// stops: the trigger is no longer busy (and may have been freed), the walk
// ended or failed, or the batch is over.
bool mte_run_StepHandler(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_STEP_S* pstStep) {
    MTE_EVENT_LIST_S stEvents{};
    bool bDeleted = false;
    SNMP_VALUE_S* pstValue = pstStep->pstValue;

    // An instance whose discontinuity indicators cannot be read is a failed
    // sample, as if its value could not be read.
    const MTE_DISC_READ_S* pstDisc = pstStep->pstDisc;
    if (pstStep->iReason == MTE_REASON_NO_ERROR && pstStep->bContinue &&
        pstStep->pstOid->uiLen != 0 && pstDisc != nullptr && pstDisc->uiStatus != SNMP_ST_OK) {
        pstStep->iReason = mte_RUN_convertErrCodeMor2Mte(pstDisc->uiStatus);
        pstStep->pstOid = &pstDisc->stFailedOid;
    }

    mte_run_Lock(pstTrigger);
    if (pstTrigger->uiRunState != MTE_RUN_BUSY) {
        pstStep->bContinue = false;
        bDeleted = mte_run_TakeOver(pstTrigger);
    } else {
        if (pstStep->iReason != MTE_REASON_NO_ERROR) {
            mte_run_ReportFailure(pstTrigger, pstStep->pstOid, pstStep->pszContext,
                                  pstStep->iReason);
            pstStep->bContinue = false;
            mte_run_Flush(pstTrigger, &stEvents);
            mte_run_EndCycle(pstTrigger, false);
        } else if (!pstStep->bContinue) {
            mte_run_Flush(pstTrigger, &stEvents);
            mte_run_EndCycle(pstTrigger, true);
        } else if (pstStep->pstOid->uiLen == 0) {
            MTE_SAMPLE_S* pstMarker = mte_run_MakeSample(pstStep->pszContext, nullptr, nullptr);
            if (pstMarker != nullptr) {
                mte_run_AppendCur(pstTrigger, pstMarker);
            }
        } else {
            MTE_SAMPLE_S* pstSample =
                mte_run_MakeSample(pstStep->pszContext, pstStep->pstOid, pstValue);
            if (pstSample != nullptr) {
                pstValue = nullptr;
                mte_run_SetDisc(pstSample, pstDisc);
                mte_run_Merge(pstTrigger, pstSample, &stEvents);
                mte_run_ProcForLimit(pstSample, pstTrigger);
                mte_run_AppendCur(pstTrigger, pstSample);
            }
        }
        if (pstStep->bContinue && pstStep->iStep == MTE_WALK_BATCH - 1) {
            pstStep->bContinue = false;
            pstStep->bRequeued = mte_run_WriteQueue(pstTrigger) == MTE_OK;
            // The queue is full: the walk ends here as if it had run out.
            if (!pstStep->bRequeued) {
                mte_run_Flush(pstTrigger, &stEvents);
                mte_run_EndCycle(pstTrigger, true);
            }
        }
    }
    mte_run_Leave(pstTrigger, bDeleted, pstValue, &stEvents);
    return pstStep->bContinue;
}

// Where a walk goes on from, read under the lock. False when the trigger is
// no longer busy: the main thread's request has then been completed (and the
// trigger perhaps freed), and the walk stops without asking the agent.
struct MTE_RESUME_S {
    bool bTail;  // the current list has a tail
    bool bMarker;
    char szContext[MTE_NAME_SIZE];
    MTE_OID_S stOid;
    MTE_DISC_READ_S stDisc;  // the indicators read with the tail
};

bool mte_run_ReadResume(MTE_TRIGGER_ENTRY_S* pstTrigger, bool bTakeMarker,
                        MTE_RESUME_S* pstResume) {
    pstResume->bTail = false;
    pstResume->bMarker = false;
    mte_run_Lock(pstTrigger);
    if (pstTrigger->uiRunState != MTE_RUN_BUSY) {
        mte_run_Leave(pstTrigger, mte_run_TakeOver(pstTrigger), nullptr, nullptr);
        return false;
    }
    MTE_SAMPLE_S* pstTail = pstTrigger->pstCurSamplesTail;
    if (pstTail != nullptr) {
        pstResume->bTail = true;
        pstResume->bMarker = pstTail->uiOidLen == 0;
        mte_run_CopyContext(pstResume->szContext, pstTail->szContextName);
        mte_run_SampleOid(pstTail, &pstResume->stOid);
        memset(&pstResume->stDisc, 0, sizeof(pstResume->stDisc));
        pstResume->stDisc.stDisc.bRead = pstTail->usDiscRead == 1;
        pstResume->stDisc.stDisc.uiUpTime = pstTail->uiUpTime;
        pstResume->stDisc.stDisc.uiLen = pstTail->uiDiscLen;
        memcpy(pstResume->stDisc.stDisc.aucValue, pstTail->aucDisc, sizeof(pstTail->aucDisc));
        if (pstResume->bMarker && bTakeMarker) {
            mte_run_FreeCurTail(pstTrigger);
        }
    }
    mte_run_Unlock(pstTrigger);
    return true;
}

// The indicators of an instance that a get-next walk found, null for a
// trigger without a delta row. A wildcarded discontinuity object is read
// for the instance, in one GET with the instance's value again, so that a
// reset between the two reads cannot pass for a delta; the value of that GET
// replaces the walk's. A leaf is read once per context and cycle and kept in
// *pstLeaf.
const MTE_DISC_READ_S* mte_run_WalkDisc(const MTE_RUN_CFG_S* pstCfg, const char* pszContext,
                                        const MTE_OID_S* pstInstance, MTE_DISC_READ_S* pstLeaf,
                                        MTE_DISC_READ_S* pstOwn, SNMP_VALUE_S** ppstValue) {
    if (!pstCfg->bDelta) {
        return nullptr;
    }
    if (pstCfg->bDiscWildcard) {
        uint32_t uiStatus = 0;
        SNMP_VALUE_S* pstAgain =
            mte_run_ReadWithDisc(pstCfg, pszContext, pstInstance, pstInstance, &uiStatus, pstOwn);
        if (uiStatus == SNMP_ST_OK && pstAgain != nullptr) {
            mte_run_FreeValue(*ppstValue);
            *ppstValue = pstAgain;
        } else {
            mte_run_FreeValue(pstAgain);
        }
        return pstOwn;
    }
    if (!pstLeaf->stDisc.bRead) {
        (void)mte_run_ReadWithDisc(pstCfg, pszContext, nullptr, nullptr, nullptr, pstLeaf);
    }
    return pstLeaf;
}

void mte_run_AdvanceContext(char* pszContext) {
    (void)SNMP_GetNextContextName(MTE_NAME_SIZE, pszContext);
    pszContext[MTE_NAME_SIZE - 1] = '\0';
}

// Walk over context names under the prefix; the value identifier is read in
// each. The prefix context itself is read first in a new cycle.
void mte_run_WalkContexts(MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_RUN_CFG_S* pstCfg) {
    char szContext[MTE_NAME_SIZE];
    MTE_OID_S stNoOid{};
    MTE_DISC_READ_S stDisc{};
    bool bNewCycle = false;
    for (int iStep = 0; iStep < MTE_WALK_BATCH; ++iStep) {
        if (iStep == 0) {
            MTE_RESUME_S stResume;
            if (!mte_run_ReadResume(pstTrigger, false, &stResume)) {
                return;
            }
            bNewCycle = !stResume.bTail;
            mte_run_CopyContext(szContext, bNewCycle ? pstCfg->szContext : stResume.szContext);
            // The tail's context has been read already in this cycle: go on
            // after it (also when it is the prefix itself).
            if (!bNewCycle) {
                mte_run_AdvanceContext(szContext);
            }
        } else {
            mte_run_AdvanceContext(szContext);
        }

        bool bInRange = mte_run_ContextUnder(szContext, pstCfg->szContext) ||
                        (iStep == 0 && bNewCycle && strcmp(szContext, pstCfg->szContext) == 0);
        MTE_STEP_S stStep{iStep, 0, szContext, &pstCfg->stValueID, nullptr, true};
        if (!bInRange) {
            stStep.bContinue = false;
        } else {
            uint32_t uiStatus = 0;
            if (pstCfg->bDelta) {
                stStep.pstValue = mte_run_ReadWithDisc(pstCfg, szContext, &pstCfg->stValueID,
                                                       &pstCfg->stValueID, &uiStatus, &stDisc);
                stStep.pstDisc = &stDisc;
            } else {
                stStep.pstValue = SNMP_GetInstanceValue(pstCfg->szOwner, szContext,
                                                        &pstCfg->stValueID, &uiStatus);
            }
            bool bPrefixItself = strcmp(szContext, pstCfg->szContext) == 0;
            if (uiStatus == MTE_ST_NO_SUCH_INSTANCE ||
                (bPrefixItself && uiStatus == MTE_ST_UNKNOWN_CONTEXT)) {
                // Nothing to sample here; the marker keeps the walk's place.
                mte_run_FreeValue(stStep.pstValue);
                stStep.pstValue = nullptr;
                stStep.pstOid = &stNoOid;
            } else {
                stStep.iReason = mte_RUN_convertErrCodeMor2Mte(uiStatus);
            }
        }
        if (!mte_run_StepHandler(pstTrigger, &stStep)) {
            return;
        }
    }
}

// Walk over instances under the value identifier in the trigger's context.
// A get-next that does not move forward ends the walk rather than loop. True
// when the cycle goes on in another batch.
bool mte_run_WalkInstances(MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_RUN_CFG_S* pstCfg) {
    MTE_OID_S stOid;
    MTE_OID_S stLast;
    MTE_DISC_READ_S stLeaf{};
    MTE_DISC_READ_S stOwn{};
    for (int iStep = 0; iStep < MTE_WALK_BATCH; ++iStep) {
        if (iStep == 0) {
            MTE_RESUME_S stResume;
            if (!mte_run_ReadResume(pstTrigger, false, &stResume)) {
                return false;
            }
            mte_run_CopyOid(&stOid, stResume.bTail && stResume.stOid.uiLen != 0
                                        ? &stResume.stOid
                                        : &pstCfg->stValueID);
            if (stResume.bTail) {
                stLeaf = stResume.stDisc;
            }
        }
        mte_run_CopyOid(&stLast, &stOid);
        uint32_t uiStatus = 0;
        SNMP_VALUE_S* pstValue =
            SNMP_GetNextInstanceValue(pstCfg->szOwner, pstCfg->szContext, &stOid, &uiStatus);
        MTE_STEP_S stStep{
            iStep, mte_RUN_convertErrCodeMor2Mte(uiStatus), pstCfg->szContext, &stOid, pstValue,
            true};
        bool bForward = uiStatus != 0 || mte_run_CompareOid(stOid.auiOid, stOid.uiLen,
                                                            stLast.auiOid, stLast.uiLen) > 0;
        if (!mte_run_OidUnder(&stOid, &pstCfg->stValueID) || uiStatus == MTE_ST_END_OF_MIB_VIEW ||
            !bForward) {
            stStep.bContinue = false;
        } else if (uiStatus == 0) {
            stStep.pstDisc = mte_run_WalkDisc(pstCfg, pstCfg->szContext, &stOid, &stLeaf, &stOwn,
                                              &stStep.pstValue);
        }
        if (!mte_run_StepHandler(pstTrigger, &stStep)) {
            return stStep.bRequeued;
        }
    }
    return false;
}

// Walk over instances in every context under the prefix (the prefix context
// first). Leaving a context appends a marker that names the next one. True
// when the cycle goes on in another batch.
bool mte_run_WalkBoth(MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_RUN_CFG_S* pstCfg) {
    char szContext[MTE_NAME_SIZE];
    MTE_OID_S stOid;
    MTE_OID_S stLast;
    MTE_DISC_READ_S stLeaf{};
    MTE_DISC_READ_S stOwn{};
    for (int iStep = 0; iStep < MTE_WALK_BATCH; ++iStep) {
        MTE_RESUME_S stResume;
        if (!mte_run_ReadResume(pstTrigger, true, &stResume)) {
            return false;
        }
        if (stResume.bMarker) {
            // A new context: its agent has a sysUpTime of its own.
            memset(&stLeaf, 0, sizeof(stLeaf));
            mte_run_CopyContext(szContext, stResume.szContext);
            mte_run_CopyOid(&stOid, &pstCfg->stValueID);
        } else if (iStep == 0 && stResume.bTail) {
            mte_run_CopyContext(szContext, stResume.szContext);
            mte_run_CopyOid(&stOid, &stResume.stOid);
            stLeaf = stResume.stDisc;
        } else if (iStep == 0) {
            mte_run_CopyContext(szContext, pstCfg->szContext);
            mte_run_CopyOid(&stOid, &pstCfg->stValueID);
        }
        mte_run_CopyOid(&stLast, &stOid);
        uint32_t uiStatus = 0;
        SNMP_VALUE_S* pstValue =
            SNMP_GetNextInstanceValue(pstCfg->szOwner, szContext, &stOid, &uiStatus);
        MTE_STEP_S stStep{
            iStep, mte_RUN_convertErrCodeMor2Mte(uiStatus), szContext, &stOid, pstValue, true};
        // The prefix need not be a context of its own: then the walk goes
        // straight on to the contexts under it.
        bool bContextDone =
            uiStatus == MTE_ST_END_OF_MIB_VIEW ||
            (uiStatus == MTE_ST_UNKNOWN_CONTEXT && strcmp(szContext, pstCfg->szContext) == 0) ||
            (uiStatus == 0 &&
             (!mte_run_OidUnder(&stOid, &pstCfg->stValueID) ||
              mte_run_CompareOid(stOid.auiOid, stOid.uiLen, stLast.auiOid, stLast.uiLen) <= 0));
        if (bContextDone) {
            stStep.iReason = MTE_REASON_NO_ERROR;
            mte_run_AdvanceContext(szContext);
            if (mte_run_ContextUnder(szContext, pstCfg->szContext)) {
                stOid.uiLen = 0;
            } else {
                stStep.bContinue = false;
            }
        } else if (uiStatus == 0) {
            stStep.pstDisc =
                mte_run_WalkDisc(pstCfg, szContext, &stOid, &stLeaf, &stOwn, &stStep.pstValue);
        }
        if (!mte_run_StepHandler(pstTrigger, &stStep)) {
            return stStep.bRequeued;
        }
    }
    return false;
}

}  // namespace

void mte_run_Snapshot(const MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_RUN_CFG_S* pstCfg) {
    const MTE_TRIGGER_ROW_S& stRow = pstTrigger->stRow;
    mte_run_CopyContext(pstCfg->szOwner, stRow.szOwner);
    mte_run_CopyContext(pstCfg->szContext, stRow.szContextName);
    mte_run_CopyOid(&pstCfg->stValueID, &stRow.stValueID);
    pstCfg->bValueIDWildcard = stRow.uiValueIDWildcard == MTE_TRUE;
    pstCfg->bContextWildcard = stRow.uiContextNameWildcard == MTE_TRUE;
    mte_run_DeltaSnapshot(pstTrigger, pstCfg);
}

void mte_run_SampleStep(MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_RUN_CFG_S* pstCfg) {
    if (pstCfg->bValueIDWildcard) {
        // The walk's get-nexts may be answered from what the client read
        // ahead during this cycle; when the cycle ends, so does that.
        SNMP_SetWalk(pstTrigger);
        bool bGoesOn = pstCfg->bContextWildcard ? mte_run_WalkBoth(pstTrigger, pstCfg)
                                                : mte_run_WalkInstances(pstTrigger, pstCfg);
        SNMP_SetWalk(nullptr);
        if (!bGoesOn) {
            SNMP_EndWalk(pstTrigger);  // the trigger may be freed: only its address is used
        }
    } else if (pstCfg->bContextWildcard) {
        mte_run_WalkContexts(pstTrigger, pstCfg);
    } else {
        mte_run_SingleRequest(pstTrigger, pstCfg);
    }
}
