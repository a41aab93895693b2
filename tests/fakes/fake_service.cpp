// Fake service manager: records status reports in memory, from any thread.
#include "fake_service.h"

#include <mutex>

#include "plat_service.h"

namespace {
std::mutex g_stLock;
std::vector<uint32_t> g_auiStatuses;
uint32_t g_uiResult = 0;
}  // namespace

uint32_t SERVICE_SetStatus(uint32_t uiStatus) {
    std::lock_guard<std::mutex> guard(g_stLock);
    g_auiStatuses.push_back(uiStatus);
    return g_uiResult;
}

std::vector<uint32_t> FAKE_SERVICE_Statuses(void) {
    std::lock_guard<std::mutex> guard(g_stLock);
    return g_auiStatuses;
}

void FAKE_SERVICE_SetResult(uint32_t uiResult) {
    std::lock_guard<std::mutex> guard(g_stLock);
    g_uiResult = uiResult;
}

void FAKE_SERVICE_Clear(void) {
    std::lock_guard<std::mutex> guard(g_stLock);
    g_auiStatuses.clear();
    g_uiResult = 0;
}
