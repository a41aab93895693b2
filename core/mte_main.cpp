// Placeholder definitions: replaced by the module's implementation.
#include "mte_core.h"

int mte_MAIN_Run(void) { return -1; }
uint32_t mte_EPOLL_Init(void) { return {}; }
void mte_EPOLL_Fini(void) {}
uint32_t mte_EPOLL_Add(int iFd, MTE_EPOLL_PROC_PF pfHandler) { return {}; }
int mte_EPOLL_Del(int iFd) { return -1; }
int mte_EPOLL_GetEpollFd(void) { return -1; }
uint32_t mte_SignalInit(void) { return {}; }
void mte_SignalFini(void) {}
uint16_t mte_IsVigilPreStop(void) { return {}; }
void mte_SetVigilPreStop(void) {}
