#include "engine_helpers.h"

#include <cstdlib>
#include <cstring>

MTE_TRIGGER_ENTRY_S* ENG_NewTrigger(const char* pszName) {
    auto* pstTrigger = static_cast<MTE_TRIGGER_ENTRY_S*>(calloc(1, sizeof(MTE_TRIGGER_ENTRY_S)));
    pstTrigger->llTimerId = -1;
    pstTrigger->uiRunState = MTE_RUN_IDLE;
    pstTrigger->usInstanceReleased = 1;
    pthread_mutex_init(&pstTrigger->stStateLock, nullptr);
    MTE_TRIGGER_ROW_S& stRow = pstTrigger->stRow;
    stRow.uiFrequency = 600;
    stRow.uiSampleType = MTE_SAMPLE_ABSOLUTE;
    stRow.uiValueIDWildcard = MTE_FALSE;
    stRow.uiContextNameWildcard = MTE_FALSE;
    stRow.uiEnabled = MTE_TRUE;
    stRow.uiEntryStatus = MTE_ROW_ACTIVE;
    strcpy(stRow.szOwner, "own");
    strncpy(stRow.szName, pszName, MTE_NAME_SIZE - 1);
    return pstTrigger;
}

void ENG_FreeTrigger(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    pthread_mutex_destroy(&pstTrigger->stStateLock);
    free(pstTrigger);
}

MTE_OID_S ENG_Oid(std::initializer_list<uint32_t> auiSubIds) {
    MTE_OID_S stOid{};
    for (uint32_t uiSub : auiSubIds) {
        stOid.auiOid[stOid.uiLen++] = uiSub;
    }
    return stOid;
}

SNMP_VALUE_S* ENG_IntValue(int32_t iValue, uint32_t uiType) {
    auto* pstValue = static_cast<SNMP_VALUE_S*>(calloc(1, sizeof(SNMP_VALUE_S)));
    pstValue->pData = malloc(sizeof(int32_t));
    memcpy(pstValue->pData, &iValue, sizeof(iValue));
    pstValue->uiLen = sizeof(int32_t);
    pstValue->uiType = uiType;
    return pstValue;
}

MTE_SAMPLE_S* ENG_AppendSample(MTE_SAMPLE_S** ppstHead, MTE_SAMPLE_S** ppstTail,
                               const char* pszContext, const MTE_OID_S& stOid,
                               SNMP_VALUE_S* pstValue, uint16_t usOverLimit) {
    auto* pstSample = static_cast<MTE_SAMPLE_S*>(calloc(1, sizeof(MTE_SAMPLE_S)));
    pstSample->uiOidLen = stOid.uiLen;
    memcpy(pstSample->auiOid, stOid.auiOid, stOid.uiLen * sizeof(uint32_t));
    strncpy(pstSample->szContextName, pszContext, MTE_NAME_SIZE - 1);
    pstSample->uiTestState = MTE_TSTATE_NEW;
    pstSample->pstValue = pstValue;
    pstSample->usOverLimit = usOverLimit;
    if (*ppstTail == nullptr) {
        *ppstHead = pstSample;
    } else {
        (*ppstTail)->pstNext = pstSample;
    }
    *ppstTail = pstSample;
    return pstSample;
}

uint32_t ENG_ListLen(const MTE_SAMPLE_S* pstHead) {
    uint32_t uiLen = 0;
    for (; pstHead != nullptr; pstHead = pstHead->pstNext) {
        ++uiLen;
    }
    return uiLen;
}
