// Index order, lookups and get-next with presence flags; the three test
// tables' get, get-next and set with every result code and failed column;
// recovery of stored triggers and their tests through the store's replay.
#include <cstring>

#include "mte_bool.h"
#include "mte_exist.h"
#include "mte_thres.h"
#include "table_fixture.h"

namespace {

std::vector<std::string> ListKeys() {
    std::vector<std::string> astrKeys;
    uint8_t ucFlags = 0;
    for (MTE_TRIGGER_ENTRY_S* p = mte_TRIGGER_GetNextTriggerEntry(0, "", "", &ucFlags);
         p != nullptr; p = p->pstNext) {
        astrKeys.push_back(std::string(p->stRow.szOwner) + "/" + p->stRow.szName);
    }
    return astrKeys;
}

TEST_F(TriggerTableTest, IndexOrderOwnersByLengthThenBytes) {
    EXPECT_EQ(mte_TRIGGER_IsEmpty(), 1u);
    EXPECT_EQ(mte_TRIGGER_GetNext(0, "", ""), nullptr);
    CreateWaiting("ab", "n");
    CreateWaiting("b", "n");
    CreateWaiting("aa", "n");
    CreateWaiting("o", "xy");
    CreateWaiting("o", "x");
    CreateWaiting("o", "ab");
    CreateWaiting("o", "abc");
    EXPECT_EQ(mte_TRIGGER_IsEmpty(), 0u);
    EXPECT_EQ(ListKeys(),
              (std::vector<std::string>{"b/n", "o/ab", "o/abc", "o/x", "o/xy", "aa/n", "ab/n"}));
    EXPECT_STREQ(mte_TRIGGER_GetNext(1, "o", "x")->szName, "xy");
    EXPECT_STREQ(mte_TRIGGER_GetNext(0, "", "")->szOwner, "b");
    EXPECT_EQ(mte_TRIGGER_GetNext(2, "ab", "n"), nullptr);
    // The owner length of the key decides before its bytes.
    EXPECT_STREQ(mte_TRIGGER_GetNext(1, "zz", "")->szOwner, "aa");
    EXPECT_STREQ(mte_TRIGGER_Get("o", "xy")->szName, "xy");
    EXPECT_EQ(mte_TRIGGER_Get("o", "y"), nullptr);
    EXPECT_EQ(mte_TRIGGER_Get("longer-than-all", "n"), nullptr);
    EXPECT_EQ(mte_TRIGGER_Get("", "n"), nullptr);
    EXPECT_LT(mte_TRIGGER_CompareKey(1, "b", "", 2, "aa", ""), 0);
    EXPECT_EQ(mte_TRIGGER_CompareKey(2, "aa", "x", 2, "aa", "x"), 0);
    EXPECT_GT(mte_TRIGGER_CompareKey(2, "aa", "xy", 2, "aa", "x"), 0);
}

TEST_F(TriggerTableTest, GetNextPresenceFlags) {
    CreateWaiting("o", "a", MTE_TEST_BOOLEAN);
    CreateWaiting("o", "b");
    CreateWaiting("o", "c", MTE_TEST_EXISTENCE | MTE_TEST_THRESHOLD);
    uint8_t ucFlags = 0;
    MTE_TRIGGER_ENTRY_S* pst = mte_TRIGGER_GetNextTriggerEntry(1, "o", "b", &ucFlags);
    ASSERT_NE(pst, nullptr);
    EXPECT_STREQ(pst->stRow.szName, "c");
    EXPECT_EQ(ucFlags, MTE_PRESENT_BOOLEAN);
    // The sub-tables walk on to the next trigger that has their row.
    ucFlags = 0;
    EXPECT_EQ(mte_BOOL_GetNext(1, "o", "a", &ucFlags), nullptr);
    EXPECT_EQ(ucFlags, MTE_PRESENT_BOOLEAN);  // ended, not empty
    ucFlags = 0;
    MTE_EXIST_ENTRY_S* pstExist = mte_EXIST_GetNext(0, "", "", &ucFlags);
    ASSERT_NE(pstExist, nullptr);
    EXPECT_STREQ(pstExist->szName, "c");
    EXPECT_EQ(ucFlags, 0);
    ucFlags = 0;
    EXPECT_EQ(mte_THRES_GetNext(1, "o", "c", &ucFlags), nullptr);
    EXPECT_EQ(ucFlags, MTE_PRESENT_BOOLEAN | MTE_PRESENT_EXISTENCE | MTE_PRESENT_THRESHOLD);
    EXPECT_NE(mte_BOOL_Get("o", "a"), nullptr);
    EXPECT_EQ(mte_BOOL_Get("o", "b"), nullptr);
    EXPECT_EQ(mte_EXIST_Get("o", "zz"), nullptr);
    EXPECT_NE(mte_THRES_Get("o", "c"), nullptr);
}

TEST_F(TriggerTableTest, FreeNodeOfNoneAndFiniKeepTheStore) {
    mte_TRIGGER_FreeNode(nullptr);
    CreateActive("o", "a", 0xE0);
    Snapshot stBefore = TakeSnapshot();
    mte_TRIGGER_Fini();
    EXPECT_EQ(mte_TRIGGER_IsEmpty(), 1u);
    EXPECT_EQ(TakeSnapshot().astrStored[0], stBefore.astrStored[0]);
    EXPECT_EQ(TakeSnapshot().astrStored[3], stBefore.astrStored[3]);
    mte_TRIGGER_Fini();  // twice is harmless
}

TEST_F(TriggerTableTest, ClearAllSamplesTouchesActiveTriggersOnly) {
    CreateActive("o", "act", MTE_TEST_EXISTENCE);
    CreateWaiting("o", "wait", MTE_TEST_EXISTENCE);
    mte_EXIST_Get("o", "act")->usFirstCycle = 0;
    mte_EXIST_Get("o", "wait")->usFirstCycle = 0;
    mte_TRIGGER_ClearAllSpl();
    // The next cycle of an active trigger is its first again.
    EXPECT_EQ(mte_EXIST_Get("o", "act")->usFirstCycle, 1);
    EXPECT_EQ(mte_EXIST_Get("o", "wait")->usFirstCycle, 0);
    // With the port service down, starting and suspending change nothing.
    Snapshot stBefore = TakeSnapshot();
    mte_TRIGGER_StartAll();
    mte_TRIGGER_SuspendTmr();
    EXPECT_EQ(TakeSnapshot(), stBefore);
}

// ---- test tables ---------------------------------------------------------

template <typename Row>
Row TestReq(const char* pszOwner, const char* pszName) {
    Row st{};
    strcpy(st.szOwner, pszOwner);
    strcpy(st.szName, pszName);
    return st;
}

TEST_F(TriggerTableTest, ExistenceSetResults) {
    CreateWaiting("o", "w", MTE_TEST_EXISTENCE);
    CreateActive("o", "act", MTE_TEST_EXISTENCE);
    CreateWaiting("o", "none");
    uint32_t uiFailed = 0;
    auto stReq = TestReq<MTE_EXIST_ENTRY_S>("o", "w");
    stReq.ucTest = 0x20;
    stReq.ucStartup = 0x00;
    strcpy(stReq.szEvent, "ev");
    strcpy(stReq.szEventOwner, "o");
    const uint32_t kAll = 0x3fe;
    // Refusals first: nothing may change.
    Snapshot stBefore = TakeSnapshot();
    auto stMissing = TestReq<MTE_EXIST_ENTRY_S>("o", "nope");
    EXPECT_EQ(mte_EXIST_Set(&stMissing, kAll, &uiFailed), MTE_ERR_NO_SUCH_ROW);
    auto stNoRow = TestReq<MTE_EXIST_ENTRY_S>("o", "none");
    EXPECT_EQ(mte_EXIST_Set(&stNoRow, kAll, &uiFailed), MTE_ERR_NO_SUCH_ROW);
    auto stBadOwner = stReq;
    strcpy(stBadOwner.szObjectsOwner, "p");
    EXPECT_EQ(mte_EXIST_Set(&stBadOwner, kAll, &uiFailed), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(uiFailed, 6u);
    strcpy(stBadOwner.szObjectsOwner, "");
    strcpy(stBadOwner.szEventOwner, "O");
    EXPECT_EQ(mte_EXIST_Set(&stBadOwner, kAll, &uiFailed), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(uiFailed, 8u);
    auto stAct = stReq;
    strcpy(stAct.szName, "act");
    EXPECT_EQ(mte_EXIST_Set(&stAct, kAll, &uiFailed), MTE_ERR_INCONSISTENT);
    auto stActSame = *mte_EXIST_Get("o", "act");
    EXPECT_EQ(mte_EXIST_Set(&stActSame, kAll, &uiFailed), MTE_ERR_NO_CHANGE);
    EXPECT_EQ(TakeSnapshot(), stBefore);

    uint64_t ulWrites = FAKE_DBM_WriteCount();
    auto stSame = *mte_EXIST_Get("o", "w");
    EXPECT_EQ(mte_EXIST_Set(&stSame, kAll, &uiFailed), 0u);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);  // nothing changed, nothing written

    // Bits one column at a time: only the present test bit is written.
    EXPECT_EQ(mte_EXIST_Set(&stReq, COL(MTE_EXIST_COL_TEST_PRESENT), &uiFailed), 0u);
    MTE_EXIST_ENTRY_S* pstRow = mte_EXIST_Get("o", "w");
    EXPECT_EQ(pstRow->ucTest, 0x40);
    EXPECT_EQ(pstRow->ucStartup, 0xC0);
    EXPECT_EQ(mte_EXIST_Set(&stReq, kAll, &uiFailed), 0u);
    EXPECT_EQ(pstRow->ucTest, 0x20);
    EXPECT_EQ(pstRow->ucStartup, 0x00);
    EXPECT_STREQ(pstRow->szEvent, "ev");
    EXPECT_EQ(pstRow->usFirstCycle, 1);
    bool bStored = false;
    for (const std::string& s : FAKE_DBM_Records("mteExistence")) {
        bStored |= s == Bytes(pstRow, MTE_EXIST_ROW_SIZE);
    }
    EXPECT_TRUE(bStored);
}

TEST_F(TriggerTableTest, BooleanSetResults) {
    CreateWaiting("o", "w", MTE_TEST_BOOLEAN);
    CreateActive("o", "act", MTE_TEST_BOOLEAN);
    uint32_t uiFailed = 0;
    auto stReq = TestReq<MTE_BOOL_ENTRY_S>("o", "w");
    stReq.uiComparison = 9;  // stored as given
    stReq.iValue = -3;
    stReq.uiStartup = MTE_FALSE;
    const uint32_t kAll = 0xfe;
    Snapshot stBefore = TakeSnapshot();
    auto stBad = stReq;
    strcpy(stBad.szObjectsOwner, "x");
    EXPECT_EQ(mte_BOOL_Set(&stBad, kAll, &uiFailed), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(uiFailed, 4u);
    strcpy(stBad.szObjectsOwner, "o");
    strcpy(stBad.szEventOwner, "x");
    EXPECT_EQ(mte_BOOL_Set(&stBad, kAll, &uiFailed), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(uiFailed, 6u);
    // The owner check applies only to columns in the mask.
    uiFailed = 0;
    auto stAct = TestReq<MTE_BOOL_ENTRY_S>("o", "act");
    stAct.iValue = 5;
    EXPECT_EQ(mte_BOOL_Set(&stAct, COL(MTE_BOOL_COL_VALUE), &uiFailed), MTE_ERR_INCONSISTENT);
    stAct.iValue = 0;
    EXPECT_EQ(mte_BOOL_Set(&stAct, COL(MTE_BOOL_COL_VALUE), &uiFailed), MTE_ERR_NO_CHANGE);
    auto stMissing = TestReq<MTE_BOOL_ENTRY_S>("x", "w");
    EXPECT_EQ(mte_BOOL_Set(&stMissing, kAll, &uiFailed), MTE_ERR_NO_SUCH_ROW);
    EXPECT_EQ(TakeSnapshot(), stBefore);

    strcpy(stBad.szEventOwner, "");
    EXPECT_EQ(mte_BOOL_Set(&stBad, COL(MTE_BOOL_COL_VALUE), &uiFailed), 0u);
    EXPECT_EQ(mte_BOOL_Set(&stReq, kAll, &uiFailed), 0u);
    MTE_BOOL_ENTRY_S* pstRow = mte_BOOL_Get("o", "w");
    EXPECT_EQ(pstRow->uiComparison, 9u);
    EXPECT_EQ(pstRow->iValue, -3);
    EXPECT_EQ(pstRow->uiStartup, MTE_FALSE);
    bool bStored = false;
    for (const std::string& s : FAKE_DBM_Records("mteBoolean")) {
        bStored |= s == Bytes(pstRow, sizeof(*pstRow));
    }
    EXPECT_TRUE(bStored);
}

struct ThresCase {
    const char* pszWhat;
    int32_t iRising, iFalling, iDeltaRising, iDeltaFalling;
    uint32_t uiMask;
    uint32_t uiResult;
    uint32_t uiFailed;
};

TEST_F(TriggerTableTest, ThresholdOrderingAndOwners) {
    const uint32_t R = COL(2), F = COL(3), DR = COL(4), DF = COL(5);
    // Stored before each case: rising 80, falling 20, delta rising 10, delta falling -10.
    const ThresCase astCases[] = {
        {"rising below new falling", 10, 20, 0, 0, R | F, MTE_ERR_INCONSISTENT, 2},
        {"rising below stored falling", 10, 0, 0, 0, R, MTE_ERR_INCONSISTENT, 2},
        {"rising equal to falling", 20, 20, 0, 0, R | F, 0, 0},
        {"falling above stored rising", 0, 90, 0, 0, F, MTE_ERR_INCONSISTENT, 3},
        {"falling equal to stored rising", 0, 80, 0, 0, F, 0, 0},
        {"delta rising below new delta falling", 0, 0, -20, -10, DR | DF, MTE_ERR_INCONSISTENT, 4},
        {"delta rising below stored delta falling", 0, 0, -20, 0, DR, MTE_ERR_INCONSISTENT, 4},
        {"delta falling above stored delta rising", 0, 0, 0, 11, DF, MTE_ERR_INCONSISTENT, 5},
        {"bit 31 waives the ordering", 10, 20, -20, -10, R | F | DR | DF | MTE_MASK_FORCE, 0, 0},
        {"bit 31 with falling above rising", 0, 90, 0, 0, F | MTE_MASK_FORCE, 0, 0},
        {"signed comparison", -5, -6, 0, 0, R | F, 0, 0},
    };
    for (const ThresCase& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        mte_TRIGGER_Fini();
        CreateWaiting("o", "w", MTE_TEST_THRESHOLD);
        MTE_THRES_ENTRY_S* pstRow = mte_THRES_Get("o", "w");
        pstRow->iRising = 80;
        pstRow->iFalling = 20;
        pstRow->iDeltaRising = 10;
        pstRow->iDeltaFalling = -10;
        MTE_THRES_ENTRY_S stBefore = *pstRow;
        auto stReq = TestReq<MTE_THRES_ENTRY_S>("o", "w");
        stReq.iRising = c.iRising;
        stReq.iFalling = c.iFalling;
        stReq.iDeltaRising = c.iDeltaRising;
        stReq.iDeltaFalling = c.iDeltaFalling;
        uint32_t uiFailed = 0;
        EXPECT_EQ(mte_THRES_Set(&stReq, c.uiMask, &uiFailed), c.uiResult);
        EXPECT_EQ(uiFailed, c.uiFailed);
        if (c.uiResult != 0) {
            EXPECT_EQ(memcmp(pstRow, &stBefore, sizeof(stBefore)), 0);
        }
    }
    mte_TRIGGER_Fini();
    CreateWaiting("o", "w", MTE_TEST_THRESHOLD);
    for (uint32_t uiColumn : {6u, 8u, 10u, 12u, 14u}) {
        auto stReq = TestReq<MTE_THRES_ENTRY_S>("o", "w");
        strcpy(stReq.szObjectsOwner, "x");
        strcpy(stReq.szRisingEventOwner, "x");
        strcpy(stReq.szFallingEventOwner, "x");
        strcpy(stReq.szDeltaRisingEventOwner, "x");
        strcpy(stReq.szDeltaFallingEventOwner, "x");
        uint32_t uiFailed = 0;
        EXPECT_EQ(mte_THRES_Set(&stReq, COL(uiColumn), &uiFailed), MTE_ERR_INCONSISTENT);
        EXPECT_EQ(uiFailed, uiColumn);
        // Even with bit 31 the owner rule holds.
        EXPECT_EQ(mte_THRES_Set(&stReq, COL(uiColumn) | MTE_MASK_FORCE, &uiFailed),
                  MTE_ERR_INCONSISTENT);
    }
    CreateActive("o", "act", MTE_TEST_THRESHOLD);
    auto stAct = TestReq<MTE_THRES_ENTRY_S>("o", "act");
    uint32_t uiFailed = 0;
    stAct.uiStartup = 3;
    EXPECT_EQ(mte_THRES_Set(&stAct, COL(1), &uiFailed), MTE_ERR_NO_CHANGE);
    stAct.uiStartup = 1;
    EXPECT_EQ(mte_THRES_Set(&stAct, COL(1), &uiFailed), MTE_ERR_INCONSISTENT);
}

// ---- recovery ------------------------------------------------------------

TEST_F(TriggerTableTest, RecoveryLaysStoredTestsOverRecoveredTriggers) {
    CreateActive("o", "act", MTE_TEST_THRESHOLD | MTE_TEST_EXISTENCE);
    CreateWaiting("o", "wait", MTE_TEST_BOOLEAN);
    CreateWaiting("ab", "low");
    // Values of the test rows, set while the triggers are not in service.
    auto stThres = TestReq<MTE_THRES_ENTRY_S>("o", "act");
    MTE_TRIGGER_ROW_S stStop = TriggerReq("o", "act", MTE_ROW_NOT_IN_SERVICE);
    ASSERT_EQ(Set(stStop, COL(MTE_TRIGGER_COL_ENTRY_STATUS)), 0u);
    stThres.iRising = 70;
    stThres.iFalling = 30;
    strcpy(stThres.szRisingEvent, "up");
    uint32_t uiFailed = 0;
    ASSERT_EQ(mte_THRES_Set(&stThres, COL(2) | COL(3) | COL(9), &uiFailed), 0u);
    auto stExist = TestReq<MTE_EXIST_ENTRY_S>("o", "act");
    stExist.ucTest = 0x20;
    ASSERT_EQ(mte_EXIST_Set(&stExist, 0xe, &uiFailed), 0u);
    ASSERT_EQ(Set(TriggerReq("o", "act", MTE_ROW_ACTIVE), COL(MTE_TRIGGER_COL_ENTRY_STATUS)), 0u);
    auto stBool = TestReq<MTE_BOOL_ENTRY_S>("o", "wait");
    stBool.iValue = 42;
    stBool.uiComparison = MTE_BOOL_GREATER;
    ASSERT_EQ(mte_BOOL_Set(&stBool, 0x6, &uiFailed), 0u);
    // A threshold record whose trigger is gone, and a trigger below the
    // sample minimum stored with bit 31.
    auto stOrphan = TestReq<MTE_THRES_ENTRY_S>("o", "gone");
    FAKE_DBM_PutRaw("mteThreshold", Bytes(&stOrphan, sizeof(stOrphan)));
    ASSERT_EQ(Set(TriggerReq("o", "fast", MTE_ROW_CREATE_AND_GO, 1), kGoMask | MTE_MASK_FORCE), 0u);
    Snapshot stBefore = TakeSnapshot();

    mte_TRIGGER_Fini();
    ASSERT_EQ(mte_TRIGGER_Init(), 0u);
    SetMemoryState(MTE_MEM_STATE_EXCEEDED);  // recovery is not refused by the guard
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    ASSERT_EQ(mte_DBM_Recover(), 0u);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);  // nothing written back

    Snapshot stAfter = TakeSnapshot();
    EXPECT_EQ(stAfter.astrEntries, stBefore.astrEntries);
    EXPECT_EQ(Entry("o", "gone"), nullptr);
    EXPECT_EQ(Entry("o", "act")->stRow.uiEntryStatus, MTE_ROW_ACTIVE);
    EXPECT_EQ(Entry("o", "act")->stRow.uiEnabled, MTE_TRUE);
    EXPECT_EQ(Entry("o", "wait")->stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    EXPECT_EQ(mte_THRES_Get("o", "act")->iRising, 70);
    EXPECT_STREQ(mte_THRES_Get("o", "act")->szRisingEvent, "up");
    EXPECT_EQ(mte_EXIST_Get("o", "act")->ucTest, 0x20);
    EXPECT_EQ(mte_EXIST_Get("o", "act")->usFirstCycle, 1);
    EXPECT_EQ(mte_BOOL_Get("o", "wait")->iValue, 42);
    EXPECT_EQ(mte_BOOL_Get("o", "wait")->uiComparison, MTE_BOOL_GREATER);
    EXPECT_EQ(mte_BIN_GetRecover(), 0);
}

TEST_F(TriggerTableTest, RecoverRefusesOddRecords) {
    MTE_TRIGGER_ROW_S stRow = TriggerReq("o", "t", MTE_ROW_ACTIVE);
    EXPECT_EQ(mte_TRIGGER_Recover(sizeof(stRow) - 1, &stRow), MTE_ERR_GENERAL);
    EXPECT_EQ(mte_TRIGGER_IsEmpty(), 1u);
    auto stThres = TestReq<MTE_THRES_ENTRY_S>("o", "t");
    EXPECT_EQ(mte_THRES_Recover(sizeof(stThres), &stThres), MTE_ERR_GENERAL);  // no trigger
    auto stBool = TestReq<MTE_BOOL_ENTRY_S>("o", "t");
    EXPECT_EQ(mte_BOOL_Recover(sizeof(stBool), &stBool), MTE_ERR_GENERAL);
    auto stExist = TestReq<MTE_EXIST_ENTRY_S>("o", "t");
    EXPECT_EQ(mte_EXIST_Recover(MTE_EXIST_ROW_SIZE, &stExist), MTE_ERR_GENERAL);
    // With the trigger but without its rows: boolean and threshold accept,
    // existence refuses.
    mte_BIN_SetRecover(1);
    stRow.uiEntryStatus = MTE_ROW_NOT_IN_SERVICE;
    EXPECT_EQ(mte_TRIGGER_Recover(sizeof(stRow), &stRow), 0u);
    EXPECT_EQ(mte_THRES_Recover(sizeof(stThres), &stThres), 0u);
    EXPECT_EQ(mte_BOOL_Recover(sizeof(stBool), &stBool), 0u);
    EXPECT_EQ(mte_EXIST_Recover(MTE_EXIST_ROW_SIZE, &stExist), MTE_ERR_GENERAL);
    // A stored record without status is refused like a create without status.
    MTE_TRIGGER_ROW_S stNoStatus = TriggerReq("o", "u", MTE_ROW_NONE);
    EXPECT_EQ(mte_TRIGGER_Recover(sizeof(stNoStatus), &stNoStatus), MTE_ERR_NO_SUCH_ROW);
    // A second record of the same trigger makes no twin.
    EXPECT_EQ(mte_TRIGGER_Recover(sizeof(stRow), &stRow), MTE_ERR_ROW_EXISTS);
    mte_BIN_SetRecover(0);
    EXPECT_TRUE(FAKE_DBM_Records("mteTrigger").empty());
    EXPECT_EQ(ListKeys(), std::vector<std::string>{"o/t"});
}

}  // namespace
