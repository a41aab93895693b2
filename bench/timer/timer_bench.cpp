// Cost of one announced tick against the number of idle timers in the set:
// it must stay flat, since the daemon may hold thousands of triggers of which
// few are due in any given second.
#include <benchmark/benchmark.h>

#include "plat_timer.h"

namespace {

void Count(void* pContext) {
    ++*static_cast<int*>(*static_cast<void**>(pContext));
}

// Nothing due: a tick looks at the top of the heap only.
void BM_TickOnlyIdleTimers(benchmark::State& state) {
    uint64_t ulSet = Timer_Initialize(5120, 1000, 128, 16);
    Timer_Config(ulSet, 1);
    int iFired = 0;
    void* apContext[4] = {&iFired, nullptr, nullptr, nullptr};
    for (int64_t i = 0; i < state.range(0); i++) {
        Timer_Create(ulSet, 1, 1000000000u, Count, apContext);
    }
    for (auto _ : state) {
        Timer_Tick_Announce(ulSet);
    }
    benchmark::DoNotOptimize(iFired);
    Timer_Finalize(ulSet);
}
BENCHMARK(BM_TickOnlyIdleTimers)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000);

void BM_TickWithIdleTimers(benchmark::State& state) {
    uint64_t ulSet = Timer_Initialize(5120, 1000, 128, 16);
    Timer_Config(ulSet, 1);
    int iFired = 0;
    void* apContext[4] = {&iFired, nullptr, nullptr, nullptr};
    // Idle: due only after about 11 days of ticks.
    for (int64_t i = 0; i < state.range(0); i++) {
        Timer_Create(ulSet, 1, 1000000000u, Count, apContext);
    }
    // A handful that are due every tick, as in a busy daemon.
    for (int i = 0; i < 10; i++) {
        Timer_Create(ulSet, 1, 1000, Count, apContext);
    }
    for (auto _ : state) {
        Timer_Tick_Announce(ulSet);
    }
    benchmark::DoNotOptimize(iFired);
    state.counters["fired_per_tick"] =
        benchmark::Counter(static_cast<double>(iFired) / state.iterations());
    Timer_Finalize(ulSet);
}
BENCHMARK(BM_TickWithIdleTimers)->Arg(100)->Arg(1000)->Arg(10000)->Arg(100000);

}  // namespace

BENCHMARK_MAIN();
