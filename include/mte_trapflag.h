// The trap flag: 1 while notifications may be sent, 0 while the agent's trap
// switch for this daemon's module is off. The channel writes it (main thread);
// the notification senders of the engine and the actions read it, on either
// thread, so it is declared below them; channel/mte_tarn_flag.cpp keeps it.
#ifndef MTE_TRAPFLAG_H
#define MTE_TRAPFLAG_H

#include <cstdint>

// Module name under which the trap switch is kept.
constexpr const char* MTE_TRAPSWITCH_MODULE = "event-mib";

// 1 while notifications may be sent, 0 while the trap switch is off.
uint16_t mte_TARN_TrapSwt(void);
void mte_tarn_TrapSwtLock(void);
void mte_tarn_TrapSwtUnLock(void);

#endif  // MTE_TRAPFLAG_H
