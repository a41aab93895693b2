// Resource scalars and the memory guard on the fakes: instance accounting
// under the maximum and the memory guard, the high-water mark, when the
// statistics are saved; the guard's state at start, its announcements, and
// the end of its subscription.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
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
    static void Announce(uint32_t uiState, uint32_t uiEvents = EPOLLIN) {
        FAKE_MEMALERT_Announce(uiState);
        mte_MEMALERT_Proc(uiEvents, FAKE_MEMALERT_Fd());
    }
};

TEST_F(StoreScalarTest, ReservationsStopAtTheMaximumOrUnderMemoryAlert) {
    // No maximum: refused only while the memory threshold is exceeded.
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(mte_SCALAR_CurInstanceInc(), 0u);
    }
    Announce(MTE_MEM_STATE_EXCEEDED);
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    Announce(MTE_MEM_STATE_NORMAL);
    // A maximum lowered below the count refuses further instances only.
    mte_SCALAR_SetInstancesMax(2);
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(Scalars().uiSampleInstances, 5u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", BUCKET_FULL), 2u);
    // Released instances make room up to the maximum; the mark stays.
    mte_SCALAR_CurInstanceSub(3);
    mte_SCALAR_CurInstanceDec();
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), 0u);
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(Scalars().uiSampleInstances, 2u);
    EXPECT_EQ(Scalars().uiSampleInstancesHigh, 5u);
    // With the error bit off the refusal is quiet.
    mte_DBG_DisableSwitch(MTE_DBG_ERR);
    EXPECT_EQ(mte_SCALAR_CurInstanceInc(), MTE_ERR_GENERAL);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR"), 3u);
}

TEST_F(StoreScalarTest, ConcurrentReservationsNeverPassTheMaximum) {
    mte_SCALAR_SetInstancesMax(1000);
    std::atomic<uint32_t> uiGranted{0};
    std::vector<std::thread> astThreads;
    for (int t = 0; t < 4; ++t) {
        astThreads.emplace_back([&] {
            for (int i = 0; i < 600; ++i) {
                uiGranted += mte_SCALAR_CurInstanceInc() == 0 ? 1 : 0;
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

TEST_F(StoreScalarTest, StatisticsAreSavedOnlyWhenChanged) {
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);

    mte_SCALAR_EventFailuresInc();
    mte_SCALAR_InstanceLacksInc();
    Scalars();                          // a get saves too
    std::vector<uint32_t> auiSaved(4);  // high, lacks, trigger, event failures
    EXPECT_EQ(DBM_GetBinary(MTE_DBM_RUN, "StatisticData", 14, 0, 16, auiSaved.data()), 16);
    EXPECT_EQ(auiSaved, (std::vector<uint32_t>{0, 1, 0, 1}));
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 1);

    // A new high-water mark is a change too; releasing instances is not.
    mte_SCALAR_CurInstanceInc();
    mte_SCALAR_SaveData();
    mte_SCALAR_CurInstanceDec();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 2);

    // A failed save is not retried until the next change; a setting the
    // store refused holds in memory all the same.
    mte_SCALAR_TriggerFailuresInc();
    FAKE_DBM_FailWrites(true);
    mte_SCALAR_SaveData();
    EXPECT_EQ(mte_SCALAR_SetSampleMin(9), MTE_ERR_GENERAL);
    EXPECT_EQ(mte_SCALAR_GetSampMin(), 9u);
    FAKE_DBM_FailWrites(false);
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 4);
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_SaveData();
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 5);

    // The timer's handler saves only once it has read an expiry count.
    int iFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ASSERT_GE(iFd, 0);
    mte_SCALAR_EventFailuresInc();
    mte_SCALAR_freshStati2DbmCallBack(EPOLLIN, iFd);
    uint64_t ulExpiries = 3;
    ASSERT_EQ(write(iFd, &ulExpiries, sizeof(ulExpiries)), 8);
    mte_SCALAR_freshStati2DbmCallBack(EPOLLERR, iFd);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 5);
    mte_SCALAR_freshStati2DbmCallBack(EPOLLIN, iFd);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites + 6);
    close(iFd);
}

// States 1 to 3 at start mean the threshold is exceeded; nothing is traced.
TEST_F(StoreScalarTest, GuardStateAtStartSetsTheFlagQuietly) {
    mte_MEMALERT_Fini();
    const std::pair<uint32_t, uint32_t> astCases[] = {{0, 0}, {1, 1}, {3, 1}, {4, 0}, {6, 0}};
    for (const auto& [uiState, uiFlag] : astCases) {
        SCOPED_TRACE(uiState);
        FAKE_MEMALERT_SetCurrentState(uiState);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        EXPECT_EQ(mte_MEMALERT_GetFlag(), uiFlag);
        mte_MEMALERT_Fini();
    }
    EXPECT_EQ(FAKE_LOG_Lines().size(), 0u);
    FAKE_MEMALERT_FailInit(true);
    EXPECT_EQ(mte_MEMALERT_Init(), MTE_ERR_GENERAL);
    mte_MEMALERT_Fini();
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 6u);  // one for each Init that opened one
}

// Every announcement is traced, a repeated one too; a broken subscription is
// closed for good and the flag keeps its last value, but an announcement read
// in the same call as the hang-up still counts.
TEST_F(StoreScalarTest, GuardAnnouncementsMoveTheFlagUntilTheSubscriptionBreaks) {
    mte_MEMALERT_Fini();
    FAKE_MEMALERT_SetCurrentState(2);
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    Announce(6);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
    Announce(1);
    Announce(1);
    for (uint32_t uiState : {2u, 3u, 7u, 0u}) {  // states that change nothing while running
        Announce(uiState);
        EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    }
    FAKE_MEMALERT_FailRead(true);
    Announce(6);
    FAKE_MEMALERT_FailRead(false);
    Announce(6, EPOLLOUT);  // no EPOLLIN: not read
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", "Ln: 206 Memory threshold was exceeded."), 2u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE",
                             "Ln: 213 Memory usage dropped below the memory threshold."),
              1u);
    EXPECT_EQ(FAKE_LOG_Lines().size(), 3u);

    uint32_t uiFinis = FAKE_MEMALERT_FiniCount();
    Announce(6, EPOLLIN | EPOLLHUP);
    EXPECT_EQ(FAKE_MEMALERT_Fd(), -1);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
    mte_MEMALERT_Fini();  // nothing left to close
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), uiFinis + 1);
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    mte_MEMALERT_Proc(EPOLLERR, FAKE_MEMALERT_Fd());
    EXPECT_EQ(FAKE_MEMALERT_Fd(), -1);
}

}  // namespace
