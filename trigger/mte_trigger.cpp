// Placeholder definitions: replaced by the module's implementation.
#include "mte_trigger.h"

uint32_t mte_TRIGGER_Init(void) { return {}; }
void mte_TRIGGER_Fini(void) {}
uint32_t mte_TRIGGER_IsEmpty(void) { return {}; }
int mte_TRIGGER_StateLock(pthread_mutex_t* pstLock) { return -1; }
int mte_TRIGGER_StateUnLock(pthread_mutex_t* pstLock) { return -1; }
MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetTriggerEntry(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_TRIGGER_ROW_S* mte_TRIGGER_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetNextTriggerEntry(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
MTE_TRIGGER_ROW_S* mte_TRIGGER_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName) { return nullptr; }
void mte_TRIGGER_FreeNode(MTE_TRIGGER_ENTRY_S* pstEntry) {}
void mte_TRIGGER_StartAll(void) {}
void mte_TRIGGER_SuspendTmr(void) {}
void mte_TRIGGER_ClearAllSpl(void) {}
uint32_t mte_TRIGGER_Set(const MTE_TRIGGER_ROW_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_TRIGGER_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
int mte_TRIGGER_CompareKey(uint32_t uiOwnerLenA, const char* pszOwnerA, const char* pszNameA, uint32_t uiOwnerLenB, const char* pszOwnerB, const char* pszNameB) { return -1; }
