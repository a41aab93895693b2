// Placeholder definitions: replaced by the module's implementation.
#include "mte_run.h"

uint32_t mte_RUN_Init(void) { return {}; }
void mte_RUN_Fini(void) {}
int mte_RUN_GetEventFd(void) { return -1; }
uint32_t mte_RUN_ProcTimer(MTE_TRIGGER_ENTRY_S* pstTrigger) { return {}; }
uint32_t mte_RUN_Sample4AtOnce(MTE_TRIGGER_ENTRY_S* pstTrigger) { return {}; }
uint32_t mte_RUN_TriggerEnable(MTE_TRIGGER_ENTRY_S* pstTrigger) { return {}; }
uint32_t mte_RUN_TriggerDisable(MTE_TRIGGER_ENTRY_S* pstTrigger) { return {}; }
uint32_t mte_run_EpollInit(void) { return {}; }
uint32_t mte_run_EPOLLAdd(int iFd, MTE_EPOLL_PROC_PF pfHandler) { return {}; }
uint32_t mte_run_EPOLLDel(int iFd) { return {}; }
void mte_RUN_ClearSampleRes(MTE_TRIGGER_ENTRY_S* pstTrigger) {}
void mte_RUN_FreeResList(MTE_SAMPLE_S** ppstHead, MTE_SAMPLE_S** ppstTail) {}
void mte_run_FailureDebug(int32_t iReason, const char* pszContext, const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_OID_S* pstOid, uint32_t uiHeaderText, uint32_t uiTagText) {}
void mte_run_ReportFailure(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_OID_S* pstOid, const char* pszContext, int32_t iReason) {}
void mte_run_ExEvent(const MTE_TRIGGER_ROW_S* pstTrigger, MTE_FIRED_EVENT_S* pstEvents) {}
