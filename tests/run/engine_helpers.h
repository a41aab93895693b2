// Helpers of the engine tests: triggers and test rows built by hand, the
// worker's queue driven from the test.
#ifndef ENGINE_HELPERS_H
#define ENGINE_HELPERS_H

#include "fake_snmp.h"
#include "mte_types.h"

// A zero-filled trigger entry with the table's defaults (idle, no timer,
// instance released), owner "own" and the given name.
MTE_TRIGGER_ENTRY_S* ENG_NewTrigger(const char* pszName);
uint32_t ENG_ListLen(const MTE_SAMPLE_S* pstHead);

// The trap switch as the notification senders see it.
void ENG_SetTrapSwitch(uint16_t usOn);

// Test rows attached to a trigger (freed with the trigger by mte_TRIGGER_FreeNode).
MTE_EXIST_ENTRY_S* ENG_AddExistence(MTE_TRIGGER_ENTRY_S* pstTrigger, const char* pszEvent,
                                    uint8_t ucTest = 0xE0, uint8_t ucStartup = 0xC0);
MTE_BOOL_ENTRY_S* ENG_AddBoolean(MTE_TRIGGER_ENTRY_S* pstTrigger, uint32_t uiComparison,
                                 int32_t iValue, const char* pszEvent);
// Events evRising, evFalling, evDeltaRising and evDeltaFalling.
MTE_THRES_ENTRY_S* ENG_AddThreshold(MTE_TRIGGER_ENTRY_S* pstTrigger, uint32_t uiStartup,
                                    int32_t iRising, int32_t iFalling, int32_t iDeltaRising,
                                    int32_t iDeltaFalling);
// Makes the trigger a delta trigger with a delta row (freed with the trigger).
MTE_DELTA_ENTRY_S* ENG_AddDelta(MTE_TRIGGER_ENTRY_S* pstTrigger, const FAKE_OID& astDiscId,
                                bool bWildcard, uint32_t uiType);

// Queues the trigger at once (as the timer would) under its lock.
uint32_t ENG_Queue(MTE_TRIGGER_ENTRY_S* pstTrigger);
// Lets the worker's queue handler run until the queue is empty (bounded).
uint32_t ENG_PumpAll(void);
uint32_t ENG_Instances(void);
MTE_SCALAR_S ENG_Scalars(void);

#endif  // ENGINE_HELPERS_H
