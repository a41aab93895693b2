// List locks of the objects and event tables, private to event/: the lock
// with its life cycle, and a scoped holder that takes and releases it through
// the module's own wrappers so that every lock operation goes through one
// place.
#ifndef MTE_LIST_GUARD_H
#define MTE_LIST_GUARD_H

#include <pthread.h>

#include "mte_types.h"

// Initialised statically so that it is usable before the module's Init;
// Destroy (the module's Fini) undoes it and Ready (Init) makes it again, so
// the module can be finalised and initialised any number of times.
struct MTE_LIST_LOCK_S {
    pthread_rwlock_t stLock = PTHREAD_RWLOCK_INITIALIZER;
    bool bReady = true;

    uint32_t Ready() {
        if (!bReady) {
            if (pthread_rwlock_init(&stLock, nullptr) != 0) {
                return MTE_ERR_GENERAL;
            }
            bReady = true;
        }
        return MTE_OK;
    }
    void Destroy() {
        if (bReady) {
            pthread_rwlock_destroy(&stLock);
            bReady = false;
        }
    }
    void RdLock() { pthread_rwlock_rdlock(&stLock); }
    void WrLock() { pthread_rwlock_wrlock(&stLock); }
    void UnLock() { pthread_rwlock_unlock(&stLock); }
};

template <void (*pfLock)(void), void (*pfUnlock)(void)>
class MTE_LIST_GUARD {
  public:
    MTE_LIST_GUARD() { pfLock(); }
    ~MTE_LIST_GUARD() { pfUnlock(); }
    MTE_LIST_GUARD(const MTE_LIST_GUARD&) = delete;
    MTE_LIST_GUARD& operator=(const MTE_LIST_GUARD&) = delete;
};

#endif  // MTE_LIST_GUARD_H
