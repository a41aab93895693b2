// The SQLite store on files in a temporary state directory: records
// identified by their keys, what a restart brings back (records, settings,
// statistics), batches of five that skip records of the wrong
// length and see writes between batches, items of the wrong length ignored,
// writes refused once closed; a write durable when the process is killed,
// damaged or foreign files left alone, bad arguments. The module's failure
// paths over the fake's switches are in test_store_scalar.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fake_log.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_scalar.h"
#include "plat_dbm.h"

namespace {

MTE_EVENT_ROW_S EventRow(const std::string& strOwner, const std::string& strName,
                         const std::string& strComment = "") {
    MTE_EVENT_ROW_S stRow = {};
    stRow.uiEntryStatus = MTE_ROW_NOT_IN_SERVICE;
    stRow.uiEnabled = MTE_FALSE;
    strncpy(stRow.szOwner, strOwner.c_str(), sizeof(stRow.szOwner) - 1);
    strncpy(stRow.szName, strName.c_str(), sizeof(stRow.szName) - 1);
    strncpy(stRow.szComment, strComment.c_str(), sizeof(stRow.szComment) - 1);
    return stRow;
}

uint32_t InsertEvent(const MTE_EVENT_ROW_S& stRow) {
    return mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT);
}

// Reads a list in batches of five through the platform; each batch's count
// goes to pstrCounts, each event as "owner/name:comment;" to the result.
std::string ReadEvents(int64_t llHandle, std::string* pstrCounts = nullptr) {
    std::string strOut;
    DBM_ITERATOR pIter = nullptr;
    MTE_EVENT_ROW_S astBuf[5];
    int32_t iRead;
    do {
        iRead = DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, &pIter, 0, 0,
                                         sizeof(MTE_EVENT_ROW_S), 5, astBuf);
        for (int32_t i = 0; i < iRead; ++i) {
            strOut += std::string(astBuf[i].szOwner) + "/" + astBuf[i].szName + ":" +
                      astBuf[i].szComment + ";";
        }
        if (pstrCounts != nullptr) {
            *pstrCounts += std::to_string(iRead) + ",";
        }
    } while (iRead == 5);
    DBM_FreeIterator(&pIter);
    return strOut;
}

class StoreTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szTemplate[] = "/tmp/mte-store-XXXXXX";
        ASSERT_NE(mkdtemp(szTemplate), nullptr);
        m_strDir = szTemplate;
        setenv("STATE_DIRECTORY", m_strDir.c_str(), 1);
        [[maybe_unused]] static const uint32_t s_uiDbg = mte_DBG_Init();
        FAKE_LOG_Clear();
        mte_SCALAR_Init();
        ASSERT_EQ(mte_DBM_Init(), 0u);
    }
    void TearDown() override {
        mte_DBM_Fini();
        ASSERT_EQ(system(("rm -rf '" + m_strDir + "'").c_str()), 0);
    }
    // A restart: the modules go and come back from what was stored.
    uint32_t Restart() {
        mte_DBM_Fini();
        mte_SCALAR_Init();
        uint32_t uiRet = mte_DBM_Init();
        return uiRet != 0 ? uiRet : mte_DBM_Recover();
    }
    // The stored events, read on a handle of the test's own with the store closed.
    std::string Events(std::string* pstrCounts = nullptr) {
        mte_DBM_Fini();
        int64_t llHandle = MTE_DBM_OpenCfg(7);
        std::string strOut = ReadEvents(llHandle, pstrCounts);
        MTE_DBM_Close(llHandle);
        EXPECT_EQ(mte_DBM_Init(), 0u);
        return strOut;
    }
    static MTE_SCALAR_S Scalars() {
        MTE_SCALAR_S stScalars;
        mte_SCALAR_Get(&stScalars);
        return stScalars;
    }
    std::string m_strDir;
};

TEST_F(StoreTest, RecordsAreIdentifiedByTheirKeysAndComeBackWithTheSettings) {
    for (const MTE_EVENT_ROW_S& stRow :
         {EventRow("alice", "a", "one"), EventRow("alice", "b", "two"), EventRow("bob", "c", "x"),
          EventRow("alice", "b", "changed")}) {
        EXPECT_EQ(InsertEvent(stRow), 0u);
    }
    MTE_EVENT_ROW_S stGone = EventRow("bob", "c");
    EXPECT_EQ(mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteEvent", 9, &stGone, sizeof(stGone)), 0u);
    EXPECT_NE(mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteEvent", 9, &stGone, sizeof(stGone)), 0u);
    // Objects rows are told apart by their index as well.
    MTE_OBJ_ROW_S stObj = {};
    strcpy(stObj.szOwner, "o");
    strcpy(stObj.szName, "objs");
    for (uint32_t uiIndex : {1u, 2u, 1u}) {
        stObj.uiIndex = uiIndex;
        EXPECT_EQ(mte_DBM_InsertSortList(MTE_DBM_CFG, "mteObjects", 11, &stObj, sizeof(stObj),
                                         MTE_TBL_OBJECTS),
                  0u);
    }
    EXPECT_EQ(mte_SCALAR_SetSampleMin(7), 0u);
    EXPECT_EQ(mte_SCALAR_SetInstancesMax(40), 0u);
    mte_SCALAR_EventFailuresInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_SaveData();
    EXPECT_EQ(Events(), "alice/a:one;alice/b:changed;");
    ASSERT_EQ(Restart(), 0u);
    MTE_SCALAR_S stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleMinimum, 7u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 40u);
    EXPECT_EQ(stScalars.uiSampleInstances, 0u);
    EXPECT_EQ(stScalars.uiTriggerFailures, 2u);
    EXPECT_EQ(stScalars.uiEventFailures, 1u);
    // Two objects records: removing both leaves none.
    for (uint32_t uiIndex : {1u, 2u}) {
        stObj.uiIndex = uiIndex;
        EXPECT_EQ(mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteObjects", 11, &stObj, sizeof(stObj)),
                  0u);
    }
    EXPECT_NE(mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteObjects", 11, &stObj, sizeof(stObj)), 0u);
}

TEST_F(StoreTest, EmptyStoreKeepsTheDefaultsAndWrongLengthItemsAreIgnored) {
    ASSERT_EQ(Restart(), 0u);
    MTE_SCALAR_S stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleMinimum, 1u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 0u);
    EXPECT_EQ(stScalars.uiEventFailures, 0u);
    EXPECT_EQ(mte_BIN_GetRecover(), 0u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE",
                             "Ln:1224 Event-MIB module binary recovery: "
                             "Obtained sortlist num = 10."),
              1u);
    const uint64_t ulEight = 77;
    const uint16_t usTwo = 77;
    const char acLong[20] = {1};
    ASSERT_EQ(mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &ulEight, 8, MTE_ITEM_ID_SAMP_MINI),
              0u);
    ASSERT_EQ(
        mte_DBM_SetBinary(MTE_DBM_CFG, "SampInstMax", 12, &usTwo, 2, MTE_ITEM_ID_SAMP_INST_MAX),
        0u);
    ASSERT_EQ(mte_DBM_SetBinary(MTE_DBM_RUN, "StatisticData", 14, acLong, sizeof(acLong),
                                MTE_ITEM_ID_STATISTIC_DATA),
              0u);
    ASSERT_EQ(Restart(), 0u);
    stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleMinimum, 1u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 0u);
    EXPECT_EQ(stScalars.uiSampleInstancesHigh, 0u);
}

TEST_F(StoreTest, BatchesOfFiveSkipRecordsOfTheWrongLength) {
    // A short record among the good ones, as a damaged or foreign store holds it.
    mte_DBM_Fini();
    int64_t llHandle = MTE_DBM_OpenCfg(7);
    MTE_EVENT_ROW_S stOdd = EventRow("m", "odd");
    DBM_InsertSortList(llHandle, "mteEvent", 9, 100, &stOdd, MTE_TBL_EVENT);
    MTE_DBM_Close(llHandle);
    ASSERT_EQ(mte_DBM_Init(), 0u);
    const struct {
        int iRecords;
        const char* pszCounts;
    } astCases[] = {{0, "0,"}, {5, "5,0,"}, {7, "5,2,"}, {10, "5,5,0,"}};
    int iMade = 0;
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.iRecords);
        for (; iMade < stCase.iRecords; ++iMade) {
            InsertEvent(EventRow("m", "r" + std::to_string(iMade)));
        }
        std::string strCounts;
        Events(&strCounts);
        EXPECT_EQ(strCounts, stCase.pszCounts);
    }
    ASSERT_EQ(Restart(), 0u);  // the replay skips it too
}

TEST_F(StoreTest, WritesBetweenBatchesAreSeenWithoutRepeatsOrGaps) {
    for (int i = 0; i < 7; ++i) {
        InsertEvent(EventRow("w", "r" + std::to_string(i)));
    }
    mte_DBM_Fini();
    int64_t llHandle = MTE_DBM_OpenCfg(7);
    DBM_ITERATOR pIter = nullptr;
    MTE_EVENT_ROW_S astBuf[5];
    EXPECT_EQ(DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, &pIter, 0, 0,
                                       sizeof(MTE_EVENT_ROW_S), 5, astBuf),
              5);
    MTE_EVENT_ROW_S stGone = EventRow("w", "r5");
    DBM_RemoveSortList(llHandle, "mteEvent", 9, sizeof(stGone), &stGone);
    MTE_EVENT_ROW_S stNew = EventRow("w", "r99");
    DBM_InsertSortList(llHandle, "mteEvent", 9, sizeof(stNew), &stNew, MTE_TBL_EVENT);
    int32_t iRead = DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, &pIter, 0, 0,
                                             sizeof(MTE_EVENT_ROW_S), 5, astBuf);
    std::string strOut;
    for (int32_t i = 0; i < iRead; ++i) {
        strOut += std::string(astBuf[i].szName) + ",";
    }
    DBM_FreeIterator(&pIter);
    MTE_DBM_Close(llHandle);
    EXPECT_EQ(strOut, "r6,r99,");
}

TEST_F(StoreTest, WritesToAnUnknownOrClosedDatabaseFail) {
    MTE_EVENT_ROW_S stRow = EventRow("o", "e");
    uint32_t uiValue = 5;
    EXPECT_EQ(mte_DBM_InsertSortList(3, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT),
              MTE_ERR_GENERAL);
    EXPECT_EQ(mte_DBM_DelFromSortList(0, "mteEvent", 9, &stRow, sizeof(stRow)), 0xffffffffu);
    EXPECT_EQ(mte_DBM_SetBinary(7, "SampMini", 9, &uiValue, 4, MTE_ITEM_ID_SAMP_MINI),
              MTE_ERR_GENERAL);
    mte_DBM_Fini();
    mte_DBM_Fini();  // twice is harmless
    EXPECT_EQ(InsertEvent(stRow), MTE_ERR_GENERAL);
    EXPECT_EQ(mte_DBM_DelFromSortList(MTE_DBM_RUN, "mteEvent", 9, &stRow, sizeof(stRow)),
              0xffffffffu);
    EXPECT_EQ(mte_DBM_Recover(), MTE_ERR_GENERAL);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE",
                             "Ln:1217 Event-MIB module binary recovery: "
                             "Failed to get DBM handler."),
              1u);
}

// ---- the SQLite files -------------------------------------------------------

std::string ReadFile(const std::string& strPath) {
    std::ifstream stIn(strPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stIn), {});
}

void WriteFile(const std::string& strPath, const std::string& strData) {
    std::ofstream stOut(strPath, std::ios::binary | std::ios::trunc);
    stOut << strData;
}

TEST_F(StoreTest, WriteIsDurableWhenTheCallReturns) {
    mte_DBM_Fini();
    int aiPipe[2];
    ASSERT_EQ(pipe(aiPipe), 0);
    pid_t pid = fork();
    if (pid == 0) {
        close(aiPipe[0]);
        if (mte_DBM_Init() != 0) {
            _exit(1);
        }
        for (int i = 0; i < 3; ++i) {
            InsertEvent(EventRow("k", "row" + std::to_string(i), "v"));
            (void)!write(aiPipe[1], "w", 1);
        }
        uint32_t uiMin = 99;
        mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &uiMin, 4, MTE_ITEM_ID_SAMP_MINI);
        (void)!write(aiPipe[1], "w", 1);
        pause();
        _exit(0);
    }
    close(aiPipe[1]);
    // Killed the moment its fourth write has returned: no close, no checkpoint.
    char acBuf[4];
    size_t uiGot = 0;
    while (uiGot < 4) {
        ssize_t lRead = read(aiPipe[0], acBuf, 4 - uiGot);
        ASSERT_GT(lRead, 0);
        uiGot += static_cast<size_t>(lRead);
    }
    kill(pid, SIGKILL);
    int iStatus;
    waitpid(pid, &iStatus, 0);
    close(aiPipe[0]);
    ASSERT_EQ(Restart(), 0u);
    EXPECT_EQ(mte_SCALAR_GetSampMin(), 99u);
    EXPECT_EQ(Events(), "k/row0:v;k/row1:v;k/row2:v;");
}

TEST_F(StoreTest, DamagedOrForeignFilesAreLeftAlone) {
    for (int i = 0; i < 60; ++i) {
        InsertEvent(EventRow("owner", "event" + std::to_string(i), std::string(200, 'c')));
    }
    mte_DBM_Fini();
    const std::string strCfg = m_strDir + "/eventmib-config.db";
    const std::string strGood = ReadFile(strCfg);
    ASSERT_GT(strGood.size(), 8192u);
    std::string strForeign = m_strDir + "/foreign.db";
    sqlite3* pstDb = nullptr;
    ASSERT_EQ(sqlite3_open(strForeign.c_str(), &pstDb), SQLITE_OK);
    sqlite3_exec(pstDb, "CREATE TABLE t(x); INSERT INTO t VALUES(1);", nullptr, nullptr, nullptr);
    sqlite3_close(pstDb);
    std::string strMidPage = strGood;
    for (size_t i = 4096 + 8; i < 3 * 4096 && i < strMidPage.size(); ++i) {
        strMidPage[i] = static_cast<char>(i * 7);
    }
    std::string strNewerVersion = strGood;
    strNewerVersion[63] = 2;
    const struct {
        const char* pszCase;
        std::string strContent;
    } astCases[] = {
        {"empty", ""},
        {"garbage", std::string(5000, '\x5a')},
        {"cut in the header", strGood.substr(0, 60)},
        {"cut in half", strGood.substr(0, strGood.size() / 2)},
        {"pages overwritten", strMidPage},
        {"another application", ReadFile(strForeign)},
        {"newer schema", strNewerVersion},
    };
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.pszCase);
        WriteFile(strCfg, stCase.strContent);
        unlink((strCfg + "-wal").c_str());
        FAKE_LOG_Clear();
        EXPECT_EQ(MTE_DBM_OpenCfg(7), -1);
        EXPECT_EQ(mte_DBM_Init(), MTE_ERR_GENERAL);
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", strCfg), 2u);
        EXPECT_TRUE(ReadFile(strCfg) == stCase.strContent) << "the file was changed";
        struct stat stSt;
        EXPECT_NE(stat((strCfg + "-wal").c_str(), &stSt), 0);
    }
    // A damaged run-time database stops the start as well.
    const std::string strRun = m_strDir + "/gMTE.db";
    WriteFile(strCfg, strGood);
    WriteFile(strRun, "garbage");
    EXPECT_EQ(mte_DBM_Init(), MTE_ERR_GENERAL);
    EXPECT_EQ(ReadFile(strRun), "garbage");
    EXPECT_EQ(ReadFile(strCfg), strGood);
}

TEST_F(StoreTest, BadArgumentsAreRefused) {
    int64_t llHandle = -1;
    EXPECT_EQ(DBM_Open("../escape", "x", 7, nullptr, &llHandle), DBM_ERR);
    EXPECT_EQ(DBM_Open("", "x", 7, nullptr, &llHandle), DBM_ERR);
    llHandle = MTE_DBM_OpenCfg(7);
    MTE_EVENT_ROW_S stRow = EventRow("o", "n");
    // No such list; a record too short for its keys; an unknown handle.
    EXPECT_EQ(DBM_InsertSortList(llHandle, "nolist", 7, sizeof(stRow), &stRow, 6), DBM_ERR);
    EXPECT_EQ(DBM_InsertSortList(llHandle, "mteEvent", 9, 20, &stRow, MTE_TBL_EVENT), DBM_ERR);
    EXPECT_EQ(DBM_GetBinary(12345, "SampMini", 9, 0, 4, &stRow), -1);
    // A list created again with other keys is refused.
    DBM_KEY_S stKey = {0, 4, DBM_KEY_U32, 0};
    EXPECT_EQ(DBM_CreateSortList(llHandle, "mteEvent", 9, &stKey, 1, MTE_TBL_EVENT), DBM_ERR);
    MTE_DBM_Close(llHandle);
}

}  // namespace
