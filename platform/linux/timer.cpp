// Placeholder definitions: replaced by the module's implementation.
#include "plat_timer.h"

uint64_t Timer_Initialize(uint32_t uiMaxTimers, uint32_t uiTickMs, uint32_t uiArg3, uint32_t uiArg4) { return {}; }
uint32_t Timer_Config(uint64_t ulSet, uint32_t uiOn) { return {}; }
int64_t Timer_Create(uint64_t ulSet, uint32_t uiType, uint32_t uiPeriodMs, TIMER_CALLBACK_PF pfCallback, const void* pContext) { return -1; }
uint32_t Timer_SetStatus(uint64_t ulSet, int64_t llId, uint32_t uiStatus, uint32_t uiPeriodMs) { return {}; }
uint32_t Timer_Delete(uint64_t ulSet, int64_t llId) { return {}; }
void Timer_Finalize(uint64_t ulSet) {}
void Timer_Tick_Announce(uint64_t ulSet) {}
