// Diagnostics: the run-time debug switch, trace records, debug lines and the
// daemon's 52 message texts. Called from both threads; keeps no shared state
// apart from the switch, which has its own read-write lock.
#ifndef MTE_DBG_H
#define MTE_DBG_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "mte_texts.h"

// Debug switch bits and the mnemonic each is written with.
constexpr uint32_t MTE_DBG_ERR = 0x2;      // "EVENTMIB_ERR"
constexpr uint32_t MTE_DBG_WARNING = 0x4;  // "EVENTMIB_WARNING"
constexpr uint32_t MTE_DBG_INFO = 0x8;     // "EVENTMIB_INFO"

constexpr const char* MTE_DBG_MNEMONIC_ERR = "EVENTMIB_ERR";
constexpr const char* MTE_DBG_MNEMONIC_WARNING = "EVENTMIB_WARNING";
constexpr const char* MTE_DBG_MNEMONIC_INFO = "EVENTMIB_INFO";
constexpr const char* MTE_DBG_MNEMONIC_TRACE = "EVENTMIB_TRACE";

// Priorities handed to the system log: trace records and debug lines.
constexpr uint32_t MTE_PRI_TRACE = 0x100000bf;
constexpr uint32_t MTE_PRI_DEBUG = 0x10000bf;
constexpr size_t MTE_TRACE_BUF_SIZE = 1024;

// Sets the switch to 0, registers the texts and opens the log; returns the
// result of the registration (0 = success).
uint32_t mte_DBG_Init(void);
// Deregisters the texts and closes the log.
void mte_DBG_Fini(void);
uint32_t MTE_AppRcInit(void);
uint32_t MTE_AppRcExit(void);

void mte_DBG_EnableSwitch(uint32_t uiMask);
void mte_DBG_DisableSwitch(uint32_t uiMask);
uint32_t mte_DBG_GetSwitch(void);
// 1 when any bit of the mask is on, else 0.
uint16_t mte_DBG_IsEnable(uint32_t uiMask);

// Writes one trace record "Ln:%4ld <message>" (at most 1023 characters),
// whatever the switch.
void mte_DBG_PrintTraceInfo(int64_t llTraceNo, const char* pszFormat, ...)
    __attribute__((format(printf, 2, 3)));
// A trace that a peer can cause once per request or per connection (a reply
// it does not read, a refused connection, an accept out of descriptors): the
// first record of an interval is written, the others within it are only
// counted, and one summary line with the count follows once the interval is
// over (at the next record of the trace or at mte_DBG_FlushTraceLimits).
// Define one per call site with MTE_TRACE_LIMIT_INIT(trace number); both
// threads may use them (a leaf mutex guards every limiter).
struct MTE_TRACE_LIMIT_S {
    int64_t llTraceNo;
    int64_t llWindowEndMs;  // 0 while no interval is open
    uint64_t ullSuppressed;
    MTE_TRACE_LIMIT_S* pstNext;  // limiters seen so far, for the flush
    bool bListed;
};
#define MTE_TRACE_LIMIT_INIT(llTraceNo) \
    { (llTraceNo), 0, 0, nullptr, false }
constexpr int64_t MTE_TRACE_LIMIT_INTERVAL_MS = 10000;

void mte_DBG_PrintTraceLimited(MTE_TRACE_LIMIT_S* pstLimit, const char* pszFormat, ...)
    __attribute__((format(printf, 2, 3)));
// Writes the summary of every interval that has ended; the main loop calls
// it after each round of events.
void mte_DBG_FlushTraceLimits(void);

// Writes one debug line with the mnemonic; the caller has tested its bit.
void mte_DBG_Print(const char* pszMnemonic, const char* pszFormat, ...)
    __attribute__((format(printf, 2, 3)));
void mte_DBG_VPrint(const char* pszMnemonic, const char* pszFormat, va_list args);

// The text registered under MTE_TEXT(uiIndex); never null, "" for an index
// out of range or while the texts are not registered. A text used as a format
// is taken with mte_DBG_TextFormat instead, which the compiler checks.
const char* mte_DBG_Text(uint32_t uiIndex);

void mte_dbg_DbgSwtRdLock(void);
void mte_dbg_DbgSwtWrLock(void);
void mte_dbg_DbgSwtUnLock(void);

#endif  // MTE_DBG_H
