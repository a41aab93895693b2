// Placeholder definitions: replaced by the module's implementation.
#include "plat_dbm.h"

int64_t MTE_DBM_OpenCfg(uint32_t uiMode) { return -1; }
uint32_t MTE_DBM_Close(int64_t llHandle) { return {}; }
uint32_t DBM_Open(const char* pszName, const char* pszDesc, uint32_t uiMode, const DBM_OPEN_OPT_S* pstOpt, int64_t* pllHandle) { return {}; }
uint32_t DBM_CreateSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize, const DBM_KEY_S* pstKeys, uint32_t uiKeyCount, uint32_t uiTableId) { return {}; }
uint32_t DBM_InsertSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize, uint32_t uiRecordSize, const void* pRecord, uint32_t uiTableId) { return {}; }
uint32_t DBM_RemoveSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize, uint32_t uiRecordSize, const void* pRecord) { return {}; }
uint32_t DBM_SetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize, uint32_t uiOffset, uint32_t uiSize, const void* pData, uint32_t uiItemId) { return {}; }
int32_t DBM_GetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize, uint32_t uiOffset, uint32_t uiSize, void* pBuf) { return {}; }
uint32_t DBM_Batch_Proc(int64_t llHandle, int64_t llFlag, const DBM_BATCH_ROW_S* pstRows, uint32_t uiCount) { return {}; }
int32_t DBM_BatchGetNextSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize, DBM_ITERATOR* pIterator, uint32_t uiArg5, uint32_t uiArg6, uint32_t uiRecordSize, uint32_t uiCount, void* pBuf) { return {}; }
void DBM_FreeIterator(DBM_ITERATOR* pIterator) {}
