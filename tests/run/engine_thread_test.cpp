// The engine with its real worker thread, timer set and trigger table: port up
// and down while the worker is in the agent. Timer-driven sampling and the
// event run after a firing are proven through the whole stack (tests/e2e), a
// destroy while the worker holds the trigger by the trigger table's hand-over
// test and the sampler's stop and destroy tests. Every wait is bounded.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

#include "engine_helpers.h"
#include "fake_dbm.h"
#include "fake_log.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "mte_trigger.h"

namespace {

const FAKE_OID kTable = {1, 3, 6, 1, 4, 1, 99, 2};

constexpr uint32_t kCreateMask =
    MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID) | MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID_WILDCARD) |
    MTE_COLUMN_BIT(MTE_TRIGGER_COL_FREQUENCY) | MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_EXISTENCE) |
    MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS) | MTE_MASK_FORCE;

// Polls until the condition holds; false after the time-out.
bool WaitFor(const std::function<bool()>& fnCond, int iTimeoutMs = 3000) {
    auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(iTimeoutMs);
    while (std::chrono::steady_clock::now() < tEnd) {
        if (fnCond()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return fnCond();
}

class EngineThread : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_SNMP_Reset();
        FAKE_DBM_Reset();
        FAKE_LOG_Clear();
        ENG_SetTrapSwitch(1);
        mte_TIMER_SetPortFlag(0);
        ASSERT_EQ(mte_DBG_Init(), 0u);
        ASSERT_EQ(mte_EPOLL_Init(), 0u);
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_RUN_Init(), 0u);
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
        ASSERT_EQ(mte_SCALAR_Init(), 0u);
    }

    void TearDown() override {
        FAKE_SNMP_SetStallMs(0);
        mte_RUN_Fini();
        mte_EVENT_Fini();
        mte_TRIGGER_Fini();
        mte_DBM_Fini();
        mte_TIMER_Fini();
        mte_TIMER_SetPortFlag(0);
        mte_EPOLL_Fini();
        mte_DBG_Fini();
    }

    // An existence trigger on kTable's instances sampled every minute, active.
    static uint32_t Create(const char* pszName) {
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, "own");
        strncpy(stRow.szName, pszName, MTE_NAME_SIZE - 1);
        stRow.stValueID = FAKE_SNMP_MakeOid(kTable);
        stRow.uiValueIDWildcard = MTE_TRUE;
        stRow.uiFrequency = 60;
        stRow.ucTest = MTE_TEST_EXISTENCE;
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_GO;
        uint32_t uiFailed = 0;
        return mte_TRIGGER_Set(&stRow, kCreateMask, &uiFailed);
    }

    static uint32_t StateOf(const char* pszName) {
        MTE_TRIGGER_ENTRY_S* pstEntry = mte_TRIGGER_GetTriggerEntry("own", pszName);
        mte_TRIGGER_StateLock(&pstEntry->stStateLock);
        uint32_t uiState = pstEntry->uiRunState;
        mte_TRIGGER_StateUnLock(&pstEntry->stStateLock);
        return uiState;
    }

    static void PortUp() {
        mte_TIMER_SetPortFlag(1);
        ASSERT_EQ(mte_TIMER_StartAll(), 0u);
    }

    // The port-down returns at once; the main loop takes the worker's answer.
    static void PortDown(bool bWait = true) {
        ASSERT_EQ(mte_TIMER_SuspendAll(), 0u);
        mte_TIMER_SetPortFlag(0);
        if (bWait) {
            WaitDrained();
        }
    }
    static void WaitDrained() {
        ASSERT_TRUE(WaitFor([] {
            RunMainLoop(10);
            return !mte_TIMER_IsDraining();
        }));
    }

    // Serves the main epoll set (tick and statistics) for a while.
    static void RunMainLoop(int iMs) {
        auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(iMs);
        while (std::chrono::steady_clock::now() < tEnd) {
            pollfd stPoll{mte_EPOLL_GetEpollFd(), POLLIN, 0};
            if (poll(&stPoll, 1, 50) == 1) {
                mte_EPOLL_WaitAndDispatch(8);
            }
        }
    }

    static size_t FiredCount() {
        auto astNotifies = FAKE_SNMP_Notifies();
        return std::count_if(astNotifies.begin(), astNotifies.end(), [](const auto& stNotify) {
            return stNotify.strName == "mteTriggerFired";
        });
    }
};

// The worker stuck in a slow agent must not hold the main thread: the
// port-down returns at once and the worker drains the queue when it can; a
// port-up meanwhile waits for the drain and then starts from a first cycle.
// Walks cut short by a drain are the sampler test's DrainExitAndFiniOfTheQueue;
// samples dropped at port-down and every trigger sampled at port-up are also
// E2ePort's, against a real agent that stops.
TEST_F(EngineThread, PortDownDrainsWithoutWaitingAndPortUpStartsAfresh) {
    for (uint32_t i = 1; i <= 20; ++i) {
        FAKE_SNMP_SetInteger("", {1, 3, 6, 1, 4, 1, 99, 2, i}, 1);
    }
    ASSERT_EQ(Create("a"), 0u);
    ASSERT_EQ(Create("b"), 0u);
    auto Idle = [] { return StateOf("a") == MTE_RUN_IDLE && StateOf("b") == MTE_RUN_IDLE; };
    RunMainLoop(100);
    EXPECT_EQ(FAKE_SNMP_CallCount(), 0u) << "sampled before the first port-up";
    PortUp();
    ASSERT_TRUE(WaitFor([&] { return Idle() && ENG_Instances() == 40; }));
    PortDown();
    EXPECT_EQ(ENG_Instances(), 0u);
    EXPECT_EQ(mte_TRIGGER_GetTriggerEntry("own", "a")->pstPrevSamples, nullptr);
    size_t uiFired = FiredCount();

    FAKE_SNMP_SetStallMs(1500);
    PortUp();
    ASSERT_TRUE(FAKE_SNMP_WaitForStall(3000));
    auto tStart = std::chrono::steady_clock::now();
    PortDown(false);
    PortUp();  // before the worker has answered
    EXPECT_LT(std::chrono::steady_clock::now() - tStart, std::chrono::milliseconds(500));
    EXPECT_TRUE(mte_TIMER_IsDraining());
    EXPECT_EQ(mte_TIMER_GetPortFlag(), 0);
    FAKE_SNMP_SetStallMs(0);
    WaitDrained();
    EXPECT_EQ(mte_TIMER_GetPortFlag(), 1);
    // Every instance is new again after the port came back.
    ASSERT_TRUE(WaitFor([&] { return Idle() && ENG_Instances() == 40; }));
    EXPECT_GE(FiredCount(), uiFired + 40);
}

}  // namespace
