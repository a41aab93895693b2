// Configuration store and run-time database: opens both, creates the eight
// sorted record lists that hold the table rows, writes each accepted change at
// once, and replays the stored configuration at start-up in the order the
// tables need (settings, objects, events and their actions, triggers and their
// tests). Everything here runs on the main thread, so the two handles, the
// binary-recovery flag and the pending writes need no lock.
//
// A write the database refuses (no space, read-only, I/O error) is reported
// to the caller as failed, and the in-memory change stands; so that the
// change is not lost, the write is kept pending, in order, and written as soon
// as the database accepts writes again: on a one-second retry timer, before
// any later write, and before the stop. Only the last pending write of each
// row or item is kept, which gives the same stored result.
#include "mte_dbm.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "mte_bool.h"
#include "mte_catalogue.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_delta.h"
#include "mte_event.h"
#include "mte_exist.h"
#include "mte_notify.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_set.h"
#include "mte_thres.h"
#include "mte_trigger.h"
#include "mte_types.h"
#include "plat_dbm.h"

namespace {

constexpr uint32_t MTE_DBM_OPEN_MODE = 7;
constexpr uint32_t MTE_DBM_BATCH_COUNT = 5;        // records per batched read
constexpr uint32_t MTE_DBM_LARGEST_RECORD = 1220;  // a trigger row
constexpr uint32_t MTE_STATISTIC_DATA_SIZE = 16;   // four u32 counters
constexpr uint32_t MTE_SETTING_SIZE = 4;           // one u32 setting

constexpr time_t MTE_DBM_RETRY_PERIOD_S = 1;

// Handles are -1 while closed; the binary-recovery flag is 1 only while the
// stored configuration is replayed.
int64_t g_llMteCfgHandle = -1;
int64_t g_llMteRunHandle = -1;
uint16_t g_usMteBinRecover = 0;

// The key fields of a table's store list: its owner and name (33-byte
// zero-terminated fields) and, for the objects, the u32 index.
struct MTE_DBM_LIST_KEYS_S {
    DBM_KEY_S astKeys[3];
    uint32_t uiKeyCount;
};

constexpr DBM_KEY_S mte_dbm_Key(const MTE_CAT_COLUMN_S& stColumn) {
    return DBM_KEY_S{stColumn.usOffset, stColumn.usSize,
                     stColumn.eKind == MTE_CAT_KIND_E::INDEX ? DBM_KEY_U32 : DBM_KEY_STRING, 0};
}

constexpr auto g_astMteListKeys = [] {
    std::array<MTE_DBM_LIST_KEYS_S, MTE_CAT_TABLE_COUNT> astLists{};
    for (size_t i = 0; i < MTE_CAT_TABLE_COUNT; ++i) {
        MTE_DBM_LIST_KEYS_S& stList = astLists[i];
        for (MTE_CAT_KIND_E eKind :
             {MTE_CAT_KIND_E::OWNER, MTE_CAT_KIND_E::NAME, MTE_CAT_KIND_E::INDEX}) {
            size_t uiColumn = MTE_CAT_KindIndex(g_astMteCatalogue[i], eKind);
            if (uiColumn != MTE_CAT_NONE) {
                stList.astKeys[stList.uiKeyCount++] =
                    mte_dbm_Key(g_astMteCatalogue[i].pstColumns[uiColumn]);
            }
        }
    }
    return astLists;
}();
static_assert(g_astMteListKeys[MTE_CAT_OBJECTS].uiKeyCount == 3);
static_assert(g_astMteListKeys[MTE_CAT_TRIGGER].uiKeyCount == 2);

// The creation function of a table's sort list.
template <MTE_CAT_TABLE_E TABLE>
uint32_t mte_dbm_CreateList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiTableId) {
    const MTE_DBM_LIST_KEYS_S& stList = g_astMteListKeys[TABLE];
    return DBM_CreateSortList(llHandle, pszName, uiNameSize, stList.astKeys, stList.uiKeyCount,
                              uiTableId);
}

template <MTE_CAT_TABLE_E TABLE>
constexpr MTE_DBM_SORTLIST_S mte_dbm_ListRow() {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[TABLE];
    return {stTable.pszList, stTable.uiListNameSize, stTable.uiListId, mte_dbm_CreateList<TABLE>};
}

}  // namespace

const MTE_DBM_SORTLIST_S g_astMteCreateSortListFunc[MTE_DBM_SORTLIST_ROWS] = {
    mte_dbm_ListRow<MTE_CAT_TRIGGER>(),   mte_dbm_ListRow<MTE_CAT_BOOLEAN>(),
    mte_dbm_ListRow<MTE_CAT_THRESHOLD>(), mte_dbm_ListRow<MTE_CAT_EXISTENCE>(),
    mte_dbm_ListRow<MTE_CAT_OBJECTS>(),   mte_dbm_ListRow<MTE_CAT_EVENT>(),
    mte_dbm_ListRow<MTE_CAT_NOTIFY>(),    mte_dbm_ListRow<MTE_CAT_SET>(),
};

namespace {

enum MTE_DBM_OP_E : uint8_t { MTE_DBM_OP_INSERT, MTE_DBM_OP_DELETE, MTE_DBM_OP_BINARY };

// One write, as the caller asked for it: a record to store or remove in a
// list, or an item to write whole.
struct MTE_DBM_WRITE_S {
    MTE_DBM_OP_E eOp;
    uint32_t uiSelector;
    std::string strName;  // list or item name, without the NUL
    uint32_t uiNameSize;  // as the caller gave it
    uint32_t uiId;        // table id or item id
    std::vector<uint8_t> vecData;
};

std::deque<MTE_DBM_WRITE_S> g_dqMtePendingWrites;
uint32_t g_uiMtePendingWritten = 0;  // written since the store refused the first
int g_iMteRetryFd = -1;

int64_t mte_dbm_Handle(uint32_t uiSelector);

const MTE_DBM_LIST_KEYS_S* mte_dbm_ListKeys(const std::string& strList) {
    for (size_t i = 0; i < MTE_CAT_TABLE_COUNT; ++i) {
        if (strList == g_astMteCatalogue[i].pszList) {
            return &g_astMteListKeys[i];
        }
    }
    return nullptr;
}

bool mte_dbm_SameKeyField(const DBM_KEY_S& stKey, const MTE_DBM_WRITE_S& stA,
                          const MTE_DBM_WRITE_S& stB) {
    size_t uiEnd = static_cast<size_t>(stKey.uiOffset) + stKey.uiLength;
    if (uiEnd > stA.vecData.size() || uiEnd > stB.vecData.size()) {
        return false;
    }
    const char* pcA = reinterpret_cast<const char*>(stA.vecData.data()) + stKey.uiOffset;
    const char* pcB = reinterpret_cast<const char*>(stB.vecData.data()) + stKey.uiOffset;
    return stKey.uiType == DBM_KEY_STRING ? strncmp(pcA, pcB, stKey.uiLength) == 0
                                          : memcmp(pcA, pcB, stKey.uiLength) == 0;
}

// True when the later write leaves nothing of the earlier one in the store.
bool mte_dbm_SameRow(const MTE_DBM_WRITE_S& stA, const MTE_DBM_WRITE_S& stB) {
    if (stA.uiSelector != stB.uiSelector || stA.strName != stB.strName ||
        (stA.eOp == MTE_DBM_OP_BINARY) != (stB.eOp == MTE_DBM_OP_BINARY)) {
        return false;
    }
    if (stA.eOp == MTE_DBM_OP_BINARY) {
        return true;
    }
    const MTE_DBM_LIST_KEYS_S* pstList = mte_dbm_ListKeys(stA.strName);
    if (pstList == nullptr) {
        return false;
    }
    for (uint32_t i = 0; i < pstList->uiKeyCount; ++i) {
        if (!mte_dbm_SameKeyField(pstList->astKeys[i], stA, stB)) {
            return false;
        }
    }
    return true;
}

// The platform's result: 0, DBM_ERR_WRITE when the database refused it.
uint32_t mte_dbm_Apply(const MTE_DBM_WRITE_S& stWrite) {
    int64_t llHandle = mte_dbm_Handle(stWrite.uiSelector);
    if (llHandle == -1) {
        return 0xffffffffu;
    }
    const char* pszName = stWrite.strName.c_str();
    uint32_t uiSize = static_cast<uint32_t>(stWrite.vecData.size());
    const void* pData = stWrite.vecData.data();
    switch (stWrite.eOp) {
        case MTE_DBM_OP_INSERT:
            return DBM_InsertSortList(llHandle, pszName, stWrite.uiNameSize, uiSize, pData,
                                      stWrite.uiId);
        case MTE_DBM_OP_DELETE:
            return DBM_RemoveSortList(llHandle, pszName, stWrite.uiNameSize, uiSize, pData);
        case MTE_DBM_OP_BINARY:
            return DBM_SetBinary(llHandle, pszName, stWrite.uiNameSize, 0, uiSize, pData,
                                 stWrite.uiId);
    }
    return 0xffffffffu;
}

void mte_dbm_StopRetry(void) {
    if (g_iMteRetryFd >= 0) {
        (void)mte_EPOLL_Del(g_iMteRetryFd);
        close(g_iMteRetryFd);
        g_iMteRetryFd = -1;
    }
}

// Writes the pending writes in order, up to the first the database refuses.
void mte_dbm_FlushPending(void) {
    while (!g_dqMtePendingWrites.empty()) {
        if (mte_dbm_Apply(g_dqMtePendingWrites.front()) == DBM_ERR_WRITE) {
            return;
        }
        g_dqMtePendingWrites.pop_front();
        ++g_uiMtePendingWritten;
    }
    if (g_uiMtePendingWritten != 0) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_PENDING_WRITTEN,
                               "Configuration store accepts writes again: %u pending "
                               "changes written.",
                               g_uiMtePendingWritten);
        g_uiMtePendingWritten = 0;
    }
    mte_dbm_StopRetry();
}

void mte_dbm_RetryProc(uint32_t uiEvents, int iFd) {
    uint64_t ulExpirations = 0;
    if ((uiEvents & EPOLLIN) != 0) {
        (void)!read(iFd, &ulExpirations, sizeof(ulExpirations));
    }
    mte_dbm_FlushPending();
}

// Without the main epoll set (a module test) the pending writes are still
// tried before every later write and before the stop.
void mte_dbm_StartRetry(void) {
    if (g_iMteRetryFd >= 0) {
        return;
    }
    int iFd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    itimerspec stSpec{};
    stSpec.it_value.tv_sec = MTE_DBM_RETRY_PERIOD_S;
    stSpec.it_interval.tv_sec = MTE_DBM_RETRY_PERIOD_S;
    if (iFd >= 0 && timerfd_settime(iFd, 0, &stSpec, nullptr) == 0 &&
        mte_EPOLL_Add(iFd, mte_dbm_RetryProc) == MTE_OK) {
        g_iMteRetryFd = iFd;
    } else if (iFd >= 0) {
        close(iFd);
    }
}

// Keeps a refused write; an earlier pending write of the same row or item is
// dropped, as this one replaces it in the store.
void mte_dbm_KeepPending(MTE_DBM_WRITE_S&& stWrite) {
    bool bFirst = g_dqMtePendingWrites.empty();
    for (auto it = g_dqMtePendingWrites.begin(); it != g_dqMtePendingWrites.end();) {
        it = mte_dbm_SameRow(*it, stWrite) ? g_dqMtePendingWrites.erase(it) : it + 1;
    }
    uint32_t uiSelector = stWrite.uiSelector;
    g_dqMtePendingWrites.push_back(std::move(stWrite));
    if (bFirst) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_WRITES_PENDING,
                               "Configuration store refuses writes (%s); pending changes: "
                               "%zu, written as soon as it accepts writes again.",
                               DBM_LastWriteError(mte_dbm_Handle(uiSelector)),
                               g_dqMtePendingWrites.size());
        mte_dbm_StartRetry();
    }
}

// Writes behind the pending ones, so that the store sees every change in the
// order it was made; a refused write is kept pending.
uint32_t mte_dbm_Write(MTE_DBM_WRITE_S&& stWrite) {
    mte_dbm_FlushPending();
    uint32_t uiRet = g_dqMtePendingWrites.empty() ? mte_dbm_Apply(stWrite) : DBM_ERR_WRITE;
    if (uiRet == DBM_ERR_WRITE) {
        mte_dbm_KeepPending(std::move(stWrite));
    }
    return uiRet;
}

MTE_DBM_WRITE_S mte_dbm_MakeWrite(MTE_DBM_OP_E eOp, uint32_t uiSelector, const char* pszName,
                                  uint32_t uiNameSize, const void* pData, uint32_t uiSize,
                                  uint32_t uiId) {
    const uint8_t* pucData = static_cast<const uint8_t*>(pData);
    return MTE_DBM_WRITE_S{
        eOp,        uiSelector, std::string(pszName, strnlen(pszName, uiNameSize)),
        uiNameSize, uiId,       std::vector<uint8_t>(pucData, pucData + uiSize)};
}

typedef uint32_t (*MTE_RECOVER_PF)(uint32_t uiLen, const void* pData);

// Reads an item and hands it on only when it has exactly its size: one byte
// more is asked for, so that a longer (foreign or damaged) item is noticed too.
template <uint32_t uiSize>
void mte_dbm_RecoverExact(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                          MTE_RECOVER_PF pfRecover) {
    uint8_t aucBuf[uiSize + 1] = {};
    int32_t iRead = DBM_GetBinary(llHandle, pszName, uiNameSize, 0, uiSize + 1, aucBuf);
    if (iRead == static_cast<int32_t>(uiSize)) {
        pfRecover(uiSize, aucBuf);
    }
}

// Replays one setting item.
template <MTE_RECOVER_PF pfRecover>
uint32_t mte_dbm_RecoverItem(int64_t llHandle, const char* pszName, uint32_t uiNameSize) {
    mte_dbm_RecoverExact<MTE_SETTING_SIZE>(llHandle, pszName, uiNameSize, pfRecover);
    return MTE_OK;
}

// Replays one sort list in batches of five records, in key order. The tables
// report their own refusals; a refused record does not stop the walk.
template <MTE_RECOVER_PF pfRecover, uint32_t uiRecordSize>
uint32_t mte_dbm_RecoverList(int64_t llHandle, const char* pszName, uint32_t uiNameSize) {
    static_assert(uiRecordSize <= MTE_DBM_LARGEST_RECORD);
    // Aligned so that tables may read the records in place.
    alignas(8) uint8_t aucBuf[MTE_DBM_BATCH_COUNT * MTE_DBM_LARGEST_RECORD];
    DBM_ITERATOR pIterator = nullptr;
    for (;;) {
        memset(aucBuf, 0, sizeof(aucBuf));
        int32_t iRead = DBM_BatchGetNextSortList(llHandle, pszName, uiNameSize, &pIterator, 0, 0,
                                                 uiRecordSize, MTE_DBM_BATCH_COUNT, aucBuf);
        if (iRead <= 0) {
            break;
        }
        uint32_t uiRead = static_cast<uint32_t>(iRead);
        if (uiRead > MTE_DBM_BATCH_COUNT) {
            uiRead = MTE_DBM_BATCH_COUNT;
        }
        for (uint32_t i = 0; i < uiRead; ++i) {
            pfRecover(uiRecordSize, aucBuf + i * uiRecordSize);
        }
        if (uiRead < MTE_DBM_BATCH_COUNT) {
            break;
        }
    }
    DBM_FreeIterator(&pIterator);
    return MTE_OK;
}

template <MTE_CAT_TABLE_E TABLE, MTE_RECOVER_PF pfRecover>
constexpr DBM_BATCH_ROW_S mte_dbm_RecoverRow() {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[TABLE];
    return {stTable.uiListId, mte_dbm_RecoverList<pfRecover, stTable.uiRowSize>, 0};
}

int64_t mte_dbm_Handle(uint32_t uiSelector) {
    switch (uiSelector) {
        case MTE_DBM_CFG:
            return g_llMteCfgHandle;
        case MTE_DBM_RUN:
            return g_llMteRunHandle;
        default:
            return -1;
    }
}

void mte_dbm_CloseCfg(void) {
    if (g_llMteCfgHandle != -1) {
        MTE_DBM_Close(g_llMteCfgHandle);
        g_llMteCfgHandle = -1;
    }
}

void mte_dbm_CloseRun(void) {
    if (g_llMteRunHandle != -1) {
        MTE_DBM_Close(g_llMteRunHandle);
        g_llMteRunHandle = -1;
    }
}

}  // namespace

// Settings first, then objects and events before the notification and set
// rows laid over them, then triggers before the tests attached to them.
const DBM_BATCH_ROW_S g_astMteDbmRecoverFunc[MTE_DBM_RECOVER_ROWS] = {
    {MTE_ITEM_ID_SAMP_MINI, mte_dbm_RecoverItem<mte_SCALAR_SampMinRecover>, 0},
    {MTE_ITEM_ID_SAMP_INST_MAX, mte_dbm_RecoverItem<mte_SCALAR_SampInstanceMaxRecover>, 0},
    mte_dbm_RecoverRow<MTE_CAT_OBJECTS, mte_OBJ_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_EVENT, mte_EVENT_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_SET, mte_SET_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_NOTIFY, mte_NOTIFY_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_TRIGGER, mte_TRIGGER_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_BOOLEAN, mte_BOOL_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_EXISTENCE, mte_EXIST_Recover>(),
    mte_dbm_RecoverRow<MTE_CAT_THRESHOLD, mte_THRES_Recover>(),
};

const MTE_DBM_SORTLIST_S g_astMteCreateSortListExt[MTE_DBM_SORTLIST_EXT_ROWS] = {
    mte_dbm_ListRow<MTE_CAT_DELTA>(),
};

// After the triggers, whose recovery made every delta row with its defaults.
const DBM_BATCH_ROW_S g_astMteDbmRecoverExt[MTE_DBM_SORTLIST_EXT_ROWS] = {
    mte_dbm_RecoverRow<MTE_CAT_DELTA, mte_DELTA_Recover>(),
};

uint32_t mte_DBM_Init(void) {
    g_llMteCfgHandle = MTE_DBM_OpenCfg(MTE_DBM_OPEN_MODE);
    if (g_llMteCfgHandle == -1) {
        return MTE_ERR_GENERAL;
    }
    int32_t iRet = 0;
    for (const MTE_DBM_SORTLIST_S& stList : g_astMteCreateSortListFunc) {
        iRet += static_cast<int32_t>(
            stList.pfCreate(g_llMteCfgHandle, stList.pszName, stList.uiNameSize, stList.uiTableId));
    }
    for (const MTE_DBM_SORTLIST_S& stList : g_astMteCreateSortListExt) {
        iRet += static_cast<int32_t>(
            stList.pfCreate(g_llMteCfgHandle, stList.pszName, stList.uiNameSize, stList.uiTableId));
    }
    if (iRet != 0) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_BATCH_CREATE_FAILED,
                               mte_DBG_TextFormat(MTE_TEXT_BATCH_CREATE_FAILED), iRet);
        mte_dbm_CloseCfg();
        return MTE_ERR_GENERAL;
    }
    g_llMteRunHandle = mte_dbm_OpenRun(MTE_DBM_OPEN_MODE);
    if (g_llMteRunHandle == -1) {
        mte_dbm_CloseCfg();
        return MTE_ERR_GENERAL;
    }
    return MTE_OK;
}

void mte_DBM_Fini(void) {
    mte_dbm_FlushPending();
    if (!g_dqMtePendingWrites.empty()) {
        mte_DBG_PrintTraceInfo(
            MTE_TRACE_PENDING_LOST,
            "Configuration store still refuses writes at the stop (%s); pending changes lost: %zu.",
            DBM_LastWriteError(mte_dbm_Handle(g_dqMtePendingWrites.front().uiSelector)),
            g_dqMtePendingWrites.size());
        g_dqMtePendingWrites.clear();
        g_uiMtePendingWritten = 0;
    }
    mte_dbm_StopRetry();
    mte_dbm_CloseCfg();
    mte_dbm_CloseRun();
}

uint32_t mte_DBM_InsertSortList(uint32_t uiSelector, const char* pszList, uint32_t uiNameSize,
                                const void* pRecord, uint32_t uiRecordSize, uint32_t uiTableId) {
    if (mte_dbm_Handle(uiSelector) == -1 || pszList == nullptr || pRecord == nullptr) {
        return MTE_ERR_GENERAL;
    }
    return mte_dbm_Write(mte_dbm_MakeWrite(MTE_DBM_OP_INSERT, uiSelector, pszList, uiNameSize,
                                           pRecord, uiRecordSize, uiTableId)) == 0
               ? MTE_OK
               : MTE_ERR_GENERAL;
}

uint32_t mte_DBM_DelFromSortList(uint32_t uiSelector, const char* pszList, uint32_t uiNameSize,
                                 const void* pRecord, uint32_t uiRecordSize) {
    if (mte_dbm_Handle(uiSelector) == -1 || pszList == nullptr || pRecord == nullptr) {
        return 0xffffffffu;
    }
    return mte_dbm_Write(mte_dbm_MakeWrite(MTE_DBM_OP_DELETE, uiSelector, pszList, uiNameSize,
                                           pRecord, uiRecordSize, 0));
}

uint32_t mte_DBM_SetBinary(uint32_t uiSelector, const char* pszItem, uint32_t uiNameSize,
                           const void* pData, uint32_t uiSize, uint32_t uiItemId) {
    if (mte_dbm_Handle(uiSelector) == -1 || pszItem == nullptr ||
        (pData == nullptr && uiSize != 0)) {
        return MTE_ERR_GENERAL;
    }
    return mte_dbm_Write(mte_dbm_MakeWrite(MTE_DBM_OP_BINARY, uiSelector, pszItem, uiNameSize,
                                           pData, uiSize, uiItemId)) == 0
               ? MTE_OK
               : MTE_ERR_GENERAL;
}

int64_t mte_dbm_OpenRun(uint32_t uiMode) {
    DBM_OPEN_OPT_S stOpt = {};
    stOpt.uiVersion = 1;
    int64_t llHandle = -1;
    if (DBM_Open("gMTE", "Event-MIB", uiMode, &stOpt, &llHandle) != 0) {
        return -1;
    }
    return llHandle;
}

void mte_BIN_SetRecover(uint16_t usFlag) {
    g_usMteBinRecover = usFlag;
}

uint16_t mte_BIN_GetRecover(void) {
    return g_usMteBinRecover;
}

uint32_t mte_DBM_Recover(void) {
    if (g_llMteRunHandle != -1) {
        mte_dbm_RecoverExact<MTE_STATISTIC_DATA_SIZE>(g_llMteRunHandle, "StatisticData", 14,
                                                      mte_SCALAR_StatisticDataRecover);
    }
    if (g_llMteCfgHandle == -1) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_RECOVER_NO_HANDLE, "%s",
                               mte_DBG_Text(MTE_TEXT_RECOVER_NO_HANDLE));
        return MTE_ERR_GENERAL;
    }
    mte_DBG_PrintTraceInfo(MTE_TRACE_RECOVER_LIST_NUM,
                           mte_DBG_TextFormat(MTE_TEXT_RECOVER_LIST_NUM),
                           static_cast<unsigned long>(MTE_DBM_RECOVER_ROWS));
    mte_BIN_SetRecover(1);
    DBM_Batch_Proc(g_llMteCfgHandle, -1, g_astMteDbmRecoverFunc, MTE_DBM_RECOVER_ROWS);
    DBM_Batch_Proc(g_llMteCfgHandle, -1, g_astMteDbmRecoverExt, MTE_DBM_SORTLIST_EXT_ROWS);
    mte_BIN_SetRecover(0);
    return g_llMteRunHandle != -1 ? MTE_OK : MTE_ERR_GENERAL;
}
