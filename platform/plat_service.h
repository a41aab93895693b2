// Service manager.
#ifndef PLAT_SERVICE_H
#define PLAT_SERVICE_H

#include <cstdint>

constexpr uint32_t SERVICE_STATUS_READY = 2;

// Reports a status to the service manager; 0 on success.
uint32_t SERVICE_SetStatus(uint32_t uiStatus);

#endif  // PLAT_SERVICE_H
