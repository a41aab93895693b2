// Threshold test (mteTriggerThresholdTable): rows owned by their trigger, the
// ordering rules of a set, and the absolute and delta checks with hysteresis
// kept in the samples. Locking as for the existence test.
#ifndef MTE_THRES_H
#define MTE_THRES_H

#include "mte_types.h"

MTE_THRES_ENTRY_S* mte_THRES_Create(const char* pszOwner, const char* pszName);
void mte_THRES_Destroy(MTE_THRES_ENTRY_S* pstRow);
MTE_THRES_ENTRY_S* mte_THRES_Get(const char* pszOwner, const char* pszName);
MTE_THRES_ENTRY_S* mte_THRES_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags);
uint32_t mte_THRES_Set(const MTE_THRES_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn);
uint32_t mte_THRES_Recover(uint32_t uiLen, const void* pRecord);
// MTE_CHECK_RISING, _FALLING, _NONE or _BADTYPE.
int32_t mte_THRES_CheckByAbsolute(const MTE_THRES_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev,
                                  MTE_SAMPLE_S* pstCur);
// MTE_CHECK_DELTA_RISING, _DELTA_FALLING, _NONE or _BADTYPE.
int32_t mte_THRES_CheckByDelta(const MTE_THRES_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev,
                               MTE_SAMPLE_S* pstCur);

#endif  // MTE_THRES_H
