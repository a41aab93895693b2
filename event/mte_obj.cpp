// Placeholder definitions: replaced by the module's implementation.
#include "mte_obj.h"

uint32_t mte_OBJ_Init(void) { return {}; }
void mte_OBJ_Fini(void) {}
uint32_t mte_OBJ_IsEmpty(void) { return {}; }
void mte_OBJ_ListRdLock(void) {}
void mte_OBJ_ListWrLock(void) {}
void mte_OBJ_ListUnLock(void) {}
MTE_OBJ_ROW_S* mte_OBJ_Get(const char* pszOwner, const char* pszName, uint32_t uiIndex) { return nullptr; }
MTE_OBJ_ROW_S* mte_OBJ_GetNext(uint32_t uiOwnerLen, const char* pszOwner, uint32_t uiNameLen, const char* pszName, uint32_t uiIndex) { return nullptr; }
uint32_t mte_OBJ_Set(const MTE_OBJ_ROW_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_OBJ_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
void mte_OBJ_GetObjVBlist(const char (*paszOwnerAndName)[MTE_NAME_SIZE], const MTE_OID_S* pstSuffix, const char* pszContextName, MTE_VB_LIST_S* pstList) {}
void mte_OBJ_FreeVBlist(MTE_VB_LIST_S* pstList) {}
