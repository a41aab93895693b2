// Built-in notifications of the Event MIB: mteTriggerFired, mteTriggerRising,
// mteTriggerFalling, mteTriggerFailure and mteEventSetFailure, each with its
// five variables in the order of the notification's OBJECTS clause. The SNMP
// client names the notification and the objects; we supply the values.
//
// Thread: either (the worker for firings, failures and set failures; the main
// thread for overruns and queueing failures). Locks: the trap-switch mutex,
// inside mte_TARN_TrapSwt, taken and released before anything is built.
//
// Also the daemon's end of the relay queue: every notification, built-in or
// configured, is held in the SNMP client's queue for eventmib-agentx and sent
// from the main epoll set, so no sender ever waits for the bridge and a
// bridge that restarts loses nothing. What the full queue refuses is counted
// (notification-drops) and traced once per burst.
#include "mte_trap.h"

#include <sys/epoll.h>

#include <atomic>

#include "mte_dbg.h"
#include "mte_epoll_set.h"
#include "mte_scalar.h"
#include "mte_trapflag.h"
#include "plat_snmp.h"

namespace {

constexpr uint32_t NOTIFY_VAR_COUNT = 5;

// At a stop, how long held notifications may still wait for the bridge.
constexpr int RELAY_CLOSE_WAIT_MS = 1000;

// A burst of drops starts with the first refused notification and ends
// with the next one accepted; both threads count into it.
std::atomic<bool> g_bTrapDropping{false};
std::atomic<uint32_t> g_uiTrapBurstDrops{0};
// Main thread only.
int g_iTrapRelayFd = -1;

void mte_trap_RelayProc(uint32_t uiEvents, int) {
    if ((uiEvents & EPOLLIN) == 0) {
        return;
    }
    uint32_t uiHeld = 0;
    uint32_t uiChange = SNMP_NotifyRelayProc(&uiHeld);
    if (uiChange == SNMP_RELAY_LOST) {
        mte_DBG_PrintTraceInfo(
            MTE_TRACE_RELAY_PEER_AWAY,
            "eventmib-agentx takes no notifications; %u held for it (at most %u).", uiHeld,
            SNMP_RELAY_QUEUE_MAX);
    } else if (uiChange == SNMP_RELAY_BACK) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_RELAY_PEER_BACK,
                               "eventmib-agentx takes notifications again; %u still held.", uiHeld);
    }
}

// Nothing is sent while the trap switch is off, and nothing is built either.
// A variable that cannot be added drops the whole notification: a partial
// one would carry values under the wrong objects.
uint32_t mte_trap_Send(const char* pszNotification, const char* pszTrigger, uint32_t uiTriggerLen,
                       const char* pszTargetTag, uint32_t uiTagLen, const char* pszContext,
                       uint32_t uiContextLen, const uint32_t* puiOid, uint32_t uiOidLen,
                       uint32_t uiLastType, int32_t iLast) {
    uint16_t usSwitch = mte_TARN_TrapSwt();
    if (usSwitch != 1) {
        return usSwitch;
    }
    const SNMP_NOTIFY_VAR_S astVars[NOTIFY_VAR_COUNT] = {
        {SNMP_VTYPE_OCTET_STRING, uiTriggerLen, pszTrigger},
        {SNMP_VTYPE_OCTET_STRING, uiTagLen, pszTargetTag},
        {SNMP_VTYPE_OCTET_STRING, uiContextLen, pszContext},
        {SNMP_VTYPE_OID, uiOidLen * static_cast<uint32_t>(sizeof(uint32_t)), puiOid},
        {uiLastType, sizeof(int32_t), &iLast},
    };
    SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
    uint32_t uiSum = 0;
    for (const auto& stVar : astVars) {
        uiSum += SNMP_AddNotifyVar(hNotify, &stVar, 0);
    }
    if (uiSum == 0) {
        mte_TRAP_CountSend(SNMP_SendNotify(pszNotification, hNotify));
    }
    return SNMP_DestroyNotifyHandle(hNotify);
}

}  // namespace

void mte_TRAP_CountSend(uint32_t uiResult) {
    if (uiResult == SNMP_ST_LOCAL_RESOURCE) {
        mte_SCALAR_NotificationDropsInc();
        g_uiTrapBurstDrops.fetch_add(1);
        if (!g_bTrapDropping.exchange(true)) {
            mte_DBG_PrintTraceInfo(MTE_TRACE_RELAY_FULL,
                                   "The queue for eventmib-agentx is full (%u held): "
                                   "notifications are dropped and counted.",
                                   SNMP_RELAY_QUEUE_MAX);
        }
    } else if (uiResult == 0 && g_bTrapDropping.load() && g_bTrapDropping.exchange(false)) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_RELAY_ROOM_AGAIN,
                               "The queue for eventmib-agentx has room again; %u notifications "
                               "were dropped.",
                               g_uiTrapBurstDrops.exchange(0));
    }
}

uint32_t mte_TRAP_RelayInit(void) {
    if (g_iTrapRelayFd >= 0) {
        return MTE_OK;
    }
    int iFd = SNMP_NotifyRelayOpen();
    if (iFd < 0) {
        return MTE_ERR_GENERAL;
    }
    if (mte_EPOLL_Add(iFd, mte_trap_RelayProc) != MTE_OK) {
        (void)SNMP_NotifyRelayClose(0);
        return MTE_ERR_GENERAL;
    }
    g_iTrapRelayFd = iFd;
    return MTE_OK;
}

void mte_TRAP_RelayFini(void) {
    if (g_iTrapRelayFd < 0) {
        return;
    }
    (void)mte_EPOLL_Del(g_iTrapRelayFd);
    g_iTrapRelayFd = -1;
    uint32_t uiDropped = SNMP_NotifyRelayClose(RELAY_CLOSE_WAIT_MS);
    if (uiDropped != 0) {
        for (uint32_t i = 0; i < uiDropped; ++i) {
            mte_SCALAR_NotificationDropsInc();
        }
        mte_DBG_PrintTraceInfo(MTE_TRACE_RELAY_DROPPED_AT_STOP,
                               "%u notifications held for eventmib-agentx were dropped at stop.",
                               uiDropped);
    }
}

uint32_t TRAP_SendmteTriggerFired(const char* pszTrigger, uint32_t uiTriggerLen,
                                  const char* pszTargetTag, uint32_t uiTagLen,
                                  const char* pszContext, uint32_t uiContextLen,
                                  const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue) {
    return mte_trap_Send("mteTriggerFired", pszTrigger, uiTriggerLen, pszTargetTag, uiTagLen,
                         pszContext, uiContextLen, puiOid, uiOidLen, SNMP_VTYPE_INTEGER32,
                         iHotValue);
}

uint32_t TRAP_SendmteTriggerRising(const char* pszTrigger, uint32_t uiTriggerLen,
                                   const char* pszTargetTag, uint32_t uiTagLen,
                                   const char* pszContext, uint32_t uiContextLen,
                                   const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue) {
    return mte_trap_Send("mteTriggerRising", pszTrigger, uiTriggerLen, pszTargetTag, uiTagLen,
                         pszContext, uiContextLen, puiOid, uiOidLen, SNMP_VTYPE_INTEGER32,
                         iHotValue);
}

uint32_t TRAP_SendmteTriggerFalling(const char* pszTrigger, uint32_t uiTriggerLen,
                                    const char* pszTargetTag, uint32_t uiTagLen,
                                    const char* pszContext, uint32_t uiContextLen,
                                    const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue) {
    return mte_trap_Send("mteTriggerFalling", pszTrigger, uiTriggerLen, pszTargetTag, uiTagLen,
                         pszContext, uiContextLen, puiOid, uiOidLen, SNMP_VTYPE_INTEGER32,
                         iHotValue);
}

uint32_t TRAP_SendmteTriggerFailure(const char* pszTrigger, uint32_t uiTriggerLen,
                                    const char* pszTargetTag, uint32_t uiTagLen,
                                    const char* pszContext, uint32_t uiContextLen,
                                    const uint32_t* puiOid, uint32_t uiOidLen, int32_t iReason) {
    return mte_trap_Send("mteTriggerFailure", pszTrigger, uiTriggerLen, pszTargetTag, uiTagLen,
                         pszContext, uiContextLen, puiOid, uiOidLen, SNMP_VTYPE_ENUM, iReason);
}

uint32_t TRAP_SendmteEventSetFailure(const char* pszTrigger, uint32_t uiTriggerLen,
                                     const char* pszTargetTag, uint32_t uiTagLen,
                                     const char* pszContext, uint32_t uiContextLen,
                                     const uint32_t* puiOid, uint32_t uiOidLen, int32_t iReason) {
    return mte_trap_Send("mteEventSetFailure", pszTrigger, uiTriggerLen, pszTargetTag, uiTagLen,
                         pszContext, uiContextLen, puiOid, uiOidLen, SNMP_VTYPE_ENUM, iReason);
}
