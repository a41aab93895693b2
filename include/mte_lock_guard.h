// Locks of the row lists and the one scoped holder for every lock that a
// module takes through its own wrappers (mte_EVENT_ListWrLock,
// mte_OBJ_ListRdLock, ...), so that every lock operation still goes through
// one place and no early return can leave a lock held.
#ifndef MTE_LOCK_GUARD_H
#define MTE_LOCK_GUARD_H

#include <pthread.h>

#include "mte_types.h"

// A list lock with its life cycle. Initialised statically so that it is
// usable before the module's Init; Destroy (the module's Fini) undoes it and
// Ready (Init) makes it again, so the module can be finalised and initialised
// any number of times.
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

// Takes the lock through pfLock and releases it through pfUnlock at the end
// of the scope. A null pair holds nothing: the dispatch uses that for the
// tables that lock themselves. A lock of one record (a trigger's state lock)
// is passed with the wrappers that take it by address.
class MTE_LOCK_GUARD {
  public:
    MTE_LOCK_GUARD(void (*pfLock)(void), void (*pfUnlock)(void)) : m_pfUnlock(pfUnlock) {
        if (pfLock != nullptr) {
            pfLock();
        }
    }
    MTE_LOCK_GUARD(int (*pfLock)(pthread_mutex_t*), int (*pfUnlock)(pthread_mutex_t*),
                   pthread_mutex_t* pstMutex)
        : m_pfUnlockMutex(pfUnlock), m_pstMutex(pstMutex) {
        (void)pfLock(pstMutex);
    }
    ~MTE_LOCK_GUARD() {
        if (m_pfUnlock != nullptr) {
            m_pfUnlock();
        } else if (m_pfUnlockMutex != nullptr) {
            (void)m_pfUnlockMutex(m_pstMutex);
        }
    }
    MTE_LOCK_GUARD(const MTE_LOCK_GUARD&) = delete;
    MTE_LOCK_GUARD& operator=(const MTE_LOCK_GUARD&) = delete;

  private:
    void (*m_pfUnlock)(void) = nullptr;
    int (*m_pfUnlockMutex)(pthread_mutex_t*) = nullptr;
    pthread_mutex_t* m_pstMutex = nullptr;
};

#endif  // MTE_LOCK_GUARD_H
