// Delta rows: the discontinuity object of a delta trigger, its wildcard and
// its type. The rows follow the test rows' skeleton (owned by the trigger,
// their own store list, read-only while the trigger is active); unlike a test
// row, a delta row exists because of the trigger's sample type, not its test
// bits.
#include "mte_delta.h"

#include "mte_msg.h"
#include "mte_test_table.h"
#include "mte_trigger_priv.h"

namespace {

void Defaults(MTE_DELTA_ENTRY_S* pstRow) {
    pstRow->stDiscontinuityID.uiLen = MTE_DELTA_SYS_UP_TIME_LEN;
    memcpy(pstRow->stDiscontinuityID.auiOid, MTE_DELTA_SYS_UP_TIME, sizeof(MTE_DELTA_SYS_UP_TIME));
    pstRow->uiDiscontinuityIDWildcard = MTE_FALSE;
    pstRow->uiDiscontinuityIDType = MTE_DELTA_TIME_TICKS;
}

bool IsTruthValue(uint32_t uiValue) {
    return uiValue == MTE_TRUE || uiValue == MTE_FALSE;
}

// Unlike the test tables, every column has a closed set of values: a value
// outside it would leave the sampler guessing, so it is refused.
uint32_t Validate(const MTE_DELTA_ENTRY_S* pstReq, uint32_t uiMask,
                  const MTE_DELTA_ENTRY_S* pstRow) {
    if (mte_test_InMask(uiMask, MTE_DELTA_COL_DISCONTINUITY_ID) &&
        (pstReq->stDiscontinuityID.uiLen == 0 ||
         pstReq->stDiscontinuityID.uiLen > MTE_OID_MAX_LEN)) {
        return MTE_DELTA_COL_DISCONTINUITY_ID;
    }
    uint32_t uiWildcard = pstRow->uiDiscontinuityIDWildcard;
    if (mte_test_InMask(uiMask, MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD)) {
        if (!IsTruthValue(pstReq->uiDiscontinuityIDWildcard)) {
            return MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD;
        }
        uiWildcard = pstReq->uiDiscontinuityIDWildcard;
    }
    // A per-instance discontinuity object needs instances: the trigger's
    // value identifier must be wildcarded.
    const MTE_TRIGGER_ENTRY_S* pstTrigger =
        mte_TRIGGER_GetTriggerEntry(pstReq->szOwner, pstReq->szName);
    if (uiWildcard == MTE_TRUE &&
        (pstTrigger == nullptr || pstTrigger->stRow.uiValueIDWildcard != MTE_TRUE)) {
        return MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD;
    }
    if (mte_test_InMask(uiMask, MTE_DELTA_COL_DISCONTINUITY_ID_TYPE) &&
        (pstReq->uiDiscontinuityIDType < MTE_DELTA_TIME_TICKS ||
         pstReq->uiDiscontinuityIDType > MTE_DELTA_DATE_AND_TIME)) {
        return MTE_DELTA_COL_DISCONTINUITY_ID_TYPE;
    }
    return 0;
}

constexpr MTE_TEST_TABLE_S<MTE_DELTA_ENTRY_S> kTable = {
    &MTE_TRIGGER_ENTRY_S::pstDelta,
    "Delta",
    MTE_CAT_DELTA,
    Defaults,
    Validate,
    true,  // a stored row whose trigger is not a delta trigger is stale
};

}  // namespace

MTE_DELTA_ENTRY_S* mte_DELTA_Create(const char* pszOwner, const char* pszName) {
    return mte_test_Create(kTable, pszOwner, pszName);
}

void mte_DELTA_Destroy(MTE_DELTA_ENTRY_S* pstRow) {
    mte_test_Destroy(kTable, pstRow);
}

MTE_DELTA_ENTRY_S* mte_DELTA_Get(const char* pszOwner, const char* pszName) {
    return mte_test_Get(kTable, pszOwner, pszName);
}

MTE_DELTA_ENTRY_S* mte_DELTA_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags) {
    return mte_test_GetNext(kTable, uiOwnerLen, pszOwner, pszName, pucFlags);
}

uint32_t mte_DELTA_Set(const MTE_DELTA_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn) {
    return mte_test_Set(kTable, pstRequest, uiColumnMask, puiFailedColumn);
}

uint32_t mte_DELTA_Recover(uint32_t uiLen, const void* pRecord) {
    return mte_test_Recover(kTable, uiLen, pRecord);
}

bool mte_DELTA_IsSysUpTime(const MTE_OID_S* pstOid) {
    return pstOid->uiLen == MTE_DELTA_SYS_UP_TIME_LEN &&
           memcmp(pstOid->auiOid, MTE_DELTA_SYS_UP_TIME, sizeof(MTE_DELTA_SYS_UP_TIME)) == 0;
}
