// An epoll set whose entries carry a handler: register a descriptor with its
// MTE_EPOLL_PROC_PF, wait, and dispatch each event to handler(events, fd).
//
// The Linux epoll record has 8 bytes of user data, too few for both the
// descriptor and the handler. Each registration therefore gets a generation
// number; the user data carries (generation << 32 | descriptor), and a table
// indexed by descriptor holds {handler, generation}. An event whose
// generation no longer matches its slot belongs to a registration removed
// (or replaced by a reused descriptor number) earlier in the same batch, and
// is skipped instead of reaching the wrong handler.
//
// A set is used by one thread at a time (the main set by the main thread, the
// worker's set by the worker once it runs); it has no lock of its own.
#ifndef MTE_EPOLL_SET_H
#define MTE_EPOLL_SET_H

#include <sys/epoll.h>

#include <cstdint>

#include "mte_types.h"

// Every registration asks for these events, level-triggered.
constexpr uint32_t MTE_EPOLL_EVENTS = EPOLLIN | EPOLLERR | EPOLLHUP;

struct MTE_EPOLL_SLOT_S {
    MTE_EPOLL_PROC_PF pfHandler;  // null when the descriptor is not registered
    uint32_t uiGeneration;        // 0 when the descriptor is not registered
};

struct MTE_EPOLL_SET_S {
    int iEpollFd;                // -1 when not created or closed
    uint32_t uiLastGeneration;   // last generation handed out; never 0 once used
    uint32_t uiSlotCount;        // number of entries in pstSlots
    MTE_EPOLL_SLOT_S* pstSlots;  // indexed by descriptor; grows on demand
};

// A set that holds nothing; Destroy on it does nothing.
constexpr MTE_EPOLL_SET_S MTE_EPOLL_SET_INIT = {-1, 0, 0, nullptr};

// Creates the epoll descriptor; 0, or 0x40010001 (errno tells why).
uint32_t mte_EPSET_Create(MTE_EPOLL_SET_S* pstSet);
// Closes the descriptor and frees the table; safe to repeat.
void mte_EPSET_Destroy(MTE_EPOLL_SET_S* pstSet);
// Registers the descriptor with its handler; the result of epoll_ctl (0 or -1
// with errno), -1 with EINVAL for a negative descriptor or a null handler.
int mte_EPSET_Add(MTE_EPOLL_SET_S* pstSet, int iFd, MTE_EPOLL_PROC_PF pfHandler);
// Removes the descriptor; events of it still in the current batch are
// skipped. The result of epoll_ctl.
int mte_EPSET_Del(MTE_EPOLL_SET_S* pstSet, int iFd);
// Calls the handler of each record in order, skipping stale records.
void mte_EPSET_Dispatch(MTE_EPOLL_SET_S* pstSet, const struct epoll_event* pstRecords, int iCount);
// One epoll_wait of at most iMax records (timeout in ms, -1 none), then
// dispatch. The result of epoll_wait.
int mte_EPSET_WaitAndDispatch(MTE_EPOLL_SET_S* pstSet, int iMax, int iTimeoutMs);

// The main epoll set, run by the spine on the main thread (core/mte_epoll.cpp).
// Every layer registers its descriptors here, so the registration is declared
// with the set and not with the spine. Registrations ask for
// EPOLLIN|EPOLLERR|EPOLLHUP, level-triggered.
// Registers the descriptor with its handler; 0, or 0x40010001 (trace 84).
uint32_t mte_EPOLL_Add(int iFd, MTE_EPOLL_PROC_PF pfHandler);
// Removes the descriptor; returns the result of epoll_ctl (callers ignore it).
int mte_EPOLL_Del(int iFd);
int mte_EPOLL_GetEpollFd(void);

#endif  // MTE_EPOLL_SET_H
