// eventmib-agentx: the companion of net-snmp's snmpd for eventmibd. An AgentX
// subagent that (1) tells eventmibd whether the agent's port service is up,
// that is whether its AgentX session with the master is open, and (2) hands
// each notification datagram that eventmibd sends it to the master with
// send_v2trap, so that the agent delivers it to its notification targets.
//
// One thread runs everything: a select loop over net-snmp's descriptors, the
// bridge's datagram socket and a signalfd. Nothing in the loop blocks: the
// socket is read without waiting and the port status is sent without waiting.
// No locks.
#include <errno.h>
#include <getopt.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>

#include "agx_notify.h"
#include "agx_socket.h"
#include "mib_bridge.h"
#include "plat_paths.h"
#include "plat_unixsock.h"

namespace {

constexpr const char* AGX_APP_NAME = "eventmib-agentx";
constexpr int AGX_DEFAULT_PING_SECONDS = 1;
constexpr int AGX_LOOP_WAKE_MS = 1000;           // upper bound of one select
constexpr int AGX_SOCKET_CHECK_MS = 2000;        // how often the socket file is checked
constexpr int AGX_MAX_DATAGRAMS_PER_ROUND = 64;  // then net-snmp gets its turn
constexpr int AGX_LOG_WINDOW_MS = 10000;         // drop messages: at most ...
constexpr int AGX_LOG_WINDOW_LINES = 10;         // ... this many lines per window

struct Options {
    const char* pszMasterSocket;  // null: net-snmp's default or the configuration
    int iPingSeconds;
    bool bVerbose;
};

struct Bridge {
    int iSocket;
    AGX_SOCKET_FILE_S stSocketFile;
    std::string strSocketPath;
    std::string strPortPath;
    bool bConnected;            // the AgentX session with the master is open
    bool bStarted;              // start-up is over: session changes are announced
    bool bRebindReported;       // a failed rebind was logged once
    int64_t llNextSocketCheck;  // monotonic ms
    int64_t llLogWindowStart;
    int iLogWindowLines;
    uint64_t ullSuppressed;
    uint64_t ullRelayed;
    uint64_t ullDropped;
};

Options g_stOptions = {nullptr, AGX_DEFAULT_PING_SECONDS, false};
Bridge g_stBridge = {-1, {}, {}, {}, false, false, false, 0, 0, 0, 0, 0, 0};

int64_t NowMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

void agx_Log(int iPriority, const char* pszFormat, ...) {
    va_list stArgs;
    va_start(stArgs, pszFormat);
    snmp_vlog(iPriority, pszFormat, stArgs);
    va_end(stArgs);
}

// Drops are logged, but a flood of bad datagrams must not flood the log:
// at most AGX_LOG_WINDOW_LINES lines per window, then one count.
void agx_LogDrop(const char* pszFormat, ...) {
    g_stBridge.ullDropped++;
    int64_t llNow = NowMs();
    if (llNow - g_stBridge.llLogWindowStart >= AGX_LOG_WINDOW_MS) {
        if (g_stBridge.ullSuppressed > 0) {
            agx_Log(LOG_WARNING, "%llu more datagrams dropped without a log line\n",
                    static_cast<unsigned long long>(g_stBridge.ullSuppressed));
        }
        g_stBridge.llLogWindowStart = llNow;
        g_stBridge.iLogWindowLines = 0;
        g_stBridge.ullSuppressed = 0;
    }
    if (g_stBridge.iLogWindowLines >= AGX_LOG_WINDOW_LINES) {
        g_stBridge.ullSuppressed++;
        return;
    }
    g_stBridge.iLogWindowLines++;
    va_list stArgs;
    va_start(stArgs, pszFormat);
    snmp_vlog(LOG_WARNING, pszFormat, stArgs);
    va_end(stArgs);
}

void agx_AnnounceStatus(const char* pszWhy) {
    if (g_stBridge.iSocket < 0) {
        return;
    }
    bool bSent =
        AGX_SendPortStatus(g_stBridge.iSocket, g_stBridge.strPortPath, g_stBridge.bConnected);
    if (g_stOptions.bVerbose) {
        agx_Log(LOG_INFO, "port status %s (%s)%s\n", g_stBridge.bConnected ? "up" : "down", pszWhy,
                bSent ? "" : ": eventmibd not listening");
    }
}

void agx_SetConnected(bool bConnected) {
    // The stop callback can fire twice for one lost session: only changes count.
    if (g_stBridge.bConnected == bConnected) {
        return;
    }
    g_stBridge.bConnected = bConnected;
    agx_Log(LOG_INFO, "AgentX session with the master %s\n", bConnected ? "open" : "closed");
    // During start-up the session usually opens at once; the status is
    // announced once when start-up is over.
    if (g_stBridge.bStarted) {
        agx_AnnounceStatus("session change");
    }
}

int agx_OnIndexStart(int iMajor, int iMinor, void* pServerArg, void* pClientArg) {
    agx_SetConnected(true);
    return 0;
}

int agx_OnIndexStop(int iMajor, int iMinor, void* pServerArg, void* pClientArg) {
    agx_SetConnected(false);
    return 0;
}

// Runs after the configuration files are read and before the subagent opens
// its session, so that -x wins over an agentXSocket line.
int agx_ApplyCommandLine(int iMajor, int iMinor, void* pServerArg, void* pClientArg) {
    if (g_stOptions.pszMasterSocket != nullptr) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET,
                              g_stOptions.pszMasterSocket);
    }
    return 0;
}

bool IsText(const unsigned char* pucData, size_t uiLen, const char* pszText) {
    while (uiLen > 0 && (pucData[uiLen - 1] == '\n' || pucData[uiLen - 1] == '\r')) {
        uiLen--;
    }
    return uiLen == strlen(pszText) && memcmp(pucData, pszText, uiLen) == 0;
}

void agx_RelayNotification(const unsigned char* pucData, size_t uiLen) {
    AGX_NOTIFY_S stNotify;
    uint32_t uiRet = AGX_DecodeNotify(pucData, uiLen, &stNotify);
    if (uiRet != AGX_DECODE_OK) {
        agx_LogDrop("dropped a datagram of %zu bytes: %s\n", uiLen, AGX_DecodeReason(uiRet));
        return;
    }
    if (!g_stBridge.bConnected) {
        agx_LogDrop("dropped a notification: no AgentX session with the master\n");
        snmp_free_varbind(stNotify.pstVars);
        return;
    }
    if (stNotify.szContext[0] == '\0') {
        send_v2trap(stNotify.pstVars);
    } else {
        send_trap_vars_with_context(-1, -1, stNotify.pstVars, stNotify.szContext);
    }
    g_stBridge.ullRelayed++;
    if (g_stOptions.bVerbose) {
        agx_Log(LOG_INFO, "relayed a notification with %u variables%s%s\n",
                static_cast<unsigned>(stNotify.usVarCount),
                stNotify.szContext[0] != '\0' ? " in context " : "", stNotify.szContext);
    }
    snmp_free_varbind(stNotify.pstVars);
}

// Reads what is waiting on the bridge's socket, a bounded number at a time.
void agx_ReadSocket(void) {
    static unsigned char s_aucBuf[AGX_NOTIFY_MAX_BYTES + 1];
    for (int i = 0; i < AGX_MAX_DATAGRAMS_PER_ROUND; i++) {
        size_t uiLen = 0;
        uid_t iUid = 0;
        PlatRecv eRecv =
            PLAT_RecvWithCredentials(g_stBridge.iSocket, s_aucBuf, sizeof(s_aucBuf), &uiLen, &iUid);
        if (eRecv == PlatRecv::NONE) {
            return;
        }
        if (eRecv == PlatRecv::ERROR) {
            agx_Log(LOG_ERR, "receive on %s: %s\n", g_stBridge.strSocketPath.c_str(),
                    strerror(errno));
            return;
        }
        if (eRecv == PlatRecv::NO_CREDENTIALS) {
            agx_LogDrop("dropped a datagram without credentials\n");
            continue;
        }
        if (!PLAT_TrustedSender(iUid)) {
            agx_LogDrop("dropped a datagram from uid %u: only root and uid %u are believed\n",
                        static_cast<unsigned>(iUid), static_cast<unsigned>(geteuid()));
            continue;
        }
        if (eRecv == PlatRecv::TRUNCATED) {
            agx_LogDrop("dropped a datagram longer than %zu bytes\n", AGX_NOTIFY_MAX_BYTES);
            continue;
        }
        if (IsText(s_aucBuf, uiLen, "status")) {
            agx_AnnounceStatus("asked by eventmibd");
            continue;
        }
        agx_RelayNotification(s_aucBuf, uiLen);
    }
}

bool agx_BindSocket(void) {
    std::string strError;
    AGX_SOCKET_FILE_S stFile{};
    int iFd = AGX_BindSocket(g_stBridge.strSocketPath, &stFile, &strError);
    if (iFd < 0) {
        if (!g_stBridge.bRebindReported) {
            agx_Log(LOG_ERR, "%s\n", strError.c_str());
        }
        g_stBridge.bRebindReported = true;
        return false;
    }
    if (g_stBridge.iSocket >= 0) {
        close(g_stBridge.iSocket);
    }
    g_stBridge.iSocket = iFd;
    g_stBridge.stSocketFile = stFile;
    g_stBridge.bRebindReported = false;
    return true;
}

// The runtime directory is shared with eventmibd; when it is emptied (for
// example by the service manager) the socket file disappears and eventmibd's
// notifications would go nowhere. Bind again and tell eventmibd the status,
// since its own query may have been lost meanwhile.
void agx_CheckSocketFile(void) {
    int64_t llNow = NowMs();
    if (llNow < g_stBridge.llNextSocketCheck) {
        return;
    }
    g_stBridge.llNextSocketCheck = llNow + AGX_SOCKET_CHECK_MS;
    if (AGX_SocketFileIntact(g_stBridge.strSocketPath, &g_stBridge.stSocketFile)) {
        return;
    }
    if (agx_BindSocket()) {
        agx_Log(LOG_WARNING, "socket %s was removed; bound again\n",
                g_stBridge.strSocketPath.c_str());
        agx_AnnounceStatus("socket bound again");
    }
}

int agx_OpenSignalFd(void) {
    sigset_t stSet;
    sigemptyset(&stSet);
    sigaddset(&stSet, SIGTERM);
    sigaddset(&stSet, SIGINT);
    sigaddset(&stSet, SIGHUP);
    if (sigprocmask(SIG_BLOCK, &stSet, nullptr) != 0) {
        return -1;
    }
    return signalfd(-1, &stSet, SFD_NONBLOCK | SFD_CLOEXEC);
}

// True when a stop signal was read; SIGHUP is read and ignored.
bool agx_StopRequested(int iSignalFd) {
    signalfd_siginfo stInfo;
    bool bStop = false;
    while (read(iSignalFd, &stInfo, sizeof(stInfo)) == static_cast<ssize_t>(sizeof(stInfo))) {
        bStop = bStop || stInfo.ssi_signo != SIGHUP;
    }
    return bStop;
}

void agx_InitNetsnmp(void) {
    snmp_enable_stderrlog();
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    // Alarms (the AgentX ping and reconnect) through select's time-out, not SIGALRM.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
    // A subagent has nothing to keep between runs.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    // net-snmp still creates a directory or two there: keep them out of the
    // agent's own directory unless the environment names one.
    if (getenv("SNMP_PERSISTENT_DIR") == nullptr) {
        std::string strPersist = PLAT_RuntimeDir() + "/agentx-persist";
        netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR,
                              strPersist.c_str());
    }
    agx_ApplyCommandLine(0, 0, nullptr, nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, agx_OnIndexStart,
                           nullptr);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, agx_OnIndexStop,
                           nullptr);
    netsnmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG,
                              agx_ApplyCommandLine, nullptr, NETSNMP_CALLBACK_HIGHEST_PRIORITY);
    init_agent(AGX_APP_NAME);
    // The Event MIB's tables and scalars, answered from the daemon.
    (void)EMA_MIB_Register();
    // init_agent sets its own default ping interval (15 s): a dead master
    // would be noticed that late, so ours is set after it.
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                       g_stOptions.iPingSeconds);
    init_snmp(AGX_APP_NAME);
}

// One round: wait for net-snmp's descriptors, the bridge socket or a signal,
// at most until net-snmp's next alarm or a second; then serve what is ready.
bool agx_RunOnce(int iSignalFd) {
    int iMaxFd = 0;
    fd_set stReadFds;
    FD_ZERO(&stReadFds);
    timeval stTimeout = {AGX_LOOP_WAKE_MS / 1000, (AGX_LOOP_WAKE_MS % 1000) * 1000};
    int iBlock = 0;
    snmp_select_info(&iMaxFd, &stReadFds, &stTimeout, &iBlock);
    FD_SET(iSignalFd, &stReadFds);
    iMaxFd = iMaxFd > iSignalFd + 1 ? iMaxFd : iSignalFd + 1;
    // Without a session a notification could only be dropped: left unread,
    // it waits in eventmibd's queue, which holds it until the session is
    // back. (A status query waits as well; the answer would be "down", which
    // eventmibd assumes until told otherwise.)
    if (g_stBridge.iSocket >= 0 && g_stBridge.bConnected) {
        FD_SET(g_stBridge.iSocket, &stReadFds);
        iMaxFd = iMaxFd > g_stBridge.iSocket + 1 ? iMaxFd : g_stBridge.iSocket + 1;
    }
    int iReady = select(iMaxFd, &stReadFds, nullptr, nullptr, &stTimeout);
    if (iReady < 0 && errno != EINTR) {
        agx_Log(LOG_ERR, "select: %s\n", strerror(errno));
        return false;
    }
    if (iReady > 0) {
        if (FD_ISSET(iSignalFd, &stReadFds) && agx_StopRequested(iSignalFd)) {
            return false;
        }
        if (g_stBridge.iSocket >= 0 && FD_ISSET(g_stBridge.iSocket, &stReadFds)) {
            FD_CLR(g_stBridge.iSocket, &stReadFds);
            agx_ReadSocket();
        }
        FD_CLR(iSignalFd, &stReadFds);
        snmp_read(&stReadFds);
    } else if (iReady == 0) {
        snmp_timeout();
    }
    run_alarms();
    netsnmp_check_outstanding_agent_requests();
    agx_CheckSocketFile();
    return true;
}

void Usage(FILE* pstOut) {
    fprintf(pstOut,
            "usage: %s [-f] [-v] [-x MASTER_SOCKET] [-i PING_SECONDS]\n"
            "  AgentX subagent that relays eventmibd's notifications to snmpd and\n"
            "  tells eventmibd when snmpd's AgentX service comes and goes.\n"
            "  -x PATH  the master's AgentX socket (default: agentXSocket of\n"
            "           %s.conf, else net-snmp's default)\n"
            "  -i SECS  AgentX ping interval, 1..300 (default %d)\n"
            "  -f       run in the foreground (the only mode; accepted for\n"
            "           compatibility)\n"
            "  -v       log every status change and relayed notification\n"
            "  Logs go to standard error. Sockets live in $RUNTIME_DIRECTORY\n"
            "  (default /run/eventmibd).\n",
            AGX_APP_NAME, AGX_APP_NAME, AGX_DEFAULT_PING_SECONDS);
}

bool ParseOptions(int iArgc, char** ppszArgv) {
    int iOpt;
    while ((iOpt = getopt(iArgc, ppszArgv, "fvx:i:h")) != -1) {
        switch (iOpt) {
            case 'f':
                break;
            case 'v':
                g_stOptions.bVerbose = true;
                break;
            case 'x':
                g_stOptions.pszMasterSocket = optarg;
                break;
            case 'i': {
                char* pszEnd = nullptr;
                long lValue = strtol(optarg, &pszEnd, 10);
                if (pszEnd == optarg || *pszEnd != '\0' || lValue < 1 || lValue > 300) {
                    fprintf(stderr, "%s: -i wants 1 to 300 seconds, not \"%s\"\n", AGX_APP_NAME,
                            optarg);
                    return false;
                }
                g_stOptions.iPingSeconds = static_cast<int>(lValue);
                break;
            }
            case 'h':
                Usage(stdout);
                exit(0);
            default:
                Usage(stderr);
                return false;
        }
    }
    if (optind != iArgc) {
        Usage(stderr);
        return false;
    }
    return true;
}

void agx_Shutdown(int iSignalFd) {
    // From here on eventmibd's sends are refused (it holds them for the next
    // bridge); what the kernel has already queued for us is relayed first.
    if (g_stBridge.iSocket >= 0) {
        (void)shutdown(g_stBridge.iSocket, SHUT_RD);
        if (g_stBridge.bConnected) {
            agx_ReadSocket();
        }
    }
    // Without the bridge eventmibd can no longer hear about the agent: the
    // port service is down as far as it is concerned.
    g_stBridge.bConnected = false;
    agx_AnnounceStatus("stopping");
    snmp_shutdown(AGX_APP_NAME);
    if (g_stBridge.iSocket >= 0) {
        if (AGX_SocketFileIntact(g_stBridge.strSocketPath, &g_stBridge.stSocketFile)) {
            unlink(g_stBridge.strSocketPath.c_str());
        }
        close(g_stBridge.iSocket);
        g_stBridge.iSocket = -1;
    }
    close(iSignalFd);
}

}  // namespace

int main(int iArgc, char** ppszArgv) {
    if (!ParseOptions(iArgc, ppszArgv)) {
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    int iSignalFd = agx_OpenSignalFd();
    if (iSignalFd < 0) {
        fprintf(stderr, "%s: signalfd: %s\n", AGX_APP_NAME, strerror(errno));
        return 1;
    }
    g_stBridge.strSocketPath = PLAT_AgentxSocketPath();
    g_stBridge.strPortPath = PLAT_PortSocketPath();
    std::string strError;
    g_stBridge.iSocket =
        AGX_BindSocket(g_stBridge.strSocketPath, &g_stBridge.stSocketFile, &strError);
    if (g_stBridge.iSocket < 0) {
        fprintf(stderr, "%s: %s\n", AGX_APP_NAME, strError.c_str());
        return 1;
    }
    g_stBridge.llNextSocketCheck = NowMs() + AGX_SOCKET_CHECK_MS;

    agx_InitNetsnmp();
    agx_Log(LOG_INFO, "%s started: socket %s, port status %s\n", AGX_APP_NAME,
            g_stBridge.strSocketPath.c_str(), g_stBridge.bConnected ? "up" : "down");
    // eventmibd may have asked before this bridge was there: tell it now.
    g_stBridge.bStarted = true;
    agx_AnnounceStatus("start");
    while (agx_RunOnce(iSignalFd)) {
    }
    agx_Log(LOG_INFO, "%s stopping: %llu notifications relayed, %llu datagrams dropped\n",
            AGX_APP_NAME, static_cast<unsigned long long>(g_stBridge.ullRelayed),
            static_cast<unsigned long long>(g_stBridge.ullDropped));
    agx_Shutdown(iSignalFd);
    return 0;
}
