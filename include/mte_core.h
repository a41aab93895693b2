// Daemon spine: start-up, the main epoll set, the stop signal and shutdown.
// Everything here runs on the main thread.
#ifndef MTE_CORE_H
#define MTE_CORE_H

#include "mte_epoll_set.h"
#include "mte_types.h"

// Runs the daemon: start-up, main loop, shutdown. Returns 0 after a normal
// stop, -1 (exit status 255) after a failed start-up or registration.
int mte_MAIN_Run(void);

// Main epoll set (registration: mte_epoll_set.h).
uint32_t mte_EPOLL_Init(void);
void mte_EPOLL_Fini(void);
// One wait (no time-out) for at most iMaxEvents events, each handed to its
// handler; the result of epoll_wait.
int mte_EPOLL_WaitAndDispatch(int iMaxEvents);

// Signal descriptor for the stop signal SIGRTMIN+1.
uint32_t mte_SignalInit(void);
void mte_SignalFini(void);

// Pre-stop flag: 1 once a stop has been requested or start-up has failed.
uint16_t mte_IsVigilPreStop(void);
void mte_SetVigilPreStop(void);

#endif  // MTE_CORE_H
