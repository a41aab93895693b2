// Fake database manager in memory. Handle 1 is the configuration store, 2 the
// run-time database; a list is keyed by the bytes of its key fields.
#include "fake_dbm.h"

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>

#include "plat_dbm.h"

namespace {
struct LIST_S {
    std::vector<DBM_KEY_S> astKeys;
    std::map<std::string, std::string> mapRecords;  // key bytes -> record
};
struct DB_S {
    bool bOpen = false;
    std::map<std::string, LIST_S> mapLists;
    std::map<std::string, std::string> mapItems;
    std::map<uint32_t, std::string> mapNames;  // list or item id -> name
};
using ITER_S = std::optional<std::string>;  // the last key read

std::recursive_mutex g_stLock;
DB_S g_astDb[3];
bool g_bFailWrites = false;
std::atomic<uint64_t> g_ulWrites{0};

DB_S* FindDb(int64_t llHandle) {
    return llHandle >= 1 && llHandle <= 2 && g_astDb[llHandle].bOpen ? &g_astDb[llHandle] : nullptr;
}

std::string KeyOf(const LIST_S& stList, const void* pRecord, uint32_t uiSize) {
    std::string strKey;
    const char* pc = static_cast<const char*>(pRecord);
    for (const DBM_KEY_S& stKey : stList.astKeys) {
        if (stKey.uiOffset + stKey.uiLength > uiSize) {
            continue;
        }
        if (stKey.uiType == DBM_KEY_STRING) {
            strKey.append(pc + stKey.uiOffset, strnlen(pc + stKey.uiOffset, stKey.uiLength));
            strKey.push_back('\0');
        } else {
            strKey.append(pc + stKey.uiOffset, stKey.uiLength);
        }
    }
    return strKey;
}

std::string Name(const char* pszName, uint32_t uiNameSize) {
    return std::string(pszName, strnlen(pszName, uiNameSize));
}

LIST_S* FindList(int64_t llHandle, const char* pszName, uint32_t uiNameSize) {
    DB_S* pstDb = FindDb(llHandle);
    if (pstDb == nullptr) {
        return nullptr;
    }
    auto it = pstDb->mapLists.find(Name(pszName, uiNameSize));
    return it == pstDb->mapLists.end() ? nullptr : &it->second;
}

// Counts the write; the list, or null when the write fails.
LIST_S* WriteList(int64_t llHandle, const char* pszName, uint32_t uiNameSize) {
    ++g_ulWrites;
    return g_bFailWrites ? nullptr : FindList(llHandle, pszName, uiNameSize);
}
}  // namespace

void FAKE_DBM_Reset(void) {
    std::lock_guard guard(g_stLock);
    for (DB_S& stDb : g_astDb) {
        stDb = DB_S{};
    }
    g_bFailWrites = false;
    g_ulWrites = 0;
}

void FAKE_DBM_FailWrites(bool bFail) {
    std::lock_guard guard(g_stLock);
    g_bFailWrites = bFail;
}

std::vector<std::string> FAKE_DBM_Records(const std::string& strList) {
    std::lock_guard guard(g_stLock);
    std::vector<std::string> astOut;
    for (const auto& [strKey, strRecord] : g_astDb[1].mapLists[strList].mapRecords) {
        astOut.push_back(strRecord);
    }
    return astOut;
}

void FAKE_DBM_PutRaw(const std::string& strList, const std::string& strRecord) {
    std::lock_guard guard(g_stLock);
    LIST_S& stList = g_astDb[1].mapLists[strList];
    stList.mapRecords["raw" + std::to_string(stList.mapRecords.size())] = strRecord;
}

uint64_t FAKE_DBM_WriteCount(void) {
    return g_ulWrites;
}

int64_t MTE_DBM_OpenCfg(uint32_t uiMode) {
    std::lock_guard guard(g_stLock);
    g_astDb[1].bOpen = true;
    return 1;
}

uint32_t MTE_DBM_Close(int64_t llHandle) {
    std::lock_guard guard(g_stLock);
    DB_S* pstDb = FindDb(llHandle);
    if (pstDb != nullptr) {
        pstDb->bOpen = false;
    }
    return pstDb == nullptr ? 1 : 0;
}

uint32_t DBM_Open(const char* pszName, const char* pszDesc, uint32_t uiMode,
                  const DBM_OPEN_OPT_S* pstOpt, int64_t* pllHandle) {
    std::lock_guard guard(g_stLock);
    g_astDb[2].bOpen = true;
    *pllHandle = 2;
    return 0;
}

uint32_t DBM_CreateSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            const DBM_KEY_S* pstKeys, uint32_t uiKeyCount, uint32_t uiTableId) {
    std::lock_guard guard(g_stLock);
    DB_S* pstDb = FindDb(llHandle);
    if (pstDb == nullptr) {
        return 1;
    }
    pstDb->mapNames[uiTableId] = Name(pszName, uiNameSize);
    LIST_S& stList = pstDb->mapLists[Name(pszName, uiNameSize)];
    stList.astKeys.assign(pstKeys, pstKeys + uiKeyCount);
    return 0;
}

uint32_t DBM_InsertSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiRecordSize, const void* pRecord, uint32_t uiTableId) {
    std::lock_guard guard(g_stLock);
    LIST_S* pstList = WriteList(llHandle, pszName, uiNameSize);
    if (pstList == nullptr) {
        return 1;
    }
    pstList->mapRecords[KeyOf(*pstList, pRecord, uiRecordSize)] =
        std::string(static_cast<const char*>(pRecord), uiRecordSize);
    return 0;
}

uint32_t DBM_RemoveSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                            uint32_t uiRecordSize, const void* pRecord) {
    std::lock_guard guard(g_stLock);
    LIST_S* pstList = WriteList(llHandle, pszName, uiNameSize);
    return pstList != nullptr &&
                   pstList->mapRecords.erase(KeyOf(*pstList, pRecord, uiRecordSize)) == 1
               ? 0
               : 1;
}

uint32_t DBM_SetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize,
                       uint32_t uiOffset, uint32_t uiSize, const void* pData, uint32_t uiItemId) {
    std::lock_guard guard(g_stLock);
    ++g_ulWrites;
    DB_S* pstDb = FindDb(llHandle);
    if (pstDb == nullptr || g_bFailWrites) {
        return 1;
    }
    pstDb->mapNames[uiItemId] = Name(pszItem, uiNameSize);
    pstDb->mapItems[Name(pszItem, uiNameSize)].assign(static_cast<const char*>(pData), uiSize);
    return 0;
}

// Items are always read from their start.
int32_t DBM_GetBinary(int64_t llHandle, const char* pszItem, uint32_t uiNameSize, uint32_t uiOffset,
                      uint32_t uiSize, void* pBuf) {
    std::lock_guard guard(g_stLock);
    DB_S* pstDb = FindDb(llHandle);
    if (pstDb == nullptr) {
        return -1;
    }
    const std::string& strItem = pstDb->mapItems[Name(pszItem, uiNameSize)];
    size_t uiCopy = std::min<size_t>(uiSize, strItem.size());
    memcpy(pBuf, strItem.data(), uiCopy);
    return static_cast<int32_t>(uiCopy);
}

// The callbacks run unlocked, as they take the tables' locks.
uint32_t DBM_Batch_Proc(int64_t llHandle, int64_t llFlag, const DBM_BATCH_ROW_S* pstRows,
                        uint32_t uiCount) {
    std::vector<std::string> astNames(uiCount);
    {
        std::lock_guard guard(g_stLock);
        DB_S* pstDb = FindDb(llHandle);
        if (pstDb == nullptr) {
            return 1;
        }
        for (uint32_t i = 0; i < uiCount; ++i) {
            astNames[i] = pstDb->mapNames[pstRows[i].uiId];
        }
    }
    for (uint32_t i = 0; i < uiCount; ++i) {
        if (!astNames[i].empty()) {
            pstRows[i].pfProc(llHandle, astNames[i].c_str(),
                              static_cast<uint32_t>(astNames[i].size() + 1));
        }
    }
    return 0;
}

// A record of another length, as a damaged store holds it, is passed over.
int32_t DBM_BatchGetNextSortList(int64_t llHandle, const char* pszName, uint32_t uiNameSize,
                                 DBM_ITERATOR* pIterator, uint32_t uiArg5, uint32_t uiArg6,
                                 uint32_t uiRecordSize, uint32_t uiCount, void* pBuf) {
    std::lock_guard guard(g_stLock);
    if (FindDb(llHandle) == nullptr || pIterator == nullptr) {
        return -1;
    }
    LIST_S* pstList = FindList(llHandle, pszName, uiNameSize);
    if (pstList == nullptr) {
        return 0;
    }
    if (*pIterator == nullptr) {
        *pIterator = new ITER_S;
    }
    ITER_S& strLast = *static_cast<ITER_S*>(*pIterator);
    auto& mapRecords = pstList->mapRecords;
    auto it = strLast ? mapRecords.upper_bound(*strLast) : mapRecords.begin();
    uint32_t uiRead = 0;
    for (; it != mapRecords.end() && uiRead < uiCount; ++it) {
        strLast = it->first;
        if (it->second.size() == uiRecordSize) {
            memcpy(static_cast<char*>(pBuf) + uiRead++ * uiRecordSize, it->second.data(),
                   uiRecordSize);
        }
    }
    return static_cast<int32_t>(uiRead);
}

void DBM_FreeIterator(DBM_ITERATOR* pIterator) {
    if (pIterator != nullptr) {
        delete static_cast<ITER_S*>(*pIterator);
        *pIterator = nullptr;
    }
}

const char* DBM_LastWriteError(int64_t llHandle) {
    return g_bFailWrites ? "writes fail (fake)" : "";
}
