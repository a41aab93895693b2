// Existence test (mteTriggerExistenceTable): rows owned by their trigger and
// the present/absent/changed check. Set and recover run on the main thread
// under the trigger's state lock; the check runs on the worker under it.
#ifndef MTE_EXIST_H
#define MTE_EXIST_H

#include "mte_types.h"

MTE_EXIST_ENTRY_S* mte_EXIST_Create(const char* pszOwner, const char* pszName);
void mte_EXIST_Destroy(MTE_EXIST_ENTRY_S* pstRow);
MTE_EXIST_ENTRY_S* mte_EXIST_Get(const char* pszOwner, const char* pszName);
MTE_EXIST_ENTRY_S* mte_EXIST_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                     uint8_t* pucFlags);
uint32_t mte_EXIST_Set(const MTE_EXIST_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn);
uint32_t mte_EXIST_Recover(uint32_t uiLen, const void* pRecord);
// MTE_CHECK_PRESENT, _ABSENT, _CHANGED or _NONE for one instance's samples.
int32_t mte_EXIST_Check(const MTE_EXIST_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev,
                        const MTE_SAMPLE_S* pstCur);

#endif  // MTE_EXIST_H
