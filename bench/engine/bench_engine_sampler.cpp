// Cost of the sampling engine per sampled instance: one wildcarded threshold
// trigger over 10,000 integer instances of the fake agent, sampled cycle after
// cycle on the calling thread by driving the worker's queue handler directly
// (no worker thread, no timer). Values never cross the thresholds, so the
// figure is walk + merge + evaluation, without notifications or events.
//
// The fake agent records every request it answers; its records are cleared
// between cycles (outside the timed part) so memory stays bounded.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "run/engine_helpers.h"
#include "fake_snmp.h"
#include "mte_dbg.h"
#include "mte_event.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "mte_trigger.h"
#include "plat_snmp.h"

namespace {

const FAKE_OID kColumn = {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1, 1};

void FillMib(uint32_t uiInstances) {
    FAKE_SNMP_Reset();
    for (uint32_t uiIndex = 1; uiIndex <= uiInstances; ++uiIndex) {
        FAKE_OID astOid = kColumn;
        astOid.push_back(uiIndex);
        FAKE_SNMP_SetInteger("", astOid, 500);
    }
}

uint32_t RunState(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    uint32_t uiState = pstTrigger->uiRunState;
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return uiState;
}

// Queues the trigger and lets the queue handler run until the cycle is over;
// false if it did not end within a bounded number of rounds.
bool OneCycle(MTE_TRIGGER_ENTRY_S* pstTrigger, uint32_t uiInstances) {
    if (ENG_Queue(pstTrigger) != 0) {
        return false;
    }
    for (uint32_t uiRound = 0; uiRound < uiInstances + 10; ++uiRound) {
        if (mte_run_PumpQueue(MTE_QUEUE_DEPTH) == 0 && RunState(pstTrigger) == MTE_RUN_IDLE) {
            return true;
        }
    }
    return false;
}

void BM_WildcardedThresholdCycle(benchmark::State& stState) {
    const auto uiInstances = static_cast<uint32_t>(stState.range(0));
    mte_DBG_Init();
    mte_SCALAR_Init();
    mte_EVENT_Init();
    ENG_SetTrapSwitch(1);
    mte_TIMER_SetPortFlag(1);
    if (mte_run_InitWithoutThread() != 0) {
        stState.SkipWithError("worker parts could not be set up");
        return;
    }
    MTE_TRIGGER_ENTRY_S* pstTrigger = ENG_NewTrigger("bench");
    pstTrigger->stRow.stValueID = FAKE_SNMP_MakeOid(kColumn);
    pstTrigger->stRow.uiValueIDWildcard = MTE_TRUE;
    // Absolute and delta thresholds both out of reach of the constant values.
    ENG_AddThreshold(pstTrigger, 3 /* risingOrFalling */, 1000, 10, 1000, -1000);

    FillMib(uiInstances);
    // First cycle outside the timing: every instance is new there.
    if (!OneCycle(pstTrigger, uiInstances) || ENG_Instances() != uiInstances) {
        stState.SkipWithError("first cycle did not sample every instance");
    }
    uint64_t ulEvaluated = 0;
    for (auto _ : stState) {
        stState.PauseTiming();
        FillMib(uiInstances);  // drops the fake's request records
        stState.ResumeTiming();
        if (!OneCycle(pstTrigger, uiInstances)) {
            stState.SkipWithError("cycle did not end");
            break;
        }
        ulEvaluated += uiInstances;
    }
    if (ENG_Instances() != uiInstances || !FAKE_SNMP_Notifies().empty()) {
        stState.SkipWithError("instances lost or unexpected notifications");
    }
    stState.counters["evaluations/s"] =
        benchmark::Counter(static_cast<double>(ulEvaluated), benchmark::Counter::kIsRate);

    mte_RUN_Fini();
    mte_TIMER_SetPortFlag(0);
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    mte_RUN_ClearSampleRes(pstTrigger);
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    mte_TRIGGER_FreeNode(pstTrigger);
    mte_EVENT_Fini();
    mte_DBG_Fini();
}
BENCHMARK(BM_WildcardedThresholdCycle)->Arg(10000)->Unit(benchmark::kMillisecond)->MinTime(3.0);

// The fake agent alone: the same 10,000 get-nexts and value releases the
// walk makes, without the engine. Subtracted from the cycle above, it leaves
// the engine's own share.
void BM_FakeAgentWalkOnly(benchmark::State& stState) {
    const auto uiInstances = static_cast<uint32_t>(stState.range(0));
    uint64_t ulAnswered = 0;
    for (auto _ : stState) {
        stState.PauseTiming();
        FillMib(uiInstances);
        stState.ResumeTiming();
        MTE_OID_S stOid = FAKE_SNMP_MakeOid(kColumn);
        for (;;) {
            uint32_t uiStatus = 0;
            SNMP_VALUE_S* pstValue = SNMP_GetNextInstanceValue("own", "", &stOid, &uiStatus);
            if (pstValue == nullptr) {
                break;
            }
            SNMP_FreeInstanceValue(pstValue);
            ++ulAnswered;
        }
    }
    stState.counters["getnexts/s"] =
        benchmark::Counter(static_cast<double>(ulAnswered), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FakeAgentWalkOnly)->Arg(10000)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();
