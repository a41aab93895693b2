// Placeholder definitions: replaced by the module's implementation.
#include "plat_snmp.h"

SNMP_VALUE_S* SNMP_GetInstanceValue(const char* pszOwner, const char* pszContext, const MTE_OID_S* pstOid, uint32_t* puiStatus) { return nullptr; }
SNMP_VALUE_S* SNMP_GetNextInstanceValue(const char* pszOwner, const char* pszContext, MTE_OID_S* pstOid, uint32_t* puiStatus) { return nullptr; }
uint32_t SNMP_GetNextContextName(uint32_t uiSize, char* pszContext) { return {}; }
void SNMP_FreeInstanceValue(SNMP_VALUE_S* pstValue) {}
SNMP_NOTIFY_HANDLE SNMP_CreateNotifyHandle(void) { return nullptr; }
uint32_t SNMP_AddNotifyVar(SNMP_NOTIFY_HANDLE hNotify, const SNMP_NOTIFY_VAR_S* pstVar, uint32_t uiFlags) { return {}; }
uint32_t SNMP_SendNotify(const char* pszName, SNMP_NOTIFY_HANDLE hNotify) { return {}; }
uint32_t SNMP_DestroyNotifyHandle(SNMP_NOTIFY_HANDLE hNotify) { return {}; }
uint32_t SNMP_SendTrapByVBList(const MTE_OID_S* pstNotification, const char* pszContext, const MTE_VB_LIST_S* pstList) { return {}; }
uint32_t SNMP_SetIntegerValueByOID(const char* pszOwner, const char* pszContext, const MTE_OID_S* pstOid, int32_t iValue) { return {}; }
