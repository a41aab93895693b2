// Diagnostics: the run-time debug switch, trace records, debug lines and the
// daemon's message texts.
//
// Called from both the main thread and the sampling worker. The only shared
// state is the debug switch, guarded by its own statically initialised
// read-write lock (a leaf lock: nothing else is taken while it is held). The
// trace buffer lives on the caller's stack, so concurrent traces never meet.
#include "mte_dbg.h"

#include <pthread.h>
#include <syslog.h>

#include <time.h>

#include <array>
#include <cstdio>
#include <mutex>

#include "mte_lock_guard.h"
#include "plat_log.h"
#include "plat_rc.h"
#include "mte_types.h"

namespace {

constexpr const char* MTE_LOG_IDENT = "EVENTMIB";

// Written only by message handlers on the main thread, read by both threads.
pthread_rwlock_t g_stDbgSwtLock = PTHREAD_RWLOCK_INITIALIZER;
uint32_t g_uiDbgSwitch = 0;

// Guards every trace limiter and their list; a leaf lock.
std::mutex g_stTraceLimitMutex;
MTE_TRACE_LIMIT_S* g_pstTraceLimits = nullptr;

int64_t mte_dbg_NowMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

// Closes an interval that has ended (any open one when bAll), with its
// summary when records were held back. Called with the limiter mutex held.
void mte_dbg_CloseEndedWindow(MTE_TRACE_LIMIT_S* pstLimit, int64_t llNowMs, bool bAll) {
    if (pstLimit->llWindowEndMs == 0 || (!bAll && llNowMs < pstLimit->llWindowEndMs)) {
        return;
    }
    if (pstLimit->ullSuppressed > 0) {
        mte_DBG_PrintTraceInfo(pstLimit->llTraceNo,
                               "%llu more records of this trace held back in the last %lld s.",
                               static_cast<unsigned long long>(pstLimit->ullSuppressed),
                               static_cast<long long>(MTE_TRACE_LIMIT_INTERVAL_MS / 1000));
    }
    pstLimit->llWindowEndMs = 0;
    pstLimit->ullSuppressed = 0;
}

void mte_dbg_FlushTraceLimits(bool bAll) {
    std::lock_guard<std::mutex> stGuard(g_stTraceLimitMutex);
    if (g_pstTraceLimits == nullptr) {
        return;
    }
    int64_t llNowMs = mte_dbg_NowMs();
    for (MTE_TRACE_LIMIT_S* pstLimit = g_pstTraceLimits; pstLimit != nullptr;
         pstLimit = pstLimit->pstNext) {
        mte_dbg_CloseEndedWindow(pstLimit, llNowMs, bAll);
    }
}

// The registry takes the texts as an array in index order.
constexpr std::array<const char*, MTE_TEXT_COUNT> mte_dbg_TextArray(void) {
    std::array<const char*, MTE_TEXT_COUNT> apszTexts{};
    for (const MTE_TEXT_S& stText : g_astMteTexts) {
        apszTexts[stText.eId] = stText.pszText;
    }
    return apszTexts;
}
constexpr std::array<const char*, MTE_TEXT_COUNT> g_apszMteTexts = mte_dbg_TextArray();

constexpr RC_DESC_S g_stMteRcDesc = {g_apszMteTexts.data(), 0};

}  // namespace

void mte_dbg_DbgSwtRdLock(void) {
    (void)pthread_rwlock_rdlock(&g_stDbgSwtLock);
}

void mte_dbg_DbgSwtWrLock(void) {
    (void)pthread_rwlock_wrlock(&g_stDbgSwtLock);
}

void mte_dbg_DbgSwtUnLock(void) {
    (void)pthread_rwlock_unlock(&g_stDbgSwtLock);
}

uint32_t MTE_AppRcInit(void) {
    return RC_RegInfo(MTE_RC_MODULE, &g_stMteRcDesc, MTE_TEXT_COUNT);
}

uint32_t MTE_AppRcExit(void) {
    return RC_DeregInfo(MTE_RC_MODULE);
}

uint32_t mte_DBG_Init(void) {
    mte_DBG_DisableSwitch(UINT32_MAX);  // all off, also when initialised again

    uint32_t uiRet = MTE_AppRcInit();
    // Opened even when the texts failed to register, so that the start-up
    // failure can still be reported.
    openlog(MTE_LOG_IDENT, LOG_ODELAY, LOG_LOCAL7);
    return uiRet;
}

void mte_DBG_Fini(void) {
    mte_dbg_FlushTraceLimits(true);  // counts held back until the stop are not lost
    (void)MTE_AppRcExit();
    closelog();
}

void mte_DBG_EnableSwitch(uint32_t uiMask) {
    MTE_LOCK_GUARD stGuard(mte_dbg_DbgSwtWrLock, mte_dbg_DbgSwtUnLock);
    g_uiDbgSwitch |= uiMask;
}

void mte_DBG_DisableSwitch(uint32_t uiMask) {
    MTE_LOCK_GUARD stGuard(mte_dbg_DbgSwtWrLock, mte_dbg_DbgSwtUnLock);
    g_uiDbgSwitch &= ~uiMask;
}

uint32_t mte_DBG_GetSwitch(void) {
    MTE_LOCK_GUARD stGuard(mte_dbg_DbgSwtRdLock, mte_dbg_DbgSwtUnLock);
    return g_uiDbgSwitch;
}

uint16_t mte_DBG_IsEnable(uint32_t uiMask) {
    return (mte_DBG_GetSwitch() & uiMask) != 0 ? 1 : 0;
}

void mte_DBG_PrintTraceInfo(int64_t llTraceNo, const char* pszFormat, ...) {
    char szBuf[MTE_TRACE_BUF_SIZE];
    szBuf[0] = '\0';
    int iLen = scnprintf(szBuf, sizeof(szBuf), "Ln:%4ld ", static_cast<long>(llTraceNo));
    if (iLen < 0) {
        iLen = 0;
    }

    va_list args;
    va_start(args, pszFormat);
    // vsnprintf cuts an overlong message so that the record and its
    // terminating zero fit the buffer.
    (void)vsnprintf(szBuf + iLen, sizeof(szBuf) - static_cast<size_t>(iLen), pszFormat, args);
    va_end(args);

    syslog2(MTE_PRI_TRACE, MTE_LOG_IDENT, MTE_DBG_MNEMONIC_TRACE, "%s", szBuf);
}

void mte_DBG_PrintTraceLimited(MTE_TRACE_LIMIT_S* pstLimit, const char* pszFormat, ...) {
    {
        std::lock_guard<std::mutex> stGuard(g_stTraceLimitMutex);
        if (!pstLimit->bListed) {
            pstLimit->pstNext = g_pstTraceLimits;
            g_pstTraceLimits = pstLimit;
            pstLimit->bListed = true;
        }
        int64_t llNowMs = mte_dbg_NowMs();
        mte_dbg_CloseEndedWindow(pstLimit, llNowMs, false);
        if (pstLimit->llWindowEndMs != 0) {
            pstLimit->ullSuppressed++;
            return;
        }
        pstLimit->llWindowEndMs = llNowMs + MTE_TRACE_LIMIT_INTERVAL_MS;
    }
    char szMessage[MTE_TRACE_BUF_SIZE];
    va_list args;
    va_start(args, pszFormat);
    (void)vsnprintf(szMessage, sizeof(szMessage), pszFormat, args);
    va_end(args);
    mte_DBG_PrintTraceInfo(pstLimit->llTraceNo, "%s", szMessage);
}

void mte_DBG_FlushTraceLimits(void) {
    mte_dbg_FlushTraceLimits(false);
}

void mte_DBG_VPrint(const char* pszMnemonic, const char* pszFormat, va_list args) {
    vsyslog2(MTE_PRI_DEBUG, MTE_LOG_IDENT, pszMnemonic, pszFormat, args);
}

void mte_DBG_Print(const char* pszMnemonic, const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    mte_DBG_VPrint(pszMnemonic, pszFormat, args);
    va_end(args);
}

const char* mte_DBG_Text(uint32_t uiIndex) {
    if (uiIndex >= MTE_TEXT_COUNT) {
        return "";
    }
    return RC_LoadString(MTE_TEXT(uiIndex));
}
