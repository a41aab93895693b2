// Epoll set with handler registrations (see mte_epoll_set.h for the scheme).
// Runs on whichever thread owns the set; takes no lock.
#include "mte_epoll_set.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int MTE_EPSET_MAX_BATCH = 64;

uint64_t mte_epset_Pack(int iFd, uint32_t uiGeneration) {
    return (static_cast<uint64_t>(uiGeneration) << 32) | static_cast<uint32_t>(iFd);
}

// Makes room for slot iFd; false when memory is short.
bool mte_epset_Reserve(MTE_EPOLL_SET_S* pstSet, int iFd) {
    uint32_t uiNeed = static_cast<uint32_t>(iFd) + 1;
    if (uiNeed <= pstSet->uiSlotCount) {
        return true;
    }
    uint32_t uiNew = pstSet->uiSlotCount == 0 ? 64 : pstSet->uiSlotCount;
    while (uiNew < uiNeed) {
        uiNew *= 2;
    }
    auto* pstSlots =
        static_cast<MTE_EPOLL_SLOT_S*>(realloc(pstSet->pstSlots, uiNew * sizeof(MTE_EPOLL_SLOT_S)));
    if (pstSlots == nullptr) {
        return false;
    }
    memset(pstSlots + pstSet->uiSlotCount, 0,
           (uiNew - pstSet->uiSlotCount) * sizeof(MTE_EPOLL_SLOT_S));
    pstSet->pstSlots = pstSlots;
    pstSet->uiSlotCount = uiNew;
    return true;
}

uint32_t mte_epset_NextGeneration(MTE_EPOLL_SET_S* pstSet) {
    // 0 marks a free slot, so it is never handed out, even after a wrap.
    if (++pstSet->uiLastGeneration == 0) {
        pstSet->uiLastGeneration = 1;
    }
    return pstSet->uiLastGeneration;
}

}  // namespace

uint32_t mte_EPSET_Create(MTE_EPOLL_SET_S* pstSet) {
    pstSet->iEpollFd = epoll_create1(EPOLL_CLOEXEC);
    return pstSet->iEpollFd < 0 ? MTE_ERR_GENERAL : MTE_OK;
}

void mte_EPSET_Destroy(MTE_EPOLL_SET_S* pstSet) {
    if (pstSet->iEpollFd != -1) {
        (void)close(pstSet->iEpollFd);
        pstSet->iEpollFd = -1;
    }
    free(pstSet->pstSlots);
    pstSet->pstSlots = nullptr;
    pstSet->uiSlotCount = 0;
}

int mte_EPSET_Add(MTE_EPOLL_SET_S* pstSet, int iFd, MTE_EPOLL_PROC_PF pfHandler) {
    if (iFd < 0 || pfHandler == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (!mte_epset_Reserve(pstSet, iFd)) {
        errno = ENOMEM;
        return -1;
    }
    uint32_t uiGeneration = mte_epset_NextGeneration(pstSet);
    struct epoll_event stEvent;
    memset(&stEvent, 0, sizeof(stEvent));
    stEvent.events = MTE_EPOLL_EVENTS;
    stEvent.data.u64 = mte_epset_Pack(iFd, uiGeneration);
    int iRet = epoll_ctl(pstSet->iEpollFd, EPOLL_CTL_ADD, iFd, &stEvent);
    if (iRet == 0) {
        pstSet->pstSlots[iFd] = {pfHandler, uiGeneration};
    }
    return iRet;
}

int mte_EPSET_Del(MTE_EPOLL_SET_S* pstSet, int iFd) {
    if (iFd >= 0 && static_cast<uint32_t>(iFd) < pstSet->uiSlotCount) {
        pstSet->pstSlots[iFd] = {nullptr, 0};
    }
    return epoll_ctl(pstSet->iEpollFd, EPOLL_CTL_DEL, iFd, nullptr);
}

void mte_EPSET_Dispatch(MTE_EPOLL_SET_S* pstSet, const struct epoll_event* pstRecords, int iCount) {
    for (int i = 0; i < iCount; ++i) {
        uint64_t ulData = pstRecords[i].data.u64;
        uint32_t uiFd = static_cast<uint32_t>(ulData);
        uint32_t uiGeneration = static_cast<uint32_t>(ulData >> 32);
        // The table is looked up afresh for every record: an earlier handler
        // of this batch may have removed, replaced or added registrations.
        if (uiFd >= pstSet->uiSlotCount) {
            continue;
        }
        const MTE_EPOLL_SLOT_S stSlot = pstSet->pstSlots[uiFd];
        if (stSlot.pfHandler == nullptr || stSlot.uiGeneration != uiGeneration) {
            continue;
        }
        stSlot.pfHandler(pstRecords[i].events, static_cast<int>(uiFd));
    }
}

int mte_EPSET_WaitAndDispatch(MTE_EPOLL_SET_S* pstSet, int iMax, int iTimeoutMs) {
    struct epoll_event astRecords[MTE_EPSET_MAX_BATCH];
    if (iMax > MTE_EPSET_MAX_BATCH) {
        iMax = MTE_EPSET_MAX_BATCH;
    }
    int iCount = epoll_wait(pstSet->iEpollFd, astRecords, iMax, iTimeoutMs);
    if (iCount > 0) {
        mte_EPSET_Dispatch(pstSet, astRecords, iCount);
    }
    return iCount;
}
