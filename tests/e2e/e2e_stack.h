// The whole stack for end-to-end tests, started by each test and stopped at
// its end: a private snmpd (its own Event MIB modules not initialised),
// snmptrapd as the receiver, mte-testagent serving the test table in the
// default context and in named ones, eventmib-agentx relaying notifications
// and port status, and the real eventmibd sampling snmpd with SNMPv3
// (eventmibd.conf and snmp.conf under SNMPCONFPATH). Everything runs on
// 127.0.0.1 with free high ports under one temporary directory; every wait
// is bounded.
#ifndef MTE_TESTS_E2E_STACK_H
#define MTE_TESTS_E2E_STACK_H

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "agentx/agentx_test_util.h"
#include "core/daemon_process.h"
#include "snmpd_harness.h"
#include "testagent_ctl.h"

namespace mte_e2e {

using mte_test::MonoMs;
using mte_test::Trap;
using mte_test::WaitUntil;

// mte-testagent's table entry: column 1 Integer32 (read-write), 2 Gauge32, 3 string.
constexpr const char* TABLE = "1.3.6.1.4.1.99999.1.1.1";
constexpr const char* FIRED = ".1.3.6.1.2.1.88.2.0.1";
constexpr const char* RISING = ".1.3.6.1.2.1.88.2.0.2";
constexpr const char* FALLING = ".1.3.6.1.2.1.88.2.0.3";
constexpr const char* FAILURE = ".1.3.6.1.2.1.88.2.0.4";
constexpr const char* SET_FAILURE = ".1.3.6.1.2.1.88.2.0.5";
constexpr const char* HOT_TRIGGER = ".1.3.6.1.2.1.88.2.1.1.0";
constexpr const char* HOT_TARGET = ".1.3.6.1.2.1.88.2.1.2.0";
constexpr const char* HOT_CONTEXT = ".1.3.6.1.2.1.88.2.1.3.0";
constexpr const char* HOT_OID = ".1.3.6.1.2.1.88.2.1.4.0";
constexpr const char* HOT_VALUE = ".1.3.6.1.2.1.88.2.1.5.0";
constexpr const char* FAILED_REASON = ".1.3.6.1.2.1.88.2.1.6.0";
constexpr int START_WAIT_MS = 15000;  // the machine may be busy
constexpr int FIRE_WAIT_MS = 8000;    // frequency 1 s: a firing is due within about 2 s

// "OID: .<TABLE>.<column>.<index>" as snmptrapd prints it.
inline std::string InstanceOid(int iColumn, int iIndex) {
    return "OID: ." + std::string(TABLE) + "." + std::to_string(iColumn) + "." +
           std::to_string(iIndex);
}
inline std::string Str(const std::string& strValue) {
    return strValue.empty() ? "\"\"" : "STRING: \"" + strValue + "\"";
}
inline std::string Int(long lValue) {
    return "INTEGER: " + std::to_string(lValue);
}

class E2eStack : public ::testing::Test {
  protected:
    // Named contexts the test agent serves besides the default one.
    virtual std::vector<std::string> Contexts() const { return {"ctxT1", "ctxT2"}; }

    void SetUp() override {
        std::string strError;
        if (!m_stSnmpd.Start(&strError, START_WAIT_MS)) {
            if (strError.find("not installed") != std::string::npos) {
                GTEST_SKIP() << strError;
            }
            FAIL() << strError;
        }
        ASSERT_TRUE(m_stSnmpd.StartTrapd(&strError)) << strError;
        ASSERT_TRUE(m_stSnmpd.UseClientConfig(mte_test::ClientSecurity::V3_AUTH_PRIV));
        m_strRuntime = m_stSnmpd.Dir() + "/rt";
        mkdir(m_strRuntime.c_str(), 0700);
        m_stDaemon.SetRuntimeDir(m_strRuntime);
        // For eventmibctl (trap-switch writes into the state directory).
        setenv("RUNTIME_DIRECTORY", m_strRuntime.c_str(), 1);
        setenv("STATE_DIRECTORY", m_stDaemon.StateDir().c_str(), 1);

        ASSERT_TRUE(StartTestAgent());
        ASSERT_TRUE(StartBridge()) << ReadFile(BridgeLog());
        ASSERT_TRUE(StartDaemon());
        Ctl("set scalars sample-minimum=1");
    }

    void TearDown() override {
        if (m_stDaemon.Pid() > 0 && !m_stDaemon.HasExited()) {
            m_stDaemon.Signal(SIGRTMIN + 1);
            int iStatus = 0;
            EXPECT_TRUE(m_stDaemon.WaitExit(10000, &iStatus)) << "eventmibd did not stop";
            EXPECT_TRUE(WIFEXITED(iStatus) && WEXITSTATUS(iStatus) == 0) << iStatus;
        }
        mte_test::StopProcess(&m_iBridgePid, 3000);
        mte_test::StopProcess(&m_iTestAgentPid, 3000);
        if (HasFailure()) {
            std::cerr << "--- eventmibd:\n"
                      << m_stDaemon.Stderr() << "--- traps:\n"
                      << ReadFile(m_stSnmpd.TrapLogPath()) << "--- bridge:\n"
                      << ReadFile(BridgeLog());
        }
        for (const std::string& strLog : {BridgeLog(), TestAgentLog(), m_stDaemon.StderrPath()}) {
            std::string strText = ReadFile(strLog);
            EXPECT_EQ(strText.find("Sanitizer"), std::string::npos) << strLog << strText;
            EXPECT_EQ(strText.find("runtime error:"), std::string::npos) << strLog << strText;
        }
        unsetenv("RUNTIME_DIRECTORY");
        unsetenv("STATE_DIRECTORY");
    }

    static std::string ReadFile(const std::string& strPath) {
        std::ifstream stIn(strPath);
        std::stringstream stText;
        stText << stIn.rdbuf();
        return stText.str();
    }

    std::string BridgeLog() const { return m_stSnmpd.Dir() + "/agentx.log"; }
    std::string TestAgentLog() const { return m_stSnmpd.Dir() + "/testagent.log"; }
    std::string ControlSocket() const { return m_stSnmpd.Dir() + "/testagent.sock"; }

    std::vector<std::string> SubagentEnv(const std::string& strPersist) const {
        return {"RUNTIME_DIRECTORY=" + m_strRuntime,
                "MIBS=", "SNMPCONFPATH=" + m_stSnmpd.Dir() + "/agentx-etc",
                "SNMP_PERSISTENT_DIR=" + m_stSnmpd.Dir() + "/" + strPersist};
    }

    bool StartTestAgent() {
        std::vector<std::string> astrArgs = {MTE_TESTAGENT_PATH, "-c", ControlSocket(), "-x",
                                             m_stSnmpd.AgentxSocketPath()};
        for (const std::string& strContext : Contexts()) {
            astrArgs.insert(astrArgs.end(), {"-n", strContext});
        }
        m_iTestAgentPid =
            mte_test::SpawnProcess(astrArgs, SubagentEnv("testagent-persist"), TestAgentLog());
        return m_iTestAgentPid > 0 &&
               WaitUntil([&] { return Agent("ping") == "ok connected"; }, START_WAIT_MS);
    }

    bool StartBridge() {
        m_iBridgePid = mte_test::SpawnProcess(
            {MTE_AGENTX_PATH, "-f", "-v", "-x", m_stSnmpd.AgentxSocketPath()},
            SubagentEnv("agentx-persist"), BridgeLog());
        std::string strSocket = m_strRuntime + "/eventmib-agentx.sock";
        return m_iBridgePid > 0 &&
               WaitUntil([&] { return access(strSocket.c_str(), F_OK) == 0; }, START_WAIT_MS);
    }

    bool StartDaemon() {
        if (!m_stDaemon.Start() || !m_stDaemon.WaitReady(START_WAIT_MS)) {
            ADD_FAILURE() << "eventmibd did not start:\n" << m_stDaemon.Stderr();
            return false;
        }
        return true;
    }

    // One command to the test agent's control socket; its reply.
    std::string Agent(const std::string& strCommand) {
        std::string strReply;
        return TESTAGENT_Command(ControlSocket(), strCommand, &strReply) ? strReply : "no reply";
    }
    void AgentOk(const std::string& strCommand) {
        std::string strReply = Agent(strCommand);
        ASSERT_EQ(strReply.rfind("ok", 0), 0u) << strCommand << ": " << strReply;
    }

    // Runs eventmibctl with the words of strCommand; its exit status.
    int CtlStatus(const std::string& strCommand, std::string* pstrOut = nullptr) {
        std::vector<std::string> astrArgs = {MTE_EVENTMIBCTL_PATH, "-s",
                                             m_strRuntime + "/eventmibd.sock", "-t", "5"};
        std::istringstream stWords(strCommand);
        for (std::string strWord; stWords >> strWord;) {
            astrArgs.push_back(strWord);
        }
        std::string strOut;
        int iStatus = mte_test::RunTool(astrArgs, m_stSnmpd.Dir() + "/ctl.out", 10000, &strOut);
        if (pstrOut != nullptr) {
            *pstrOut = strOut;
        }
        return iStatus;
    }
    void Ctl(const std::string& strCommand) {
        std::string strOut;
        ASSERT_EQ(CtlStatus(strCommand, &strOut), 0) << "eventmibctl " << strCommand << "\n"
                                                     << strOut;
    }
    // Runs the lines of a scenario over one connection (eventmibctl -f).
    void CtlScenario(const std::string& strLines) {
        std::string strPath = m_stSnmpd.Dir() + "/scenario.ctl";
        std::ofstream(strPath, std::ios::trunc) << strLines;
        Ctl("-f " + strPath);
    }

    // One counter of `eventmibctl get scalars` (for example "event-failures").
    long Scalar(const std::string& strName) {
        std::string strOut;
        if (CtlStatus("get scalars", &strOut) != 0) {
            return -1;
        }
        std::istringstream stLines(strOut);
        for (std::string strLine; std::getline(stLines, strLine);) {
            std::istringstream stWords(strLine);
            std::string strKey;
            long lValue = -1;
            if (stWords >> strKey >> lValue && strKey == strName) {
                return lValue;
            }
        }
        return -1;
    }

    // Notifications of type strTrapOid received so far; with strTrigger, only
    // those whose mteHotTrigger names it.
    std::vector<Trap> Traps(const std::string& strTrapOid, const std::string& strTrigger = "") {
        std::vector<Trap> astAll = mte_test::TrapsWithOid(m_stSnmpd.TrapLogPath(), strTrapOid);
        if (strTrigger.empty()) {
            return astAll;
        }
        std::vector<Trap> astMine;
        for (const Trap& stTrap : astAll) {
            if (stTrap.Value(HOT_TRIGGER) == Str(strTrigger)) {
                astMine.push_back(stTrap);
            }
        }
        return astMine;
    }
    // Waits until at least uiCount such notifications have arrived.
    bool WaitTraps(const std::string& strTrapOid, const std::string& strTrigger, size_t uiCount,
                   int iTimeoutMs = FIRE_WAIT_MS) {
        return WaitUntil([&] { return Traps(strTrapOid, strTrigger).size() >= uiCount; },
                         iTimeoutMs);
    }
    // The first notification of that kind whose binding strName has strValue.
    bool WaitTrapWith(const std::string& strTrapOid, const std::string& strTrigger,
                      const std::string& strName, const std::string& strValue, Trap* pstFound,
                      int iTimeoutMs = FIRE_WAIT_MS) {
        return WaitUntil(
            [&] {
                for (const Trap& stTrap : Traps(strTrapOid, strTrigger)) {
                    if (stTrap.Value(strName) == strValue) {
                        *pstFound = stTrap;
                        return true;
                    }
                }
                return false;
            },
            iTimeoutMs);
    }

    mte_test::SnmpdHarness m_stSnmpd;
    MteDaemonProcess m_stDaemon;
    std::string m_strRuntime;
    pid_t m_iBridgePid = -1;
    pid_t m_iTestAgentPid = -1;
};

// The five variables of a trigger notification, checked together.
inline void ExpectHot(const Trap& stTrap, const std::string& strTrigger,
                      const std::string& strContext, const std::string& strOid,
                      const std::string& strValue) {
    EXPECT_EQ(stTrap.Value(HOT_TRIGGER), Str(strTrigger));
    EXPECT_EQ(stTrap.Value(HOT_TARGET), Str(""));
    EXPECT_EQ(stTrap.Value(HOT_CONTEXT), Str(strContext));
    EXPECT_EQ(stTrap.Value(HOT_OID), strOid);
    EXPECT_EQ(stTrap.Value(HOT_VALUE), strValue);
}

}  // namespace mte_e2e

#endif  // MTE_TESTS_E2E_STACK_H
