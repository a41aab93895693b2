// Built-in notifications of the Event MIB: mteTriggerFired, mteTriggerRising,
// mteTriggerFalling, mteTriggerFailure and mteEventSetFailure, each with its
// five variables in the order of the notification's OBJECTS clause. The SNMP
// client names the notification and the objects; we supply the values.
//
// Thread: either (the worker for firings, failures and set failures; the main
// thread for overruns and queueing failures). Locks: the trap-switch mutex,
// inside mte_TARN_TrapSwt, taken and released before anything is built.
#include "mte_trap.h"

#include "mte_tarn.h"
#include "plat_snmp.h"

namespace {

constexpr uint32_t NOTIFY_VAR_COUNT = 5;

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
        (void)SNMP_SendNotify(pszNotification, hNotify);
    }
    return SNMP_DestroyNotifyHandle(hNotify);
}

}  // namespace

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
