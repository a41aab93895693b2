// Events run per second on the fake agent: mte_EVENT_Run of an event whose
// notification carries a five-object objects list (five gets, the binding
// list built, the send captured). The fake answers from memory, so this is
// the event code's own cost without any SNMP traffic.
#include <benchmark/benchmark.h>

#include "bench_event_config.h"
#include "fake_dbm.h"
#include "fake_log.h"
#include "fake_memalert.h"
#include "fake_snmp.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_memalert.h"
#include "mte_scalar.h"

namespace {

const FAKE_OID kTable = {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1};

FAKE_OID Column(uint32_t uiColumn, uint32_t uiIndex) {
    FAKE_OID astOid = kTable;
    astOid.push_back(uiColumn);
    astOid.push_back(uiIndex);
    return astOid;
}

// The same five values the end-to-end benchmark reads from mte-testagent.
void FillAgent() {
    FAKE_SNMP_Reset();
    FAKE_SNMP_SetInteger("", Column(1, 1), 1);
    FAKE_SNMP_SetUnsigned("", Column(2, 1), 7);
    FAKE_SNMP_SetString("", Column(3, 1), "row");
    FAKE_SNMP_SetInteger("", Column(1, 2), 2);
    FAKE_SNMP_SetUnsigned("", Column(2, 2), 7);
}

void BM_EventRunFakeAgent(benchmark::State& stState) {
    FAKE_DBM_Reset();
    FAKE_LOG_Clear();
    FAKE_MEMALERT_Reset();
    FillAgent();
    bool bUp = mte_DBG_Init() == 0 && mte_EPOLL_Init() == 0 && mte_MEMALERT_Init() == 0 &&
               mte_DBM_Init() == 0 && mte_SCALAR_Init() == 0 && mte_OBJ_Init() == 0 &&
               mte_EVENT_Init() == 0 &&
               mte_bench::ConfigureNotifyEvent(
                   {Column(1, 1), Column(2, 1), Column(3, 1), Column(1, 2), Column(2, 2)});
    if (!bUp) {
        stState.SkipWithError("event configuration refused");
        return;
    }
    mte_bench::FiredNotify stRun;
    stRun.Run();
    if (FAKE_SNMP_Traps().size() != 1 || FAKE_SNMP_Traps()[0].astBindings.size() != 5) {
        stState.SkipWithError("the event did not send five bindings");
        return;
    }
    int64_t llSinceReset = 0;
    for (auto _ : stState) {
        stRun.Run();
        if (++llSinceReset == 20000) {  // the fake keeps every send: bound its memory
            stState.PauseTiming();
            FillAgent();
            llSinceReset = 0;
            stState.ResumeTiming();
        }
    }
    stState.counters["events_per_s"] =
        benchmark::Counter(static_cast<double>(stState.iterations()), benchmark::Counter::kIsRate);
    mte_EVENT_Fini();
    mte_OBJ_Fini();
    mte_DBM_Fini();
    mte_MEMALERT_Fini();
    mte_EPOLL_Fini();
    mte_DBG_Fini();
}
BENCHMARK(BM_EventRunFakeAgent)->Unit(benchmark::kMicrosecond)->MinTime(1.0);

}  // namespace

BENCHMARK_MAIN();
