// Fake timer set for tests: records every call, keeps the timers' callbacks,
// and expires one only when the test says so. One set; thread-safe.
#ifndef FAKE_TIMER_H
#define FAKE_TIMER_H

#include <cstdint>
#include <string>
#include <vector>

void FAKE_TIMER_Reset(void);
// Every call so far: "Initialize <max> <tick> <a> <b>", "Config <on>",
// "Create <period>", "SetStatus <id> <status> <period>", "Delete <id>",
// "Finalize", "Tick", "FireDue".
std::vector<std::string> FAKE_TIMER_Calls(void);
// Calls whose record starts with the prefix.
size_t FAKE_TIMER_CallCount(const std::string& strPrefix);
// Makes Timer_Initialize, Timer_Config or Timer_Create fail from now on.
void FAKE_TIMER_Fail(const std::string& strCall, bool bFail);
// Calls the callback of a timer as if it had expired; false if it is gone.
bool FAKE_TIMER_Expire(int64_t llId);
// What Timer_Skipped answers from now on (0 after a reset).
void FAKE_TIMER_SetSkipped(uint64_t ullSkipped);

#endif  // FAKE_TIMER_H
