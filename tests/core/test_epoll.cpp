// The epoll registration table: handlers reached through (descriptor,
// generation), stale events of a batch skipped, and the main set's trace on a
// failed registration.
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <vector>

#include "fake_log.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_epoll_set.h"

namespace {

struct CALL_S {
    int iHandler;
    int iFd;
    uint32_t uiEvents;
};

// Handlers are plain functions, so the test state they touch is global.
MTE_EPOLL_SET_S g_stSet = MTE_EPOLL_SET_INIT;
std::vector<CALL_S> g_astCalls;
int g_iVictimFd = -1;       // descriptor the first handler removes
int g_iReplacementFd = -1;  // descriptor that takes the victim's number

int NewReadyEventFd() {
    int iFd = eventfd(1, EFD_CLOEXEC);
    EXPECT_GE(iFd, 0);
    return iFd;
}

template <int HANDLER>
void Record(uint32_t uiEvents, int iFd) {
    g_astCalls.push_back({HANDLER, iFd, uiEvents});
}
constexpr MTE_EPOLL_PROC_PF HandlerA = Record<1>, HandlerB = Record<2>;

// Removes the victim and, for HANDLER 4, registers a new descriptor under the
// victim's number, as a reuse would give it.
template <int HANDLER>
void HandlerTouchesVictim(uint32_t uiEvents, int iFd) {
    g_astCalls.push_back({HANDLER, iFd, uiEvents});
    (void)mte_EPSET_Del(&g_stSet, g_iVictimFd);
    (void)close(g_iVictimFd);
    if (HANDLER == 4) {
        int iNew = eventfd(0, EFD_CLOEXEC);
        ASSERT_GE(iNew, 0);
        if (iNew != g_iVictimFd) {
            ASSERT_EQ(dup2(iNew, g_iVictimFd), g_iVictimFd);
            (void)close(iNew);
        }
        g_iReplacementFd = g_iVictimFd;
        ASSERT_EQ(mte_EPSET_Add(&g_stSet, g_iReplacementFd, HandlerB), 0);
    }
}
constexpr MTE_EPOLL_PROC_PF HandlerRemovesVictim = HandlerTouchesVictim<3>,
                            HandlerReplacesVictim = HandlerTouchesVictim<4>;

class EpollSetTest : public ::testing::Test {
  protected:
    void SetUp() override {
        g_astCalls.clear();
        ASSERT_EQ(mte_EPSET_Create(&g_stSet), 0u);
    }
    void TearDown() override {
        mte_EPSET_Destroy(&g_stSet);
        for (int iFd : aiFds) {
            (void)close(iFd);
        }
    }
    // Builds the batch by hand so that the order of the records is fixed.
    std::vector<epoll_event> Batch(int iCount) {
        std::vector<epoll_event> astRecords(8);
        int iGot = epoll_wait(g_stSet.iEpollFd, astRecords.data(), 8, 1000);
        EXPECT_EQ(iGot, iCount);
        astRecords.resize(iGot > 0 ? iGot : 0);
        return astRecords;
    }
    // Registers a ready descriptor with pfFirst and a ready victim with
    // HandlerA, then dispatches one batch of both with pfFirst's record first
    // (whatever order the kernel reported). Returns pfFirst's descriptor.
    int DispatchBatchWhereFirstHandlerTouchesVictim(MTE_EPOLL_PROC_PF pfFirst) {
        int iFirst = NewReadyEventFd();
        g_iVictimFd = NewReadyEventFd();
        aiFds.push_back(iFirst);
        EXPECT_EQ(mte_EPSET_Add(&g_stSet, iFirst, pfFirst), 0);
        EXPECT_EQ(mte_EPSET_Add(&g_stSet, g_iVictimFd, HandlerA), 0);
        auto astBatch = Batch(2);
        if (astBatch.size() == 2 &&
            static_cast<int>(static_cast<uint32_t>(astBatch[0].data.u64)) != iFirst) {
            std::swap(astBatch[0], astBatch[1]);
        }
        mte_EPSET_Dispatch(&g_stSet, astBatch.data(), static_cast<int>(astBatch.size()));
        return iFirst;
    }

    std::vector<int> aiFds;
};

// A high descriptor number grows the table; refused registrations leave it
// alone, and a second one of the same descriptor keeps the first.
TEST_F(EpollSetTest, EventReachesItsHandlerWithEventBitsAndDescriptor) {
    int iFd = NewReadyEventFd();
    ASSERT_EQ(dup2(iFd, 700), 700);
    aiFds.insert(aiFds.end(), {iFd, 700});
    EXPECT_EQ(mte_EPSET_Add(&g_stSet, -1, HandlerA), -1);
    EXPECT_EQ(mte_EPSET_Add(&g_stSet, iFd, nullptr), -1);
    ASSERT_EQ(mte_EPSET_Add(&g_stSet, iFd, HandlerA), 0);
    ASSERT_EQ(mte_EPSET_Add(&g_stSet, 700, HandlerB), 0);
    EXPECT_EQ(mte_EPSET_Add(&g_stSet, 700, HandlerA), -1);
    ASSERT_EQ(mte_EPSET_WaitAndDispatch(&g_stSet, 4, 1000), 2);
    ASSERT_EQ(g_astCalls.size(), 2u);
    for (const CALL_S& stCall : g_astCalls) {
        EXPECT_EQ(stCall.iFd, stCall.iHandler == 1 ? iFd : 700);
        EXPECT_EQ(stCall.uiEvents, static_cast<uint32_t>(EPOLLIN));
    }
    // Destroying the set twice is harmless.
    mte_EPSET_Destroy(&g_stSet);
    mte_EPSET_Destroy(&g_stSet);
    EXPECT_EQ(g_stSet.iEpollFd, -1);
}

TEST_F(EpollSetTest, EventOfDescriptorRemovedEarlierInTheBatchIsSkipped) {
    int iFirst = DispatchBatchWhereFirstHandlerTouchesVictim(HandlerRemovesVictim);
    ASSERT_EQ(g_astCalls.size(), 1u);
    EXPECT_EQ(g_astCalls[0].iHandler, 3);
    EXPECT_EQ(g_astCalls[0].iFd, iFirst);
}

TEST_F(EpollSetTest, StaleEventDoesNotReachTheHandlerOfAReusedDescriptor) {
    int iFirst = DispatchBatchWhereFirstHandlerTouchesVictim(HandlerReplacesVictim);
    ASSERT_EQ(g_astCalls.size(), 1u);
    EXPECT_EQ(g_astCalls[0].iHandler, 4);
    aiFds.push_back(g_iReplacementFd);

    // The replacement is live: once it is readable its own handler runs.
    uint64_t ulOne = 1;
    ASSERT_EQ(write(g_iReplacementFd, &ulOne, sizeof(ulOne)), 8);
    (void)mte_EPSET_Del(&g_stSet, iFirst);
    g_astCalls.clear();
    ASSERT_EQ(mte_EPSET_WaitAndDispatch(&g_stSet, 4, 1000), 1);
    ASSERT_EQ(g_astCalls.size(), 1u);
    EXPECT_EQ(g_astCalls[0].iHandler, 2);
    EXPECT_EQ(g_astCalls[0].iFd, g_iReplacementFd);
}

TEST(MainEpollTest, FailedRegistrationIsTracedWithTheDescriptor) {
    ASSERT_EQ(mte_DBG_Init(), 0u);
    ASSERT_EQ(mte_EPOLL_Init(), 0u);
    FAKE_LOG_Clear();
    int iClosed = NewReadyEventFd();
    (void)close(iClosed);
    EXPECT_EQ(mte_EPOLL_Add(iClosed, HandlerA), 0x40010001u);
    std::string strExpected =
        "Ln:  84 Failed to add iFd handler to epoll, iFd = " + std::to_string(iClosed) + ".";
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", strExpected), 1u);
    EXPECT_GE(mte_EPOLL_GetEpollFd(), 0);
    mte_EPOLL_Fini();
    EXPECT_EQ(mte_EPOLL_GetEpollFd(), -1);
    mte_EPOLL_Fini();
    mte_DBG_Fini();
}

}  // namespace
