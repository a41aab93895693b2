// Placeholder definitions: replaced by the module's implementation.
#include "mte_scalar.h"

uint32_t mte_SCALAR_Init(void) {
    return {};
}
void mte_SCALAR_Get(MTE_SCALAR_S* pstOut) {}
uint32_t mte_SCALAR_SetSampleMin(uint32_t uiValue) {
    return {};
}
uint32_t mte_SCALAR_SetInstancesMax(uint32_t uiValue) {
    return {};
}
uint32_t mte_SCALAR_GetSampMin(void) {
    return {};
}
uint32_t mte_SCALAR_CurInstanceInc(void) {
    return {};
}
void mte_SCALAR_CurInstanceDec(void) {}
void mte_SCALAR_CurInstanceSub(uint32_t uiCount) {}
void mte_SCALAR_InstanceLacksInc(void) {}
void mte_SCALAR_TriggerFailuresInc(void) {}
void mte_SCALAR_EventFailuresInc(void) {}
uint32_t mte_SCALAR_SampMinRecover(uint32_t uiLen, const void* pData) {
    return {};
}
uint32_t mte_SCALAR_SampInstanceMaxRecover(uint32_t uiLen, const void* pData) {
    return {};
}
uint32_t mte_SCALAR_StatisticDataRecover(uint32_t uiLen, const void* pData) {
    return {};
}
void mte_SCALAR_SaveData(void) {}
void mte_SCALAR_freshStati2DbmCallBack(uint32_t uiEvents, int iFd) {}
