// Boolean test (mteTriggerBooleanTable): rows owned by their trigger and the
// comparison check. Locking as for the existence test.
#ifndef MTE_BOOL_H
#define MTE_BOOL_H

#include "mte_types.h"

MTE_BOOL_ENTRY_S* mte_BOOL_Create(const char* pszOwner, const char* pszName);
void mte_BOOL_Destroy(MTE_BOOL_ENTRY_S* pstRow);
MTE_BOOL_ENTRY_S* mte_BOOL_Get(const char* pszOwner, const char* pszName);
MTE_BOOL_ENTRY_S* mte_BOOL_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                   uint8_t* pucFlags);
uint32_t mte_BOOL_Set(const MTE_BOOL_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                      uint32_t* puiFailedColumn);
uint32_t mte_BOOL_Recover(uint32_t uiLen, const void* pRecord);
// MTE_CHECK_BOOLEAN, _NONE or _BADTYPE; clears MTE_TSTATE_BOOLEAN in the
// current sample when the condition holds. The current sample has a value.
int32_t mte_BOOL_Check(const MTE_BOOL_ENTRY_S* pstRow, uint32_t uiSampleType,
                       const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur);

#endif  // MTE_BOOL_H
