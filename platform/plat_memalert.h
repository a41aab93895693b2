// Memory alerts of the platform.
#ifndef PLAT_MEMALERT_H
#define PLAT_MEMALERT_H

#include <cstdint>

// Memory states: 1 threshold exceeded (2 and 3 count as exceeded at start-up),
// 6 usage dropped below the threshold.
constexpr uint32_t MEM_STATE_EXCEEDED = 1;
constexpr uint32_t MEM_STATE_NORMAL = 6;
constexpr uint32_t MEM_STATE_NO_CHANGE = 7;

// Opens a subscription; a descriptor that becomes readable when the state may
// have changed, or a negative value.
int MEM_Alert_Init(uint32_t uiFlags);
uint32_t Mem_Alert_GetCurrentState(void);
// Reads one state change into *puiState; 0 on success.
uint32_t MEM_Alert_Read(int iFd, uint32_t* puiState);
void MEM_Alert_Fini(int iFd);

#endif  // PLAT_MEMALERT_H
