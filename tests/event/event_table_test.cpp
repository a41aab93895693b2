// Event, notification and set tables: the result codes and failed columns of
// every set path, the sub-rows that follow the action bits, the index order,
// the presence flags of get-next, the stored records and their recovery.
#include "event_test_util.h"

namespace {
class EventTableTest : public EventFixture {};

enum Start { NONE, ACTIVE, NOT_IN_SERVICE };

struct EVENT_CASE_S {
    const char* pszName;
    Start eStart;  // the row before the request (comment "c", no actions)
    uint32_t uiStatus;
    const char* pszComment;
    uint32_t uiMask;
    uint32_t uiExpect;
    uint32_t uiFailedColumn;
    uint32_t uiStatusAfter;  // 0: row absent afterwards
};

const EVENT_CASE_S kEventCases[] = {
    {"create without status column", NONE, 4, "", 0x04, 0x40010005, 6, 0},
    {"create with status active", NONE, 1, "", 0x40, 0x40010010, 6, 0},
    {"create with status notInService", NONE, 2, "", 0x40, 0x40010010, 6, 0},
    {"createAndGo", NONE, 4, "", 0x40, 0, 0, 1},
    {"createAndWait", NONE, 5, "", 0x40, 0, 0, 2},
    {"destroy of a missing row", NONE, 6, "", 0x40, 0, 0, 0},
    {"createAndGo on an existing row", ACTIVE, 4, "c", 0x40, 0x40010006, 6, 1},
    {"createAndWait on an existing row", NOT_IN_SERVICE, 5, "c", 0x40, 0x40010006, 6, 2},
    {"active: new comment without status", ACTIVE, 0, "x", 0x04, 0x40010010, 0, 1},
    {"active: same comment without status", ACTIVE, 0, "c", 0x04, 0x4001000b, 0, 1},
    {"active: status active alone", ACTIVE, 1, "c", 0x40, 0, 0, 1},
    {"active: status active with same comment", ACTIVE, 1, "c", 0x44, 0x4001000b, 6, 1},
    {"active: status active with new comment", ACTIVE, 1, "x", 0x44, 0x40010010, 6, 1},
    {"active: notInService with new comment", ACTIVE, 2, "x", 0x44, 0, 0, 2},
    {"active: destroy", ACTIVE, 6, "", 0x40, 0, 0, 0},
    {"notInService: new comment", NOT_IN_SERVICE, 0, "x", 0x04, 0, 0, 2},
    {"notInService: activate", NOT_IN_SERVICE, 1, "c", 0x40, 0, 0, 1},
    {"notInService: nothing changes", NOT_IN_SERVICE, 2, "c", 0x44, 0, 0, 2},
};

TEST_F(EventTableTest, SetPathsGiveTheirCodesAndFailedColumns) {
    for (const EVENT_CASE_S& stCase : kEventCases) {
        SCOPED_TRACE(stCase.pszName);
        mte_EVENT_Fini();
        FAKE_DBM_Reset();
        mte_DBM_Fini();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
        if (stCase.eStart != NONE) {
            ASSERT_EQ(
                SetEvent(EventReq("own", "ev", stCase.eStart == ACTIVE ? 4 : 5, 0, "c"), 0x44), 0u);
        }
        uint32_t uiFc = 0;
        EXPECT_EQ(SetEvent(EventReq("own", "ev", stCase.uiStatus, 0, stCase.pszComment),
                           stCase.uiMask, &uiFc),
                  stCase.uiExpect);
        EXPECT_EQ(uiFc, stCase.uiFailedColumn);
        MTE_EVENT_ROW_S* pstRow = mte_EVENT_Get("own", "ev");
        if (stCase.uiStatusAfter == 0) {
            EXPECT_EQ(pstRow, nullptr);
            EXPECT_TRUE(FAKE_DBM_Records("mteEvent").empty());
            continue;
        }
        ASSERT_NE(pstRow, nullptr);
        EXPECT_EQ(pstRow->uiEntryStatus, stCase.uiStatusAfter);
        EXPECT_EQ(pstRow->uiEnabled, stCase.uiStatusAfter == 1 ? 1u : 2u);
        // The stored record always equals the row.
        auto astStored = FAKE_DBM_Records("mteEvent");
        ASSERT_EQ(astStored.size(), 1u);
        EXPECT_EQ(memcmp(astStored[0].data(), pstRow, sizeof(*pstRow)), 0);
    }
}

TEST_F(EventTableTest, RefusedWriteLeavesTheRowExactlyAsItWas) {
    ASSERT_EQ(SetEvent(EventReq("own", "ev", 4, 0x80, "c"), kEventMaskAll), 0u);
    MTE_EVENT_ROW_S stBefore = *mte_EVENT_Get("own", "ev");
    EXPECT_EQ(SetEvent(EventReq("own", "ev", 0, 0x40, "x"), 0x0c), 0x40010010u);
    EXPECT_EQ(memcmp(mte_EVENT_Get("own", "ev"), &stBefore, sizeof(stBefore)), 0);
    EXPECT_EQ(mte_SET_Get("own", "ev"), nullptr);
}

TEST_F(EventTableTest, ActionBitsMakeAndDestroySubRowsWithTheirRecords) {
    ASSERT_EQ(SetEvent(EventReq("o", "both", 5, 0xC0), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("o", "none", 5, 0x00), kEventMaskAll), 0u);
    EXPECT_NE(mte_NOTIFY_Get("o", "both"), nullptr);
    EXPECT_NE(mte_SET_Get("o", "both"), nullptr);
    EXPECT_EQ(mte_NOTIFY_Get("o", "none"), nullptr);
    EXPECT_EQ(mte_SET_Get("o", "none"), nullptr);
    EXPECT_EQ(mte_SET_Get("o", "both")->uiObjectWildcard, 2u);
    EXPECT_EQ(mte_SET_Get("o", "both")->uiContextNameWildcard, 2u);
    EXPECT_EQ(FAKE_DBM_Records("mteNotify").size(), 1u);
    EXPECT_EQ(FAKE_DBM_Records("mteSet").size(), 1u);

    // Configure the set row, then turn the set bit off and on again: the new
    // row is empty, and the stored record with it.
    ASSERT_EQ(SetSet(SetReq("o", "both", {1, 3, 6, 1, 9}, 7), 0x0a), 0u);
    ASSERT_EQ(SetEvent(EventReq("o", "both", 0, 0x80), 0x08), 0u);
    EXPECT_EQ(mte_SET_Get("o", "both"), nullptr);
    EXPECT_TRUE(FAKE_DBM_Records("mteSet").empty());
    EXPECT_NE(mte_NOTIFY_Get("o", "both"), nullptr);  // the notification bit stayed
    ASSERT_EQ(SetEvent(EventReq("o", "both", 0, 0xC0), 0x08), 0u);
    MTE_SET_ENTRY_S* pstSet = mte_SET_Get("o", "both");
    ASSERT_NE(pstSet, nullptr);
    EXPECT_EQ(pstSet->stObject.uiLen, 0u);
    EXPECT_EQ(pstSet->iValue, 0);
    ASSERT_EQ(FAKE_DBM_Records("mteSet").size(), 1u);
    EXPECT_EQ(memcmp(FAKE_DBM_Records("mteSet")[0].data(), pstSet, sizeof(*pstSet)), 0);
    EXPECT_EQ(mte_EVENT_Get("o", "both")->ucActions, 0xC0);

    // Destroying the event removes its record and those of both sub-rows.
    ASSERT_EQ(SetEvent(EventReq("o", "both", 6), 0x40), 0u);
    EXPECT_TRUE(FAKE_DBM_Records("mteSet").empty());
    EXPECT_TRUE(FAKE_DBM_Records("mteNotify").empty());
    EXPECT_EQ(FAKE_DBM_Records("mteEvent").size(), 1u);  // "none" is left
}

TEST_F(EventTableTest, MemoryAlertRefusesCreationOnlyWithoutTheForceBit) {
    ASSERT_EQ(SetEvent(EventReq("o", "old", 5), 0x40), 0u);
    RaiseMemoryAlert();
    EXPECT_EQ(SetEvent(EventReq("o", "new", 4), 0x40), 0x4001000fu);
    EXPECT_EQ(mte_EVENT_Get("o", "new"), nullptr);
    EXPECT_EQ(SetEvent(EventReq("o", "old", 1), 0x40), 0u);  // changes are never refused
    EXPECT_EQ(SetEvent(EventReq("o", "new", 4), 0x80000040u), 0u);
    EXPECT_NE(mte_EVENT_Get("o", "new"), nullptr);
}

TEST_F(EventTableTest, IndexOrderIsOwnerLengthThenBytesThenNameBytes) {
    for (const char* pszOwner : {"aa", "b"}) {
        for (const char* pszName : {"b", "aa", "ab"}) {
            ASSERT_EQ(SetEvent(EventReq(pszOwner, pszName, 5), 0x40), 0u);
        }
    }
    std::vector<std::string> astWalk;
    MTE_EVENT_ROW_S* pstRow = mte_EVENT_GetNext(0, "", "");
    while (pstRow != nullptr) {
        astWalk.push_back(std::string(pstRow->szOwner) + "/" + pstRow->szName);
        pstRow = mte_EVENT_GetNext(strlen(pstRow->szOwner), pstRow->szOwner, pstRow->szName);
    }
    EXPECT_EQ(astWalk, (std::vector<std::string>{"b/aa", "b/ab", "b/b", "aa/aa", "aa/ab", "aa/b"}));
    EXPECT_NE(mte_EVENT_Get("aa", "ab"), nullptr);
    EXPECT_EQ(mte_EVENT_Get("aa", "a"), nullptr);
}

TEST_F(EventTableTest, GetNextOfSubTablesAndTheirPresenceFlags) {
    uint8_t ucFlags = 0;
    EXPECT_EQ(mte_NOTIFY_GetNext(0, "", "", &ucFlags), nullptr);
    EXPECT_EQ(ucFlags, 0);

    ASSERT_EQ(SetEvent(EventReq("o", "a", 5, 0x80), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("o", "b", 5, 0x00), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("o", "c", 5, 0x40), kEventMaskAll), 0u);

    ucFlags = 0;
    MTE_NOTIFY_ENTRY_S* pstNotify = mte_NOTIFY_GetNext(0, "", "", &ucFlags);
    ASSERT_NE(pstNotify, nullptr);
    EXPECT_STREQ(pstNotify->szName, "a");
    ucFlags = 0;
    EXPECT_EQ(mte_NOTIFY_GetNext(1, "o", "a", &ucFlags), nullptr);  // end, not empty
    EXPECT_EQ(ucFlags & MTE_PRESENT_NOTIFY, MTE_PRESENT_NOTIFY);

    ucFlags = 0;
    MTE_SET_ENTRY_S* pstSet = mte_SET_GetNext(1, "o", "a", &ucFlags);  // skips b
    ASSERT_NE(pstSet, nullptr);
    EXPECT_STREQ(pstSet->szName, "c");
    ucFlags = 0;
    EXPECT_EQ(mte_SET_GetNext(1, "o", "c", &ucFlags), nullptr);
    EXPECT_EQ(ucFlags, MTE_PRESENT_NOTIFY | MTE_PRESENT_SET);

    ucFlags = 0;
    EXPECT_EQ(mte_EVENT_GetNextEventEntry(5, "zzzzz", "", &ucFlags), nullptr);
    EXPECT_EQ(ucFlags, MTE_PRESENT_NOTIFY | MTE_PRESENT_SET);
}

struct NOTIFY_CASE_S {
    const char* pszName;
    const char* pszEvent;  // "n": notInService with notification, "a": active, "s": set only
    FAKE_OID astOid;
    const char* pszObjOwner;
    uint32_t uiMask;
    uint32_t uiExpect;
    uint32_t uiFailedColumn;
};

TEST_F(EventTableTest, NotificationSetPaths) {
    ASSERT_EQ(SetEvent(EventReq("own", "n", 5, 0x80), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "a", 4, 0x80), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "s", 5, 0x40), kEventMaskAll), 0u);
    FAKE_OID astLong(129, 1);
    const NOTIFY_CASE_S kCases[] = {
        {"no such event", "zz", {1, 2}, "", 0x02, 0x40010005, 0},
        {"event without notification", "s", {1, 2}, "", 0x02, 0x40010005, 0},
        {"other objects owner", "n", {}, "other", 0x08, 0x40010010, 3},
        {"objects owner differing in case", "n", {}, "OWN", 0x08, 0x40010010, 3},
        {"own objects owner", "n", {}, "own", 0x08, 0, 0},
        {"empty objects owner", "n", {}, "", 0x08, 0, 0},
        {"OID too long", "n", astLong, "", 0x02, 0x40010010, 1},
        {"notification OID", "n", {1, 3, 6, 1, 4}, "", 0x02, 0, 0},
        {"active event, change", "a", {1, 2}, "", 0x02, 0x40010010, 0},
        {"active event, harmless change", "a", {}, "", 0x08, 0x4001000b, 0},
        {"active event, no column", "a", {1, 2}, "", 0x00, 0x4001000b, 0},
    };
    for (const NOTIFY_CASE_S& stCase : kCases) {
        SCOPED_TRACE(stCase.pszName);
        MTE_NOTIFY_ENTRY_S stReq = NotifyReq("own", stCase.pszEvent, {}, stCase.pszObjOwner);
        stReq.stNotification.uiLen = static_cast<uint32_t>(stCase.astOid.size());
        for (size_t i = 0; i < stCase.astOid.size() && i < MTE_OID_MAX_LEN; ++i) {
            stReq.stNotification.auiOid[i] = stCase.astOid[i];
        }
        uint32_t uiFc = 99;
        EXPECT_EQ(SetNotify(stReq, stCase.uiMask, &uiFc), stCase.uiExpect);
        EXPECT_EQ(uiFc, stCase.uiFailedColumn);
    }
    MTE_NOTIFY_ENTRY_S* pstRow = mte_NOTIFY_Get("own", "n");
    EXPECT_EQ(FAKE_SNMP_ToVector(pstRow->stNotification), (FAKE_OID{1, 3, 6, 1, 4}));
    bool bStored = false;
    for (const std::string& strRecord : FAKE_DBM_Records("mteNotify")) {
        bStored |= memcmp(strRecord.data(), pstRow, sizeof(*pstRow)) == 0;
    }
    EXPECT_TRUE(bStored);
}

TEST_F(EventTableTest, SetActionSetPaths) {
    ASSERT_EQ(SetEvent(EventReq("own", "n", 5, 0x40), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "a", 4, 0x40), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "x", 5, 0x80), kEventMaskAll), 0u);
    MTE_SET_ENTRY_S stReq = SetReq("own", "n", {1, 3, 6, 1, 5}, 42, 1, "ctx", 1);
    EXPECT_EQ(SetSet(SetReq("own", "zz", {1}, 1), 0x02), 0x40010005u);
    EXPECT_EQ(SetSet(SetReq("own", "x", {1}, 1), 0x02), 0x40010005u);
    EXPECT_EQ(SetSet(stReq, 0x10), 0u);  // the target tag column is ignored
    EXPECT_EQ(SetSet(stReq, 0x6e), 0u);
    MTE_SET_ENTRY_S* pstRow = mte_SET_Get("own", "n");
    EXPECT_EQ(pstRow->iValue, 42);
    EXPECT_EQ(pstRow->uiObjectWildcard, 1u);
    EXPECT_EQ(pstRow->uiContextNameWildcard, 1u);
    EXPECT_STREQ(pstRow->szContextName, "ctx");
    EXPECT_EQ(pstRow->stObject.uiLen, 5u);
    ASSERT_EQ(FAKE_DBM_Records("mteSet").size(), 2u);

    MTE_SET_ENTRY_S stActive = SetReq("own", "a", {1, 3, 6, 1, 5}, 42);
    EXPECT_EQ(SetSet(stActive, 0x10), 0x4001000bu);
    EXPECT_EQ(SetSet(stActive, 0x08), 0x40010010u);
    EXPECT_EQ(SetSet(SetReq("own", "a", {}, 0), 0x08), 0x4001000bu);  // same value 0
    MTE_SET_ENTRY_S stLong = SetReq("own", "n", {}, 0);
    stLong.stObject.uiLen = 129;
    EXPECT_EQ(SetSet(stLong, 0x02), 0x40010010u);
    EXPECT_EQ(mte_SET_Get("own", "n")->stObject.uiLen, 5u);
}

TEST_F(EventTableTest, RecoveryRestoresEventsThenSetsThenNotifications) {
    ASSERT_EQ(SetEvent(EventReq("own", "act", 4, 0xC0, "comment"), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "wait", 5, 0x80), kEventMaskAll), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "act", 2), 0x40), 0u);
    ASSERT_EQ(SetNotify(NotifyReq("own", "act", {1, 3, 6, 1, 7}, "own", "grp"), 0x0e), 0u);
    ASSERT_EQ(SetSet(SetReq("own", "act", {1, 3, 6, 1, 8}, -3, 1, "c", 2), 0x6e), 0u);
    ASSERT_EQ(SetEvent(EventReq("own", "act", 1), 0x40), 0u);
    MTE_NOTIFY_ENTRY_S stNotify = *mte_NOTIFY_Get("own", "act");
    MTE_SET_ENTRY_S stSet = *mte_SET_Get("own", "act");
    // A notification record whose event is gone.
    MTE_NOTIFY_ENTRY_S stOrphan = NotifyReq("own", "gone", {1, 2});
    FAKE_DBM_PutRaw("mteNotify", std::string(reinterpret_cast<char*>(&stOrphan), sizeof(stOrphan)));

    Restart();
    MTE_EVENT_ROW_S* pstEvent = mte_EVENT_Get("own", "act");
    ASSERT_NE(pstEvent, nullptr);
    EXPECT_EQ(pstEvent->uiEntryStatus, 1u);
    EXPECT_EQ(pstEvent->uiEnabled, 1u);
    EXPECT_STREQ(pstEvent->szComment, "comment");
    EXPECT_EQ(mte_EVENT_Get("own", "wait")->uiEntryStatus, 2u);
    EXPECT_EQ(mte_EVENT_Get("own", "wait")->uiEnabled, 2u);
    EXPECT_EQ(mte_EVENT_Get("own", "gone"), nullptr);
    ASSERT_NE(mte_NOTIFY_Get("own", "act"), nullptr);
    EXPECT_EQ(memcmp(mte_NOTIFY_Get("own", "act"), &stNotify, sizeof(stNotify)), 0);
    ASSERT_NE(mte_SET_Get("own", "act"), nullptr);
    EXPECT_EQ(memcmp(mte_SET_Get("own", "act"), &stSet, sizeof(stSet)), 0);
    // Recovery wrote nothing back: still one record per row.
    EXPECT_EQ(FAKE_DBM_Records("mteEvent").size(), 2u);
    EXPECT_EQ(FAKE_DBM_Records("mteSet").size(), 1u);

    // The recovery functions themselves: a record without its event is dropped.
    mte_BIN_SetRecover(1);
    EXPECT_EQ(mte_NOTIFY_Recover(sizeof(stOrphan), &stOrphan), 0x40010001u);
    MTE_SET_ENTRY_S stSetOrphan = SetReq("own", "gone", {1}, 1);
    EXPECT_EQ(mte_SET_Recover(sizeof(stSetOrphan), &stSetOrphan), 0x40010001u);
    MTE_SET_ENTRY_S stNoSetRow = SetReq("own", "wait", {1}, 1);
    EXPECT_EQ(mte_SET_Recover(sizeof(stNoSetRow), &stNoSetRow), 0u);  // event exists
    EXPECT_EQ(mte_SET_Get("own", "wait"), nullptr);
    MTE_EVENT_ROW_S stBad = EventReq("own", "bad", 3);
    mte_DBG_EnableSwitch(MTE_DBG_ERR);
    EXPECT_EQ(mte_EVENT_Recover(sizeof(stBad), &stBad), 0x40010010u);
    mte_BIN_SetRecover(0);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR",
                             "Failed to recover information about the Event module from DBM."),
              1u);
}
}  // namespace
