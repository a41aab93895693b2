// The event, action and objects tables' own rules (what every table shares is
// in tests/trigger/table_suite_test.cpp): status writes that carry columns,
// the action rows that follow the action bits, the owner and length checks of
// the action rows, what the objects table takes of a write, and recovery of
// records whose event is gone or that are damaged.
#include "event_test_util.h"

namespace {
class EventRulesTest : public EventFixture {};

TEST_F(EventRulesTest, StatusWritesWithColumnsOnAnActiveEvent) {
    struct {
        const char* pszWhat;
        uint32_t uiStatus;
        const char* pszComment;
        uint32_t uiMask, uiExpect, uiFailed, uiStatusAfter;
    } astCases[] = {
        {"active with the same comment", 1, "c", 0x44, MTE_ERR_NO_CHANGE, 6, 1},
        {"active with a new comment", 1, "x", 0x44, MTE_ERR_INCONSISTENT, 6, 1},
        {"notInService with a new comment", 2, "x", 0x44, 0, 0, 2},
        {"createAndWait on it", 5, "c", 0x40, MTE_ERR_ROW_EXISTS, 6, 1},
    };
    for (const auto& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        ASSERT_EQ(SetEvent(EventReq("own", "ev", 6), 0x40), 0u);
        ASSERT_EQ(SetEvent(EventReq("own", "ev", 4, 0, "c"), 0x44), 0u);
        uint32_t uiFc = 0;
        EXPECT_EQ(SetEvent(EventReq("own", "ev", c.uiStatus, 0, c.pszComment), c.uiMask, &uiFc),
                  c.uiExpect);
        EXPECT_EQ(uiFc, c.uiFailed);
        const MTE_EVENT_ROW_S* pstRow = mte_EVENT_Get("own", "ev");
        EXPECT_EQ(pstRow->uiEntryStatus, c.uiStatusAfter);
        EXPECT_EQ(pstRow->uiEnabled, c.uiStatusAfter == 1 ? 1u : 2u);
        ASSERT_EQ(FAKE_DBM_Records("mteEvent").size(), 1u);
        EXPECT_EQ(memcmp(FAKE_DBM_Records("mteEvent")[0].data(), pstRow, sizeof(*pstRow)), 0);
    }
}

TEST_F(EventRulesTest, ActionBitsMakeBothRowsWithDefaultsAndARefusalMakesNone) {
    ASSERT_EQ(SetEvent(EventReq("o", "both", 5, 0xC0), kEventMaskAll), 0u);
    EXPECT_EQ(mte_SET_Get("o", "both")->uiObjectWildcard, 2u);
    EXPECT_EQ(mte_SET_Get("o", "both")->uiContextNameWildcard, 2u);

    // A refused write to an active event leaves it as it was, action bits too.
    ASSERT_EQ(SetEvent(EventReq("own", "ev", 4, 0x80, "c"), kEventMaskAll), 0u);
    MTE_EVENT_ROW_S stBefore = *mte_EVENT_Get("own", "ev");
    EXPECT_EQ(SetEvent(EventReq("own", "ev", 0, 0x40, "x"), 0x0c), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(memcmp(mte_EVENT_Get("own", "ev"), &stBefore, sizeof(stBefore)), 0);
    EXPECT_EQ(mte_SET_Get("own", "ev"), nullptr);
}

TEST_F(EventRulesTest, NotificationRowChecks) {
    ASSERT_EQ(SetEvent(EventReq("own", "n", 5, 0x80), kEventMaskAll), 0u);
    struct {
        const char* pszWhat;
        uint32_t uiOidLen;
        const char* pszObjOwner;
        uint32_t uiMask, uiExpect, uiFailed;
    } astCases[] = {
        {"other objects owner", 0, "other", 0x08, MTE_ERR_INCONSISTENT, 3},
        {"objects owner differing in case", 0, "OWN", 0x08, MTE_ERR_INCONSISTENT, 3},
        {"own objects owner", 0, "own", 0x08, 0, 0},
        {"empty objects owner", 0, "", 0x08, 0, 0},
        {"OID too long", 129, "", 0x02, MTE_ERR_INCONSISTENT, 1},
        {"notification OID", 5, "", 0x02, 0, 0},
    };
    for (const auto& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        MTE_NOTIFY_ENTRY_S stReq = NotifyReq("own", "n", {}, c.pszObjOwner);
        stReq.stNotification.uiLen = c.uiOidLen;
        uint32_t uiFc = 99;
        EXPECT_EQ(SetNotify(stReq, c.uiMask, &uiFc), c.uiExpect);
        EXPECT_EQ(uiFc, c.uiFailed);
    }
    EXPECT_EQ(mte_NOTIFY_Get("own", "n")->stNotification.uiLen, 5u);
    ASSERT_EQ(SetNotify(NotifyReq("own", "n", {}, "", "grp"), 0x04), 0u);
    EXPECT_STREQ(mte_NOTIFY_Get("own", "n")->szObjects, "grp");
    // On an active event every column is compared.
    ASSERT_EQ(SetEvent(EventReq("own", "n", 1), 0x40), 0u);
    MTE_NOTIFY_ENTRY_S stSame = *mte_NOTIFY_Get("own", "n");
    EXPECT_EQ(SetNotify(stSame, 0x0e), MTE_ERR_NO_CHANGE);
    MTE_NOTIFY_ENTRY_S stOther = stSame;
    strcpy(stOther.szObjects, "other");
    EXPECT_EQ(SetNotify(stOther, 0x04), MTE_ERR_INCONSISTENT);
    stOther = stSame;
    strcpy(stOther.szObjectsOwner, "own");
    EXPECT_EQ(SetNotify(stOther, 0x08), MTE_ERR_INCONSISTENT);
}

TEST_F(EventRulesTest, SetRowChecks) {
    ASSERT_EQ(SetEvent(EventReq("own", "n", 5, 0x40), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "a", 4, 0x40), kEventMaskAll), 0u);
    MTE_SET_ENTRY_S stReq = SetReq("own", "n", {1, 3, 6, 1, 5}, 42, 1, "ctx", 1);
    EXPECT_EQ(SetSet(stReq, 0x10), 0u);  // the target tag column is ignored
    EXPECT_EQ(mte_SET_Get("own", "n")->iValue, 0);
    EXPECT_EQ(SetSet(stReq, 0x6e), 0u);
    MTE_SET_ENTRY_S* pstRow = mte_SET_Get("own", "n");
    EXPECT_EQ(pstRow->iValue, 42);
    EXPECT_EQ(pstRow->uiObjectWildcard, 1u);
    EXPECT_EQ(pstRow->uiContextNameWildcard, 1u);
    EXPECT_STREQ(pstRow->szContextName, "ctx");
    EXPECT_EQ(pstRow->stObject.uiLen, 5u);
    MTE_SET_ENTRY_S stLong = SetReq("own", "n", {}, 0);
    stLong.stObject.uiLen = 129;
    EXPECT_EQ(SetSet(stLong, 0x02), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(mte_SET_Get("own", "n")->stObject.uiLen, 5u);
    EXPECT_EQ(SetSet(SetReq("own", "a", {1}, 42), 0x10), MTE_ERR_NO_CHANGE);  // active event
}

TEST_F(EventRulesTest, ObjectsRowTakesTheWildcardOnlyWithItsColumnAndBoundsTheId) {
    ASSERT_EQ(SetObj(ObjReq("o", "g", 1, 4, {1}, MTE_TRUE), 0x28), 0u);
    ASSERT_EQ(SetObj(ObjReq("o", "g", 2, 4, {1}, MTE_TRUE), 0x38), 0u);
    EXPECT_EQ(mte_OBJ_Get("o", "g", 1)->uiIDWildcard, 2u);
    EXPECT_EQ(mte_OBJ_Get("o", "g", 2)->uiIDWildcard, 1u);
    for (uint32_t uiLen : {129u, 0xffffffffu}) {
        MTE_OBJ_ROW_S stReq = ObjReq("o", "g", uiLen == 129 ? 3 : 1, uiLen == 129 ? 4 : 0);
        stReq.stID.uiLen = uiLen;
        uint32_t uiFc = 0;
        EXPECT_EQ(SetObj(stReq, 0x28, &uiFc), MTE_ERR_INCONSISTENT);
        EXPECT_EQ(uiFc, 3u);
    }
    EXPECT_EQ(mte_OBJ_Get("o", "g", 3), nullptr);
    // A new row needs its ID column; a written row takes no ID, same or not.
    uint32_t uiFc = 0;
    EXPECT_EQ(SetObj(ObjReq("o", "g", 3, 4), 0x20, &uiFc), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(uiFc, 3u);
    EXPECT_EQ(SetObj(ObjReq("o", "g", 1, 1, {1}), 0x28), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(SetObj(ObjReq("o", "g", 2, 0, {1}, MTE_TRUE), 0x18), MTE_ERR_INCONSISTENT);
    MTE_OBJ_ROW_S stFull = ObjReq("o", "g", 3, 4);
    stFull.stID.uiLen = 128;
    EXPECT_EQ(SetObj(stFull, 0x28), 0u);
}

TEST_F(EventRulesTest, RecoveryDropsOrphansAndReportsDamagedRecords) {
    ASSERT_EQ(SetEvent(EventReq("own", "wait", 5, 0x80), kEventMaskAll), 0u);
    ASSERT_EQ(SetObj(ObjReq("o", "g", 1, 4), 0x28), 0u);
    MTE_NOTIFY_ENTRY_S stOrphan = NotifyReq("own", "gone", {1, 2});
    FAKE_DBM_PutRaw("mteNotify", std::string(reinterpret_cast<char*>(&stOrphan), sizeof(stOrphan)));
    Restart();
    EXPECT_EQ(mte_EVENT_Get("own", "gone"), nullptr);
    EXPECT_EQ(mte_NOTIFY_Get("own", "gone"), nullptr);

    mte_DBG_EnableSwitch(MTE_DBG_ERR);
    mte_BIN_SetRecover(1);
    EXPECT_EQ(mte_NOTIFY_Recover(sizeof(stOrphan), &stOrphan), MTE_ERR_GENERAL);
    MTE_SET_ENTRY_S stSetOrphan = SetReq("own", "gone", {1}, 1);
    EXPECT_EQ(mte_SET_Recover(sizeof(stSetOrphan), &stSetOrphan), MTE_ERR_GENERAL);
    MTE_SET_ENTRY_S stNoSetRow = SetReq("own", "wait", {1}, 1);
    EXPECT_EQ(mte_SET_Recover(sizeof(stNoSetRow), &stNoSetRow), 0u);  // the event exists
    EXPECT_EQ(mte_SET_Get("own", "wait"), nullptr);
    MTE_EVENT_ROW_S stBad = EventReq("own", "bad", 3);
    EXPECT_EQ(mte_EVENT_Recover(sizeof(stBad), &stBad), MTE_ERR_INCONSISTENT);
    MTE_OBJ_ROW_S stAgain = *mte_OBJ_Get("o", "g", 1);
    MTE_OBJ_ROW_S stLong = ObjReq("o", "g", 9, 1);
    stLong.stID.uiLen = 200;
    EXPECT_EQ(mte_OBJ_Recover(sizeof(stAgain), &stAgain), MTE_ERR_ROW_EXISTS);
    EXPECT_EQ(mte_OBJ_Recover(sizeof(stLong), &stLong), MTE_ERR_INCONSISTENT);
    mte_BIN_SetRecover(0);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR",
                             "Failed to recover information about the Event module from DBM."),
              1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR",
                             "Failed to recover information about the Objects module from DBM."),
              2u);
}
}  // namespace
