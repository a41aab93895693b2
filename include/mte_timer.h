// Trigger timers: one periodic timer per trigger in a timer set advanced by a
// one-second tick, the ten-second statistics tick, the notify descriptor and
// the port flag. Main thread, except that the worker may activate and refresh
// a trigger's timer when it restarts it.
#ifndef MTE_TIMER_H
#define MTE_TIMER_H

#include "mte_trigger_run.h"
#include "mte_types.h"

uint32_t mte_TIMER_Init(void);
// Releases everything; safe when nothing was created.
void mte_TIMER_Fini(void);
// Port service came up: (re)starts the set and the tick, enables every active trigger.
uint32_t mte_TIMER_StartAll(void);
// Port service went down: stops the tick and the timers, drains the worker,
// drops all samples.
uint32_t mte_TIMER_SuspendAll(void);
void mte_TIMER_SetPortFlag(uint16_t usFlag);
uint16_t mte_TIMER_GetPortFlag(void);
int mte_GetNotifyEvtFd(void);
// True while a port-down waits for the worker's drain answer; the port then
// counts as down, and a port-up is carried out once the answer has come.
bool mte_TIMER_IsDraining(void);

#endif  // MTE_TIMER_H
