// Placeholder definitions: replaced by the module's implementation.
#include "plat_service.h"

uint32_t SERVICE_SetStatus(uint32_t uiStatus) { return {}; }
