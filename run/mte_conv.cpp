// Placeholder definitions: replaced by the module's implementation.
#include "mte_conv.h"

uint32_t mte_RUN_ConvertVType(uint32_t uiTypeCode) {
    return {};
}
uint32_t mte_RUN_AbsoluteVal(uint32_t uiKind, const void* pValue, int32_t* piOut) {
    return {};
}
uint32_t mte_RUN_DeltaVal(uint32_t uiKind, const void* pNew, const void* pOld, int32_t* piOut) {
    return {};
}
int32_t mte_RUN_convertErrCodeMor2Mte(uint32_t uiCode) {
    return {};
}
const char* mte_Run_Reason2Str(int32_t iReason) {
    return nullptr;
}
