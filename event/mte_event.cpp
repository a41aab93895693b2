// Placeholder definitions: replaced by the module's implementation.
#include "mte_event.h"

uint32_t mte_EVENT_Init(void) { return {}; }
void mte_EVENT_Fini(void) {}
uint32_t mte_EVENT_IsEmpty(void) { return {}; }
void mte_EVENT_ListRdLock(void) {}
void mte_EVENT_ListWrLock(void) {}
void mte_EVENT_ListUnLock(void) {}
MTE_EVENT_ENTRY_S* mte_EVENT_GetEventEntry(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_EVENT_ROW_S* mte_EVENT_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_EVENT_ENTRY_S* mte_EVENT_GetNextEventEntry(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
MTE_EVENT_ROW_S* mte_EVENT_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName) { return nullptr; }
uint32_t mte_EVENT_Set(const MTE_EVENT_ROW_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_EVENT_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
void mte_EVENT_Run(const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_FIRED_EVENT_S* pstFired) {}
