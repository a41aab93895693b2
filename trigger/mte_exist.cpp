// Placeholder definitions: replaced by the module's implementation.
#include "mte_exist.h"

MTE_EXIST_ENTRY_S* mte_EXIST_Create(const char* pszOwner, const char* pszName) { return nullptr; }
void mte_EXIST_Destroy(MTE_EXIST_ENTRY_S* pstRow) {}
MTE_EXIST_ENTRY_S* mte_EXIST_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_EXIST_ENTRY_S* mte_EXIST_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
uint32_t mte_EXIST_Set(const MTE_EXIST_ENTRY_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_EXIST_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
int32_t mte_EXIST_Check(const MTE_EXIST_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev, const MTE_SAMPLE_S* pstCur) { return {}; }
