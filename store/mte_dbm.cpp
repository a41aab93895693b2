// Placeholder definitions: replaced by the module's implementation.
#include "mte_dbm.h"

uint32_t mte_DBM_Init(void) { return {}; }
void mte_DBM_Fini(void) {}
uint32_t mte_DBM_InsertSortList(uint32_t uiSelector, const char* pszList, uint32_t uiNameSize, const void* pRecord, uint32_t uiRecordSize, uint32_t uiTableId) { return {}; }
uint32_t mte_DBM_DelFromSortList(uint32_t uiSelector, const char* pszList, uint32_t uiNameSize, const void* pRecord, uint32_t uiRecordSize) { return {}; }
uint32_t mte_DBM_SetBinary(uint32_t uiSelector, const char* pszItem, uint32_t uiNameSize, const void* pData, uint32_t uiSize, uint32_t uiItemId) { return {}; }
int64_t mte_dbm_OpenRun(uint32_t uiMode) { return -1; }
void mte_BIN_SetRecover(uint16_t usFlag) {}
uint16_t mte_BIN_GetRecover(void) { return {}; }
uint32_t mte_DBM_Recover(void) { return {}; }
