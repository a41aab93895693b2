// Placeholder definitions: replaced by the module's implementation.
#include "plat_memalert.h"

int MEM_Alert_Init(uint32_t uiFlags) { return -1; }
uint32_t Mem_Alert_GetCurrentState(void) { return {}; }
uint32_t MEM_Alert_Read(int iFd, uint32_t* puiState) { return {}; }
void MEM_Alert_Fini(int iFd) {}
