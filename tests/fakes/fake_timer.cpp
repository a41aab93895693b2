// Fake timer set (see fake_timer.h).
#include "fake_timer.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "plat_timer.h"

namespace {
struct FAKE_TIMER_S {
    TIMER_CALLBACK_PF pfCallback;
    unsigned char aucContext[TIMER_CONTEXT_SIZE];
};

std::mutex g_stLock;
std::vector<std::string> g_astCalls;
std::map<int64_t, FAKE_TIMER_S> g_mapTimers;
std::set<std::string> g_setFailing;
int64_t g_llNextId = 1;
uint64_t g_ullSkipped = 0;
constexpr uint64_t FAKE_SET = 0x5e7;

// Records the call (under the lock); true when the test made it fail.
template <typename... ARGS>
bool Record(const std::string& strName, ARGS... args) {
    std::string strCall = strName;
    ((strCall += " " + std::to_string(args)), ...);
    g_astCalls.push_back(strCall);
    return g_setFailing.count(strName) != 0;
}
}  // namespace

void FAKE_TIMER_Reset(void) {
    std::lock_guard stGuard(g_stLock);
    g_astCalls.clear();
    g_mapTimers.clear();
    g_setFailing.clear();
    g_llNextId = 1;
    g_ullSkipped = 0;
}

std::vector<std::string> FAKE_TIMER_Calls(void) {
    std::lock_guard stGuard(g_stLock);
    return g_astCalls;
}

size_t FAKE_TIMER_CallCount(const std::string& strPrefix) {
    const std::vector<std::string> astCalls = FAKE_TIMER_Calls();
    return std::count_if(astCalls.begin(), astCalls.end(), [&](const std::string& strCall) {
        return strCall.rfind(strPrefix, 0) == 0;
    });
}

void FAKE_TIMER_Fail(const std::string& strCall, bool bFail) {
    std::lock_guard stGuard(g_stLock);
    g_setFailing.erase(strCall);
    if (bFail) {
        g_setFailing.insert(strCall);
    }
}

bool FAKE_TIMER_Expire(int64_t llId) {
    FAKE_TIMER_S stTimer;
    {
        std::lock_guard stGuard(g_stLock);
        auto it = g_mapTimers.find(llId);
        if (it == g_mapTimers.end()) {
            return false;
        }
        stTimer = it->second;
    }
    stTimer.pfCallback(stTimer.aucContext);
    return true;
}

void FAKE_TIMER_SetSkipped(uint64_t ullSkipped) {
    std::lock_guard stGuard(g_stLock);
    g_ullSkipped = ullSkipped;
}

uint64_t Timer_Initialize(uint32_t uiMaxTimers, uint32_t uiTickMs, uint32_t uiArg3,
                          uint32_t uiArg4) {
    std::lock_guard stGuard(g_stLock);
    return Record("Initialize", uiMaxTimers, uiTickMs, uiArg3, uiArg4) ? 0 : FAKE_SET;
}

uint32_t Timer_Config(uint64_t, uint32_t uiOn) {
    std::lock_guard stGuard(g_stLock);
    return Record("Config", uiOn) ? 1 : 0;
}

int64_t Timer_Create(uint64_t ulSet, uint32_t, uint32_t uiPeriodMs, TIMER_CALLBACK_PF pfCallback,
                     const void* pContext) {
    std::lock_guard stGuard(g_stLock);
    if (Record("Create", uiPeriodMs) || ulSet != FAKE_SET) {
        return -1;
    }
    FAKE_TIMER_S& stTimer = g_mapTimers[g_llNextId];
    stTimer = {pfCallback, {}};
    memcpy(stTimer.aucContext, pContext, TIMER_CONTEXT_SIZE);
    return g_llNextId++;
}

uint32_t Timer_SetStatus(uint64_t ulSet, int64_t llId, uint32_t uiStatus, uint32_t uiPeriodMs) {
    std::lock_guard stGuard(g_stLock);
    Record("SetStatus", llId, uiStatus, uiPeriodMs);
    return ulSet != FAKE_SET || g_mapTimers.count(llId) == 0 ? 1 : 0;
}

uint32_t Timer_Delete(uint64_t, int64_t llId) {
    std::lock_guard stGuard(g_stLock);
    Record("Delete", llId);
    return g_mapTimers.erase(llId) == 1 ? 0 : 1;
}

void Timer_Finalize(uint64_t) {
    std::lock_guard stGuard(g_stLock);
    Record("Finalize");
    g_mapTimers.clear();
}

void Timer_Tick_Announce(uint64_t) {
    std::lock_guard stGuard(g_stLock);
    Record("Tick");
}

// The gate and the hold-back are the real set's business: the fake fires
// only what a test asks for.
void Timer_SetGate(uint64_t, TIMER_GATE_PF) {}

uint32_t Timer_Fire_Due(uint64_t) {
    std::lock_guard stGuard(g_stLock);
    Record("FireDue");
    return 0;
}

uint64_t Timer_Skipped(uint64_t) {
    std::lock_guard stGuard(g_stLock);
    return g_ullSkipped;
}
