// The agent's port service through the whole stack: snmpd stopped or
// stalled never holds up the daemon, a killed eventmib-agentx costs no
// notification, 2,000 triggers of 1 s are each sampled every second.
#include <gtest/gtest.h>

#include <algorithm>

#include "stack.h"

namespace {

using namespace mte_test;

class E2ePort : public WholeStackTest {
  protected:
    // The longest answer (ms) of single gets of trigger t0 over one
    // connection, one every 20 ms for iMs; -1 when one failed. The client is
    // in this process, so the figure is the daemon's and not a tool's start.
    int64_t LongestGetOver(int iMs) {
        ChannelClient stClient;
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, "e2e");
        strcpy(stRow.szName, "t0");
        int64_t llLongest = stClient.Connect(m_stDaemon.SocketPath()) ? 0 : -1;
        for (int64_t llEnd = MonoMs() + iMs; llLongest >= 0 && MonoMs() < llEnd; usleep(20000)) {
            int64_t llStart = MonoMs();
            bool bOk = stClient.Request(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET, 0, MTE_ITEM_TRIGGER,
                                        &stRow) &&
                       stClient.stReply.uiResult == MTE_OK;
            llLongest = bOk ? std::max(llLongest, MonoMs() - llStart) : -1;
        }
        return llLongest;
    }

    // Threshold triggers t<iFirst>..t<iFirst+iCount-1> on the test table's
    // row 1, sampled every second. Chatty ones keep both delta thresholds at
    // 0, so every sample of the unchanging value notifies (rising and falling
    // in turn); quiet ones never notify.
    static std::string ThresholdTriggers(int iFirst, int iCount, bool bChatty) {
        std::string strLines;
        for (int i = iFirst; i < iFirst + iCount; ++i) {
            strLines +=
                TriggerLines("t" + std::to_string(i),
                             "test=threshold valueid=" + std::string(TABLE) + ".1.1", "threshold",
                             std::string("rising=1000000 falling=-1000000") +
                                 (bChatty ? "" : " deltarising=1000000 deltafalling=-1000000"));
        }
        return strLines;
    }

    // The daemon answers `eventmibctl walk trigger` promptly over the whole
    // period.
    void ExpectResponsiveFor(int iMs) {
        for (int64_t llEnd = MonoMs() + iMs; MonoMs() < llEnd; usleep(200 * 1000)) {
            int64_t llStart = MonoMs();
            ASSERT_EQ(Ctl("walk trigger").iExit, 0) << "eventmibctl failed";
            EXPECT_LT(MonoMs() - llStart, 1000) << "the daemon answered late";
        }
        EXPECT_FALSE(m_stDaemon.HasExited());
    }
};

// snmpd stopped brings the port down: sampling stops without failed
// requests piling up and the daemon keeps answering; restarted, it brings
// the port up and every active trigger is sampled at once. Then snmpd is
// stalled (its sockets open, nothing answering) while 200 triggers are
// sampled and 20 of them notify every second: the worker waits out its
// time-outs and the bridge loses its session, but the main thread must
// answer every management request at once meanwhile.
TEST_F(E2ePort, SnmpdStoppedOrStalledNeverHoldsUpTheDaemon) {
    AgentOk("add - 1 10");
    // "slow" is sampled only when it is made active and at a port-up: its
    // next timer expiry is an hour away. It watches an object of snmpd
    // itself, which is there as soon as snmpd is (the test agent needs a
    // moment to reconnect after a restart).
    const std::string strSlowOid = "OID: ." MTE_TEST_WRITABLE_INTEGER;
    const std::string strPresent = "test=present startup=present";
    CtlScenarioOk(
        TriggerLines("fast", "test=existence valueid=" + std::string(TABLE) + ".1 wildcard=true",
                     "existence", strPresent) +
        TriggerLines("slow", "frequency=3600 test=existence valueid=" MTE_TEST_WRITABLE_INTEGER,
                     "existence", strPresent));
    ASSERT_TRUE(WaitTraps(FIRED, "fast", 1));
    ASSERT_TRUE(WaitTraps(FIRED, "slow", 1));
    ExpectHot(Traps(FIRED, "slow")[0], "slow", "", strSlowOid, Int(5));
    long lFailures = Scalar("trigger-failures");

    m_stSnmpd.Stop();
    // Without the port-down every sample of "fast" would wait for its
    // time-out and be counted as a failure.
    ExpectResponsiveFor(6000);
    EXPECT_LE(Scalar("trigger-failures"), lFailures + 1) << "failed samples piled up";

    std::string strError;
    ASSERT_TRUE(m_stSnmpd.Start(&strError, START_WAIT_MS)) << strError;
    int64_t llUp = MonoMs();
    // The samples were dropped at port-down: the first sample after port-up
    // is a first sample again, and the startup rule reports the row present.
    ASSERT_TRUE(WaitTraps(FIRED, "slow", 2, 10000)) << "slow was not sampled at port-up";
    EXPECT_LT(MonoMs() - llUp, 10000);
    ExpectHot(Traps(FIRED, "slow")[1], "slow", "", strSlowOid, Int(5));
    AgentOk("add - 2 20");
    Trap stTrap;
    EXPECT_TRUE(WaitTrapWith(FIRED, "fast", HOT_OID, InstanceOid(1, 2), &stTrap));
    EXPECT_LE(Scalar("trigger-failures"), lFailures + 1);

    CtlScenarioOk(ThresholdTriggers(0, 180, false) + ThresholdTriggers(180, 20, true));
    ASSERT_TRUE(WaitTraps(RISING, "t199", 1));
    ASSERT_EQ(kill(m_stSnmpd.Pid(), SIGSTOP), 0);
    int64_t llLongest = LongestGetOver(15000);
    kill(m_stSnmpd.Pid(), SIGCONT);
    ASSERT_GE(llLongest, 0) << "a get failed";
    std::cerr << "longest get during a 15 s agent stall: " << llLongest << " ms\n";
    EXPECT_LT(llLongest, 1000) << "management waited for the agent";
    size_t uiSeen = Traps(RISING, "t199").size();
    EXPECT_TRUE(WaitTraps(RISING, "t199", uiSeen + 1, 15000)) << "sampling did not resume";
}

// eventmib-agentx killed for 5 s while the daemon sends 80 notifications a
// second: the daemon holds them and delivers every one when a new bridge is
// up (in order: NotifyClientTest.RelayQueueHoldsInOrderAndRefusesOnlyWhenFull).
// Counted against the daemon's own debug line per firing.
TEST_F(E2ePort, NotificationsAreHeldWhileTheBridgeIsAway) {
    AgentOk("add - 1 10");
    CtlOk("debug enable 8");
    CtlScenarioOk(ThresholdTriggers(0, 80, true));
    ASSERT_TRUE(WaitUntil([&] { return Traps(RISING).size() + Traps(FALLING).size() >= 160; },
                          FIRE_WAIT_MS));

    // Killed between two bursts: what the kernel had already queued for the
    // bridge dies with it, and no sender can know that (docs/operations.md).
    for (size_t uiLast = 0, uiNow = 1, uiTries = 0; uiNow != uiLast && uiTries < 40;
         ++uiTries, usleep(150 * 1000)) {
        uiLast = uiNow;
        uiNow = ReadFile(m_stSnmpd.TrapLogPath()).size();
    }
    StopBridge(true);
    ExpectResponsiveFor(5000);
    ASSERT_TRUE(StartBridge());
    usleep(2000 * 1000);

    std::string strStop;
    for (int i = 0; i < 80; ++i) {
        strStop += "set trigger owner=e2e name=t" + std::to_string(i) + " status=notInService\n";
    }
    CtlScenarioOk(strStop);
    auto fnSent = [&] {
        return m_stDaemon.CountStderr("mteTriggerRising notif") +
               m_stDaemon.CountStderr("mteTriggerFalling notif");
    };
    auto fnArrived = [&] { return Traps(RISING).size() + Traps(FALLING).size(); };
    EXPECT_TRUE(WaitUntil([&] { return fnArrived() == fnSent(); }, 20000))
        << fnArrived() << " of " << fnSent() << " arrived";
    std::cerr << fnArrived() << " of " << fnSent() << " notifications arrived\n";
    EXPECT_GE(fnSent(), 80u * 8);
    EXPECT_EQ(Scalar("notification-drops"), 0);
    EXPECT_GE(m_stDaemon.CountStderr("eventmib-agentx takes notifications again"), 1u)
        << "the bridge's return was not traced";
}

// 2,000 triggers of 1 s are each sampled every second: the timers hold back
// only what the worker's queue has no room for and fire it as soon as the
// worker has made room, within the same second. Counted at snmpd over 20 s;
// the floor is generous for a shared machine (bench_engine_idle measures it).
TEST_F(E2ePort, TwoThousandTriggersOfOneSecondAreEachSampledEverySecond) {
    constexpr int kTriggers = 2000;
    constexpr int kWindowS = 20;
    constexpr const char* kInGets = "1.3.6.1.2.1.11.15.0";  // snmpInGetRequests.0
    // A daemon built with a sanitizer samples several times slower (85 % seen
    // under TSan on a busy machine); the fault, a cap, gave 25 %.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    constexpr long kFloorPercent = 50;
#else
    constexpr long kFloorPercent = 80;
#endif
    // Thresholds around snmpd's value (5): no notification, only samples.
    for (int iFirst = 0; iFirst < kTriggers; iFirst += 500) {
        std::string strLines;
        for (int i = iFirst; i < iFirst + 500; i++) {
            strLines += TriggerLines("r" + std::to_string(i),
                                     "test=threshold valueid=" MTE_TEST_WRITABLE_INTEGER,
                                     "threshold", "rising=10 falling=1");
        }
        CtlScenarioOk(strLines);
    }
    auto InGets = [&] {
        ToolRun stRun = Snmp("snmpget -v2c -c public -Oqv", kInGets);
        return stRun.iExit == 0 ? std::atol(stRun.strOut.c_str()) : -1L;
    };
    usleep(2000 * 1000);  // every trigger has its first sample and its timer
    long lBefore = InGets();
    int64_t llStart = MonoMs();
    usleep(kWindowS * 1000 * 1000);
    long lAfter = InGets();
    double dSeconds = static_cast<double>(MonoMs() - llStart) / 1000.0;
    ASSERT_GE(lBefore, 0);
    ASSERT_GE(lAfter, 0);
    long lExpected = static_cast<long>(kTriggers * dSeconds);
    long lSampled = lAfter - lBefore - 1;  // the second reading's own get
    std::cerr << "samples in " << dSeconds << " s: " << lSampled << " of " << lExpected << " ("
              << 100.0 * static_cast<double>(lSampled) / static_cast<double>(lExpected) << " %)\n";
    EXPECT_GE(lSampled, lExpected * kFloorPercent / 100);
    // What could not be taken would be counted (0 on an idle machine).
    std::cerr << "samples-missed " << Scalar("samples-missed") << "\n";
}

}  // namespace
