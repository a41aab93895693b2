// Event table (mteEventTable) and running an event. One process-wide
// read-write lock guards the list and the events' notification and set rows.
#ifndef MTE_EVENT_H
#define MTE_EVENT_H

#include "mte_types.h"

struct MTE_EVENT_ENTRY_S {
    MTE_EVENT_ENTRY_S* pstNext;
    MTE_SET_ENTRY_S* pstSet;        // present exactly when ucActions has the set bit
    MTE_NOTIFY_ENTRY_S* pstNotify;  // present exactly when ucActions has the notification bit
    MTE_EVENT_ROW_S stRow;
    uint32_t uiOwnerLen;  // strlen of stRow.szOwner, set when the entry is linked
};

uint32_t mte_EVENT_Init(void);
void mte_EVENT_Fini(void);
uint32_t mte_EVENT_IsEmpty(void);
void mte_EVENT_ListRdLock(void);
void mte_EVENT_ListWrLock(void);
void mte_EVENT_ListUnLock(void);

MTE_EVENT_ENTRY_S* mte_EVENT_GetEventEntry(const char* pszOwner, const char* pszName);
MTE_EVENT_ROW_S* mte_EVENT_Get(const char* pszOwner, const char* pszName);
MTE_EVENT_ENTRY_S* mte_EVENT_GetNextEventEntry(uint32_t uiOwnerLen, const char* pszOwner,
                                               const char* pszName, uint8_t* pucFlags);
MTE_EVENT_ROW_S* mte_EVENT_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName);
// Caller holds the write lock.
uint32_t mte_EVENT_Set(const MTE_EVENT_ROW_S* pstRequest, uint32_t uiColumnMask,
                       uint32_t* puiFailedColumn);
// Takes the write lock itself.
uint32_t mte_EVENT_Recover(uint32_t uiLen, const void* pRecord);
// Runs the event named by the fired-event record (worker thread).
void mte_EVENT_Run(const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_FIRED_EVENT_S* pstFired);

#endif  // MTE_EVENT_H
