// Placeholder definitions: replaced by the module's implementation.
#include "mte_notify.h"

MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Create(const char* pszOwner, const char* pszName) { return nullptr; }
void mte_NOTIFY_Destroy(MTE_NOTIFY_ENTRY_S* pstRow) {}
MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Get(const char* pszOwner, const char* pszName) { return nullptr; }
MTE_NOTIFY_ENTRY_S* mte_NOTIFY_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName, uint8_t* pucFlags) { return nullptr; }
uint32_t mte_NOTIFY_Set(const MTE_NOTIFY_ENTRY_S* pstRequest, uint32_t uiColumnMask, uint32_t* puiFailedColumn) { return {}; }
uint32_t mte_NOTIFY_Recover(uint32_t uiLen, const void* pRecord) { return {}; }
void mte_NOTIFY_SendNotify(const MTE_NOTIFY_ENTRY_S* pstRow, const char (*paszTriggerObjects)[MTE_NAME_SIZE], const char (*paszTestObjects)[MTE_NAME_SIZE], const char (*paszNotifyObjects)[MTE_NAME_SIZE], const MTE_OID_S* pstSuffix, const char* pszContextName) {}
