// The trap flag: 1 while notifications may be sent, 0 while the agent's trap
// switch for "event-mib" is off. Written by the channel's trap-switch handler
// on the main thread, read by the notification senders on the worker; every
// access takes the trap-switch mutex, a leaf lock under which nothing else
// is taken.
#include <pthread.h>

#include "mte_tarn_priv.h"
#include "mte_trapflag.h"

namespace {

pthread_mutex_t g_stTarnTrapSwtMutex = PTHREAD_MUTEX_INITIALIZER;
uint16_t g_usTarnTrapFlag = 1;  // guarded by g_stTarnTrapSwtMutex

}  // namespace

void mte_tarn_SetTrapFlag(uint16_t usFlag) {
    mte_tarn_TrapSwtLock();
    g_usTarnTrapFlag = usFlag;
    mte_tarn_TrapSwtUnLock();
}

uint16_t mte_TARN_TrapSwt(void) {
    mte_tarn_TrapSwtLock();
    uint16_t usFlag = g_usTarnTrapFlag;
    mte_tarn_TrapSwtUnLock();
    return usFlag;
}

void mte_tarn_TrapSwtLock(void) {
    pthread_mutex_lock(&g_stTarnTrapSwtMutex);
}

void mte_tarn_TrapSwtUnLock(void) {
    pthread_mutex_unlock(&g_stTarnTrapSwtMutex);
}
