// Placeholder definitions: replaced by the module's implementation.
#include "plat_port.h"

int SubscribeServicePortEvent(uint32_t uiType, const SERVICE_PORT_SUB_S* pstSub) { return -1; }
uint32_t RecvServicePortEvent(int iFd, SERVICE_PORT_EVENT_S* pstEvent) { return {}; }
