// Fake memory-alert service. The descriptor is a semaphore eventfd: each
// announcement adds one, each MEM_Alert_Read takes one and the next state.
#include "fake_memalert.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <deque>
#include <mutex>

#include "plat_memalert.h"

namespace {
std::mutex g_stLock;
int g_iFd = -1;
uint32_t g_uiCurrent = MEM_STATE_NORMAL;
std::deque<uint32_t> g_auiQueued;
bool g_bFailInit = false, g_bFailRead = false;
uint32_t g_uiFiniCount = 0;
}  // namespace

void FAKE_MEMALERT_Reset(void) {
    std::lock_guard guard(g_stLock);
    if (g_iFd >= 0) {
        close(g_iFd);
    }
    g_iFd = -1;
    g_uiCurrent = MEM_STATE_NORMAL;
    g_auiQueued.clear();
    g_bFailInit = g_bFailRead = false;
    g_uiFiniCount = 0;
}

void FAKE_MEMALERT_SetCurrentState(uint32_t uiState) {
    std::lock_guard guard(g_stLock);
    g_uiCurrent = uiState;
}

void FAKE_MEMALERT_Announce(uint32_t uiState) {
    std::lock_guard guard(g_stLock);
    g_uiCurrent = uiState;
    g_auiQueued.push_back(uiState);
    if (g_iFd >= 0) {
        uint64_t ulOne = 1;
        (void)!write(g_iFd, &ulOne, sizeof(ulOne));
    }
}

void FAKE_MEMALERT_FailInit(bool bFail) {
    std::lock_guard guard(g_stLock);
    g_bFailInit = bFail;
}

void FAKE_MEMALERT_FailRead(bool bFail) {
    std::lock_guard guard(g_stLock);
    g_bFailRead = bFail;
}

int FAKE_MEMALERT_Fd(void) {
    std::lock_guard guard(g_stLock);
    return g_iFd;
}

uint32_t FAKE_MEMALERT_FiniCount(void) {
    std::lock_guard guard(g_stLock);
    return g_uiFiniCount;
}

int MEM_Alert_Init(uint32_t uiFlags) {
    std::lock_guard guard(g_stLock);
    if (g_bFailInit) {
        return -1;
    }
    if (g_iFd < 0) {
        g_iFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
    }
    return g_iFd;
}

uint32_t Mem_Alert_GetCurrentState(void) {
    std::lock_guard guard(g_stLock);
    return g_uiCurrent;
}

uint32_t MEM_Alert_Read(int iFd, uint32_t* puiState) {
    std::lock_guard guard(g_stLock);
    uint64_t ulValue = 0;
    if (iFd != g_iFd || read(iFd, &ulValue, sizeof(ulValue)) != sizeof(ulValue)) {
        return 1;
    }
    uint32_t uiState = g_auiQueued.empty() ? MEM_STATE_NO_CHANGE : g_auiQueued.front();
    if (!g_auiQueued.empty()) {
        g_auiQueued.pop_front();
    }
    if (g_bFailRead) {
        return 1;
    }
    *puiState = uiState;
    return 0;
}

void MEM_Alert_Fini(int iFd) {
    std::lock_guard guard(g_stLock);
    ++g_uiFiniCount;
    if (iFd >= 0 && iFd == g_iFd) {
        close(g_iFd);
        g_iFd = -1;
    }
}
