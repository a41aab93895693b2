// The stack harness. Every wait is bounded and every temporary directory is
// removed by its owner's destructor.
#include "stack.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "testagent_ctl.h"

extern char** environ;

namespace mte_test {

namespace {

constexpr const char* SNMPD_PATH = "/usr/sbin/snmpd";
constexpr const char* SNMPTRAPD_PATH = "/usr/sbin/snmptrapd";

// The agent's built-in Event MIB modules: our daemon must be the only one.
constexpr const char* NO_AGENT_EVENT_MIB =
    "-mteScalars,mteTrigger,mteTriggerTable,mteTriggerDeltaTable,mteTriggerExistenceTable,"
    "mteTriggerBooleanTable,mteTriggerThresholdTable,mteTriggerConf,mteEvent,mteEventTable,"
    "mteEventSetTable,mteEventNotificationTable,mteEventConf,mteObjects,mteObjectsTable,"
    "mteObjectsConf";

bool WriteFile(const std::string& strPath, const std::string& strText) {
    std::ofstream stOut(strPath, std::ios::trunc);
    stOut << strText;
    return static_cast<bool>(stOut);
}

std::string MakeTempDir(const char* pszPrefix) {
    const char* pszTmp = getenv("TMPDIR");
    std::string strDir = std::string(pszTmp != nullptr ? pszTmp : "/tmp") + "/" + pszPrefix;
    return mkdtemp(strDir.data()) != nullptr ? strDir : "";
}

// Runs a shell command line under timeout(1), standard error with the output.
ToolRun Shell(const std::string& strCommand) {
    ToolRun stRun{-1, ""};
    FILE* pstPipe = popen(("timeout 30 " + strCommand + " 2>&1").c_str(), "r");
    if (pstPipe == nullptr) {
        return stRun;
    }
    char acBuf[4096];
    for (size_t uiGot; (uiGot = fread(acBuf, 1, sizeof(acBuf), pstPipe)) > 0;) {
        stRun.strOut.append(acBuf, uiGot);
    }
    int iStatus = pclose(pstPipe);
    stRun.iExit = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    return stRun;
}

// A plain SNMPv2c get of sysUpTime.0, whatever client configuration this
// process has.
bool Answers(uint16_t usPort, const char* pszTimeout) {
    return Shell("env MIBS= snmpget -v2c -c public -On -r 0 -t " + std::string(pszTimeout) +
                 " 127.0.0.1:" + std::to_string(usPort) + " 1.3.6.1.2.1.1.3.0 >/dev/null")
               .iExit == 0;
}

std::vector<char*> CStrings(const std::vector<std::string>& astr) {
    std::vector<char*> apsz;
    for (const auto& str : astr) {
        apsz.push_back(const_cast<char*>(str.c_str()));
    }
    apsz.push_back(nullptr);
    return apsz;
}

// bind(2) or connect(2) on a Unix socket path.
bool AtPath(int (*pfCall)(int, const sockaddr*, socklen_t), int iFd, const std::string& strPath) {
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    if (strPath.size() >= sizeof(stAddr.sun_path)) {
        return false;
    }
    strcpy(stAddr.sun_path, strPath.c_str());
    return pfCall(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) == 0;
}

uint16_t FreeUdpPort(void) {
    int iFd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return 0;
    }
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t uiLen = sizeof(stAddr);
    uint16_t usPort = 0;
    if (bind(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) == 0 &&
        getsockname(iFd, reinterpret_cast<sockaddr*>(&stAddr), &uiLen) == 0) {
        usPort = ntohs(stAddr.sin_port);
    }
    close(iFd);
    return usPort;
}

}  // namespace

int64_t MonoMs(void) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool WaitUntil(const std::function<bool()>& fnCondition, int iTimeoutMs) {
    int64_t llDeadline = MonoMs() + iTimeoutMs;
    do {
        if (fnCondition()) {
            return true;
        }
        usleep(50000);
    } while (MonoMs() < llDeadline);
    return fnCondition();
}

std::string ReadFile(const std::string& strPath) {
    std::ifstream stIn(strPath, std::ios::binary);
    std::stringstream stText;
    stText << stIn.rdbuf();
    return stText.str();
}

size_t DaemonProcess::CountStderr(const std::string& strFragment) const {
    std::istringstream stIn(Stderr());
    size_t uiCount = 0;
    for (std::string strLine; std::getline(stIn, strLine);) {
        uiCount += strLine.find(strFragment) != std::string::npos;
    }
    return uiCount;
}

pid_t SpawnProcess(const std::vector<std::string>& astrArgs,
                   const std::vector<std::string>& astrEnv, const std::string& strLogPath,
                   bool bTruncate) {
    auto Name = [](const std::string& str) { return str.substr(0, str.find('=')); };
    std::vector<std::string> astrFullEnv;
    for (char** ppsz = environ; *ppsz != nullptr; ppsz++) {
        if (std::none_of(astrEnv.begin(), astrEnv.end(),
                         [&](const std::string& strOwn) { return Name(strOwn) == Name(*ppsz); })) {
            astrFullEnv.push_back(*ppsz);
        }
    }
    std::copy_if(astrEnv.begin(), astrEnv.end(), std::back_inserter(astrFullEnv),
                 [&](const std::string& strOwn) { return Name(strOwn) != strOwn; });
    std::vector<char*> apszArgs = CStrings(astrArgs);
    std::vector<char*> apszEnv = CStrings(astrFullEnv);

    posix_spawn_file_actions_t stActions;
    posix_spawn_file_actions_init(&stActions);
    posix_spawn_file_actions_addopen(&stActions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&stActions, 1, strLogPath.c_str(),
                                     O_WRONLY | O_CREAT | (bTruncate ? O_TRUNC : O_APPEND), 0644);
    posix_spawn_file_actions_adddup2(&stActions, 1, 2);
    // A clean signal mask and default dispositions, whatever the test blocks.
    posix_spawnattr_t stAttr;
    posix_spawnattr_init(&stAttr);
    sigset_t stEmpty;
    sigemptyset(&stEmpty);
    sigset_t stAll;
    sigfillset(&stAll);
    posix_spawnattr_setsigmask(&stAttr, &stEmpty);
    posix_spawnattr_setsigdefault(&stAttr, &stAll);
    posix_spawnattr_setflags(&stAttr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t iPid = -1;
    int iRc = posix_spawn(&iPid, apszArgs[0], &stActions, &stAttr, apszArgs.data(), apszEnv.data());
    posix_spawn_file_actions_destroy(&stActions);
    posix_spawnattr_destroy(&stAttr);
    return iRc == 0 ? iPid : -1;
}

void StopProcess(pid_t* piPid, int iGraceMs) {
    if (*piPid <= 0) {
        return;
    }
    kill(*piPid, SIGTERM);
    int64_t llDeadline = MonoMs() + iGraceMs;
    int iStatus = 0;
    while (waitpid(*piPid, &iStatus, WNOHANG) == 0) {
        if (MonoMs() >= llDeadline) {
            kill(*piPid, SIGKILL);
            waitpid(*piPid, &iStatus, 0);
            break;
        }
        usleep(20000);
    }
    *piPid = -1;
}

bool BindTo(int iFd, const std::string& strPath) {
    return AtPath(bind, iFd, strPath);
}

bool SendDatagram(const std::string& strPath, const void* pData, size_t uiLen) {
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool bOk =
        AtPath(connect, iFd, strPath) && send(iFd, pData, uiLen, 0) == static_cast<ssize_t>(uiLen);
    close(iFd);
    return bOk;
}

int AsNobodyOn(const std::string& strSocket, const std::function<int()>& fnChild) {
    std::filesystem::path stRun = std::filesystem::path(strSocket).parent_path();
    if (chmod(stRun.parent_path().c_str(), 0755) != 0 || chmod(stRun.c_str(), 0755) != 0 ||
        chmod(strSocket.c_str(), 0666) != 0) {
        return -1;
    }
    pid_t iChild = fork();
    if (iChild == 0) {
        if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) {
            _exit(100);
        }
        _exit(fnChild());
    }
    int iStatus = 0;
    if (iChild < 0 || waitpid(iChild, &iStatus, 0) != iChild || !WIFEXITED(iStatus)) {
        return -1;
    }
    return WEXITSTATUS(iStatus) == 100 ? -1 : WEXITSTATUS(iStatus);
}

// ---- snmpd and snmptrapd

SnmpdHarness::~SnmpdHarness() {
    StopProcess(&m_iTrapdPid, 3000);
    Stop();
    std::error_code stEc;
    std::filesystem::remove_all(m_strDir, stEc);
}

bool SnmpdHarness::Prepare(std::string* pstrError) {
    if (!m_strDir.empty()) {
        return true;
    }
    if (access(SNMPD_PATH, X_OK) != 0) {
        *pstrError = "snmpd is not installed";
        return false;
    }
    m_strDir = MakeTempDir("mte-snmpd.XXXXXX");
    m_usPort = FreeUdpPort();
    m_usTrapPort = FreeUdpPort();
    if (m_strDir.empty() || m_usPort == 0 || m_usTrapPort == 0) {
        *pstrError = "no temporary directory or free UDP port";
        return false;
    }
    for (const char* pszSub : {"/etc", "/persist", "/run", "/client", "/client-persist"}) {
        mkdir((m_strDir + pszSub).c_str(), 0700);
    }
    std::string strSelf = "127.0.0.1:" + std::to_string(m_usPort);
    std::string strConf =
        "agentAddress udp:" + strSelf + "\nmaster agentx\nagentXSocket " + AgentxSocketPath() +
        "\nagentXPerms 0660 0770\nrocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\n"
        "createUser testuser SHA \"testauthpass\" AES \"testprivpass\"\n"
        "group testgroup usm testuser\nview all included .1\n"
        // Prefix match on the empty context name: every context.
        "access testgroup \"\" usm priv prefix all all none\n"
        "proxy -Cn ctxA -v2c -c public " +
        strSelf + " 1.3.6.1.2.1.1\nproxy -Cn ctxAB -v2c -c public " + strSelf +
        " 1.3.6.1.2.1.1\nproxy -Cn ctxB -v2c -c public " + strSelf +
        " 1.3.6.1.2.1.2\n"
        // A writable Integer32 with no side effects, for set tests.
        "override -rw " MTE_TEST_WRITABLE_INTEGER " integer 5\ntrap2sink 127.0.0.1:" +
        std::to_string(m_usTrapPort) + " public\ndontLogTCPWrappersConnects yes\n";
    if (!WriteFile(m_strDir + "/etc/snmpd.conf", strConf) ||
        !WriteFile(m_strDir + "/etc/snmp.conf", "mibs :\n") ||
        !WriteFile(m_strDir + "/etc/snmptrapd.conf", "disableAuthorization yes\n")) {
        *pstrError = "cannot write the configuration";
        return false;
    }
    return true;
}

std::vector<std::string> SnmpdHarness::ServerEnv() const {
    return {"SNMPCONFPATH=" + m_strDir + "/etc:" + m_strDir + "/persist",
            "SNMP_PERSISTENT_DIR=" + m_strDir + "/persist", "MIBS="};
}

bool SnmpdHarness::Start(std::string* pstrError, int iWaitMs) {
    if (!Prepare(pstrError)) {
        return false;
    }
    if (m_iPid > 0) {
        return true;
    }
    std::string strLog = m_strDir + "/snmpd.log";
    m_iPid = SpawnProcess(
        {SNMPD_PATH, "-f", "-I", NO_AGENT_EVENT_MIB, "-Lf", strLog, "-p", m_strDir + "/snmpd.pid"},
        ServerEnv(), m_strDir + "/snmpd.out");
    bool bUp = m_iPid > 0 && WaitUntil(
                                 [&] {
                                     int iStatus = 0;
                                     return Answers(m_usPort, "0.2") ||
                                            waitpid(m_iPid, &iStatus, WNOHANG) == m_iPid;
                                 },
                                 iWaitMs);
    if (!bUp || !Answers(m_usPort, "0.5")) {
        Stop(500);
        *pstrError =
            "snmpd did not answer on port " + std::to_string(m_usPort) + ":\n" + ReadFile(strLog);
        return false;
    }
    return true;
}

bool SnmpdHarness::StartTrapd(std::string* pstrError, int iWaitMs) {
    if (!Prepare(pstrError)) {
        return false;
    }
    if (access(SNMPTRAPD_PATH, X_OK) != 0) {
        *pstrError = "snmptrapd is not installed";
        return false;
    }
    m_iTrapdPid = SpawnProcess({SNMPTRAPD_PATH, "-f", "-C", "-c", m_strDir + "/etc/snmptrapd.conf",
                                "-On", "-Lf", TrapLogPath(), "-p", m_strDir + "/snmptrapd.pid",
                                "udp:127.0.0.1:" + std::to_string(m_usTrapPort)},
                               ServerEnv(), m_strDir + "/snmptrapd.out");
    // snmptrapd writes its start line to the log once it listens.
    if (m_iTrapdPid <= 0 || !WaitUntil([&] { return !ReadFile(TrapLogPath()).empty(); }, iWaitMs)) {
        StopProcess(&m_iTrapdPid, 500);
        *pstrError = "snmptrapd did not start";
        return false;
    }
    return true;
}

bool SnmpdHarness::UseClientConfig(ClientSecurity eSecurity) {
    if (m_strDir.empty()) {
        return false;
    }
    std::string strSnmp = "mibs :\n";
    if (eSecurity == ClientSecurity::V2C) {
        strSnmp += "defVersion 2c\ndefCommunity private\n";
    } else {
        strSnmp +=
            "defVersion 3\ndefSecurityName testuser\ndefSecurityLevel authPriv\n"
            "defAuthType SHA\ndefAuthPassphrase testauthpass\n"
            "defPrivType AES\ndefPrivPassphrase testprivpass\n";
    }
    std::string strApp = "agentAddress udp:127.0.0.1:" + std::to_string(m_usPort) + "\n";
    if (!WriteFile(m_strDir + "/client/snmp.conf", strSnmp) ||
        !WriteFile(m_strDir + "/client/eventmibd.conf", strApp)) {
        return false;
    }
    setenv("SNMPCONFPATH", (m_strDir + "/client").c_str(), 1);
    setenv("SNMP_PERSISTENT_DIR", (m_strDir + "/client-persist").c_str(), 1);
    setenv("MIBS", "", 1);
    return true;
}

// ---- eventmibd

DaemonProcess::DaemonProcess() : m_strRoot(MakeTempDir("mte-daemon-XXXXXX")) {
    m_strStateDir = m_strRoot + "/state";
    m_strRuntimeDir = m_strRoot + "/run";
    mkdir(m_strStateDir.c_str(), 0700);
    mkdir(m_strRuntimeDir.c_str(), 0700);
}

DaemonProcess::~DaemonProcess() {
    if (m_iPid > 0 && !m_bReaped) {
        (void)kill(m_iPid, SIGKILL);
        int iStatus = 0;
        (void)WaitExit(5000, &iStatus);
    }
    (void)close(m_iNotifyFd);
    std::error_code stErr;
    std::filesystem::remove_all(m_strRoot, stErr);
}

bool DaemonProcess::Start() {
    if (m_strRoot.empty()) {
        return false;
    }
    std::string strNotify = m_strRoot + "/notify";
    if (m_iNotifyFd < 0) {
        m_iNotifyFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (m_iNotifyFd < 0 || !AtPath(bind, m_iNotifyFd, strNotify)) {
            return false;
        }
    }
    const std::vector<std::string> astrEnv = {"JOURNAL_STREAM", "STATE_DIRECTORY=" + m_strStateDir,
                                              "RUNTIME_DIRECTORY=" + m_strRuntimeDir,
                                              "NOTIFY_SOCKET=" + strNotify};
    m_iPid = SpawnProcess({MTE_EVENTMIBD_PATH}, astrEnv, StderrPath(), true);
    m_bReaped = false;
    return m_iPid > 0;
}

bool DaemonProcess::WaitReady(int iTimeoutMs) {
    bool bReady = false;
    WaitUntil(
        [&] {
            char szMsg[256] = {};
            bReady = recv(m_iNotifyFd, szMsg, sizeof(szMsg) - 1, MSG_DONTWAIT) > 0 &&
                     strstr(szMsg, "READY=1") != nullptr;
            return bReady || HasExited();
        },
        iTimeoutMs);
    return bReady;
}

bool DaemonProcess::WaitExit(int iTimeoutMs, int* piStatus) {
    bool bExited = WaitUntil([&] { return HasExited(); }, iTimeoutMs);
    *piStatus = m_iStatus;
    return bExited;
}

bool DaemonProcess::HasExited() {
    m_bReaped = m_bReaped || waitpid(m_iPid, &m_iStatus, WNOHANG) == m_iPid;
    return m_bReaped;
}

bool DaemonProcess::Signal(int iSignal) {
    return !m_bReaped && kill(m_iPid, iSignal) == 0;
}

int DaemonProcess::Stop(bool bSignal) {
    int iStatus = 0;
    if ((bSignal && !Signal(SIGRTMIN + 1)) || !WaitExit(10000, &iStatus)) {
        (void)Signal(SIGKILL);
        (void)WaitExit(10000, &iStatus);
        return -1;
    }
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

size_t DaemonProcess::FdCount() const {
    std::error_code stErr;
    std::filesystem::directory_iterator it("/proc/" + std::to_string(m_iPid) + "/fd", stErr);
    return stErr ? 0 : static_cast<size_t>(std::distance(it, {}));
}

size_t DaemonProcess::SettledFdCount() const {
    size_t uiLast = FdCount();
    for (int i = 0; i < 30; i++) {
        usleep(100 * 1000);
        size_t uiNow = FdCount();
        if (uiNow == uiLast) {
            return uiNow;
        }
        uiLast = uiNow;
    }
    return uiLast;
}

// ---- management socket client

bool ChannelClient::Connect(const std::string& strPath, int iTimeoutMs) {
    Close();
    m_iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (m_iFd < 0) {
        return false;
    }
    timeval stTimeout{iTimeoutMs / 1000, (iTimeoutMs % 1000) * 1000};
    setsockopt(m_iFd, SOL_SOCKET, SO_RCVTIMEO, &stTimeout, sizeof(stTimeout));
    setsockopt(m_iFd, SOL_SOCKET, SO_SNDTIMEO, &stTimeout, sizeof(stTimeout));
    if (!AtPath(connect, m_iFd, strPath)) {
        Close();
        return false;
    }
    return true;
}

void ChannelClient::Close() {
    (void)close(m_iFd);
    m_iFd = -1;
}

std::vector<uint8_t> ChannelClient::RecvRaw(int iTimeoutMs) {
    pollfd stPoll{m_iFd, POLLIN, 0};
    if (poll(&stPoll, 1, iTimeoutMs) != 1) {
        return {};
    }
    std::vector<uint8_t> vecBuf(MTE_MSG_MAX_LEN + 64);
    ssize_t lLen = recv(m_iFd, vecBuf.data(), vecBuf.size(), MSG_DONTWAIT);
    vecBuf.resize(lLen > 0 ? static_cast<size_t>(lLen) : 0);
    return vecBuf;
}

bool ChannelClient::Request(uint16_t usType, uint16_t usOp, uint32_t uiMask, uint16_t usItem,
                            const void* pValue) {
    uint8_t aucMsg[MTE_MSG_MAX_LEN];
    uint32_t uiSeq = ++m_uiSequence;
    uint32_t uiLen =
        MTE_MSG_BuildRequest(uiSeq, usType, usOp, uiMask, usItem, pValue, aucMsg, sizeof(aucMsg));
    return uiLen != 0 && SendRaw(aucMsg, uiLen) && ReceiveReply(uiSeq);
}

bool ChannelClient::ReceiveReply(uint32_t uiSeq) {
    vecReply = RecvRaw();
    return !vecReply.empty() &&
           MTE_MSG_ParseReply(vecReply.data(), static_cast<uint32_t>(vecReply.size()), &stReply) ==
               MTE_OK &&
           stReply.uiSequence == uiSeq;
}

// ---- notifications and OIDs

std::string Trap::Value(const std::string& strName) const {
    for (const auto& [strOid, strValue] : astBindings) {
        if (strOid == strName) {
            return strValue;
        }
    }
    return "<absent>";
}

MTE_OID_S Oid(const char* pszDotted) {
    MTE_OID_S stOid{};
    const char* psz = pszDotted;
    while (*psz != '\0' && stOid.uiLen < MTE_OID_MAX_LEN) {
        char* pszEnd = nullptr;
        stOid.auiOid[stOid.uiLen++] = static_cast<uint32_t>(strtoul(psz, &pszEnd, 10));
        psz = (*pszEnd == '.') ? pszEnd + 1 : pszEnd;
    }
    return stOid;
}

std::string OidText(const MTE_OID_S& stOid) {
    std::string str;
    for (uint32_t i = 0; i < stOid.uiLen; i++) {
        str += (i ? "." : "") + std::to_string(stOid.auiOid[i]);
    }
    return str;
}

bool IsUnder(const MTE_OID_S& stOid, const MTE_OID_S& stPrefix) {
    return stOid.uiLen > stPrefix.uiLen &&
           memcmp(stOid.auiOid, stPrefix.auiOid, stPrefix.uiLen * 4) == 0;
}

std::string InstanceOid(int iColumn, int iIndex) {
    return "OID: ." + std::string(TABLE) + "." + std::to_string(iColumn) + "." +
           std::to_string(iIndex);
}

std::string TriggerLines(const std::string& strName, const std::string& strTriggerColumns,
                         const std::string& strTestTable, const std::string& strTestColumns) {
    std::string strFrequency =
        strTriggerColumns.find("frequency=") == std::string::npos ? "frequency=1 " : "";
    return "set trigger owner=e2e name=" + strName + " " + strFrequency + strTriggerColumns +
           " status=createAndWait\nset " + strTestTable + " owner=e2e name=" + strName + " " +
           strTestColumns + "\nset trigger owner=e2e name=" + strName + " status=active\n";
}

void ExpectHot(const Trap& stTrap, const std::string& strTrigger, const std::string& strContext,
               const std::string& strOid, const std::string& strValue) {
    EXPECT_EQ(stTrap.Value(HOT_TRIGGER), Str(strTrigger));
    EXPECT_EQ(stTrap.Value(HOT_TARGET), Str(""));
    EXPECT_EQ(stTrap.Value(HOT_CONTEXT), Str(strContext));
    EXPECT_EQ(stTrap.Value(HOT_OID), strOid);
    EXPECT_EQ(stTrap.Value(HOT_VALUE), strValue);
}

// ---- the stack

Stack::Stack() {
    setenv("RUNTIME_DIRECTORY", m_stDaemon.RuntimeDir().c_str(), 1);
    setenv("STATE_DIRECTORY", m_stDaemon.StateDir().c_str(), 1);
}

Stack::~Stack() {
    if (m_stDaemon.Pid() > 0 && !m_stDaemon.HasExited()) {
        EXPECT_EQ(m_stDaemon.Stop(), 0) << "eventmibd did not stop with status 0";
    }
    StopBridge();
    StopProcess(&m_iTestAgentPid, 3000);
    // Without snmpd's directory the last two name no file.
    for (const std::string& strLog :
         {m_stDaemon.StderrPath(), BridgeLog(), m_stSnmpd.Dir() + "/testagent.log"}) {
        std::string strText = ReadFile(strLog);
        EXPECT_EQ(strText.find("Sanitizer"), std::string::npos) << strLog << strText;
        EXPECT_EQ(strText.find("runtime error:"), std::string::npos) << strLog << strText;
    }
    if (::testing::Test::HasFailure()) {
        std::cerr << "--- eventmibd:\n"
                  << m_stDaemon.Stderr() << "--- traps:\n"
                  << ReadFile(m_stSnmpd.TrapLogPath()) << "--- bridge:\n"
                  << ReadFile(BridgeLog());
    }
    unsetenv("RUNTIME_DIRECTORY");
    unsetenv("STATE_DIRECTORY");
}

std::string Stack::Start(unsigned uiPieces) {
    std::string strError;
    if (((uiPieces & SNMPD) && !m_stSnmpd.Start(&strError)) ||
        ((uiPieces & TRAPD) && !m_stSnmpd.StartTrapd(&strError))) {
        return (strError.find("not installed") != std::string::npos ? "skip: " : "") + strError;
    }
    if (((uiPieces & CLIENT_V3) && !m_stSnmpd.UseClientConfig(ClientSecurity::V3_AUTH_PRIV)) ||
        ((uiPieces & CLIENT_V2C) && !m_stSnmpd.UseClientConfig(ClientSecurity::V2C))) {
        return "cannot write the client configuration";
    }
    if ((uiPieces & TESTAGENT) && !StartTestAgent()) {
        return "mte-testagent did not connect:\n" + ReadFile(m_stSnmpd.Dir() + "/testagent.log");
    }
    if ((uiPieces & BRIDGE) && !StartBridge()) {
        return "eventmib-agentx did not start:\n" + ReadFile(BridgeLog());
    }
    if ((uiPieces & DAEMON) && !StartDaemon()) {
        return "eventmibd did not start:\n" + m_stDaemon.Stderr();
    }
    return "";
}

std::vector<std::string> Stack::ChildEnv(const std::string& strPersist) const {
    return {"RUNTIME_DIRECTORY=" + RuntimeDir(),
            "MIBS=", "SNMPCONFPATH=" + m_stSnmpd.Dir() + "/agentx-etc",
            "SNMP_PERSISTENT_DIR=" + m_stSnmpd.Dir() + "/" + strPersist};
}

bool Stack::StartTestAgent() {
    std::vector<std::string> astrArgs = {MTE_TESTAGENT_PATH, "-c",
                                         m_stSnmpd.Dir() + "/testagent.sock", "-x",
                                         m_stSnmpd.AgentxSocketPath()};
    for (const std::string& strContext : m_astrContexts) {
        astrArgs.insert(astrArgs.end(), {"-n", strContext});
    }
    m_iTestAgentPid =
        SpawnProcess(astrArgs, ChildEnv("testagent-persist"), m_stSnmpd.Dir() + "/testagent.log");
    return m_iTestAgentPid > 0 &&
           WaitUntil([&] { return Agent("ping") == "ok connected"; }, START_WAIT_MS);
}

bool Stack::StartBridge() {
    std::vector<std::string> astrArgs = {MTE_AGENTX_PATH};
    if (m_astrBridgeArgs.empty()) {
        astrArgs.insert(astrArgs.end(), {"-f", "-v", "-x", m_stSnmpd.AgentxSocketPath()});
    }
    astrArgs.insert(astrArgs.end(), m_astrBridgeArgs.begin(), m_astrBridgeArgs.end());
    m_iBridgePid = SpawnProcess(astrArgs, ChildEnv("agentx-persist"), BridgeLog());
    std::string strSocket = RuntimeDir() + "/eventmib-agentx.sock";
    return m_iBridgePid > 0 &&
           WaitUntil([&] { return access(strSocket.c_str(), F_OK) == 0; }, START_WAIT_MS);
}

void Stack::StopBridge(bool bKill) {
    if (bKill && m_iBridgePid > 0) {
        kill(m_iBridgePid, SIGKILL);
    }
    StopProcess(&m_iBridgePid, 3000);
}

std::string Stack::Agent(const std::string& strCommand) {
    std::string strReply;
    return TESTAGENT_Command(m_stSnmpd.Dir() + "/testagent.sock", strCommand, &strReply)
               ? strReply
               : "no reply";
}

void Stack::AgentOk(const std::string& strCommand) {
    std::string strReply = Agent(strCommand);
    EXPECT_EQ(strReply.rfind("ok", 0), 0u) << strCommand << ": " << strReply;
}

ToolRun Stack::Ctl(const std::string& strArgs) {
    return Shell(std::string(MTE_EVENTMIBCTL_PATH) + " -s " + m_stDaemon.SocketPath() + " -t 5 " +
                 strArgs);
}

ToolRun Stack::CtlScenario(const std::string& strLines) {
    std::string strPath = m_stDaemon.Root() + "/scenario.ctl";
    WriteFile(strPath, strLines);
    return Ctl("-f " + strPath);
}

void Stack::CtlOk(const std::string& strArgs) {
    ToolRun stRun = Ctl(strArgs);
    EXPECT_EQ(stRun.iExit, 0) << "eventmibctl " << strArgs << "\n" << stRun.strOut;
}

void Stack::CtlScenarioOk(const std::string& strLines) {
    ToolRun stRun = CtlScenario(strLines);
    EXPECT_EQ(stRun.iExit, 0) << strLines << stRun.strOut;
}

std::string Stack::Snapshot() {
    std::string strAll;
    for (const char* pszTable : {"trigger", "delta", "existence", "boolean", "threshold", "objects",
                                 "event", "notification", "set"}) {
        ToolRun stWalk = Ctl(std::string("walk ") + pszTable);
        EXPECT_EQ(stWalk.iExit, 0) << stWalk.strOut;
        strAll += stWalk.strOut;
    }
    return strAll;
}

long Stack::Scalar(const std::string& strName) {
    std::istringstream stLines(Ctl("get scalars").strOut);
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

ToolRun Stack::Snmp(const std::string& strToolAndOptions, const std::string& strArgs) {
    return Shell("env SNMPCONFPATH=" + m_stSnmpd.Dir() + "/etc SNMP_PERSISTENT_DIR=" +
                 m_stSnmpd.Dir() + "/client-persist MIBS= " + strToolAndOptions +
                 " -On -t 3 -r 0 127.0.0.1:" + std::to_string(m_stSnmpd.Port()) + " " + strArgs);
}

// snmptrapd -On logs a notification on one line, "NAME = TYPE: value"
// bindings separated by tabs.
std::vector<Trap> Stack::Traps(const std::string& strTrapOid, const std::string& strTrigger) {
    std::vector<Trap> astTraps;
    std::istringstream stIn(ReadFile(m_stSnmpd.TrapLogPath()));
    for (std::string strLine; std::getline(stIn, strLine);) {
        Trap stTrap;
        std::stringstream stFields(strLine);
        for (std::string strField; std::getline(stFields, strField, '\t');) {
            size_t uiEq = strField.find(" = ");
            if (strField.rfind(".", 0) == 0 && uiEq != std::string::npos) {
                std::string strValue = strField.substr(uiEq + 3);
                strValue.erase(strValue.find_last_not_of(' ') + 1);
                stTrap.astBindings.emplace_back(strField.substr(0, uiEq), strValue);
            }
        }
        if (stTrap.Value(".1.3.6.1.6.3.1.1.4.1.0") == "OID: " + strTrapOid &&
            (strTrigger.empty() || stTrap.Value(HOT_TRIGGER) == Str(strTrigger))) {
            astTraps.push_back(stTrap);
        }
    }
    return astTraps;
}

bool Stack::WaitTraps(const std::string& strTrapOid, const std::string& strTrigger, size_t uiCount,
                      int iTimeoutMs) {
    return WaitUntil([&] { return Traps(strTrapOid, strTrigger).size() >= uiCount; }, iTimeoutMs);
}

bool Stack::WaitTrapWith(const std::string& strTrapOid, const std::string& strTrigger,
                         const std::string& strName, const std::string& strValue, Trap* pstFound,
                         int iTimeoutMs) {
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

}  // namespace mte_test
