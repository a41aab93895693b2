// Configuration store module against the in-memory fake: list keys, writes,
// failures of the databases, and the replay at start-up (batches, damaged
// records and items, settings and statistics, order of the tables).
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "fake_dbm.h"
#include "fake_log.h"
#include "mte_dbm.h"
#include "mte_scalar.h"
#include "plat_dbm.h"
#include "store_test_util.h"

namespace {

class StoreRecoverTest : public ::testing::Test {
  protected:
    void SetUp() override {
        StoreDiagnosticsUp();
        FAKE_DBM_Reset();
        FAKE_LOG_Clear();
        mte_SCALAR_Init();
        ASSERT_EQ(mte_DBM_Init(), 0u);
    }
    void TearDown() override { mte_DBM_Fini(); }

    // A restart: the modules go, the fake's contents stay.
    uint32_t Restart() {
        mte_DBM_Fini();
        mte_SCALAR_Init();
        uint32_t uiRet = mte_DBM_Init();
        return uiRet != 0 ? uiRet : mte_DBM_Recover();
    }

    void PutEvents(int iCount) {
        for (int i = 0; i < iCount; ++i) {
            MTE_EVENT_ROW_S stRow = StoreEventRow("owner", "ev" + std::to_string(i));
            ASSERT_EQ(mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow),
                                             MTE_TBL_EVENT),
                      0u);
        }
    }
};

TEST_F(StoreRecoverTest, RecordsAreIdentifiedByTheirKeys) {
    MTE_EVENT_ROW_S stA = StoreEventRow("owner", "ev", "first");
    MTE_EVENT_ROW_S stChanged = StoreEventRow("owner", "ev", "changed");
    MTE_EVENT_ROW_S stOther = StoreEventRow("owner", "ev2");
    for (const MTE_EVENT_ROW_S* pstRow : {&stA, &stChanged, &stOther}) {
        EXPECT_EQ(mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, pstRow, sizeof(*pstRow),
                                         MTE_TBL_EVENT),
                  0u);
    }
    EXPECT_EQ(FAKE_DBM_Records("mteEvent"),
              (std::vector<std::string>{StoreBytes(stChanged), StoreBytes(stOther)}));

    // Objects rows are told apart by their index as well.
    MTE_OBJ_ROW_S stObj = {};
    strcpy(stObj.szOwner, "o");
    strcpy(stObj.szName, "objs");
    for (uint32_t uiIndex : {1u, 2u, 1u}) {
        stObj.uiIndex = uiIndex;
        mte_DBM_InsertSortList(MTE_DBM_CFG, "mteObjects", 11, &stObj, sizeof(stObj),
                               MTE_TBL_OBJECTS);
    }
    EXPECT_EQ(FAKE_DBM_Records("mteObjects").size(), 2u);

    EXPECT_EQ(mte_DBM_DelFromSortList(MTE_DBM_CFG, "mteEvent", 9, &stA, sizeof(stA)), 0u);
    EXPECT_EQ(FAKE_DBM_Records("mteEvent"), (std::vector<std::string>{StoreBytes(stOther)}));
}

TEST_F(StoreRecoverTest, WritesToAnUnknownOrClosedDatabaseFail) {
    MTE_EVENT_ROW_S stRow = StoreEventRow("o", "e");
    uint32_t uiValue = 5;
    EXPECT_EQ(mte_DBM_InsertSortList(3, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT),
              MTE_ERR_GENERAL);
    EXPECT_EQ(mte_DBM_DelFromSortList(0, "mteEvent", 9, &stRow, sizeof(stRow)), 0xffffffffu);
    EXPECT_EQ(mte_DBM_SetBinary(7, "SampMini", 9, &uiValue, 4, MTE_ITEM_ID_SAMP_MINI),
              MTE_ERR_GENERAL);
    FAKE_DBM_FailWrites(true);
    EXPECT_EQ(
        mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT),
        MTE_ERR_GENERAL);
    EXPECT_EQ(mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &uiValue, 4, MTE_ITEM_ID_SAMP_MINI),
              MTE_ERR_GENERAL);
    FAKE_DBM_FailWrites(false);
    mte_DBM_Fini();
    mte_DBM_Fini();  // twice is harmless
    EXPECT_EQ(
        mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow), MTE_TBL_EVENT),
        MTE_ERR_GENERAL);
    EXPECT_EQ(mte_DBM_DelFromSortList(MTE_DBM_RUN, "mteEvent", 9, &stRow, sizeof(stRow)),
              0xffffffffu);
    EXPECT_EQ(mte_DBM_Recover(), MTE_ERR_GENERAL);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE",
                             "Ln:1217 Event-MIB module binary recovery: "
                             "Failed to get DBM handler."),
              1u);
}

TEST_F(StoreRecoverTest, InitFailsWhenEitherDatabaseCannotBeOpened) {
    for (auto [bCfg, bRun] : {std::pair{true, false}, std::pair{false, true}}) {
        mte_DBM_Fini();
        FAKE_DBM_FailOpen(bCfg, bRun);
        EXPECT_EQ(mte_DBM_Init(), MTE_ERR_GENERAL);
        // Nothing stays open after the failure.
        MTE_EVENT_ROW_S stRow = StoreEventRow("o", "e");
        EXPECT_EQ(mte_DBM_InsertSortList(MTE_DBM_CFG, "mteEvent", 9, &stRow, sizeof(stRow),
                                         MTE_TBL_EVENT),
                  MTE_ERR_GENERAL);
        EXPECT_EQ(mte_DBM_Recover(), MTE_ERR_GENERAL);
    }
}

TEST_F(StoreRecoverTest, EmptyStoreKeepsTheDefaults) {
    ASSERT_EQ(Restart(), 0u);
    // One empty read per list, the delta rows' list included.
    EXPECT_EQ(FAKE_DBM_BatchCalls(), MTE_DBM_SORTLIST_ROWS + MTE_DBM_SORTLIST_EXT_ROWS);
    MTE_SCALAR_S stScalars;
    mte_SCALAR_Get(&stScalars);
    EXPECT_EQ(stScalars.uiSampleMinimum, 1u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 0u);
    EXPECT_EQ(stScalars.uiEventFailures, 0u);
    EXPECT_EQ(mte_BIN_GetRecover(), 0u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE",
                             "Ln:1224 Event-MIB module binary recovery: "
                             "Obtained sortlist num = 10."),
              1u);
}

TEST_F(StoreRecoverTest, ListsAreReadInBatchesOfFive) {
    struct {
        int iRecords;
        uint64_t ulCallsForTheList;
    } astCases[] = {{1, 1}, {4, 1}, {5, 2}, {7, 2}, {10, 3}, {11, 3}};
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(stCase.iRecords);
        FAKE_DBM_Reset();
        mte_DBM_Fini();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        PutEvents(stCase.iRecords);
        uint64_t ulBefore = FAKE_DBM_BatchCalls();
        ASSERT_EQ(Restart(), 0u);
        EXPECT_EQ(FAKE_DBM_BatchCalls() - ulBefore,
                  MTE_DBM_SORTLIST_ROWS + MTE_DBM_SORTLIST_EXT_ROWS - 1 + stCase.ulCallsForTheList);
    }
}

TEST_F(StoreRecoverTest, RecordsOfTheWrongLengthAreSkipped) {
    PutEvents(3);
    FAKE_DBM_PutRaw("mteEvent", std::string(100, 'x'));
    FAKE_DBM_PutRaw("mteTrigger", std::string(1221, 'x'));
    ASSERT_EQ(Restart(), 0u);
    EXPECT_EQ(FAKE_DBM_SkippedRecords(), 2u);
}

TEST_F(StoreRecoverTest, SettingsAndStatisticsComeBack) {
    EXPECT_EQ(mte_SCALAR_SetSampleMin(30), 0u);
    EXPECT_EQ(mte_SCALAR_SetInstancesMax(200), 0u);
    mte_SCALAR_EventFailuresInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_TriggerFailuresInc();
    mte_SCALAR_SaveData();
    ASSERT_EQ(Restart(), 0u);
    MTE_SCALAR_S stScalars;
    mte_SCALAR_Get(&stScalars);
    EXPECT_EQ(stScalars.uiSampleMinimum, 30u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 200u);
    EXPECT_EQ(stScalars.uiSampleInstances, 0u);
    EXPECT_EQ(stScalars.uiTriggerFailures, 2u);
    EXPECT_EQ(stScalars.uiEventFailures, 1u);
}

TEST_F(StoreRecoverTest, ItemsOfTheWrongLengthAreIgnored) {
    const uint64_t ulEight = 77;
    const uint16_t usTwo = 77;
    const char acLong[20] = {1};
    ASSERT_EQ(mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &ulEight, 8, MTE_ITEM_ID_SAMP_MINI),
              0u);
    ASSERT_EQ(
        mte_DBM_SetBinary(MTE_DBM_CFG, "SampInstMax", 12, &usTwo, 2, MTE_ITEM_ID_SAMP_INST_MAX),
        0u);
    ASSERT_EQ(mte_DBM_SetBinary(MTE_DBM_RUN, "StatisticData", 14, acLong, sizeof(acLong),
                                MTE_ITEM_ID_STATISTIC_DATA),
              0u);
    ASSERT_EQ(Restart(), 0u);
    MTE_SCALAR_S stScalars;
    mte_SCALAR_Get(&stScalars);
    EXPECT_EQ(stScalars.uiSampleMinimum, 1u);
    EXPECT_EQ(stScalars.uiSampleInstanceMaximum, 0u);
    EXPECT_EQ(stScalars.uiSampleInstancesHigh, 0u);
}

TEST(StoreRecoverOrder, SettingsThenObjectsEventsActionsThenTriggersAndTests) {
    const uint32_t auiExpected[] = {MTE_ITEM_ID_SAMP_MINI, MTE_ITEM_ID_SAMP_INST_MAX,
                                    MTE_TBL_OBJECTS,       MTE_TBL_EVENT,
                                    MTE_TBL_SET,           MTE_TBL_NOTIFY,
                                    MTE_TBL_TRIGGER,       MTE_TBL_BOOLEAN,
                                    MTE_TBL_EXISTENCE,     MTE_TBL_THRESHOLD};
    for (uint32_t i = 0; i < MTE_DBM_RECOVER_ROWS; ++i) {
        EXPECT_EQ(g_astMteDbmRecoverFunc[i].uiId, auiExpected[i]) << "row " << i + 1;
        EXPECT_NE(g_astMteDbmRecoverFunc[i].pfProc, nullptr);
    }
}

}  // namespace
