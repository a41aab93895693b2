// mte-testagent: an AgentX subagent for tests. It serves a small table whose
// rows and values the test changes at run time through a local control
// socket, in the default context and in named contexts (-n). With -C it is
// instead the control client: it sends one command and prints the reply.
//
// One thread: net-snmp's agent_check_and_process loop, with the control
// socket registered as one more read descriptor. No locks.
#include <errno.h>
#include <getopt.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>

#include "testagent_ctl.h"
#include "testagent_table.h"
#include "plat_unixsock.h"

namespace {

constexpr const char* TA_APP_NAME = "mte-testagent";

volatile sig_atomic_t g_iStop = 0;
std::string g_strControlPath;

void OnStopSignal(int iSignal) {
    g_iStop = 1;
}

int OnIndexStart(int iMajor, int iMinor, void* pServerArg, void* pClientArg) {
    TA_SetConnected(true);
    return 0;
}

int OnIndexStop(int iMajor, int iMinor, void* pServerArg, void* pClientArg) {
    TA_SetConnected(false);
    return 0;
}

// One command per datagram; the reply goes back to the sender's address.
void OnControl(int iFd, void* pData) {
    for (int i = 0; i < 64; i++) {
        char acBuf[1024];
        sockaddr_un stFrom{};
        socklen_t uiFromLen = sizeof(stFrom);
        ssize_t lRead = recvfrom(iFd, acBuf, sizeof(acBuf) - 1, MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&stFrom), &uiFromLen);
        if (lRead < 0) {
            return;
        }
        std::string strReply;
        TA_RunCommand(std::string(acBuf, static_cast<size_t>(lRead)), &strReply);
        if (uiFromLen > sizeof(sa_family_t)) {
            (void)sendto(iFd, strReply.data(), strReply.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                         reinterpret_cast<sockaddr*>(&stFrom), uiFromLen);
        }
    }
}

int BindControl(const std::string& strPath) {
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(strPath, &stAddr)) {
        fprintf(stderr, "%s: control socket path empty or too long\n", TA_APP_NAME);
        return -1;
    }
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    unlink(strPath.c_str());
    if (iFd < 0 || bind(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        fprintf(stderr, "%s: control socket %s: %s\n", TA_APP_NAME, strPath.c_str(),
                strerror(errno));
        if (iFd >= 0) {
            close(iFd);
        }
        return -1;
    }
    chmod(strPath.c_str(), 0600);
    return iFd;
}

void Usage(FILE* pstOut) {
    fprintf(pstOut,
            "usage: %s -c CONTROL_SOCKET [-x MASTER_SOCKET] [-n CONTEXT]...\n"
            "       %s -C CONTROL_SOCKET COMMAND...\n"
            "  Serves 1.3.6.1.4.1.99999.1.1.1.<col>.<index> (1 Integer32 read-write,\n"
            "  2 Gauge32, 3 OCTET STRING, 4 TimeTicks) in the default context and each\n"
            "  -n CONTEXT. Commands (CTX \"-\" is the default context):\n"
            "    ping | context CTX | add CTX INDEX [INT [GAUGE [STRING]]]\n"
            "    del CTX INDEX | set CTX INDEX int|gauge|string|ticks VALUE\n"
            "    get CTX INDEX int|gauge|string|ticks | clear CTX\n"
            "    reset CTX INDEX TICKS   (int to 0 and ticks to TICKS at once)\n",
            TA_APP_NAME, TA_APP_NAME);
}

int RunClient(const std::string& strSocket, int iArgc, char** ppszArgv) {
    std::string strCommand;
    for (int i = optind; i < iArgc; i++) {
        strCommand += (strCommand.empty() ? "" : " ") + std::string(ppszArgv[i]);
    }
    std::string strReply;
    if (!TESTAGENT_Command(strSocket, strCommand, &strReply)) {
        fprintf(stderr, "%s: %s\n", TA_APP_NAME, strReply.c_str());
        return 1;
    }
    printf("%s\n", strReply.c_str());
    return strReply.compare(0, 2, "ok") == 0 ? 0 : 1;
}

}  // namespace

int main(int iArgc, char** ppszArgv) {
    const char* pszMaster = nullptr;
    std::string strClientSocket;
    std::vector<std::string> astrContexts;
    int iOpt;
    while ((iOpt = getopt(iArgc, ppszArgv, "+c:C:x:n:h")) != -1) {
        switch (iOpt) {
            case 'c':
                g_strControlPath = optarg;
                break;
            case 'C':
                strClientSocket = optarg;
                break;
            case 'x':
                pszMaster = optarg;
                break;
            case 'n':
                astrContexts.push_back(optarg);
                break;
            case 'h':
                Usage(stdout);
                return 0;
            default:
                Usage(stderr);
                return 2;
        }
    }
    if (!strClientSocket.empty()) {
        return RunClient(strClientSocket, iArgc, ppszArgv);
    }
    if (g_strControlPath.empty() || optind != iArgc) {
        Usage(stderr);
        return 2;
    }
    struct sigaction stAction {};
    stAction.sa_handler = OnStopSignal;  // no SA_RESTART: select returns at once
    sigaction(SIGTERM, &stAction, nullptr);
    sigaction(SIGINT, &stAction, nullptr);
    signal(SIGPIPE, SIG_IGN);

    int iControl = BindControl(g_strControlPath);
    if (iControl < 0) {
        return 1;
    }
    snmp_enable_stderrlog();
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    if (pszMaster != nullptr) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, pszMaster);
    }
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, OnIndexStart,
                           nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, OnIndexStop,
                           nullptr);
    init_agent(TA_APP_NAME);
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
    std::string strError;
    bool bOk = TA_RegisterContext("", &strError);
    for (const auto& strContext : astrContexts) {
        bOk = bOk && TA_RegisterContext(strContext, &strError);
    }
    if (!bOk) {
        fprintf(stderr, "%s: %s\n", TA_APP_NAME, strError.c_str());
        return 1;
    }
    init_snmp(TA_APP_NAME);
    register_readfd(iControl, OnControl, nullptr);
    while (g_iStop == 0) {
        agent_check_and_process(1);
    }
    unregister_readfd(iControl);
    snmp_shutdown(TA_APP_NAME);
    close(iControl);
    unlink(g_strControlPath.c_str());
    return 0;
}
