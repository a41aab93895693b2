// Fake timer set (see fake_timer.h).
#include "fake_timer.h"

#include <cstring>
#include <map>
#include <mutex>

#include "plat_timer.h"

namespace {

struct FAKE_TIMER_S {
    uint32_t uiPeriod;
    uint32_t uiRunning;
    TIMER_CALLBACK_PF pfCallback;
    unsigned char aucContext[TIMER_CONTEXT_SIZE];
};

std::mutex g_stLock;
std::vector<FAKE_TIMER_CALL_S> g_astCalls;
std::map<int64_t, FAKE_TIMER_S> g_mapTimers;
std::vector<uint32_t> g_auiInitArgs;
int64_t g_llNextId = 1;
uint64_t g_ullSkipped = 0;
bool g_bFailInit = false, g_bFailConfig = false, g_bFailCreate = false;
constexpr uint64_t FAKE_SET = 0x5e7;

void Record(const char* pszName, int64_t llId, uint32_t uiArg, uint32_t uiPeriod) {
    g_astCalls.push_back({pszName, llId, uiArg, uiPeriod});
}

}  // namespace

void FAKE_TIMER_Reset(void) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    g_astCalls.clear();
    g_mapTimers.clear();
    g_auiInitArgs.clear();
    g_llNextId = 1;
    g_ullSkipped = 0;
    g_bFailInit = g_bFailConfig = g_bFailCreate = false;
}

std::vector<FAKE_TIMER_CALL_S> FAKE_TIMER_Calls(void) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    return g_astCalls;
}

std::vector<FAKE_TIMER_CALL_S> FAKE_TIMER_CallsOf(const std::string& strName) {
    std::vector<FAKE_TIMER_CALL_S> astOut;
    for (const auto& stCall : FAKE_TIMER_Calls()) {
        if (stCall.strName == strName) {
            astOut.push_back(stCall);
        }
    }
    return astOut;
}

std::vector<uint32_t> FAKE_TIMER_InitArgs(void) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    return g_auiInitArgs;
}

void FAKE_TIMER_FailInit(bool bFail) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    g_bFailInit = bFail;
}

void FAKE_TIMER_FailConfig(bool bFail) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    g_bFailConfig = bFail;
}

void FAKE_TIMER_FailCreate(bool bFail) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    g_bFailCreate = bFail;
}

bool FAKE_TIMER_Get(int64_t llId, uint32_t* puiPeriod, uint32_t* puiRunning) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    auto it = g_mapTimers.find(llId);
    if (it == g_mapTimers.end()) {
        return false;
    }
    *puiPeriod = it->second.uiPeriod;
    *puiRunning = it->second.uiRunning;
    return true;
}

uint32_t FAKE_TIMER_Count(void) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    return static_cast<uint32_t>(g_mapTimers.size());
}

bool FAKE_TIMER_Expire(int64_t llId) {
    TIMER_CALLBACK_PF pfCallback = nullptr;
    unsigned char aucContext[TIMER_CONTEXT_SIZE];
    {
        std::lock_guard<std::mutex> stGuard(g_stLock);
        auto it = g_mapTimers.find(llId);
        if (it == g_mapTimers.end()) {
            return false;
        }
        pfCallback = it->second.pfCallback;
        memcpy(aucContext, it->second.aucContext, sizeof(aucContext));
    }
    pfCallback(aucContext);
    return true;
}

uint64_t Timer_Initialize(uint32_t uiMaxTimers, uint32_t uiTickMs, uint32_t uiArg3,
                          uint32_t uiArg4) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("Initialize", 0, 0, 0);
    g_auiInitArgs = {uiMaxTimers, uiTickMs, uiArg3, uiArg4};
    return g_bFailInit ? 0 : FAKE_SET;
}

uint32_t Timer_Config(uint64_t ulSet, uint32_t uiOn) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("Config", 0, uiOn, 0);
    return g_bFailConfig ? 1 : 0;
}

int64_t Timer_Create(uint64_t ulSet, uint32_t uiType, uint32_t uiPeriodMs,
                     TIMER_CALLBACK_PF pfCallback, const void* pContext) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("Create", 0, uiPeriodMs, 0);
    if (g_bFailCreate || ulSet != FAKE_SET) {
        return -1;
    }
    FAKE_TIMER_S stTimer{uiPeriodMs, 1, pfCallback, {}};
    memcpy(stTimer.aucContext, pContext, TIMER_CONTEXT_SIZE);
    int64_t llId = g_llNextId++;
    g_mapTimers[llId] = stTimer;
    return llId;
}

uint32_t Timer_SetStatus(uint64_t ulSet, int64_t llId, uint32_t uiStatus, uint32_t uiPeriodMs) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("SetStatus", llId, uiStatus, uiPeriodMs);
    auto it = g_mapTimers.find(llId);
    if (ulSet != FAKE_SET || it == g_mapTimers.end()) {
        return 1;
    }
    if (uiStatus == TIMER_STATUS_RESTART) {
        it->second.uiPeriod = uiPeriodMs;
        it->second.uiRunning = 1;
    } else if (uiStatus != TIMER_STATUS_EXPIRE) {
        it->second.uiRunning = uiStatus == TIMER_STATUS_ACTIVE ? 1 : 0;
    }
    return 0;
}

uint32_t Timer_Delete(uint64_t ulSet, int64_t llId) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("Delete", llId, 0, 0);
    return g_mapTimers.erase(llId) == 1 ? 0 : 1;
}

void Timer_Finalize(uint64_t ulSet) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("Finalize", 0, 0, 0);
    g_mapTimers.clear();
}

void Timer_Tick_Announce(uint64_t ulSet) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("Tick", 0, 0, 0);
}

// The gate and the hold-back are the real set's business: the fake fires
// only what a test asks for; a test sets the skipped count it reports.
void Timer_SetGate(uint64_t ulSet, TIMER_GATE_PF pfGate) {}

uint32_t Timer_Fire_Due(uint64_t ulSet) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    Record("FireDue", 0, 0, 0);
    return 0;
}

uint64_t Timer_Skipped(uint64_t ulSet) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    return g_ullSkipped;
}

void FAKE_TIMER_SetSkipped(uint64_t ullSkipped) {
    std::lock_guard<std::mutex> stGuard(g_stLock);
    g_ullSkipped = ullSkipped;
}
