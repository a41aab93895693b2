// Placeholder definitions: replaced by the module's implementation.
#include "mte_timer.h"

uint32_t mte_TIMER_Init(void) { return {}; }
void mte_TIMER_Fini(void) {}
uint32_t mte_TIMER_StartAll(void) { return {}; }
uint32_t mte_TIMER_SuspendAll(void) { return {}; }
uint32_t mte_TIMER_Add(MTE_TRIGGER_ENTRY_S* pstTrigger) { return {}; }
uint32_t mte_TIMER_Del(int64_t llTimerId) { return {}; }
uint32_t mte_TIMER_Active(int64_t llTimerId) { return {}; }
uint32_t mte_TIMER_Suspend(int64_t llTimerId) { return {}; }
uint32_t mte_TIMER_Refresh(int64_t llTimerId, uint32_t uiFrequency) { return {}; }
void mte_TIMER_SetPortFlag(uint16_t usFlag) {}
uint16_t mte_TIMER_GetPortFlag(void) { return {}; }
int mte_GetNotifyEvtFd(void) { return -1; }
