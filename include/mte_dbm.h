// Configuration store and run-time database, and the replay of the stored
// configuration at start-up. All database calls run on the main thread.
#ifndef MTE_DBM_H
#define MTE_DBM_H

#include <cstdint>

#include "mte_catalogue.h"
#include "plat_dbm.h"

// Database selectors.
constexpr uint32_t MTE_DBM_CFG = 1;
constexpr uint32_t MTE_DBM_RUN = 2;

// The sort lists created at initialisation, one per table, and the recovery
// table: ids in the order in which the stored configuration is replayed.
typedef uint32_t (*MTE_DBM_CREATE_PF)(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                                      uint32_t uiTableId);
struct MTE_DBM_SORTLIST_S {
    const char* pszName;
    uint32_t uiNameSize;  // including the NUL
    uint32_t uiTableId;
    MTE_DBM_CREATE_PF pfCreate;
};
constexpr uint32_t MTE_DBM_SORTLIST_ROWS = 8;
constexpr uint32_t MTE_DBM_RECOVER_ROWS = 10;
extern const MTE_DBM_SORTLIST_S g_astMteCreateSortListFunc[MTE_DBM_SORTLIST_ROWS];
extern const DBM_BATCH_ROW_S g_astMteDbmRecoverFunc[MTE_DBM_RECOVER_ROWS];
// Lists added to the eight above (the delta rows): created after them and
// replayed after them, so that the eight lists, their order and the recovery
// trace stay as they were and a store written before the addition recovers
// unchanged (docs/store.md).
constexpr uint32_t MTE_DBM_SORTLIST_EXT_ROWS = 1;
extern const MTE_DBM_SORTLIST_S g_astMteCreateSortListExt[MTE_DBM_SORTLIST_EXT_ROWS];
extern const DBM_BATCH_ROW_S g_astMteDbmRecoverExt[MTE_DBM_SORTLIST_EXT_ROWS];

uint32_t mte_DBM_Init(void);
void mte_DBM_Fini(void);
// Stores (or replaces, by its keys) one record; 0 or 0x40010001.
uint32_t mte_DBM_InsertSortList(uint32_t uiSelector, const char* pszList, uint32_t uiNameSize,
                                const void* pRecord, uint32_t uiRecordSize, uint32_t uiTableId);
// Removes the stored record with the record's keys; the platform's result, or all ones.
uint32_t mte_DBM_DelFromSortList(uint32_t uiSelector, const char* pszList, uint32_t uiNameSize,
                                 const void* pRecord, uint32_t uiRecordSize);
uint32_t mte_DBM_SetBinary(uint32_t uiSelector, const char* pszItem, uint32_t uiNameSize,
                           const void* pData, uint32_t uiSize, uint32_t uiItemId);
// Stores (or replaces) a row of a catalogue table in the table's list.
inline uint32_t mte_DBM_StoreRow(MTE_CAT_TABLE_E eTable, const void* pRow) {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[eTable];
    return mte_DBM_InsertSortList(MTE_DBM_CFG, stTable.pszList, stTable.uiListNameSize, pRow,
                                  stTable.uiRowSize, stTable.uiListId);
}
// Removes the stored row with the row's keys from the table's list.
inline uint32_t mte_DBM_RemoveRow(MTE_CAT_TABLE_E eTable, const void* pRow) {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[eTable];
    return mte_DBM_DelFromSortList(MTE_DBM_CFG, stTable.pszList, stTable.uiListNameSize, pRow,
                                   stTable.uiRowSize);
}
int64_t mte_dbm_OpenRun(uint32_t uiMode);
void mte_BIN_SetRecover(uint16_t usFlag);
uint16_t mte_BIN_GetRecover(void);
// Replays the stored configuration; 0, or 0x40010001 when a database is not open.
uint32_t mte_DBM_Recover(void);

#endif  // MTE_DBM_H
