// eventmib-agentx's connection to eventmibd's management socket (AF_UNIX,
// SOCK_SEQPACKET: one packet per request and per reply). Connected at the
// first exchange, closed after EMA_CLIENT_IDLE_CLOSE_MS without use (a net-snmp
// alarm: the daemon's orderly stop waits for its last open connection) and
// dropped on any failure; the connect, sends and receives of one agent request
// share EMA_CLIENT_PDU_BUDGET_MS so that snmpd is never kept waiting on a
// daemon that is away. Every request carries an expiry inside that budget, so
// the daemon never carries out a request that the bridge has already answered
// with an error. Agent thread only; no locks.
#include "mib_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "plat_paths.h"

namespace {

int g_iMgmtFd = -1;
uint32_t g_uiSequence = 0;
bool g_bFailedInRequest = false;
uint64_t g_ullRequestKey = 0;
int64_t g_llRequestDeadlineMs = 0;
int64_t g_llLastUseMs = 0;
unsigned int g_uiIdleAlarm = 0;  // net-snmp alarm id, 0 when none is pending

int64_t NowMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

void ema_ArmIdleAlarm(int64_t llDelayMs);

// The daemon must have finished a request by the time the bridge stops
// waiting for its reply: the request expires EMA_CLIENT_APPLY_MARGIN_MS before
// the budget ends, the time a change may take once the daemon has read it.
uint64_t ema_ExpiryNs(void) {
    return static_cast<uint64_t>(g_llRequestDeadlineMs - EMA_CLIENT_APPLY_MARGIN_MS) * 1000000ULL;
}

int ema_BudgetLeftMs(void) {
    int64_t llLeft = g_llRequestDeadlineMs - NowMs();
    return llLeft > 0 ? static_cast<int>(llLeft) : 0;
}

// The connection is closed once the agent has not used it for a while: the
// daemon's orderly stop waits for its last open connection.
void ema_OnIdleAlarm(unsigned int uiAlarm, void* pArg) {
    g_uiIdleAlarm = 0;
    int64_t llIdle = NowMs() - g_llLastUseMs;
    if (llIdle >= EMA_CLIENT_IDLE_CLOSE_MS) {
        EMA_CLIENT_Close();
    } else if (g_iMgmtFd >= 0) {
        ema_ArmIdleAlarm(EMA_CLIENT_IDLE_CLOSE_MS - llIdle);
    }
}

void ema_ArmIdleAlarm(int64_t llDelayMs) {
    timeval stDelay{static_cast<time_t>(llDelayMs / 1000),
                    static_cast<suseconds_t>((llDelayMs % 1000) * 1000)};
    g_uiIdleAlarm = snmp_alarm_register_hr(stDelay, 0, ema_OnIdleAlarm, nullptr);
}

bool ema_Connect(void) {
    std::string strPath = PLAT_MgmtSocketPath();
    sockaddr_un stAddr{};
    if (strPath.size() >= sizeof(stAddr.sun_path)) {
        return false;
    }
    int iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return false;
    }
    stAddr.sun_family = AF_UNIX;
    memcpy(stAddr.sun_path, strPath.c_str(), strPath.size() + 1);
    // The send time-out bounds a connect that waits on a full backlog of a
    // daemon that does not accept.
    int iLeftMs = ema_BudgetLeftMs();
    if (iLeftMs <= 0) {
        close(iFd);
        return false;  // a time-out of 0 would wait for ever
    }
    timeval stTimeout{iLeftMs / 1000, (iLeftMs % 1000) * 1000};
    (void)setsockopt(iFd, SOL_SOCKET, SO_SNDTIMEO, &stTimeout, sizeof(stTimeout));
    if (connect(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        close(iFd);
        return false;
    }
    g_iMgmtFd = iFd;
    return true;
}

// Waits until the connection is ready for the events, within the budget.
bool ema_WaitReady(short sEvents) {
    for (;;) {
        int iLeft = ema_BudgetLeftMs();
        if (iLeft <= 0) {
            return false;
        }
        pollfd stPoll{g_iMgmtFd, sEvents, 0};
        int iReady = poll(&stPoll, 1, iLeft);
        if (iReady < 0 && errno == EINTR) {
            continue;
        }
        return iReady > 0;
    }
}

bool ema_SendRequest(const uint8_t* pucRequest, uint32_t uiLen) {
    for (;;) {
        ssize_t lSent = send(g_iMgmtFd, pucRequest, uiLen, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (lSent == static_cast<ssize_t>(uiLen)) {
            return true;
        }
        if (lSent >= 0) {
            return false;  // a packet goes whole or not at all
        }
        if (errno == EINTR) {
            continue;
        }
        if ((errno != EAGAIN && errno != EWOULDBLOCK) || !ema_WaitReady(POLLOUT)) {
            return false;
        }
    }
}

// Waits for the reply with this sequence number within the budget; replies
// to earlier, abandoned requests are passed over.
bool ema_ReceiveReply(uint32_t uiSequence, uint8_t* pucBuf, MTE_MSG_REPLY_S* pstParsed) {
    for (;;) {
        int iLeft = ema_BudgetLeftMs();
        if (iLeft <= 0) {
            return false;
        }
        pollfd stPoll{g_iMgmtFd, POLLIN, 0};
        int iReady = poll(&stPoll, 1, iLeft);
        if (iReady < 0 && errno == EINTR) {
            continue;
        }
        if (iReady <= 0) {
            return false;
        }
        ssize_t lGot = recv(g_iMgmtFd, pucBuf, MTE_MSG_MAX_LEN, MSG_DONTWAIT);
        if (lGot <= 0) {
            if (lGot < 0 && (errno == EINTR || errno == EAGAIN)) {
                continue;
            }
            return false;  // closed: the daemon is stopping or gone
        }
        if (MTE_MSG_ParseReply(pucBuf, static_cast<uint32_t>(lGot), pstParsed) != 0) {
            return false;
        }
        if (pstParsed->uiSequence == uiSequence) {
            return true;
        }
    }
}

uint32_t ema_TryExchange(const uint8_t* pucRequest, uint32_t uiLen, uint32_t uiSequence,
                         EMA_REPLY_S* pstReply, bool* pbSent) {
    *pbSent = false;
    if (g_iMgmtFd < 0 && !ema_Connect()) {
        return EMA_ERR_TRANSPORT;
    }
    if (!ema_SendRequest(pucRequest, uiLen)) {
        EMA_CLIENT_Close();
        return EMA_ERR_TRANSPORT;
    }
    *pbSent = true;
    uint8_t aucBuf[MTE_MSG_MAX_LEN];
    MTE_MSG_REPLY_S stParsed{};
    if (!ema_ReceiveReply(uiSequence, aucBuf, &stParsed)) {
        EMA_CLIENT_Close();
        return EMA_ERR_TRANSPORT;
    }
    if (stParsed.uiResult == MTE_ERR_MSG_EXPIRED) {
        return EMA_ERR_TRANSPORT;  // read too late: not carried out
    }
    pstReply->uiResult = stParsed.uiResult;
    pstReply->uiFailedColumn = stParsed.uiFailedColumn;
    pstReply->usItem = stParsed.usItem;
    pstReply->uiDataSize = stParsed.usItem != 0 ? stParsed.uiDataSize : 0;
    if (pstReply->uiDataSize > sizeof(pstReply->aucData)) {
        return EMA_ERR_TRANSPORT;
    }
    if (pstReply->uiDataSize > 0) {
        memcpy(pstReply->aucData, stParsed.pucData, pstReply->uiDataSize);
    }
    return 0;
}

}  // namespace

void EMA_CLIENT_BeginRequest(uint64_t ullRequestKey) {
    if (ullRequestKey == g_ullRequestKey && g_llRequestDeadlineMs != 0) {
        return;
    }
    g_ullRequestKey = ullRequestKey;
    g_llRequestDeadlineMs = NowMs() + EMA_CLIENT_PDU_BUDGET_MS;
    g_bFailedInRequest = false;
}

void EMA_CLIENT_EndRequest(void) {
    g_llLastUseMs = NowMs();
    if (g_iMgmtFd >= 0 && g_uiIdleAlarm == 0) {
        ema_ArmIdleAlarm(EMA_CLIENT_IDLE_CLOSE_MS);
    }
}

uint32_t EMA_CLIENT_Exchange(uint16_t usMsgType, uint16_t usOperation, uint32_t uiColumnMask,
                             uint16_t usItem, const void* pRecord, EMA_REPLY_S* pstReply) {
    memset(pstReply, 0, offsetof(EMA_REPLY_S, aucData));
    if (g_bFailedInRequest || ema_BudgetLeftMs() == 0) {
        g_bFailedInRequest = true;
        return EMA_ERR_TRANSPORT;
    }
    uint8_t aucRequest[MTE_MSG_MAX_LEN];
    uint32_t uiSequence = ++g_uiSequence;
    uint32_t uiLen = MTE_MSG_BuildRequest(uiSequence, usMsgType, usOperation, uiColumnMask, usItem,
                                          pRecord, aucRequest, sizeof(aucRequest));
    uiLen =
        uiLen != 0 ? MTE_MSG_AddExpiry(ema_ExpiryNs(), aucRequest, uiLen, sizeof(aucRequest)) : 0;
    if (uiLen == 0) {
        return EMA_ERR_TRANSPORT;
    }
    bool bSent = false;
    uint32_t uiRet = ema_TryExchange(aucRequest, uiLen, uiSequence, pstReply, &bSent);
    // A connection left over from a daemon that has restarted fails at the
    // send: nothing reached anybody, so one more try on a new connection is safe.
    if (uiRet == EMA_ERR_TRANSPORT && !bSent) {
        uiRet = ema_TryExchange(aucRequest, uiLen, uiSequence, pstReply, &bSent);
    }
    if (uiRet == EMA_ERR_TRANSPORT) {
        g_bFailedInRequest = true;
    }
    return uiRet;
}

void EMA_CLIENT_Close(void) {
    if (g_uiIdleAlarm != 0) {
        snmp_alarm_unregister(g_uiIdleAlarm);
        g_uiIdleAlarm = 0;
    }
    if (g_iMgmtFd >= 0) {
        close(g_iMgmtFd);
        g_iMgmtFd = -1;
    }
}
