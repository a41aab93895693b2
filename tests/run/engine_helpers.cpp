#include "engine_helpers.h"

#include <cstdlib>
#include <cstring>

#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_trigger.h"

// Channel-private writer of the trap flag (channel/mte_tarn_priv.h).
void mte_tarn_SetTrapFlag(uint16_t usFlag);

void ENG_SetTrapSwitch(uint16_t usOn) {
    mte_tarn_SetTrapFlag(usOn);
}

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

uint32_t ENG_ListLen(const MTE_SAMPLE_S* pstHead) {
    uint32_t uiLen = 0;
    for (; pstHead != nullptr; pstHead = pstHead->pstNext) {
        ++uiLen;
    }
    return uiLen;
}

namespace {
// Names event own/<name> (none when empty).
void SetEvent(char* pszOwner, char* pszEvent, const char* pszName) {
    if (pszName[0] != '\0') {
        strcpy(pszOwner, "own");
        strncpy(pszEvent, pszName, MTE_NAME_SIZE - 1);
    }
}

// A zeroed test row of the trigger's index, linked to it with its test bit set.
template <typename ROW>
ROW* NewRow(MTE_TRIGGER_ENTRY_S* pstTrigger, ROW*& pstLink, uint8_t ucTestBit) {
    auto* pstRow = static_cast<ROW*>(calloc(1, sizeof(ROW)));
    strcpy(pstRow->szOwner, pstTrigger->stRow.szOwner);
    strcpy(pstRow->szName, pstTrigger->stRow.szName);
    pstLink = pstRow;
    pstTrigger->stRow.ucTest |= ucTestBit;
    return pstRow;
}
}  // namespace

MTE_EXIST_ENTRY_S* ENG_AddExistence(MTE_TRIGGER_ENTRY_S* pstTrigger, const char* pszEvent,
                                    uint8_t ucTest, uint8_t ucStartup) {
    auto* pstRow = NewRow(pstTrigger, pstTrigger->pstExist, MTE_TEST_EXISTENCE);
    SetEvent(pstRow->szEventOwner, pstRow->szEvent, pszEvent);
    pstRow->ucTest = ucTest;
    pstRow->ucStartup = ucStartup;
    pstRow->usFirstCycle = 1;
    return pstRow;
}

MTE_BOOL_ENTRY_S* ENG_AddBoolean(MTE_TRIGGER_ENTRY_S* pstTrigger, uint32_t uiComparison,
                                 int32_t iValue, const char* pszEvent) {
    auto* pstRow = NewRow(pstTrigger, pstTrigger->pstBool, MTE_TEST_BOOLEAN);
    SetEvent(pstRow->szEventOwner, pstRow->szEvent, pszEvent);
    pstRow->uiComparison = uiComparison;
    pstRow->iValue = iValue;
    pstRow->uiStartup = MTE_TRUE;
    return pstRow;
}

MTE_THRES_ENTRY_S* ENG_AddThreshold(MTE_TRIGGER_ENTRY_S* pstTrigger, uint32_t uiStartup,
                                    int32_t iRising, int32_t iFalling, int32_t iDeltaRising,
                                    int32_t iDeltaFalling) {
    auto* pstRow = NewRow(pstTrigger, pstTrigger->pstThres, MTE_TEST_THRESHOLD);
    pstRow->uiStartup = uiStartup;
    pstRow->iRising = iRising;
    pstRow->iFalling = iFalling;
    pstRow->iDeltaRising = iDeltaRising;
    pstRow->iDeltaFalling = iDeltaFalling;
    SetEvent(pstRow->szRisingEventOwner, pstRow->szRisingEvent, "evRising");
    SetEvent(pstRow->szFallingEventOwner, pstRow->szFallingEvent, "evFalling");
    SetEvent(pstRow->szDeltaRisingEventOwner, pstRow->szDeltaRisingEvent, "evDeltaRising");
    SetEvent(pstRow->szDeltaFallingEventOwner, pstRow->szDeltaFallingEvent, "evDeltaFalling");
    return pstRow;
}

MTE_DELTA_ENTRY_S* ENG_AddDelta(MTE_TRIGGER_ENTRY_S* pstTrigger, const FAKE_OID& astDiscId,
                                bool bWildcard, uint32_t uiType) {
    auto* pstRow = NewRow(pstTrigger, pstTrigger->pstDelta, 0);
    pstRow->stDiscontinuityID = FAKE_SNMP_MakeOid(astDiscId);
    pstRow->uiDiscontinuityIDWildcard = bWildcard ? MTE_TRUE : MTE_FALSE;
    pstRow->uiDiscontinuityIDType = uiType;
    pstTrigger->stRow.uiSampleType = MTE_SAMPLE_DELTA;
    return pstRow;
}

uint32_t ENG_Queue(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    uint32_t uiResult = mte_RUN_Sample4AtOnce(pstTrigger);
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return uiResult;
}

uint32_t ENG_PumpAll(void) {
    return mte_run_PumpQueue(1000);
}

MTE_SCALAR_S ENG_Scalars(void) {
    MTE_SCALAR_S stScalars{};
    mte_SCALAR_Get(&stScalars);
    return stScalars;
}

uint32_t ENG_Instances(void) {
    return ENG_Scalars().uiSampleInstances;
}
