// Set action (mteEventSetTable): rows owned by their event, guarded by the
// event list lock, and setting an integer object through the agent.
#ifndef MTE_SET_H
#define MTE_SET_H

#include "mte_types.h"

MTE_SET_ENTRY_S* mte_SET_Create(const char* pszOwner, const char* pszName);
void mte_SET_Destroy(MTE_SET_ENTRY_S* pstRow);
MTE_SET_ENTRY_S* mte_SET_Get(const char* pszOwner, const char* pszName);
MTE_SET_ENTRY_S* mte_SET_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                 uint8_t* pucFlags);
uint32_t mte_SET_Set(const MTE_SET_ENTRY_S* pstRequest, uint32_t uiColumnMask);
uint32_t mte_SET_Recover(uint32_t uiLen, const void* pRecord);
// Performs the set on copies of the trigger row and the set row; 0 on success
// or when nothing is configured, else the failure code.
uint32_t mte_SET_SetValueByOID(const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_SET_ENTRY_S* pstRow,
                               const MTE_OID_S* pstSuffix, const char* pszContextName);

#endif  // MTE_SET_H
