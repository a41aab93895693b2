// Trigger row changes: every transition of the row status, the checks on
// activation, refusals that must leave the entry, the list and the store as
// they were, test rows made and destroyed with their stored records, and the
// run-state hand-over to the worker. The port service is down throughout, so
// the sampling engine's calls change nothing.
#include <cstring>

#include "mte_bool.h"
#include "mte_delta.h"
#include "mte_exist.h"
#include "mte_thres.h"
#include "table_fixture.h"

namespace {

struct CreateCase {
    const char* pszWhat;
    uint32_t uiStatus;
    uint32_t uiMask;
    void (*pfAdjust)(MTE_TRIGGER_ROW_S*);
    uint32_t uiResult;
    uint32_t uiFailed;
    uint32_t uiStoredStatus;  // status of the created trigger when accepted
    uint32_t uiEnabled;
};

void NoAdjust(MTE_TRIGGER_ROW_S*) {}

TEST_F(TriggerTableTest, CreateTransitions) {
    const CreateCase astCases[] = {
        {"createAndGo", MTE_ROW_CREATE_AND_GO, kGoMask, NoAdjust, 0, 0, MTE_ROW_ACTIVE, MTE_TRUE},
        {"createAndWait", MTE_ROW_CREATE_AND_WAIT, kGoMask, NoAdjust, 0, 0, MTE_ROW_NOT_IN_SERVICE,
         MTE_FALSE},
        {"no status", MTE_ROW_NONE, kGoMask, NoAdjust, MTE_ERR_NO_SUCH_ROW, 15},
        {"active on a missing row", MTE_ROW_ACTIVE, kGoMask, NoAdjust, MTE_ERR_INCONSISTENT, 15},
        {"notInService on a missing row", MTE_ROW_NOT_IN_SERVICE, kGoMask, NoAdjust,
         MTE_ERR_INCONSISTENT, 15},
        {"destroy of a missing row", MTE_ROW_DESTROY, kGoMask, NoAdjust, 0, 0},
        {"createAndGo without value ID", MTE_ROW_CREATE_AND_GO, kGoMask,
         [](MTE_TRIGGER_ROW_S* p) { p->stValueID.uiLen = 0; }, MTE_ERR_INCONSISTENT, 8},
        {"createAndGo below the sample minimum", MTE_ROW_CREATE_AND_GO, kGoMask,
         [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 5; }, MTE_ERR_INCONSISTENT, 12},
        {"createAndGo below the minimum, bit 31", MTE_ROW_CREATE_AND_GO, kGoMask | MTE_MASK_FORCE,
         [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 5; }, 0, 0, MTE_ROW_ACTIVE, MTE_TRUE},
        {"createAndGo checks the request row, not the defaults", MTE_ROW_CREATE_AND_GO,
         kGoMask & ~COL(MTE_TRIGGER_COL_FREQUENCY),
         [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 0; }, MTE_ERR_INCONSISTENT, 12},
        {"createAndWait below the minimum", MTE_ROW_CREATE_AND_WAIT, kGoMask,
         [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 5; }, 0, 0, MTE_ROW_NOT_IN_SERVICE, MTE_FALSE},
        {"objects owner of another owner", MTE_ROW_CREATE_AND_WAIT,
         kGoMask | COL(MTE_TRIGGER_COL_OBJECTS_OWNER),
         [](MTE_TRIGGER_ROW_S* p) { strcpy(p->szObjectsOwner, "other"); }, MTE_ERR_INCONSISTENT,
         13},
        {"objects owner of another owner, column not written", MTE_ROW_CREATE_AND_WAIT, kGoMask,
         [](MTE_TRIGGER_ROW_S* p) { strcpy(p->szObjectsOwner, "other"); }, 0, 0,
         MTE_ROW_NOT_IN_SERVICE, MTE_FALSE},
        {"value ID longer than an OID", MTE_ROW_CREATE_AND_WAIT, kGoMask,
         [](MTE_TRIGGER_ROW_S* p) { p->stValueID.uiLen = 129; }, MTE_ERR_INCONSISTENT, 8},
        {"notReady is created as given", MTE_ROW_NOT_READY, kGoMask, NoAdjust, 0, 0,
         MTE_ROW_NOT_READY, MTE_FALSE},
        {"a status above destroy is created as given", 7, kGoMask, NoAdjust, 0, 0, 7, MTE_FALSE},
    };
    for (const CreateCase& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", c.uiStatus);
        c.pfAdjust(&stReq);
        uint32_t uiFailed = 0;
        EXPECT_EQ(Set(stReq, c.uiMask, &uiFailed), c.uiResult);
        EXPECT_EQ(uiFailed, c.uiFailed);
        MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
        if (c.uiResult != 0 || c.uiStatus == MTE_ROW_DESTROY) {
            EXPECT_EQ(pstEntry, nullptr);
            EXPECT_TRUE(FAKE_DBM_Records("mteTrigger").empty());
            continue;
        }
        ASSERT_NE(pstEntry, nullptr);
        EXPECT_EQ(pstEntry->stRow.uiEntryStatus, c.uiStoredStatus);
        EXPECT_EQ(pstEntry->stRow.uiEnabled, c.uiEnabled);
        EXPECT_EQ(pstEntry->llTimerId, -1);  // the port service is down
        EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_IDLE);
        EXPECT_EQ(pstEntry->usInstanceReleased, 1);
        EXPECT_EQ(StoredTrigger("own", "t1"), Bytes(&pstEntry->stRow, sizeof(MTE_TRIGGER_ROW_S)));
        EXPECT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_DESTROY), 0), 0u);
        EXPECT_TRUE(FAKE_DBM_Records("mteTrigger").empty());
    }
}

TEST_F(TriggerTableTest, CreateDefaultsAndMaskedColumns) {
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_CREATE_AND_WAIT);
    strcpy(stReq.szComment, "not written");
    strcpy(stReq.szTargetTag, "never written by a set");
    stReq.uiSampleType = MTE_SAMPLE_DELTA;
    stReq.uiEnabled = MTE_TRUE;
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_ENTRY_STATUS)), 0u);
    const MTE_TRIGGER_ROW_S& stRow = Entry("own", "t1")->stRow;
    EXPECT_EQ(stRow.uiFrequency, 600u);
    EXPECT_EQ(stRow.uiSampleType, MTE_SAMPLE_ABSOLUTE);
    EXPECT_EQ(stRow.uiValueIDWildcard, MTE_FALSE);
    EXPECT_EQ(stRow.uiContextNameWildcard, MTE_FALSE);
    EXPECT_EQ(stRow.uiEnabled, MTE_FALSE);
    EXPECT_EQ(stRow.stValueID.uiLen, 0u);
    EXPECT_STREQ(stRow.szComment, "");
    EXPECT_STREQ(stRow.szTargetTag, "");
}

TEST_F(TriggerTableTest, CreateWithTestsMakesAndStoresDefaultRows) {
    CreateWaiting("own", "t1", MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN | MTE_TEST_THRESHOLD);
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
    ASSERT_NE(pstEntry, nullptr);
    ASSERT_NE(pstEntry->pstBool, nullptr);
    ASSERT_NE(pstEntry->pstExist, nullptr);
    ASSERT_NE(pstEntry->pstThres, nullptr);
    EXPECT_EQ(pstEntry->pstExist->ucTest, 0xC0);
    EXPECT_EQ(pstEntry->pstExist->ucStartup, 0xC0);
    EXPECT_EQ(pstEntry->pstExist->usFirstCycle, 1);
    EXPECT_EQ(pstEntry->pstBool->uiComparison, MTE_BOOL_UNEQUAL);
    EXPECT_EQ(pstEntry->pstBool->uiStartup, MTE_TRUE);
    EXPECT_EQ(pstEntry->pstThres->uiStartup, 3u);
    EXPECT_EQ(FAKE_DBM_Records("mteBoolean"),
              std::vector<std::string>{Bytes(pstEntry->pstBool, sizeof(MTE_BOOL_ENTRY_S))});
    EXPECT_EQ(FAKE_DBM_Records("mteExistence"),
              std::vector<std::string>{Bytes(pstEntry->pstExist, MTE_EXIST_ROW_SIZE)});
    EXPECT_EQ(FAKE_DBM_Records("mteThreshold"),
              std::vector<std::string>{Bytes(pstEntry->pstThres, sizeof(MTE_THRES_ENTRY_S))});
    EXPECT_EQ(pstEntry->stRow.ucTest, 0xE0);
}

TEST_F(TriggerTableTest, MemoryPressureRefusesOnlyNewTriggers) {
    CreateWaiting("own", "old");
    SetMemoryState(MTE_MEM_STATE_EXCEEDED);
    ASSERT_EQ(mte_MEMALERT_GetFlag(), 1u);
    Snapshot stBefore = TakeSnapshot();
    EXPECT_EQ(Set(TriggerReq("own", "new", MTE_ROW_CREATE_AND_GO), kGoMask),
              MTE_ERR_MEMORY_PRESSURE);
    EXPECT_EQ(TakeSnapshot(), stBefore);
    // Changes to existing triggers go on.
    MTE_TRIGGER_ROW_S stChange = TriggerReq("own", "old", MTE_ROW_ACTIVE);
    EXPECT_EQ(Set(stChange, kGoMask), 0u);
    EXPECT_EQ(Entry("own", "old")->stRow.uiEntryStatus, MTE_ROW_ACTIVE);
    // Bit 31 waives the guard.
    EXPECT_EQ(Set(TriggerReq("own", "new", MTE_ROW_CREATE_AND_GO), kGoMask | MTE_MASK_FORCE), 0u);
    SetMemoryState(MTE_MEM_STATE_NORMAL);
    EXPECT_EQ(Set(TriggerReq("own", "third", MTE_ROW_CREATE_AND_GO), kGoMask), 0u);
}

// A change request on an existing trigger, with the expected outcome.
struct ModifyCase {
    const char* pszWhat;
    bool bStartActive;
    uint32_t uiStatus;
    uint32_t uiMask;
    void (*pfAdjust)(MTE_TRIGGER_ROW_S*);
    uint32_t uiResult;
    uint32_t uiFailed;
    uint32_t uiStatusAfter;  // for accepted requests
};

void Comment(MTE_TRIGGER_ROW_S* p) {
    strcpy(p->szComment, "new comment");
}
void LowFrequency(MTE_TRIGGER_ROW_S* p) {
    p->uiFrequency = 5;
}

TEST_F(TriggerTableTest, ChangeTransitions) {
    const uint32_t kComment = COL(MTE_TRIGGER_COL_COMMENT);
    const uint32_t kStatus = COL(MTE_TRIGGER_COL_ENTRY_STATUS);
    const uint32_t kFreq = COL(MTE_TRIGGER_COL_FREQUENCY);
    const ModifyCase astCases[] = {
        {"notInService -> active", false, MTE_ROW_ACTIVE, kStatus, NoAdjust, 0, 0, MTE_ROW_ACTIVE},
        {"notInService -> active, new frequency too low", false, MTE_ROW_ACTIVE, kStatus | kFreq,
         LowFrequency, MTE_ERR_INCONSISTENT, 12},
        {"notInService -> active, new frequency too low, bit 31", false, MTE_ROW_ACTIVE,
         kStatus | kFreq | MTE_MASK_FORCE, LowFrequency, 0, 0, MTE_ROW_ACTIVE},
        {"notInService -> active, value ID emptied", false, MTE_ROW_ACTIVE,
         kStatus | COL(MTE_TRIGGER_COL_VALUE_ID),
         [](MTE_TRIGGER_ROW_S* p) { p->stValueID.uiLen = 0; }, MTE_ERR_INCONSISTENT, 8},
        {"notInService, column change without status", false, MTE_ROW_NONE, kComment, Comment, 0, 0,
         MTE_ROW_NOT_IN_SERVICE},
        {"notInService, column change with notInService", false, MTE_ROW_NOT_IN_SERVICE,
         kComment | kStatus, Comment, 0, 0, MTE_ROW_NOT_IN_SERVICE},
        {"notInService, low frequency is fine while waiting", false, MTE_ROW_NONE, kFreq,
         LowFrequency, 0, 0, MTE_ROW_NOT_IN_SERVICE},
        {"notInService, objects owner of another owner", false, MTE_ROW_NONE,
         COL(MTE_TRIGGER_COL_OBJECTS_OWNER),
         [](MTE_TRIGGER_ROW_S* p) { strcpy(p->szObjectsOwner, "x"); }, MTE_ERR_INCONSISTENT, 13},
        {"active -> notInService with a frequency", true, MTE_ROW_NOT_IN_SERVICE, kStatus | kFreq,
         [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 120; }, 0, 0, MTE_ROW_NOT_IN_SERVICE},
        {"active, status alone", true, MTE_ROW_ACTIVE, kStatus, NoAdjust, 0, 0, MTE_ROW_ACTIVE},
        {"active, status alone with bit 31 is not the status alone", true, MTE_ROW_ACTIVE,
         kStatus | MTE_MASK_FORCE, NoAdjust, MTE_ERR_INCONSISTENT, 0},
        {"active, active with an unchanged column", true, MTE_ROW_ACTIVE, kStatus | kFreq, NoAdjust,
         MTE_ERR_INCONSISTENT, 0},
        {"active, active with a change", true, MTE_ROW_ACTIVE, kStatus | kComment, Comment,
         MTE_ERR_INCONSISTENT, 0},
        {"active, change without status", true, MTE_ROW_NONE, kComment, Comment,
         MTE_ERR_INCONSISTENT, 0},
        {"active, no change without status", true, MTE_ROW_NONE, kFreq, NoAdjust, MTE_ERR_NO_CHANGE,
         0},
        {"active, test bit change", true, MTE_ROW_NONE, COL(MTE_TRIGGER_COL_TEST_BOOLEAN),
         [](MTE_TRIGGER_ROW_S* p) { p->ucTest = MTE_TEST_BOOLEAN; }, MTE_ERR_INCONSISTENT, 0},
        {"createAndGo on an active row", true, MTE_ROW_CREATE_AND_GO, kGoMask, NoAdjust,
         MTE_ERR_ROW_EXISTS, 15},
        {"createAndWait on an active row", true, MTE_ROW_CREATE_AND_WAIT, kGoMask, NoAdjust,
         MTE_ERR_ROW_EXISTS, 15},
        {"createAndGo on a waiting row", false, MTE_ROW_CREATE_AND_GO, kGoMask, NoAdjust,
         MTE_ERR_ROW_EXISTS, 15},
        {"notInService, no change", false, MTE_ROW_NONE, kFreq, NoAdjust, 0, 0,
         MTE_ROW_NOT_IN_SERVICE},
    };
    for (const ModifyCase& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        mte_TRIGGER_Fini();
        FAKE_DBM_Reset();
        mte_DBM_Fini();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        // A neighbour that must never be touched.
        CreateActive("own", "a", MTE_TEST_THRESHOLD);
        if (c.bStartActive) {
            CreateActive("own", "t1", MTE_TEST_EXISTENCE);
        } else {
            CreateWaiting("own", "t1", MTE_TEST_EXISTENCE);
        }
        Snapshot stBefore = TakeSnapshot();
        uint64_t ulWrites = FAKE_DBM_WriteCount();
        MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", c.uiStatus);
        c.pfAdjust(&stReq);
        uint32_t uiFailed = 0;
        EXPECT_EQ(Set(stReq, c.uiMask, &uiFailed), c.uiResult);
        EXPECT_EQ(uiFailed, c.uiFailed);
        MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
        ASSERT_NE(pstEntry, nullptr);
        if (c.uiResult != 0) {
            EXPECT_EQ(TakeSnapshot(), stBefore);
            EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);
            continue;
        }
        EXPECT_EQ(pstEntry->stRow.uiEntryStatus, c.uiStatusAfter);
        EXPECT_EQ(pstEntry->stRow.uiEnabled,
                  c.uiStatusAfter == MTE_ROW_ACTIVE ? MTE_TRUE : MTE_FALSE);
        EXPECT_EQ(StoredTrigger("own", "t1"), Bytes(&pstEntry->stRow, sizeof(MTE_TRIGGER_ROW_S)));
        EXPECT_EQ(pstEntry->pstExist != nullptr, true);
        EXPECT_EQ(TakeSnapshot().astrEntries[0], stBefore.astrEntries[0]);  // neighbour
    }
}

TEST_F(TriggerTableTest, RequestThatChangesNothingWritesNothing) {
    CreateWaiting("own", "t1", MTE_TEST_BOOLEAN);
    Snapshot stBefore = TakeSnapshot();
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE);
    stReq.ucTest = MTE_TEST_BOOLEAN;
    EXPECT_EQ(Set(stReq, kGoMask | COL(MTE_TRIGGER_COL_TEST_BOOLEAN)), 0u);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);
    EXPECT_EQ(TakeSnapshot(), stBefore);
}

TEST_F(TriggerTableTest, ChangedColumnsAreCopiedAndStored) {
    CreateWaiting("own", "t1");
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_NONE);
    strcpy(stReq.szComment, "watch uptime");
    stReq.uiSampleType = MTE_SAMPLE_DELTA;
    stReq.stValueID.uiLen = 3;
    stReq.uiValueIDWildcard = MTE_TRUE;
    strcpy(stReq.szContextName, "ctx");
    stReq.uiContextNameWildcard = MTE_TRUE;
    stReq.uiFrequency = 30;
    strcpy(stReq.szObjectsOwner, "own");
    strcpy(stReq.szObjects, "objs");
    uint32_t uiMask = 0;
    for (uint32_t c : {3u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u}) {
        uiMask |= COL(c);
    }
    ASSERT_EQ(Set(stReq, uiMask), 0u);
    const MTE_TRIGGER_ROW_S& stRow = Entry("own", "t1")->stRow;
    EXPECT_STREQ(stRow.szComment, "watch uptime");
    EXPECT_EQ(stRow.uiSampleType, MTE_SAMPLE_DELTA);
    EXPECT_EQ(stRow.stValueID.uiLen, 3u);
    EXPECT_EQ(stRow.stValueID.auiOid[2], 6u);
    EXPECT_EQ(stRow.uiValueIDWildcard, MTE_TRUE);
    EXPECT_STREQ(stRow.szContextName, "ctx");
    EXPECT_EQ(stRow.uiContextNameWildcard, MTE_TRUE);
    EXPECT_EQ(stRow.uiFrequency, 30u);
    EXPECT_STREQ(stRow.szObjectsOwner, "own");
    EXPECT_STREQ(stRow.szObjects, "objs");
    EXPECT_EQ(stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    EXPECT_EQ(StoredTrigger("own", "t1"), Bytes(&stRow, sizeof(stRow)));
}

TEST_F(TriggerTableTest, SameValueIdOnActiveRowIsNoChange) {
    CreateActive("own", "t1");
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_NONE);
    EXPECT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_VALUE_ID)), MTE_ERR_NO_CHANGE);
    stReq.stValueID.auiOid[8] = 1;
    EXPECT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_VALUE_ID)), MTE_ERR_INCONSISTENT);
}

TEST_F(TriggerTableTest, TestBitsMakeAndDestroyRowsWithTheirRecords) {
    CreateWaiting("own", "t1", MTE_TEST_BOOLEAN);
    ASSERT_EQ(FAKE_DBM_Records("mteBoolean").size(), 1u);
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_NONE);
    stReq.ucTest = MTE_TEST_THRESHOLD;  // boolean cleared, threshold set
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_TEST_BOOLEAN) | COL(MTE_TRIGGER_COL_TEST_THRESHOLD)),
              0u);
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
    EXPECT_EQ(pstEntry->pstBool, nullptr);
    ASSERT_NE(pstEntry->pstThres, nullptr);
    EXPECT_EQ(pstEntry->pstThres->uiStartup, 3u);
    EXPECT_EQ(pstEntry->stRow.ucTest, MTE_TEST_THRESHOLD);
    EXPECT_TRUE(FAKE_DBM_Records("mteBoolean").empty());
    EXPECT_EQ(FAKE_DBM_Records("mteThreshold").size(), 1u);
    EXPECT_EQ(StoredTrigger("own", "t1"), Bytes(&pstEntry->stRow, sizeof(MTE_TRIGGER_ROW_S)));
    // A test bit outside the mask is ignored.
    stReq.ucTest = MTE_TEST_EXISTENCE;
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_TEST_THRESHOLD)), 0u);
    EXPECT_EQ(pstEntry->pstExist, nullptr);
    EXPECT_EQ(pstEntry->pstThres, nullptr);
    EXPECT_EQ(pstEntry->stRow.ucTest, 0);
}

// The delta row exists exactly while the sample type is deltaValue, is
// written only while the trigger is not active, and comes back at start-up,
// with its defaults when the store has no record of it (an older store).
TEST_F(TriggerTableTest, DeltaRowFollowsTheSampleTypeAndIsStored) {
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "d", MTE_ROW_CREATE_AND_WAIT);
    stReq.uiSampleType = MTE_SAMPLE_DELTA;
    ASSERT_EQ(Set(stReq, kGoMask | COL(MTE_TRIGGER_COL_SAMPLE_TYPE)), 0u);
    const MTE_DELTA_ENTRY_S* pstDelta = mte_DELTA_Get("own", "d");
    ASSERT_NE(pstDelta, nullptr);
    EXPECT_TRUE(mte_DELTA_IsSysUpTime(&pstDelta->stDiscontinuityID));
    EXPECT_EQ(pstDelta->uiDiscontinuityIDWildcard, MTE_FALSE);
    EXPECT_EQ(pstDelta->uiDiscontinuityIDType, MTE_DELTA_TIME_TICKS);
    EXPECT_EQ(FAKE_DBM_Records("mteDelta").size(), 1u);

    MTE_DELTA_ENTRY_S stRow = *pstDelta;
    stRow.stDiscontinuityID.uiLen = 11;
    const uint32_t auiDisc[] = {1, 3, 6, 1, 2, 1, 31, 1, 1, 1, 15};
    memcpy(stRow.stDiscontinuityID.auiOid, auiDisc, sizeof(auiDisc));
    stRow.uiDiscontinuityIDWildcard = MTE_TRUE;
    stRow.uiDiscontinuityIDType = MTE_DELTA_TIME_STAMP;
    const uint32_t uiAll = COL(1) | COL(2) | COL(3);
    struct {
        const char* pszWhat;
        uint32_t uiType;
        uint32_t uiWildcard;
        uint32_t uiResult;
        uint32_t uiFailed;
    } astRefused[] = {
        {"wildcard on a trigger whose value is not", MTE_DELTA_TIME_STAMP, MTE_TRUE,
         MTE_ERR_INCONSISTENT, 2},
        {"wildcard not a TruthValue", MTE_DELTA_TIME_STAMP, 0, MTE_ERR_INCONSISTENT, 2},
        {"unknown type", 4, MTE_FALSE, MTE_ERR_INCONSISTENT, 3},
    };
    for (const auto& stCase : astRefused) {
        SCOPED_TRACE(stCase.pszWhat);
        MTE_DELTA_ENTRY_S stBad = stRow;
        stBad.uiDiscontinuityIDType = stCase.uiType;
        stBad.uiDiscontinuityIDWildcard = stCase.uiWildcard;
        uint32_t uiFailed = 0;
        EXPECT_EQ(mte_DELTA_Set(&stBad, uiAll, &uiFailed), stCase.uiResult);
        EXPECT_EQ(uiFailed, stCase.uiFailed);
    }
    stReq = TriggerReq("own", "d", MTE_ROW_NONE);
    stReq.uiValueIDWildcard = MTE_TRUE;
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_VALUE_ID_WILDCARD)), 0u);
    uint32_t uiFailed = 0;
    ASSERT_EQ(mte_DELTA_Set(&stRow, uiAll, &uiFailed), 0u);
    ASSERT_EQ(Set(TriggerReq("own", "d", MTE_ROW_ACTIVE), COL(MTE_TRIGGER_COL_ENTRY_STATUS)), 0u);
    stRow.uiDiscontinuityIDType = MTE_DELTA_DATE_AND_TIME;
    EXPECT_EQ(mte_DELTA_Set(&stRow, uiAll, &uiFailed), MTE_ERR_INCONSISTENT);  // active
    stRow.uiDiscontinuityIDType = MTE_DELTA_TIME_STAMP;
    const std::string strStored = Bytes(mte_DELTA_Get("own", "d"), sizeof(MTE_DELTA_ENTRY_S));
    ASSERT_EQ(FAKE_DBM_Records("mteDelta"), std::vector<std::string>{strStored});

    for (bool bOlderStore : {false, true}) {
        SCOPED_TRACE(bOlderStore ? "store without delta rows" : "store with its delta row");
        if (bOlderStore) {
            // Only the stored record goes, as in a store written before delta rows.
            mte_DELTA_Destroy(mte_DELTA_Get("own", "d"));
            Entry("own", "d")->pstDelta = nullptr;
        }
        mte_TRIGGER_Fini();
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        ASSERT_EQ(mte_DBM_Recover(), 0u);
        ASSERT_NE(mte_DELTA_Get("own", "d"), nullptr);
        EXPECT_EQ(Bytes(mte_DELTA_Get("own", "d"), sizeof(MTE_DELTA_ENTRY_S)) == strStored,
                  !bOlderStore);
    }
    EXPECT_EQ(mte_DELTA_Get("own", "d")->uiDiscontinuityIDType, MTE_DELTA_TIME_TICKS);

    ASSERT_EQ(
        Set(TriggerReq("own", "d", MTE_ROW_NOT_IN_SERVICE), COL(MTE_TRIGGER_COL_ENTRY_STATUS)), 0u);
    stReq = TriggerReq("own", "d", MTE_ROW_NONE);
    stReq.uiSampleType = MTE_SAMPLE_ABSOLUTE;
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_SAMPLE_TYPE)), 0u);
    EXPECT_EQ(mte_DELTA_Get("own", "d"), nullptr);
    EXPECT_TRUE(FAKE_DBM_Records("mteDelta").empty());
    EXPECT_EQ(mte_DELTA_Set(&stRow, uiAll, &uiFailed), MTE_ERR_NO_SUCH_ROW);
}

TEST_F(TriggerTableTest, OddStatusesChangeOnlyTestBits) {
    const uint32_t kTestAndComment =
        COL(MTE_TRIGGER_COL_TEST_BOOLEAN) | COL(MTE_TRIGGER_COL_COMMENT);
    // notReady on a waiting trigger: the test bit is taken, the comment is not.
    CreateWaiting("own", "w");
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "w", MTE_ROW_NOT_READY);
    stReq.ucTest = MTE_TEST_BOOLEAN;
    strcpy(stReq.szComment, "ignored");
    ASSERT_EQ(Set(stReq, kTestAndComment), 0u);
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "w");
    EXPECT_NE(pstEntry->pstBool, nullptr);
    EXPECT_STREQ(pstEntry->stRow.szComment, "");
    EXPECT_EQ(pstEntry->stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    // On an active trigger the same request is a refused change.
    CreateActive("own", "a");
    Snapshot stBefore = TakeSnapshot();
    stReq = TriggerReq("own", "a", 9);
    stReq.ucTest = MTE_TEST_BOOLEAN;
    EXPECT_EQ(Set(stReq, kTestAndComment), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(TakeSnapshot(), stBefore);
    // A trigger created notReady can be activated like a waiting one.
    ASSERT_EQ(Set(TriggerReq("own", "nr", MTE_ROW_NOT_READY), kGoMask), 0u);
    ASSERT_EQ(Set(TriggerReq("own", "nr", MTE_ROW_ACTIVE), kGoMask), 0u);
    EXPECT_EQ(Entry("own", "nr")->stRow.uiEntryStatus, MTE_ROW_ACTIVE);
    EXPECT_EQ(Entry("own", "nr")->stRow.uiEnabled, MTE_TRUE);
}

TEST_F(TriggerTableTest, RunStateHandOverToTheWorker) {
    CreateActive("own", "t1");
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
    const uint32_t kStatus = COL(MTE_TRIGGER_COL_ENTRY_STATUS);
    pstEntry->uiRunState = MTE_RUN_BUSY;  // the worker holds a cycle
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_CANCELLED);
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_ACTIVE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_RESTART);
    EXPECT_EQ(pstEntry->stRow.uiEnabled, MTE_TRUE);
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_CANCELLED);
    // Idle stays idle across a stop.
    pstEntry->uiRunState = MTE_RUN_IDLE;
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_ACTIVE), kStatus), 0u);
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_IDLE);
}

TEST_F(TriggerTableTest, DestroyIdleFreesBusyMarksDeleted) {
    CreateActive("own", "idle", MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN);
    CreateActive("own", "busy", MTE_TEST_THRESHOLD);
    CreateWaiting("own", "keep", MTE_TEST_BOOLEAN);
    MTE_TRIGGER_ENTRY_S* pstBusy = Entry("own", "busy");
    pstBusy->uiRunState = MTE_RUN_BUSY;

    EXPECT_EQ(Set(TriggerReq("own", "idle", MTE_ROW_DESTROY), 0), 0u);
    EXPECT_EQ(Entry("own", "idle"), nullptr);
    EXPECT_EQ(Set(TriggerReq("own", "busy", MTE_ROW_DESTROY), 0), 0u);
    EXPECT_EQ(Entry("own", "busy"), nullptr);
    EXPECT_EQ(pstBusy->uiRunState, MTE_RUN_DELETED);
    EXPECT_EQ(pstBusy->pstNext, nullptr);

    // Only the kept trigger and its boolean row remain, in memory and stored.
    EXPECT_EQ(mte_TRIGGER_GetNext(0, "", "")->szName, std::string("keep"));
    EXPECT_EQ(mte_TRIGGER_GetNext(3, "own", "keep"), nullptr);
    EXPECT_EQ(FAKE_DBM_Records("mteTrigger").size(), 1u);
    EXPECT_EQ(FAKE_DBM_Records("mteBoolean").size(), 1u);
    EXPECT_TRUE(FAKE_DBM_Records("mteExistence").empty());
    EXPECT_TRUE(FAKE_DBM_Records("mteThreshold").empty());
    // The worker frees what it held.
    mte_TRIGGER_FreeNode(pstBusy);
    EXPECT_EQ(Set(TriggerReq("own", "busy", MTE_ROW_DESTROY), 0), 0u);
}

TEST_F(TriggerTableTest, DestroyInEveryRunStateTheWorkerHolds) {
    for (uint32_t uiState : {MTE_RUN_CANCELLED, MTE_RUN_BUSY, MTE_RUN_RESTART}) {
        SCOPED_TRACE(uiState);
        CreateWaiting("own", "t", MTE_TEST_EXISTENCE);
        MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t");
        pstEntry->uiRunState = uiState;
        pstEntry->pstExist->usFirstCycle = 0;
        EXPECT_EQ(Set(TriggerReq("own", "t", MTE_ROW_DESTROY), 0), 0u);
        EXPECT_EQ(Entry("own", "t"), nullptr);
        EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_DELETED);
        // Its samples were dropped even though the row was not active.
        EXPECT_EQ(pstEntry->pstExist->usFirstCycle, 1);
        EXPECT_TRUE(FAKE_DBM_Records("mteTrigger").empty());
        EXPECT_TRUE(FAKE_DBM_Records("mteExistence").empty());
        mte_TRIGGER_FreeNode(pstEntry);
    }
}

TEST_F(TriggerTableTest, UnterminatedRequestStringsAreBounded) {
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_CREATE_AND_WAIT);
    memset(stReq.szComment, 'c', sizeof(stReq.szComment));
    memset(stReq.szObjects, 'o', sizeof(stReq.szObjects));
    ASSERT_EQ(Set(stReq, kGoMask | COL(MTE_TRIGGER_COL_COMMENT) | COL(MTE_TRIGGER_COL_OBJECTS)),
              0u);
    const MTE_TRIGGER_ROW_S& stRow = Entry("own", "t1")->stRow;
    EXPECT_EQ(strlen(stRow.szComment), 255u);
    EXPECT_EQ(strlen(stRow.szObjects), 32u);
}

}  // namespace
