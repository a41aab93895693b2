// Service manager on Linux: systemd's readiness notification. Called once, on
// the main thread, as the last start-up step.
#include <systemd/sd-daemon.h>

#include "plat_service.h"

namespace {
constexpr uint32_t SERVICE_FAILED = 1;
}  // namespace

uint32_t SERVICE_SetStatus(uint32_t uiStatus) {
    if (uiStatus != SERVICE_STATUS_READY) {
        return SERVICE_FAILED;
    }
    // Without NOTIFY_SOCKET (started by hand, Type=simple) sd_notify returns 0
    // and there is nobody to tell: that is not a failure.
    return sd_notify(0, "READY=1") < 0 ? SERVICE_FAILED : 0;
}
