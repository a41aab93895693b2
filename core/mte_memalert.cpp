// Memory-pressure guard: one flag that follows the platform's memory alerts,
// so that the daemon stops growing (new rows, new sample instances) while the
// memory threshold is exceeded. The alert descriptor and its handler belong to
// the main thread; the flag is written there under its write lock and read by
// both threads under the read lock. The lock is a leaf: nothing else is taken
// while it is held.
#include "mte_memalert.h"

#include <pthread.h>
#include <sys/epoll.h>

#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_lock_guard.h"
#include "mte_types.h"
#include "plat_memalert.h"

namespace {

int g_iMteMemAlertFd = -1;
uint32_t g_uiMteMemFlag = 0;  // 1 = memory threshold exceeded
pthread_rwlock_t g_stMteMemStateLock = PTHREAD_RWLOCK_INITIALIZER;

void mte_mem_SetFlag(uint32_t uiFlag) {
    MTE_LOCK_GUARD stGuard(mte_mem_MemStateWrLock, mte_mem_MemStateUnLock);
    g_uiMteMemFlag = uiFlag;
}

// At start-up the platform's states 1 to 3 all mean "above the threshold".
bool mte_mem_IsExceededAtStart(uint32_t uiState) {
    return uiState >= 1 && uiState <= 3;
}

void mte_mem_CloseSubscription(void) {
    if (g_iMteMemAlertFd != -1) {
        mte_EPOLL_Del(g_iMteMemAlertFd);
        MEM_Alert_Fini(g_iMteMemAlertFd);
        g_iMteMemAlertFd = -1;
    }
}

}  // namespace

void mte_MEMALERT_Proc(uint32_t uiEvents, int iFd) {
    if (uiEvents & EPOLLIN) {
        uint32_t uiState = MEM_STATE_NO_CHANGE;
        if (MEM_Alert_Read(iFd, &uiState) == 0) {
            // Every announcement is traced, also one that repeats the flag.
            if (uiState == MTE_MEM_STATE_EXCEEDED) {
                mte_mem_SetFlag(1);
                mte_DBG_PrintTraceInfo(MTE_TRACE_MEM_EXCEEDED, "%s",
                                       mte_DBG_Text(MTE_TEXT_MEM_EXCEEDED));
            } else if (uiState == MTE_MEM_STATE_NORMAL) {
                mte_mem_SetFlag(0);
                mte_DBG_PrintTraceInfo(MTE_TRACE_MEM_NORMAL, "%s",
                                       mte_DBG_Text(MTE_TEXT_MEM_NORMAL));
            }
        }
    }
    // A broken subscription is not reopened: the flag keeps its last value.
    if (uiEvents & (EPOLLERR | EPOLLHUP)) {
        mte_mem_CloseSubscription();
    }
}

uint32_t mte_MEMALERT_Init(void) {
    int iFd = MEM_Alert_Init(0);
    if (iFd < 0) {
        return MTE_ERR_GENERAL;
    }
    uint32_t uiRet = mte_EPOLL_Add(iFd, mte_MEMALERT_Proc);
    if (uiRet != MTE_OK) {
        MEM_Alert_Fini(iFd);
        return uiRet;
    }
    g_iMteMemAlertFd = iFd;
    // Starts from "normal" also when a test initialises the module again.
    mte_mem_SetFlag(mte_mem_IsExceededAtStart(Mem_Alert_GetCurrentState()) ? 1 : 0);
    return MTE_OK;
}

void mte_MEMALERT_Fini(void) {
    mte_mem_CloseSubscription();
}

uint32_t mte_MEMALERT_GetFlag(void) {
    MTE_LOCK_GUARD stGuard(mte_mem_MemStateRdLock, mte_mem_MemStateUnLock);
    return g_uiMteMemFlag;
}

void mte_mem_MemStateRdLock(void) {
    pthread_rwlock_rdlock(&g_stMteMemStateLock);
}

void mte_mem_MemStateWrLock(void) {
    pthread_rwlock_wrlock(&g_stMteMemStateLock);
}

void mte_mem_MemStateUnLock(void) {
    pthread_rwlock_unlock(&g_stMteMemStateLock);
}
