// Memory-pressure guard: one flag that follows the platform's memory alerts.
// Written on the main thread; read by both threads under its read-write lock.
#ifndef MTE_MEMALERT_H
#define MTE_MEMALERT_H

#include <cstdint>

// Platform memory states the daemon acts on.
constexpr uint32_t MTE_MEM_STATE_EXCEEDED = 1;
constexpr uint32_t MTE_MEM_STATE_NORMAL = 6;

uint32_t mte_MEMALERT_Init(void);
void mte_MEMALERT_Fini(void);
// 1 while the memory threshold is exceeded, else 0.
uint32_t mte_MEMALERT_GetFlag(void);
// Handler of the alert descriptor on the main epoll set: follows states 1 and
// 6 (traces 206, 213); an error or hang-up closes the subscription for good.
void mte_MEMALERT_Proc(uint32_t uiEvents, int iFd);

void mte_mem_MemStateRdLock(void);
void mte_mem_MemStateWrLock(void);
void mte_mem_MemStateUnLock(void);

#endif  // MTE_MEMALERT_H
