// Database manager: sorted record lists identified by key fields, and binary
// items, in durable databases.
#ifndef PLAT_DBM_H
#define PLAT_DBM_H

#include <cstdint>

// Key descriptor of a sort list.
struct DBM_KEY_S {
    uint32_t uiOffset;
    uint32_t uiLength;
    uint32_t uiType;  // DBM_KEY_STRING or DBM_KEY_U32
    uint32_t uiReserved;
};
static_assert(sizeof(DBM_KEY_S) == 16);
constexpr uint32_t DBM_KEY_STRING = 5;  // zero-terminated string in a fixed field
constexpr uint32_t DBM_KEY_U32 = 19;    // unsigned 32-bit number

struct DBM_OPEN_OPT_S {
    uint32_t uiVersion;  // 1
    uint8_t aucReserved[28];
};
static_assert(sizeof(DBM_OPEN_OPT_S) == 32);

// Results of the write operations besides 0: DBM_ERR for a bad argument or
// nothing stored under the keys (removal), DBM_ERR_WRITE when the database
// refused a valid write (no space, read-only, I/O error): trying the same
// write again later may succeed.
constexpr uint32_t DBM_ERR = 1;
constexpr uint32_t DBM_ERR_WRITE = 2;

typedef void* DBM_ITERATOR;
// One row of a batch: the function is called with the handle and the name of
// the stored list or item that carries the id.
typedef uint32_t (*DBM_BATCH_PF)(int64_t llHandle, const char* pszName, uint32_t uiNameSize);
struct DBM_BATCH_ROW_S {
    uint32_t uiId;
    DBM_BATCH_PF pfProc;
    uint64_t ulReserved;
};

// Opens the configuration store; its handle or -1.
int64_t MTE_DBM_OpenCfg(uint32_t uiMode);
uint32_t MTE_DBM_Close(int64_t llHandle);
// Opens (creating when absent) the database of that name; 0 on success.
uint32_t DBM_Open(const char* pszName, const char* pszDesc, uint32_t uiMode,
                  const DBM_OPEN_OPT_S* pstOpt, int64_t* pllHandle);
uint32_t DBM_CreateSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            const DBM_KEY_S* pstKeys, uint32_t uiKeyCount, uint32_t uiTableId);
// Stores the record, replacing the stored record with the same keys.
uint32_t DBM_InsertSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiRecordSize, const void* pRecord, uint32_t uiTableId);
uint32_t DBM_RemoveSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiRecordSize, const void* pRecord);
uint32_t DBM_SetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize,
                       uint32_t uiOffset, uint32_t uiSize, const void* pData, uint32_t uiItemId);
// Reads an item; the number of bytes read, 0 when absent, negative on error.
int32_t DBM_GetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize, uint32_t uiOffset,
                      uint32_t uiSize, void* pBuf);
uint32_t DBM_Batch_Proc(int64_t llHandle, int64_t llFlag, const DBM_BATCH_ROW_S* pstRows,
                        uint32_t uiCount);
// Reads up to uiCount records of uiRecordSize bytes after the iterator's
// position, in key order; the number read, 0 at the end, negative on error. A
// stored record of another length is skipped (and logged by the platform),
// never handed out.
int32_t DBM_BatchGetNextSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                                 DBM_ITERATOR* pIterator, uint32_t uiArg5, uint32_t uiArg6,
                                 uint32_t uiRecordSize, uint32_t uiCount, void* pBuf);
void DBM_FreeIterator(DBM_ITERATOR* pIterator);
// Why the last write to the database failed (for example "no space left on the
// file system"); "" when its last write succeeded. Valid until the next call.
const char* DBM_LastWriteError(int64_t llHandle);

#endif  // PLAT_DBM_H
