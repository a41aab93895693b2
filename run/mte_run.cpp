// Sampling worker and its request queue.
//
// The main thread decides when a trigger is due and writes the trigger's
// address to the queue "mteMsgQue"; the worker thread takes triggers from it
// one at a time and samples them (mte_sampler.cpp), so the main thread never
// waits for the SNMP agent. A trigger's run state (uiRunState) tells both
// threads who holds it and carries the main thread's requests to the worker:
// drop the cycle (2), free the trigger (3), restart it (5). A control eventfd
// lets the main thread ask for a drain (answered on the timer module's notify
// eventfd) or for the thread's exit.
//
// Threads: mte_RUN_Init / mte_RUN_Fini / mte_RUN_ProcTimer /
// mte_RUN_TriggerEnable / mte_RUN_TriggerDisable on the main thread; the two
// epoll handlers on the worker; mte_RUN_Sample4AtOnce on either.
// Locks: one trigger's stStateLock at a time, never across an SNMP request;
// under it only the leaf locks of the debug and trap switches are taken.
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "mte_conv.h"
#include "mte_dbg.h"
#include "mte_epoll_set.h"
#include "mte_run_int.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "mte_trap.h"
#include "mte_trigger.h"
#include "plat_queue.h"
#include "plat_snmp.h"

namespace {

constexpr const char* RUN_QUEUE_NAME = "mteMsgQue";
constexpr int RUN_EPOLL_MAX_EVENTS = 2;

// The worker epoll set: the queue and the control descriptor, each with its
// handler. Registrations change only while the worker thread is not running
// (before it starts, after it is joined).
MTE_EPOLL_SET_S g_stRunEpoll = MTE_EPOLL_SET_INIT;
int g_iRunCtrlFd = -1;
uint32_t g_uiRunQueue = QUEUE_INVALID;
pthread_t g_stRunThread{};
bool g_bRunThreadMade = false;
// True while the worker thread runs its loop: only then is there anybody to
// answer a drain request.
std::atomic<bool> g_bRunWorkerAlive{false};
// Worker thread only: set by the control handler, read by the loop.
bool g_bRunExit = false;
// Messages waiting in the queue, counted beside it so that the timers can
// hold back what it has no room for (mte_run_TimerGate).
std::atomic<uint32_t> g_uiRunQueued{0};
// Set by the main thread when it held timers back for lack of room; the
// worker clears it and wakes the main thread once the queue has drained.
std::atomic<bool> g_bRunRoomWanted{false};

bool mte_run_HasRoom(void) {
    return g_uiRunQueued.load() < MTE_RUN_TIMER_ROOM;
}

// Asks for a wake-up when room is back, then looks again: a worker that
// drained the queue between the two looks is then seen, not missed.
bool mte_run_WantRoom(void) {
    g_bRunRoomWanted.store(true);
    return mte_run_HasRoom();
}

// A message left the queue (read by the worker, drained or dropped).
void mte_run_Taken(void) {
    uint32_t uiLeft = g_uiRunQueued.fetch_sub(1) - 1;
    if (uiLeft <= MTE_RUN_ROOM_LOW && g_bRunRoomWanted.load() && g_bRunRoomWanted.exchange(false)) {
        mte_timer_RoomFreed();
    }
}

bool mte_run_ReadQueue(MTE_QUEUE_MSG_S* pstMsg) {
    if (g_uiRunQueue == QUEUE_INVALID || QUEUE_Read(g_uiRunQueue, 1, 0, pstMsg) != 0) {
        return false;
    }
    mte_run_Taken();
    return true;
}

// No room for a sample taken at once (port-up, activation, restart): the
// trigger's timer falls due now instead, and the timer set fires it as soon
// as the worker has made room, rather than at its next expiry.
void mte_run_DeferAtOnce(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    (void)mte_run_WantRoom();
    (void)mte_timer_ExpireNow(pstTrigger->llTimerId);
}

// Queue for sampling; the caller holds the lock and the state is idle.
uint32_t mte_run_Enqueue(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (!mte_run_IsWildcard(pstTrigger) && pstTrigger->usInstanceReleased == 1) {
        uint32_t uiResult = mte_SCALAR_CurInstanceInc();
        if (uiResult != MTE_OK) {
            mte_SCALAR_InstanceLacksInc();
            mte_run_ReportFailure(pstTrigger, &pstTrigger->stRow.stValueID,
                                  pstTrigger->stRow.szContextName, MTE_REASON_LOCAL_RESOURCE_LACK);
            return uiResult;
        }
        pstTrigger->usInstanceReleased = 0;
    }
    uint32_t uiResult = mte_run_WriteQueue(pstTrigger);
    if (uiResult != MTE_OK) {
        return uiResult;
    }
    pstTrigger->uiRunState = MTE_RUN_BUSY;
    return MTE_OK;
}

// Drain: every queued trigger goes back to idle (or is freed when it was
// destroyed meanwhile); the cycles under way are dropped.
void mte_run_Drain(void) {
    MTE_QUEUE_MSG_S stMsg{};
    while (mte_run_ReadQueue(&stMsg)) {
        MTE_TRIGGER_ENTRY_S* pstTrigger = stMsg.pstTrigger;
        if (pstTrigger == nullptr) {
            continue;
        }
        bool bDeleted;
        {
            MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstTrigger);
            bDeleted = pstTrigger->uiRunState == MTE_RUN_DELETED;
            if (!bDeleted) {
                mte_run_DropCycle(pstTrigger);
            }
            pstTrigger->uiRunState = MTE_RUN_IDLE;
        }
        if (bDeleted) {
            mte_run_FreeTrigger(pstTrigger);
        }
    }
    // Every cycle is dropped: nothing the client read ahead may outlive them.
    SNMP_EndWalk(nullptr);
}

// Takes one message; false when the queue is empty.
bool mte_run_HandleOneMsg(void) {
    MTE_QUEUE_MSG_S stMsg{};
    if (!mte_run_ReadQueue(&stMsg)) {
        return false;
    }
    MTE_TRIGGER_ENTRY_S* pstTrigger = stMsg.pstTrigger;
    if (pstTrigger == nullptr) {
        return true;
    }
    bool bBusy;
    bool bDeleted = false;
    MTE_RUN_CFG_S stCfg;
    {
        MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstTrigger);
        bBusy = pstTrigger->uiRunState == MTE_RUN_BUSY;
        if (bBusy) {
            mte_run_Snapshot(pstTrigger, &stCfg);
        } else {
            bDeleted = mte_run_TakeOver(pstTrigger);
        }
    }
    if (bBusy) {
        mte_run_SampleStep(pstTrigger, &stCfg);  // the agent is asked without the lock
        return true;
    }
    // The cycle under way, if any, is over: so is what the client read ahead.
    SNMP_EndWalk(pstTrigger);
    if (bDeleted) {
        mte_run_FreeTrigger(pstTrigger);
    }
    return true;
}

void mte_run_QueueProc(uint32_t uiEvents, int iFd) {
    if ((uiEvents & EPOLLIN) != 0) {
        (void)mte_run_HandleOneMsg();
    }
}

void* mte_run_WorkerMain(void*) {
    sigset_t stSet;
    sigemptyset(&stSet);
    sigaddset(&stSet, SIGRTMIN + 1);
    if (pthread_sigmask(SIG_BLOCK, &stSet, nullptr) != 0) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_SIGMASK_FAILED, "%s", "pthread_sigmask execute failed.");
    }
    g_bRunExit = false;
    epoll_event astEvents[RUN_EPOLL_MAX_EVENTS];
    while (!g_bRunExit) {
        int iReady = epoll_wait(g_stRunEpoll.iEpollFd, astEvents, RUN_EPOLL_MAX_EVENTS, -1);
        if (iReady < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        // One record at a time: an exit request ends the thread before the
        // next record of the same batch is served.
        for (int i = 0; i < iReady && !g_bRunExit; ++i) {
            mte_EPSET_Dispatch(&g_stRunEpoll, &astEvents[i], 1);
        }
    }
    g_bRunWorkerAlive.store(false);
    return nullptr;
}

// Sets everything up but the thread; mte_RUN_Init adds the thread.
uint32_t mte_run_Setup(void) {
    if (mte_run_EpollInit() != MTE_OK) {
        return MTE_ERR_GENERAL;
    }
    g_uiRunQueue = QUEUE_Create(RUN_QUEUE_NAME, MTE_QUEUE_DEPTH);
    if (g_uiRunQueue == QUEUE_INVALID) {
        return MTE_ERR_GENERAL;
    }
    if (mte_run_EPOLLAdd(static_cast<int>(g_uiRunQueue), mte_run_QueueProc) != MTE_OK) {
        QUEUE_Delete(g_uiRunQueue, 0);
        g_uiRunQueue = QUEUE_INVALID;
        return MTE_ERR_GENERAL;
    }
    g_iRunCtrlFd = eventfd(0, 0);
    if (g_iRunCtrlFd < 0) {
        return MTE_ERR_GENERAL;
    }
    if (mte_run_EPOLLAdd(g_iRunCtrlFd, mte_run_CtrlProc) != MTE_OK) {
        close(g_iRunCtrlFd);
        g_iRunCtrlFd = -1;
        return MTE_ERR_GENERAL;
    }
    return MTE_OK;
}

}  // namespace

// The trigger leaves the worker for good: nothing refers to it any more.
// Its lists were cleared when it was destroyed; freeing them again costs
// nothing and keeps a late sample from leaking.
void mte_run_FreeTrigger(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_RUN_FreeResList(&pstTrigger->pstCurSamples, &pstTrigger->pstCurSamplesTail);
    mte_RUN_FreeResList(&pstTrigger->pstPrevSamples, &pstTrigger->pstPrevSamplesTail);
    mte_TRIGGER_FreeNode(pstTrigger);
}

uint32_t mte_run_WriteQueue(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (g_uiRunQueue == QUEUE_INVALID) {
        return MTE_ERR_GENERAL;
    }
    MTE_QUEUE_MSG_S stMsg{0, pstTrigger};
    // Counted before the write: the worker may read the message at once.
    g_uiRunQueued.fetch_add(1);
    uint32_t uiResult = QUEUE_Write(g_uiRunQueue, 1, 0, &stMsg);
    if (uiResult != 0) {
        g_uiRunQueued.fetch_sub(1);
    }
    return uiResult;
}

int mte_run_TimerGate(void) {
    return mte_run_HasRoom() || mte_run_WantRoom() ? 1 : 0;
}

bool mte_run_TakeOver(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    switch (pstTrigger->uiRunState) {
        case MTE_RUN_CANCELLED:
            mte_run_DropCycle(pstTrigger);
            pstTrigger->uiRunState = MTE_RUN_IDLE;
            return false;
        case MTE_RUN_DELETED:
            return true;
        case MTE_RUN_RESTART:
            mte_run_DropCycle(pstTrigger);
            pstTrigger->uiRunState = MTE_RUN_IDLE;
            (void)mte_TIMER_Active(pstTrigger->llTimerId);
            (void)mte_TIMER_Refresh(pstTrigger->llTimerId, pstTrigger->stRow.uiFrequency);
            (void)mte_RUN_Sample4AtOnce(pstTrigger);
            return false;
        default:
            return false;
    }
}

void mte_run_CtrlProc(uint32_t uiEvents, int iFd) {
    if ((uiEvents & EPOLLIN) == 0) {
        return;
    }
    eventfd_t ulWord = 0;
    if (eventfd_read(iFd, &ulWord) != 0) {
        return;
    }
    if ((ulWord & MTE_RUN_CTRL_DRAIN) != 0) {
        mte_run_Drain();
        (void)eventfd_write(mte_GetNotifyEvtFd(), 1);
    }
    if ((ulWord & MTE_RUN_CTRL_EXIT) != 0) {
        g_bRunExit = true;
    }
}

uint32_t mte_run_PumpQueue(uint32_t uiMax) {
    uint32_t uiCount = 0;
    while (uiCount < uiMax && mte_run_HandleOneMsg()) {
        ++uiCount;
    }
    return uiCount;
}

uint32_t mte_run_InitWithoutThread(void) {
    if (mte_run_Setup() != MTE_OK) {
        mte_RUN_Fini();
        return MTE_ERR_GENERAL;
    }
    return MTE_OK;
}

uint32_t mte_RUN_Init(void) {
    if (mte_run_Setup() != MTE_OK) {
        mte_RUN_Fini();
        return MTE_ERR_GENERAL;
    }
    g_bRunWorkerAlive.store(true);
    if (pthread_create(&g_stRunThread, nullptr, mte_run_WorkerMain, nullptr) != 0) {
        g_bRunWorkerAlive.store(false);
        mte_RUN_Fini();
        return MTE_ERR_GENERAL;
    }
    g_bRunThreadMade = true;
    // Without the relay queue notifications are still sent, only not held
    // while the bridge is away; that is no reason to refuse to start.
    (void)mte_TRAP_RelayInit();
    return MTE_OK;
}

// Messages still queued are dropped without touching their triggers, as
// they are: the trigger table is torn down after this. (A trigger destroyed
// while queued is out of the table and would be the worker's to free; at
// shutdown it goes with the process.)
// Messages still queued are dropped without touching their triggers: the
// trigger table, torn down after this, frees every trigger it holds. A
// destroyed trigger is no longer in the table, so its last message is the
// only thing left that refers to it and the worker owes it its free. The
// worker has been joined, so nothing else looks at the run states now.
static void mte_run_DropQueued(void) {
    MTE_QUEUE_MSG_S stMsg{};
    while (mte_run_ReadQueue(&stMsg)) {
        MTE_TRIGGER_ENTRY_S* pstTrigger = stMsg.pstTrigger;
        if (pstTrigger != nullptr && pstTrigger->uiRunState == MTE_RUN_DELETED) {
            mte_run_FreeTrigger(pstTrigger);
        }
    }
}

void mte_RUN_Fini(void) {
    if (g_stRunEpoll.iEpollFd < 0) {
        return;
    }
    if (g_bRunThreadMade) {
        (void)eventfd_write(g_iRunCtrlFd, MTE_RUN_CTRL_EXIT);
        pthread_join(g_stRunThread, nullptr);
        g_bRunThreadMade = false;
        g_stRunThread = pthread_t{};
    }
    mte_TRAP_RelayFini();
    if (g_iRunCtrlFd >= 0) {
        (void)mte_run_EPOLLDel(g_iRunCtrlFd);
        close(g_iRunCtrlFd);
        g_iRunCtrlFd = -1;
    }
    if (g_uiRunQueue != QUEUE_INVALID) {
        mte_run_DropQueued();
        (void)mte_run_EPOLLDel(static_cast<int>(g_uiRunQueue));
        QUEUE_Delete(g_uiRunQueue, 0);
        g_uiRunQueue = QUEUE_INVALID;
    }
    g_uiRunQueued.store(0);
    g_bRunRoomWanted.store(false);
    mte_EPSET_Destroy(&g_stRunEpoll);
}

bool mte_run_WorkerAlive(void) {
    return g_bRunWorkerAlive.load();
}

int mte_RUN_GetEventFd(void) {
    return g_iRunCtrlFd;
}

uint32_t mte_RUN_ProcTimer(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    uint32_t uiResult = MTE_OK;
    MTE_LOCK_GUARD stGuard = mte_TRIGGER_StateGuard(pstTrigger);
    if (pstTrigger->uiRunState == MTE_RUN_IDLE) {
        // The gate let this timer fire, so the queue refuses it only when
        // walks took the last room meanwhile; the trigger then waits for its
        // next expiry, and the lost sample is counted.
        uiResult = mte_run_Enqueue(pstTrigger);
        if (uiResult == QUEUE_ERR_FULL) {
            mte_timer_CountShortfall(1);
        }
    } else if (pstTrigger->uiRunState == MTE_RUN_BUSY) {
        mte_run_ReportFailure(pstTrigger, &pstTrigger->stRow.stValueID,
                              pstTrigger->stRow.szContextName, MTE_REASON_SAMPLE_OVERRUN);
    }
    return uiResult;
}

uint32_t mte_RUN_Sample4AtOnce(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (mte_TIMER_GetPortFlag() != 1 || pstTrigger->uiRunState != MTE_RUN_IDLE) {
        return MTE_OK;
    }
    if (!mte_run_HasRoom()) {
        mte_run_DeferAtOnce(pstTrigger);
        return QUEUE_ERR_FULL;
    }
    return mte_run_Enqueue(pstTrigger);
}

uint32_t mte_RUN_TriggerEnable(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (mte_TIMER_GetPortFlag() != 1) {
        return MTE_OK;
    }
    if (pstTrigger->llTimerId == -1) {
        return mte_TIMER_Add(pstTrigger);
    }
    return mte_TIMER_Active(pstTrigger->llTimerId);
}

// A trigger without a timer has nothing to suspend; that is no failure, so a
// trigger whose timer could never be made can still be taken out of service.
uint32_t mte_RUN_TriggerDisable(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    if (mte_TIMER_GetPortFlag() != 1 || pstTrigger->llTimerId == -1) {
        return MTE_OK;
    }
    return mte_TIMER_Suspend(pstTrigger->llTimerId);
}

uint32_t mte_run_EpollInit(void) {
    if (g_stRunEpoll.iEpollFd >= 0) {
        return MTE_OK;
    }
    return mte_EPSET_Create(&g_stRunEpoll);
}

uint32_t mte_run_EPOLLAdd(int iFd, MTE_EPOLL_PROC_PF pfHandler) {
    if (g_stRunEpoll.iEpollFd < 0 || mte_EPSET_Add(&g_stRunEpoll, iFd, pfHandler) != 0) {
        return MTE_ERR_GENERAL;
    }
    return MTE_OK;
}

uint32_t mte_run_EPOLLDel(int iFd) {
    if (g_stRunEpoll.iEpollFd < 0 || mte_EPSET_Del(&g_stRunEpoll, iFd) != 0) {
        return MTE_ERR_GENERAL;
    }
    return MTE_OK;
}
