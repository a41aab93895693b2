// Placeholder definitions: replaced by the module's implementation.
#include "mte_thres.h"

MTE_THRES_ENTRY_S* mte_THRES_Create(const char* pszOwner, const char* pszName) { return nullptr; }
void mte_THRES_Destroy(MTE_THRES_ENTRY_S* pstRow) {}
MTE_THRES_ENTRY_S* mte_THRES_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_THRES_ENTRY_S* mte_THRES_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
uint32_t mte_THRES_Set(const MTE_THRES_ENTRY_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_THRES_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
int32_t mte_THRES_CheckByAbsolute(const MTE_THRES_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) { return {}; }
int32_t mte_THRES_CheckByDelta(const MTE_THRES_ENTRY_S* pstRow, const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) { return {}; }
