// eventmib-agentx and mte-testagent against a real private snmpd (its own
// Event MIB modules not initialised) with snmptrapd as the notification
// receiver: the port status follows the master session, notifications made
// by the daemon's client library arrive with their OIDs, types and values,
// sends fail at once without the bridge, bad datagrams are dropped, and the
// test agent's rows and contexts are served. Every process is stopped at the
// end and every wait is bounded.
#include <gtest/gtest.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "agentx_test_util.h"
#include "core/daemon_process.h"
#include "plat_paths.h"
#include "plat_port.h"
#include "plat_snmp.h"
#include "snmpd_harness.h"
#include "testagent_ctl.h"

namespace {

using mte_test::MonoMs;
using mte_test::RunTool;
using mte_test::Trap;
using mte_test::TrapsWithOid;
using mte_test::WaitUntil;

constexpr const char* TABLE = "1.3.6.1.4.1.99999.1.1.1";
constexpr int START_WAIT_MS = 15000;  // the machine may be busy

std::string ReadFile(const std::string& strPath) {
    std::ifstream stIn(strPath);
    std::stringstream stText;
    stText << stIn.rdbuf();
    return stText.str();
}

class AgentxEndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string strError;
        if (!m_stSnmpd.Start(&strError)) {
            if (strError.find("not installed") != std::string::npos) {
                GTEST_SKIP() << strError;
            }
            FAIL() << strError;
        }
        m_strRuntime = m_stSnmpd.Dir() + "/rt";
        mkdir(m_strRuntime.c_str(), 0700);
        setenv("RUNTIME_DIRECTORY", m_strRuntime.c_str(), 1);
        // For the command-line tools: no MIB files, their own persistent state.
        setenv("MIBS", "", 1);
        setenv("SNMPCONFPATH", (m_stSnmpd.Dir() + "/etc").c_str(), 1);
        setenv("SNMP_PERSISTENT_DIR", (m_stSnmpd.Dir() + "/client-persist").c_str(), 1);
    }

    void TearDown() override {
        mte_test::StopProcess(&m_iBridgePid, 3000);
        mte_test::StopProcess(&m_iTestAgentPid, 3000);
        if (m_iPortFd >= 0) {
            close(m_iPortFd);
        }
        unsetenv("RUNTIME_DIRECTORY");
        // In a sanitizer build the children report there.
        for (const std::string& strLog : {BridgeLog(), m_stSnmpd.Dir() + "/testagent.log"}) {
            std::string strText = ReadFile(strLog);
            EXPECT_EQ(strText.find("Sanitizer"), std::string::npos) << strText;
            EXPECT_EQ(strText.find("runtime error:"), std::string::npos) << strText;
        }
    }

    std::vector<std::string> ChildEnv() const {
        return {"RUNTIME_DIRECTORY=" + m_strRuntime,
                "MIBS=", "SNMPCONFPATH=" + m_stSnmpd.Dir() + "/agentx-etc",
                "SNMP_PERSISTENT_DIR=" + m_stSnmpd.Dir() + "/agentx-persist"};
    }

    std::string BridgeLog() const { return m_stSnmpd.Dir() + "/agentx.log"; }

    // Starts the bridge and waits until its socket exists.
    bool StartBridge(bool bWithMasterOption = true) {
        std::vector<std::string> astrArgs = {MTE_AGENTX_PATH, "-f", "-v"};
        if (bWithMasterOption) {
            astrArgs.insert(astrArgs.end(), {"-x", m_stSnmpd.AgentxSocketPath()});
        }
        m_iBridgePid = mte_test::SpawnProcess(astrArgs, ChildEnv(), BridgeLog());
        std::string strSocket = PLAT_AgentxSocketPath();
        return m_iBridgePid > 0 &&
               WaitUntil([&] { return access(strSocket.c_str(), F_OK) == 0; }, START_WAIT_MS);
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
    uint32_t WaitStatus(uint32_t uiWanted, int iTimeoutMs) {
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

    int Tool(const std::vector<std::string>& astrArgs, std::string* pstrOut) {
        return RunTool(astrArgs, m_stSnmpd.Dir() + "/tool.out", 15000, pstrOut);
    }

    std::string Target() const { return "127.0.0.1:" + std::to_string(m_stSnmpd.Port()); }

    std::vector<std::string> V2c(const char* pszTool, const char* pszCommunity) const {
        return {std::string("/usr/bin/") + pszTool,
                "-v2c",
                "-c",
                pszCommunity,
                "-On",
                "-t",
                "2",
                "-r",
                "1",
                Target()};
    }

    std::vector<std::string> V3(const char* pszTool, const std::string& strContext) const {
        return {std::string("/usr/bin/") + pszTool,
                "-v3",
                "-u",
                "testuser",
                "-l",
                "authPriv",
                "-a",
                "SHA",
                "-A",
                "testauthpass",
                "-x",
                "AES",
                "-X",
                "testprivpass",
                "-n",
                strContext,
                "-On",
                "-t",
                "2",
                "-r",
                "1",
                Target()};
    }

    mte_test::SnmpdHarness m_stSnmpd;
    std::string m_strRuntime;
    pid_t m_iBridgePid = -1;
    pid_t m_iTestAgentPid = -1;
    int m_iPortFd = -1;
};

TEST_F(AgentxEndToEnd, PortStatusFollowsTheMasterSession) {
    Subscribe();
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);

    int64_t llStopped = MonoMs();
    m_stSnmpd.Stop();
    ASSERT_EQ(WaitStatus(SERVICE_PORT_DOWN, 5000), SERVICE_PORT_DOWN);
    EXPECT_LT(MonoMs() - llStopped, 5000);

    // The bridge reconnects by itself.
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.Start(&strError)) << strError;
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, 10000), SERVICE_PORT_UP);

    // A daemon that subscribes later asks, and is answered at once.
    Subscribe();
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 3000), SERVICE_PORT_UP);

    // A bridge that stops takes the port service down with it.
    kill(m_iBridgePid, SIGTERM);
    EXPECT_EQ(WaitStatus(SERVICE_PORT_DOWN, 5000), SERVICE_PORT_DOWN);
    mte_test::StopProcess(&m_iBridgePid, 3000);
    EXPECT_NE(access(PLAT_AgentxSocketPath().c_str(), F_OK), 0) << "socket file left behind";
}

// The master's socket comes from the bridge's configuration file unless -x
// names it: the command line wins.
TEST_F(AgentxEndToEnd, MasterSocketFromConfigurationOrCommandLine) {
    std::string strEtc = m_stSnmpd.Dir() + "/agentx-etc";
    mkdir(strEtc.c_str(), 0700);
    auto fnConfigure = [&](const std::string& strSocket) {
        std::ofstream stOut(strEtc + "/eventmib-agentx.conf", std::ios::trunc);
        stOut << "agentXSocket " << strSocket << "\n";
    };
    Subscribe();
    fnConfigure(m_stSnmpd.AgentxSocketPath());
    ASSERT_TRUE(StartBridge(false));
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP) << ReadFile(BridgeLog());
    mte_test::StopProcess(&m_iBridgePid, 3000);
    ASSERT_EQ(WaitStatus(SERVICE_PORT_DOWN, 3000), SERVICE_PORT_DOWN);

    fnConfigure(m_stSnmpd.Dir() + "/no-master.sock");
    ASSERT_TRUE(StartBridge(true));
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP) << ReadFile(BridgeLog());
}

// The runtime directory is shared with eventmibd and may be emptied under the
// bridge: it binds its socket again and tells the daemon the status.
TEST_F(AgentxEndToEnd, SocketBoundAgainWhenItsFileIsRemoved) {
    Subscribe();
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);
    std::string strSocket = PLAT_AgentxSocketPath();
    ASSERT_EQ(unlink(strSocket.c_str()), 0);
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 6000), SERVICE_PORT_UP);
    ASSERT_EQ(access(strSocket.c_str(), F_OK), 0);
    MTE_OID_S stTrap{};
    stTrap.uiLen = 2;
    stTrap.auiOid[0] = 1;
    stTrap.auiOid[1] = 3;
    EXPECT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
    EXPECT_NE(ReadFile(BridgeLog()).find("bound again"), std::string::npos);
}

// The real daemon, started after the bridge, asks for the status when it
// subscribes and is answered.
TEST_F(AgentxEndToEnd, TheDaemonAsksAndIsAnswered) {
    ASSERT_TRUE(StartBridge());
    MteDaemonProcess stDaemon;
    stDaemon.SetRuntimeDir(m_strRuntime);
    ASSERT_TRUE(stDaemon.Start());
    ASSERT_TRUE(stDaemon.WaitReady(START_WAIT_MS));
    EXPECT_TRUE(WaitUntil(
        [&] {
            return ReadFile(BridgeLog()).find("port status up (asked by eventmibd)") !=
                   std::string::npos;
        },
        5000))
        << ReadFile(BridgeLog());
    stDaemon.Signal(SIGRTMIN + 1);
    int iStatus = 0;
    EXPECT_TRUE(stDaemon.WaitExit(10000, &iStatus));
}

// A notification sent while the bridge has no session is not read (it
// could only be dropped): it waits and is relayed once the session opens.
TEST_F(AgentxEndToEnd, DownUntilTheMasterAppears) {
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.StartTrapd(&strError)) << strError;
    m_stSnmpd.Stop();
    Subscribe();
    ASSERT_TRUE(StartBridge());
    EXPECT_EQ(WaitStatus(SERVICE_PORT_DOWN, START_WAIT_MS), SERVICE_PORT_DOWN);
    MTE_OID_S stTrap{};
    const uint32_t auiTrap[] = {1, 3, 6, 1, 4, 1, 99999, 0, 9};
    memcpy(stTrap.auiOid, auiTrap, sizeof(auiTrap));
    stTrap.uiLen = 9;
    ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", nullptr), 0u);
    ASSERT_TRUE(m_stSnmpd.Start(&strError)) << strError;
    EXPECT_EQ(WaitStatus(SERVICE_PORT_UP, 10000), SERVICE_PORT_UP);
    EXPECT_TRUE(WaitUntil(
        [&] { return TrapsWithOid(m_stSnmpd.TrapLogPath(), ".1.3.6.1.4.1.99999.0.9").size() == 1; },
        10000))
        << ReadFile(BridgeLog());
}

TEST_F(AgentxEndToEnd, NotificationsArriveWithTheirTypesAndValues) {
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.StartTrapd(&strError)) << strError;
    Subscribe();
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);

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

    MTE_OID_S stTrap{};
    const uint32_t auiTrap[] = {1, 3, 6, 1, 4, 1, 99999, 0, 7};
    memcpy(stTrap.auiOid, auiTrap, sizeof(auiTrap));
    stTrap.uiLen = 9;
    uint32_t uiGauge = 4000000000U;
    SNMP_VALUE_S stGauge = {&uiGauge, 4, SNMP_VTYPE_GAUGE32};
    SNMP_VALUE_S stText = {const_cast<char*>("abc"), 3, SNMP_VTYPE_OCTET_STRING};
    MTE_VB_S astVb[3];
    memset(astVb, 0, sizeof(astVb));
    for (uint32_t i = 0; i < 3; i++) {
        astVb[i].stOID = stTrap;
        astVb[i].stOID.auiOid[7] = 1;
        astVb[i].stOID.auiOid[8] = i + 1;
        astVb[i].pstNext = i < 2 ? &astVb[i + 1] : nullptr;
    }
    astVb[0].pValue = &stGauge;
    astVb[1].pValue = &stText;  // the third has no value: it goes as NULL
    MTE_VB_LIST_S stList = {&astVb[0], &astVb[2]};
    ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", &stList), 0u);

    std::string strLog = m_stSnmpd.TrapLogPath();
    ASSERT_TRUE(WaitUntil(
        [&] {
            return !TrapsWithOid(strLog, ".1.3.6.1.2.1.88.2.0.1").empty() &&
                   !TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.7").empty();
        },
        10000))
        << ReadFile(strLog) << ReadFile(BridgeLog());
    Trap stFired = TrapsWithOid(strLog, ".1.3.6.1.2.1.88.2.0.1")[0];
    ASSERT_EQ(stFired.astBindings.size(), 7u) << ReadFile(strLog);
    EXPECT_EQ(stFired.astBindings[0].first, ".1.3.6.1.2.1.1.3.0");
    EXPECT_EQ(stFired.astBindings[1].first, ".1.3.6.1.6.3.1.1.4.1.0");
    const std::pair<const char*, const char*> astWanted[] = {
        {".1.3.6.1.2.1.88.2.1.1.0", "STRING: \"trig\""},
        {".1.3.6.1.2.1.88.2.1.2.0", "\"\""},
        {".1.3.6.1.2.1.88.2.1.3.0", "STRING: \"ctxT1\""},
        {".1.3.6.1.2.1.88.2.1.4.0", "OID: .1.3.6.1.4.1.99999.1.1.1.1.7"},
        {".1.3.6.1.2.1.88.2.1.5.0", "INTEGER: -42"},
    };
    for (size_t i = 0; i < 5; i++) {
        EXPECT_EQ(stFired.astBindings[i + 2].first, astWanted[i].first);
        EXPECT_EQ(stFired.astBindings[i + 2].second, astWanted[i].second);
    }
    Trap stList7 = TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.7")[0];
    ASSERT_EQ(stList7.astBindings.size(), 5u) << ReadFile(strLog);
    EXPECT_EQ(stList7.Value(".1.3.6.1.4.1.99999.1.1"), "Gauge32: 4000000000");
    EXPECT_EQ(stList7.Value(".1.3.6.1.4.1.99999.1.2"), "STRING: \"abc\"");
    EXPECT_EQ(stList7.Value(".1.3.6.1.4.1.99999.1.3"), "NULL");
}

// A burst of firings in one evaluation sends notifications back to back; the
// kernel queues only a few datagrams on the bridge's socket, so each send
// waits briefly for room instead of losing everything past the queue.
TEST_F(AgentxEndToEnd, ABurstOfNotificationsIsNotLost) {
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.StartTrapd(&strError)) << strError;
    Subscribe();
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);

    constexpr uint32_t kBurst = 40;
    MTE_OID_S stTrap{};
    const uint32_t auiTrap[] = {1, 3, 6, 1, 4, 1, 99999, 0, 8};
    memcpy(stTrap.auiOid, auiTrap, sizeof(auiTrap));
    stTrap.uiLen = 9;
    MTE_VB_LIST_S stEmpty = {nullptr, nullptr};
    for (uint32_t i = 0; i < kBurst; i++) {
        ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "", &stEmpty), 0u) << "send " << i;
    }
    std::string strLog = m_stSnmpd.TrapLogPath();
    EXPECT_TRUE(WaitUntil(
        [&] { return TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.8").size() == kBurst; }, 10000))
        << TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.8").size() << " of " << kBurst;
}

TEST_F(AgentxEndToEnd, SendFailsAtOnceWithoutTheBridge) {
    Subscribe();
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);
    auto fnSendTimed = [](int64_t* pllMs) {
        MTE_OID_S stTrap{};
        stTrap.uiLen = 2;
        stTrap.auiOid[0] = 1;
        stTrap.auiOid[1] = 3;
        int64_t llStart = MonoMs();
        uint32_t uiRet = SNMP_SendTrapByVBList(&stTrap, "", nullptr);
        *pllMs = MonoMs() - llStart;
        return uiRet;
    };
    int64_t llMs = 0;
    EXPECT_EQ(fnSendTimed(&llMs), 0u);

    // Orderly stop: the socket file goes away with the bridge.
    mte_test::StopProcess(&m_iBridgePid, 3000);
    EXPECT_NE(fnSendTimed(&llMs), 0u);
    EXPECT_LT(llMs, 200);

    // Killed: the file stays but nobody reads it; a new bridge takes it over.
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);
    kill(m_iBridgePid, SIGKILL);
    mte_test::StopProcess(&m_iBridgePid, 1000);
    ASSERT_EQ(access(PLAT_AgentxSocketPath().c_str(), F_OK), 0);
    EXPECT_NE(fnSendTimed(&llMs), 0u);
    EXPECT_LT(llMs, 200);
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);
    EXPECT_EQ(fnSendTimed(&llMs), 0u);
}

TEST_F(AgentxEndToEnd, BadDatagramsAreDroppedAndTheBridgeGoesOn) {
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.StartTrapd(&strError)) << strError;
    Subscribe();
    ASSERT_TRUE(StartBridge());
    ASSERT_EQ(WaitStatus(SERVICE_PORT_UP, START_WAIT_MS), SERVICE_PORT_UP);
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
        chmod(m_stSnmpd.Dir().c_str(), 0755);
        chmod(m_strRuntime.c_str(), 0755);
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
    ASSERT_TRUE(
        WaitUntil([&] { return !TrapsWithOid(strLog, ".1.3.6.1.4.1.99999.0.12").empty(); }, 10000))
        << ReadFile(BridgeLog());
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

TEST_F(AgentxEndToEnd, TestAgentServesRowsInEveryContext) {
    std::string strControl = m_stSnmpd.Dir() + "/testagent.sock";
    m_iTestAgentPid =
        mte_test::SpawnProcess({MTE_TESTAGENT_PATH, "-c", strControl, "-x",
                                m_stSnmpd.AgentxSocketPath(), "-n", "ctxT1", "-n", "ctxT2"},
                               ChildEnv(), m_stSnmpd.Dir() + "/testagent.log");
    ASSERT_GT(m_iTestAgentPid, 0);
    std::string strReply;
    auto fnCtl = [&](const std::string& strCommand) {
        return TESTAGENT_Command(strControl, strCommand, &strReply) ? strReply : "no reply";
    };
    ASSERT_TRUE(WaitUntil([&] { return fnCtl("ping") == "ok connected"; }, START_WAIT_MS))
        << strReply;
    ASSERT_EQ(fnCtl("add - 1 5 7 default row"), "ok");
    ASSERT_EQ(fnCtl("add ctxT1 1 11 1 in T1"), "ok");
    ASSERT_EQ(fnCtl("add ctxT2 2 22 2 in T2"), "ok");
    EXPECT_EQ(fnCtl("add ctxT2 2 1"), "error row exists");
    EXPECT_EQ(fnCtl("add nowhere 1"), "error unknown context nowhere");

    std::string strOut;
    std::string strInt1 = std::string(TABLE) + ".1.1";
    std::vector<std::string> astrGet = V2c("snmpget", "public");
    astrGet.insert(astrGet.end(),
                   {strInt1, std::string(TABLE) + ".2.1", std::string(TABLE) + ".3.1"});
    ASSERT_EQ(Tool(astrGet, &strOut), 0) << strOut;
    EXPECT_NE(strOut.find("." + strInt1 + " = INTEGER: 5"), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("Gauge32: 7"), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("STRING: \"default row\""), std::string::npos) << strOut;

    struct ContextCase {
        const char* pszContext;
        const char* pszInstance;
        const char* pszWanted;
    };
    const ContextCase astContexts[] = {{"ctxT1", ".1.1", "INTEGER: 11"},
                                       {"ctxT2", ".1.2", "INTEGER: 22"},
                                       {"ctxT1", ".3.1", "STRING: \"in T1\""},
                                       {"ctxT2", ".1.1", "No Such Instance"}};
    for (const auto& stCase : astContexts) {
        std::vector<std::string> astrArgs = V3("snmpget", stCase.pszContext);
        astrArgs.push_back(std::string(TABLE) + stCase.pszInstance);
        Tool(astrArgs, &strOut);
        EXPECT_NE(strOut.find(stCase.pszWanted), std::string::npos)
            << stCase.pszContext << stCase.pszInstance << ": " << strOut;
    }

    // Values changed by the test are read as they are now.
    ASSERT_EQ(fnCtl("set ctxT1 1 int -9"), "ok");
    std::vector<std::string> astrT1 = V3("snmpget", "ctxT1");
    astrT1.push_back(strInt1);
    Tool(astrT1, &strOut);
    EXPECT_NE(strOut.find("INTEGER: -9"), std::string::npos) << strOut;

    // Rows appear and disappear under a walk.
    std::vector<std::string> astrWalk = V2c("snmpwalk", "public");
    astrWalk.push_back(TABLE);
    ASSERT_EQ(fnCtl("add - 3 30"), "ok");
    Tool(astrWalk, &strOut);
    EXPECT_NE(strOut.find("." + std::string(TABLE) + ".1.3 = INTEGER: 30"), std::string::npos)
        << strOut;
    ASSERT_EQ(fnCtl("del - 1"), "ok");
    Tool(astrWalk, &strOut);
    EXPECT_EQ(strOut.find("." + strInt1 + " "), std::string::npos) << strOut;
    EXPECT_NE(strOut.find("." + std::string(TABLE) + ".2.3 = Gauge32: 0"), std::string::npos)
        << strOut;

    // Sets: Integer32 on the writable column; wrong type and read-only refused.
    std::string strInt3 = std::string(TABLE) + ".1.3";
    std::vector<std::string> astrSet = V2c("snmpset", "private");
    astrSet.insert(astrSet.end(), {strInt3, "i", "77"});
    EXPECT_EQ(Tool(astrSet, &strOut), 0) << strOut;
    EXPECT_EQ(fnCtl("get - 3 int"), "ok 77");
    astrSet = V2c("snmpset", "private");
    astrSet.insert(astrSet.end(), {strInt3, "s", "x"});
    Tool(astrSet, &strOut);
    EXPECT_NE(strOut.find("wrongType"), std::string::npos) << strOut;
    astrSet = V2c("snmpset", "private");
    astrSet.insert(astrSet.end(), {std::string(TABLE) + ".2.3", "u", "5"});
    Tool(astrSet, &strOut);
    EXPECT_NE(strOut.find("notWritable"), std::string::npos) << strOut;
    // A set whose second binding fails changes neither.
    astrSet = V2c("snmpset", "private");
    astrSet.insert(astrSet.end(), {strInt3, "i", "78", std::string(TABLE) + ".1.9", "i", "1"});
    Tool(astrSet, &strOut);
    EXPECT_NE(strOut.find("noCreation"), std::string::npos) << strOut;
    EXPECT_EQ(fnCtl("get - 3 int"), "ok 77");
    // And in a named context.
    std::vector<std::string> astrSetT2 = V3("snmpset", "ctxT2");
    astrSetT2.insert(astrSetT2.end(), {std::string(TABLE) + ".1.2", "i", "-5"});
    EXPECT_EQ(Tool(astrSetT2, &strOut), 0) << strOut;
    EXPECT_EQ(fnCtl("get ctxT2 2 int"), "ok -5");
}

}  // namespace
