// Sampling engine: the worker thread and its queue, the sampler with its
// sample store, and the evaluation of samples. The worker owns everything it
// samples between dequeue and commit; the trigger's state lock guards the run
// state and the sample lists against the main thread.
#ifndef MTE_RUN_H
#define MTE_RUN_H

#include "mte_trigger_run.h"
#include "mte_types.h"

// Queue message: the trigger's address travels by value.
struct MTE_QUEUE_MSG_S {
    uint64_t ulReserved;  // always 0
    MTE_TRIGGER_ENTRY_S* pstTrigger;
};
static_assert(sizeof(MTE_QUEUE_MSG_S) == 16);

constexpr uint32_t MTE_QUEUE_DEPTH = 1000;
constexpr uint64_t MTE_RUN_CTRL_DRAIN = 1;
constexpr uint64_t MTE_RUN_CTRL_EXIT = 2;

// Worker thread and queue.
uint32_t mte_RUN_Init(void);
void mte_RUN_Fini(void);
int mte_RUN_GetEventFd(void);
// Timer expiry (main thread): queues an idle trigger, reports an overrun for a busy one.
uint32_t mte_RUN_ProcTimer(MTE_TRIGGER_ENTRY_S* pstTrigger);

// Worker epoll set.
uint32_t mte_run_EpollInit(void);
uint32_t mte_run_EPOLLAdd(int iFd, MTE_EPOLL_PROC_PF pfHandler);
uint32_t mte_run_EPOLLDel(int iFd);

// Evaluation and failure reporting.
void mte_run_FailureDebug(int32_t iReason, const char* pszContext,
                          const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_OID_S* pstOid,
                          uint32_t uiHeaderText, uint32_t uiTagText);
// Counts the failure, sends mteTriggerFailure and writes the debug text.
void mte_run_ReportFailure(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_OID_S* pstOid,
                           const char* pszContext, int32_t iReason);
// Runs the collected events in order on the copy of the trigger row, then frees them.
void mte_run_ExEvent(const MTE_TRIGGER_ROW_S* pstTrigger, MTE_FIRED_EVENT_S* pstEvents);

// Test hooks: the worker's parts without its thread, so that tests can drive
// the queue and the control descriptor step by step.
// Sets up the worker epoll set, the queue and the control descriptor.
uint32_t mte_run_InitWithoutThread(void);
// Handles up to uiMax queued messages as the worker would; the number handled.
uint32_t mte_run_PumpQueue(uint32_t uiMax);
// The control descriptor's handler (drain, exit).
void mte_run_CtrlProc(uint32_t uiEvents, int iFd);

#endif  // MTE_RUN_H
