// eventmib-agentx against a real private snmpd (its own Event MIB modules not
// initialised) with snmptrapd as the notification receiver: the port status
// follows the master session, notifications made by the daemon's client
// library arrive with their OIDs, types and values, sends fail at once
// without the bridge, and bad datagrams are dropped. Every process is stopped
// at the end and every wait is bounded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "plat_paths.h"
#include "plat_port.h"
#include "plat_snmp.h"
#include "stack.h"

namespace {

using ::testing::HasSubstr;

using mte_test::MonoMs;
using mte_test::ReadFile;
using mte_test::START_WAIT_MS;
using mte_test::WaitUntil;

class AgentxEndToEnd : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { MTE_START_STACK(*this, mte_test::SNMPD | mte_test::TRAPD); }
    void TearDown() override { close(m_iPortFd); }

    // Takes eventmibd's place on the port socket, with the daemon's own code.
    void Subscribe() {
        close(m_iPortFd);
        SERVICE_PORT_SUB_S stSub = {1, 0, 629, 0x8000};
        m_iPortFd = SubscribeServicePortEvent(1, &stSub);
        ASSERT_GE(m_iPortFd, 0);
    }

    // Reads port events until one says uiWanted; the last status seen (0: none).
    uint32_t WaitStatus(uint32_t uiWanted, int iTimeoutMs = START_WAIT_MS) {
        uint32_t uiLast = 0;
        WaitUntil(
            [&] {
                SERVICE_PORT_EVENT_S stEvent{};
                while (uiLast != uiWanted && RecvServicePortEvent(m_iPortFd, &stEvent) == 0) {
                    uiLast = stEvent.uiPortStatus;
                }
                return uiLast == uiWanted;
            },
            iTimeoutMs);
        return uiLast;
    }

    // The bridge started with the daemon's port socket subscribed, up.
    void BridgeUp() {
        Subscribe();
        ASSERT_TRUE(StartBridge()) << ReadFile(BridgeLog());
        ASSERT_EQ(WaitStatus(SERVICE_PORT_UP), SERVICE_PORT_UP) << ReadFile(BridgeLog());
    }

    int m_iPortFd = -1;
};

MTE_OID_S TrapOid(uint32_t uiLast) {
    return mte_test::Oid(("1.3.6.1.4.1.99999.0." + std::to_string(uiLast)).c_str());
}

// The port status follows the bridge's own life (the master's loss and return
// are E2ePort.SnmpdStoppedOrStalledNeverHoldsUpTheDaemon's); its
// socket is bound again when the shared runtime directory loses it; a daemon
// that subscribes later (the real one too) asks and is answered.
TEST_F(AgentxEndToEnd, PortStatusFollowsTheBridgeAndLateSubscribersAsk) {
    BridgeUp();
    std::string strSocket = PLAT_AgentxSocketPath();
    ASSERT_EQ(unlink(strSocket.c_str()), 0);
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 6000), SERVICE_PORT_UP);
    ASSERT_EQ(access(strSocket.c_str(), F_OK), 0);
    MTE_OID_S stTrap = TrapOid(1);
    EXPECT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
    EXPECT_THAT(ReadFile(BridgeLog()), HasSubstr("bound again"));

    close(m_iPortFd);  // the real daemon takes the port socket
    m_iPortFd = -1;
    unlink(PLAT_PortSocketPath().c_str());
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    EXPECT_TRUE(WaitUntil(
        [&] {
            return ReadFile(BridgeLog()).find("port status up (asked by eventmibd)") !=
                   std::string::npos;
        },
        5000))
        << ReadFile(BridgeLog());
    EXPECT_EQ(m_stDaemon.Stop(), 0);
    Subscribe();
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 3000), SERVICE_PORT_UP) << "a late subscriber asks";

    kill(m_iBridgePid, SIGTERM);
    EXPECT_EQ(WaitStatus(SERVICE_PORT_DOWN, 5000), SERVICE_PORT_DOWN);
    StopBridge();
    EXPECT_NE(access(strSocket.c_str(), F_OK), 0) << "socket file left behind";
}

// The master's socket comes from the bridge's configuration file unless -x
// names it: the command line wins. A notification sent while the bridge has
// no session is not read (it could only be dropped): it waits and is relayed
// once the master appears.
TEST_F(AgentxEndToEnd, MasterFromConfigurationOrCommandLineAndDownUntilItAppears) {
    std::string strEtc = m_stSnmpd.Dir() + "/agentx-etc";
    mkdir(strEtc.c_str(), 0700);
    m_stSnmpd.Stop();
    Subscribe();
    for (bool bOption : {false, true}) {
        std::ofstream(strEtc + "/eventmib-agentx.conf", std::ios::trunc)
            << "agentXSocket "
            << (bOption ? m_stSnmpd.Dir() + "/no-master.sock" : m_stSnmpd.AgentxSocketPath())
            << "\n";
        m_astrBridgeArgs = {"-f", "-v"};
        if (bOption) {
            m_astrBridgeArgs.insert(m_astrBridgeArgs.end(), {"-x", m_stSnmpd.AgentxSocketPath()});
        }
        ASSERT_TRUE(StartBridge());
        if (!bOption) {
            EXPECT_EQ(WaitStatus(SERVICE_PORT_DOWN), SERVICE_PORT_DOWN);
            MTE_OID_S stTrap = TrapOid(9);
            ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
            std::string strError;
            ASSERT_TRUE(m_stSnmpd.Start(&strError)) << strError;
            EXPECT_TRUE(WaitTraps(".1.3.6.1.4.1.99999.0.9", "", 1, 10000)) << ReadFile(BridgeLog());
        }
        EXPECT_EQ(WaitStatus(SERVICE_PORT_UP), SERVICE_PORT_UP) << ReadFile(BridgeLog());
        StopBridge();
        ASSERT_EQ(WaitStatus(SERVICE_PORT_DOWN, 3000), SERVICE_PORT_DOWN);
    }
    EXPECT_EQ(Traps(".1.3.6.1.4.1.99999.0.9").size(), 1u);
}

// A burst from the daemon's client library is not lost (each send waits
// briefly for room on the bridge's socket); without a bridge, stopped or
// killed, a send fails at once, and a new bridge takes over the socket. The
// bindings' order, types and values at snmptrapd are the e2e suites' (built-in
// and configured notifications); every type's decoding is notify_codec_test's.
TEST_F(AgentxEndToEnd, ABurstArrivesWholeAndSendsFailAtOnceWithoutTheBridge) {
    BridgeUp();
    constexpr size_t kBurst = 40;
    MTE_OID_S stTrap = TrapOid(8);
    MTE_VB_LIST_S stEmpty = {nullptr, nullptr};
    for (size_t i = 0; i < kBurst; i++) {
        ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", &stEmpty), 0u) << "send " << i;
    }
    EXPECT_TRUE(WaitTraps(".1.3.6.1.4.1.99999.0.8", "", kBurst, 10000))
        << Traps(".1.3.6.1.4.1.99999.0.8").size() << " of " << kBurst;

    // Bad datagrams are dropped with a reason and the bridge goes on (every
    // decoder refusal is NotifyDecode.BrokenDatagramsAreRefusedForTheirReason's).
    std::string strSocket = PLAT_AgentxSocketPath();
    auto fnSend = [&](const std::vector<unsigned char>& auc) {
        return mte_test::SendDatagram(strSocket, auc.data(), auc.size());
    };
    int32_t iValue = 5;
    auto fnNotify = [&](uint32_t uiLast) {
        mte_test::NotifyDatagram stDg;
        stDg.Header({1, 3, 6, 1, 4, 1, 99999, 0, uiLast}, "", 1)
            .Var({1, 3, 6, 1, 4, 1, 99999, 1, 1}, SNMP_VTYPE_INTEGER, &iValue, 4);
        return stDg.Bytes();
    };
    const std::string strJunk = "not a notification";
    ASSERT_TRUE(fnSend(std::vector<unsigned char>(strJunk.begin(), strJunk.end())));
    ASSERT_TRUE(fnSend(std::vector<unsigned char>(70000, 0)));

    // Another user may reach the socket only if its mode allows; the bridge
    // still refuses to believe it.
    bool bOtherUser = geteuid() == 0 && getpwnam("nobody") != nullptr;
    if (bOtherUser) {
        std::vector<unsigned char> aucOther = fnNotify(11);
        EXPECT_EQ(mte_test::AsNobodyOn(strSocket, [&] { return fnSend(aucOther) ? 0 : 1; }), 0);
    }
    ASSERT_TRUE(fnSend(fnNotify(12)));

    ASSERT_TRUE(WaitTraps(".1.3.6.1.4.1.99999.0.12", "", 1, 10000)) << ReadFile(BridgeLog());
    EXPECT_TRUE(Traps(".1.3.6.1.4.1.99999.0.11").empty());
    std::string strBridgeLog = ReadFile(BridgeLog());
    EXPECT_THAT(strBridgeLog,
                HasSubstr("dropped a datagram of 18 bytes: not a notification datagram"));
    EXPECT_THAT(strBridgeLog, HasSubstr("longer than 65000 bytes"));
    if (bOtherUser) {
        EXPECT_THAT(strBridgeLog, HasSubstr("dropped a datagram from uid " +
                                            std::to_string(getpwnam("nobody")->pw_uid)));
    }
    // An orderly stop removes the socket file, a killed bridge leaves one
    // nobody reads: either way a send fails at once, and a new bridge takes
    // the socket over. (The stop comes first: a killed bridge writes no
    // coverage data.)
    for (bool bKill : {false, true}) {
        StopBridge(bKill);
        EXPECT_EQ(access(strSocket.c_str(), F_OK) == 0, bKill);
        int64_t llStart = MonoMs();
        EXPECT_NE(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u) << bKill;
        EXPECT_LT(MonoMs() - llStart, 200) << bKill;
        BridgeUp();
        EXPECT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
    }
}

}  // namespace
