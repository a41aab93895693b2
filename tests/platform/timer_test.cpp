// Timer set: periods, suspend/resume, restart with a new period, deletion from
// inside a callback, Timer_SetStatus from another thread while ticks are
// announced, and many idle timers.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "plat_timer.h"

namespace {

struct Probe {
    int iFired = 0;
    uint64_t ulSet = 0;
    int64_t llDeleteOnFire = -1;  // timer to delete from inside the callback
};

void OnFire(void* pContext) {
    Probe* pstProbe = nullptr;
    memcpy(&pstProbe, pContext, sizeof(pstProbe));
    pstProbe->iFired++;
    if (pstProbe->llDeleteOnFire >= 0) {
        EXPECT_EQ(0u, Timer_Delete(pstProbe->ulSet, pstProbe->llDeleteOnFire));
        pstProbe->llDeleteOnFire = -1;
    }
}

class TimerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_ulSet = Timer_Initialize(5120, 1000, 128, 16);
        ASSERT_NE(0u, m_ulSet);
        ASSERT_EQ(0u, Timer_Config(m_ulSet, 1));
    }
    void TearDown() override { Timer_Finalize(m_ulSet); }

    int64_t Create(Probe* pstProbe, uint32_t uiPeriodMs) {
        unsigned char aucContext[TIMER_CONTEXT_SIZE] = {};
        memcpy(aucContext, &pstProbe, sizeof(pstProbe));
        pstProbe->ulSet = m_ulSet;
        return Timer_Create(m_ulSet, 1, uiPeriodMs, OnFire, aucContext);
    }
    void Ticks(int n) {
        for (int i = 0; i < n; i++) {
            Timer_Tick_Announce(m_ulSet);
        }
    }

    uint64_t m_ulSet = 0;
};

TEST_F(TimerTest, PeriodsInWholeAndPartialTicks) {
    struct {
        uint32_t uiPeriodMs;
        int iTicks;
        int iExpected;
    } astCases[] = {
        {1000, 10, 10}, {10000, 30, 3}, {1500, 6, 4},  // due at 1.5, 3, 4.5, 6 s
        {500, 4, 4},                                   // shorter than a tick: once per tick
        {30000, 29, 0},
    };
    for (const auto& stCase : astCases) {
        Probe stProbe;
        int64_t llId = Create(&stProbe, stCase.uiPeriodMs);
        ASSERT_GE(llId, 0);
        Ticks(stCase.iTicks);
        EXPECT_EQ(stCase.iExpected, stProbe.iFired) << "period " << stCase.uiPeriodMs;
        EXPECT_EQ(0u, Timer_Delete(m_ulSet, llId));
    }
}

TEST_F(TimerTest, SuspendResumeAndRestartWithNewPeriod) {
    Probe stProbe;
    int64_t llId = Create(&stProbe, 2000);
    Ticks(4);
    EXPECT_EQ(2, stProbe.iFired);

    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_SUSPEND, 0));
    Ticks(10);
    EXPECT_EQ(2, stProbe.iFired);

    // Resuming restarts the countdown: one full period before the next expiry.
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    Ticks(1);
    EXPECT_EQ(2, stProbe.iFired);
    Ticks(1);
    EXPECT_EQ(3, stProbe.iFired);

    // A second activation of a running timer changes nothing.
    Ticks(1);
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    Ticks(1);
    EXPECT_EQ(4, stProbe.iFired);

    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_RESTART, 5000));
    Ticks(4);
    EXPECT_EQ(4, stProbe.iFired);
    Ticks(1);
    EXPECT_EQ(5, stProbe.iFired);

    // A restart of a suspended timer takes the period but does not run it.
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_SUSPEND, 0));
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_RESTART, 1000));
    Ticks(3);
    EXPECT_EQ(5, stProbe.iFired);
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    Ticks(3);
    EXPECT_EQ(8, stProbe.iFired);

    EXPECT_NE(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_RESTART, 0));
    EXPECT_NE(0u, Timer_SetStatus(m_ulSet, llId, 2, 0));
}

TEST_F(TimerTest, StoppedSetNeitherAdvancesNorFires) {
    Probe stProbe;
    Create(&stProbe, 3000);
    Ticks(2);
    ASSERT_EQ(0u, Timer_Config(m_ulSet, 0));
    Ticks(10);
    EXPECT_EQ(0, stProbe.iFired);
    ASSERT_EQ(0u, Timer_Config(m_ulSet, 1));
    Ticks(1);
    EXPECT_EQ(1, stProbe.iFired);
}

TEST_F(TimerTest, DeleteInsideCallbackStopsTimerDueInSameTick) {
    Probe stFirst;
    Probe stSecond;
    int64_t llFirst = Create(&stFirst, 1000);
    int64_t llSecond = Create(&stSecond, 1000);
    // Whichever fires first deletes the other, which must then not fire
    // although it was due in the same tick.
    stFirst.llDeleteOnFire = llSecond;
    stSecond.llDeleteOnFire = llFirst;
    Ticks(1);
    EXPECT_EQ(1, stFirst.iFired + stSecond.iFired);
    Ticks(3);
    EXPECT_TRUE((stFirst.iFired == 4 && stSecond.iFired == 0) ||
                (stFirst.iFired == 0 && stSecond.iFired == 4));
    // Deleting a timer from its own callback.
    Probe stSelf;
    int64_t llSelf = Create(&stSelf, 1000);
    stSelf.llDeleteOnFire = llSelf;
    Ticks(3);
    EXPECT_EQ(1, stSelf.iFired);
    EXPECT_NE(0u, Timer_Delete(m_ulSet, llSelf));
}

TEST_F(TimerTest, IdsAreNeverReusedAndStaleIdsAreRefused) {
    Probe stProbe;
    std::vector<int64_t> allIds;
    for (int i = 0; i < 100; i++) {
        int64_t llId = Create(&stProbe, 1000);
        ASSERT_GE(llId, 0);
        for (int64_t llSeen : allIds) {
            ASSERT_NE(llSeen, llId);
        }
        allIds.push_back(llId);
        ASSERT_EQ(0u, Timer_Delete(m_ulSet, llId));
        EXPECT_NE(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    }
    EXPECT_EQ(-1, Timer_Create(m_ulSet, 1, 0, OnFire, nullptr));
    EXPECT_EQ(-1, Timer_Create(0, 1, 1000, OnFire, nullptr));
    EXPECT_NE(0u, Timer_Delete(m_ulSet, -1));
}

TEST_F(TimerTest, ManyIdleTimersDoNotDisturbTheDueOnes) {
    Probe stIdle;
    Probe stBusy;
    std::vector<int64_t> ids;
    for (int i = 0; i < 20000; i++) {
        ids.push_back(Create(&stIdle, 3600 * 1000));
    }
    Create(&stBusy, 1000);
    // Suspend/resume churn on the idle ones must not grow anything without bound.
    for (int iRound = 0; iRound < 5; iRound++) {
        for (int64_t llId : ids) {
            Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_SUSPEND, 0);
            Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0);
        }
        Ticks(1);
    }
    EXPECT_EQ(5, stBusy.iFired);
    EXPECT_EQ(0, stIdle.iFired);
}

// Run under TSan: the worker restarts timers while the main thread announces.
TEST_F(TimerTest, SetStatusFromAnotherThreadWhileAnnouncing) {
    std::vector<Probe> probes(64);
    std::vector<int64_t> ids;
    for (auto& stProbe : probes) {
        ids.push_back(Create(&stProbe, 1000));
    }
    std::atomic<bool> bStop{false};
    std::thread worker([&] {
        uint32_t uiRound = 0;
        while (!bStop.load()) {
            for (int64_t llId : ids) {
                uint32_t uiStatus = (uiRound % 3 == 0)   ? TIMER_STATUS_SUSPEND
                                    : (uiRound % 3 == 1) ? TIMER_STATUS_ACTIVE
                                                         : TIMER_STATUS_RESTART;
                Timer_SetStatus(m_ulSet, llId, uiStatus, 1000);
            }
            uiRound++;
        }
    });
    Ticks(2000);
    bStop.store(true);
    worker.join();
    for (int64_t llId : ids) {
        ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    }
    int iBefore = 0;
    for (auto& stProbe : probes) {
        iBefore += stProbe.iFired;
    }
    Ticks(1);
    int iAfter = 0;
    for (auto& stProbe : probes) {
        iAfter += stProbe.iFired;
    }
    EXPECT_EQ(iBefore + 64, iAfter);
}

}  // namespace

namespace {

std::atomic<int> g_iCrowdFired{0};
void OnCrowdFire(void* pContext) {
    g_iCrowdFired++;
    int* piCount = nullptr;
    memcpy(&piCount, pContext, sizeof(piCount));
    ++*piCount;
}

// Timers started together with one period (every trigger at port-up) must not
// stay in one tick forever: a tick fires a bounded number of them, the rest
// fire at the next ticks and keep that phase, and each still fires once per
// period.
TEST_F(TimerTest, ACrowdDueInOneTickSpreadsAndEveryTimerKeepsItsPeriod) {
    constexpr int kTimers = 600;
    std::vector<int> aiCount(kTimers, 0);
    for (int i = 0; i < kTimers; i++) {
        unsigned char aucContext[TIMER_CONTEXT_SIZE] = {};
        int* piCount = &aiCount[i];
        memcpy(aucContext, &piCount, sizeof(piCount));
        ASSERT_GE(Timer_Create(m_ulSet, 1, 10000, OnCrowdFire, aucContext), 0);
    }
    int iMostInOneTick = 0;
    // 600 timers at most 500 a tick: due at 10 s, they fire over ticks 10 and
    // 11 and then every 10 s from there; 62 ticks see six firings of each.
    for (int iTick = 0; iTick < 62; iTick++) {
        g_iCrowdFired = 0;
        Ticks(1);
        iMostInOneTick = std::max(iMostInOneTick, g_iCrowdFired.load());
    }
    EXPECT_LT(iMostInOneTick, kTimers);
    for (int i = 0; i < kTimers; i++) {
        ASSERT_EQ(aiCount[i], 6) << "timer " << i;
    }
}

}  // namespace
