// Evaluation of samples and failure reporting.
//
// The sampler hands every pair of samples of one instance (previous and
// current, either may be missing) to mte_run_Evaluate, which runs the
// trigger's selected tests in a fixed order (existence, boolean, threshold),
// sends mteTriggerFired / Rising / Falling, writes the debug text and collects
// one event request per firing. Failures of sampling and of tests all go
// through mte_run_ReportFailure: the failure counter, mteTriggerFailure and a
// debug text. The collected events run later, after the trigger's lock is
// released, from a copy of the trigger's row (mte_run_ExEvent).
//
// Thread: the worker, with the trigger's stStateLock held, except
// mte_run_ExEvent (no lock held) and the overrun and queueing failures, which
// the main thread reports under the same lock. Locks taken here: the leaf
// locks of the debug and trap switches (inside mte_DBG_IsEnable and the
// notification senders); mte_EVENT_Run takes the event and objects list locks
// after the state lock is gone.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mte_bool.h"
#include "mte_conv.h"
#include "mte_dbg.h"
#include "mte_event.h"
#include "mte_exist.h"
#include "mte_msg.h"
#include "mte_run_int.h"
#include "mte_scalar.h"
#include "mte_thres.h"
#include "mte_trap.h"

namespace {

constexpr size_t DEBUG_TEXT_SIZE = 1024;
constexpr uint32_t OID_TEXT_SIZE = 256;

enum MTE_FIRE_KIND_E { MTE_FIRE_FIRED, MTE_FIRE_RISING, MTE_FIRE_FALLING };

// What the debug text of a firing says about the test that fired.
struct MTE_FIRE_DETAIL_S {
    uint8_t ucTest;  // MTE_TEST_* of the test that fired
    int32_t iResult;
    const MTE_BOOL_ENTRY_S* pstBool;
    const MTE_THRES_ENTRY_S* pstThres;
};

// A report text under construction; every piece is cut to the room left.
struct MTE_TEXT_BUF_S {
    char szText[DEBUG_TEXT_SIZE];
    size_t uiUsed;
};

__attribute__((format(printf, 2, 3))) void mte_run_TextAppend(MTE_TEXT_BUF_S* pstBuf,
                                                              const char* pszFormat, ...) {
    size_t uiRoom = sizeof(pstBuf->szText) - pstBuf->uiUsed;
    if (pszFormat == nullptr || uiRoom <= 1) {
        return;
    }
    va_list args;
    va_start(args, pszFormat);
    int iWritten = vsnprintf(pstBuf->szText + pstBuf->uiUsed, uiRoom, pszFormat, args);
    va_end(args);
    if (iWritten > 0) {
        pstBuf->uiUsed += static_cast<size_t>(iWritten) >= uiRoom ? uiRoom - 1 : iWritten;
    }
}

// A message text, also when handed as its full resource identifier.
const char* mte_run_Text(uint32_t uiId) {
    if ((uiId & ~0xffu) == MTE_RC_MODULE) {
        uiId -= MTE_RC_MODULE;
    }
    return mte_DBG_Text(uiId);
}

const char* mte_run_OrNA(const char* psz) {
    return (psz == nullptr || psz[0] == '\0') ? "N/A" : psz;
}

const char* mte_run_SampleTypeName(uint32_t uiType) {
    switch (uiType) {
        case MTE_SAMPLE_ABSOLUTE:
            return "absoluteValue";
        case MTE_SAMPLE_DELTA:
            return "deltaValue";
        default:
            return "";
    }
}

const char* mte_run_ComparisonName(uint32_t uiComparison) {
    static constexpr const char* apszNames[] = {
        "", "unequal", "equal", "less", "lessOrEqual", "greater", "greaterOrEqual"};
    return uiComparison < sizeof(apszNames) / sizeof(apszNames[0]) ? apszNames[uiComparison] : "";
}

void mte_run_FireDebug(MTE_FIRE_KIND_E eKind, const MTE_TRIGGER_ENTRY_S* pstTrigger,
                       const MTE_SAMPLE_S* pstSample, const MTE_FIRE_DETAIL_S* pstDetail,
                       int32_t iHot) {
    MTE_TEXT_BUF_S stBuf{};
    uint32_t uiHeader = eKind == MTE_FIRE_FIRED
                            ? MTE_TEXT_REPORT_TRIGGER_FIRED
                            : (eKind == MTE_FIRE_RISING ? MTE_TEXT_REPORT_TRIGGER_RISING
                                                        : MTE_TEXT_REPORT_TRIGGER_FALLING);
    mte_run_TextAppend(&stBuf, "%s", mte_run_Text(uiHeader));
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_TRIGGER_OWNER_NAME),
                       pstTrigger->stRow.szOwner, pstTrigger->stRow.szName);
    if (pstDetail->ucTest == MTE_TEST_BOOLEAN) {
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_SAMPLE_TYPE),
                           mte_run_SampleTypeName(pstTrigger->stRow.uiSampleType));
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_TRIGGER_TEST), "Boolean");
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_BOOLEAN_COMPARISON),
                           mte_run_ComparisonName(pstDetail->pstBool->uiComparison));
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_BOOLEAN_VALUE),
                           pstDetail->pstBool->iValue);
    } else if (pstDetail->ucTest == MTE_TEST_THRESHOLD) {
        const MTE_THRES_ENTRY_S* pstThres = pstDetail->pstThres;
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_TRIGGER_TEST), "Threshold");
        switch (pstDetail->iResult) {
            case MTE_CHECK_RISING:
                mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_RISING),
                                   pstThres->iRising);
                break;
            case MTE_CHECK_FALLING:
                mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_FALLING),
                                   pstThres->iFalling);
                break;
            case MTE_CHECK_DELTA_RISING:
                mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_DELTA_RISING),
                                   pstThres->iDeltaRising);
                break;
            default:
                mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_DELTA_FALLING),
                                   pstThres->iDeltaFalling);
                break;
        }
    } else {
        const char* pszKind =
            pstDetail->iResult == MTE_CHECK_ABSENT
                ? "absent"
                : (pstDetail->iResult == MTE_CHECK_PRESENT ? "present" : "changed");
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_TRIGGER_TEST), "Existence");
        mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_EXISTENCE_TEST), pszKind);
    }
    MTE_OID_S stOid;
    mte_run_SampleOid(pstSample, &stOid);
    char szOid[OID_TEXT_SIZE];
    MTE_MSG_Oid2Str(&stOid, sizeof(szOid), szOid);
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_VALUE_ID), szOid);
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_VALUE), iHot);
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_CONTEXT_NAME),
                       mte_run_OrNA(pstSample->szContextName));
    mte_DBG_Print(MTE_DBG_MNEMONIC_INFO, "%s", stBuf.szText);
}

void mte_run_FireReport(MTE_FIRE_KIND_E eKind, const MTE_TRIGGER_ENTRY_S* pstTrigger,
                        const MTE_SAMPLE_S* pstSample, const MTE_FIRE_DETAIL_S* pstDetail) {
    const MTE_TRIGGER_ROW_S& stRow = pstTrigger->stRow;
    int32_t iHot = mte_run_HotValue(pstSample);
    auto pfSend = eKind == MTE_FIRE_FIRED ? TRAP_SendmteTriggerFired
                                          : (eKind == MTE_FIRE_RISING ? TRAP_SendmteTriggerRising
                                                                      : TRAP_SendmteTriggerFalling);
    (void)pfSend(stRow.szName, strlen(stRow.szName), stRow.szTargetTag, strlen(stRow.szTargetTag),
                 pstSample->szContextName, strlen(pstSample->szContextName), pstSample->auiOid,
                 pstSample->uiOidLen, iHot);
    if (mte_DBG_IsEnable(MTE_DBG_INFO) != 0) {
        mte_run_FireDebug(eKind, pstTrigger, pstSample, pstDetail, iHot);
    }
}

// A request is made only for a configured event; one that cannot be
// allocated is skipped (its notification has gone out already).
void mte_run_AddRequest(MTE_EVENT_LIST_S* pstEvents, const MTE_OID_S* pstSuffix,
                        const char* pszContext, const char* pszEventOwner, const char* pszEvent,
                        const char* pszObjectsOwner, const char* pszObjects) {
    if (pstEvents == nullptr || pszEventOwner[0] == '\0' || pszEvent[0] == '\0') {
        return;
    }
    auto* pstReq = static_cast<MTE_FIRED_EVENT_S*>(calloc(1, sizeof(MTE_FIRED_EVENT_S)));
    if (pstReq == nullptr) {
        return;
    }
    if (pstSuffix != nullptr) {
        pstReq->uiSuffixLen = pstSuffix->uiLen;
        memcpy(pstReq->auiSuffix, pstSuffix->auiOid, pstSuffix->uiLen * sizeof(uint32_t));
    }
    mte_run_StrCopy(pstReq->szEventName, pszEvent, MTE_NAME_SIZE);
    mte_run_StrCopy(pstReq->szEventOwner, pszEventOwner, MTE_NAME_SIZE);
    mte_run_StrCopy(pstReq->szContextName, pszContext, MTE_NAME_SIZE);
    mte_run_StrCopy(pstReq->szObjectsOwner, pszObjectsOwner, MTE_NAME_SIZE);
    mte_run_StrCopy(pstReq->szObjectsName, pszObjects, MTE_NAME_SIZE);
    if (pstEvents->pstTail == nullptr) {
        pstEvents->pstHead = pstReq;
    } else {
        pstEvents->pstTail->pstNext = pstReq;
    }
    pstEvents->pstTail = pstReq;
}

void mte_run_ReportBadType(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_SAMPLE_S* pstCur) {
    MTE_OID_S stOid;
    mte_run_SampleOid(pstCur, &stOid);
    mte_run_ReportFailure(pstTrigger, &stOid, pstCur->szContextName, MTE_REASON_BAD_TYPE);
}

void mte_run_EvalExistence(const MTE_OID_S* pstSuffix, MTE_TRIGGER_ENTRY_S* pstTrigger,
                           MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur,
                           MTE_EVENT_LIST_S* pstEvents) {
    const MTE_EXIST_ENTRY_S* pstExist = pstTrigger->pstExist;
    int32_t iResult = mte_EXIST_Check(pstExist, pstPrev, pstCur);
    if (iResult == MTE_CHECK_NONE) {
        return;
    }
    // An instance that went away is reported with what was last seen of it.
    const MTE_SAMPLE_S* pstFired =
        (iResult == MTE_CHECK_ABSENT && pstPrev != nullptr) ? pstPrev : pstCur;
    if (pstFired == nullptr) {
        return;
    }
    MTE_FIRE_DETAIL_S stDetail{MTE_TEST_EXISTENCE, iResult, nullptr, nullptr};
    mte_run_FireReport(MTE_FIRE_FIRED, pstTrigger, pstFired, &stDetail);
    mte_run_AddRequest(pstEvents, pstSuffix, pstFired->szContextName, pstExist->szEventOwner,
                       pstExist->szEvent, pstExist->szObjectsOwner, pstExist->szObjects);
}

void mte_run_EvalBoolean(const MTE_OID_S* pstSuffix, MTE_TRIGGER_ENTRY_S* pstTrigger,
                         MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur, MTE_EVENT_LIST_S* pstEvents) {
    const MTE_BOOL_ENTRY_S* pstBool = pstTrigger->pstBool;
    int32_t iResult = mte_BOOL_Check(pstBool, pstTrigger->stRow.uiSampleType, pstPrev, pstCur);
    if (iResult == MTE_CHECK_NONE) {
        return;
    }
    if (iResult == MTE_CHECK_BADTYPE) {
        mte_run_ReportBadType(pstTrigger, pstCur);
        return;
    }
    MTE_FIRE_DETAIL_S stDetail{MTE_TEST_BOOLEAN, iResult, pstBool, nullptr};
    mte_run_FireReport(MTE_FIRE_FIRED, pstTrigger, pstCur, &stDetail);
    mte_run_AddRequest(pstEvents, pstSuffix, pstCur->szContextName, pstBool->szEventOwner,
                       pstBool->szEvent, pstBool->szObjectsOwner, pstBool->szObjects);
}

void mte_run_ThresholdOutcome(int32_t iResult, const MTE_OID_S* pstSuffix,
                              MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_SAMPLE_S* pstCur,
                              MTE_EVENT_LIST_S* pstEvents) {
    const MTE_THRES_ENTRY_S* pstThres = pstTrigger->pstThres;
    if (iResult == MTE_CHECK_BADTYPE) {
        mte_run_ReportBadType(pstTrigger, pstCur);
        return;
    }
    MTE_FIRE_KIND_E eKind;
    const char* pszOwner;
    const char* pszEvent;
    switch (iResult) {
        case MTE_CHECK_RISING:
            eKind = MTE_FIRE_RISING;
            pszOwner = pstThres->szRisingEventOwner;
            pszEvent = pstThres->szRisingEvent;
            break;
        case MTE_CHECK_FALLING:
            eKind = MTE_FIRE_FALLING;
            pszOwner = pstThres->szFallingEventOwner;
            pszEvent = pstThres->szFallingEvent;
            break;
        case MTE_CHECK_DELTA_RISING:
            eKind = MTE_FIRE_RISING;
            pszOwner = pstThres->szDeltaRisingEventOwner;
            pszEvent = pstThres->szDeltaRisingEvent;
            break;
        default:
            eKind = MTE_FIRE_FALLING;
            pszOwner = pstThres->szDeltaFallingEventOwner;
            pszEvent = pstThres->szDeltaFallingEvent;
            break;
    }
    MTE_FIRE_DETAIL_S stDetail{MTE_TEST_THRESHOLD, iResult, nullptr, pstThres};
    mte_run_FireReport(eKind, pstTrigger, pstCur, &stDetail);
    mte_run_AddRequest(pstEvents, pstSuffix, pstCur->szContextName, pszOwner, pszEvent,
                       pstThres->szObjectsOwner, pstThres->szObjects);
}

void mte_run_EvalThreshold(const MTE_OID_S* pstSuffix, MTE_TRIGGER_ENTRY_S* pstTrigger,
                           MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur,
                           MTE_EVENT_LIST_S* pstEvents) {
    int32_t iResult = mte_THRES_CheckByAbsolute(pstTrigger->pstThres, pstPrev, pstCur);
    if (iResult != MTE_CHECK_NONE) {
        mte_run_ThresholdOutcome(iResult, pstSuffix, pstTrigger, pstCur, pstEvents);
    }
    iResult = mte_THRES_CheckByDelta(pstTrigger->pstThres, pstPrev, pstCur);
    if (iResult != MTE_CHECK_NONE) {
        mte_run_ThresholdOutcome(iResult, pstSuffix, pstTrigger, pstCur, pstEvents);
    }
}

void mte_run_DiscontinuityDebug(const MTE_TRIGGER_ENTRY_S* pstTrigger,
                                const MTE_SAMPLE_S* pstSample) {
    MTE_OID_S stOid;
    mte_run_SampleOid(pstSample, &stOid);
    char szOid[OID_TEXT_SIZE];
    MTE_MSG_Oid2Str(&stOid, sizeof(szOid), szOid);
    mte_DBG_Print(MTE_DBG_MNEMONIC_INFO,
                  "Trigger %s-%s: discontinuity at %s (context %s); no delta this sample.",
                  pstTrigger->stRow.szOwner, pstTrigger->stRow.szName, szOid,
                  mte_run_OrNA(pstSample->szContextName));
}

}  // namespace

int32_t mte_run_HotValue(const MTE_SAMPLE_S* pstSample) {
    if (pstSample == nullptr || pstSample->pstValue == nullptr) {
        return 0;
    }
    const SNMP_VALUE_S* pstValue = pstSample->pstValue;
    if (pstValue->uiType > 2 || pstValue->pData == nullptr || pstValue->uiLen < sizeof(int32_t)) {
        return 0;
    }
    int32_t iValue = 0;
    memcpy(&iValue, pstValue->pData, sizeof(iValue));
    return iValue;
}

void mte_run_Evaluate(const MTE_OID_S* pstSuffix, MTE_TRIGGER_ENTRY_S* pstTrigger,
                      MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur, MTE_EVENT_LIST_S* pstEvents) {
    if (mte_run_Discontinuity(pstTrigger, pstPrev, pstCur)) {
        // No delta across the discontinuity and no test on it: the new
        // sample is the base of the next delta, with the alarms as they were.
        pstCur->uiTestState = pstPrev->uiTestState;
        if (mte_DBG_IsEnable(MTE_DBG_INFO) != 0) {
            mte_run_DiscontinuityDebug(pstTrigger, pstCur);
        }
        return;
    }
    uint8_t ucTest = pstTrigger->stRow.ucTest;
    if ((ucTest & MTE_TEST_EXISTENCE) != 0 && pstTrigger->pstExist != nullptr) {
        mte_run_EvalExistence(pstSuffix, pstTrigger, pstPrev, pstCur, pstEvents);
    }
    // A sample without a value can only be tested for existence.
    bool bHasValue = pstCur != nullptr && pstCur->pstValue != nullptr;
    if ((ucTest & MTE_TEST_BOOLEAN) != 0 && pstTrigger->pstBool != nullptr && bHasValue) {
        mte_run_EvalBoolean(pstSuffix, pstTrigger, pstPrev, pstCur, pstEvents);
    }
    if ((ucTest & MTE_TEST_THRESHOLD) != 0 && pstTrigger->pstThres != nullptr && bHasValue) {
        mte_run_EvalThreshold(pstSuffix, pstTrigger, pstPrev, pstCur, pstEvents);
    }
}

void mte_run_ReportFailure(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_OID_S* pstOid,
                           const char* pszContext, int32_t iReason) {
    const MTE_TRIGGER_ROW_S& stRow = pstTrigger->stRow;
    const char* pszCtx = pszContext != nullptr ? pszContext : "";
    mte_SCALAR_TriggerFailuresInc();
    (void)TRAP_SendmteTriggerFailure(stRow.szName, strlen(stRow.szName), stRow.szTargetTag,
                                     strlen(stRow.szTargetTag), pszCtx, strlen(pszCtx),
                                     pstOid->auiOid, pstOid->uiLen, iReason);
    if (mte_DBG_IsEnable(MTE_DBG_INFO) != 0) {
        mte_run_FailureDebug(iReason, pszCtx, &stRow, pstOid, MTE_TEXT_REPORT_TRIGGER_FAILURE,
                             MTE_TEXT_REPORT_TRIGGER_TARGET_TAG);
    }
}

void mte_run_FailureDebug(int32_t iReason, const char* pszContext,
                          const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_OID_S* pstOid,
                          uint32_t uiHeaderText, uint32_t uiTagText) {
    MTE_TEXT_BUF_S stBuf{};
    mte_run_TextAppend(&stBuf, "%s", mte_run_Text(uiHeaderText));
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_TRIGGER_OWNER_NAME),
                       pstTrigger->szOwner, pstTrigger->szName);
    mte_run_TextAppend(&stBuf, mte_run_Text(uiTagText), mte_run_OrNA(pstTrigger->szTargetTag));
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_CONTEXT_NAME),
                       mte_run_OrNA(pszContext));
    char szOid[OID_TEXT_SIZE];
    MTE_MSG_Oid2Str(pstOid, sizeof(szOid), szOid);
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_VALUE_ID), szOid);
    mte_run_TextAppend(&stBuf, mte_DBG_TextFormat(MTE_TEXT_REPORT_FAILED_REASON),
                       mte_Run_Reason2Str(iReason));
    mte_DBG_Print(MTE_DBG_MNEMONIC_INFO, "%s", stBuf.szText);
}

void mte_run_ExEvent(const MTE_TRIGGER_ROW_S* pstTrigger, MTE_FIRED_EVENT_S* pstEvents) {
    MTE_FIRED_EVENT_S* pstNext = nullptr;
    for (MTE_FIRED_EVENT_S* p = pstEvents; p != nullptr; p = p->pstNext) {
        mte_EVENT_Run(pstTrigger, p);
    }
    for (MTE_FIRED_EVENT_S* p = pstEvents; p != nullptr; p = pstNext) {
        pstNext = p->pstNext;
        free(p);
    }
}
