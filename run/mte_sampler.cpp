// Sampler: placeholder cycle until the walks land.
#include "mte_run_int.h"
#include "mte_trigger.h"

void mte_run_SampleStep(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    if (pstTrigger->uiRunState == MTE_RUN_BUSY) {
        pstTrigger->uiRunState = MTE_RUN_IDLE;
    }
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
}
