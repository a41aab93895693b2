// Placeholder definitions: replaced by the module's implementation.
#include "mte_bool.h"

MTE_BOOL_ENTRY_S* mte_BOOL_Create(const char* pszOwner, const char* pszName) { return nullptr; }
void mte_BOOL_Destroy(MTE_BOOL_ENTRY_S* pstRow) {}
MTE_BOOL_ENTRY_S* mte_BOOL_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_BOOL_ENTRY_S* mte_BOOL_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
uint32_t mte_BOOL_Set(const MTE_BOOL_ENTRY_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_BOOL_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
int32_t mte_BOOL_Check(const MTE_BOOL_ENTRY_S* pstRow, uint32_t uiSampleType, const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) { return {}; }
