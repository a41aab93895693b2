// Built-in notifications of the Event MIB, suppressed while the trap switch
// is off. Called from both threads.
#ifndef MTE_TRAP_H
#define MTE_TRAP_H

#include <cstdint>

uint32_t TRAP_SendmteTriggerFired(const char* pszTrigger, uint32_t uiTriggerLen,
                                  const char* pszTargetTag, uint32_t uiTagLen,
                                  const char* pszContext, uint32_t uiContextLen,
                                  const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue);
uint32_t TRAP_SendmteTriggerRising(const char* pszTrigger, uint32_t uiTriggerLen,
                                   const char* pszTargetTag, uint32_t uiTagLen,
                                   const char* pszContext, uint32_t uiContextLen,
                                   const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue);
uint32_t TRAP_SendmteTriggerFalling(const char* pszTrigger, uint32_t uiTriggerLen,
                                    const char* pszTargetTag, uint32_t uiTagLen,
                                    const char* pszContext, uint32_t uiContextLen,
                                    const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue);
uint32_t TRAP_SendmteTriggerFailure(const char* pszTrigger, uint32_t uiTriggerLen,
                                    const char* pszTargetTag, uint32_t uiTagLen,
                                    const char* pszContext, uint32_t uiContextLen,
                                    const uint32_t* puiOid, uint32_t uiOidLen, int32_t iReason);
uint32_t TRAP_SendmteEventSetFailure(const char* pszTrigger, uint32_t uiTriggerLen,
                                     const char* pszTargetTag, uint32_t uiTagLen,
                                     const char* pszContext, uint32_t uiContextLen,
                                     const uint32_t* puiOid, uint32_t uiOidLen, int32_t iReason);

// Counts a send that the queue for the bridge refused (SNMP_ST_LOCAL_RESOURCE)
// and traces the first and the end of each burst of them; any thread.
void mte_TRAP_CountSend(uint32_t uiResult);
// Main thread: holds every notification for the bridge in the SNMP client's
// queue, sent from the main epoll set; 0, or 0x40010001 when notifications
// stay direct (sent at once, lost while the bridge is away).
uint32_t mte_TRAP_RelayInit(void);
// Main thread, after the worker has stopped: sends what is held within a
// second, counts and traces the rest.
void mte_TRAP_RelayFini(void);

#endif  // MTE_TRAP_H
