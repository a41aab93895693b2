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

#endif  // MTE_TRAP_H
