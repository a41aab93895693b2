// Discontinuity check of delta triggers. A delta computed across an agent
// restart or a counter reset is meaningless and would fire the delta tests
// falsely, so every sample of a trigger with a delta row carries the agent's
// sysUpTime.0 and the value of the row's discontinuity object, read in the
// same request as the sample where the sampler can. A pair whose sysUpTime
// went down, or whose discontinuity object went down (timeTicks) or changed
// (timeStamp, dateAndTime), is not evaluated: the new sample is only the base
// of the next delta.
//
// Thread: the worker. The snapshot and the check run under the trigger's
// state lock held by the caller; the reads run without any lock.
#include <cstring>
#include <initializer_list>

#include "mte_dbg.h"
#include "mte_delta.h"
#include "mte_msg.h"
#include "mte_run_int.h"
#include "plat_snmp.h"

namespace {

void CopyIndicator(const SNMP_VALUE_S* pstValue, MTE_DISC_S* pstDisc) {
    if (pstValue == nullptr || pstValue->pData == nullptr) {
        return;
    }
    pstDisc->uiLen =
        pstValue->uiLen < sizeof(pstDisc->aucValue) ? pstValue->uiLen : sizeof(pstDisc->aucValue);
    memcpy(pstDisc->aucValue, pstValue->pData, pstDisc->uiLen);
}

uint32_t UpTimeOf(const SNMP_VALUE_S* pstValue) {
    uint32_t uiUpTime = 0;
    if (pstValue != nullptr && pstValue->pData != nullptr && pstValue->uiLen >= sizeof(uiUpTime)) {
        memcpy(&uiUpTime, pstValue->pData, sizeof(uiUpTime));
    }
    return uiUpTime;
}

// The discontinuity object of an instance: the row's OID, followed by the
// instance's suffix beyond the value identifier when the row is wildcarded.
void DiscOid(const MTE_RUN_CFG_S* pstCfg, const MTE_OID_S* pstInstance, MTE_OID_S* pstOut) {
    *pstOut = pstCfg->stDiscID;
    const MTE_OID_S& stBase = pstCfg->stValueID;
    if (!pstCfg->bDiscWildcard || pstInstance == nullptr || pstInstance->uiLen <= stBase.uiLen ||
        memcmp(pstInstance->auiOid, stBase.auiOid, stBase.uiLen * sizeof(uint32_t)) != 0) {
        return;
    }
    for (uint32_t i = stBase.uiLen; i < pstInstance->uiLen && pstOut->uiLen < MTE_OID_MAX_LEN;
         ++i) {
        pstOut->auiOid[pstOut->uiLen++] = pstInstance->auiOid[i];
    }
}

bool Changed(const MTE_DISC_S& stPrev, const MTE_DISC_S& stCur) {
    return stPrev.uiLen != stCur.uiLen || memcmp(stPrev.aucValue, stCur.aucValue, stCur.uiLen) != 0;
}

bool TimeTicksWentDown(const MTE_DISC_S& stPrev, const MTE_DISC_S& stCur) {
    if (stPrev.uiLen != sizeof(uint32_t) || stCur.uiLen != sizeof(uint32_t)) {
        return Changed(stPrev, stCur);  // not TimeTicks after all: any change counts
    }
    uint32_t uiPrev = 0;
    uint32_t uiCur = 0;
    memcpy(&uiPrev, stPrev.aucValue, sizeof(uiPrev));
    memcpy(&uiCur, stCur.aucValue, sizeof(uiCur));
    return uiCur < uiPrev;
}

void SampleDisc(const MTE_SAMPLE_S* pstSample, MTE_DISC_S* pstDisc) {
    pstDisc->bRead = pstSample->usDiscRead == 1;
    pstDisc->uiUpTime = pstSample->uiUpTime;
    pstDisc->uiLen = pstSample->uiDiscLen;
    memcpy(pstDisc->aucValue, pstSample->aucDisc, sizeof(pstDisc->aucValue));
}

}  // namespace

void mte_run_DeltaSnapshot(const MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_RUN_CFG_S* pstCfg) {
    const MTE_DELTA_ENTRY_S* pstDelta = pstTrigger->pstDelta;
    pstCfg->bDelta = pstDelta != nullptr && pstTrigger->stRow.uiSampleType == MTE_SAMPLE_DELTA;
    if (!pstCfg->bDelta) {
        return;
    }
    pstCfg->stDiscID = pstDelta->stDiscontinuityID;
    if (pstCfg->stDiscID.uiLen == 0 || pstCfg->stDiscID.uiLen > MTE_OID_MAX_LEN) {
        pstCfg->stDiscID.uiLen = MTE_DELTA_SYS_UP_TIME_LEN;
        memcpy(pstCfg->stDiscID.auiOid, MTE_DELTA_SYS_UP_TIME, sizeof(MTE_DELTA_SYS_UP_TIME));
    }
    pstCfg->bDiscWildcard = pstDelta->uiDiscontinuityIDWildcard == MTE_TRUE;
    pstCfg->bDiscIsUpTime = !pstCfg->bDiscWildcard && mte_DELTA_IsSysUpTime(&pstCfg->stDiscID);
}

SNMP_VALUE_S* mte_run_ReadWithDisc(const MTE_RUN_CFG_S* pstCfg, const char* pszContext,
                                   const MTE_OID_S* pstValueOid, const MTE_OID_S* pstInstance,
                                   uint32_t* puiValueStatus, MTE_DISC_READ_S* pstRead) {
    MTE_OID_S astOids[3];
    uint32_t uiCount = 0;
    if (pstValueOid != nullptr) {
        astOids[uiCount++] = *pstValueOid;
    }
    const uint32_t uiUpTimeAt = uiCount;
    astOids[uiCount].uiLen = MTE_DELTA_SYS_UP_TIME_LEN;
    memcpy(astOids[uiCount++].auiOid, MTE_DELTA_SYS_UP_TIME, sizeof(MTE_DELTA_SYS_UP_TIME));
    uint32_t uiDiscAt = uiUpTimeAt;
    if (!pstCfg->bDiscIsUpTime) {
        uiDiscAt = uiCount;
        DiscOid(pstCfg, pstInstance, &astOids[uiCount++]);
    }
    SNMP_VALUE_S* apstValues[3] = {};
    uint32_t auiStatus[3] = {};
    SNMP_GetInstanceValues(pstCfg->szOwner, pszContext, uiCount, astOids, apstValues, auiStatus);

    memset(pstRead, 0, sizeof(*pstRead));
    for (uint32_t uiAt : {uiUpTimeAt, uiDiscAt}) {
        if (auiStatus[uiAt] != SNMP_ST_OK && pstRead->uiStatus == SNMP_ST_OK) {
            pstRead->uiStatus = auiStatus[uiAt];
            pstRead->stFailedOid = astOids[uiAt];
        }
    }
    if (pstRead->uiStatus == SNMP_ST_OK) {
        pstRead->stDisc.bRead = true;
        pstRead->stDisc.uiUpTime = UpTimeOf(apstValues[uiUpTimeAt]);
        CopyIndicator(apstValues[uiDiscAt], &pstRead->stDisc);
    }
    for (uint32_t i = uiUpTimeAt; i < uiCount; ++i) {
        mte_run_FreeValue(apstValues[i]);
    }
    if (pstValueOid == nullptr) {
        return nullptr;
    }
    if (puiValueStatus != nullptr) {
        *puiValueStatus = auiStatus[0];
    }
    return apstValues[0];
}

void mte_run_SetDisc(MTE_SAMPLE_S* pstSample, const MTE_DISC_READ_S* pstRead) {
    if (pstSample == nullptr || pstRead == nullptr || !pstRead->stDisc.bRead) {
        return;
    }
    pstSample->usDiscRead = 1;
    pstSample->uiUpTime = pstRead->stDisc.uiUpTime;
    pstSample->uiDiscLen = pstRead->stDisc.uiLen;
    memcpy(pstSample->aucDisc, pstRead->stDisc.aucValue, sizeof(pstSample->aucDisc));
}

bool mte_run_Discontinuity(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_SAMPLE_S* pstPrev,
                           const MTE_SAMPLE_S* pstCur) {
    const MTE_DELTA_ENTRY_S* pstDelta = pstTrigger->pstDelta;
    if (pstDelta == nullptr || pstPrev == nullptr || pstCur == nullptr) {
        return false;
    }
    MTE_DISC_S stPrev;
    MTE_DISC_S stCur;
    SampleDisc(pstPrev, &stPrev);
    SampleDisc(pstCur, &stCur);
    if (!stPrev.bRead || !stCur.bRead) {
        return false;
    }
    // The agent restarted: every counter it serves may have started afresh.
    if (stCur.uiUpTime < stPrev.uiUpTime) {
        return true;
    }
    if (pstDelta->uiDiscontinuityIDType == MTE_DELTA_TIME_TICKS) {
        return TimeTicksWentDown(stPrev, stCur);
    }
    return Changed(stPrev, stCur);
}
