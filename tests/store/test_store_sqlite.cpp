// Persistence on real SQLite files: every step that matters runs in its own
// child process (open, change, exit or be killed; then a new process recovers
// and reports), so nothing can come from memory. Damaged or foreign files
// must make the open fail and stay byte-for-byte as they were.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/daemon_process.h"
#include "fake_log.h"
#include "mte_core.h"
#include "mte_memalert.h"
#include "mte_trigger.h"
#include "mte_dbm.h"
#include "mte_scalar.h"
#include "plat_dbm.h"
#include "store_test_util.h"

namespace {

// Runs the function in a child process; the child writes its report to the
// pipe. Returns the report, or "<died>" when the child did not exit with 0.
std::string RunChild(const std::function<std::string()>& fnBody, int iTimeoutSec = 20) {
    int aiPipe[2];
    if (pipe(aiPipe) != 0) {
        return "<pipe>";
    }
    pid_t pid = fork();
    if (pid == 0) {
        close(aiPipe[0]);
        std::string strOut = fnBody();
        (void)!write(aiPipe[1], strOut.data(), strOut.size());
        _exit(0);
    }
    close(aiPipe[1]);
    std::string strOut;
    char acBuf[4096];
    fcntl(aiPipe[0], F_SETFL, O_NONBLOCK);
    auto tEnd = std::chrono::steady_clock::now() + std::chrono::seconds(iTimeoutSec);
    int iStatus = 0;
    for (;;) {
        ssize_t lRead;
        while ((lRead = read(aiPipe[0], acBuf, sizeof(acBuf))) > 0) {
            strOut.append(acBuf, static_cast<size_t>(lRead));
        }
        if (waitpid(pid, &iStatus, WNOHANG) == pid) {
            while ((lRead = read(aiPipe[0], acBuf, sizeof(acBuf))) > 0) {
                strOut.append(acBuf, static_cast<size_t>(lRead));
            }
            break;
        }
        if (std::chrono::steady_clock::now() > tEnd) {
            kill(pid, SIGKILL);
            waitpid(pid, &iStatus, 0);
            close(aiPipe[0]);
            return "<timeout>";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    close(aiPipe[0]);
    return WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0 ? strOut : "<died>";
}

std::string ReadFile(const std::string& strPath) {
    std::ifstream stIn(strPath, std::ios::binary);
    std::stringstream stBuf;
    stBuf << stIn.rdbuf();
    return stBuf.str();
}

void WriteFile(const std::string& strPath, const std::string& strData) {
    std::ofstream stOut(strPath, std::ios::binary | std::ios::trunc);
    stOut << strData;
}

// Every stored record of a list, as "owner/name:comment" for events.
std::string DumpEvents(int64_t llHandle) {
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
    } while (iRead == 5);
    DBM_FreeIterator(&pIter);
    return strOut;
}

bool InsertEvent(const MTE_EVENT_ROW_S& stRow) {
    return mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow),
                                  MTE_TBL_EVENT) == 0;
}

class StoreSqliteTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szTemplate[] = "/tmp/mte-store-XXXXXX";
        ASSERT_NE(mkdtemp(szTemplate), nullptr);
        m_strDir = szTemplate;
        setenv("STATE_DIRECTORY", m_strDir.c_str(), 1);
        m_strCfg = m_strDir + "/eventmib-config.db";
        m_strRun = m_strDir + "/gMTE.db";
        FAKE_LOG_Clear();
    }
    void TearDown() override {
        std::string strCmd = "rm -rf '" + m_strDir + "'";
        ASSERT_EQ(system(strCmd.c_str()), 0);
    }
    std::string m_strDir, m_strCfg, m_strRun;
};

TEST_F(StoreSqliteTest, ChangesSurviveARestartExactly) {
    EXPECT_EQ(
        RunChild([] {
            if (mte_DBM_Init() != 0) {
                return std::string("init failed");
            }
            bool bOk = InsertEvent(StoreEventRow("alice", "a", "one")) &&
                       InsertEvent(StoreEventRow("alice", "b", "two")) &&
                       InsertEvent(StoreEventRow("bob", "c", "three")) &&
                       InsertEvent(StoreEventRow("alice", "b", "changed"));
            MTE_EVENT_ROW_S stGone = StoreEventRow("bob", "c");
            bOk = bOk &&
                  mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteEvent", 9, &stGone, sizeof(stGone)) == 0;
            // A second removal finds nothing.
            bOk = bOk &&
                  mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteEvent", 9, &stGone, sizeof(stGone)) != 0;
            bOk = bOk && mte_SCALAR_SetSampleMin(7) == 0 && mte_SCALAR_SetInstancesMax(40) == 0;
            mte_SCALAR_EventFailuresInc();
            mte_SCALAR_SaveData();
            mte_DBM_Fini();
            return std::string(bOk ? "ok" : "write failed");
        }),
        "ok");
    EXPECT_EQ(RunChild([] {
                  if (mte_DBM_Init() != 0 || mte_DBM_Recover() != 0) {
                      return std::string("init failed");
                  }
                  MTE_SCALAR_S stScalars;
                  mte_SCALAR_Get(&stScalars);
                  return DumpEvents(MTE_DBM_OpenCfg(7)) +
                         std::to_string(stScalars.uiSampleMinimum) + "," +
                         std::to_string(stScalars.uiSampleInstanceMaximum) + "," +
                         std::to_string(stScalars.uiEventFailures);
              }),
              "alice/a:one;alice/b:changed;7,40,1");
}

TEST_F(StoreSqliteTest, WriteIsDurableWhenTheCallReturns) {
    int aiPipe[2];
    ASSERT_EQ(pipe(aiPipe), 0);
    pid_t pid = fork();
    if (pid == 0) {
        close(aiPipe[0]);
        if (mte_DBM_Init() != 0) {
            _exit(1);
        }
        for (int i = 0; i < 3; ++i) {
            InsertEvent(StoreEventRow("k", "row" + std::to_string(i), "v"));
            char c = 'w';
            (void)!write(aiPipe[1], &c, 1);
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
    EXPECT_EQ(RunChild([] {
                  if (mte_DBM_Init() != 0 || mte_DBM_Recover() != 0) {
                      return std::string("init failed");
                  }
                  return DumpEvents(MTE_DBM_OpenCfg(7)) + std::to_string(mte_SCALAR_GetSampMin());
              }),
              "k/row0:v;k/row1:v;k/row2:v;99");
}

TEST_F(StoreSqliteTest, BatchesOfFiveSkipRecordsOfTheWrongLength) {
    struct {
        int iRecords;
        std::string strCounts;
    } astCases[] = {{0, "0,"}, {5, "5,0,"}, {7, "5,2,"}, {10, "5,5,0,"}};
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.iRecords);
        unlink(m_strCfg.c_str());
        EXPECT_EQ(RunChild([&] {
                      if (mte_DBM_Init() != 0) {
                          return std::string("init failed");
                      }
                      // Short and long records among the good ones, as a damaged
                      // or foreign store would hold them.
                      MTE_EVENT_ROW_S stOdd = StoreEventRow("m", "odd");
                      DBM_InsertSortList(MTE_DBM_OpenCfg(7), "mteEvent", 9, 100, &stOdd,
                                         MTE_TBL_EVENT);
                      for (int i = 0; i < stCase.iRecords; ++i) {
                          InsertEvent(StoreEventRow("m", "r" + std::to_string(i)));
                      }
                      mte_DBM_Fini();
                      FAKE_LOG_Clear();
                      int64_t llHandle = MTE_DBM_OpenCfg(7);
                      DBM_ITERATOR pIter = nullptr;
                      MTE_EVENT_ROW_S astBuf[5];
                      std::string strCounts;
                      int32_t iRead;
                      do {
                          iRead = DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, &pIter, 0, 0,
                                                           sizeof(MTE_EVENT_ROW_S), 5, astBuf);
                          strCounts += std::to_string(iRead) + ",";
                      } while (iRead == 5);
                      DBM_FreeIterator(&pIter);
                      return strCounts + " skipped " +
                             std::to_string(FAKE_LOG_Count("EVENTMIB_TRACE", "100 bytes"));
                  }),
                  stCase.strCounts + " skipped 1");
    }
}

TEST_F(StoreSqliteTest, WritesBetweenBatchesAreSeenWithoutRepeatsOrGaps) {
    EXPECT_EQ(RunChild([] {
                  if (mte_DBM_Init() != 0) {
                      return std::string("init failed");
                  }
                  for (int i = 0; i < 7; ++i) {
                      InsertEvent(StoreEventRow("w", "r" + std::to_string(i)));
                  }
                  int64_t llHandle = MTE_DBM_OpenCfg(7);
                  DBM_ITERATOR pIter = nullptr;
                  MTE_EVENT_ROW_S astBuf[5];
                  std::string strOut;
                  int32_t iRead = DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, &pIter, 0, 0,
                                                           sizeof(MTE_EVENT_ROW_S), 5, astBuf);
                  strOut += std::to_string(iRead) + ":";
                  // Changes through the same handle while the iterator is half-way.
                  MTE_EVENT_ROW_S stGone = StoreEventRow("w", "r5");
                  DBM_RemoveSortList(llHandle, "mteEvent", 9, sizeof(stGone), &stGone);
                  MTE_EVENT_ROW_S stNew = StoreEventRow("w", "r99");
                  DBM_InsertSortList(llHandle, "mteEvent", 9, sizeof(stNew), &stNew, MTE_TBL_EVENT);
                  iRead = DBM_BatchGetNextSortList(llHandle, "mteEvent", 9, &pIter, 0, 0,
                                                   sizeof(MTE_EVENT_ROW_S), 5, astBuf);
                  for (int32_t i = 0; i < iRead; ++i) {
                      strOut += std::string(astBuf[i].szName) + ",";
                  }
                  DBM_FreeIterator(&pIter);
                  MTE_DBM_Close(llHandle);
                  return strOut;
              }),
              "5:r6,r99,");
}

TEST_F(StoreSqliteTest, DamagedOrForeignFilesAreLeftAlone) {
    // A good store to damage.
    ASSERT_EQ(RunChild([] {
                  if (mte_DBM_Init() != 0) {
                      return std::string("init failed");
                  }
                  for (int i = 0; i < 60; ++i) {
                      InsertEvent(StoreEventRow("owner", "event" + std::to_string(i),
                                                std::string(200, 'c')));
                  }
                  mte_DBM_Fini();
                  return std::string("ok");
              }),
              "ok");
    const std::string strGood = ReadFile(m_strCfg);
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

    struct {
        const char* pszCase;
        std::string strContent;
    } astCases[] = {
        {"empty", ""},
        {"garbage", std::string(5000, '\x5a')},
        {"text", "this is not a database\n"},
        {"cut in the header", strGood.substr(0, 60)},
        {"cut in half", strGood.substr(0, strGood.size() / 2)},
        {"pages overwritten", strMidPage},
        {"another application", ReadFile(strForeign)},
        {"newer schema", strNewerVersion},
    };
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.pszCase);
        WriteFile(m_strCfg, stCase.strContent);
        unlink((m_strCfg + "-wal").c_str());
        EXPECT_EQ(RunChild([&] {
                      FAKE_LOG_Clear();
                      int64_t llHandle = MTE_DBM_OpenCfg(7);
                      uint32_t uiInit = mte_DBM_Init();
                      return std::to_string(llHandle) + " " + std::to_string(uiInit) + " " +
                             std::to_string(FAKE_LOG_Count("EVENTMIB_TRACE", m_strCfg));
                  }),
                  "-1 1073807361 2");
        EXPECT_TRUE(ReadFile(m_strCfg) == stCase.strContent) << "the file was changed";
        struct stat stSt;
        EXPECT_NE(stat((m_strCfg + "-wal").c_str(), &stSt), 0);
    }
    // A damaged run-time database stops the start as well.
    WriteFile(m_strCfg, strGood);
    WriteFile(m_strRun, "garbage");
    EXPECT_EQ(RunChild([] { return std::to_string(mte_DBM_Init()); }), "1073807361");
    EXPECT_EQ(ReadFile(m_strRun), "garbage");
    EXPECT_EQ(ReadFile(m_strCfg), strGood);
}

TEST_F(StoreSqliteTest, BadArgumentsAreRefused) {
    EXPECT_EQ(RunChild([] {
                  std::string strOut;
                  int64_t llHandle = -1;
                  strOut += std::to_string(DBM_Open("../escape", "x", 7, nullptr, &llHandle)) + ",";
                  strOut += std::to_string(DBM_Open("", "x", 7, nullptr, &llHandle)) + ",";
                  llHandle = MTE_DBM_OpenCfg(7);
                  MTE_EVENT_ROW_S stRow = StoreEventRow("o", "n");
                  // No such list; a record too short for its keys; an unknown handle.
                  strOut += std::to_string(DBM_InsertSortList(llHandle, "nolist", 7, sizeof(stRow),
                                                              &stRow, 6)) +
                            ",";
                  mte_DBM_Init();
                  strOut += std::to_string(DBM_InsertSortList(llHandle, "mteEvent", 9, 20, &stRow,
                                                              MTE_TBL_EVENT)) +
                            ",";
                  strOut += std::to_string(DBM_GetBinary(12345, "SampMini", 9, 0, 4, &stRow)) + ",";
                  // A list created again with other keys is refused.
                  DBM_KEY_S stKey = {0, 4, DBM_KEY_U32, 0};
                  strOut += std::to_string(
                      DBM_CreateSortList(llHandle, "mteEvent", 9, &stKey, 1, MTE_TBL_EVENT));
                  return strOut;
              }),
              "1,1,1,1,-1,1");
}

void StartTriggerModules() {
    mte_EPOLL_Init();
    mte_MEMALERT_Init();
    if (mte_DBM_Init() != 0) {
        _exit(3);
    }
    mte_TRIGGER_Init();
    mte_SCALAR_Init();
}

MTE_TRIGGER_ROW_S TriggerRequest(const char* pszName, uint32_t uiStatus) {
    MTE_TRIGGER_ROW_S stRow = StoreTriggerRow("ops", pszName);
    const uint32_t auiOid[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
    stRow.stValueID.uiLen = 9;
    memcpy(stRow.stValueID.auiOid, auiOid, sizeof(auiOid));
    stRow.uiFrequency = 30;
    stRow.uiEntryStatus = uiStatus;
    return stRow;
}

TEST_F(StoreSqliteTest, TriggerRowsComeBackInANewProcess) {
    constexpr uint32_t uiCreate =
        MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID) | MTE_COLUMN_BIT(MTE_TRIGGER_COL_FREQUENCY) |
        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_BOOLEAN) | MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS);
    EXPECT_EQ(RunChild([&] {
                  StartTriggerModules();
                  uint32_t uiFailed = 0;
                  std::string strOut;
                  for (const char* pszName : {"cpu", "disk", "temp"}) {
                      MTE_TRIGGER_ROW_S stRow = TriggerRequest(pszName, MTE_ROW_CREATE_AND_WAIT);
                      stRow.ucTest = MTE_TEST_BOOLEAN;
                      strOut += std::to_string(mte_TRIGGER_Set(&stRow, uiCreate, &uiFailed));
                  }
                  MTE_TRIGGER_ROW_S stChange = TriggerRequest("disk", MTE_ROW_NONE);
                  strcpy(stChange.szComment, "watch the disks");
                  strOut += std::to_string(mte_TRIGGER_Set(
                      &stChange, MTE_COLUMN_BIT(MTE_TRIGGER_COL_COMMENT), &uiFailed));
                  MTE_TRIGGER_ROW_S stDestroy = TriggerRequest("temp", MTE_ROW_DESTROY);
                  strOut += std::to_string(mte_TRIGGER_Set(
                      &stDestroy, MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS), &uiFailed));
                  return strOut;
              }),
              "00000");
    EXPECT_EQ(
        RunChild([] {
            StartTriggerModules();
            if (mte_DBM_Recover() != 0) {
                return std::string("recover failed");
            }
            std::string strOut;
            uint8_t ucFlags = 0;
            for (MTE_TRIGGER_ENTRY_S* pst = mte_TRIGGER_GetNextTriggerEntry(0, "", "", &ucFlags);
                 pst != nullptr; pst = pst->pstNext) {
                strOut += std::string(pst->stRow.szName) + ":" + pst->stRow.szComment + ":" +
                          std::to_string(pst->stRow.uiEntryStatus) + ":" +
                          (pst->pstBool != nullptr ? "bool" : "-") + ";";
            }
            return strOut;
        }),
        "cpu::2:bool;disk:watch the disks:2:bool;");
}

// The daemon itself stops with 255 on a damaged store and leaves it alone.
TEST(StoreDaemonTest, DamagedStoreStopsTheDaemonUntouched) {
    MteDaemonProcess stDaemon;
    std::string strCfg = stDaemon.StateDir() + "/eventmib-config.db";
    const std::string strGarbage(3000, '\x17');
    WriteFile(strCfg, strGarbage);
    ASSERT_TRUE(stDaemon.Start());
    int iStatus = 0;
    ASSERT_TRUE(stDaemon.WaitExit(10000, &iStatus)) << "still running with a damaged store";
    ASSERT_TRUE(WIFEXITED(iStatus));
    EXPECT_EQ(WEXITSTATUS(iStatus), 255);
    EXPECT_TRUE(ReadFile(strCfg) == strGarbage);
    EXPECT_EQ(stDaemon.CountStderr(strCfg), 1u) << stDaemon.Stderr();
}

}  // namespace
