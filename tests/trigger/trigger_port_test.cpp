// Row changes with the port service up: the timer and the first sample are
// asked for exactly where a trigger starts, stopped where it stops, and a
// trigger whose timer cannot start is refused without a trace. The worker
// thread is not started; queued triggers are dropped with the queue.
#include "fake_log.h"
#include "mte_dbg.h"
#include "mte_run.h"
#include "mte_timer.h"
#include "table_fixture.h"

namespace {

class TriggerPortUpTest : public TriggerTableTest {
  protected:
    void SetUp() override {
        TriggerTableTest::SetUp();
        mte_TIMER_SetPortFlag(1);
        ASSERT_EQ(mte_run_InitWithoutThread(), 0u);
    }
    void TearDown() override {
        mte_RUN_Fini();  // drops queued messages before their triggers go
        mte_TRIGGER_Fini();
        mte_TIMER_Fini();
        mte_TIMER_SetPortFlag(0);
        TriggerTableTest::TearDown();
    }
};

TEST_F(TriggerPortUpTest, TimerThatCannotStartUndoesTheRequest) {
    // No timer set exists yet, so no timer can be made.
    EXPECT_EQ(Set(TriggerReq("o", "go", MTE_ROW_CREATE_AND_GO), kGoMask), MTE_ERR_GENERAL);
    EXPECT_EQ(Entry("o", "go"), nullptr);
    EXPECT_TRUE(FAKE_DBM_Records("mteTrigger").empty());

    CreateWaiting("o", "w", MTE_TEST_BOOLEAN);
    Snapshot stBefore = TakeSnapshot();
    FAKE_LOG_Clear();
    mte_DBG_EnableSwitch(MTE_DBG_ERR);
    EXPECT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), COL(MTE_TRIGGER_COL_ENTRY_STATUS)),
              MTE_ERR_GENERAL);
    mte_DBG_DisableSwitch(MTE_DBG_ERR);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", "Failed to start a timer."), 1u);
    EXPECT_EQ(TakeSnapshot(), stBefore);
}

TEST_F(TriggerPortUpTest, StartAndStopReachTheEngine) {
    ASSERT_EQ(mte_TIMER_Init(), 0u);
    const uint32_t kStatus = COL(MTE_TRIGGER_COL_ENTRY_STATUS);
    CreateActive("o", "go");
    MTE_TRIGGER_ENTRY_S* pstGo = Entry("o", "go");
    EXPECT_NE(pstGo->llTimerId, -1);
    EXPECT_EQ(pstGo->uiRunState, MTE_RUN_BUSY);  // first sample queued at once
    EXPECT_EQ(pstGo->usInstanceReleased, 0);

    CreateWaiting("o", "w");
    MTE_TRIGGER_ENTRY_S* pstWait = Entry("o", "w");
    EXPECT_EQ(pstWait->llTimerId, -1);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_IDLE);
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), kStatus), 0u);
    int64_t llTimer = pstWait->llTimerId;
    EXPECT_NE(llTimer, -1);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_BUSY);

    // The worker finished its cycle; a stop keeps the timer, suspended.
    pstWait->uiRunState = MTE_RUN_IDLE;
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstWait->llTimerId, llTimer);
    EXPECT_EQ(pstWait->usInstanceReleased, 1);  // samples and instance given back
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), kStatus), 0u);
    EXPECT_EQ(pstWait->llTimerId, llTimer);  // resumed, not made again
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_BUSY);

    // Stopped while queued, the worker is told; destroyed while queued, too.
    ASSERT_EQ(Set(TriggerReq("o", "go", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstGo->uiRunState, MTE_RUN_CANCELLED);
    ASSERT_EQ(Set(TriggerReq("o", "go", MTE_ROW_DESTROY), 0), 0u);
    EXPECT_EQ(pstGo->uiRunState, MTE_RUN_DELETED);
    EXPECT_EQ(pstGo->llTimerId, -1);
    mte_TRIGGER_FreeNode(pstGo);  // as the worker would
}

TEST_F(TriggerPortUpTest, ActivationWithoutItsStatusColumnChangesNothing) {
    ASSERT_EQ(mte_TIMER_Init(), 0u);
    CreateWaiting("o", "w");
    Snapshot stBefore = TakeSnapshot();
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), COL(MTE_TRIGGER_COL_FREQUENCY)), 0u);
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("o", "w");
    EXPECT_EQ(pstEntry->stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(TakeSnapshot().astrStored[0], stBefore.astrStored[0]);
    EXPECT_EQ(pstEntry->stRow.uiEnabled, MTE_FALSE);
}

TEST_F(TriggerPortUpTest, StartAllStartsOnlyActiveTriggers) {
    mte_TIMER_SetPortFlag(0);
    CreateActive("o", "a");
    CreateWaiting("o", "w");
    EXPECT_EQ(Entry("o", "a")->llTimerId, -1);
    mte_TIMER_SetPortFlag(1);
    ASSERT_EQ(mte_TIMER_Init(), 0u);
    mte_TRIGGER_StartAll();
    EXPECT_NE(Entry("o", "a")->llTimerId, -1);
    EXPECT_EQ(Entry("o", "a")->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(Entry("o", "w")->llTimerId, -1);
    EXPECT_EQ(Entry("o", "w")->uiRunState, MTE_RUN_IDLE);
    mte_TRIGGER_SuspendTmr();
    mte_TRIGGER_ClearAllSpl();
    EXPECT_EQ(Entry("o", "a")->usInstanceReleased, 1);
}

}  // namespace
