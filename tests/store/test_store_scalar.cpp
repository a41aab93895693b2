// Resource scalars and the memory guard on the fakes: instance accounting
// under the maximum and the memory guard, the high-water mark, counter wrap,
// when the statistics are saved; the guard's state at start, its
// announcements, and the end of its subscription; the store module's failed
// writes and opens and its replay in batches of five, on the fake's switches.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "fake_dbm.h"
#include "fake_log.h"
#include "fake_memalert.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_memalert.h"
#include "mte_scalar.h"
#include "plat_dbm.h"

namespace {

constexpr const char* BUCKET_FULL = "Failed to add sample records. Bucket is already full.";

// An item's stored bytes, read back through the store interface (the fake's
// handles are the database numbers).
std::string Item(int64_t llDb, const char* pszName) {
    char acBuf[64];
    int32_t iLen = DBM_GetBinary(llDb, pszName, strlen(pszName) + 1, 0, sizeof(acBuf), acBuf);
    return std::string(acBuf, iLen > 0 ? iLen : 0);
}

class StoreScalarTest : public ::testing::Test {
  protected:
    void SetUp() override {
        [[maybe_unused]] static const uint32_t s_uiDbg = mte_DBG_Init();
        FAKE_DBM_Reset();
        FAKE_LOG_Clear();
        FAKE_MEMALERT_Reset();
        mte_EPOLL_Init();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        mte_SCALAR_Init();
        mte_DBG_EnableSwitch(MTE_DBG_ERR);
    }
    void TearDown() override {
        mte_DBG_DisableSwitch(0xffffffffu);
        mte_MEMALERT_Fini();
        mte_DBM_Fini();
        mte_EPOLL_Fini();
    }
    static MTE_SCALAR_S Scalars() {
        MTE_SCALAR_S stScalars;
        mte_SCALAR_Get(&stScalars);
        return stScalars;
    }
};

TEST_F(StoreScalarTest, MaximumOfThreeRefusesTheFourth) {
    mte_SCALAR_SetInstancesMax(3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mte_SCALAR_CurInstanceInc(), 0u);
    }
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", BUCKET_FULL), 1u);
    EXPECT_EQ(Scalars().uiSampleInstances, 3u);
    EXPECT_EQ(Scalars().uiSampleInstancesHigh, 3u);

    mte_SCALAR_CurInstanceDec();
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), 0u);
    mte_SCALAR_CurInstanceSub(3);
    MTE_SCALAR_S stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleInstances, 0u);
    EXPECT_EQ(stScalars.uiSampleInstancesHigh, 3u);  // the mark stays when the count falls

    // Lowering the maximum below the count refuses further instances only.
    mte_SCALAR_SetInstancesMax(0);
    for (int i = 0; i < 5; ++i) {
        mte_SCALAR_CurInstanceInc();
    }
    mte_SCALAR_SetInstancesMax(2);
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(Scalars().uiSampleInstances, 5u);
    EXPECT_EQ(Scalars().uiSampleInstancesHigh, 5u);
    // With the error bit off the refusal is quiet.
    mte_DBG_DisableSwitch(MTE_DBG_ERR);
    FAKE_LOG_Clear();
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR"), 0u);
}

TEST_F(StoreScalarTest, NoMaximumNeverRefusesExceptUnderMemoryAlert) {
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(mte_SCALAR_CurInstanceInc(), 0u);
    }
    mte_MEMALERT_Proc(EPOLLIN,
                      (FAKE_MEMALERT_Announce(MTE_MEM_STATE_EXCEEDED), FAKE_MEMALERT_Fd()));
    ASSERT_EQ(mte_MEMALERT_GetFlag(), 1u);
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", BUCKET_FULL), 1u);
    mte_MEMALERT_Proc(EPOLLIN, (FAKE_MEMALERT_Announce(MTE_MEM_STATE_NORMAL), FAKE_MEMALERT_Fd()));
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), 0u);
    EXPECT_EQ(Scalars().uiSampleInstances, 1001u);
}

TEST_F(StoreScalarTest, ConcurrentReservationsNeverPassTheMaximum) {
    mte_SCALAR_SetInstancesMax(1000);
    std::atomic<uint32_t> uiGranted{0};
    std::vector<std::thread> astThreads;
    for (int t = 0; t < 4; ++t) {
        astThreads.emplace_back([&] {
            for (int i = 0; i < 600; ++i) {
                if (mte_SCALAR_CurInstanceInc() == 0) {
                    ++uiGranted;
                }
            }
        });
    }
    for (std::thread& stThread : astThreads) {
        stThread.join();
    }
    EXPECT_EQ(uiGranted.load(), 1000u);
    EXPECT_EQ(Scalars().uiSampleInstances, 1000u);
    EXPECT_EQ(Scalars().uiSampleInstancesHigh, 1000u);
}

TEST_F(StoreScalarTest, CountersWrapLikeCounter32) {
    const uint32_t auiMax[4] = {0xffffffffu, 0xffffffffu, 0xffffffffu, 0xffffffffu};
    mte_SCALAR_StatisticDataRecover(sizeof(auiMax), auiMax);
    mte_SCALAR_InstanceLacksInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_EventFailuresInc();
    MTE_SCALAR_S stScalars = Scalars();
    EXPECT_EQ(stScalars.uiSampleInstanceLacks, 0u);
    EXPECT_EQ(stScalars.uiTriggerFailures, 0u);
    EXPECT_EQ(stScalars.uiEventFailures, 0u);
    EXPECT_EQ(stScalars.uiSampleInstancesHigh, 0xffffffffu);
}

TEST_F(StoreScalarTest, StatisticsAreSavedOnlyWhenChanged) {
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    Scalars();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);

    mte_SCALAR_EventFailuresInc();
    mte_SCALAR_InstanceLacksInc();
    Scalars();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 1);
    const uint32_t auiExpected[4] = {0, 1, 0, 1};  // high, lacks, trigger, event failures
    EXPECT_EQ(Item(MTE_DBM_RUN, "StatisticData"),
              std::string(reinterpret_cast<const char*>(auiExpected), sizeof(auiExpected)));
    Scalars();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 1);

    // A new high-water mark is a change too; releasing instances is not.
    mte_SCALAR_CurInstanceInc();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 2);
    mte_SCALAR_CurInstanceDec();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 2);

    // A failed save is not retried until the next change.
    mte_SCALAR_TriggerFailuresInc();
    FAKE_DBM_FailWrites(true);
    mte_SCALAR_SaveData();
    FAKE_DBM_FailWrites(false);
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 3);
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 4);
}

TEST_F(StoreScalarTest, TimerHandlerSavesAfterReadingTheExpiryCount) {
    int iFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ASSERT_GE(iFd, 0);
    mte_SCALAR_EventFailuresInc();
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    mte_SCALAR_freshStati2DbmCallBack(EPOLLIN, iFd);  // nothing to read: no save
    mte_SCALAR_freshStati2DbmCallBack(EPOLLERR, iFd);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);
    uint64_t ulExpiries = 3;
    ASSERT_EQ(write(iFd, &ulExpiries, sizeof(ulExpiries)), 8);
    mte_SCALAR_freshStati2DbmCallBack(EPOLLIN, iFd);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 1);
    EXPECT_EQ(read(iFd, &ulExpiries, sizeof(ulExpiries)), -1);  // the count was consumed
    close(iFd);
}

TEST_F(StoreScalarTest, SettingsAreStoredAsGiven) {
    EXPECT_EQ(mte_SCALAR_SetSampleMin(0), 0u);
    EXPECT_EQ(mte_SCALAR_GetSampMin(), 0u);
    EXPECT_EQ(Item(MTE_DBM_CFG, "SampMini"), std::string(4, '\0'));
    EXPECT_EQ(mte_SCALAR_SetInstancesMax(0x01020304), 0u);
    const uint32_t uiMax = 0x01020304;
    EXPECT_EQ(Item(MTE_DBM_CFG, "SampInstMax"),
              std::string(reinterpret_cast<const char*>(&uiMax), 4));
    // A failed write keeps the value in memory.
    FAKE_DBM_FailWrites(true);
    EXPECT_EQ(mte_SCALAR_SetSampleMin(9), MTE_ERR_GENERAL);
    EXPECT_EQ(mte_SCALAR_GetSampMin(), 9u);
}

// The store module over the fake's failure switches and read counts.
uint32_t InsertEvent(const std::string& strName) {
    MTE_EVENT_ROW_S stRow = {};
    strcpy(stRow.szOwner, "o");
    strcpy(stRow.szName, strName.c_str());
    return mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT);
}

TEST_F(StoreScalarTest, FailedWritesAndOpensAreReported) {
    uint32_t uiValue = 5;
    FAKE_DBM_FailWrites(true);
    EXPECT_EQ(InsertEvent("e"), MTE_ERR_GENERAL);
    EXPECT_EQ(mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &uiValue, 4, MTE_ITEM_ID_SAMP_MINI),
              MTE_ERR_GENERAL);
    FAKE_DBM_FailWrites(false);
    for (auto [bCfg, bRun] : {std::pair{true, false}, std::pair{false, true}}) {
        mte_DBM_Fini();
        FAKE_DBM_FailOpen(bCfg, bRun);
        EXPECT_EQ(mte_DBM_Init(), MTE_ERR_GENERAL);
        // Nothing stays open after the failure.
        EXPECT_EQ(InsertEvent("e"), MTE_ERR_GENERAL);
        EXPECT_EQ(mte_DBM_Recover(), MTE_ERR_GENERAL);
    }
}

TEST_F(StoreScalarTest, ReplayReadsEveryListInBatchesOfFive) {
    const struct {
        int iRecords;
        uint64_t ulCallsForTheList;
    } astCases[] = {{0, 1}, {4, 1}, {5, 2}, {7, 2}, {10, 3}, {11, 3}};
    int iMade = 0;
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.iRecords);
        for (; iMade < stCase.iRecords; ++iMade) {
            InsertEvent("ev" + std::to_string(iMade));
        }
        uint64_t ulBefore = FAKE_DBM_BatchCalls();
        mte_DBM_Fini();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_DBM_Recover(), 0u);
        EXPECT_EQ(FAKE_DBM_BatchCalls() - ulBefore,
                  MTE_DBM_SORTLIST_ROWS + MTE_DBM_SORTLIST_EXT_ROWS - 1 + stCase.ulCallsForTheList);
    }
}

class StoreMemAlertTest : public ::testing::Test {
  protected:
    void SetUp() override {
        [[maybe_unused]] static const uint32_t s_uiDbg = mte_DBG_Init();
        FAKE_MEMALERT_Reset();
        FAKE_LOG_Clear();
        mte_EPOLL_Init();
    }
    void TearDown() override {
        mte_MEMALERT_Fini();
        mte_EPOLL_Fini();
    }
    static void Announce(uint32_t uiState) {
        FAKE_MEMALERT_Announce(uiState);
        mte_MEMALERT_Proc(EPOLLIN, FAKE_MEMALERT_Fd());
    }
    static size_t Traces(const char* pszPrefix) {
        return FAKE_LOG_Count("EVENTMIB_TRACE", pszPrefix);
    }
};

TEST_F(StoreMemAlertTest, StateAtStartSetsTheFlagQuietly) {
    struct {
        uint32_t uiState;
        uint32_t uiFlag;
    } astCases[] = {{1, 1}, {2, 1}, {3, 1}, {4, 0}, {6, 0}, {7, 0}, {0, 0}};
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.uiState);
        FAKE_MEMALERT_SetCurrentState(stCase.uiState);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        EXPECT_EQ(mte_MEMALERT_GetFlag(), stCase.uiFlag);
        mte_MEMALERT_Fini();
    }
    EXPECT_EQ(FAKE_LOG_Lines().size(), 0u);
}

TEST_F(StoreMemAlertTest, AnnouncementsMoveTheFlagAndAreTracedEachTime) {
    FAKE_MEMALERT_SetCurrentState(2);
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    ASSERT_EQ(mte_MEMALERT_GetFlag(), 1u);
    Announce(6);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
    Announce(1);
    Announce(1);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    for (uint32_t uiState : {2u, 3u, 7u, 0u}) {  // states that change nothing while running
        Announce(uiState);
        EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    }
    EXPECT_EQ(Traces("Ln: 206 Memory threshold was exceeded."), 2u);
    EXPECT_EQ(Traces("Ln: 213 Memory usage dropped below the memory threshold."), 1u);
    EXPECT_EQ(FAKE_LOG_Lines().size(), 3u);
}

TEST_F(StoreMemAlertTest, FailedReadIsIgnored) {
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    FAKE_MEMALERT_FailRead(true);
    Announce(1);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
    mte_MEMALERT_Proc(EPOLLOUT, FAKE_MEMALERT_Fd());  // no EPOLLIN: not read
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
}

TEST_F(StoreMemAlertTest, HangUpClosesTheSubscriptionForGood) {
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    Announce(1);
    int iFd = FAKE_MEMALERT_Fd();
    mte_MEMALERT_Proc(EPOLLHUP, iFd);
    EXPECT_EQ(FAKE_MEMALERT_Fd(), -1);
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 1u);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);  // keeps its last value
    mte_MEMALERT_Fini();                    // nothing left to close
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 1u);
    // A last announcement read in the same call as the hang-up still counts.
    FAKE_MEMALERT_Reset();
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    FAKE_MEMALERT_Announce(1);
    mte_MEMALERT_Proc(EPOLLIN | EPOLLERR, FAKE_MEMALERT_Fd());
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    EXPECT_EQ(FAKE_MEMALERT_Fd(), -1);
}

TEST_F(StoreMemAlertTest, InitFailsWithoutASubscription) {
    FAKE_MEMALERT_FailInit(true);
    EXPECT_EQ(mte_MEMALERT_Init(), MTE_ERR_GENERAL);
    mte_MEMALERT_Fini();
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 0u);
}

}  // namespace
