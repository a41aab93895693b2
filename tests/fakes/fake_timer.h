// Fake timer set for tests: records every call with its arguments, keeps
// timers with their periods and states, and expires them only when the test
// announces ticks. Single set; thread-safe.
#ifndef FAKE_TIMER_H
#define FAKE_TIMER_H

#include <cstdint>
#include <string>
#include <vector>

struct FAKE_TIMER_CALL_S {
    std::string
        strName;  // "Initialize", "Config", "Create", "SetStatus", "Delete", "Finalize", "Tick"
    int64_t llId;
    uint32_t uiArg;     // Config: on; Create: period; SetStatus: status
    uint32_t uiPeriod;  // SetStatus: period
};

void FAKE_TIMER_Reset(void);
std::vector<FAKE_TIMER_CALL_S> FAKE_TIMER_Calls(void);
// Calls of one kind only.
std::vector<FAKE_TIMER_CALL_S> FAKE_TIMER_CallsOf(const std::string& strName);
// Arguments of the last Timer_Initialize (all 0 before).
std::vector<uint32_t> FAKE_TIMER_InitArgs(void);
// Makes the next Timer_Initialize / Timer_Config / Timer_Create fail.
void FAKE_TIMER_FailInit(bool bFail);
void FAKE_TIMER_FailConfig(bool bFail);
void FAKE_TIMER_FailCreate(bool bFail);
// Period (ms) and state (1 running, 0 suspended) of a timer; false if unknown.
bool FAKE_TIMER_Get(int64_t llId, uint32_t* puiPeriod, uint32_t* puiRunning);
uint32_t FAKE_TIMER_Count(void);
// Calls the callback of a timer as if it had expired.
bool FAKE_TIMER_Expire(int64_t llId);
// What Timer_Skipped answers from now on (0 after a reset).
void FAKE_TIMER_SetSkipped(uint64_t ullSkipped);

#endif  // FAKE_TIMER_H
