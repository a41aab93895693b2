// Trigger timers: when each trigger is sampled.
//
// One periodic timer per trigger lives in a timer set of the platform, which a
// one-second tick descriptor on the main epoll set advances; an expiry hands
// the trigger to the worker queue (mte_RUN_ProcTimer). The module also keeps
// the port flag that gates all sampling, the notify eventfd on which the
// worker answers a drain request, and the ten-second statistics descriptor.
//
// Thread: main, including the timer callbacks (they run inside
// Timer_Tick_Announce). The worker calls mte_TIMER_Active / mte_TIMER_Refresh
// when it restarts a trigger; the platform timer set accepts that. The port
// flag is written by the main thread and read by both, atomically.
// Locks: none of its own. mte_TIMER_SuspendAll takes trigger state locks only
// through the trigger table's whole-table walks, one at a time.
#include "mte_timer.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>

#include "mte_dbg.h"
#include "mte_epoll_set.h"
#include "mte_run_int.h"
#include "mte_scalar.h"
#include "mte_trigger.h"
#include "plat_timer.h"

namespace {

// Arguments of Timer_Initialize and Timer_Create, passed unchanged.
constexpr uint32_t TIMER_SET_MAX = 5120;
constexpr uint32_t TIMER_SET_TICK_MS = 1000;
constexpr uint32_t TIMER_SET_ARG3 = 128;
constexpr uint32_t TIMER_SET_ARG4 = 16;
constexpr uint32_t TIMER_TYPE_PERIODIC = 1;

constexpr uint32_t TICK_PERIOD_S = 1;
constexpr uint32_t STATS_PERIOD_S = 10;

// The shortfall trace: the first at once, then at most one a minute with the
// count since the last one.
constexpr int64_t SHORTFALL_TRACE_INTERVAL_S = 60;

// Read by the worker too (mte_TIMER_Active / mte_TIMER_Refresh on a restart).
std::atomic<uint64_t> g_ulTimerSet{0};
int g_iTickFd = -1;
int g_iStatsFd = -1;
int g_iNotifyFd = -1;
// Written by the worker when the queue has room again for timers the gate
// held back; its handler fires them on the main thread.
std::atomic<int> g_iRoomFd{-1};
std::atomic<uint16_t> g_usPortFlag{0};

// Main thread only: the timer set's skipped expiries already counted, the
// misses not yet traced, and when the last shortfall trace was written
// (seconds on the monotonic clock, -1 never).
uint64_t g_ullSkippedSeen = 0;
uint32_t g_uiShortfallUntraced = 0;
int64_t g_llShortfallTracedS = -1;

// Timer context handed to Timer_Create: the trigger's address, then zeros.
struct MTE_TIMER_CTX_S {
    MTE_TRIGGER_ENTRY_S* pstTrigger;
    uint8_t aucZero[24];
};
static_assert(sizeof(MTE_TIMER_CTX_S) == TIMER_CONTEXT_SIZE);

// A frequency of 0 would make a timer that never or always expires: it runs
// every second instead. Periods beyond the 32-bit millisecond range saturate.
uint32_t mte_timer_PeriodMs(uint32_t uiFrequency) {
    constexpr uint32_t MAX_SECONDS = UINT32_MAX / 1000;
    if (uiFrequency == 0) {
        uiFrequency = 1;
    }
    return (uiFrequency > MAX_SECONDS ? MAX_SECONDS : uiFrequency) * 1000;
}

void mte_timer_Expire(void* pContext) {
    MTE_TRIGGER_ENTRY_S* pstTrigger = static_cast<MTE_TIMER_CTX_S*>(pContext)->pstTrigger;
    if (pstTrigger != nullptr) {
        (void)mte_RUN_ProcTimer(pstTrigger);
    }
}

// Arms (period in seconds) or disarms (0) a timer descriptor.
uint32_t mte_timer_ArmFd(int iFd, uint32_t uiPeriod) {
    itimerspec stSpec{};
    stSpec.it_value.tv_sec = uiPeriod;
    stSpec.it_interval.tv_sec = uiPeriod;
    return timerfd_settime(iFd, 0, &stSpec, nullptr) == 0 ? MTE_OK : MTE_ERR_GENERAL;
}

// A non-blocking periodic timer descriptor registered with the main epoll set;
// -1 on failure.
int mte_timer_CreateFd(uint32_t uiPeriod, MTE_EPOLL_PROC_PF pfHandler) {
    int iFd = timerfd_create(CLOCK_MONOTONIC, 0);
    if (iFd < 0) {
        return -1;
    }
    if (fcntl(iFd, F_SETFL, O_NONBLOCK) != 0 || mte_timer_ArmFd(iFd, uiPeriod) != MTE_OK ||
        mte_EPOLL_Add(iFd, pfHandler) != MTE_OK) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_TIMER_INTERVAL_FAILED,
                               mte_DBG_TextFormat(MTE_TEXT_TIMER_INTERVAL_FAILED),
                               static_cast<int>(uiPeriod));
        close(iFd);
        return -1;
    }
    return iFd;
}

void mte_timer_CloseFd(int* piFd) {
    if (*piFd >= 0) {
        (void)mte_EPOLL_Del(*piFd);
        close(*piFd);
        *piFd = -1;
    }
}

int64_t mte_timer_NowS(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return stNow.tv_sec;
}

// Takes the expiries the timer set skipped since the last look into the
// statistics, and writes the rate-limited trace.
void mte_timer_TakeShortfall(void) {
    uint64_t ullSkipped = Timer_Skipped(g_ulTimerSet);
    if (ullSkipped > g_ullSkippedSeen) {
        mte_timer_CountShortfall(static_cast<uint32_t>(ullSkipped - g_ullSkippedSeen));
    }
    g_ullSkippedSeen = ullSkipped;
    if (g_uiShortfallUntraced == 0) {
        return;
    }
    int64_t llNow = mte_timer_NowS();
    if (g_llShortfallTracedS >= 0 && llNow - g_llShortfallTracedS < SHORTFALL_TRACE_INTERVAL_S) {
        return;
    }
    mte_DBG_PrintTraceInfo(MTE_TRACE_SAMPLING_SHORTFALL,
                           "Sampling fell behind: %u trigger samples were not taken at their "
                           "frequency (%u in all); the sampling worker cannot keep up.",
                           g_uiShortfallUntraced, mte_SCALAR_GetSamplesMissed());
    g_uiShortfallUntraced = 0;
    g_llShortfallTracedS = llNow;
}

// Several missed seconds are announced as one tick: a trigger that is late is
// sampled once, not once per missed second.
void mte_timer_TickProc(uint32_t uiEvents, int iFd) {
    if ((uiEvents & EPOLLIN) == 0) {
        return;
    }
    uint64_t ulExpirations = 0;
    ssize_t lRead;
    do {
        lRead = read(iFd, &ulExpirations, sizeof(ulExpirations));
    } while (lRead < 0 && errno == EINTR);
    if (lRead <= 0 || g_ulTimerSet == 0) {
        return;
    }
    Timer_Tick_Announce(g_ulTimerSet);
    mte_timer_TakeShortfall();
}

// The worker has made room: fire the timers the gate held back, within the
// second they fell due.
void mte_timer_RoomProc(uint32_t uiEvents, int iFd) {
    if ((uiEvents & EPOLLIN) == 0) {
        return;
    }
    eventfd_t ulValue = 0;
    if (eventfd_read(iFd, &ulValue) != 0 || g_ulTimerSet == 0) {
        return;
    }
    (void)Timer_Fire_Due(g_ulTimerSet);
}

// A non-blocking eventfd on the main epoll set; -1 on failure.
int mte_timer_CreateRoomFd(void) {
    int iFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (iFd < 0) {
        return -1;
    }
    if (mte_EPOLL_Add(iFd, mte_timer_RoomProc) != MTE_OK) {
        close(iFd);
        return -1;
    }
    return iFd;
}

// The port-down never waits for the worker, which may itself be waiting for
// a stalled agent: it writes the drain request and finishes (drops the
// samples) when the answer arrives on the notify descriptor, which is on the
// main epoll set. Until then the port counts as down: a port-up in between
// is remembered and carried out after the samples are dropped, so sampling
// never restarts on samples from before the port went down.
//
// True while a drain request has been written and not yet answered. A second
// request must not be written on top of an unanswered one: the control
// word's values add up, and two drains would read as an exit.
bool g_bDrainPending = false;
// A port-up arrived while the drain was pending.
bool g_bStartWhenDrained = false;

void mte_timer_DrainAnswerProc(uint32_t uiEvents, int iFd) {
    if ((uiEvents & EPOLLIN) == 0) {
        return;
    }
    eventfd_t ulValue = 0;
    if (eventfd_read(iFd, &ulValue) != 0 || !g_bDrainPending) {
        return;
    }
    g_bDrainPending = false;
    mte_TRIGGER_ClearAllSpl();
    if (g_bStartWhenDrained) {
        g_bStartWhenDrained = false;
        g_usPortFlag.store(1);
        (void)mte_TIMER_StartAll();
    }
}

// Asks the worker to drain its queue; true when the answer will come on the
// notify descriptor. Without a running worker there is nobody to answer.
bool mte_timer_RequestDrain(void) {
    if (g_bDrainPending) {
        return true;
    }
    int iCtrlFd = mte_RUN_GetEventFd();
    if (iCtrlFd < 0 || g_iNotifyFd < 0 || !mte_run_WorkerAlive() ||
        eventfd_write(iCtrlFd, MTE_RUN_CTRL_DRAIN) != 0) {
        return false;
    }
    g_bDrainPending = true;
    return true;
}

}  // namespace

uint32_t mte_TIMER_Init(void) {
    uint32_t uiResult = MTE_OK;
    uint64_t ulSet =
        Timer_Initialize(TIMER_SET_MAX, TIMER_SET_TICK_MS, TIMER_SET_ARG3, TIMER_SET_ARG4);
    if (ulSet == 0) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_TIMER_SET_INIT_FAILED, "%s",
                               mte_DBG_Text(MTE_TEXT_TIMER_SET_INIT_FAILED));
        uiResult = MTE_ERR_GENERAL;
    } else {
        int iTickFd = -1;
        if (Timer_Config(ulSet, 1) == 0) {
            iTickFd = mte_timer_CreateFd(TICK_PERIOD_S, mte_timer_TickProc);
        }
        if (iTickFd >= 0) {
            Timer_SetGate(ulSet, mte_run_TimerGate);
            g_ulTimerSet = ulSet;
            g_iTickFd = iTickFd;
            g_ullSkippedSeen = 0;
        } else {
            mte_DBG_PrintTraceInfo(MTE_TRACE_TIMER_FD_FAILED, "%s",
                                   mte_DBG_Text(MTE_TEXT_TIMER_FD_FAILED));
            Timer_Finalize(ulSet);
            uiResult = MTE_ERR_GENERAL;
        }
    }

    if (g_iStatsFd < 0) {
        g_iStatsFd = mte_timer_CreateFd(STATS_PERIOD_S, mte_SCALAR_freshStati2DbmCallBack);
    }
    if (g_iStatsFd < 0) {
        uiResult = MTE_ERR_GENERAL;
    }
    if (g_iRoomFd < 0) {
        g_iRoomFd = mte_timer_CreateRoomFd();
    }
    if (g_iRoomFd < 0) {
        uiResult = MTE_ERR_GENERAL;
    }
    if (uiResult != MTE_OK) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_TIMER_MODULE_INIT_FAILED, "%s",
                               mte_DBG_Text(MTE_TEXT_TIMER_MODULE_INIT_FAILED));
    }

    if (g_iNotifyFd < 0) {
        int iNotifyFd = eventfd(0, EFD_NONBLOCK);
        if (iNotifyFd < 0) {
            return MTE_ERR_GENERAL;
        }
        if (mte_EPOLL_Add(iNotifyFd, mte_timer_DrainAnswerProc) != MTE_OK) {
            close(iNotifyFd);
            return MTE_ERR_GENERAL;
        }
        g_iNotifyFd = iNotifyFd;
    }
    return uiResult;
}

void mte_TIMER_Fini(void) {
    if (g_ulTimerSet != 0) {
        Timer_Finalize(g_ulTimerSet);
        g_ulTimerSet = 0;
    }
    mte_timer_CloseFd(&g_iTickFd);
    mte_timer_CloseFd(&g_iStatsFd);
    // The worker may write the room descriptor at any moment: it is closed
    // only once the worker is gone (at shutdown), never under its hands,
    // and a set made again later uses it as it is.
    if (!mte_run_WorkerAlive()) {
        int iRoomFd = g_iRoomFd.exchange(-1);
        mte_timer_CloseFd(&iRoomFd);
    }
    mte_timer_CloseFd(&g_iNotifyFd);
    g_bDrainPending = false;
    g_bStartWhenDrained = false;
}

// A set that already holds trigger timers is never torn down when it fails
// to restart: the triggers keep their timer ids, and a new set would hand
// out the same ids to other triggers. It is stopped instead, and the next
// port-up tries again. A set made by this very call holds no trigger timer
// yet and is torn down on failure.
uint32_t mte_TIMER_StartAll(void) {
    if (g_bDrainPending) {
        g_bStartWhenDrained = true;
        g_usPortFlag.store(0);
        return MTE_OK;
    }
    uint32_t uiResult = MTE_OK;
    if (g_ulTimerSet != 0) {
        if (Timer_Config(g_ulTimerSet, 1) != 0) {
            uiResult = MTE_ERR_GENERAL;
        }
        if (g_iTickFd >= 0) {
            uiResult |= mte_timer_ArmFd(g_iTickFd, TICK_PERIOD_S);
        }
        if (uiResult != MTE_OK) {
            (void)Timer_Config(g_ulTimerSet, 0);
            if (g_iTickFd >= 0) {
                (void)mte_timer_ArmFd(g_iTickFd, 0);
            }
            return uiResult;
        }
    } else {
        uiResult = g_iTickFd < 0 ? mte_TIMER_Init() : mte_timer_ArmFd(g_iTickFd, TICK_PERIOD_S);
        if (uiResult != MTE_OK) {
            mte_TIMER_Fini();
            return uiResult;
        }
    }
    mte_TRIGGER_StartAll();
    return MTE_OK;
}

uint32_t mte_TIMER_SuspendAll(void) {
    if (g_iTickFd >= 0) {
        (void)mte_timer_ArmFd(g_iTickFd, 0);
    }
    if (g_ulTimerSet != 0) {
        (void)Timer_Config(g_ulTimerSet, 0);
    }
    mte_TRIGGER_SuspendTmr();
    g_bStartWhenDrained = false;
    if (!mte_timer_RequestDrain()) {
        mte_TRIGGER_ClearAllSpl();
    }
    return MTE_OK;
}

bool mte_TIMER_IsDraining(void) {
    return g_bDrainPending;
}

uint32_t mte_TIMER_Add(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    MTE_TIMER_CTX_S stCtx{};
    stCtx.pstTrigger = pstTrigger;
    int64_t llId = -1;
    if (g_ulTimerSet != 0) {
        llId = Timer_Create(g_ulTimerSet, TIMER_TYPE_PERIODIC,
                            mte_timer_PeriodMs(pstTrigger->stRow.uiFrequency), mte_timer_Expire,
                            &stCtx);
    }
    if (llId == -1) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_TIMER_CREATE_FAILED,
                               mte_DBG_TextFormat(MTE_TEXT_TIMER_CREATE_FAILED),
                               pstTrigger->stRow.szOwner, pstTrigger->stRow.szName);
        return MTE_ERR_GENERAL;
    }
    pstTrigger->llTimerId = llId;
    return MTE_OK;
}

// The per-trigger operations refuse quietly while no timer set exists (port
// never up, or torn down after a failed restart): there is no timer to touch.
uint32_t mte_TIMER_Del(int64_t llTimerId) {
    if (g_ulTimerSet == 0 || llTimerId == -1) {
        return MTE_ERR_GENERAL;
    }
    return Timer_Delete(g_ulTimerSet, llTimerId);
}

uint32_t mte_TIMER_Active(int64_t llTimerId) {
    uint64_t ulSet = g_ulTimerSet.load();
    if (ulSet == 0 || llTimerId == -1) {
        return MTE_ERR_GENERAL;
    }
    return Timer_SetStatus(ulSet, llTimerId, TIMER_STATUS_ACTIVE, 0);
}

uint32_t mte_TIMER_Suspend(int64_t llTimerId) {
    if (g_ulTimerSet == 0 || llTimerId == -1) {
        return MTE_ERR_GENERAL;
    }
    return Timer_SetStatus(g_ulTimerSet, llTimerId, TIMER_STATUS_SUSPEND, 0);
}

uint32_t mte_TIMER_Refresh(int64_t llTimerId, uint32_t uiFrequency) {
    if (llTimerId == -1) {
        return MTE_OK;
    }
    uint64_t ulSet = g_ulTimerSet.load();
    if (ulSet == 0) {
        return MTE_ERR_GENERAL;
    }
    return Timer_SetStatus(ulSet, llTimerId, TIMER_STATUS_RESTART, mte_timer_PeriodMs(uiFrequency));
}

void mte_TIMER_SetPortFlag(uint16_t usFlag) {
    g_usPortFlag.store(usFlag);
}

uint16_t mte_TIMER_GetPortFlag(void) {
    return g_usPortFlag.load();
}

int mte_GetNotifyEvtFd(void) {
    return g_iNotifyFd;
}

void mte_timer_RoomFreed(void) {
    int iFd = g_iRoomFd.load();
    if (iFd >= 0) {
        (void)eventfd_write(iFd, 1);
    }
}

void mte_timer_CountShortfall(uint32_t uiMissed) {
    mte_SCALAR_SamplesMissedAdd(uiMissed);
    g_uiShortfallUntraced += uiMissed;
}

uint32_t mte_timer_ExpireNow(int64_t llTimerId) {
    uint64_t ulSet = g_ulTimerSet.load();
    if (ulSet == 0 || llTimerId == -1) {
        return MTE_ERR_GENERAL;
    }
    return Timer_SetStatus(ulSet, llTimerId, TIMER_STATUS_EXPIRE, 0);
}
