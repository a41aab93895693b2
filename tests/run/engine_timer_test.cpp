// Timer module on a fake timer set: the arguments it hands the platform, the
// periods, port up and down of the set, expiries and the one-second tick.
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <thread>

#include "engine_helpers.h"
#include "fake_log.h"
#include "fake_timer.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "mte_trigger.h"

namespace {

class EngineTimer : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_TIMER_Reset();
        FAKE_SNMP_Reset();
        FAKE_LOG_Clear();
        ASSERT_EQ(mte_DBG_Init(), 0u);
        ASSERT_EQ(mte_EPOLL_Init(), 0u);
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        ASSERT_EQ(mte_SCALAR_Init(), 0u);
        ASSERT_EQ(mte_run_InitWithoutThread(), 0u);
        mte_TIMER_SetPortFlag(1);
        m_pstTrigger = ENG_NewTrigger("t");
        m_pstTrigger->stRow.stValueID = FAKE_SNMP_MakeOid({1, 3, 6, 1, 4, 1, 99, 1, 0});
        m_pstTrigger->stRow.uiFrequency = 10;
    }

    void TearDown() override {
        mte_RUN_Fini();
        mte_TIMER_Fini();
        mte_TIMER_SetPortFlag(0);
        mte_RUN_ClearSampleRes(m_pstTrigger);
        mte_TRIGGER_FreeNode(m_pstTrigger);
        mte_TRIGGER_Fini();
        mte_EPOLL_Fini();
        mte_DBG_Fini();
    }

    static bool Readable(int iTimeoutMs) {
        pollfd stPoll{mte_EPOLL_GetEpollFd(), POLLIN, 0};
        return poll(&stPoll, 1, iTimeoutMs) == 1;
    }

    MTE_TRIGGER_ENTRY_S* m_pstTrigger = nullptr;
};

// Triggers made or changed while the port is down get their timers at the
// next port-up; nothing may touch a timer set that does not exist yet.
TEST_F(EngineTimer, PortDownDoesNothingAndPortUpMakesTheSetAndTimersInMilliseconds) {
    mte_TIMER_SetPortFlag(0);
    EXPECT_EQ(mte_RUN_TriggerEnable(m_pstTrigger), 0u);
    EXPECT_EQ(mte_RUN_TriggerDisable(m_pstTrigger), 0u);
    EXPECT_EQ(mte_RUN_Sample4AtOnce(m_pstTrigger), 0u);
    EXPECT_EQ(m_pstTrigger->llTimerId, -1);
    EXPECT_EQ(m_pstTrigger->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(m_pstTrigger->usInstanceReleased, 1);
    EXPECT_EQ(mte_TIMER_Refresh(-1, 10), 0u);
    for (auto pfOp : {mte_TIMER_Del, mte_TIMER_Active, mte_TIMER_Suspend}) {
        EXPECT_NE(pfOp(7), 0u);
    }
    EXPECT_NE(mte_TIMER_Refresh(7, 10), 0u);
    EXPECT_TRUE(FAKE_TIMER_Calls().empty());
    EXPECT_EQ(mte_TIMER_SuspendAll(), 0u);  // a port-down before any port-up
    EXPECT_EQ(mte_run_PumpQueue(10), 0u);

    // Periods reach the set in milliseconds (a zero frequency runs every
    // second); a disable suspends and an enable resumes the same timer.
    mte_TIMER_SetPortFlag(1);
    ASSERT_EQ(mte_TIMER_StartAll(), 0u);
    EXPECT_GE(mte_GetNotifyEvtFd(), 0);
    ASSERT_EQ(mte_RUN_TriggerEnable(m_pstTrigger), 0u);
    int64_t llId = m_pstTrigger->llTimerId;
    EXPECT_EQ(mte_TIMER_Refresh(llId, 30), 0u);
    EXPECT_EQ(mte_TIMER_Refresh(-1, 30), 0u);  // no timer: nothing to do
    EXPECT_EQ(mte_TIMER_Refresh(llId, 0), 0u);
    ASSERT_EQ(mte_RUN_TriggerDisable(m_pstTrigger), 0u);
    ASSERT_EQ(mte_RUN_TriggerEnable(m_pstTrigger), 0u);
    EXPECT_EQ(m_pstTrigger->llTimerId, llId);
    EXPECT_EQ(FAKE_TIMER_Calls(),
              (std::vector<std::string>{"Initialize 5120 1000 128 16", "Config 1", "Create 10000",
                                        "SetStatus 1 3 30000", "SetStatus 1 3 1000",
                                        "SetStatus 1 0 0", "SetStatus 1 1 0"}));

    // An expiry queues the idle trigger.
    ASSERT_TRUE(FAKE_TIMER_Expire(llId));
    EXPECT_EQ(m_pstTrigger->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(mte_run_PumpQueue(10), 1u);
    EXPECT_EQ(m_pstTrigger->uiRunState, MTE_RUN_IDLE);

    EXPECT_EQ(mte_TIMER_Del(llId), 0u);
    EXPECT_FALSE(FAKE_TIMER_Expire(llId));
    m_pstTrigger->llTimerId = -1;
}

// A set that fails to start is torn down when the port-up made it, and only
// stopped when it holds trigger timers; a timer that cannot be made is
// traced and leaves the trigger without one.
TEST_F(EngineTimer, FailuresToStartAreTracedAndTheNextPortUpRetries) {
    FAKE_TIMER_Fail("Initialize", true);
    EXPECT_NE(mte_TIMER_StartAll(), 0u);
    EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_TRACE, "Failed to initialize timer instances."), 1u);
    EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_TRACE, "Failed to initialize timer submodule."), 1u);
    EXPECT_EQ(mte_GetNotifyEvtFd(), -1);
    FAKE_TIMER_Fail("Initialize", false);
    EXPECT_EQ(mte_TIMER_StartAll(), 0u);
    EXPECT_GE(mte_GetNotifyEvtFd(), 0);

    FAKE_TIMER_Fail("Create", true);
    EXPECT_NE(mte_RUN_TriggerEnable(m_pstTrigger), 0u);
    EXPECT_EQ(m_pstTrigger->llTimerId, -1);
    EXPECT_EQ(
        FAKE_LOG_Count(MTE_DBG_MNEMONIC_TRACE, "Trigger entry own-t: Failed to create a timer."),
        1u);
    EXPECT_EQ(mte_RUN_TriggerDisable(m_pstTrigger), 0u);  // nothing to suspend
    FAKE_TIMER_Fail("Create", false);

    ASSERT_EQ(mte_RUN_TriggerEnable(m_pstTrigger), 0u);
    ASSERT_EQ(mte_TIMER_SuspendAll(), 0u);
    EXPECT_EQ(FAKE_TIMER_Calls().back(), "Config 0");
    FAKE_TIMER_Fail("Config", true);
    EXPECT_NE(mte_TIMER_StartAll(), 0u);
    EXPECT_EQ(FAKE_TIMER_CallCount("Finalize"), 0u);
    FAKE_TIMER_Fail("Config", false);
    EXPECT_EQ(mte_TIMER_StartAll(), 0u);
    ASSERT_EQ(mte_RUN_TriggerEnable(m_pstTrigger), 0u);
    EXPECT_EQ(FAKE_TIMER_CallCount("Create"), 2u);  // the failed one and the one kept
}

// The tick is disarmed while the port is down; missed seconds are announced
// as one tick.
TEST_F(EngineTimer, TheTickStopsWithThePortAndMissedSecondsMakeOneTick) {
    ASSERT_EQ(mte_TIMER_StartAll(), 0u);
    ASSERT_EQ(mte_TIMER_SuspendAll(), 0u);
    EXPECT_FALSE(Readable(1300));
    ASSERT_EQ(mte_TIMER_StartAll(), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(3200));
    ASSERT_TRUE(Readable(2000));
    mte_EPOLL_WaitAndDispatch(8);
    EXPECT_EQ(FAKE_TIMER_CallCount("Tick"), 1u);
}

// Expiries the set skipped reach the statistics at each tick; the trace says
// so at once and then stays quiet for a minute however much more is missed.
TEST_F(EngineTimer, SkippedExpiriesAreCountedAndTracedAtMostOnceAMinute) {
    ASSERT_EQ(mte_TIMER_StartAll(), 0u);
    for (uint64_t ullSkipped : {5, 12}) {
        FAKE_TIMER_SetSkipped(ullSkipped);
        size_t uiTicks = FAKE_TIMER_CallCount("Tick");
        while (FAKE_TIMER_CallCount("Tick") == uiTicks && Readable(3000)) {
            mte_EPOLL_WaitAndDispatch(8);
        }
        EXPECT_EQ(mte_SCALAR_GetSamplesMissed(), ullSkipped);
    }
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", "Ln:2291"), 1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", "5 trigger samples were not taken"), 1u);
}

}  // namespace
