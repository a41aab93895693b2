// Value and reason conversions shared by the tests, the evaluation and the
// set action. Pure; any thread.
#ifndef MTE_CONV_H
#define MTE_CONV_H

#include <cstdint>

enum : uint32_t {
    MTE_VKIND_UNSIGNED32 = 1,
    MTE_VKIND_SIGNED32 = 2,
    MTE_VKIND_UNSIGNED64 = 3,
    MTE_VKIND_NONE = 255,
};

// RFC 2981 FailureReason values of the daemon's own.
enum : int32_t {
    MTE_REASON_SAMPLE_OVERRUN = -6,
    MTE_REASON_BAD_TYPE = -5,
    MTE_REASON_NO_RESPONSE = -4,
    MTE_REASON_DESTINATION_UNREACHABLE = -3,
    MTE_REASON_BAD_DESTINATION = -2,
    MTE_REASON_LOCAL_RESOURCE_LACK = -1,
    MTE_REASON_NO_ERROR = 0,
    MTE_REASON_GEN_ERR = 5,
    MTE_REASON_WRONG_TYPE = 7,
    MTE_REASON_NO_CREATION = 11,
};

uint32_t mte_RUN_ConvertVType(uint32_t uiTypeCode);
// 0 and *piOut written, or 1 when the value does not fit a signed 32-bit number.
uint32_t mte_RUN_AbsoluteVal(uint32_t uiKind, const void* pValue, int32_t* piOut);
// 0 and *piOut written; 1 too large; 2 too small (signed kind only).
uint32_t mte_RUN_DeltaVal(uint32_t uiKind, const void* pNew, const void* pOld, int32_t* piOut);
int32_t mte_RUN_convertErrCodeMor2Mte(uint32_t uiCode);
// Name of a reason -6..18; "unknown" for any other value.
const char* mte_Run_Reason2Str(int32_t iReason);

#endif  // MTE_CONV_H
