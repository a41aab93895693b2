// Placeholder definitions: replaced by the module's implementation.
#include "mte_trap.h"

uint32_t TRAP_SendmteTriggerFired(const char* pszTrigger, uint32_t uiTriggerLen, const char* pszTargetTag, uint32_t uiTagLen, const char* pszContext, uint32_t uiContextLen, const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue) { return {}; }
uint32_t TRAP_SendmteTriggerRising(const char* pszTrigger, uint32_t uiTriggerLen, const char* pszTargetTag, uint32_t uiTagLen, const char* pszContext, uint32_t uiContextLen, const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue) { return {}; }
uint32_t TRAP_SendmteTriggerFalling(const char* pszTrigger, uint32_t uiTriggerLen, const char* pszTargetTag, uint32_t uiTagLen, const char* pszContext, uint32_t uiContextLen, const uint32_t* puiOid, uint32_t uiOidLen, int32_t iHotValue) { return {}; }
uint32_t TRAP_SendmteTriggerFailure(const char* pszTrigger, uint32_t uiTriggerLen, const char* pszTargetTag, uint32_t uiTagLen, const char* pszContext, uint32_t uiContextLen, const uint32_t* puiOid, uint32_t uiOidLen, int32_t iReason) { return {}; }
uint32_t TRAP_SendmteEventSetFailure(const char* pszTrigger, uint32_t uiTriggerLen, const char* pszTargetTag, uint32_t uiTagLen, const char* pszContext, uint32_t uiContextLen, const uint32_t* puiOid, uint32_t uiOidLen, int32_t iReason) { return {}; }
