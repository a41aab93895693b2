// Daemon spine: start-up in a fixed order, the main loop and the orderly
// shutdown. The main epoll set is in mte_epoll.cpp, the stop signal and the
// pre-stop flag in mte_signal.cpp.
//
// Everything here runs on the main thread, and every handler registered in the
// main epoll set runs here one after another; the module state below is
// therefore plain globals without a lock. No lock is taken in this file apart
// from those of the modules it calls.
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_memalert.h"
#include "mte_obj.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_tarn.h"
#include "mte_timer.h"
#include "mte_trigger.h"
#include "plat_service.h"

namespace {

constexpr int MTE_MAIN_MAX_EVENTS = 4;

int g_iExitStatus = 0;

// Every initialiser runs even after a failure, so each module's Fini later
// finds a well-defined state; the results are combined.
uint32_t mte_main_InitModules(void) {
    uint32_t uiRet = 0;
    uiRet |= mte_DBG_Init();
    uiRet |= mte_EPOLL_Init();
    uiRet |= mte_SignalInit();
    uiRet |= mte_TARN_Init();
    uiRet |= mte_MEMALERT_Init();
    uiRet |= mte_DBM_Init();
    uiRet |= mte_RUN_Init();
    uiRet |= mte_TRIGGER_Init();
    uiRet |= mte_EVENT_Init();
    uiRet |= mte_OBJ_Init();
    uiRet |= mte_SCALAR_Init();
    return uiRet;
}

// Replay of the stored configuration, port-service subscription and the
// ready report: all three run whatever the earlier ones returned.
uint32_t mte_main_Register(void) {
    uint32_t uiRet = 0;
    uiRet |= mte_DBM_Recover();
    uiRet |= mte_SNMP_RegService();
    uiRet |= SERVICE_SetStatus(SERVICE_STATUS_READY);
    return uiRet;
}

void mte_main_Loop(void) {
    while (mte_IsVigilPreStop() != 1 || mte_GetTarnSocketNum() != 0) {
        // A failed or interrupted wait is simply retried.
        (void)mte_EPOLL_WaitAndDispatch(MTE_MAIN_MAX_EVENTS);
        mte_DBG_FlushTraceLimits();
    }
}

void mte_main_FiniModules(void) {
    mte_SCALAR_SaveData();
    mte_TARN_Fini();
    mte_RUN_Fini();
    mte_OBJ_Fini();
    mte_EVENT_Fini();
    mte_TRIGGER_Fini();
    mte_DBM_Fini();
    mte_TIMER_Fini();
    mte_MEMALERT_Fini();
    mte_SignalFini();
    mte_EPOLL_Fini();
    mte_DBG_Fini();
}

}  // namespace

int mte_MAIN_Run(void) {
    if (mte_main_InitModules() != MTE_OK) {
        mte_DBG_PrintTraceInfo(MTE_TRACE_INIT_FAILED, "%s", mte_DBG_Text(MTE_TEXT_INIT_FAILED));
        g_iExitStatus = -1;
        mte_SetVigilPreStop();
    } else if (mte_main_Register() != MTE_OK) {
        g_iExitStatus = -1;
        mte_SetVigilPreStop();
    }

    mte_main_Loop();
    mte_main_FiniModules();
    return g_iExitStatus;
}
