// Fake memory-alert service: a state the test controls and an eventfd the test
// makes readable by announcing a state change.
#ifndef FAKE_MEMALERT_H
#define FAKE_MEMALERT_H

#include <cstdint>

// Closes the subscription if open, forgets queued announcements, state 6.
void FAKE_MEMALERT_Reset(void);
// The state Mem_Alert_GetCurrentState returns.
void FAKE_MEMALERT_SetCurrentState(uint32_t uiState);
// Queues one announcement and makes the descriptor readable (once per call).
void FAKE_MEMALERT_Announce(uint32_t uiState);
// Makes MEM_Alert_Init return -1, or MEM_Alert_Read fail.
void FAKE_MEMALERT_FailInit(bool bFail);
void FAKE_MEMALERT_FailRead(bool bFail);
// The open descriptor, or -1 when no subscription is open.
int FAKE_MEMALERT_Fd(void);
// Number of MEM_Alert_Fini calls since the last reset.
uint32_t FAKE_MEMALERT_FiniCount(void);

#endif  // FAKE_MEMALERT_H
