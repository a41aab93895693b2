// What a trigger's row changes ask of the engine: start, stop and restart the
// trigger's timer, sample it at once, drop its samples. The engine (run/)
// implements these; they are declared here, beside the trigger table, because
// the table calls them and a table may not include the engine's headers.
#ifndef MTE_TRIGGER_RUN_H
#define MTE_TRIGGER_RUN_H

#include "mte_types.h"

// Caller holds the state lock: if the port flag is 1 and the trigger idle, queues it now.
uint32_t mte_RUN_Sample4AtOnce(MTE_TRIGGER_ENTRY_S* pstTrigger);
// If the port flag is 1: creates or activates the trigger's timer; else 0.
uint32_t mte_RUN_TriggerEnable(MTE_TRIGGER_ENTRY_S* pstTrigger);
// If the port flag is 1: suspends the trigger's timer; else 0.
uint32_t mte_RUN_TriggerDisable(MTE_TRIGGER_ENTRY_S* pstTrigger);

// Sample store (caller holds the state lock).
void mte_RUN_ClearSampleRes(MTE_TRIGGER_ENTRY_S* pstTrigger);
void mte_RUN_FreeResList(MTE_SAMPLE_S** ppstHead, MTE_SAMPLE_S** ppstTail);

// The trigger's periodic timer.
uint32_t mte_TIMER_Add(MTE_TRIGGER_ENTRY_S* pstTrigger);
uint32_t mte_TIMER_Del(int64_t llTimerId);
uint32_t mte_TIMER_Active(int64_t llTimerId);
uint32_t mte_TIMER_Suspend(int64_t llTimerId);
// Restarts the timer with the new frequency (seconds); id -1 does nothing.
uint32_t mte_TIMER_Refresh(int64_t llTimerId, uint32_t uiFrequency);

#endif  // MTE_TRIGGER_RUN_H
