// Placeholder definitions: replaced by the module's implementation.
#include "mte_tarn.h"

uint32_t mte_TARN_Init(void) {
    return {};
}
void mte_TARN_Fini(void) {}
uint32_t mte_SNMP_RegService(void) {
    return {};
}
uint32_t mte_GetTarnSocketNum(void) {
    return {};
}
uint16_t mte_TARN_TrapSwt(void) {
    return {};
}
void mte_tarn_TrapSwtLock(void) {}
void mte_tarn_TrapSwtUnLock(void) {}
