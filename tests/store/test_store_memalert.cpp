// Memory guard against the fake alert service: the state at start, the
// announcements, and the end of the subscription.
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include "fake_log.h"
#include "fake_memalert.h"
#include "mte_core.h"
#include "mte_memalert.h"
#include "store_test_util.h"

namespace {

class StoreMemAlertTest : public ::testing::Test {
  protected:
    void SetUp() override {
        StoreDiagnosticsUp();
        FAKE_MEMALERT_Reset();
        FAKE_LOG_Clear();
        mte_EPOLL_Init();
    }
    void TearDown() override {
        mte_MEMALERT_Fini();
        mte_EPOLL_Fini();
    }
    static void Announce(uint32_t uiState) {
        FAKE_MEMALERT_Announce(uiState);
        mte_MEMALERT_Proc(EPOLLIN, FAKE_MEMALERT_Fd());
    }
    static size_t Traces(const char* pszPrefix) {
        return FAKE_LOG_Count("EVENTMIB_TRACE", pszPrefix);
    }
};

TEST_F(StoreMemAlertTest, StateAtStartSetsTheFlagQuietly) {
    struct {
        uint32_t uiState;
        uint32_t uiFlag;
    } astCases[] = {{1, 1}, {2, 1}, {3, 1}, {4, 0}, {6, 0}, {7, 0}, {0, 0}};
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.uiState);
        FAKE_MEMALERT_SetCurrentState(stCase.uiState);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        EXPECT_EQ(mte_MEMALERT_GetFlag(), stCase.uiFlag);
        mte_MEMALERT_Fini();
    }
    EXPECT_EQ(FAKE_LOG_Lines().size(), 0u);
}

TEST_F(StoreMemAlertTest, AnnouncementsMoveTheFlagAndAreTracedEachTime) {
    FAKE_MEMALERT_SetCurrentState(2);
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    ASSERT_EQ(mte_MEMALERT_GetFlag(), 1u);
    Announce(6);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
    Announce(1);
    Announce(1);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    for (uint32_t uiState : {2u, 3u, 7u, 0u}) {  // states that change nothing while running
        Announce(uiState);
        EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    }
    EXPECT_EQ(Traces("Ln: 206 Memory threshold was exceeded."), 2u);
    EXPECT_EQ(Traces("Ln: 213 Memory usage dropped below the memory threshold."), 1u);
    EXPECT_EQ(FAKE_LOG_Lines().size(), 3u);
}

TEST_F(StoreMemAlertTest, FailedReadIsIgnored) {
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    FAKE_MEMALERT_FailRead(true);
    Announce(1);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
    mte_MEMALERT_Proc(EPOLLOUT, FAKE_MEMALERT_Fd());  // no EPOLLIN: not read
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 0u);
}

TEST_F(StoreMemAlertTest, HangUpClosesTheSubscriptionForGood) {
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    Announce(1);
    int iFd = FAKE_MEMALERT_Fd();
    mte_MEMALERT_Proc(EPOLLHUP, iFd);
    EXPECT_EQ(FAKE_MEMALERT_Fd(), -1);
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 1u);
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);  // keeps its last value
    mte_MEMALERT_Fini();                    // nothing left to close
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 1u);
}

TEST_F(StoreMemAlertTest, ReadThenHangUpInOneCall) {
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    FAKE_MEMALERT_Announce(1);
    mte_MEMALERT_Proc(EPOLLIN | EPOLLERR, FAKE_MEMALERT_Fd());
    EXPECT_EQ(mte_MEMALERT_GetFlag(), 1u);
    EXPECT_EQ(FAKE_MEMALERT_Fd(), -1);
}

TEST_F(StoreMemAlertTest, InitFailsWithoutASubscription) {
    FAKE_MEMALERT_FailInit(true);
    EXPECT_EQ(mte_MEMALERT_Init(), MTE_ERR_GENERAL);
    mte_MEMALERT_Fini();
    EXPECT_EQ(FAKE_MEMALERT_FiniCount(), 0u);
}

}  // namespace
