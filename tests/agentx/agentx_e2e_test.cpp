// eventmib-agentx against a real private snmpd (its own Event MIB modules not
// initialised) with snmptrapd as the notification receiver: the port status
// follows the master session, notifications made by the daemon's client
// library arrive with their OIDs, types and values, sends fail at once
// without the bridge, and bad datagrams are dropped. Every process is stopped
// at the end and every wait is bounded.
#include <gtest/gtest.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "plat_paths.h"
#include "plat_port.h"
#include "plat_snmp.h"
#include "stack.h"

namespace {

using mte_test::MonoMs;
using mte_test::ReadFile;
using mte_test::START_WAIT_MS;
using mte_test::Trap;
using mte_test::TrapsWithOid;
using mte_test::WaitUntil;

class AgentxEndToEnd : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { MTE_START_STACK(*this, mte_test::SNMPD | mte_test::TRAPD); }
    void TearDown() override {
        if (m_iPortFd >= 0) {
            close(m_iPortFd);
        }
    }

    // Takes eventmibd's place on the port socket, with the daemon's own code.
    void Subscribe() {
        if (m_iPortFd >= 0) {
            close(m_iPortFd);
        }
        SERVICE_PORT_SUB_S stSub = {1, 0, 629, 0x8000};
        m_iPortFd = SubscribeServicePortEvent(1, &stSub);
        ASSERT_GE(m_iPortFd, 0);
    }

    // Reads port events until one says uiWanted; the last status seen (0: none).
    uint32_t WaitStatus(uint32_t uiWanted, int iTimeoutMs = START_WAIT_MS) {
        int64_t llDeadline = MonoMs() + iTimeoutMs;
        uint32_t uiLast = 0;
        while (true) {
            int iLeft = static_cast<int>(llDeadline - MonoMs());
            pollfd stPoll = {m_iPortFd, POLLIN, 0};
            if (iLeft <= 0 || poll(&stPoll, 1, iLeft) != 1) {
                return uiLast;
            }
            SERVICE_PORT_EVENT_S stEvent{};
            if (RecvServicePortEvent(m_iPortFd, &stEvent) == 0) {
                uiLast = stEvent.uiPortStatus;
                if (uiLast == uiWanted) {
                    return uiLast;
                }
            }
        }
    }

    // The bridge started with the daemon's port socket subscribed, up.
    void BridgeUp() {
        Subscribe();
        ASSERT_TRUE(StartBridge()) << ReadFile(BridgeLog());
        ASSERT_EQ(WaitStatus(SERVICE_PORT_UP), SERVICE_PORT_UP) << ReadFile(BridgeLog());
    }

    bool WaitTrapCount(const char* pszTrapOid, size_t uiCount) {
        return WaitUntil(
            [&] { return TrapsWithOid(m_stSnmpd.TrapLogPath(), pszTrapOid).size() >= uiCount; },
            10000);
    }

    int m_iPortFd = -1;
};

MTE_OID_S TrapOid(uint32_t uiLast) {
    return mte_test::Oid(("1.3.6.1.4.1.99999.0." + std::to_string(uiLast)).c_str());
}

// The port status follows the master session and the bridge's own life; its
// socket is bound again when the shared runtime directory loses it; a daemon
// that subscribes later (the real one too) asks and is answered.
TEST_F(AgentxEndToEnd, PortStatusFollowsTheMasterSessionAndTheBridge) {
    BridgeUp();
    std::string strSocket = PLAT_AgentxSocketPath();
    ASSERT_EQ(unlink(strSocket.c_str()), 0);
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 6000), SERVICE_PORT_UP);
    ASSERT_EQ(access(strSocket.c_str(), F_OK), 0);
    MTE_OID_S stTrap = TrapOid(1);
    EXPECT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
    EXPECT_NE(ReadFile(BridgeLog()).find("bound again"), std::string::npos);

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

    int64_t llStopped = MonoMs();
    m_stSnmpd.Stop();
    ASSERT_EQ(WaitStatus(SERVICE_PORT_DOWN, 5000), SERVICE_PORT_DOWN);
    EXPECT_LT(MonoMs() - llStopped, 5000);
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.Start(&strError)) << strError;
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, 10000), SERVICE_PORT_UP) << "no reconnection";

    kill(m_iBridgePid, SIGTERM);
    EXPECT_EQ(WaitStatus(SERVICE_PORT_DOWN, 5000), SERVICE_PORT_DOWN);
    StopBridge();
    EXPECT_NE(access(strSocket.c_str(), F_OK), 0) << "socket file left behind";
}

// The master's socket comes from the bridge's configuration file unless -x
// names it: the command line wins.
TEST_F(AgentxEndToEnd, MasterSocketFromConfigurationOrCommandLine) {
    std::string strEtc = m_stSnmpd.Dir() + "/agentx-etc";
    mkdir(strEtc.c_str(), 0700);
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
        EXPECT_EQ(WaitStatus(SERVICE_PORT_UP), SERVICE_PORT_UP) << ReadFile(BridgeLog());
        StopBridge();
        ASSERT_EQ(WaitStatus(SERVICE_PORT_DOWN, 3000), SERVICE_PORT_DOWN);
    }
}

// A notification sent while the bridge has no session is not read (it
// could only be dropped): it waits and is relayed once the session opens.
TEST_F(AgentxEndToEnd, DownUntilTheMasterAppears) {
    m_stSnmpd.Stop();
    Subscribe();
    ASSERT_TRUE(StartBridge());
    EXPECT_EQ(WaitStatus(SERVICE_PORT_DOWN), SERVICE_PORT_DOWN);
    MTE_OID_S stTrap = TrapOid(9);
    ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.Start(&strError)) << strError;
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 10000), SERVICE_PORT_UP);
    EXPECT_TRUE(WaitTrapCount(".1.3.6.1.4.1.99999.0.9", 1)) << ReadFile(BridgeLog());
    EXPECT_EQ(TrapsWithOid(m_stSnmpd.TrapLogPath(), ".1.3.6.1.4.1.99999.0.9").size(), 1u);
}

// Notifications made by the daemon's client library arrive with their OIDs,
// types and values; a burst is not lost (each send waits briefly for room on
// the bridge's socket); without a bridge, stopped or killed, a send fails at
// once, and a new bridge takes over the socket.
TEST_F(AgentxEndToEnd, NotificationsArriveWholeAndSendsFailAtOnceWithoutTheBridge) {
    BridgeUp();
    uint32_t auiHot[] = {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1, 1, 7};
    int32_t iHot = -42;
    SNMP_NOTIFY_VAR_S astVars[] = {{SNMP_VTYPE_OCTET_STRING, 4, "trig"},
                                   {SNMP_VTYPE_OCTET_STRING, 0, ""},
                                   {SNMP_VTYPE_OCTET_STRING, 5, "ctxT1"},
                                   {SNMP_VTYPE_OID, sizeof(auiHot), auiHot},
                                   {SNMP_VTYPE_INTEGER32, 4, &iHot}};
    SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
    for (const auto& stVar : astVars) {
        ASSERT_EQ(SNMP_AddNotifyVar(hNotify, &stVar, 0), 0u);
    }
    ASSERT_EQ(SNMP_SendNotify("mteTriggerFired", hNotify), 0u);
    ASSERT_EQ(SNMP_DestroyNotifyHandle(hNotify), 0u);

    MTE_OID_S stTrap = TrapOid(7);
    uint32_t uiGauge = 4000000000U;
    SNMP_VALUE_S stGauge = {&uiGauge, 4, SNMP_VTYPE_GAUGE32};
    SNMP_VALUE_S stText = {const_cast<char*>("abc"), 3, SNMP_VTYPE_OCTET_STRING};
    MTE_VB_S astVb[3] = {};
    for (uint32_t i = 0; i < 3; i++) {
        astVb[i].stOID = mte_test::Oid(("1.3.6.1.4.1.99999.1." + std::to_string(i + 1)).c_str());
        astVb[i].pstNext = i < 2 ? &astVb[i + 1] : nullptr;
    }
    astVb[0].pValue = &stGauge;
    astVb[1].pValue = &stText;  // the third has no value: it goes as NULL
    MTE_VB_LIST_S stList = {&astVb[0], &astVb[2]};
    ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", &stList), 0u);
    constexpr size_t kBurst = 40;
    MTE_OID_S stBurst = TrapOid(8);
    MTE_VB_LIST_S stEmpty = {nullptr, nullptr};
    for (size_t i = 0; i < kBurst; i++) {
        ASSERT_EQ(SNMP_SendTrapByVBList(&stBurst, "", &stEmpty), 0u) << "send " << i;
    }

    std::string strLog = m_stSnmpd.TrapLogPath();
    ASSERT_TRUE(WaitTrapCount(".1.3.6.1.2.1.88.2.0.1", 1) &&
                WaitTrapCount(".1.3.6.1.4.1.99999.0.7", 1))
        << ReadFile(strLog) << ReadFile(BridgeLog());
    Trap stFired = TrapsWithOid(strLog, ".1.3.6.1.2.1.88.2.0.1")[0];
    const std::pair<const char*, const char*> astWanted[] = {
        {".1.3.6.1.2.1.1.3.0", nullptr},
        {".1.3.6.1.6.3.1.1.4.1.0", "OID: .1.3.6.1.2.1.88.2.0.1"},
        {".1.3.6.1.2.1.88.2.1.1.0", "STRING: \"trig\""},
        {".1.3.6.1.2.1.88.2.1.2.0", "\"\""},
        {".1.3.6.1.2.1.88.2.1.3.0", "STRING: \"ctxT1\""},
        {".1.3.6.1.2.1.88.2.1.4.0", "OID: .1.3.6.1.4.1.99999.1.1.1.1.7"},
        {".1.3.6.1.2.1.88.2.1.5.0", "INTEGER: -42"},
    };
    ASSERT_EQ(stFired.astBindings.size(), 7u) << ReadFile(strLog);
    for (size_t i = 0; i < 7; i++) {
        EXPECT_EQ(stFired.astBindings[i].first, astWanted[i].first);
        if (astWanted[i].second != nullptr) {
            EXPECT_EQ(stFired.astBindings[i].second, astWanted[i].second);
        }
    }
    Trap stList7 = TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.7")[0];
    ASSERT_EQ(stList7.astBindings.size(), 5u) << ReadFile(strLog);
    EXPECT_EQ(stList7.Value(".1.3.6.1.4.1.99999.1.1"), "Gauge32: 4000000000");
    EXPECT_EQ(stList7.Value(".1.3.6.1.4.1.99999.1.2"), "STRING: \"abc\"");
    EXPECT_EQ(stList7.Value(".1.3.6.1.4.1.99999.1.3"), "NULL");
    EXPECT_TRUE(WaitTrapCount(".1.3.6.1.4.1.99999.0.8", kBurst))
        << TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.8").size() << " of " << kBurst;

    auto fnSendMs = [&](uint32_t* puiRet) {
        int64_t llStart = MonoMs();
        *puiRet = SNMP_SendTrapByVBList(&stTrap, "", nullptr);
        return MonoMs() - llStart;
    };
    uint32_t uiRet = 0;
    for (bool bKill : {false, true}) {
        SCOPED_TRACE(bKill ? "killed: the file stays, nobody reads it" : "orderly stop");
        StopBridge(bKill);
        EXPECT_EQ(access(PLAT_AgentxSocketPath().c_str(), F_OK) == 0, bKill);
        EXPECT_LT(fnSendMs(&uiRet), 200);
        EXPECT_NE(uiRet, 0u);
        BridgeUp();
        fnSendMs(&uiRet);
        EXPECT_EQ(uiRet, 0u);
    }
}

TEST_F(AgentxEndToEnd, BadDatagramsAreDroppedAndTheBridgeGoesOn) {
    BridgeUp();
    std::string strSocket = PLAT_AgentxSocketPath();
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    memcpy(stAddr.sun_path, strSocket.c_str(), strSocket.size() + 1);
    auto fnSend = [&](const std::vector<unsigned char>& auc) {
        int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ssize_t lSent = sendto(iFd, auc.data(), auc.size(), 0, reinterpret_cast<sockaddr*>(&stAddr),
                               sizeof(stAddr));
        close(iFd);
        return lSent == static_cast<ssize_t>(auc.size());
    };
    int32_t iValue = 5;
    auto fnNotify = [&](uint32_t uiLast) {
        mte_test::NotifyDatagram stDg;
        stDg.Header({1, 3, 6, 1, 4, 1, 99999, 0, uiLast}, "", 1)
            .Var({1, 3, 6, 1, 4, 1, 99999, 1, 1}, SNMP_VTYPE_INTEGER, &iValue, 4);
        return stDg.Bytes();
    };
    std::vector<unsigned char> aucCut = fnNotify(10);
    aucCut.pop_back();
    const std::string strJunk = "not a notification";
    ASSERT_TRUE(fnSend(std::vector<unsigned char>(strJunk.begin(), strJunk.end())));
    ASSERT_TRUE(fnSend(aucCut));
    ASSERT_TRUE(fnSend(std::vector<unsigned char>(70000, 0)));

    // Another user may reach the socket only if its mode allows; the bridge
    // still refuses to believe it.
    bool bOtherUser = geteuid() == 0 && getpwnam("nobody") != nullptr;
    if (bOtherUser) {
        chmod(m_stDaemon.Root().c_str(), 0755);
        chmod(RuntimeDir().c_str(), 0755);
        chmod(strSocket.c_str(), 0666);
        std::vector<unsigned char> aucOther = fnNotify(11);
        uid_t iNobody = getpwnam("nobody")->pw_uid;
        pid_t iPid = fork();
        if (iPid == 0) {
            if (setgid(iNobody) != 0 || setuid(iNobody) != 0) {
                _exit(2);
            }
            _exit(fnSend(aucOther) ? 0 : 1);
        }
        int iStatus = 0;
        waitpid(iPid, &iStatus, 0);
        EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0);
    }
    ASSERT_TRUE(fnSend(fnNotify(12)));

    std::string strLog = m_stSnmpd.TrapLogPath();
    ASSERT_TRUE(WaitTrapCount(".1.3.6.1.4.1.99999.0.12", 1)) << ReadFile(BridgeLog());
    EXPECT_TRUE(TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.10").empty());
    EXPECT_TRUE(TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.11").empty());
    std::string strBridgeLog = ReadFile(BridgeLog());
    EXPECT_NE(strBridgeLog.find("dropped a datagram of 18 bytes: not a notification datagram"),
              std::string::npos)
        << strBridgeLog;
    EXPECT_NE(strBridgeLog.find("truncated"), std::string::npos);
    EXPECT_NE(strBridgeLog.find("longer than 65000 bytes"), std::string::npos);
    if (bOtherUser) {
        EXPECT_NE(strBridgeLog.find("dropped a datagram from uid " +
                                    std::to_string(getpwnam("nobody")->pw_uid)),
                  std::string::npos);
    }
    EXPECT_EQ(kill(m_iBridgePid, 0), 0) << "the bridge died";
}

}  // namespace
