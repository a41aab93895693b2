// Local IPC channel with the SNMP agent side: the management socket (one
// request in, one reply out per packet), the trap-switch registration for the
// module "event-mib", and the port-service subscription that starts and
// suspends sampling.
//
// Every handler runs on the main thread, one at a time, so the descriptors
// and the open-connection count are plain globals. The only state read by
// another thread is the trap flag (the notification senders on the worker),
// kept in mte_tarn_flag.cpp under the trap-switch mutex, a leaf lock.
//
// The management socket is an AF_UNIX SOCK_SEQPACKET socket: it keeps message
// boundaries like the platform's own IPC family. Its file has mode 0660 and
// only peers running as root or as the daemon's own user are served; anyone
// else is closed at accept without being counted (docs/channel.md).
#include "mte_tarn.h"

#include <errno.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "mte_cfg.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_msg.h"
#include "mte_tarn_priv.h"
#include "mte_timer.h"
#include "plat_paths.h"
#include "plat_port.h"
#include "plat_trapswitch.h"
#include "plat_unixsock.h"

namespace {

constexpr int MTE_TARN_BACKLOG = 1024;
constexpr mode_t MTE_TARN_SOCKET_MODE = 0660;

// Channel failures of the Linux transport, which the platform's own IPC
// family did not have: a socket that cannot be set up, and refused peers.
// While accept finds no free descriptor the pending connection stays queued
// and the listening socket stays readable: it is taken off the epoll set for
// this long at a time instead of being polled in a busy loop.
constexpr long MTE_TARN_ACCEPT_PAUSE_MS = 100;
constexpr uint32_t MTE_TARN_NO_FAILED_COLUMN = 0xFFFFFFFF;

int g_iTarnListenFd = -1;
int g_iTarnPauseFd = -1;  // timer that puts the listening socket back
int g_iTarnTrapSwtHandle = -1;
int g_iTarnPortFd = -1;
uint32_t g_uiTarnSocketNum = 0;   // accepted connections still registered
std::string g_strTarnSocketPath;  // the path bound, unlinked when the socket closes

// Peers can cause these once per request or connection.
MTE_TRACE_LIMIT_S g_stTarnSendTraceLimit = MTE_TRACE_LIMIT_INIT(MTE_TRACE_SEND_FAILED);
MTE_TRACE_LIMIT_S g_stTarnRefusalTraceLimit = MTE_TRACE_LIMIT_INIT(MTE_TRACE_PEER_REFUSED);
MTE_TRACE_LIMIT_S g_stTarnPauseTraceLimit = MTE_TRACE_LIMIT_INIT(MTE_TRACE_ACCEPT_PAUSED);

// ---- management socket ----------------------------------------------------

// Root and the daemon's own user may configure it; nobody else.
bool mte_tarn_PeerAllowed(int iConn, uid_t* puiUid) {
    struct ucred stCred;
    socklen_t uiLen = sizeof(stCred);
    if (getsockopt(iConn, SOL_SOCKET, SO_PEERCRED, &stCred, &uiLen) != 0 ||
        uiLen != sizeof(stCred)) {
        *puiUid = static_cast<uid_t>(-1);
        return false;
    }
    *puiUid = stCred.uid;
    return stCred.uid == 0 || stCred.uid == geteuid();
}

void mte_tarn_TraceRefusedPeer(uid_t uiUid) {
    mte_DBG_PrintTraceLimited(&g_stTarnRefusalTraceLimit,
                              "Refused management connection of uid %ld: only root and the "
                              "daemon's user are served.",
                              static_cast<long>(uiUid));
}

void mte_tarn_CloseConnection(int iConn) {
    (void)mte_EPOLL_Del(iConn);
    close(iConn);
    if (g_uiTarnSocketNum > 0) {
        g_uiTarnSocketNum--;
    }
}

// A zero-length receive is either an empty packet (answered by nothing, the
// connection stays) or the peer having shut down its sending side, which a
// SOCK_SEQPACKET socket reports without EPOLLHUP; left open, the latter would
// keep the descriptor readable forever.
bool mte_tarn_PeerStoppedSending(int iConn) {
    pollfd stPoll = {iConn, POLLRDHUP, 0};
    return poll(&stPoll, 1, 0) == 1 && (stPoll.revents & (POLLRDHUP | POLLHUP)) != 0;
}

uint64_t mte_tarn_NowNs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<uint64_t>(stNow.tv_sec) * 1000000000ULL +
           static_cast<uint64_t>(stNow.tv_nsec);
}

// A request that states how long it is good for and is read later is refused
// and never carried out: its sender has given up on it and answered its own
// caller with an error (the AgentX bridge after its per-request budget), so
// applying it now would contradict that answer. Every other request goes to
// the dispatcher exactly as received.
uint32_t mte_tarn_ProcRequest(uint8_t* pucRequest, uint32_t uiLen, uint8_t* pucReply) {
    uint64_t ullDeadlineNs = 0;
    if (MTE_MSG_TakeExpiry(pucRequest, &uiLen, &ullDeadlineNs) &&
        mte_tarn_NowNs() >= ullDeadlineNs) {
        (void)MTE_MSG_CheckMsg(pucRequest, uiLen, nullptr, pucReply);  // the matching words
        MTE_MSG_SetResponseMsgHead(MTE_ERR_MSG_EXPIRED, MTE_TARN_NO_FAILED_COLUMN, 0, pucReply);
        return MTE_MSG_HEAD_SIZE;
    }
    return mte_CFG_Proc(pucRequest, uiLen, MTE_TARN_BUF_SIZE, pucReply);
}

// Receives one request and sends its one reply. Returns false when the
// connection must be closed although no error or hang-up was reported.
bool mte_tarn_ServeRequest(int iConn) {
    uint8_t aucRequest[MTE_TARN_BUF_SIZE];
    uint8_t aucReply[MTE_TARN_BUF_SIZE];
    ssize_t lReceived;
    do {
        errno = 0;
        lReceived = recv(iConn, aucRequest, sizeof(aucRequest), MSG_DONTWAIT);
    } while (lReceived < 0 && errno == EINTR);
    if (lReceived < 0) {
        return true;  // the request is dropped; errors come with EPOLLERR
    }
    if (lReceived == 0) {
        return !mte_tarn_PeerStoppedSending(iConn);
    }
    uint32_t uiReplyLen =
        mte_tarn_ProcRequest(aucRequest, static_cast<uint32_t>(lReceived), aucReply);
    ssize_t lSent;
    do {
        errno = 0;
        // Never blocks (a peer that does not read loses the reply instead of
        // stalling the main thread) and never raises SIGPIPE.
        lSent = send(iConn, aucReply, uiReplyLen, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (lSent < 0 && errno == EINTR);
    if (lSent < 0) {
        mte_DBG_PrintTraceLimited(&g_stTarnSendTraceLimit, mte_DBG_TextFormat(MTE_TEXT_SEND_FAILED),
                                  errno);
    }
    return true;
}

void mte_tarn_ConnectionProc(uint32_t uiEvents, int iConn) {
    // Draining: no request is read any more; the main loop ends when the
    // last connection is gone.
    if (mte_IsVigilPreStop() == 1) {
        mte_tarn_CloseConnection(iConn);
        return;
    }
    // A request that came with the hang-up is still served (its reply cannot
    // be sent and is traced) before the connection is closed.
    bool bKeep = true;
    if ((uiEvents & EPOLLIN) != 0) {
        bKeep = mte_tarn_ServeRequest(iConn);
    }
    if (!bKeep || (uiEvents & (EPOLLERR | EPOLLHUP)) != 0) {
        mte_tarn_CloseConnection(iConn);
    }
}

void mte_tarn_AcceptProc(uint32_t uiEvents, int iListenFd);

// Out of descriptors (or kernel memory): the connection stays in the listen
// queue and is accepted once the pause is over and a descriptor is free.
void mte_tarn_PauseAccepting(int iErrno) {
    mte_DBG_PrintTraceLimited(&g_stTarnPauseTraceLimit,
                              "Cannot accept management connections, errno = [%d]: accepting "
                              "paused until descriptors are free again.",
                              iErrno);
    itimerspec stPause{};
    stPause.it_value.tv_nsec = MTE_TARN_ACCEPT_PAUSE_MS * 1000000L;
    if (timerfd_settime(g_iTarnPauseFd, 0, &stPause, nullptr) == 0) {
        (void)mte_EPOLL_Del(g_iTarnListenFd);
    }
}

void mte_tarn_PauseOverProc(uint32_t uiEvents, int iPauseFd) {
    uint64_t ullExpiries = 0;
    if ((uiEvents & EPOLLIN) == 0 || read(iPauseFd, &ullExpiries, sizeof(ullExpiries)) <= 0 ||
        g_iTarnListenFd == -1) {
        return;
    }
    if (mte_EPOLL_Add(g_iTarnListenFd, mte_tarn_AcceptProc) != MTE_OK) {
        mte_tarn_PauseAccepting(ENOMEM);  // try again after the next pause
    }
}

bool mte_tarn_OutOfResources(int iErrno) {
    return iErrno == EMFILE || iErrno == ENFILE || iErrno == ENOBUFS || iErrno == ENOMEM;
}

void mte_tarn_AcceptProc(uint32_t uiEvents, int iListenFd) {
    if (g_iTarnListenFd == -1 || (uiEvents & EPOLLIN) == 0) {
        return;
    }
    int iConn = accept4(iListenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (iConn < 0) {
        if (mte_tarn_OutOfResources(errno)) {
            mte_tarn_PauseAccepting(errno);
        }
        return;
    }
    uid_t uiUid;
    if (!mte_tarn_PeerAllowed(iConn, &uiUid)) {
        close(iConn);
        mte_tarn_TraceRefusedPeer(uiUid);
        return;
    }
    if (mte_EPOLL_Add(iConn, mte_tarn_ConnectionProc) != MTE_OK) {
        close(iConn);
        return;
    }
    g_uiTarnSocketNum++;
}

uint32_t mte_tarn_SocketFail(int iFd, const char* pszStep) {
    mte_DBG_PrintTraceInfo(MTE_TRACE_SOCKET_SETUP_FAILED,
                           "Failed to %s the management socket %s, errno = [%d].", pszStep,
                           g_strTarnSocketPath.c_str(), errno);
    if (iFd >= 0) {
        close(iFd);
    }
    return MTE_ERR_GENERAL;
}

uint32_t mte_tarn_SocketInit(void) {
    g_strTarnSocketPath = PLAT_MgmtSocketPath();
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(g_strTarnSocketPath, &stAddr)) {
        errno = ENAMETOOLONG;
        return mte_tarn_SocketFail(-1, "name");
    }
    int iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return mte_tarn_SocketFail(-1, "create");
    }
    PLAT_RemoveStaleSocket(&stAddr, SOCK_SEQPACKET);
    if (bind(iFd, reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        return mte_tarn_SocketFail(iFd, "bind");
    }
    // Nobody can connect before listen, so the file is never reachable with
    // the umask's mode.
    if (chmod(stAddr.sun_path, MTE_TARN_SOCKET_MODE) != 0) {
        unlink(stAddr.sun_path);
        return mte_tarn_SocketFail(iFd, "protect");
    }
    if (listen(iFd, MTE_TARN_BACKLOG) != 0) {
        unlink(stAddr.sun_path);
        return mte_tarn_SocketFail(iFd, "listen on");
    }
    // Made before it is needed: when it is needed no descriptor is free.
    int iPauseFd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (iPauseFd < 0 || mte_EPOLL_Add(iPauseFd, mte_tarn_PauseOverProc) != MTE_OK) {
        if (iPauseFd >= 0) {
            close(iPauseFd);
        }
        unlink(stAddr.sun_path);
        return mte_tarn_SocketFail(iFd, "create the accept pause timer of");
    }
    uint32_t uiRet = mte_EPOLL_Add(iFd, mte_tarn_AcceptProc);
    if (uiRet != MTE_OK) {
        (void)mte_EPOLL_Del(iPauseFd);
        close(iPauseFd);
        unlink(stAddr.sun_path);
        close(iFd);
        return uiRet;
    }
    g_iTarnPauseFd = iPauseFd;
    g_iTarnListenFd = iFd;
    return MTE_OK;
}

// ---- trap switch ----------------------------------------------------------

void mte_tarn_ApplyTrapSwitch(const SNMP_TRAPSWITCH_S* pstRecord) {
    if (pstRecord->szText[0] != '\0') {
        return;
    }
    mte_tarn_SetTrapFlag(pstRecord->ulState == SNMP_TRAPSWITCH_OFF ? 0 : 1);
}

uint32_t mte_tarn_TrapSwitchCallback(const char* pszModule, SNMP_TRAPSWITCH_S* pstRecord) {
    if (pszModule != nullptr && pstRecord != nullptr &&
        strncmp(pszModule, MTE_TRAPSWITCH_MODULE, strlen(MTE_TRAPSWITCH_MODULE) + 1) == 0) {
        mte_tarn_ApplyTrapSwitch(pstRecord);
    }
    return 0;
}

uint32_t mte_tarn_TrapSwitchRegister(void);

void mte_tarn_TrapSwitchProc(uint32_t uiEvents, int iHandle) {
    if (g_iTarnTrapSwtHandle == -1) {
        return;
    }
    if ((uiEvents & EPOLLIN) != 0) {
        (void)SNMP_Dispatch(iHandle);
    }
    if ((uiEvents & (EPOLLERR | EPOLLHUP)) != 0) {
        // The trap flag keeps its value until the new registration reads
        // the switch again.
        (void)mte_EPOLL_Del(iHandle);
        SNMP_TrapSwitch_Fini(iHandle);
        g_iTarnTrapSwtHandle = -1;
        (void)mte_tarn_TrapSwitchRegister();
    }
}

uint32_t mte_tarn_TrapSwitchRegister(void) {
    int iHandle = SNMP_TrapSwitch_Init();
    if (iHandle < 0) {
        return MTE_ERR_GENERAL;
    }
    SNMP_TRAPSWITCH_S stRecord;
    memset(&stRecord, 0, sizeof(stRecord));
    stRecord.ulState = SNMP_TRAPSWITCH_ON;  // a record left untouched switches notifications on
    if (SNMP_TrapSwitch_Register(iHandle, MTE_TRAPSWITCH_MODULE, mte_tarn_TrapSwitchCallback, 0) !=
        0) {
        SNMP_TrapSwitch_Fini(iHandle);
        return MTE_ERR_GENERAL;
    }
    (void)SNMP_TrapSwitch_Get(MTE_TRAPSWITCH_MODULE, &stRecord);
    mte_tarn_ApplyTrapSwitch(&stRecord);
    if (mte_EPOLL_Add(iHandle, mte_tarn_TrapSwitchProc) != MTE_OK) {
        (void)SNMP_TrapSwitch_Deregister(iHandle, MTE_TRAPSWITCH_MODULE);
        SNMP_TrapSwitch_Fini(iHandle);
        return MTE_ERR_GENERAL;
    }
    g_iTarnTrapSwtHandle = iHandle;
    return MTE_OK;
}

// ---- port service -----------------------------------------------------------

void mte_tarn_PortServiceProc(uint32_t uiEvents, int iFd) {
    if (g_iTarnPortFd == -1 || (uiEvents & EPOLLIN) == 0) {
        return;
    }
    SERVICE_PORT_EVENT_S stEvent;
    memset(&stEvent, 0, sizeof(stEvent));
    if (RecvServicePortEvent(iFd, &stEvent) != 0) {
        return;
    }
    if (stEvent.uiPortStatus == SERVICE_PORT_UP) {
        mte_TIMER_SetPortFlag(1);
        (void)mte_TIMER_StartAll();
    } else if (stEvent.uiPortStatus == SERVICE_PORT_DOWN) {
        (void)mte_TIMER_SuspendAll();
        mte_TIMER_SetPortFlag(0);
    }
}

}  // namespace

uint32_t mte_TARN_Init(void) {
    uint32_t uiRet = mte_tarn_SocketInit();
    // The trap switch is registered even when the socket failed.
    uiRet |= mte_tarn_TrapSwitchRegister();
    return uiRet;
}

void mte_TARN_Fini(void) {
    if (g_iTarnListenFd != -1) {
        (void)mte_EPOLL_Del(g_iTarnListenFd);
        // Unlinked while still ours: a later daemon may already bind the path
        // once the listening socket is gone.
        unlink(g_strTarnSocketPath.c_str());
        close(g_iTarnListenFd);
        g_iTarnListenFd = -1;
    }
    if (g_iTarnPauseFd != -1) {
        (void)mte_EPOLL_Del(g_iTarnPauseFd);
        close(g_iTarnPauseFd);
        g_iTarnPauseFd = -1;
    }
    if (g_iTarnTrapSwtHandle != -1) {
        (void)mte_EPOLL_Del(g_iTarnTrapSwtHandle);
        (void)SNMP_TrapSwitch_Deregister(g_iTarnTrapSwtHandle, MTE_TRAPSWITCH_MODULE);
        SNMP_TrapSwitch_Fini(g_iTarnTrapSwtHandle);
        g_iTarnTrapSwtHandle = -1;
    }
    if (g_iTarnPortFd != -1) {
        (void)mte_EPOLL_Del(g_iTarnPortFd);
        close(g_iTarnPortFd);
        g_iTarnPortFd = -1;
    }
}

uint32_t mte_SNMP_RegService(void) {
    const SERVICE_PORT_SUB_S stSub = {1, 0, 629, 0x8000};
    int iFd = SubscribeServicePortEvent(1, &stSub);
    if (iFd < 0) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_PORT_SUBSCRIBE_FAILED, "%s",
                               mte_DBG_Text(MTE_TEXT_PORT_SUBSCRIBE_FAILED));
        return MTE_ERR_GENERAL;
    }
    uint32_t uiRet = mte_EPOLL_Add(iFd, mte_tarn_PortServiceProc);
    if (uiRet != MTE_OK) {
        close(iFd);
        return uiRet;
    }
    g_iTarnPortFd = iFd;
    return MTE_OK;
}

uint32_t mte_GetTarnSocketNum(void) {
    return g_uiTarnSocketNum;
}
