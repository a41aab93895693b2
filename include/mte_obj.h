// Objects table (mteObjectsTable) and the variable-binding lists built from
// its groups. The list is guarded by its own read-write lock, never held
// together with the event list lock.
#ifndef MTE_OBJ_H
#define MTE_OBJ_H

#include "mte_types.h"

struct MTE_OBJ_ENTRY_S {
    MTE_OBJ_ENTRY_S* pstNext;
    MTE_OBJ_ROW_S stRow;
    // strlen of stRow.szOwner and stRow.szName, set when the entry is linked.
    uint32_t uiOwnerLen;
    uint32_t uiNameLen;
};

uint32_t mte_OBJ_Init(void);
void mte_OBJ_Fini(void);
uint32_t mte_OBJ_IsEmpty(void);
void mte_OBJ_ListRdLock(void);
void mte_OBJ_ListWrLock(void);
void mte_OBJ_ListUnLock(void);

MTE_OBJ_ROW_S* mte_OBJ_Get(const char* pszOwner, const char* pszName, uint32_t uiIndex);
MTE_OBJ_ROW_S* mte_OBJ_GetNext(uint32_t uiOwnerLen, const char* pszOwner, uint32_t uiNameLen,
                               const char* pszName, uint32_t uiIndex);
// Caller holds the write lock.
uint32_t mte_OBJ_Set(const MTE_OBJ_ROW_S* pstRequest, uint32_t uiColumnMask,
                     uint32_t* puiFailedColumn);
// Takes the write lock itself.
uint32_t mte_OBJ_Recover(uint32_t uiLen, const void* pRecord);
// Appends the bindings of the group (owner and name, two 33-byte strings) to
// the list, values fetched from the agent after the lock is released.
void mte_OBJ_GetObjVBlist(const char (*paszOwnerAndName)[MTE_NAME_SIZE], const MTE_OID_S* pstSuffix,
                          const char* pszContextName, MTE_VB_LIST_S* pstList);
// Frees every element of the list (values released) and empties it.
void mte_OBJ_FreeVBlist(MTE_VB_LIST_S* pstList);

#endif  // MTE_OBJ_H
