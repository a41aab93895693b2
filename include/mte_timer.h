// Trigger timers: one periodic timer per trigger in a timer set advanced by a
// one-second tick, the ten-second statistics tick, the notify descriptor and
// the port flag. Main thread, except that the worker may activate and refresh
// a trigger's timer when it restarts it.
#ifndef MTE_TIMER_H
#define MTE_TIMER_H

#include "mte_types.h"

uint32_t mte_TIMER_Init(void);
// Releases everything; safe when nothing was created.
void mte_TIMER_Fini(void);
// Port service came up: (re)starts the set and the tick, enables every active trigger.
uint32_t mte_TIMER_StartAll(void);
// Port service went down: stops the tick and the timers, drains the worker,
// drops all samples.
uint32_t mte_TIMER_SuspendAll(void);
uint32_t mte_TIMER_Add(MTE_TRIGGER_ENTRY_S* pstTrigger);
uint32_t mte_TIMER_Del(int64_t llTimerId);
uint32_t mte_TIMER_Active(int64_t llTimerId);
uint32_t mte_TIMER_Suspend(int64_t llTimerId);
// Restarts the timer with the new frequency (seconds); id -1 does nothing.
uint32_t mte_TIMER_Refresh(int64_t llTimerId, uint32_t uiFrequency);
void mte_TIMER_SetPortFlag(uint16_t usFlag);
uint16_t mte_TIMER_GetPortFlag(void);
int mte_GetNotifyEvtFd(void);
// True while a port-down waits for the worker's drain answer; the port then
// counts as down, and a port-up is carried out once the answer has come.
bool mte_TIMER_IsDraining(void);

#endif  // MTE_TIMER_H
