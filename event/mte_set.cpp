// Placeholder definitions: replaced by the module's implementation.
#include "mte_set.h"

MTE_SET_ENTRY_S* mte_SET_Create(const char* pszOwner, const char* pszName) { return nullptr; }
void mte_SET_Destroy(MTE_SET_ENTRY_S* pstRow) {}
MTE_SET_ENTRY_S* mte_SET_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_SET_ENTRY_S* mte_SET_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
uint32_t mte_SET_Set(const MTE_SET_ENTRY_S* pstRequest, uint32_t uiColumnMask) { return {}; }
uint32_t mte_SET_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
uint32_t mte_SET_SetValueByOID(const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_SET_ENTRY_S* pstRow, const MTE_OID_S* pstSuffix, const char* pszContextName) { return {}; }
