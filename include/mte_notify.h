// Notification action (mteEventNotificationTable): rows owned by their event,
// guarded by the event list lock, and sending a configured notification.
#ifndef MTE_NOTIFY_H
#define MTE_NOTIFY_H

#include "mte_types.h"

MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Create(const char* pszOwner, const char* pszName);
void mte_NOTIFY_Destroy(MTE_NOTIFY_ENTRY_S* pstRow);
MTE_NOTIFY_ENTRY_S* mte_NOTIFY_Get(const char* pszOwner, const char* pszName);
MTE_NOTIFY_ENTRY_S* mte_NOTIFY_GetNext(uint32_t uiOwnerLen, const char* pszOwner,
                                       const char* pszName, uint8_t* pucFlags);
uint32_t mte_NOTIFY_Set(const MTE_NOTIFY_ENTRY_S* pstRequest, uint32_t uiColumnMask,
                        uint32_t* puiFailedColumn);
uint32_t mte_NOTIFY_Recover(uint32_t uiLen, const void* pRecord);
// Sends the row's notification with the bindings of the three objects groups
// (each a pair owner, name of 33-byte strings), on a copy of the row.
void mte_NOTIFY_SendNotify(const MTE_NOTIFY_ENTRY_S* pstRow,
                           const char (*paszTriggerObjects)[MTE_NAME_SIZE],
                           const char (*paszTestObjects)[MTE_NAME_SIZE],
                           const char (*paszNotifyObjects)[MTE_NAME_SIZE],
                           const MTE_OID_S* pstSuffix, const char* pszContextName);

#endif  // MTE_NOTIFY_H
