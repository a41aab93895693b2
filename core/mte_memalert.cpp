// Placeholder definitions: replaced by the module's implementation.
#include "mte_memalert.h"

uint32_t mte_MEMALERT_Init(void) { return {}; }
void mte_MEMALERT_Fini(void) {}
uint32_t mte_MEMALERT_GetFlag(void) { return {}; }
void mte_mem_MemStateRdLock(void) {}
void mte_mem_MemStateWrLock(void) {}
void mte_mem_MemStateUnLock(void) {}
