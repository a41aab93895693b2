// Trigger table: entries in index order, lookups, the state lock, and the row
// changes of set requests and recovery. The list is main-thread only; the
// worker reaches an entry only through its queued address and its state lock.
#ifndef MTE_TRIGGER_H
#define MTE_TRIGGER_H

#include "mte_lock_guard.h"
#include "mte_types.h"

uint32_t mte_TRIGGER_Init(void);
// Releases every entry (timers, samples, test rows); the store is untouched.
void mte_TRIGGER_Fini(void);
uint32_t mte_TRIGGER_IsEmpty(void);

int mte_TRIGGER_StateLock(pthread_mutex_t* pstLock);
int mte_TRIGGER_StateUnLock(pthread_mutex_t* pstLock);
// Holds the entry's state lock to the end of the caller's scope.
inline MTE_LOCK_GUARD mte_TRIGGER_StateGuard(MTE_TRIGGER_ENTRY_S* pstEntry) {
    return MTE_LOCK_GUARD(mte_TRIGGER_StateLock, mte_TRIGGER_StateUnLock, &pstEntry->stStateLock);
}

MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetTriggerEntry(const char* pszOwner, const char* pszName);
MTE_TRIGGER_ROW_S* mte_TRIGGER_Get(const char* pszOwner, const char* pszName);
// First entry after the key in index order; ORs the presence flags of the
// entries at or before the key into *pucFlags (none when it is null).
MTE_TRIGGER_ENTRY_S* mte_TRIGGER_GetNextTriggerEntry(uint32_t uiOwnerLen, const char* pszOwner,
                                                     const char* pszName, uint8_t* pucFlags);
MTE_TRIGGER_ROW_S* mte_TRIGGER_GetNext(uint32_t uiOwnerLen, const char* pszOwner,
                                       const char* pszName);
// Frees the entry's test rows and the entry (not its samples or timer).
void mte_TRIGGER_FreeNode(MTE_TRIGGER_ENTRY_S* pstEntry);

// Port service up: enables, refreshes and samples every active trigger.
void mte_TRIGGER_StartAll(void);
// Port service down: suspends the timer of every active trigger.
void mte_TRIGGER_SuspendTmr(void);
// Drops the samples of every active trigger.
void mte_TRIGGER_ClearAllSpl(void);

// Applies one set request; result code, *puiFailedColumn set on some refusals.
uint32_t mte_TRIGGER_Set(const MTE_TRIGGER_ROW_S* pstRequest, uint32_t uiColumnMask,
                         uint32_t* puiFailedColumn);
// Rebuilds one trigger from its stored record (recovery table 1).
uint32_t mte_TRIGGER_Recover(uint32_t uiLen, const void* pRecord);

// Index order of two (owner, name) keys: <0, 0, >0. Owners by length, then
// bytes; names by bytes alone.
int mte_TRIGGER_CompareKey(uint32_t uiOwnerLenA, const char* pszOwnerA, const char* pszNameA,
                           uint32_t uiOwnerLenB, const char* pszOwnerB, const char* pszNameB);

#endif  // MTE_TRIGGER_H
