// Database manager on SQLite: sorted record lists identified by their key
// fields, and binary items, in files under the daemon's state directory
// ("eventmib-config.db" for the configuration store, "<name>.db" for a
// database opened by name). Every write is one autocommit transaction in WAL
// mode with synchronous=FULL, so it is on disk when the call returns; the
// statements are prepared once per database and reused.
//
// A file that is not one of ours, or is damaged, is never written: its header
// is read with plain read(2) before SQLite sees it, then an integrity check
// runs on the main file opened immutable (no write-ahead log replayed, no
// side file made), and on any doubt the open fails with a trace naming the
// file and the cause. A file that cannot be written (read-only file system,
// permission, no space) is never called damaged. New files are built under a
// temporary name and renamed into place, so a crash while creating never
// leaves a half-made store under the real name.
//
// A reserve file of DBM_RESERVE_SIZE bytes in the state directory keeps room
// for the databases: when a write or an open fails for lack of space the
// reserve is released and the write is tried again at once; it is made again
// once the file system has room for it twice over.
//
// Called from the main thread; one process-wide mutex guards the handle table
// and every SQLite call, so a stray call from another thread is merely slower.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "plat_dbm.h"
#include "plat_log.h"
#include "plat_paths.h"

namespace {

// Recognises our files: "MTEv" in the header's application id, schema version 1.
constexpr uint32_t DBM_APPLICATION_ID = 0x4d544576;
constexpr uint32_t DBM_SCHEMA_VERSION = 1;
constexpr size_t DBM_SQLITE_HEADER_SIZE = 100;
constexpr size_t DBM_USER_VERSION_OFFSET = 60;
constexpr size_t DBM_APPLICATION_ID_OFFSET = 68;
constexpr const char* DBM_CFG_FILE = "eventmib-config.db";
constexpr const char* DBM_DEFAULT_STATE_DIR = "/var/lib/eventmibd";
constexpr const char* DBM_RESERVE_FILE = "eventmib-reserve";
// About 150 to 250 stored changes of write-ahead log on a full file system.
constexpr off_t DBM_RESERVE_SIZE = 2 * 1024 * 1024;
constexpr int64_t DBM_RESERVE_RETRY_MS = 1000;
// Less free room than this counts as a full file system when SQLite reports
// only an I/O error (growing the -shm index of a full tmpfs does that).
constexpr uint64_t DBM_FULL_BELOW = 64 * 1024;
constexpr uint32_t DBM_PRI_TRACE = 0x10000000u | LOG_LOCAL7 | LOG_ERR;
constexpr uint32_t DBM_PRI_WARNING = 0x10000000u | LOG_LOCAL7 | LOG_WARNING;

constexpr const char* DBM_SCHEMA_SQL =
    "CREATE TABLE sortlist(list_id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE,"
    " table_id INTEGER NOT NULL, keys BLOB NOT NULL);"
    "CREATE TABLE record(list_id INTEGER NOT NULL, key BLOB NOT NULL, data BLOB NOT NULL,"
    " UNIQUE(list_id, key));"
    "CREATE TABLE item(name TEXT PRIMARY KEY, item_id INTEGER NOT NULL, data BLOB NOT NULL);";

// Records live in a rowid table with a unique index on their keys: a 1220-byte
// trigger row fits in a 4 KiB table page, where an index-organised table would
// spill most of every row to an overflow page and triple the file.
struct DBM_LIST_S {
    int64_t llListId = 0;
    uint32_t uiTableId = 0;
    std::vector<DBM_KEY_S> astKeys;
};

// Statements prepared once per database; every call resets what it used.
enum DBM_STMT_E {
    DBM_STMT_INSERT,
    DBM_STMT_DELETE,
    DBM_STMT_NEXT,
    DBM_STMT_ITEM_GET,
    DBM_STMT_ITEM_SET,
    DBM_STMT_ITEM_BY_ID,
    DBM_STMT_COUNT
};
constexpr const char* DBM_STMT_SQL[DBM_STMT_COUNT] = {
    "INSERT OR REPLACE INTO record(list_id, key, data) VALUES(?1, ?2, ?3)",
    "DELETE FROM record WHERE list_id = ?1 AND key = ?2",
    "SELECT key, data FROM record WHERE list_id = ?1 AND key > ?2 ORDER BY key",
    "SELECT data FROM item WHERE name = ?1",
    "INSERT OR REPLACE INTO item(name, item_id, data) VALUES(?1, ?2, ?3)",
    "SELECT name FROM item WHERE item_id = ?1",
};

struct DBM_DB_S {
    sqlite3* pstDb = nullptr;
    std::string strPath;
    sqlite3_stmt* apstStmt[DBM_STMT_COUNT] = {};
    std::map<std::string, DBM_LIST_S> mapLists;
    uint64_t ulWrites = 0;      // tells an iterator that its cursor may be stale
    std::string strWriteError;  // why the last write failed; empty after a success
};

// Position of a batched read: the key of the last record looked at, and its
// own cursor, which carries on from batch to batch as long as nothing was
// written in between (else it seeks again after the key).
struct DBM_ITER_S {
    std::string strLastKey;
    sqlite3_stmt* pstStmt = nullptr;
    int64_t llListId = 0;
    uint64_t ulWritesSeen = 0;
    bool bPositioned = false;
};

std::mutex g_stDbmLock;
// The reason of a failed open, kept past the close of the connection it came from.
thread_local char g_szDbmWhy[256];
std::map<int64_t, DBM_DB_S*> g_mapDbmHandles;
int64_t g_llDbmNextHandle = 1;
// The reserve file: held while it exists with its full size; made again at
// most once per DBM_RESERVE_RETRY_MS.
bool g_bDbmReserveHeld = false;
int64_t g_llDbmReserveTriedMs = -DBM_RESERVE_RETRY_MS;

// Resets a statement on every way out of the function that used it.
class DBM_STMT_GUARD {
  public:
    explicit DBM_STMT_GUARD(sqlite3_stmt* pstStmt) : m_pstStmt(pstStmt) {}
    ~DBM_STMT_GUARD() {
        sqlite3_reset(m_pstStmt);
        sqlite3_clear_bindings(m_pstStmt);
    }
    DBM_STMT_GUARD(const DBM_STMT_GUARD&) = delete;
    DBM_STMT_GUARD& operator=(const DBM_STMT_GUARD&) = delete;

  private:
    sqlite3_stmt* m_pstStmt;
};

const char* dbm_KeepReason(sqlite3* pstDb) {
    snprintf(g_szDbmWhy, sizeof(g_szDbmWhy), "%s",
             pstDb != nullptr ? sqlite3_errmsg(pstDb) : "out of memory");
    return g_szDbmWhy;
}

void dbm_Trace(const char* pszFormat, const std::string& strPath, const char* pszWhy) {
    syslog2(DBM_PRI_TRACE, "EVENTMIB", "EVENTMIB_TRACE", pszFormat, strPath.c_str(), pszWhy);
}

std::string dbm_StateDir(void) {
    std::string strDir = PLAT_StateDir();
    if (!strDir.empty()) {
        return strDir;
    }
    // systemd may list several directories separated by colons: ours is the first.
    const char* pszEnv = getenv("STATE_DIRECTORY");
    if (pszEnv != nullptr && pszEnv[0] != '\0') {
        strDir = pszEnv;
        return strDir.substr(0, strDir.find(':'));
    }
    return DBM_DEFAULT_STATE_DIR;
}

std::string dbm_Name(const char* pszName, uint32_t uiNameSize) {
    return std::string(pszName, strnlen(pszName, uiNameSize));
}

DBM_DB_S* dbm_Find(int64_t llHandle) {
    auto it = g_mapDbmHandles.find(llHandle);
    return it == g_mapDbmHandles.end() ? nullptr : it->second;
}

DBM_LIST_S* dbm_FindList(DBM_DB_S* pstDb, const char* pszName, uint32_t uiNameSize) {
    auto it = pstDb->mapLists.find(dbm_Name(pszName, uiNameSize));
    return it == pstDb->mapLists.end() ? nullptr : &it->second;
}

uint32_t dbm_BigEndian32(const uint8_t* puc) {
    return (uint32_t{puc[0]} << 24) | (uint32_t{puc[1]} << 16) | (uint32_t{puc[2]} << 8) | puc[3];
}

// The key bytes of a record, ordered as memcmp orders them: a string field up
// to its NUL (bounded by the field) then a NUL, a number big-endian.
bool dbm_KeyOf(const DBM_LIST_S& stList, const void* pRecord, uint32_t uiSize,
               std::string* pstrKey) {
    const char* pc = static_cast<const char*>(pRecord);
    pstrKey->clear();
    for (const DBM_KEY_S& stKey : stList.astKeys) {
        if (stKey.uiOffset > uiSize || stKey.uiLength > uiSize - stKey.uiOffset) {
            return false;
        }
        const char* pcField = pc + stKey.uiOffset;
        if (stKey.uiType == DBM_KEY_U32 && stKey.uiLength == sizeof(uint32_t)) {
            uint32_t uiValue;
            memcpy(&uiValue, pcField, sizeof(uiValue));
            char acBe[4] = {static_cast<char>(uiValue >> 24), static_cast<char>(uiValue >> 16),
                            static_cast<char>(uiValue >> 8), static_cast<char>(uiValue)};
            pstrKey->append(acBe, sizeof(acBe));
        } else if (stKey.uiType == DBM_KEY_STRING) {
            pstrKey->append(pcField, strnlen(pcField, stKey.uiLength));
            pstrKey->push_back('\0');
        } else {
            pstrKey->append(pcField, stKey.uiLength);
        }
    }
    return true;
}

bool dbm_Exec(sqlite3* pstDb, const char* pszSql) {
    return sqlite3_exec(pstDb, pszSql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Runs a query that yields one integer.
bool dbm_QueryInt(sqlite3* pstDb, const char* pszSql, int64_t* pllOut) {
    sqlite3_stmt* pstStmt = nullptr;
    if (sqlite3_prepare_v2(pstDb, pszSql, -1, &pstStmt, nullptr) != SQLITE_OK) {
        return false;
    }
    bool bOk = sqlite3_step(pstStmt) == SQLITE_ROW;
    if (bOk) {
        *pllOut = sqlite3_column_int64(pstStmt, 0);
    }
    sqlite3_finalize(pstStmt);
    return bOk;
}

bool dbm_FsyncPath(const std::string& strPath, int iFlags) {
    int iFd = open(strPath.c_str(), iFlags | O_CLOEXEC);
    if (iFd < 0) {
        return false;
    }
    bool bOk = fsync(iFd) == 0;
    close(iFd);
    return bOk;
}

std::string dbm_DirOf(const std::string& strPath) {
    size_t uiSlash = strPath.rfind('/');
    return uiSlash == std::string::npos ? "." : strPath.substr(0, uiSlash);
}

int64_t dbm_NowMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

std::string dbm_ReservePath(void) {
    return dbm_StateDir() + "/" + DBM_RESERVE_FILE;
}

// Bytes an unprivileged writer may still use in the directory's file system.
bool dbm_FreeBytes(const std::string& strDir, uint64_t* pulFree, bool* pbReadOnly) {
    struct statvfs stVfs;
    if (statvfs(strDir.c_str(), &stVfs) != 0) {
        return false;
    }
    *pulFree = static_cast<uint64_t>(stVfs.f_bavail) * stVfs.f_frsize;
    *pbReadOnly = (stVfs.f_flag & ST_RDONLY) != 0;
    return true;
}

// Makes the reserve when it is missing and the file system has room for it
// twice over, so that making it never takes the last free space. Call with
// g_stDbmLock held.
void dbm_ReserveEnsure(void) {
    int64_t llNow = dbm_NowMs();
    if (g_bDbmReserveHeld || llNow - g_llDbmReserveTriedMs < DBM_RESERVE_RETRY_MS) {
        return;
    }
    g_llDbmReserveTriedMs = llNow;
    std::string strPath = dbm_ReservePath();
    struct stat stSt;
    if (stat(strPath.c_str(), &stSt) == 0 && stSt.st_blocks * 512 >= DBM_RESERVE_SIZE) {
        g_bDbmReserveHeld = true;  // left by an earlier run
        return;
    }
    uint64_t ulFree = 0;
    bool bReadOnly = false;
    if (!dbm_FreeBytes(dbm_DirOf(strPath), &ulFree, &bReadOnly) || bReadOnly ||
        ulFree < 2 * static_cast<uint64_t>(DBM_RESERVE_SIZE)) {
        return;
    }
    int iFd = open(strPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (iFd < 0) {
        return;
    }
    g_bDbmReserveHeld = posix_fallocate(iFd, 0, DBM_RESERVE_SIZE) == 0;
    close(iFd);
    if (!g_bDbmReserveHeld) {
        unlink(strPath.c_str());
    }
}

// Gives the reserve's room back to the databases; true when there was a
// reserve to give. Call with g_stDbmLock held.
bool dbm_ReserveRelease(void) {
    bool bReleased = unlink(dbm_ReservePath().c_str()) == 0;
    g_bDbmReserveHeld = false;
    if (bReleased) {
        g_llDbmReserveTriedMs = dbm_NowMs();
    }
    return bReleased;
}

bool dbm_IsDamage(int iRc) {
    int iPrimary = iRc & 0xff;
    return iPrimary == SQLITE_CORRUPT || iPrimary == SQLITE_NOTADB;
}

// The cause of a failed open or write that lies outside the file: read-only
// file system, permission or no space; nullptr when none of them applies.
const char* dbm_OutsideCause(const std::string& strPath, int iRc) {
    std::string strDir = dbm_DirOf(strPath);
    uint64_t ulFree = UINT64_MAX;
    bool bReadOnly = false;
    (void)dbm_FreeBytes(strDir, &ulFree, &bReadOnly);
    if (bReadOnly) {
        return "the file system is read-only";
    }
    for (const std::string& strWritable : {strDir, strPath}) {
        if (access(strWritable.c_str(), W_OK) != 0 && (errno == EACCES || errno == EPERM)) {
            return "permission denied (the daemon's user cannot write it or its directory)";
        }
    }
    if ((iRc & 0xff) == SQLITE_FULL || ulFree < DBM_FULL_BELOW) {
        return "no space left on the file system";
    }
    return nullptr;
}

bool dbm_IsNoSpace(const char* pszWhy) {
    return pszWhy != nullptr && strncmp(pszWhy, "no space", 8) == 0;
}

// A file URI that opens the main file alone, read-only, without the
// write-ahead log and without making any side file: nothing can be written.
std::string dbm_ImmutableUri(const std::string& strPath) {
    std::string strUri = "file:";
    for (unsigned char uc : strPath) {
        if (isalnum(uc) != 0 || strchr("/-._~", uc) != nullptr) {
            strUri.push_back(static_cast<char>(uc));
        } else {
            char szHex[4];
            snprintf(szHex, sizeof(szHex), "%%%02X", uc);
            strUri += szHex;
        }
    }
    return strUri + "?immutable=1";
}

// Runs PRAGMA quick_check: SQLITE_OK with *pbIntact, or the error that
// stopped it (which may be a cause outside the file, such as no space for
// the -shm index).
int dbm_QuickCheck(sqlite3* pstDb, bool* pbIntact) {
    *pbIntact = false;
    sqlite3_stmt* pstCheck = nullptr;
    int iRc = sqlite3_prepare_v2(pstDb, "PRAGMA quick_check(1)", -1, &pstCheck, nullptr);
    if (iRc == SQLITE_OK) {
        iRc = sqlite3_step(pstCheck);
        if (iRc == SQLITE_ROW) {
            const unsigned char* pucResult = sqlite3_column_text(pstCheck, 0);
            *pbIntact =
                pucResult != nullptr && strcmp(reinterpret_cast<const char*>(pucResult), "ok") == 0;
            iRc = SQLITE_OK;
        }
    }
    sqlite3_finalize(pstCheck);
    return iRc;
}

// Why a check that SQLite could not finish failed: a cause outside the file
// when there is one, damage only when SQLite says so.
const char* dbm_CheckFailure(const std::string& strPath, sqlite3* pstDb, int iRc) {
    if (dbm_IsDamage(iRc)) {
        return "damaged (integrity check failed)";
    }
    const char* pszCause = dbm_OutsideCause(strPath, iRc);
    return pszCause != nullptr ? pszCause : dbm_KeepReason(pstDb);
}

// Checks the main file as it lies on disk, without replaying its
// write-ahead log: a damaged file is refused before anything could write to
// it, WAL checkpoint included.
bool dbm_CheckMainFile(const std::string& strPath, const char** ppszWhy) {
    sqlite3* pstDb = nullptr;
    int iRc = sqlite3_open_v2(dbm_ImmutableUri(strPath).c_str(), &pstDb,
                              SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    bool bIntact = false;
    if (iRc == SQLITE_OK) {
        sqlite3_extended_result_codes(pstDb, 1);
        iRc = dbm_QuickCheck(pstDb, &bIntact);
    }
    if (iRc != SQLITE_OK) {
        *ppszWhy = dbm_CheckFailure(strPath, pstDb, iRc);
    } else if (!bIntact) {
        *ppszWhy = "damaged (integrity check failed)";
    }
    sqlite3_close(pstDb);
    return iRc == SQLITE_OK && bIntact;
}

// Looks at the file's header without SQLite, so nothing can be written to a
// file that is not ours. Returns false (with the reason) when the file must
// not be opened; *pbAbsent tells a missing file, which may be created.
bool dbm_CheckHeader(const std::string& strPath, bool* pbAbsent, const char** ppszWhy) {
    *pbAbsent = false;
    int iFd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (iFd < 0) {
        *pbAbsent = errno == ENOENT;
        *ppszWhy = strerror(errno);
        return *pbAbsent;
    }
    uint8_t aucHeader[DBM_SQLITE_HEADER_SIZE];
    ssize_t lRead = pread(iFd, aucHeader, sizeof(aucHeader), 0);
    close(iFd);
    if (lRead != static_cast<ssize_t>(sizeof(aucHeader)) ||
        memcmp(aucHeader, "SQLite format 3", 16) != 0) {
        *ppszWhy = "not a database (empty, truncated or foreign file)";
        return false;
    }
    if (dbm_BigEndian32(aucHeader + DBM_APPLICATION_ID_OFFSET) != DBM_APPLICATION_ID) {
        *ppszWhy = "a database of another application";
        return false;
    }
    if (dbm_BigEndian32(aucHeader + DBM_USER_VERSION_OFFSET) != DBM_SCHEMA_VERSION) {
        *ppszWhy = "an unknown schema version";
        return false;
    }
    return true;
}

// Builds an empty store under a temporary name and renames it into place once
// it is complete and on disk.
bool dbm_CreateFile(const std::string& strPath, const char** ppszWhy) {
    std::string strTmp = strPath + ".creating";
    unlink(strTmp.c_str());
    unlink((strTmp + "-wal").c_str());
    unlink((strTmp + "-shm").c_str());
    sqlite3* pstDb = nullptr;
    bool bOk = sqlite3_open_v2(strTmp.c_str(), &pstDb, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                               nullptr) == SQLITE_OK;
    char szPragma[96];
    snprintf(szPragma, sizeof(szPragma), "PRAGMA application_id=%u; PRAGMA user_version=%u;",
             DBM_APPLICATION_ID, DBM_SCHEMA_VERSION);
    bOk = bOk && dbm_Exec(pstDb, "PRAGMA synchronous=FULL") && dbm_Exec(pstDb, "BEGIN") &&
          dbm_Exec(pstDb, szPragma) && dbm_Exec(pstDb, DBM_SCHEMA_SQL) &&
          dbm_Exec(pstDb, "COMMIT") && dbm_Exec(pstDb, "PRAGMA journal_mode=WAL");
    if (!bOk) {
        const char* pszCause = dbm_OutsideCause(strTmp, sqlite3_extended_errcode(pstDb));
        *ppszWhy = pszCause != nullptr ? pszCause : dbm_KeepReason(pstDb);
    }
    // Closing checkpoints the WAL, so the header carries the id and version.
    if (sqlite3_close(pstDb) != SQLITE_OK) {
        bOk = false;
        *ppszWhy = "cannot close the new database";
    }
    if (bOk && (!dbm_FsyncPath(strTmp, O_RDONLY) || rename(strTmp.c_str(), strPath.c_str()) != 0 ||
                !dbm_FsyncPath(dbm_DirOf(strPath), O_RDONLY | O_DIRECTORY))) {
        bOk = false;
        const char* pszCause = dbm_OutsideCause(strTmp, SQLITE_IOERR);
        *ppszWhy = pszCause != nullptr ? pszCause : strerror(errno);
    }
    if (!bOk) {
        unlink(strTmp.c_str());
    }
    return bOk;
}

void dbm_CloseDb(DBM_DB_S* pstDb) {
    for (sqlite3_stmt*& pstStmt : pstDb->apstStmt) {
        sqlite3_finalize(pstStmt);
        pstStmt = nullptr;
    }
    // An iterator still holding a cursor keeps the connection until it is freed.
    sqlite3_close_v2(pstDb->pstDb);
    delete pstDb;
}

bool dbm_LoadLists(DBM_DB_S* pstDb) {
    sqlite3_stmt* pstStmt = nullptr;
    if (sqlite3_prepare_v2(pstDb->pstDb, "SELECT list_id, name, table_id, keys FROM sortlist", -1,
                           &pstStmt, nullptr) != SQLITE_OK) {
        return false;
    }
    int iRc;
    while ((iRc = sqlite3_step(pstStmt)) == SQLITE_ROW) {
        DBM_LIST_S stList;
        stList.llListId = sqlite3_column_int64(pstStmt, 0);
        stList.uiTableId = static_cast<uint32_t>(sqlite3_column_int64(pstStmt, 2));
        const void* pKeys = sqlite3_column_blob(pstStmt, 3);
        size_t uiKeyBytes = static_cast<size_t>(sqlite3_column_bytes(pstStmt, 3));
        stList.astKeys.resize(uiKeyBytes / sizeof(DBM_KEY_S));
        if (uiKeyBytes != 0) {
            memcpy(stList.astKeys.data(), pKeys, stList.astKeys.size() * sizeof(DBM_KEY_S));
        }
        const char* pszName = reinterpret_cast<const char*>(sqlite3_column_text(pstStmt, 1));
        pstDb->mapLists[pszName != nullptr ? pszName : ""] = std::move(stList);
    }
    sqlite3_finalize(pstStmt);
    return iRc == SQLITE_DONE;
}

// Removes the side files a refused open has made, so that a store that is
// refused is left as it was found; side files that were there stay.
class DBM_SIDE_FILES_GUARD {
  public:
    explicit DBM_SIDE_FILES_GUARD(const std::string& strPath) {
        for (const char* pszSuffix : {"-wal", "-shm"}) {
            std::string strSide = strPath + pszSuffix;
            if (access(strSide.c_str(), F_OK) != 0) {
                m_astrMade.push_back(strSide);
            }
        }
    }
    ~DBM_SIDE_FILES_GUARD() {
        for (const std::string& strSide : m_astrMade) {
            if (!m_bKeep) {
                unlink(strSide.c_str());
            }
        }
    }
    void Keep() { m_bKeep = true; }
    DBM_SIDE_FILES_GUARD(const DBM_SIDE_FILES_GUARD&) = delete;
    DBM_SIDE_FILES_GUARD& operator=(const DBM_SIDE_FILES_GUARD&) = delete;

  private:
    std::vector<std::string> m_astrMade;
    bool m_bKeep = false;
};

// Opens an existing file of ours: the main file checked as it lies, then
// opened read-write with its write-ahead log and checked again, then the
// pragmas that may write. Until every check has passed, closing the
// connection must not checkpoint the log into the main file. Returns nullptr
// (with the reason) when the file is not usable.
DBM_DB_S* dbm_OpenChecked(const std::string& strPath, const char** ppszWhy) {
    if (!dbm_CheckMainFile(strPath, ppszWhy)) {
        return nullptr;
    }
    DBM_DB_S* pstDb = new (std::nothrow) DBM_DB_S;
    if (pstDb == nullptr) {
        *ppszWhy = "out of memory";
        return nullptr;
    }
    pstDb->strPath = strPath;
    DBM_SIDE_FILES_GUARD stSideFiles(strPath);
    int iRc = sqlite3_open_v2(strPath.c_str(), &pstDb->pstDb, SQLITE_OPEN_READWRITE, nullptr);
    if (iRc != SQLITE_OK) {
        *ppszWhy = dbm_CheckFailure(strPath, pstDb->pstDb, iRc);
        dbm_CloseDb(pstDb);
        return nullptr;
    }
    sqlite3_db_config(pstDb->pstDb, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_extended_result_codes(pstDb->pstDb, 1);
    sqlite3_busy_timeout(pstDb->pstDb, 2000);
    // SQLite falls back to read-only where it may not write: such a store
    // would take changes it can never keep.
    if (sqlite3_db_readonly(pstDb->pstDb, "main") == 1) {
        const char* pszCause = dbm_OutsideCause(strPath, SQLITE_READONLY);
        *ppszWhy = pszCause != nullptr ? pszCause : "opened read-only";
        dbm_CloseDb(pstDb);
        return nullptr;
    }
    bool bIntact = false;
    iRc = dbm_QuickCheck(pstDb->pstDb, &bIntact);
    if (iRc != SQLITE_OK || !bIntact) {
        *ppszWhy = iRc != SQLITE_OK ? dbm_CheckFailure(strPath, pstDb->pstDb, iRc)
                                    : "damaged by its write-ahead log (integrity check failed)";
        dbm_CloseDb(pstDb);
        return nullptr;
    }
    int64_t llTables = 0;
    if (!dbm_QueryInt(pstDb->pstDb,
                      "SELECT count(*) FROM sqlite_schema WHERE type='table' AND name IN "
                      "('sortlist','record','item')",
                      &llTables) ||
        llTables != 3 || !dbm_LoadLists(pstDb)) {
        *ppszWhy = "a foreign schema";
        dbm_CloseDb(pstDb);
        return nullptr;
    }
    bool bOk = dbm_Exec(pstDb->pstDb, "PRAGMA journal_mode=WAL") &&
               dbm_Exec(pstDb->pstDb, "PRAGMA synchronous=FULL");
    for (int i = 0; bOk && i < DBM_STMT_COUNT; ++i) {
        bOk = sqlite3_prepare_v3(pstDb->pstDb, DBM_STMT_SQL[i], -1, SQLITE_PREPARE_PERSISTENT,
                                 &pstDb->apstStmt[i], nullptr) == SQLITE_OK;
    }
    if (!bOk) {
        *ppszWhy = dbm_CheckFailure(strPath, pstDb->pstDb, sqlite3_extended_errcode(pstDb->pstDb));
        dbm_CloseDb(pstDb);
        return nullptr;
    }
    sqlite3_db_config(pstDb->pstDb, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
    stSideFiles.Keep();
    return pstDb;
}

// Opens (or creates) a database file. Lack of space releases the reserve and
// tries once more, so an intact store on a full file system still starts.
int64_t dbm_OpenPath(const std::string& strPath) {
    mkdir(dbm_DirOf(strPath).c_str(), 0700);  // systemd normally made it already
    const char* pszWhy = "";
    DBM_DB_S* pstDb = nullptr;
    for (int iTry = 0; iTry < 2 && pstDb == nullptr; ++iTry) {
        bool bAbsent = false;
        if (!dbm_CheckHeader(strPath, &bAbsent, &pszWhy)) {
            break;
        }
        if (!bAbsent || dbm_CreateFile(strPath, &pszWhy)) {
            pstDb = dbm_OpenChecked(strPath, &pszWhy);
        }
        std::lock_guard guard(g_stDbmLock);
        if (pstDb == nullptr && !(dbm_IsNoSpace(pszWhy) && dbm_ReserveRelease())) {
            break;
        }
    }
    if (pstDb == nullptr) {
        dbm_Trace("Database file %s is not usable and is left as it is: %s.", strPath, pszWhy);
        return -1;
    }
    std::lock_guard guard(g_stDbmLock);
    dbm_ReserveEnsure();
    int64_t llHandle = g_llDbmNextHandle++;
    g_mapDbmHandles[llHandle] = pstDb;
    return llHandle;
}

// The database could not take a valid write now; the same write may
// succeed later (unlike a constraint or a misuse).
bool dbm_IsRefusal(int iRc) {
    switch (iRc & 0xff) {
        case SQLITE_FULL:
        case SQLITE_READONLY:
        case SQLITE_IOERR:
        case SQLITE_CANTOPEN:
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PERM:
        case SQLITE_NOMEM:
        case SQLITE_PROTOCOL:
            return true;
        default:
            return false;
    }
}

// Runs one write statement to its end: the autocommit makes it durable. A
// write refused for lack of space releases the reserve and runs once more.
// The caller keeps a refused write and tries it again; the reason is kept for
// its trace instead of a line per refused write. Call with g_stDbmLock held.
uint32_t dbm_StepWrite(DBM_DB_S* pstDb, sqlite3_stmt* pstStmt) {
    ++pstDb->ulWrites;
    int iRc = sqlite3_step(pstStmt);
    if ((iRc & 0xff) == SQLITE_FULL && dbm_ReserveRelease()) {
        sqlite3_reset(pstStmt);
        iRc = sqlite3_step(pstStmt);
    }
    if (iRc != SQLITE_DONE) {
        const char* pszCause = dbm_OutsideCause(pstDb->strPath, iRc);
        pstDb->strWriteError = pszCause != nullptr ? pszCause : sqlite3_errmsg(pstDb->pstDb);
        return dbm_IsRefusal(iRc) ? DBM_ERR_WRITE : DBM_ERR;
    }
    pstDb->strWriteError.clear();
    dbm_ReserveEnsure();
    return 0;
}

// Points the iterator's cursor at the first record after its key, unless it
// can simply carry on where the last batch stopped.
bool dbm_PositionIter(DBM_DB_S* pstDb, const DBM_LIST_S& stList, DBM_ITER_S* pstIter) {
    bool bSameDb =
        pstIter->pstStmt != nullptr && sqlite3_db_handle(pstIter->pstStmt) == pstDb->pstDb;
    if (bSameDb && pstIter->bPositioned && pstIter->llListId == stList.llListId &&
        pstIter->ulWritesSeen == pstDb->ulWrites) {
        return true;
    }
    if (pstIter->pstStmt != nullptr && !bSameDb) {
        sqlite3_finalize(pstIter->pstStmt);
        pstIter->pstStmt = nullptr;
    }
    if (pstIter->pstStmt == nullptr &&
        sqlite3_prepare_v2(pstDb->pstDb, DBM_STMT_SQL[DBM_STMT_NEXT], -1, &pstIter->pstStmt,
                           nullptr) != SQLITE_OK) {
        return false;
    }
    if (pstIter->llListId != stList.llListId) {
        pstIter->strLastKey.clear();  // another list: from its start
    }
    sqlite3_reset(pstIter->pstStmt);
    sqlite3_bind_int64(pstIter->pstStmt, 1, stList.llListId);
    sqlite3_bind_blob(pstIter->pstStmt, 2, pstIter->strLastKey.data(),
                      static_cast<int>(pstIter->strLastKey.size()), SQLITE_TRANSIENT);
    pstIter->llListId = stList.llListId;
    pstIter->bPositioned = true;
    return true;
}

// Copies up to uiCount records of the right size after the iterator's key.
int32_t dbm_ReadBatch(DBM_DB_S* pstDb, const std::string& strName, const DBM_LIST_S& stList,
                      DBM_ITER_S* pstIter, uint32_t uiRecordSize, uint32_t uiCount, char* pcOut) {
    if (!dbm_PositionIter(pstDb, stList, pstIter)) {
        return -1;
    }
    sqlite3_stmt* pstStmt = pstIter->pstStmt;
    uint32_t uiRead = 0;
    int iRc = SQLITE_ROW;
    while (uiRead < uiCount && (iRc = sqlite3_step(pstStmt)) == SQLITE_ROW) {
        const char* pcKey = static_cast<const char*>(sqlite3_column_blob(pstStmt, 0));
        pstIter->strLastKey.assign(pcKey != nullptr ? pcKey : "",
                                   static_cast<size_t>(sqlite3_column_bytes(pstStmt, 0)));
        const void* pData = sqlite3_column_blob(pstStmt, 1);
        uint32_t uiBytes = static_cast<uint32_t>(sqlite3_column_bytes(pstStmt, 1));
        if (uiBytes != uiRecordSize) {
            // A record of another length would be misread by its table.
            syslog2(DBM_PRI_WARNING, "EVENTMIB", "EVENTMIB_TRACE",
                    "Skipped a stored record of %u bytes in list %s of %s (expected %u).", uiBytes,
                    strName.c_str(), pstDb->strPath.c_str(), uiRecordSize);
            continue;
        }
        memcpy(pcOut + static_cast<size_t>(uiRead) * uiRecordSize, pData, uiRecordSize);
        ++uiRead;
    }
    if (uiRead == uiCount) {
        pstIter->ulWritesSeen = pstDb->ulWrites;  // the next batch carries on from here
    } else {
        // At the end (or on an error): release the read snapshot at once.
        sqlite3_reset(pstStmt);
        pstIter->bPositioned = false;
    }
    if (iRc != SQLITE_ROW && iRc != SQLITE_DONE) {
        return -1;
    }
    return static_cast<int32_t>(uiRead);
}

}  // namespace

int64_t MTE_DBM_OpenCfg(uint32_t uiMode) {
    return dbm_OpenPath(dbm_StateDir() + "/" + DBM_CFG_FILE);
}

uint32_t MTE_DBM_Close(int64_t llHandle) {
    DBM_DB_S* pstDb;
    {
        std::lock_guard guard(g_stDbmLock);
        pstDb = dbm_Find(llHandle);
        if (pstDb == nullptr) {
            return DBM_ERR;
        }
        g_mapDbmHandles.erase(llHandle);
    }
    dbm_CloseDb(pstDb);
    return 0;
}

uint32_t DBM_Open(const char* pszName, const char* pszDesc, uint32_t uiMode,
                  const DBM_OPEN_OPT_S* pstOpt, int64_t* pllHandle) {
    if (pszName == nullptr || pszName[0] == '\0' || strchr(pszName, '/') != nullptr ||
        pllHandle == nullptr) {
        return DBM_ERR;
    }
    int64_t llHandle = dbm_OpenPath(dbm_StateDir() + "/" + pszName + ".db");
    if (llHandle == -1) {
        return DBM_ERR;
    }
    *pllHandle = llHandle;
    return 0;
}

uint32_t DBM_CreateSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            const DBM_KEY_S* pstKeys, uint32_t uiKeyCount, uint32_t uiTableId) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    if (pstDb == nullptr || pszName == nullptr || pstKeys == nullptr || uiKeyCount == 0) {
        return DBM_ERR;
    }
    std::string strName = dbm_Name(pszName, uiNameSize);
    size_t uiKeyBytes = uiKeyCount * sizeof(DBM_KEY_S);
    if (DBM_LIST_S* pstList = dbm_FindList(pstDb, pszName, uiNameSize)) {
        // The stored keys were computed with these fields: any other layout
        // would misplace records, so the list must match exactly.
        if (pstList->uiTableId == uiTableId && pstList->astKeys.size() == uiKeyCount &&
            memcmp(pstList->astKeys.data(), pstKeys, uiKeyBytes) == 0) {
            return 0;
        }
        dbm_Trace("Database file %s is not usable and is left as it is: %s.", pstDb->strPath,
                  "a stored list has other keys");
        return DBM_ERR;
    }
    sqlite3_stmt* pstStmt = nullptr;
    if (sqlite3_prepare_v2(pstDb->pstDb,
                           "INSERT INTO sortlist(name, table_id, keys) VALUES(?1, ?2, ?3)", -1,
                           &pstStmt, nullptr) != SQLITE_OK) {
        return DBM_ERR;
    }
    sqlite3_bind_text(pstStmt, 1, strName.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_int64(pstStmt, 2, uiTableId);
    sqlite3_bind_blob(pstStmt, 3, pstKeys, static_cast<int>(uiKeyBytes), SQLITE_STATIC);
    uint32_t uiRet = dbm_StepWrite(pstDb, pstStmt);
    sqlite3_finalize(pstStmt);
    if (uiRet == 0) {
        DBM_LIST_S& stList = pstDb->mapLists[strName];
        stList.llListId = sqlite3_last_insert_rowid(pstDb->pstDb);
        stList.uiTableId = uiTableId;
        stList.astKeys.assign(pstKeys, pstKeys + uiKeyCount);
    }
    return uiRet;
}

uint32_t DBM_InsertSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiRecordSize, const void* pRecord, uint32_t uiTableId) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    if (pstDb == nullptr || pszName == nullptr || pRecord == nullptr) {
        return DBM_ERR;
    }
    DBM_LIST_S* pstList = dbm_FindList(pstDb, pszName, uiNameSize);
    std::string strKey;
    if (pstList == nullptr || !dbm_KeyOf(*pstList, pRecord, uiRecordSize, &strKey)) {
        return DBM_ERR;
    }
    sqlite3_stmt* pstStmt = pstDb->apstStmt[DBM_STMT_INSERT];
    DBM_STMT_GUARD stGuard(pstStmt);
    sqlite3_bind_int64(pstStmt, 1, pstList->llListId);
    sqlite3_bind_blob(pstStmt, 2, strKey.data(), static_cast<int>(strKey.size()), SQLITE_STATIC);
    sqlite3_bind_blob(pstStmt, 3, pRecord, static_cast<int>(uiRecordSize), SQLITE_STATIC);
    return dbm_StepWrite(pstDb, pstStmt);
}

uint32_t DBM_RemoveSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiRecordSize, const void* pRecord) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    if (pstDb == nullptr || pszName == nullptr || pRecord == nullptr) {
        return DBM_ERR;
    }
    DBM_LIST_S* pstList = dbm_FindList(pstDb, pszName, uiNameSize);
    std::string strKey;
    if (pstList == nullptr || !dbm_KeyOf(*pstList, pRecord, uiRecordSize, &strKey)) {
        return DBM_ERR;
    }
    sqlite3_stmt* pstStmt = pstDb->apstStmt[DBM_STMT_DELETE];
    DBM_STMT_GUARD stGuard(pstStmt);
    sqlite3_bind_int64(pstStmt, 1, pstList->llListId);
    sqlite3_bind_blob(pstStmt, 2, strKey.data(), static_cast<int>(strKey.size()), SQLITE_STATIC);
    uint32_t uiRet = dbm_StepWrite(pstDb, pstStmt);
    if (uiRet == 0 && sqlite3_changes(pstDb->pstDb) == 0) {
        return DBM_ERR;  // nothing stored under these keys
    }
    return uiRet;
}

uint32_t DBM_SetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize,
                       uint32_t uiOffset, uint32_t uiSize, const void* pData, uint32_t uiItemId) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    if (pstDb == nullptr || pszItem == nullptr || (pData == nullptr && uiSize != 0)) {
        return DBM_ERR;
    }
    std::string strName = dbm_Name(pszItem, uiNameSize);
    // A write at an offset keeps the bytes around it; the daemon writes whole items.
    std::string strData;
    if (uiOffset != 0) {
        sqlite3_stmt* pstGet = pstDb->apstStmt[DBM_STMT_ITEM_GET];
        DBM_STMT_GUARD stGuard(pstGet);
        sqlite3_bind_text(pstGet, 1, strName.c_str(), -1, SQLITE_STATIC);
        if (sqlite3_step(pstGet) == SQLITE_ROW) {
            strData.assign(static_cast<const char*>(sqlite3_column_blob(pstGet, 0)),
                           static_cast<size_t>(sqlite3_column_bytes(pstGet, 0)));
        }
    }
    if (strData.size() < uiOffset + static_cast<size_t>(uiSize)) {
        strData.resize(uiOffset + static_cast<size_t>(uiSize));
    }
    if (uiSize != 0) {
        memcpy(strData.data() + uiOffset, pData, uiSize);
    }
    sqlite3_stmt* pstStmt = pstDb->apstStmt[DBM_STMT_ITEM_SET];
    DBM_STMT_GUARD stGuard(pstStmt);
    sqlite3_bind_text(pstStmt, 1, strName.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_int64(pstStmt, 2, uiItemId);
    sqlite3_bind_blob(pstStmt, 3, strData.data(), static_cast<int>(strData.size()), SQLITE_STATIC);
    return dbm_StepWrite(pstDb, pstStmt);
}

int32_t DBM_GetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize, uint32_t uiOffset,
                      uint32_t uiSize, void* pBuf) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    if (pstDb == nullptr || pszItem == nullptr || (pBuf == nullptr && uiSize != 0)) {
        return -1;
    }
    std::string strName = dbm_Name(pszItem, uiNameSize);
    sqlite3_stmt* pstStmt = pstDb->apstStmt[DBM_STMT_ITEM_GET];
    DBM_STMT_GUARD stGuard(pstStmt);
    sqlite3_bind_text(pstStmt, 1, strName.c_str(), -1, SQLITE_STATIC);
    int iRc = sqlite3_step(pstStmt);
    if (iRc == SQLITE_DONE) {
        return 0;
    }
    if (iRc != SQLITE_ROW) {
        return -1;
    }
    size_t uiStored = static_cast<size_t>(sqlite3_column_bytes(pstStmt, 0));
    if (uiOffset >= uiStored) {
        return 0;
    }
    size_t uiCopy = std::min<size_t>(uiSize, uiStored - uiOffset);
    memcpy(pBuf, static_cast<const char*>(sqlite3_column_blob(pstStmt, 0)) + uiOffset, uiCopy);
    return static_cast<int32_t>(uiCopy);
}

uint32_t DBM_Batch_Proc(int64_t llHandle, int64_t llFlag, const DBM_BATCH_ROW_S* pstRows,
                        uint32_t uiCount) {
    if (pstRows == nullptr) {
        return DBM_ERR;
    }
    for (uint32_t i = 0; i < uiCount; ++i) {
        // Looked up under the lock, called without it: the row's function
        // reads the same database.
        std::string strName;
        {
            std::lock_guard guard(g_stDbmLock);
            DBM_DB_S* pstDb = dbm_Find(llHandle);
            if (pstDb == nullptr) {
                return DBM_ERR;
            }
            for (const auto& [strList, stList] : pstDb->mapLists) {
                if (stList.uiTableId == pstRows[i].uiId) {
                    strName = strList;
                }
            }
            if (strName.empty()) {
                sqlite3_stmt* pstStmt = pstDb->apstStmt[DBM_STMT_ITEM_BY_ID];
                DBM_STMT_GUARD stGuard(pstStmt);
                sqlite3_bind_int64(pstStmt, 1, pstRows[i].uiId);
                if (sqlite3_step(pstStmt) == SQLITE_ROW) {
                    strName = reinterpret_cast<const char*>(sqlite3_column_text(pstStmt, 0));
                }
            }
        }
        if (!strName.empty() && pstRows[i].pfProc != nullptr) {
            pstRows[i].pfProc(llHandle, strName.c_str(), static_cast<uint32_t>(strName.size() + 1));
        }
    }
    return 0;
}

int32_t DBM_BatchGetNextSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                                 DBM_ITERATOR* pIterator, uint32_t uiArg5, uint32_t uiArg6,
                                 uint32_t uiRecordSize, uint32_t uiCount, void* pBuf) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    if (pstDb == nullptr || pszName == nullptr || pIterator == nullptr || pBuf == nullptr ||
        uiRecordSize == 0) {
        return -1;
    }
    DBM_LIST_S* pstList = dbm_FindList(pstDb, pszName, uiNameSize);
    if (pstList == nullptr) {
        return 0;
    }
    if (*pIterator == nullptr) {
        *pIterator = new (std::nothrow) DBM_ITER_S;
        if (*pIterator == nullptr) {
            return -1;
        }
    }
    return dbm_ReadBatch(pstDb, dbm_Name(pszName, uiNameSize), *pstList,
                         static_cast<DBM_ITER_S*>(*pIterator), uiRecordSize, uiCount,
                         static_cast<char*>(pBuf));
}

void DBM_FreeIterator(DBM_ITERATOR* pIterator) {
    if (pIterator != nullptr) {
        DBM_ITER_S* pstIter = static_cast<DBM_ITER_S*>(*pIterator);
        std::lock_guard guard(g_stDbmLock);
        sqlite3_finalize(pstIter->pstStmt);
        delete pstIter;
        *pIterator = nullptr;
    }
}

const char* DBM_LastWriteError(int64_t llHandle) {
    std::lock_guard guard(g_stDbmLock);
    DBM_DB_S* pstDb = dbm_Find(llHandle);
    return pstDb != nullptr ? pstDb->strWriteError.c_str() : "not open";
}
