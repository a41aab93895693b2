// Placeholder definitions: replaced by the module's implementation.
#include "plat_trapswitch.h"

int SNMP_TrapSwitch_Init(void) { return -1; }
uint32_t SNMP_TrapSwitch_Register(int iHandle, const char* pszModule, SNMP_TRAPSWITCH_CB_PF pfCb, uint32_t uiFlags) { return {}; }
uint32_t SNMP_TrapSwitch_Get(const char* pszModule, SNMP_TRAPSWITCH_S* pstRecord) { return {}; }
uint32_t SNMP_Dispatch(int iHandle) { return {}; }
uint32_t SNMP_TrapSwitch_Deregister(int iHandle, const char* pszModule) { return {}; }
void SNMP_TrapSwitch_Fini(int iHandle) {}
uint32_t SNMP_TrapSwitch_Write(const char* pszModule, uint64_t ulState) { return {}; }
