// Delta row of a trigger (mteTriggerDeltaTable): where the sampler finds the
// discontinuity indicator of a delta trigger's value. The row is made and
// destroyed by the trigger's row changes as its sample type becomes or stops
// being deltaValue; a set changes its columns while the trigger is not
// active. Locking as for the test rows.
#ifndef MTE_DELTA_H
#define MTE_DELTA_H

#include "mte_types.h"

// sysUpTime.0, the default discontinuity object and the overall check.
constexpr uint32_t MTE_DELTA_SYS_UP_TIME[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
constexpr uint32_t MTE_DELTA_SYS_UP_TIME_LEN = 9;

MTE_DELTA_ENTRY_S* mte_DELTA_Create(const char* pszOwner, const char* pszName);
void mte_DELTA_Destroy(MTE_DELTA_ENTRY_S* pstRow);
MTE_DELTA_ENTRY_S* mte_DELTA_Get(const char* pszOwner, const char* pszName);
MTE_DELTA_ENTRY_S* mte_DELTA_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags);
uint32_t mte_DELTA_Set(const MTE_DELTA_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn);
uint32_t mte_DELTA_Recover(uint32_t uiLen, const void* pRecord);
// True when the OID is sysUpTime.0.
bool mte_DELTA_IsSysUpTime(const MTE_OID_S* pstOid);

#endif  // MTE_DELTA_H
