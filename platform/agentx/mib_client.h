// eventmib-agentx's client of eventmibd's management socket: one request,
// one reply, bounded by a short time-out; connected at the first exchange and
// closed when idle or after any failure. Runs on the agent's one thread; no locks.
#ifndef EMA_MIB_CLIENT_H
#define EMA_MIB_CLIENT_H

#include <cstdint>

#include "mte_msg.h"

// The daemon did not answer (absent, stopping, too slow, or a reply that does
// not parse): not a result of the daemon's.
constexpr uint32_t EMA_ERR_TRANSPORT = 0xFFFFFFFFu;
// Time one exchange may take.
constexpr int EMA_CLIENT_TIMEOUT_MS = 1000;
// Idle time after which the connection is closed.
constexpr int64_t EMA_CLIENT_IDLE_CLOSE_MS = 200;

struct EMA_REPLY_S {
    uint32_t uiResult;
    uint32_t uiFailedColumn;
    uint16_t usItem;  // 0 when the reply carries no record
    uint32_t uiDataSize;
    uint8_t aucData[MTE_MSG_MAX_LEN];
};

// Starts one agent request: a daemon that failed earlier is tried again, but
// within one request a failure makes every further exchange fail at once, so
// that a PDU of many varbinds never waits more than one time-out.
void EMA_CLIENT_BeginRequest(void);
// Ends one agent request: the connection stays open for the next one and is
// closed by a net-snmp alarm once idle for EMA_CLIENT_IDLE_CLOSE_MS, so that
// an idle bridge never holds eventmibd's orderly stop (which waits for its
// last connection). The program's loop must run net-snmp's alarms.
void EMA_CLIENT_EndRequest(void);
// Sends one request and waits for its reply. 0 with *pstReply filled, or
// EMA_ERR_TRANSPORT.
uint32_t EMA_CLIENT_Exchange(uint16_t usMsgType, uint16_t usOperation, uint32_t uiColumnMask,
                             uint16_t usItem, const void* pRecord, EMA_REPLY_S* pstReply);
void EMA_CLIENT_Close(void);

#endif  // EMA_MIB_CLIENT_H
