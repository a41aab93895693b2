// Timer set: periods, suspend/resume, restart with a new period, deletion from
// inside a callback, Timer_SetStatus from another thread while ticks are
// announced, many idle timers, and the gate that holds back a crowd.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <numeric>
#include <thread>
#include <vector>

#include "plat_timer.h"

namespace {

struct Probe {
    int iFired = 0;
    uint64_t ulSet = 0;
    int64_t llDeleteOnFire = -1;  // timer to delete from inside the callback
};

int g_iRoom = 0;  // callbacks the gate still lets through
int RoomGate(void) {
    return g_iRoom > 0 ? 1 : 0;
}

void OnFire(void* pContext) {
    Probe* pstProbe = nullptr;
    memcpy(&pstProbe, pContext, sizeof(pstProbe));
    pstProbe->iFired++;
    --g_iRoom;
    if (pstProbe->llDeleteOnFire >= 0) {
        EXPECT_EQ(0u, Timer_Delete(pstProbe->ulSet, pstProbe->llDeleteOnFire));
        pstProbe->llDeleteOnFire = -1;
    }
}

int Fired(const std::vector<Probe>& astProbes) {
    return std::accumulate(astProbes.begin(), astProbes.end(), 0,
                           [](int iSum, const Probe& stProbe) { return iSum + stProbe.iFired; });
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

// Resuming restarts the countdown (one full period before the next expiry); a
// second activation of a running timer changes nothing; a restart takes the
// new period, and of a suspended timer does not run it. A stopped set
// neither advances nor fires.
TEST_F(TimerTest, SuspendResumeAndRestartWithNewPeriod) {
    constexpr uint32_t NONE = 99, SET_OFF = 100, SET_ON = 101;
    const struct {
        uint32_t uiStatus, uiPeriodMs;
        int iTicks, iFired;
    } astSteps[] = {
        {NONE, 0, 4, 2},
        {TIMER_STATUS_SUSPEND, 0, 10, 2},
        {TIMER_STATUS_ACTIVE, 0, 1, 2},
        {NONE, 0, 1, 3},
        {NONE, 0, 1, 3},
        {TIMER_STATUS_ACTIVE, 0, 1, 4},
        {TIMER_STATUS_RESTART, 5000, 4, 4},
        {NONE, 0, 1, 5},
        {TIMER_STATUS_SUSPEND, 0, 0, 5},
        {TIMER_STATUS_RESTART, 1000, 3, 5},
        {TIMER_STATUS_ACTIVE, 0, 3, 8},
        {TIMER_STATUS_RESTART, 3000, 2, 8},
        {SET_OFF, 0, 10, 8},
        {SET_ON, 0, 1, 9},
    };
    Probe stProbe;
    int64_t llId = Create(&stProbe, 2000);
    for (const auto& stStep : astSteps) {
        SCOPED_TRACE(&stStep - astSteps);
        if (stStep.uiStatus == SET_OFF || stStep.uiStatus == SET_ON) {
            ASSERT_EQ(0u, Timer_Config(m_ulSet, stStep.uiStatus == SET_ON ? 1 : 0));
        } else if (stStep.uiStatus != NONE) {
            ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, stStep.uiStatus, stStep.uiPeriodMs));
        }
        Ticks(stStep.iTicks);
        EXPECT_EQ(stStep.iFired, stProbe.iFired);
    }
    EXPECT_NE(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_RESTART, 0));
    EXPECT_NE(0u, Timer_SetStatus(m_ulSet, llId, 2, 0));
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
        ASSERT_EQ(std::count(allIds.begin(), allIds.end(), llId), 0) << llId;
        allIds.push_back(llId);
        ASSERT_EQ(0u, Timer_Delete(m_ulSet, llId));
        EXPECT_NE(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    }
    EXPECT_NE(0u, Timer_Delete(m_ulSet, -1));  // a trigger without a timer
    EXPECT_EQ(-1, Timer_Create(m_ulSet, 1, 0, OnFire, nullptr));
    EXPECT_EQ(-1, Timer_Create(0, 1, 1000, OnFire, nullptr));
}

// More timers than the set first made room for: its tables grow.
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
        const uint32_t auiStatus[] = {TIMER_STATUS_SUSPEND, TIMER_STATUS_ACTIVE,
                                      TIMER_STATUS_RESTART};
        for (uint32_t uiRound = 0; !bStop.load(); uiRound++) {
            for (int64_t llId : ids) {
                Timer_SetStatus(m_ulSet, llId, auiStatus[uiRound % 3], 1000);
            }
        }
    });
    Ticks(2000);
    bStop.store(true);
    worker.join();
    for (int64_t llId : ids) {
        ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, llId, TIMER_STATUS_ACTIVE, 0));
    }
    int iBefore = Fired(probes);
    Ticks(1);
    EXPECT_EQ(iBefore + 64, Fired(probes));
}

class TimerCrowdTest : public TimerTest {
  protected:
    void CreateCrowd(int iTimers, uint32_t uiPeriodMs) {
        m_astProbes.assign(iTimers, Probe{});
        for (Probe& stProbe : m_astProbes) {
            m_allIds.push_back(Create(&stProbe, uiPeriodMs));
            ASSERT_GE(m_allIds.back(), 0);
        }
        Timer_SetGate(m_ulSet, RoomGate);
    }
    int Fired() const { return ::Fired(m_astProbes); }
    std::vector<Probe> m_astProbes;
    std::vector<int64_t> m_allIds;
};

// The gate holds back only what has no room; what it held fires as soon as
// room is back, within the same tick, and keeps its phase: every timer of a
// crowd of one period still fires once per period and nothing is skipped.
TEST_F(TimerCrowdTest, HeldBackTimersFireWhenRoomIsBackWithinTheTick) {
    CreateCrowd(600, 1000);
    for (int iTick = 1; iTick <= 5; iTick++) {
        g_iRoom = 250;
        Ticks(1);
        EXPECT_EQ(Fired(), 600 * (iTick - 1) + 250);
        int iRounds = 0;
        for (uint32_t uiHeld = 1; uiHeld == 1 && iRounds < 10; iRounds++) {
            g_iRoom = 250;
            uiHeld = Timer_Fire_Due(m_ulSet);
        }
        EXPECT_EQ(iRounds, 2);
        ASSERT_EQ(Fired(), 600 * iTick);
    }
    EXPECT_EQ(Timer_Skipped(m_ulSet), 0u);
    g_iRoom = 1000;
    EXPECT_EQ(Timer_Fire_Due(m_ulSet), 0u);  // nothing due between ticks
    EXPECT_EQ(Fired(), 3000);

    // Status 4 makes a running timer due at once and leaves a suspended one.
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, m_allIds[0], TIMER_STATUS_EXPIRE, 0));
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, m_allIds[1], TIMER_STATUS_SUSPEND, 0));
    ASSERT_EQ(0u, Timer_SetStatus(m_ulSet, m_allIds[1], TIMER_STATUS_EXPIRE, 0));
    EXPECT_EQ(Timer_Fire_Due(m_ulSet), 0u);
    EXPECT_EQ(m_astProbes[0].iFired, 6);
    EXPECT_EQ(m_astProbes[1].iFired, 5);
}

// A crowd the gate cannot let through in one tick spreads over the ticks of
// its period and stays spread; when there is too little room for every
// expiry, the ones missed are counted, none twice and none forgotten.
TEST_F(TimerCrowdTest, ACrowdHeldPastItsTickSpreadsAndMissedExpiriesAreCounted) {
    struct Case {
        uint32_t uiPeriodMs;
        int iRoomPerTick;
        int iMostMissed;  // expiries a run of 30 ticks may miss
    } astCases[] = {
        {3000, 200, 0},     // 600 timers of 3 s, 200 a tick: spread, none missed
        {1000, 100, 6000},  // 300 timers of 1 s, 100 a tick: two of three missed
    };
    for (const Case& stCase : astCases) {
        TearDown();  // a fresh set for each crowd
        SetUp();
        m_allIds.clear();
        int iTimers = stCase.iRoomPerTick * 3;
        CreateCrowd(iTimers, stCase.uiPeriodMs);
        for (int iTick = 1; iTick <= 30; iTick++) {
            g_iRoom = stCase.iRoomPerTick;
            int iBefore = Fired();
            Ticks(1);
            if (iTick >= static_cast<int>(stCase.uiPeriodMs / 1000)) {
                EXPECT_EQ(Fired() - iBefore, stCase.iRoomPerTick) << "tick " << iTick;
            }
        }
        int iExpected = iTimers * 30 / static_cast<int>(stCase.uiPeriodMs / 1000);
        int iMissed = static_cast<int>(Timer_Skipped(m_ulSet));
        EXPECT_LE(iMissed, stCase.iMostMissed);
        // Every expiry fired, was counted as missed or belongs to a timer
        // still held back (at most one tick per timer of the crowd).
        EXPECT_LE(iExpected - Fired() - iMissed, iTimers);
        EXPECT_GE(iExpected - Fired() - iMissed, 0);
        for (const Probe& stProbe : m_astProbes) {
            EXPECT_GE(stProbe.iFired, 9) << "a timer was starved";
        }
        // Spread for good: with room for all, the crowd stays in its phases.
        g_iRoom = 1 << 30;
        for (uint32_t uiTick = 0; stCase.uiPeriodMs > 1000 && uiTick < 3; uiTick++) {
            int iBefore = Fired();
            Ticks(1);
            EXPECT_EQ(Fired() - iBefore, stCase.iRoomPerTick) << "spread lost";
        }
    }
}

}  // namespace
