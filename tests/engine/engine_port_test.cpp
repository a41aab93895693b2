// Port-down behaviour the trigger table relies on, and the sample store.
#include <gtest/gtest.h>

#include "engine_helpers.h"
#include "mte_run.h"
#include "mte_timer.h"

namespace {

class EnginePortDown : public ::testing::Test {
  protected:
    void SetUp() override { mte_TIMER_SetPortFlag(0); }
    void TearDown() override { mte_TIMER_Fini(); }
};

TEST_F(EnginePortDown, TriggerOperationsDoNothingWhilePortIsDown) {
    MTE_TRIGGER_ENTRY_S* pstTrigger = ENG_NewTrigger("t1");
    EXPECT_EQ(mte_TIMER_GetPortFlag(), 0);
    EXPECT_EQ(mte_RUN_TriggerEnable(pstTrigger), 0u);
    EXPECT_EQ(pstTrigger->llTimerId, -1);
    EXPECT_EQ(mte_RUN_TriggerDisable(pstTrigger), 0u);
    EXPECT_EQ(mte_RUN_Sample4AtOnce(pstTrigger), 0u);
    EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstTrigger->usInstanceReleased, 1);
    ENG_FreeTrigger(pstTrigger);
}

TEST_F(EnginePortDown, PortFlagIsKept) {
    mte_TIMER_SetPortFlag(1);
    EXPECT_EQ(mte_TIMER_GetPortFlag(), 1);
    mte_TIMER_SetPortFlag(0);
    EXPECT_EQ(mte_TIMER_GetPortFlag(), 0);
}

TEST_F(EnginePortDown, TimerOperationsAreSafeWithoutATimerSet) {
    EXPECT_EQ(mte_TIMER_Refresh(-1, 10), 0u);
    EXPECT_NE(mte_TIMER_Refresh(7, 10), 0u);
    EXPECT_NE(mte_TIMER_Del(7), 0u);
    EXPECT_NE(mte_TIMER_Active(7), 0u);
    EXPECT_NE(mte_TIMER_Suspend(7), 0u);
    EXPECT_EQ(mte_GetNotifyEvtFd(), -1);
    mte_TIMER_Fini();
    mte_TIMER_Fini();
}

TEST(EngineSampleStore, FreeResListEmptiesHeadAndTail) {
    MTE_SAMPLE_S* pstHead = nullptr;
    MTE_SAMPLE_S* pstTail = nullptr;
    ENG_AppendSample(&pstHead, &pstTail, "", ENG_Oid({1, 3, 6}), ENG_IntValue(5));
    ENG_AppendSample(&pstHead, &pstTail, "c1", ENG_Oid({1, 3, 7}), nullptr);
    mte_RUN_FreeResList(&pstHead, &pstTail);
    EXPECT_EQ(pstHead, nullptr);
    EXPECT_EQ(pstTail, nullptr);
    mte_RUN_FreeResList(&pstHead, &pstTail);
}

TEST(EngineSampleStore, ClearSampleResDropsBothListsAndResetsFirstCycle) {
    for (uint32_t uiWildcard : {MTE_FALSE, MTE_TRUE}) {
        MTE_TRIGGER_ENTRY_S* pstTrigger = ENG_NewTrigger("t1");
        pstTrigger->stRow.uiValueIDWildcard = uiWildcard;
        MTE_EXIST_ENTRY_S stExist{};
        stExist.usFirstCycle = 0;
        pstTrigger->pstExist = &stExist;
        pstTrigger->usInstanceReleased = 0;
        ENG_AppendSample(&pstTrigger->pstPrevSamples, &pstTrigger->pstPrevSamplesTail, "",
                         ENG_Oid({1, 3, 6, 1}), ENG_IntValue(1));
        ENG_AppendSample(&pstTrigger->pstCurSamples, &pstTrigger->pstCurSamplesTail, "",
                         ENG_Oid({1, 3, 6, 2}), ENG_IntValue(2), 1);
        mte_RUN_ClearSampleRes(pstTrigger);
        EXPECT_EQ(pstTrigger->pstPrevSamples, nullptr);
        EXPECT_EQ(pstTrigger->pstPrevSamplesTail, nullptr);
        EXPECT_EQ(pstTrigger->pstCurSamples, nullptr);
        EXPECT_EQ(pstTrigger->pstCurSamplesTail, nullptr);
        EXPECT_EQ(pstTrigger->usInstanceReleased, 1);
        EXPECT_EQ(stExist.usFirstCycle, 1);
        EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
        pstTrigger->pstExist = nullptr;
        ENG_FreeTrigger(pstTrigger);
    }
}

}  // namespace
