// Private snmpd for tests: configuration, start, readiness probe, stop.
// Every wait is bounded; the temporary directory is removed by the destructor.
#include "snmpd_harness.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

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

int64_t NowMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

bool WriteFile(const std::string& strPath, const std::string& strText) {
    std::ofstream stOut(strPath, std::ios::trunc);
    stOut << strText;
    return static_cast<bool>(stOut);
}

// An SNMPv2c GET of sysUpTime.0 with community "public", hand-encoded so that
// the probe does not depend on the client under test.
constexpr unsigned char PROBE[] = {0x30, 0x26, 0x02, 0x01, 0x01, 0x04, 0x06, 'p',  'u',  'b',
                                   'l',  'i',  'c',  0xa0, 0x19, 0x02, 0x01, 0x01, 0x02, 0x01,
                                   0x00, 0x02, 0x01, 0x00, 0x30, 0x0e, 0x30, 0x0c, 0x06, 0x08,
                                   0x2b, 0x06, 0x01, 0x02, 0x01, 0x01, 0x03, 0x00, 0x05, 0x00};

bool ProbeOnce(uint16_t usPort, int iWaitMs) {
    int iFd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return false;
    }
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(usPort);
    stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool bOk = false;
    if (sendto(iFd, PROBE, sizeof(PROBE), 0, reinterpret_cast<sockaddr*>(&stAddr),
               sizeof(stAddr)) == static_cast<ssize_t>(sizeof(PROBE))) {
        pollfd stPoll{iFd, POLLIN, 0};
        if (poll(&stPoll, 1, iWaitMs) == 1 && (stPoll.revents & POLLIN)) {
            unsigned char aucBuf[1500];
            bOk = recv(iFd, aucBuf, sizeof(aucBuf), 0) > 0;
        }
    }
    close(iFd);
    return bOk;
}

}  // namespace

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

pid_t SpawnProcess(const std::vector<std::string>& astrArgs,
                   const std::vector<std::string>& astrEnv, const std::string& strLogPath) {
    std::vector<char*> apszArgs;
    for (const auto& str : astrArgs) {
        apszArgs.push_back(const_cast<char*>(str.c_str()));
    }
    apszArgs.push_back(nullptr);
    // The given variables replace inherited ones of the same name (a test
    // may have pointed this process's SNMPCONFPATH at the client files).
    std::vector<std::string> astrFullEnv = astrEnv;
    for (char** ppsz = environ; *ppsz != nullptr; ppsz++) {
        std::string strEntry = *ppsz;
        std::string strName = strEntry.substr(0, strEntry.find('=') + 1);
        bool bReplaced = false;
        for (const auto& strOwn : astrEnv) {
            bReplaced = bReplaced || strOwn.compare(0, strName.size(), strName) == 0;
        }
        if (!bReplaced) {
            astrFullEnv.push_back(strEntry);
        }
    }
    std::vector<char*> apszEnv;
    for (const auto& str : astrFullEnv) {
        apszEnv.push_back(const_cast<char*>(str.c_str()));
    }
    apszEnv.push_back(nullptr);

    posix_spawn_file_actions_t stActions;
    posix_spawn_file_actions_init(&stActions);
    posix_spawn_file_actions_addopen(&stActions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&stActions, 1, strLogPath.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&stActions, 1, 2);
    pid_t iPid = -1;
    int iRc = posix_spawn(&iPid, apszArgs[0], &stActions, nullptr, apszArgs.data(), apszEnv.data());
    posix_spawn_file_actions_destroy(&stActions);
    return iRc == 0 ? iPid : -1;
}

void StopProcess(pid_t* piPid, int iGraceMs) {
    if (*piPid <= 0) {
        return;
    }
    kill(*piPid, SIGTERM);
    int64_t llDeadline = NowMs() + iGraceMs;
    int iStatus = 0;
    while (waitpid(*piPid, &iStatus, WNOHANG) == 0) {
        if (NowMs() >= llDeadline) {
            kill(*piPid, SIGKILL);
            waitpid(*piPid, &iStatus, 0);
            break;
        }
        usleep(20000);
    }
    *piPid = -1;
}

SnmpdHarness::~SnmpdHarness() {
    StopTrapd();
    Stop();
    if (!m_strDir.empty()) {
        std::error_code stEc;
        std::filesystem::remove_all(m_strDir, stEc);
    }
}

bool SnmpdHarness::Prepare(std::string* pstrError) {
    if (!m_strDir.empty()) {
        return true;
    }
    if (access(SNMPD_PATH, X_OK) != 0) {
        *pstrError = "snmpd is not installed";
        return false;
    }
    const char* pszTmp = getenv("TMPDIR");
    std::string strTemplate =
        std::string(pszTmp != nullptr ? pszTmp : "/tmp") + "/mte-snmpd.XXXXXX";
    std::vector<char> acTemplate(strTemplate.begin(), strTemplate.end());
    acTemplate.push_back('\0');
    if (mkdtemp(acTemplate.data()) == nullptr) {
        *pstrError = "mkdtemp failed";
        return false;
    }
    m_strDir = acTemplate.data();
    for (const char* pszSub : {"/etc", "/persist", "/run", "/client", "/client-persist"}) {
        mkdir((m_strDir + pszSub).c_str(), 0700);
    }
    m_usPort = FreeUdpPort();
    m_usTrapPort = FreeUdpPort();
    if (m_usPort == 0 || m_usTrapPort == 0) {
        *pstrError = "no free UDP port";
        return false;
    }
    std::string strPort = std::to_string(m_usPort);
    std::string strSelf = "127.0.0.1:" + strPort;
    std::string strConf =
        "agentAddress udp:" + strSelf + "\n" +
        "master agentx\n"
        "agentXSocket " +
        AgentxSocketPath() + "\n" +
        "agentXPerms 0660 0770\n"
        "rocommunity public 127.0.0.1\n"
        "rwcommunity private 127.0.0.1\n"
        "createUser testuser SHA \"testauthpass\" AES \"testprivpass\"\n"
        "group testgroup usm testuser\n"
        "view all included .1\n"
        // Prefix match on the empty context name: every context.
        "access testgroup \"\" usm priv prefix all all none\n"
        "proxy -Cn ctxA -v2c -c public " +
        strSelf + " 1.3.6.1.2.1.1\n" + "proxy -Cn ctxAB -v2c -c public " + strSelf +
        " 1.3.6.1.2.1.1\n" + "proxy -Cn ctxB -v2c -c public " + strSelf + " 1.3.6.1.2.1.2\n" +
        // A writable Integer32 with no side effects, for set tests.
        "override -rw " MTE_TEST_WRITABLE_INTEGER
        " integer 5\n"
        "trap2sink 127.0.0.1:" +
        std::to_string(m_usTrapPort) + " public\n" + "dontLogTCPWrappersConnects yes\n";
    for (const auto& strLine : m_astrExtra) {
        strConf += strLine + "\n";
    }
    if (!WriteFile(m_strDir + "/etc/snmpd.conf", strConf) ||
        !WriteFile(m_strDir + "/etc/snmp.conf", "mibs :\n") ||
        !WriteFile(m_strDir + "/etc/snmptrapd.conf", "disableAuthorization yes\n")) {
        *pstrError = "cannot write the configuration";
        return false;
    }
    return true;
}

bool SnmpdHarness::WaitAnswering(int iWaitMs) {
    int64_t llDeadline = NowMs() + iWaitMs;
    while (NowMs() < llDeadline) {
        if (ProbeOnce(m_usPort, 200)) {
            return true;
        }
        int iStatus = 0;
        if (waitpid(m_iPid, &iStatus, WNOHANG) == m_iPid) {
            m_iPid = -1;  // it exited: the log says why
            return false;
        }
    }
    return false;
}

bool SnmpdHarness::Start(std::string* pstrError, int iWaitMs) {
    if (!Prepare(pstrError)) {
        return false;
    }
    if (m_iPid > 0) {
        return true;
    }
    std::vector<std::string> astrEnv = {
        "SNMPCONFPATH=" + m_strDir + "/etc:" + m_strDir + "/persist",
        "SNMP_PERSISTENT_DIR=" + m_strDir + "/persist", "MIBS="};
    m_iPid = SpawnProcess({SNMPD_PATH, "-f", "-I", NO_AGENT_EVENT_MIB, "-Lf", LogPath(), "-p",
                           m_strDir + "/snmpd.pid"},
                          astrEnv, m_strDir + "/snmpd.out");
    if (m_iPid <= 0) {
        *pstrError = "cannot start snmpd";
        return false;
    }
    if (!WaitAnswering(iWaitMs)) {
        Stop(500);
        *pstrError = "snmpd did not answer on port " + std::to_string(m_usPort) + ":\n";
        std::ifstream stLog(LogPath());
        std::string strLine;
        while (std::getline(stLog, strLine)) {
            *pstrError += strLine + "\n";
        }
        return false;
    }
    return true;
}

void SnmpdHarness::Stop(int iGraceMs) {
    StopProcess(&m_iPid, iGraceMs);
}

bool SnmpdHarness::StartTrapd(std::string* pstrError, int iWaitMs) {
    if (!Prepare(pstrError)) {
        return false;
    }
    if (access(SNMPTRAPD_PATH, X_OK) != 0) {
        *pstrError = "snmptrapd is not installed";
        return false;
    }
    std::vector<std::string> astrEnv = {
        "SNMPCONFPATH=" + m_strDir + "/etc:" + m_strDir + "/persist",
        "SNMP_PERSISTENT_DIR=" + m_strDir + "/persist", "MIBS="};
    m_iTrapdPid = SpawnProcess({SNMPTRAPD_PATH, "-f", "-C", "-c", m_strDir + "/etc/snmptrapd.conf",
                                "-On", "-Lf", TrapLogPath(), "-p", m_strDir + "/snmptrapd.pid",
                                "udp:127.0.0.1:" + std::to_string(m_usTrapPort)},
                               astrEnv, m_strDir + "/snmptrapd.out");
    if (m_iTrapdPid <= 0) {
        *pstrError = "cannot start snmptrapd";
        return false;
    }
    // snmptrapd writes its start line to the log once it listens.
    int64_t llDeadline = NowMs() + iWaitMs;
    while (NowMs() < llDeadline) {
        std::ifstream stLog(TrapLogPath());
        std::string strLine;
        if (std::getline(stLog, strLine)) {
            return true;
        }
        usleep(20000);
    }
    StopTrapd(500);
    *pstrError = "snmptrapd did not start";
    return false;
}

void SnmpdHarness::StopTrapd(int iGraceMs) {
    StopProcess(&m_iTrapdPid, iGraceMs);
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

}  // namespace mte_test
