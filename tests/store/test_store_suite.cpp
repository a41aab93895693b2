// The SQLite store on files in a temporary state directory: the settings and
// statistics a restart brings back, batches of five that skip records of the
// wrong length and see writes between batches, damaged or foreign files left
// alone, a write durable when the process is killed, bad arguments. The module's paths over the
// fake's switches are in test_store_scalar.cpp.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "fake_log.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "plat_dbm.h"

namespace {

MTE_EVENT_ROW_S EventRow(const std::string& strOwner, const std::string& strName,
                         const std::string& strComment = "") {
    MTE_EVENT_ROW_S stRow = {};
    stRow.uiEntryStatus = MTE_ROW_NOT_IN_SERVICE;  // a row the replay takes in
    strncpy(stRow.szOwner, strOwner.c_str(), sizeof(stRow.szOwner) - 1);
    strncpy(stRow.szName, strName.c_str(), sizeof(stRow.szName) - 1);
    strncpy(stRow.szComment, strComment.c_str(), sizeof(stRow.szComment) - 1);
    return stRow;
}

uint32_t InsertEvent(const MTE_EVENT_ROW_S& stRow) {
    return mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT);
}

// One batch of up to five events as "owner/name:comment;"; its size to piRead.
std::string Batch(int64_t llHandle, DBM_ITERATOR* pIter, int32_t* piRead) {
    MTE_EVENT_ROW_S astBuf[5];
    *piRead = DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, pIter, 0, 0,
                                       sizeof(MTE_EVENT_ROW_S), 5, astBuf);
    std::string strOut;
    for (int32_t i = 0; i < *piRead; ++i) {
        strOut += std::string(astBuf[i].szOwner) + "/" + astBuf[i].szName + ":" +
                  astBuf[i].szComment + ";";
    }
    return strOut;
}

std::string ReadFile(const std::string& strPath) {
    std::ifstream stIn(strPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stIn), {});
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
    // The sizes of the batches the stored events are read in, on a handle of
    // the test's own with the store closed.
    std::string BatchSizes() {
        mte_DBM_Fini();
        int64_t llHandle = MTE_DBM_OpenCfg(7);
        std::string strSizes;
        DBM_ITERATOR pIter = nullptr;
        int32_t iRead;
        do {
            Batch(llHandle, &pIter, &iRead);
            strSizes += std::to_string(iRead) + ",";
        } while (iRead == 5);
        DBM_FreeIterator(&pIter);
        MTE_DBM_Close(llHandle);
        EXPECT_EQ(mte_DBM_Init(), 0u);
        return strSizes;
    }
    static MTE_SCALAR_S Scalars() {
        MTE_SCALAR_S stScalars;
        mte_SCALAR_Get(&stScalars);
        return stScalars;
    }
    std::string m_strDir;
};

// Records and their keys come back in the process tests' restarts.
TEST_F(StoreTest, SettingsAndStatisticsComeBackFromItemsOfTheirLengthOnly) {
    EXPECT_EQ(mte_SCALAR_SetSampleMin(7), 0u);
    EXPECT_EQ(mte_SCALAR_SetInstancesMax(40), 0u);
    mte_SCALAR_EventFailuresInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_SaveData();
    MTE_OBJ_ROW_S stObj = {};  // taken in by its table on the restart
    strcpy(stObj.szOwner, "o");
    strcpy(stObj.szName, "objs");
    stObj.uiIndex = 2;
    mte_DBM_InsertSortList(MTE_DBM_CFG, "mteObjects", 11, &stObj, sizeof(stObj), MTE_TBL_OBJECTS);
    ASSERT_EQ(Restart(), 0u);
    EXPECT_EQ(mte_BIN_GetRecover(), 0u);
    EXPECT_NE(mte_OBJ_Get("o", "objs", 2), nullptr);
    MTE_SCALAR_S stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleMinimum, 7u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 40u);
    EXPECT_EQ(stScalars.uiTriggerFailures, 2u);
    EXPECT_EQ(stScalars.uiEventFailures, 1u);

    // Items of the wrong length, as a damaged or foreign store holds them,
    // leave the defaults in place.
    const uint64_t ulEight = 77;
    const uint16_t usTwo = 77;
    const char acLong[20] = {1};
    mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &ulEight, 8, MTE_ITEM_ID_SAMP_MINI);
    mte_DBM_SetBinary(MTE_DBM_CFG, "SampInstMax", 12, &usTwo, 2, MTE_ITEM_ID_SAMP_INST_MAX);
    mte_DBM_SetBinary(MTE_DBM_RUN, "StatisticData", 14, acLong, 20, MTE_ITEM_ID_STATISTIC_DATA);
    ASSERT_EQ(Restart(), 0u);
    stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleMinimum, 1u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 0u);
    EXPECT_EQ(stScalars.uiSampleInstancesHigh, 0u);
}

TEST_F(StoreTest, BatchesOfFiveSkipShortRecordsAndSeeWritesBetweenBatches) {
    // A short record among the good ones, as a damaged or foreign store holds it.
    mte_DBM_Fini();
    int64_t llHandle = MTE_DBM_OpenCfg(7);
    MTE_EVENT_ROW_S stOdd = EventRow("m", "odd");
    DBM_InsertSortList(llHandle, "mteEvent", 9, 100, &stOdd, MTE_TBL_EVENT);
    MTE_DBM_Close(llHandle);
    ASSERT_EQ(mte_DBM_Init(), 0u);
    const std::pair<int, const char*> astCases[] = {
        {0, "0,"}, {5, "5,0,"}, {7, "5,2,"}, {10, "5,5,0,"}};
    int iMade = 0;
    for (const auto& [iRecords, pszCounts] : astCases) {
        SCOPED_TRACE(iRecords);
        for (; iMade < iRecords; ++iMade) {
            InsertEvent(EventRow("m", "r" + std::to_string(iMade)));
        }
        EXPECT_EQ(BatchSizes(), pszCounts);
    }
    ASSERT_EQ(Restart(), 0u);  // the replay skips it too

    // A record removed and one added after the first batch: the second batch
    // goes on from the last key read, without repeats or gaps.
    mte_DBM_Fini();
    llHandle = MTE_DBM_OpenCfg(7);
    DBM_ITERATOR pIter = nullptr;
    int32_t iRead;
    Batch(llHandle, &pIter, &iRead);
    MTE_EVENT_ROW_S stGone = EventRow("m", "r5");
    MTE_EVENT_ROW_S stNew = EventRow("m", "r99");
    DBM_RemoveSortList(llHandle, "mteEvent", 9, sizeof(stGone), &stGone);
    DBM_InsertSortList(llHandle, "mteEvent", 9, sizeof(stNew), &stNew, MTE_TBL_EVENT);
    EXPECT_EQ(Batch(llHandle, &pIter, &iRead), "m/r6:;m/r7:;m/r8:;m/r9:;m/r99:;");
    DBM_FreeIterator(&pIter);
    MTE_DBM_Close(llHandle);
}

// Acknowledged means stored: a process killed the moment its last write
// returned (no close, no checkpoint) loses none of them. The store-fault tests
// prove the same on a full disk, but they skip where mounting is not allowed.
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
        for (uint32_t i = 1; i <= 3; ++i) {
            MTE_OBJ_ROW_S stObj = {};
            strcpy(stObj.szOwner, "o");
            strcpy(stObj.szName, "objs");
            stObj.uiIndex = i;
            mte_DBM_InsertSortList(MTE_DBM_CFG, "mteObjects", 11, &stObj, sizeof(stObj),
                                   MTE_TBL_OBJECTS);
        }
        uint32_t uiMin = 99;
        mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &uiMin, 4, MTE_ITEM_ID_SAMP_MINI);
        (void)!write(aiPipe[1], "w", 1);
        pause();
        _exit(0);
    }
    close(aiPipe[1]);
    char cByte;
    ASSERT_EQ(read(aiPipe[0], &cByte, 1), 1);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    close(aiPipe[0]);
    ASSERT_EQ(Restart(), 0u);
    EXPECT_EQ(mte_SCALAR_GetSampMin(), 99u);
    for (uint32_t i = 1; i <= 3; ++i) {
        EXPECT_NE(mte_OBJ_Get("o", "objs", i), nullptr) << i;
    }
}

TEST_F(StoreTest, DamagedOrForeignFilesAreLeftAlone) {
    for (int i = 0; i < 60; ++i) {
        InsertEvent(EventRow("owner", "event" + std::to_string(i), std::string(200, 'c')));
    }
    mte_DBM_Fini();
    const std::string strCfg = m_strDir + "/eventmib-config.db";
    const std::string strGood = ReadFile(strCfg);
    std::string strForeign = strGood;  // another application's id, as SQLite's default
    strForeign.replace(68, 4, 4, '\0');
    std::string strNewerVersion = strGood;
    strNewerVersion[63] = 2;
    const std::pair<const char*, std::string> astCases[] = {
        {"empty", ""},
        {"cut in half", strGood.substr(0, strGood.size() / 2)},
        {"another application", strForeign},
        {"newer schema", strNewerVersion},
    };
    for (const auto& [pszCase, strContent] : astCases) {
        SCOPED_TRACE(pszCase);
        std::ofstream(strCfg, std::ios::binary | std::ios::trunc) << strContent;
        unlink((strCfg + "-wal").c_str());
        FAKE_LOG_Clear();
        EXPECT_EQ(MTE_DBM_OpenCfg(7), -1);
        EXPECT_EQ(mte_DBM_Init(), MTE_ERR_GENERAL);
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", strCfg), 2u);
        EXPECT_TRUE(ReadFile(strCfg) == strContent) << "the file was changed";
        EXPECT_NE(access((strCfg + "-wal").c_str(), F_OK), 0);
    }
    // A damaged run-time database stops the start as well.
    const std::string strRun = m_strDir + "/gMTE.db";
    std::ofstream(strCfg, std::ios::binary | std::ios::trunc) << strGood;
    std::ofstream(strRun) << "garbage";
    EXPECT_EQ(mte_DBM_Init(), MTE_ERR_GENERAL);
    EXPECT_EQ(InsertEvent(EventRow("o", "e")), MTE_ERR_GENERAL);  // nothing stays open
    EXPECT_EQ(ReadFile(strRun), "garbage");
    EXPECT_EQ(ReadFile(strCfg), strGood);
}

TEST_F(StoreTest, BadArgumentsAreRefused) {
    MTE_EVENT_ROW_S stRow = EventRow("o", "n");
    int64_t llHandle = -1;
    EXPECT_EQ(DBM_Open("../escape", "x", 7, nullptr, &llHandle), DBM_ERR);
    llHandle = MTE_DBM_OpenCfg(7);
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
