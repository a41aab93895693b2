// The main epoll set: every descriptor of the main thread is registered here
// with its handler. Main thread only; no lock.
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_epoll_set.h"

namespace {

MTE_EPOLL_SET_S g_stMainEpollSet = MTE_EPOLL_SET_INIT;
// Every accepted connection is added here: a peer can cause this trace.
MTE_TRACE_LIMIT_S g_stEpollAddTraceLimit = MTE_TRACE_LIMIT_INIT(MTE_TRACE_EPOLL_ADD_FAILED);

}  // namespace

uint32_t mte_EPOLL_Init(void) {
    return mte_EPSET_Create(&g_stMainEpollSet);
}

void mte_EPOLL_Fini(void) {
    mte_EPSET_Destroy(&g_stMainEpollSet);
}

uint32_t mte_EPOLL_Add(int iFd, MTE_EPOLL_PROC_PF pfHandler) {
    if (mte_EPSET_Add(&g_stMainEpollSet, iFd, pfHandler) != 0) {
        mte_DBG_PrintTraceLimited(&g_stEpollAddTraceLimit,
                                  mte_DBG_TextFormat(MTE_TEXT_EPOLL_ADD_FAILED), iFd);
        return MTE_ERR_GENERAL;
    }
    return MTE_OK;
}

int mte_EPOLL_Del(int iFd) {
    return mte_EPSET_Del(&g_stMainEpollSet, iFd);
}

int mte_EPOLL_GetEpollFd(void) {
    return g_stMainEpollSet.iEpollFd;
}

int mte_EPOLL_WaitAndDispatch(int iMaxEvents) {
    return mte_EPSET_WaitAndDispatch(&g_stMainEpollSet, iMaxEvents, -1);
}
