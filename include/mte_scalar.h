// Resource scalars and statistics. Counters change atomically without a lock
// (the sampler's path); the settings are stored in the configuration store and
// the counters in the run-time database, both by the main thread.
#ifndef MTE_SCALAR_H
#define MTE_SCALAR_H

#include "mte_types.h"

uint32_t mte_SCALAR_Init(void);
// Fills the 28-byte record, then saves the statistics if they changed.
void mte_SCALAR_Get(MTE_SCALAR_S* pstOut);
uint32_t mte_SCALAR_SetSampleMin(uint32_t uiValue);
uint32_t mte_SCALAR_SetInstancesMax(uint32_t uiValue);
uint32_t mte_SCALAR_GetSampMin(void);

// Instance accounting (worker): reserve one instance, 0 or 0x40010001.
uint32_t mte_SCALAR_CurInstanceInc(void);
void mte_SCALAR_CurInstanceDec(void);
void mte_SCALAR_CurInstanceSub(uint32_t uiCount);
void mte_SCALAR_InstanceLacksInc(void);
void mte_SCALAR_TriggerFailuresInc(void);
void mte_SCALAR_EventFailuresInc(void);
// Trigger samples not taken at their frequency because the sampling worker
// could not keep up (main thread), and notifications dropped because the
// queue for the bridge was full (any thread). Counted since start, not
// stored, and not part of the 28-byte record: they travel as the engine
// counters (docs/management-protocol.md).
void mte_SCALAR_SamplesMissedAdd(uint32_t uiCount);
uint32_t mte_SCALAR_GetSamplesMissed(void);
void mte_SCALAR_NotificationDropsInc(void);
uint32_t mte_SCALAR_GetNotificationDrops(void);

uint32_t mte_SCALAR_SampMinRecover(uint32_t uiLen, const void* pData);
uint32_t mte_SCALAR_SampInstanceMaxRecover(uint32_t uiLen, const void* pData);
uint32_t mte_SCALAR_StatisticDataRecover(uint32_t uiLen, const void* pData);

// Saves the statistics if they changed since the last save.
void mte_SCALAR_SaveData(void);
// Handler of the ten-second statistics timer descriptor.
void mte_SCALAR_freshStati2DbmCallBack(uint32_t uiEvents, int iFd);

#endif  // MTE_SCALAR_H
