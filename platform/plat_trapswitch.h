// The agent's trap switch, kept per module name.
#ifndef PLAT_TRAPSWITCH_H
#define PLAT_TRAPSWITCH_H

#include <cstdint>

struct SNMP_TRAPSWITCH_S {
    char szText[512];  // the daemon only acts on records whose first byte is 0
    uint64_t ulState;  // 2 switched off, any other value switched on
};
static_assert(sizeof(SNMP_TRAPSWITCH_S) == 520);

constexpr uint64_t SNMP_TRAPSWITCH_ON = 1;
constexpr uint64_t SNMP_TRAPSWITCH_OFF = 2;

typedef uint32_t (*SNMP_TRAPSWITCH_CB_PF)(const char* pszModule, SNMP_TRAPSWITCH_S* pstRecord);

// A handle that becomes readable when a switch changes, or negative.
int SNMP_TrapSwitch_Init(void);
uint32_t SNMP_TrapSwitch_Register(int iHandle, const char* pszModule, SNMP_TRAPSWITCH_CB_PF pfCb,
                                  uint32_t uiFlags);
uint32_t SNMP_TrapSwitch_Get(const char* pszModule, SNMP_TRAPSWITCH_S* pstRecord);
// Reads the pending changes and calls the registered callbacks on this thread.
uint32_t SNMP_Dispatch(int iHandle);
uint32_t SNMP_TrapSwitch_Deregister(int iHandle, const char* pszModule);
void SNMP_TrapSwitch_Fini(int iHandle);
// Operator side: writes the persistent switch of the module; 0 on success.
uint32_t SNMP_TrapSwitch_Write(const char* pszModule, uint64_t ulState);

#endif  // PLAT_TRAPSWITCH_H
