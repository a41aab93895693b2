// Module-private helpers of the boolean and threshold checks: the numeric
// kind of a sampled value, refusing values too short for their kind. Worker
// thread, under the trigger's state lock held by the caller.
#ifndef MTE_TEST_VALUE_H
#define MTE_TEST_VALUE_H

#include "mte_conv.h"
#include "mte_dbg.h"
#include "mte_types.h"

// Numeric kind of the value, or MTE_VKIND_NONE when it is not a number or its
// bytes are too few to be read as one (a damaged value is not numeric).
inline uint32_t mte_test_ValueKind(const SNMP_VALUE_S* pstValue) {
    uint32_t uiKind = mte_RUN_ConvertVType(pstValue->uiType);
    if (uiKind == MTE_VKIND_NONE || pstValue->pData == nullptr) {
        return MTE_VKIND_NONE;
    }
    uint32_t uiNeeded = uiKind == MTE_VKIND_UNSIGNED64 ? 8 : 4;
    return pstValue->uiLen >= uiNeeded ? uiKind : MTE_VKIND_NONE;
}

// A delta needs a previous value whose bytes can be read as the current
// value's kind (the agent may change an object's type between cycles).
inline bool mte_test_HasComparable(const MTE_SAMPLE_S* pstPrev, uint32_t uiKind) {
    if (pstPrev == nullptr || pstPrev->pstValue == nullptr || pstPrev->pstValue->pData == nullptr) {
        return false;
    }
    return pstPrev->pstValue->uiLen >= (uiKind == MTE_VKIND_UNSIGNED64 ? 8u : 4u);
}

inline bool mte_test_HasValue(const MTE_SAMPLE_S* pstSample) {
    return pstSample != nullptr && pstSample->pstValue != nullptr;
}

inline void mte_test_WarnNotNumeric() {
    if (mte_DBG_IsEnable(MTE_DBG_WARNING)) {
        mte_DBG_Print(MTE_DBG_MNEMONIC_WARNING, "%s",
                      mte_DBG_TextFormat(MTE_TEXT_SAMPLE_NOT_NUMERIC));
    }
}

#endif  // MTE_TEST_VALUE_H
