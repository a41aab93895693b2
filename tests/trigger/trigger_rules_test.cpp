// The trigger table's own rules (what every table shares is in
// table_suite_test.cpp), with the port service down; then with it up: the
// timer and the first sample are asked for exactly where a trigger starts,
// stopped where it stops, and a trigger whose timer cannot start is refused
// without a trace (the worker thread is not started).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "fake_dbm.h"
#include "fake_log.h"
#include "fake_memalert.h"
#include "mte_bool.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_delta.h"
#include "mte_exist.h"
#include "mte_memalert.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_thres.h"
#include "mte_timer.h"
#include "mte_trigger.h"

namespace {

// The in-memory store, the memory guard on the fake alert service, a main
// epoll set for it, and an empty trigger table, with the port service down (no
// timers, no sampling). Helpers build requests and take snapshots of
// everything a refused request must leave untouched.
constexpr uint32_t COL(uint32_t c) {
    return MTE_COLUMN_BIT(c);
}
constexpr uint32_t kGoMask = COL(MTE_TRIGGER_COL_VALUE_ID) | COL(MTE_TRIGGER_COL_FREQUENCY) |
                             COL(MTE_TRIGGER_COL_ENTRY_STATUS);

inline MTE_TRIGGER_ROW_S TriggerReq(const char* pszOwner, const char* pszName, uint32_t uiStatus,
                                    uint32_t uiFrequency = 60) {
    MTE_TRIGGER_ROW_S st{};
    strncpy(st.szOwner, pszOwner, sizeof(st.szOwner) - 1);
    strncpy(st.szName, pszName, sizeof(st.szName) - 1);
    st.stValueID = {9, {1, 3, 6, 1, 2, 1, 1, 3, 0}};  // sysUpTime.0
    st.uiFrequency = uiFrequency;
    st.uiEntryStatus = uiStatus;
    return st;
}

inline std::string Bytes(const void* p, size_t n) {
    return std::string(static_cast<const char*>(p), n);
}

// Everything a refused request must leave as it was: per entry in list order
// its row, run fields and test rows, then the stored records of the lists.
inline std::vector<std::string> TakeSnapshot() {
    std::vector<std::string> astr;
    uint8_t ucFlags = 0;
    for (MTE_TRIGGER_ENTRY_S* p = mte_TRIGGER_GetNextTriggerEntry(0, "", "", &ucFlags); p;
         p = mte_TRIGGER_GetNextTriggerEntry(static_cast<uint32_t>(strlen(p->stRow.szOwner)),
                                             p->stRow.szOwner, p->stRow.szName, &ucFlags)) {
        astr.push_back(Bytes(&p->stRow, sizeof(p->stRow)) +
                       Bytes(&p->llTimerId, sizeof(p->llTimerId)) +
                       Bytes(&p->uiRunState, sizeof(p->uiRunState)) +
                       (p->pstBool ? Bytes(p->pstBool, sizeof(MTE_BOOL_ENTRY_S)) : "-") +
                       (p->pstExist ? Bytes(p->pstExist, sizeof(MTE_EXIST_ENTRY_S)) : "-") +
                       (p->pstThres ? Bytes(p->pstThres, sizeof(MTE_THRES_ENTRY_S)) : "-"));
    }
    for (const char* pszList : {"mteTrigger", "mteBoolean", "mteExistence", "mteThreshold"}) {
        for (const std::string& str : FAKE_DBM_Records(pszList)) {
            astr.push_back(std::string(pszList) + str);
        }
    }
    return astr;
}

// Whether the entry's row is stored as it is.
bool Stored(const MTE_TRIGGER_ENTRY_S* p) {
    std::vector<std::string> astr = FAKE_DBM_Records("mteTrigger");
    return std::count(astr.begin(), astr.end(), Bytes(&p->stRow, sizeof(p->stRow))) == 1;
}

class TriggerTableTest : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_DBM_Reset();
        FAKE_MEMALERT_Reset();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_EPOLL_Init(), 0u);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        mte_SCALAR_SetSampleMin(10);
    }
    void TearDown() override {
        mte_TRIGGER_Fini();
        mte_MEMALERT_Fini();
        mte_EPOLL_Fini();
        mte_DBM_Fini();
        mte_SCALAR_SetSampleMin(1);
    }
    uint32_t Set(const MTE_TRIGGER_ROW_S& stReq, uint32_t uiMask, uint32_t* puiFailed = nullptr) {
        uint32_t uiFailed = 0;
        return mte_TRIGGER_Set(&stReq, uiMask, puiFailed != nullptr ? puiFailed : &uiFailed);
    }
    MTE_TRIGGER_ENTRY_S* Entry(const char* pszOwner, const char* pszName) {
        return mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    }
    void Create(const char* pszOwner, const char* pszName, uint32_t uiStatus, uint8_t ucTest) {
        MTE_TRIGGER_ROW_S st = TriggerReq(pszOwner, pszName, uiStatus);
        st.ucTest = ucTest;
        ASSERT_EQ(Set(st, kGoMask), 0u);
    }
    void CreateActive(const char* pszOwner, const char* pszName, uint8_t ucTest = 0) {
        Create(pszOwner, pszName, MTE_ROW_CREATE_AND_GO, ucTest);
    }
    void CreateWaiting(const char* pszOwner, const char* pszName, uint8_t ucTest = 0) {
        Create(pszOwner, pszName, MTE_ROW_CREATE_AND_WAIT, ucTest);
    }
};

constexpr uint32_t kStatus = COL(MTE_TRIGGER_COL_ENTRY_STATUS);
constexpr uint32_t kFreq = COL(MTE_TRIGGER_COL_FREQUENCY);
constexpr uint32_t kComment = COL(MTE_TRIGGER_COL_COMMENT);

void NoAdjust(MTE_TRIGGER_ROW_S*) {}
void LowFrequency(MTE_TRIGGER_ROW_S* p) {
    p->uiFrequency = 5;
}
void OtherObjectsOwner(MTE_TRIGGER_ROW_S* p) {
    strcpy(p->szObjectsOwner, "other");
}
void NoValueId(MTE_TRIGGER_ROW_S* p) {
    p->stValueID.uiLen = 0;
}

// A request on "own/t1", which is missing, waiting or active before it.
struct RuleCase {
    const char* pszWhat;
    enum Before { MISSING, WAITING, ACTIVE } eBefore;
    uint32_t uiStatus;
    uint32_t uiMask;
    void (*pfAdjust)(MTE_TRIGGER_ROW_S*);
    uint32_t uiResult;
    uint32_t uiFailed;
    uint32_t uiStatusAfter = 0;  // for accepted requests
};

TEST_F(TriggerTableTest, ActivationChecksAndStatuses) {
    constexpr auto M = RuleCase::MISSING, W = RuleCase::WAITING, A = RuleCase::ACTIVE;
    const RuleCase astCases[] = {
        {"createAndGo without value ID", M, MTE_ROW_CREATE_AND_GO, kGoMask, NoValueId,
         MTE_ERR_INCONSISTENT, 8},
        {"createAndGo below the sample minimum", M, MTE_ROW_CREATE_AND_GO, kGoMask, LowFrequency,
         MTE_ERR_INCONSISTENT, 12},
        {"createAndGo below the minimum, bit 31", M, MTE_ROW_CREATE_AND_GO,
         kGoMask | MTE_MASK_FORCE, LowFrequency, 0, 0, MTE_ROW_ACTIVE},
        {"createAndGo checks the request row, not the defaults", M, MTE_ROW_CREATE_AND_GO,
         kGoMask & ~kFreq, [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 0; }, MTE_ERR_INCONSISTENT,
         12},
        {"createAndWait below the minimum", M, MTE_ROW_CREATE_AND_WAIT, kGoMask, LowFrequency, 0, 0,
         MTE_ROW_NOT_IN_SERVICE},
        {"objects owner of another owner", M, MTE_ROW_CREATE_AND_WAIT,
         kGoMask | COL(MTE_TRIGGER_COL_OBJECTS_OWNER), OtherObjectsOwner, MTE_ERR_INCONSISTENT, 13},
        {"objects owner of another owner, column not written", M, MTE_ROW_CREATE_AND_WAIT, kGoMask,
         OtherObjectsOwner, 0, 0, MTE_ROW_NOT_IN_SERVICE},
        {"value ID longer than an OID", M, MTE_ROW_CREATE_AND_WAIT, kGoMask,
         [](MTE_TRIGGER_ROW_S* p) { p->stValueID.uiLen = 129; }, MTE_ERR_INCONSISTENT, 8},
        {"notReady is created as given", M, MTE_ROW_NOT_READY, kGoMask, NoAdjust, 0, 0,
         MTE_ROW_NOT_READY},
        {"a status above destroy is created as given", M, 7, kGoMask, NoAdjust, 0, 0, 7},
        {"activate with a new frequency too low", W, MTE_ROW_ACTIVE, kStatus | kFreq, LowFrequency,
         MTE_ERR_INCONSISTENT, 12},
        {"activate with a new frequency too low, bit 31", W, MTE_ROW_ACTIVE,
         kStatus | kFreq | MTE_MASK_FORCE, LowFrequency, 0, 0, MTE_ROW_ACTIVE},
        {"activate with the value ID emptied", W, MTE_ROW_ACTIVE,
         kStatus | COL(MTE_TRIGGER_COL_VALUE_ID), NoValueId, MTE_ERR_INCONSISTENT, 8},
        {"a low frequency is fine while waiting", W, MTE_ROW_NONE, kFreq, LowFrequency, 0, 0,
         MTE_ROW_NOT_IN_SERVICE},
        {"active outside the mask is not an activation", W, MTE_ROW_ACTIVE, kFreq, NoAdjust, 0, 0,
         MTE_ROW_NOT_IN_SERVICE},
        {"waiting, column change with notInService", W, MTE_ROW_NOT_IN_SERVICE, kComment | kStatus,
         [](MTE_TRIGGER_ROW_S* p) { strcpy(p->szComment, "new comment"); }, 0, 0,
         MTE_ROW_NOT_IN_SERVICE},
        {"waiting, objects owner of another owner", W, MTE_ROW_NONE,
         COL(MTE_TRIGGER_COL_OBJECTS_OWNER), OtherObjectsOwner, MTE_ERR_INCONSISTENT, 13},
        {"stop with a new frequency", A, MTE_ROW_NOT_IN_SERVICE, kStatus | kFreq,
         [](MTE_TRIGGER_ROW_S* p) { p->uiFrequency = 120; }, 0, 0, MTE_ROW_NOT_IN_SERVICE},
        {"active with an unchanged column", A, MTE_ROW_ACTIVE, kStatus | kFreq, NoAdjust,
         MTE_ERR_INCONSISTENT, 0},
        {"active, test bit change", A, MTE_ROW_NONE, COL(MTE_TRIGGER_COL_TEST_BOOLEAN),
         [](MTE_TRIGGER_ROW_S* p) { p->ucTest = MTE_TEST_BOOLEAN; }, MTE_ERR_INCONSISTENT, 0},
        {"active, another value ID", A, MTE_ROW_NONE, COL(MTE_TRIGGER_COL_VALUE_ID),
         [](MTE_TRIGGER_ROW_S* p) { p->stValueID.auiOid[8] = 1; }, MTE_ERR_INCONSISTENT, 0},
    };
    for (const RuleCase& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        mte_TRIGGER_Fini();
        FAKE_DBM_Reset();
        mte_DBM_Fini();
        ASSERT_EQ(mte_DBM_Init(), 0u);
        CreateActive("own", "a", MTE_TEST_THRESHOLD);  // a neighbour never touched
        if (c.eBefore == RuleCase::ACTIVE) {
            CreateActive("own", "t1", MTE_TEST_EXISTENCE);
        } else if (c.eBefore == RuleCase::WAITING) {
            CreateWaiting("own", "t1", MTE_TEST_EXISTENCE);
        }
        auto stBefore = TakeSnapshot();
        MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", c.uiStatus);
        c.pfAdjust(&stReq);
        uint32_t uiFailed = 0;
        EXPECT_EQ(Set(stReq, c.uiMask, &uiFailed), c.uiResult);
        EXPECT_EQ(uiFailed, c.uiFailed);
        if (c.uiResult != 0) {
            EXPECT_EQ(TakeSnapshot(), stBefore);
            continue;
        }
        MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
        ASSERT_NE(pstEntry, nullptr);
        EXPECT_EQ(pstEntry->stRow.uiEntryStatus, c.uiStatusAfter);
        EXPECT_EQ(pstEntry->llTimerId, -1);  // the port service is down
        EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_IDLE);
        EXPECT_EQ(pstEntry->stRow.uiEnabled,
                  c.uiStatusAfter == MTE_ROW_ACTIVE ? MTE_TRUE : MTE_FALSE);
        EXPECT_TRUE(Stored(pstEntry));
        EXPECT_EQ(TakeSnapshot()[0], stBefore[0]);  // the neighbour
    }
}

TEST_F(TriggerTableTest, DefaultsAndEveryWrittenColumnIsCopied) {
    // Created with the status alone: the defaults, nothing else of the request.
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_CREATE_AND_WAIT);
    strcpy(stReq.szComment, "not written");
    strcpy(stReq.szTargetTag, "never written by a set");
    stReq.uiSampleType = MTE_SAMPLE_DELTA;
    stReq.uiEnabled = MTE_TRUE;
    ASSERT_EQ(Set(stReq, kStatus), 0u);
    MTE_TRIGGER_ROW_S stExpected = TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE, 600);
    stExpected.stValueID = {};
    stExpected.uiSampleType = MTE_SAMPLE_ABSOLUTE;
    stExpected.uiValueIDWildcard = stExpected.uiContextNameWildcard = MTE_FALSE;
    stExpected.uiEnabled = MTE_FALSE;
    const MTE_TRIGGER_ROW_S& stRow = Entry("own", "t1")->stRow;
    EXPECT_EQ(Bytes(&stRow, sizeof(stRow)), Bytes(&stExpected, sizeof(stExpected)));

    // Every column a set writes (the target tag is never written).
    stReq = stExpected;
    strcpy(stReq.szComment, "watch uptime");
    stReq.uiSampleType = MTE_SAMPLE_DELTA;
    stReq.stValueID = {3, {1, 3, 6}};
    stReq.uiValueIDWildcard = stReq.uiContextNameWildcard = MTE_TRUE;
    strcpy(stReq.szContextName, "ctx");
    stReq.uiFrequency = 30;
    strcpy(stReq.szObjectsOwner, "own");
    strcpy(stReq.szObjects, "objs");
    stExpected = stReq;
    strcpy(stReq.szTargetTag, "tag");
    stReq.uiEntryStatus = MTE_ROW_NONE;
    ASSERT_EQ(Set(stReq, 0x7f88), 0u);  // columns 3 and 7 to 14
    EXPECT_EQ(Bytes(&stRow, sizeof(stRow)), Bytes(&stExpected, sizeof(stExpected)));

    // Strings without their zero are bounded by their fields.
    stReq = TriggerReq("own", "t2", MTE_ROW_CREATE_AND_WAIT);
    memset(stReq.szComment, 'c', sizeof(stReq.szComment));
    memset(stReq.szObjects, 'o', sizeof(stReq.szObjects));
    ASSERT_EQ(Set(stReq, kGoMask | kComment | COL(MTE_TRIGGER_COL_OBJECTS)), 0u);
    EXPECT_EQ(strlen(Entry("own", "t2")->stRow.szComment), 255u);
    EXPECT_EQ(strlen(Entry("own", "t2")->stRow.szObjects), 32u);
}

TEST_F(TriggerTableTest, TestBitsMakeAndDestroyRowsWithTheirRecords) {
    CreateWaiting("own", "t1", MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN | MTE_TEST_THRESHOLD);
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
    ASSERT_TRUE(pstEntry->pstBool && pstEntry->pstExist && pstEntry->pstThres);
    EXPECT_EQ(pstEntry->pstExist->ucTest, 0xC0);
    EXPECT_EQ(pstEntry->pstExist->ucStartup, 0xC0);
    EXPECT_EQ(pstEntry->pstBool->uiComparison, MTE_BOOL_UNEQUAL);
    EXPECT_EQ(pstEntry->pstBool->uiStartup, MTE_TRUE);
    EXPECT_EQ(pstEntry->pstThres->uiStartup, 3u);

    // A test bit outside the mask is ignored (clearing one takes its row and
    // record: the table suite).
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t1", MTE_ROW_NONE);
    stReq.ucTest = MTE_TEST_EXISTENCE;
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_TEST_THRESHOLD)), 0u);
    EXPECT_EQ(pstEntry->pstThres, nullptr);
    EXPECT_EQ(pstEntry->stRow.ucTest, MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN);
    EXPECT_TRUE(Stored(pstEntry));

    // notReady and other odd statuses take the test bits, nothing else, and
    // only while the trigger is not active.
    stReq = TriggerReq("own", "t1", MTE_ROW_NOT_READY);
    stReq.ucTest = MTE_TEST_THRESHOLD;
    strcpy(stReq.szComment, "ignored");
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_TEST_THRESHOLD) | kComment), 0u);
    EXPECT_NE(pstEntry->pstThres, nullptr);
    EXPECT_STREQ(pstEntry->stRow.szComment, "");
    EXPECT_EQ(pstEntry->stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    CreateActive("own", "a");
    auto stBefore = TakeSnapshot();
    stReq = TriggerReq("own", "a", 9);
    stReq.ucTest = MTE_TEST_BOOLEAN;
    EXPECT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_TEST_BOOLEAN)), MTE_ERR_INCONSISTENT);
    EXPECT_EQ(TakeSnapshot(), stBefore);
    // A trigger created notReady is activated like a waiting one.
    ASSERT_EQ(Set(TriggerReq("own", "nr", MTE_ROW_NOT_READY), kGoMask), 0u);
    ASSERT_EQ(Set(TriggerReq("own", "nr", MTE_ROW_ACTIVE), kGoMask), 0u);
    EXPECT_EQ(Entry("own", "nr")->stRow.uiEnabled, MTE_TRUE);
}

// The delta row's checks, and its defaults when the store has no record of it
// (an older store); the rest of its life is in the table suite.
TEST_F(TriggerTableTest, DeltaRowFollowsTheSampleTypeAndIsStored) {
    MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "d", MTE_ROW_CREATE_AND_WAIT);
    stReq.uiSampleType = MTE_SAMPLE_DELTA;
    ASSERT_EQ(Set(stReq, kGoMask | COL(MTE_TRIGGER_COL_SAMPLE_TYPE)), 0u);
    const MTE_DELTA_ENTRY_S* pstDelta = mte_DELTA_Get("own", "d");
    ASSERT_NE(pstDelta, nullptr);
    EXPECT_TRUE(mte_DELTA_IsSysUpTime(&pstDelta->stDiscontinuityID));

    MTE_DELTA_ENTRY_S stRow = *pstDelta;
    stRow.stDiscontinuityID = {11, {1, 3, 6, 1, 2, 1, 31, 1, 1, 1, 15}};
    stRow.uiDiscontinuityIDWildcard = MTE_TRUE;
    stRow.uiDiscontinuityIDType = MTE_DELTA_TIME_STAMP;
    const uint32_t uiAll = COL(1) | COL(2) | COL(3);
    struct {
        const char* pszWhat;
        uint32_t uiType, uiWildcard, uiFailed;
    } astRefused[] = {
        {"wildcard on a trigger whose value is not", MTE_DELTA_TIME_STAMP, MTE_TRUE, 2},
        {"wildcard not a TruthValue", MTE_DELTA_TIME_STAMP, 0, 2},
        {"unknown type", 4, MTE_FALSE, 3},
    };
    for (const auto& stCase : astRefused) {
        SCOPED_TRACE(stCase.pszWhat);
        MTE_DELTA_ENTRY_S stBad = stRow;
        stBad.uiDiscontinuityIDType = stCase.uiType;
        stBad.uiDiscontinuityIDWildcard = stCase.uiWildcard;
        uint32_t uiFailed = 0;
        EXPECT_EQ(mte_DELTA_Set(&stBad, uiAll, &uiFailed), MTE_ERR_INCONSISTENT);
        EXPECT_EQ(uiFailed, stCase.uiFailed);
    }
    stReq = TriggerReq("own", "d", MTE_ROW_NONE);
    stReq.uiValueIDWildcard = MTE_TRUE;
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_VALUE_ID_WILDCARD)), 0u);
    uint32_t uiFailed = 0;
    ASSERT_EQ(mte_DELTA_Set(&stRow, uiAll, &uiFailed), 0u);
    EXPECT_EQ(mte_DELTA_Get("own", "d")->uiDiscontinuityIDType, MTE_DELTA_TIME_STAMP);
    // Only the stored record goes, as in a store written before delta rows.
    mte_DELTA_Destroy(mte_DELTA_Get("own", "d"));
    Entry("own", "d")->pstDelta = nullptr;
    mte_TRIGGER_Fini();
    ASSERT_EQ(mte_TRIGGER_Init(), 0u);
    ASSERT_EQ(mte_DBM_Recover(), 0u);
    ASSERT_NE(mte_DELTA_Get("own", "d"), nullptr);
    EXPECT_EQ(mte_DELTA_Get("own", "d")->uiDiscontinuityIDType, MTE_DELTA_TIME_TICKS);
}

TEST_F(TriggerTableTest, RunStateHandOverToTheWorker) {
    CreateActive("own", "t1");
    MTE_TRIGGER_ENTRY_S* pstEntry = Entry("own", "t1");
    pstEntry->uiRunState = MTE_RUN_BUSY;  // the worker holds a cycle
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_CANCELLED);
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_ACTIVE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_RESTART);
    ASSERT_EQ(Set(TriggerReq("own", "t1", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_CANCELLED);

    // A destroy takes every stored record of the trigger at once; while the
    // worker holds the trigger it only marks it and drops its samples.
    for (uint32_t uiState : {MTE_RUN_IDLE, MTE_RUN_CANCELLED, MTE_RUN_BUSY, MTE_RUN_RESTART}) {
        SCOPED_TRACE(uiState);
        MTE_TRIGGER_ROW_S stReq = TriggerReq("own", "t", MTE_ROW_CREATE_AND_WAIT);
        stReq.ucTest = MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN | MTE_TEST_THRESHOLD;
        stReq.uiSampleType = MTE_SAMPLE_DELTA;
        ASSERT_EQ(Set(stReq, kGoMask | COL(4) | COL(5) | COL(6) | COL(7)), 0u);
        pstEntry = Entry("own", "t");
        pstEntry->uiRunState = uiState;
        pstEntry->pstExist->usFirstCycle = 0;
        EXPECT_EQ(Set(TriggerReq("own", "t", MTE_ROW_DESTROY), 0), 0u);
        EXPECT_EQ(Entry("own", "t"), nullptr);
        EXPECT_EQ(FAKE_DBM_Records("mteTrigger").size(), 1u);
        for (const char* pszList : {"mteBoolean", "mteExistence", "mteThreshold", "mteDelta"}) {
            EXPECT_TRUE(FAKE_DBM_Records(pszList).empty()) << pszList;
        }
        if (uiState != MTE_RUN_IDLE) {
            EXPECT_EQ(pstEntry->uiRunState, MTE_RUN_DELETED);
            EXPECT_EQ(pstEntry->pstExist->usFirstCycle, 1);
            mte_TRIGGER_FreeNode(pstEntry);  // the worker frees what it held
        }
    }
    mte_TRIGGER_FreeNode(nullptr);
}

// ---- the three test tables ---------------------------------------------------

template <typename Row>
Row TestReq(const char* pszOwner, const char* pszName) {
    Row st{};
    strcpy(st.szOwner, pszOwner);
    strcpy(st.szName, pszName);
    return st;
}

// An owner column of each test table refuses another owner, bit 31 or not,
// and leaves everything as it was (the rest of their writes is in the table
// suite); an existence test bit is a column of its own.
TEST_F(TriggerTableTest, TestTableOwnerColumnsAndExistenceBits) {
    CreateWaiting("o", "w", MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN | MTE_TEST_THRESHOLD);
    auto stBefore = TakeSnapshot();
    auto stExist = TestReq<MTE_EXIST_ENTRY_S>("o", "w");
    auto stBool = TestReq<MTE_BOOL_ENTRY_S>("o", "w");
    auto stThres = TestReq<MTE_THRES_ENTRY_S>("o", "w");
    strcpy(stExist.szEventOwner, "x");
    strcpy(stBool.szObjectsOwner, "x");
    strcpy(stThres.szDeltaFallingEventOwner, "x");
    for (uint32_t uiForce : {0u, MTE_MASK_FORCE}) {
        uint32_t auiFailed[3] = {};
        EXPECT_EQ(mte_EXIST_Set(&stExist, COL(8) | uiForce, &auiFailed[0]), MTE_ERR_INCONSISTENT);
        EXPECT_EQ(mte_BOOL_Set(&stBool, COL(4) | uiForce, &auiFailed[1]), MTE_ERR_INCONSISTENT);
        EXPECT_EQ(mte_THRES_Set(&stThres, COL(14) | uiForce, &auiFailed[2]), MTE_ERR_INCONSISTENT);
        EXPECT_EQ(std::vector<uint32_t>(auiFailed, auiFailed + 3),
                  (std::vector<uint32_t>{8, 4, 14}));
    }
    EXPECT_EQ(TakeSnapshot(), stBefore);
    stExist = TestReq<MTE_EXIST_ENTRY_S>("o", "w");
    stExist.ucTest = 0x20;
    uint32_t uiFailed = 0;
    ASSERT_EQ(mte_EXIST_Set(&stExist, COL(MTE_EXIST_COL_TEST_CHANGED), &uiFailed), 0u);
    EXPECT_EQ(mte_EXIST_Get("o", "w")->ucTest, 0xE0);
    ASSERT_EQ(mte_EXIST_Set(&stExist, COL(MTE_EXIST_COL_TEST_PRESENT), &uiFailed), 0u);
    EXPECT_EQ(mte_EXIST_Get("o", "w")->ucTest, 0x60);
    EXPECT_EQ(mte_EXIST_Get("o", "w")->ucStartup, 0xC0);
}

TEST_F(TriggerTableTest, ThresholdOrdering) {
    const uint32_t R = COL(2), F = COL(3), DR = COL(4), DF = COL(5);
    // Stored before each case: rising 80, falling 20, delta rising 10, delta falling -10.
    struct {
        const char* pszWhat;
        int32_t iRising, iFalling, iDeltaRising, iDeltaFalling;
        uint32_t uiMask, uiResult, uiFailed;
    } astCases[] = {
        {"rising below new falling", 10, 20, 0, 0, R | F, MTE_ERR_INCONSISTENT, 2},
        {"rising below stored falling", 10, 0, 0, 0, R, MTE_ERR_INCONSISTENT, 2},
        {"rising equal to falling", 20, 20, 0, 0, R | F, 0, 0},
        {"falling above stored rising", 0, 90, 0, 0, F, MTE_ERR_INCONSISTENT, 3},
        {"falling equal to stored rising", 0, 80, 0, 0, F, 0, 0},
        {"delta rising below new delta falling", 0, 0, -20, -10, DR | DF, MTE_ERR_INCONSISTENT, 4},
        {"delta rising below stored delta falling", 0, 0, -20, 0, DR, MTE_ERR_INCONSISTENT, 4},
        {"delta falling above stored delta rising", 0, 0, 0, 11, DF, MTE_ERR_INCONSISTENT, 5},
        {"bit 31 waives the ordering", 10, 20, -20, -10, R | F | DR | DF | MTE_MASK_FORCE, 0, 0},
        {"signed comparison", -5, -6, 0, 0, R | F, 0, 0},
    };
    for (const auto& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        mte_TRIGGER_Fini();
        CreateWaiting("o", "w", MTE_TEST_THRESHOLD);
        MTE_THRES_ENTRY_S* pstRow = mte_THRES_Get("o", "w");
        std::tie(pstRow->iRising, pstRow->iFalling, pstRow->iDeltaRising, pstRow->iDeltaFalling) =
            std::tuple(80, 20, 10, -10);
        MTE_THRES_ENTRY_S stBefore = *pstRow;
        auto stReq = TestReq<MTE_THRES_ENTRY_S>("o", "w");
        std::tie(stReq.iRising, stReq.iFalling, stReq.iDeltaRising, stReq.iDeltaFalling) =
            std::tie(c.iRising, c.iFalling, c.iDeltaRising, c.iDeltaFalling);
        uint32_t uiFailed = 0;
        EXPECT_EQ(mte_THRES_Set(&stReq, c.uiMask, &uiFailed), c.uiResult);
        EXPECT_EQ(uiFailed, c.uiFailed);
        if (c.uiResult != 0) {
            EXPECT_EQ(memcmp(pstRow, &stBefore, sizeof(stBefore)), 0);
        }
    }
}

// ---- recovery ------------------------------------------------------------

// Recovery of what only the trigger table holds (the rows' bytes coming back
// is in the table suite): a test record whose trigger is gone, a trigger below
// the sample minimum stored with bit 31, under memory pressure, and an
// existence test starting from a first cycle again.
TEST_F(TriggerTableTest, RecoveryLaysStoredTestsOverRecoveredTriggers) {
    CreateActive("o", "act", MTE_TEST_THRESHOLD | MTE_TEST_EXISTENCE);
    CreateWaiting("o", "wait", MTE_TEST_BOOLEAN);
    auto stOrphan = TestReq<MTE_THRES_ENTRY_S>("o", "gone");
    FAKE_DBM_PutRaw("mteThreshold", Bytes(&stOrphan, sizeof(stOrphan)));
    ASSERT_EQ(Set(TriggerReq("o", "fast", MTE_ROW_CREATE_AND_GO, 1), kGoMask | MTE_MASK_FORCE), 0u);
    auto stBefore = TakeSnapshot();
    mte_EXIST_Get("o", "act")->usFirstCycle = 0;

    mte_TRIGGER_Fini();
    ASSERT_EQ(mte_TRIGGER_Init(), 0u);
    mte_MEMALERT_Fini();
    FAKE_MEMALERT_SetCurrentState(MTE_MEM_STATE_EXCEEDED);
    ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    uint64_t ulWrites = FAKE_DBM_WriteCount();
    ASSERT_EQ(mte_DBM_Recover(), 0u);
    EXPECT_EQ(FAKE_DBM_WriteCount(), ulWrites);
    EXPECT_EQ(TakeSnapshot(), stBefore);
    EXPECT_EQ(Entry("o", "gone"), nullptr);
    EXPECT_EQ(mte_BIN_GetRecover(), 0);
}

TEST_F(TriggerTableTest, RecoverRefusesOddRecords) {
    MTE_TRIGGER_ROW_S stRow = TriggerReq("o", "t", MTE_ROW_ACTIVE);
    EXPECT_EQ(mte_TRIGGER_Recover(sizeof(stRow) - 1, &stRow), MTE_ERR_GENERAL);
    EXPECT_EQ(mte_TRIGGER_IsEmpty(), 1u);
    auto stThres = TestReq<MTE_THRES_ENTRY_S>("o", "t");
    auto stBool = TestReq<MTE_BOOL_ENTRY_S>("o", "t");
    auto stExist = TestReq<MTE_EXIST_ENTRY_S>("o", "t");
    EXPECT_EQ(mte_THRES_Recover(sizeof(stThres), &stThres), MTE_ERR_GENERAL);  // no trigger
    EXPECT_EQ(mte_BOOL_Recover(sizeof(stBool), &stBool), MTE_ERR_GENERAL);
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
    EXPECT_EQ(mte_TRIGGER_GetNext(1, "o", "t"), nullptr);
}

// ---- the port service up ---------------------------------------------------

class TriggerPortUpTest : public TriggerTableTest {
  protected:
    void SetUp() override {
        TriggerTableTest::SetUp();
        mte_TIMER_SetPortFlag(1);
        ASSERT_EQ(mte_run_InitWithoutThread(), 0u);
    }
    void TearDown() override {
        mte_RUN_Fini();  // drops queued messages before their triggers go
        mte_TRIGGER_Fini();
        mte_TIMER_Fini();
        mte_TIMER_SetPortFlag(0);
        TriggerTableTest::TearDown();
    }
};

TEST_F(TriggerPortUpTest, TimerThatCannotStartUndoesTheRequest) {
    // No timer set exists yet, so no timer can be made.
    EXPECT_EQ(Set(TriggerReq("o", "go", MTE_ROW_CREATE_AND_GO), kGoMask), MTE_ERR_GENERAL);
    EXPECT_EQ(Entry("o", "go"), nullptr);
    EXPECT_TRUE(FAKE_DBM_Records("mteTrigger").empty());

    CreateWaiting("o", "w", MTE_TEST_BOOLEAN);
    auto stBefore = TakeSnapshot();
    FAKE_LOG_Clear();
    mte_DBG_EnableSwitch(MTE_DBG_ERR);
    EXPECT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), COL(MTE_TRIGGER_COL_ENTRY_STATUS)),
              MTE_ERR_GENERAL);
    mte_DBG_DisableSwitch(MTE_DBG_ERR);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", "Failed to start a timer."), 1u);
    EXPECT_EQ(TakeSnapshot(), stBefore);
}

TEST_F(TriggerPortUpTest, StartAndStopReachTheEngine) {
    ASSERT_EQ(mte_TIMER_Init(), 0u);
    CreateActive("o", "go");
    MTE_TRIGGER_ENTRY_S* pstGo = Entry("o", "go");
    EXPECT_NE(pstGo->llTimerId, -1);
    EXPECT_EQ(pstGo->uiRunState, MTE_RUN_BUSY);  // first sample queued at once
    EXPECT_EQ(pstGo->usInstanceReleased, 0);

    CreateWaiting("o", "w");
    MTE_TRIGGER_ENTRY_S* pstWait = Entry("o", "w");
    EXPECT_EQ(pstWait->llTimerId, -1);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_IDLE);
    // Active outside the mask is no activation: a timer started for it stops.
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), kFreq), 0u);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstWait->stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), kStatus), 0u);
    int64_t llTimer = pstWait->llTimerId;
    EXPECT_NE(llTimer, -1);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_BUSY);

    // The worker finished its cycle; a stop keeps the timer, suspended.
    pstWait->uiRunState = MTE_RUN_IDLE;
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_NOT_IN_SERVICE), kStatus), 0u);
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstWait->llTimerId, llTimer);
    EXPECT_EQ(pstWait->usInstanceReleased, 1);  // samples and instance given back
    ASSERT_EQ(Set(TriggerReq("o", "w", MTE_ROW_ACTIVE), kStatus), 0u);
    EXPECT_EQ(pstWait->llTimerId, llTimer);  // resumed, not made again
    EXPECT_EQ(pstWait->uiRunState, MTE_RUN_BUSY);

    // Destroyed while queued, the worker is told and the timer goes.
    ASSERT_EQ(Set(TriggerReq("o", "go", MTE_ROW_DESTROY), 0), 0u);
    EXPECT_EQ(pstGo->uiRunState, MTE_RUN_DELETED);
    EXPECT_EQ(pstGo->llTimerId, -1);
    // Its message is still queued: the worker's teardown frees it with the queue.
}

TEST_F(TriggerPortUpTest, StartAllAndClearAllTouchActiveTriggersOnly) {
    mte_TIMER_SetPortFlag(0);
    CreateActive("o", "a", MTE_TEST_EXISTENCE);
    CreateWaiting("o", "w", MTE_TEST_EXISTENCE);
    // With the port service down, starting and suspending change nothing.
    auto stBefore = TakeSnapshot();
    mte_TRIGGER_StartAll();
    mte_TRIGGER_SuspendTmr();
    EXPECT_EQ(TakeSnapshot(), stBefore);
    mte_TIMER_SetPortFlag(1);
    ASSERT_EQ(mte_TIMER_Init(), 0u);
    mte_TRIGGER_StartAll();
    EXPECT_NE(Entry("o", "a")->llTimerId, -1);
    EXPECT_EQ(Entry("o", "a")->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(Entry("o", "w")->llTimerId, -1);
    EXPECT_EQ(Entry("o", "w")->uiRunState, MTE_RUN_IDLE);
    mte_EXIST_Get("o", "a")->usFirstCycle = 0;
    mte_EXIST_Get("o", "w")->usFirstCycle = 0;
    mte_TRIGGER_SuspendTmr();
    mte_TRIGGER_ClearAllSpl();
    EXPECT_EQ(Entry("o", "a")->usInstanceReleased, 1);
    EXPECT_EQ(mte_EXIST_Get("o", "a")->usFirstCycle, 1);
    EXPECT_EQ(mte_EXIST_Get("o", "w")->usFirstCycle, 0);
}

}  // namespace
