// Port-service events of the SNMP agent.
#ifndef PLAT_PORT_H
#define PLAT_PORT_H

#include <cstdint>

struct SERVICE_PORT_SUB_S {
    uint32_t uiType;      // 1
    uint32_t uiReserved;  // 0
    uint16_t usService;   // 629
    uint16_t usFlags;     // 0x8000
};
static_assert(sizeof(SERVICE_PORT_SUB_S) == 12);

struct SERVICE_PORT_EVENT_S {
    uint32_t uiReserved0;
    uint32_t uiPortStatus;  // 1 up, 2 down
    uint32_t uiReserved1;
};
static_assert(sizeof(SERVICE_PORT_EVENT_S) == 12);

constexpr uint32_t SERVICE_PORT_UP = 1;
constexpr uint32_t SERVICE_PORT_DOWN = 2;

// A descriptor that becomes readable when the port status changes, or negative.
int SubscribeServicePortEvent(uint32_t uiType, const SERVICE_PORT_SUB_S* pstSub);
// Reads one event; 0 on success.
uint32_t RecvServicePortEvent(int iFd, SERVICE_PORT_EVENT_S* pstEvent);

#endif  // PLAT_PORT_H
