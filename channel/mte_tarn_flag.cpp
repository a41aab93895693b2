// The trap flag: 1 while notifications may be sent, 0 while the agent's trap
// switch for "event-mib" is off. Written by the channel's trap-switch handler
// on the main thread, read by the notification senders on the worker; every
// access takes the trap-switch mutex, a leaf lock under which nothing else
// is taken.
#include <pthread.h>

#include "mte_lock_guard.h"
#include "mte_tarn_priv.h"
#include "mte_trapflag.h"

namespace {

pthread_mutex_t g_stTarnTrapSwtMutex = PTHREAD_MUTEX_INITIALIZER;
uint16_t g_usTarnTrapFlag = 1;  // guarded by g_stTarnTrapSwtMutex

}  // namespace

void mte_tarn_SetTrapFlag(uint16_t usFlag) {
    MTE_LOCK_GUARD stGuard(mte_tarn_TrapSwtLock, mte_tarn_TrapSwtUnLock);
    g_usTarnTrapFlag = usFlag;
}

uint16_t mte_TARN_TrapSwt(void) {
    MTE_LOCK_GUARD stGuard(mte_tarn_TrapSwtLock, mte_tarn_TrapSwtUnLock);
    return g_usTarnTrapFlag;
}

void mte_tarn_TrapSwtLock(void) {
    pthread_mutex_lock(&g_stTarnTrapSwtMutex);
}

void mte_tarn_TrapSwtUnLock(void) {
    pthread_mutex_unlock(&g_stTarnTrapSwtMutex);
}
