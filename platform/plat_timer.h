// Timer set: periodic timers with millisecond periods, advanced by announced
// one-second ticks; callbacks run on the announcing thread. Timer_SetStatus
// may be called from another thread.
#ifndef PLAT_TIMER_H
#define PLAT_TIMER_H

#include <cstdint>

typedef void (*TIMER_CALLBACK_PF)(void* pContext);

constexpr uint32_t TIMER_STATUS_SUSPEND = 0;
constexpr uint32_t TIMER_STATUS_ACTIVE = 1;
constexpr uint32_t TIMER_STATUS_RESTART = 3;
// A running timer falls due at once: it fires at the next Timer_Fire_Due or
// tick, then every period from there. A suspended timer is left alone.
constexpr uint32_t TIMER_STATUS_EXPIRE = 4;
constexpr uint32_t TIMER_CONTEXT_SIZE = 32;

// Creates a timer set; its handle, 0 on failure.
uint64_t Timer_Initialize(uint32_t uiMaxTimers, uint32_t uiTickMs, uint32_t uiArg3,
                          uint32_t uiArg4);
// 1 starts the set, 0 stops it; 0 on success.
uint32_t Timer_Config(uint64_t ulSet, uint32_t uiOn);
// Creates a periodic timer; the 32-byte context is copied and a pointer to the
// copy is handed to the callback. Its id, or -1.
int64_t Timer_Create(uint64_t ulSet, uint32_t uiType, uint32_t uiPeriodMs,
                     TIMER_CALLBACK_PF pfCallback, const void* pContext);
uint32_t Timer_SetStatus(uint64_t ulSet, int64_t llId, uint32_t uiStatus, uint32_t uiPeriodMs);
uint32_t Timer_Delete(uint64_t ulSet, int64_t llId);
void Timer_Finalize(uint64_t ulSet);
// Advances the set by one tick and calls the callbacks of expired timers
// while the gate lets them.
void Timer_Tick_Announce(uint64_t ulSet);

// Asked before each callback, without the set's lock: nonzero lets one more
// timer fire. While it answers 0 the due timers are held back, oldest first,
// until Timer_Fire_Due or the next tick. Null (the default) lets all fire.
typedef int (*TIMER_GATE_PF)(void);
void Timer_SetGate(uint64_t ulSet, TIMER_GATE_PF pfGate);
// Fires the timers held back by the gate, without advancing the clock;
// 1 when some are still held back, else 0.
uint32_t Timer_Fire_Due(uint64_t ulSet);
// Expiries missed since the set was made by timers held back a whole tick.
uint64_t Timer_Skipped(uint64_t ulSet);

#endif  // PLAT_TIMER_H
