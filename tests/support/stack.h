// The harness of tests that start processes: a private snmpd (its own Event
// MIB modules not initialised), snmptrapd, mte-testagent, eventmib-agentx and
// eventmibd on 127.0.0.1, free ports, temporary directories, bounded waits.
// snmpd: contexts "ctxA"/"ctxAB" proxy its system group, "ctxB" its
// interfaces group; user "testuser" (SHA/AES authPriv) reads and writes every
// context; communities "public" and "private" the default context.
#ifndef MTE_TEST_STACK_H
#define MTE_TEST_STACK_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "mte_msg.h"
#include "mte_types.h"

// In a fixture's SetUp: starts the pieces, skips where snmpd is missing.
#define MTE_START_STACK(stack, pieces)                     \
    do {                                                   \
        std::string strStackError = (stack).Start(pieces); \
        if (strStackError.rfind("skip:", 0) == 0) {        \
            GTEST_SKIP() << strStackError;                 \
        }                                                  \
        ASSERT_EQ(strStackError, "");                      \
    } while (0)

#define MTE_TEST_WRITABLE_INTEGER "1.3.6.1.4.1.8072.9999.1.0"  // Integer32, initially 5

namespace mte_test {

int64_t MonoMs(void);
// Polls the condition every 50 ms until it holds or the time is up.
bool WaitUntil(const std::function<bool()>& fnCondition, int iTimeoutMs);
std::string ReadFile(const std::string& strPath);

// Starts a program with extra environment ("NAME=value" replaces an inherited
// variable, a bare "NAME" removes it), its output appended to strLogPath (or
// replacing it); the pid or -1.
pid_t SpawnProcess(const std::vector<std::string>& astrArgs,
                   const std::vector<std::string>& astrEnv, const std::string& strLogPath,
                   bool bTruncate = false);
// SIGTERM, wait up to iGraceMs, then SIGKILL and reap.
void StopProcess(pid_t* piPid, int iGraceMs);
// Opens strSocket and the two directories above it to everyone, then runs
// fnChild as user nobody (needs root): its exit status, -1 when it could not.
int AsNobodyOn(const std::string& strSocket, const std::function<int()>& fnChild);

bool BindTo(int iFd, const std::string& strPath);
// One datagram to a Unix socket path, from a socket of its own.
bool SendDatagram(const std::string& strPath, const void* pData, size_t uiLen);

struct ToolRun {
    int iExit;           // -1: killed by the time-out or a signal
    std::string strOut;  // standard output and error
};

enum class ClientSecurity { V2C, V3_AUTH_PRIV };

class SnmpdHarness {
  public:
    SnmpdHarness() = default;
    ~SnmpdHarness();
    SnmpdHarness(const SnmpdHarness&) = delete;
    SnmpdHarness& operator=(const SnmpdHarness&) = delete;

    // False with the reason ("... is not installed" when snmpd is missing).
    bool Start(std::string* pstrError, int iWaitMs = 15000);
    // The directory stays for a restart on the same port.
    void Stop(int iGraceMs = 3000) { StopProcess(&m_iPid, iGraceMs); }
    bool StartTrapd(std::string* pstrError, int iWaitMs = 5000);
    // Writes client files (snmp.conf, eventmibd.conf) for this process and
    // its children, and points their environment at them.
    bool UseClientConfig(ClientSecurity eSecurity);

    pid_t Pid() const { return m_iPid; }
    uint16_t Port() const { return m_usPort; }
    uint16_t TrapPort() const { return m_usTrapPort; }
    const std::string& Dir() const { return m_strDir; }
    std::string AgentxSocketPath() const { return m_strDir + "/run/agentx.sock"; }
    std::string TrapLogPath() const { return m_strDir + "/traps.log"; }

  private:
    bool Prepare(std::string* pstrError);
    std::vector<std::string> ServerEnv() const;

    std::string m_strDir;
    uint16_t m_usPort = 0;
    uint16_t m_usTrapPort = 0;
    pid_t m_iPid = -1;
    pid_t m_iTrapdPid = -1;
};

// eventmibd with its own state and runtime directories, standard error in a
// file, readiness through a private NOTIFY_SOCKET. The destructor kills it.
class DaemonProcess {
  public:
    DaemonProcess();
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    // Before Start: point a directory elsewhere (a regular file makes an
    // initialiser fail).
    void SetStateDir(const std::string& strDir) { m_strStateDir = strDir; }
    void SetRuntimeDir(const std::string& strDir) { m_strRuntimeDir = strDir; }

    bool Start();
    // True once it reported READY=1; false when it exited first or time ran out.
    bool WaitReady(int iTimeoutMs = 15000);
    // True with the wait status once the daemon has exited.
    bool WaitExit(int iTimeoutMs, int* piStatus);
    bool HasExited();
    bool Signal(int iSignal);
    // The exit status after the stop signal (or without it); -1 when it
    // was killed or did not exit in time (then it is killed).
    int Stop(bool bSignal = true);

    const std::string& Root() const { return m_strRoot; }
    const std::string& StateDir() const { return m_strStateDir; }
    const std::string& RuntimeDir() const { return m_strRuntimeDir; }
    std::string SocketPath() const { return m_strRuntimeDir + "/eventmibd.sock"; }
    pid_t Pid() const { return m_iPid; }
    std::string StderrPath() const { return m_strRoot + "/stderr"; }
    std::string Stderr() const { return ReadFile(StderrPath()); }
    size_t CountStderr(const std::string& strFragment) const;  // lines containing it
    // Open descriptors of the daemon; settled: once the count stops moving.
    size_t FdCount() const;
    size_t SettledFdCount() const;

  private:
    std::string m_strRoot;
    std::string m_strStateDir;
    std::string m_strRuntimeDir;
    int m_iNotifyFd = -1;
    pid_t m_iPid = -1;
    bool m_bReaped = false;
    int m_iStatus = 0;
};

// A synchronous client of the management socket, every wait bounded.
class ChannelClient {
  public:
    ChannelClient() = default;
    ~ChannelClient() { Close(); }
    ChannelClient(const ChannelClient&) = delete;
    ChannelClient& operator=(const ChannelClient&) = delete;

    bool Connect(const std::string& strPath, int iTimeoutMs = 5000);
    void Close();
    int Fd() const { return m_iFd; }
    bool SendRaw(const void* pData, size_t uiLen) {
        return send(m_iFd, pData, uiLen, MSG_NOSIGNAL) == static_cast<ssize_t>(uiLen);
    }
    // One packet, or empty on time-out, error or end of stream.
    std::vector<uint8_t> RecvRaw(int iTimeoutMs = 5000);
    // True when nothing arrives within the time.
    bool Silent(int iTimeoutMs) {
        pollfd stPoll{m_iFd, POLLIN, 0};
        return poll(&stPoll, 1, iTimeoutMs) == 0;
    }
    // Sends a request and parses its reply into stReply; false on any
    // failure, a reply with another sequence included.
    bool Request(uint16_t usType, uint16_t usOp, uint32_t uiMask = 0, uint16_t usItem = 0,
                 const void* pValue = nullptr);
    bool ReceiveReply(uint32_t uiSeq);

    std::vector<uint8_t> vecReply;
    MTE_MSG_REPLY_S stReply{};

  private:
    int m_iFd = -1;
    uint32_t m_uiSequence = 0;
};

// One notification in snmptrapd's log: the bindings' names and "TYPE: value".
struct Trap {
    std::vector<std::pair<std::string, std::string>> astBindings;
    std::string Value(const std::string& strName) const;
};

// A notification datagram built field by field, so that it can also be wrong.
class NotifyDatagram {
  public:
    NotifyDatagram& U16(uint16_t us) { return Raw(&us, 2); }
    NotifyDatagram& U32(uint32_t ui) { return Raw(&ui, 4); }
    NotifyDatagram& Raw(const void* p, size_t n) {
        const auto* puc = static_cast<const unsigned char*>(p);
        m_auc.insert(m_auc.end(), puc, puc + n);
        return *this;
    }
    NotifyDatagram& Oid(const std::vector<uint32_t>& auiOid) {
        U32(static_cast<uint32_t>(auiOid.size()));
        for (uint32_t ui : auiOid) {
            U32(ui);
        }
        return *this;
    }
    NotifyDatagram& Header(const std::vector<uint32_t>& auiTrap, const std::string& strContext,
                           uint16_t usCount) {
        U32(0x4e45544d).U16(1).U16(usCount).Oid(auiTrap);
        U16(static_cast<uint16_t>(strContext.size()));
        return Raw(strContext.data(), strContext.size());
    }
    NotifyDatagram& Var(const std::vector<uint32_t>& auiName, uint32_t uiType, const void* p,
                        uint32_t uiLen) {
        Oid(auiName).U32(uiType).U32(uiLen);
        return Raw(p, uiLen);
    }
    const std::vector<unsigned char>& Bytes() const { return m_auc; }
    std::vector<unsigned char>& Bytes() { return m_auc; }

  private:
    std::vector<unsigned char> m_auc;
};

MTE_OID_S Oid(const char* pszDotted);
std::string OidText(const MTE_OID_S& stOid);
bool IsUnder(const MTE_OID_S& stOid, const MTE_OID_S& stPrefix);

// mte-testagent's table entry (1 Integer32 read-write, 2 Gauge32, 3 string, 4
// TimeTicks); the built-in notifications and their objects.
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
std::string InstanceOid(int iColumn, int iIndex);
inline std::string Str(const std::string& strValue) {
    return strValue.empty() ? "\"\"" : "STRING: \"" + strValue + "\"";
}
inline std::string Int(long lValue) {
    return "INTEGER: " + std::to_string(lValue);
}

// The pieces a test asks for; none implies another.
enum StackPiece : unsigned {
    SNMPD = 1u << 0,
    TRAPD = 1u << 1,
    CLIENT_V3 = 1u << 2,   // the daemon (and this process) read snmpd with SNMPv3
    CLIENT_V2C = 1u << 3,  // or with SNMPv2c
    TESTAGENT = 1u << 4,
    BRIDGE = 1u << 5,
    DAEMON = 1u << 6,
    WHOLE = SNMPD | TRAPD | CLIENT_V3 | TESTAGENT | BRIDGE | DAEMON,
};

// Starts the pieces and stops them in its destructor, which also fails on
// sanitizer reports in the children's logs and prints them when the test
// failed. This process's RUNTIME_DIRECTORY and STATE_DIRECTORY are the daemon's.
class Stack {
  public:
    Stack();
    ~Stack();
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    // "" when every piece runs; "skip: ..." without snmpd; else what failed.
    std::string Start(unsigned uiPieces);
    bool StartBridge();
    bool StartDaemon() { return m_stDaemon.Start() && m_stDaemon.WaitReady(); }
    void StopBridge(bool bKill = false);

    // One command to the test agent; its reply.
    std::string Agent(const std::string& strCommand);
    void AgentOk(const std::string& strCommand);
    // eventmibctl with these shell words; a scenario over one connection.
    ToolRun Ctl(const std::string& strArgs);
    ToolRun CtlScenario(const std::string& strLines);
    void CtlOk(const std::string& strArgs);
    void CtlScenarioOk(const std::string& strLines);
    std::string Snapshot();                   // every table as eventmibctl walks it
    long Scalar(const std::string& strName);  // of `get scalars`, -1 when absent
    // A net-snmp tool ("snmpget -v2c -c public" and the like) against snmpd.
    ToolRun Snmp(const std::string& strToolAndOptions, const std::string& strArgs);
    ToolRun Get(const std::string& strArgs) { return Snmp("snmpget -v2c -c public", strArgs); }
    ToolRun Set(const std::string& strArgs) { return Snmp("snmpset -v2c -c private", strArgs); }
    ToolRun Walk(const std::string& strOid) { return Snmp("snmpwalk -v2c -c public", strOid); }

    // Notifications of that type received; with strTrigger, only its own.
    std::vector<Trap> Traps(const std::string& strTrapOid, const std::string& strTrigger = "");
    bool WaitTraps(const std::string& strTrapOid, const std::string& strTrigger, size_t uiCount,
                   int iTimeoutMs = FIRE_WAIT_MS);
    // The first such notification whose binding strName has strValue.
    bool WaitTrapWith(const std::string& strTrapOid, const std::string& strTrigger,
                      const std::string& strName, const std::string& strValue, Trap* pstFound,
                      int iTimeoutMs = FIRE_WAIT_MS);

    std::string BridgeLog() const { return m_stSnmpd.Dir() + "/agentx.log"; }
    std::string RuntimeDir() const { return m_stDaemon.RuntimeDir(); }

    SnmpdHarness m_stSnmpd;
    DaemonProcess m_stDaemon;
    // Set before Start: the test agent's named contexts, the bridge's arguments.
    std::vector<std::string> m_astrContexts = {"ctxT1", "ctxT2"};
    std::vector<std::string> m_astrBridgeArgs;
    pid_t m_iBridgePid = -1;

  private:
    bool StartTestAgent();
    std::vector<std::string> ChildEnv(const std::string& strPersist) const;
    pid_t m_iTestAgentPid = -1;
};

// The fixture of end-to-end tests: the whole stack, sampling every second.
class WholeStackTest : public ::testing::Test, protected Stack {
  protected:
    void SetUp() override {
        MTE_START_STACK(*this, WHOLE);
        CtlOk("set scalars sample-minimum=1");
    }
};

// eventmibctl lines that make trigger owner=e2e name=strName with its test
// row and activate it (frequency 1 unless the trigger columns name one).
std::string TriggerLines(const std::string& strName, const std::string& strTriggerColumns,
                         const std::string& strTestTable, const std::string& strTestColumns);

// The five variables of a trigger notification, checked together.
void ExpectHot(const Trap& stTrap, const std::string& strTrigger, const std::string& strContext,
               const std::string& strOid, const std::string& strValue);

}  // namespace mte_test

#endif  // MTE_TEST_STACK_H
