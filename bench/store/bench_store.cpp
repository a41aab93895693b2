// Store benchmarks, on files on the real disk (/var/tmp) so that each
// durable write pays its fsync:
//   - durable row changes per second through mte_TRIGGER_Set and through
//     mte_DBM_InsertSortList, beside a plain SQLite loop that writes records of
//     the same size with the same durability (WAL, synchronous=FULL);
//   - start-up recovery of 10,000 triggers with boolean test rows, measured in
//     a fresh child process (time and peak RSS), beside a child that reads the
//     same rows with a plain SQLite query.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_memalert.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_trigger.h"
#include "plat_dbm.h"

namespace {

constexpr int kKeys = 1000;  // records rewritten in turn by the write loops
constexpr int kRecoverTriggers = 10000;

std::string MakeDir(const char* pszBase) {
    std::string strTemplate = std::string(pszBase) + "/mte-bench-XXXXXX";
    if (mkdtemp(strTemplate.data()) == nullptr) {
        abort();
    }
    return strTemplate;
}

void RemoveDir(const std::string& strDir) {
    (void)!system(("rm -rf '" + strDir + "'").c_str());
}

void StartModules(const std::string& strDir) {
    setenv("STATE_DIRECTORY", strDir.c_str(), 1);
    mte_DBG_Init();
    mte_EPOLL_Init();
    mte_MEMALERT_Init();
    if (mte_DBM_Init() != 0) {
        abort();
    }
    mte_TRIGGER_Init();
    mte_EVENT_Init();
    mte_OBJ_Init();
    mte_SCALAR_Init();
}

void StopModules() {
    mte_OBJ_Fini();
    mte_EVENT_Fini();
    mte_TRIGGER_Fini();
    mte_DBM_Fini();
    mte_MEMALERT_Fini();
    mte_EPOLL_Fini();
}

MTE_TRIGGER_ROW_S TriggerRow(int i, uint32_t uiStatus) {
    MTE_TRIGGER_ROW_S stRow = {};
    snprintf(stRow.szOwner, sizeof(stRow.szOwner), "owner%d", i % 10);
    snprintf(stRow.szName, sizeof(stRow.szName), "trigger%05d", i);
    const uint32_t auiOid[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, 10};
    stRow.stValueID.uiLen = 10;
    memcpy(stRow.stValueID.auiOid, auiOid, sizeof(auiOid));
    stRow.uiFrequency = 60;
    stRow.uiValueIDWildcard = MTE_TRUE;
    stRow.uiEntryStatus = uiStatus;
    return stRow;
}

constexpr uint32_t kCreateMask =
    MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID) | MTE_COLUMN_BIT(MTE_TRIGGER_COL_FREQUENCY) |
    MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID_WILDCARD) |
    MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_BOOLEAN) | MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS);

// (a) Durable row changes through the trigger table: each set changes the
// comment of a not-in-service trigger, which stores its record.
void BM_DurableTriggerSet(benchmark::State& state) {
    std::string strDir = MakeDir("/var/tmp");
    StartModules(strDir);
    uint32_t uiFailed = 0;
    for (int i = 0; i < 100; ++i) {
        MTE_TRIGGER_ROW_S stRow = TriggerRow(i, MTE_ROW_CREATE_AND_WAIT);
        mte_TRIGGER_Set(&stRow, kCreateMask, &uiFailed);
    }
    int i = 0;
    for (auto _ : state) {
        MTE_TRIGGER_ROW_S stRow = TriggerRow(i % 100, MTE_ROW_NONE);
        snprintf(stRow.szComment, sizeof(stRow.szComment), "change %d", i);
        if (mte_TRIGGER_Set(&stRow, MTE_COLUMN_BIT(MTE_TRIGGER_COL_COMMENT), &uiFailed) != 0) {
            state.SkipWithError("set refused");
            break;
        }
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
    StopModules();
    RemoveDir(strDir);
}
BENCHMARK(BM_DurableTriggerSet)->Unit(benchmark::kMicrosecond)->MinTime(3.0)->UseRealTime();

// (a) The store's write alone: 1220-byte records replaced by their keys.
void BM_DurableInsertSortList(benchmark::State& state) {
    std::string strDir = MakeDir("/var/tmp");
    StartModules(strDir);
    int i = 0;
    for (auto _ : state) {
        MTE_TRIGGER_ROW_S stRow = TriggerRow(i % kKeys, MTE_ROW_ACTIVE);
        stRow.uiFrequency = static_cast<uint32_t>(i);
        if (mte_DBM_InsertSortList(MTE_DBM_CFG, "mteTrigger", 11, &stRow, sizeof(stRow),
                                   MTE_TBL_TRIGGER) != 0) {
            state.SkipWithError("insert failed");
            break;
        }
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
    StopModules();
    RemoveDir(strDir);
}
BENCHMARK(BM_DurableInsertSortList)->Unit(benchmark::kMicrosecond)->MinTime(3.0)->UseRealTime();

// (a) The reference: the same records and durability, written by hand.
void BM_PlainSqliteDurableWrite(benchmark::State& state) {
    std::string strDir = MakeDir("/var/tmp");
    sqlite3* pstDb = nullptr;
    sqlite3_open((strDir + "/plain.db").c_str(), &pstDb);
    sqlite3_exec(pstDb,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                 "CREATE TABLE r(k BLOB PRIMARY KEY, v BLOB);",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* pstStmt = nullptr;
    sqlite3_prepare_v2(pstDb, "INSERT OR REPLACE INTO r(k, v) VALUES(?1, ?2)", -1, &pstStmt,
                       nullptr);
    int i = 0;
    for (auto _ : state) {
        MTE_TRIGGER_ROW_S stRow = TriggerRow(i % kKeys, MTE_ROW_ACTIVE);
        stRow.uiFrequency = static_cast<uint32_t>(i);
        std::string strKey = std::string(stRow.szOwner) + '\0' + stRow.szName + '\0';
        sqlite3_bind_blob(pstStmt, 1, strKey.data(), static_cast<int>(strKey.size()),
                          SQLITE_STATIC);
        sqlite3_bind_blob(pstStmt, 2, &stRow, sizeof(stRow), SQLITE_STATIC);
        if (sqlite3_step(pstStmt) != SQLITE_DONE) {
            state.SkipWithError("plain write failed");
            break;
        }
        sqlite3_reset(pstStmt);
        ++i;
    }
    state.SetItemsProcessed(state.iterations());
    sqlite3_finalize(pstStmt);
    sqlite3_close(pstDb);
    RemoveDir(strDir);
}
BENCHMARK(BM_PlainSqliteDurableWrite)->Unit(benchmark::kMicrosecond)->MinTime(3.0)->UseRealTime();

// (a) Fair under a noisy disk: one trigger change and one plain write of the
// same size alternate in the same loop, each timed on its own.
void BM_InterleavedTriggerSetVsPlain(benchmark::State& state) {
    std::string strDir = MakeDir("/var/tmp");
    StartModules(strDir);
    uint32_t uiFailed = 0;
    for (int i = 0; i < 100; ++i) {
        MTE_TRIGGER_ROW_S stRow = TriggerRow(i, MTE_ROW_CREATE_AND_WAIT);
        mte_TRIGGER_Set(&stRow, kCreateMask, &uiFailed);
    }
    sqlite3* pstDb = nullptr;
    sqlite3_open((strDir + "/plain.db").c_str(), &pstDb);
    sqlite3_exec(pstDb,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                 "CREATE TABLE r(k BLOB PRIMARY KEY, v BLOB);",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* pstStmt = nullptr;
    sqlite3_prepare_v2(pstDb, "INSERT OR REPLACE INTO r(k, v) VALUES(?1, ?2)", -1, &pstStmt,
                       nullptr);
    double dOurs = 0, dPlain = 0;
    int i = 0;
    for (auto _ : state) {
        MTE_TRIGGER_ROW_S stRow = TriggerRow(i % 100, MTE_ROW_NONE);
        snprintf(stRow.szComment, sizeof(stRow.szComment), "change %d", i);
        auto t0 = std::chrono::steady_clock::now();
        mte_TRIGGER_Set(&stRow, MTE_COLUMN_BIT(MTE_TRIGGER_COL_COMMENT), &uiFailed);
        auto t1 = std::chrono::steady_clock::now();
        std::string strKey = std::string(stRow.szOwner) + '\0' + stRow.szName + '\0';
        sqlite3_bind_blob(pstStmt, 1, strKey.data(), static_cast<int>(strKey.size()),
                          SQLITE_STATIC);
        sqlite3_bind_blob(pstStmt, 2, &stRow, sizeof(stRow), SQLITE_STATIC);
        sqlite3_step(pstStmt);
        sqlite3_reset(pstStmt);
        auto t2 = std::chrono::steady_clock::now();
        dOurs += std::chrono::duration<double>(t1 - t0).count();
        dPlain += std::chrono::duration<double>(t2 - t1).count();
        ++i;
    }
    state.counters["trigger_set_per_s"] = state.iterations() / dOurs;
    state.counters["plain_per_s"] = state.iterations() / dPlain;
    state.counters["ours_over_plain"] = dPlain / dOurs;
    sqlite3_finalize(pstStmt);
    sqlite3_close(pstDb);
    StopModules();
    RemoveDir(strDir);
}
BENCHMARK(BM_InterleavedTriggerSetVsPlain)
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(5.0)
    ->UseRealTime();

struct CHILD_RESULT_S {
    double dSeconds;
    long lMaxRssKb;
    long lRows;
};

// Runs the body in a fresh process and returns its time, peak RSS and count.
CHILD_RESULT_S InChild(long (*pfBody)(const std::string&), const std::string& strDir) {
    int aiPipe[2];
    if (pipe(aiPipe) != 0) {
        abort();
    }
    pid_t pid = fork();
    if (pid == 0) {
        auto tStart = std::chrono::steady_clock::now();
        long lRows = pfBody(strDir);
        CHILD_RESULT_S stOut;
        stOut.dSeconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
        struct rusage stUsage;
        getrusage(RUSAGE_SELF, &stUsage);
        stOut.lMaxRssKb = stUsage.ru_maxrss;
        stOut.lRows = lRows;
        (void)!write(aiPipe[1], &stOut, sizeof(stOut));
        _exit(0);
    }
    close(aiPipe[1]);
    CHILD_RESULT_S stResult = {};
    if (read(aiPipe[0], &stResult, sizeof(stResult)) != sizeof(stResult)) {
        stResult.dSeconds = -1;
    }
    close(aiPipe[0]);
    waitpid(pid, nullptr, 0);
    return stResult;
}

long RecoverBody(const std::string& strDir) {
    StartModules(strDir);
    mte_DBM_Recover();
    long lRows = 0;
    uint8_t ucFlags = 0;
    for (MTE_TRIGGER_ENTRY_S* pst = mte_TRIGGER_GetNextTriggerEntry(0, "", "", &ucFlags);
         pst != nullptr; pst = pst->pstNext) {
        lRows += 1 + (pst->pstBool != nullptr ? 1 : 0);
    }
    return lRows;
}

long PlainReadBody(const std::string& strDir) {
    sqlite3* pstDb = nullptr;
    sqlite3_open_v2((strDir + "/eventmib-config.db").c_str(), &pstDb, SQLITE_OPEN_READONLY,
                    nullptr);
    sqlite3_stmt* pstStmt = nullptr;
    sqlite3_prepare_v2(pstDb, "SELECT data FROM record ORDER BY list_id, key", -1, &pstStmt,
                       nullptr);
    long lRows = 0;
    static uint8_t s_aucBuf[1220];
    while (sqlite3_step(pstStmt) == SQLITE_ROW) {
        size_t uiBytes = static_cast<size_t>(sqlite3_column_bytes(pstStmt, 0));
        memcpy(s_aucBuf, sqlite3_column_blob(pstStmt, 0), std::min(uiBytes, sizeof(s_aucBuf)));
        ++lRows;
    }
    sqlite3_finalize(pstStmt);
    sqlite3_close(pstDb);
    return lRows;
}

// The store's share of recovery: open and check the file, then read every
// list in batches of five as the replay does, handing the rows to nobody.
long StoreOnlyBody(const std::string& strDir) {
    setenv("STATE_DIRECTORY", strDir.c_str(), 1);
    int64_t llHandle = MTE_DBM_OpenCfg(7);
    long lRows = 0;
    static uint8_t s_aucBuf[5 * 1220];
    const std::pair<const char*, uint32_t> astLists[] = {{"mteTrigger", 1220}, {"mteBoolean", 212}};
    for (const auto& [pszList, uiSize] : astLists) {
        DBM_ITERATOR pIter = nullptr;
        int32_t iRead;
        do {
            iRead = DBM_BatchGetNextSortList(llHandle, pszList,
                                             static_cast<uint32_t>(strlen(pszList) + 1), &pIter, 0,
                                             0, uiSize, 5, s_aucBuf);
            lRows += iRead > 0 ? iRead : 0;
        } while (iRead == 5);
        DBM_FreeIterator(&pIter);
    }
    MTE_DBM_Close(llHandle);
    return lRows;
}

long NothingBody(const std::string&) {
    return 0;
}

// Builds the store of 10,000 triggers with boolean test rows through the
// trigger table, on tmpfs (fsync is free there), then moves it to disk.
std::string BuildRecoveryStore() {
    std::string strBuild = MakeDir("/dev/shm");
    pid_t pid = fork();
    if (pid == 0) {
        StartModules(strBuild);
        uint32_t uiFailed = 0;
        for (int i = 0; i < kRecoverTriggers; ++i) {
            MTE_TRIGGER_ROW_S stRow = TriggerRow(i, MTE_ROW_CREATE_AND_GO);
            stRow.ucTest = MTE_TEST_BOOLEAN;
            if (mte_TRIGGER_Set(&stRow, kCreateMask, &uiFailed) != 0) {
                _exit(1);
            }
        }
        StopModules();
        _exit(0);
    }
    int iStatus = 0;
    waitpid(pid, &iStatus, 0);
    std::string strDir = MakeDir("/var/tmp");
    (void)!system(("cp '" + strBuild + "'/*.db '" + strDir + "'/ && sync").c_str());
    RemoveDir(strBuild);
    return strDir;
}

// (b) Start-up recovery in a fresh process, against a plain read of the rows.
void BM_Recover10kTriggers(benchmark::State& state) {
    const std::string strDir = BuildRecoveryStore();
    CHILD_RESULT_S stBase = InChild(NothingBody, strDir);
    CHILD_RESULT_S stOurs = {}, stPlain = {}, stStore = {};
    for (auto _ : state) {
        stOurs = InChild(RecoverBody, strDir);
        stStore = InChild(StoreOnlyBody, strDir);
        stPlain = InChild(PlainReadBody, strDir);
        state.SetIterationTime(stOurs.dSeconds);
    }
    state.counters["store_only_s"] = stStore.dSeconds;
    state.counters["plain_over_store"] = stPlain.dSeconds / stStore.dSeconds;
    state.counters["rows_store_only"] = static_cast<double>(stStore.lRows);
    state.counters["maxrss_store_only_kb"] = static_cast<double>(stStore.lMaxRssKb);
    state.counters["rows_recovered"] = static_cast<double>(stOurs.lRows);
    state.counters["rows_plain"] = static_cast<double>(stPlain.lRows);
    state.counters["recover_s"] = stOurs.dSeconds;
    state.counters["plain_read_s"] = stPlain.dSeconds;
    state.counters["plain_over_ours"] = stPlain.dSeconds / stOurs.dSeconds;
    state.counters["maxrss_kb"] = static_cast<double>(stOurs.lMaxRssKb);
    state.counters["maxrss_plain_kb"] = static_cast<double>(stPlain.lMaxRssKb);
    state.counters["maxrss_empty_kb"] = static_cast<double>(stBase.lMaxRssKb);
    RemoveDir(strDir);
}
BENCHMARK(BM_Recover10kTriggers)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
