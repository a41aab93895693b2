// eventmib-agentx's client of eventmibd's management socket: one request,
// one reply; every exchange of one agent request shares one time budget;
// connected at the first exchange and closed when idle or after any failure.
// Runs on the agent's one thread; no locks.
#ifndef EMA_MIB_CLIENT_H
#define EMA_MIB_CLIENT_H

#include <cstdint>

#include "mte_msg.h"

// The daemon did not answer (absent, stopping, too slow, or a reply that does
// not parse): not a result of the daemon's.
constexpr uint32_t EMA_ERR_TRANSPORT = 0xFFFFFFFFu;
// Time all exchanges of one agent request (one AgentX PDU, every varbind and
// every pass the agent library makes over them) may take together: below
// snmpd's default AgentX time-out of 1 s, so that the answer reaches snmpd
// before it gives up and sends the same request again.
constexpr int EMA_CLIENT_PDU_BUDGET_MS = 900;
// Part of the budget kept for the daemon to carry out a request it has read:
// each request expires this long before the budget ends.
constexpr int64_t EMA_CLIENT_APPLY_MARGIN_MS = 200;
// Idle time after which the connection is closed.
constexpr int64_t EMA_CLIENT_IDLE_CLOSE_MS = 200;

struct EMA_REPLY_S {
    uint32_t uiResult;
    uint32_t uiFailedColumn;
    uint16_t usItem;  // 0 when the reply carries no record
    uint32_t uiDataSize;
    uint8_t aucData[MTE_MSG_MAX_LEN];
};

// Starts a handler call for the agent request with this key (it tells one
// AgentX PDU from another: its request and transaction ids). A new key starts
// a new budget and tries a daemon that failed earlier again; calls with the
// key of the request under way (the agent library's further passes, snmpd
// sending the same request again) share its budget, and after a failure or
// once the budget is spent every exchange fails at once.
void EMA_CLIENT_BeginRequest(uint64_t ullRequestKey);
// Ends one agent request: the connection stays open for the next one and is
// closed by a net-snmp alarm once idle for EMA_CLIENT_IDLE_CLOSE_MS, so that
// an idle bridge never holds eventmibd's orderly stop (which waits for its
// last connection). The program's loop must run net-snmp's alarms.
void EMA_CLIENT_EndRequest(void);
// Sends one request and waits for its reply, within what is left of the
// budget. 0 with *pstReply filled, or EMA_ERR_TRANSPORT: no reply in time
// (the connection is then closed) or the daemon's refusal of an expired
// request. Each request carries the expiry of the management protocol: one
// that eventmibd reads after it is refused there, never carried out, so a
// request the bridge has given up on is never applied later.
uint32_t EMA_CLIENT_Exchange(uint16_t usMsgType, uint16_t usOperation, uint32_t uiColumnMask,
                             uint16_t usItem, const void* pRecord, EMA_REPLY_S* pstReply);
void EMA_CLIENT_Close(void);

#endif  // EMA_MIB_CLIENT_H
