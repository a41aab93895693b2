// What every row table promises, written once and run over all nine tables
// through the message dispatch (so the locks and the reply codes are the ones
// a manager sees): writes, refusals, destroys, recovery, creation under the
// memory guard, and get-next walks; then the trigger table's own rules. The
// other tables' own rules live beside their modules' tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "fake_dbm.h"
#include "fake_log.h"
#include "fake_memalert.h"
#include "fake_snmp.h"
#include "mte_bool.h"
#include "mte_catalogue.h"
#include "mte_cfg.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_delta.h"
#include "mte_event.h"
#include "mte_exist.h"
#include "mte_memalert.h"
#include "mte_msg.h"
#include "mte_obj.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_thres.h"
#include "mte_timer.h"
#include "mte_trigger.h"

namespace {

constexpr uint32_t COL(uint32_t c) {
    return MTE_COLUMN_BIT(c);
}

template <typename Row>
Row Named(const char* pszOwner, const char* pszName) {
    Row st{};
    strcpy(st.szOwner, pszOwner);
    strcpy(st.szName, pszName);
    return st;
}

struct Reply {
    uint32_t uiResult, uiFailed, uiSequence;
    std::string strData;
};

// One request's bytes through the dispatcher, with uiCapacity bytes of room
// for the reply.
Reply Answer(const uint8_t* pucReq, uint32_t uiLen, uint32_t uiCapacity = MTE_MSG_MAX_LEN) {
    uint8_t aucReply[MTE_MSG_MAX_LEN];
    uint32_t uiReplyLen = mte_CFG_Proc(pucReq, uiLen, uiCapacity, aucReply);
    EXPECT_LE(uiReplyLen, uiCapacity);
    MTE_MSG_REPLY_S stReply{};
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, uiReplyLen, &stReply), MTE_OK);
    return {stReply.uiResult, stReply.uiFailedColumn, stReply.uiSequence,
            std::string(reinterpret_cast<const char*>(stReply.pucData), stReply.uiDataSize)};
}

Reply Dispatch(uint16_t usType, uint16_t usOp, uint32_t uiMask, uint16_t usItem, const void* pValue,
               uint32_t uiCapacity = MTE_MSG_MAX_LEN) {
    uint8_t aucReq[MTE_MSG_MAX_LEN];
    uint32_t uiLen =
        MTE_MSG_BuildRequest(7, usType, usOp, uiMask, usItem, pValue, aucReq, sizeof(aucReq));
    EXPECT_NE(uiLen, 0u);
    return Answer(aucReq, uiLen, uiCapacity);
}

// The list locks pass through here on their way to the real ones (the test
// links with --wrap on their symbols), so that a test sees which lock a
// request held: the list, read or write, and its release.
std::string g_strLocks;

}  // namespace

#define RECORDING_LOCK(SYMBOL, TEXT) \
    void __real_##SYMBOL();          \
    void __wrap_##SYMBOL() {         \
        g_strLocks += TEXT;          \
        __real_##SYMBOL();           \
    }
extern "C" {
RECORDING_LOCK(_Z20mte_EVENT_ListRdLockv, "evt:rd ")
RECORDING_LOCK(_Z20mte_EVENT_ListWrLockv, "evt:wr ")
RECORDING_LOCK(_Z20mte_EVENT_ListUnLockv, "evt:un ")
RECORDING_LOCK(_Z18mte_OBJ_ListRdLockv, "obj:rd ")
RECORDING_LOCK(_Z18mte_OBJ_ListWrLockv, "obj:wr ")
RECORDING_LOCK(_Z18mte_OBJ_ListUnLockv, "obj:un ")
}
#undef RECORDING_LOCK

namespace {

// The parent list a table's rows belong to.
enum ParentList { kTriggers, kEvents, kObjects };

// ---- one traits struct per table -------------------------------------------
// Req: a request for the row (with its status, where the table has one);
// Change: a write to a column a waiting row accepts; kMissingFc: the failed
// column of a write to a missing row; kSameOnActive: the code for a write to
// an active row that changes nothing.

// What the table catalogue says of the table: its name, message type, row
// item and store list.
template <MTE_CAT_TABLE_E TABLE>
struct Catalogued {
    static constexpr const MTE_CAT_TABLE_S& kCat = g_astMteCatalogue[TABLE];
    static constexpr const char *kName = kCat.pszName, *kList = kCat.pszList;
    static constexpr uint16_t kType = kCat.usMsgType, kItem = kCat.usRowItem;
};

// Trigger and event: rows with a status, changed through their comment.
template <typename R, MTE_CAT_TABLE_E TABLE>
struct CommentedTable : Catalogued<TABLE> {
    using Row = R;
    static constexpr bool kHasStatus = true;
    static constexpr uint8_t kKind = 0;
    static constexpr uint32_t kWaitStatus = MTE_ROW_NOT_IN_SERVICE;
    static constexpr uint32_t kSameOnActive = MTE_ERR_NO_CHANGE;
    static void Change(Row* p) { strcpy(p->szComment, "changed"); }
    static bool Changed(const Row& st) { return strcmp(st.szComment, "changed") == 0; }
};

struct TriggerTable : CommentedTable<MTE_TRIGGER_ROW_S, MTE_CAT_TRIGGER> {
    static constexpr ParentList kParent = kTriggers;
    static constexpr uint32_t kStatusCol = MTE_TRIGGER_COL_ENTRY_STATUS;
    static constexpr uint32_t kCreateMask =
        COL(MTE_TRIGGER_COL_VALUE_ID) | COL(MTE_TRIGGER_COL_FREQUENCY) | COL(kStatusCol);
    static constexpr uint32_t kExistsFc = kStatusCol, kMissingFc = kStatusCol;
    static constexpr uint32_t kForcedStatusAlone = MTE_ERR_INCONSISTENT;  // on an active row
    static constexpr uint32_t kChangeMask = COL(MTE_TRIGGER_COL_COMMENT);
    static Row Req(const char* pszOwner, const char* pszName, uint32_t uiStatus) {
        Row st = Named<Row>(pszOwner, pszName);
        st.stValueID = FAKE_SNMP_MakeOid({1, 3, 6, 1, 2, 1, 1, 3, 0});
        st.uiFrequency = 60;
        st.uiEntryStatus = uiStatus;
        return st;
    }
};

struct EventTable : CommentedTable<MTE_EVENT_ROW_S, MTE_CAT_EVENT> {
    static constexpr ParentList kParent = kEvents;
    static constexpr uint32_t kStatusCol = MTE_EVENT_COL_ENTRY_STATUS;
    static constexpr uint32_t kCreateMask = COL(kStatusCol);
    static constexpr uint32_t kExistsFc = kStatusCol, kMissingFc = kStatusCol;
    static constexpr uint32_t kForcedStatusAlone = MTE_OK;  // on an active row
    static constexpr uint32_t kChangeMask = COL(MTE_EVENT_COL_COMMENT);
    static Row Req(const char* pszOwner, const char* pszName, uint32_t uiStatus) {
        Row st = Named<Row>(pszOwner, pszName);
        st.uiEntryStatus = uiStatus;
        return st;
    }
};

// The parents of the action and test rows: an event's status and action
// bits, a trigger's status, test bits and (MTE_PRESENT_DELTA) delta sampling.
uint32_t SetEvent(const char* pszOwner, const char* pszName, uint32_t uiStatus, uint8_t ucActions) {
    MTE_EVENT_ROW_S st = EventTable::Req(pszOwner, pszName, uiStatus);
    st.ucActions = ucActions;
    uint32_t uiMask = COL(MTE_EVENT_COL_ACTION_SET) | COL(MTE_EVENT_COL_ACTION_NOTIFICATION) |
                      (uiStatus != MTE_ROW_NONE ? COL(MTE_EVENT_COL_ENTRY_STATUS) : 0);
    return Dispatch(MTE_MSG_TYPE_EVENT, MTE_MSG_OP_SET, uiMask, MTE_ITEM_EVENT, &st).uiResult;
}

uint32_t SetTrigger(const char* pszOwner, const char* pszName, uint32_t uiStatus, uint8_t ucBits) {
    MTE_TRIGGER_ROW_S st = TriggerTable::Req(pszOwner, pszName, uiStatus);
    st.ucTest = ucBits & ~MTE_PRESENT_DELTA;
    st.uiSampleType = (ucBits & MTE_PRESENT_DELTA) != 0 ? MTE_SAMPLE_DELTA : MTE_SAMPLE_ABSOLUTE;
    uint32_t uiMask = COL(MTE_TRIGGER_COL_TEST_EXISTENCE) | COL(MTE_TRIGGER_COL_TEST_BOOLEAN) |
                      COL(MTE_TRIGGER_COL_TEST_THRESHOLD) | COL(MTE_TRIGGER_COL_SAMPLE_TYPE);
    if (uiStatus == MTE_ROW_CREATE_AND_WAIT) {
        uiMask |= COL(MTE_TRIGGER_COL_VALUE_ID) | COL(MTE_TRIGGER_COL_FREQUENCY);
    }
    if (uiStatus != MTE_ROW_NONE) {
        uiMask = uiStatus == MTE_ROW_CREATE_AND_WAIT ? uiMask | COL(MTE_TRIGGER_COL_ENTRY_STATUS)
                                                     : COL(MTE_TRIGGER_COL_ENTRY_STATUS);
    }
    return Dispatch(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, uiMask, MTE_ITEM_TRIGGER, &st).uiResult;
}

// An objects row never changes once made: every write but the status alone
// is refused, waiting or not.
struct ObjectsTable : Catalogued<MTE_CAT_OBJECTS> {
    using Row = MTE_OBJ_ROW_S;
    static constexpr ParentList kParent = kObjects;
    static constexpr bool kHasStatus = true;
    static constexpr uint8_t kKind = 0;
    static constexpr uint32_t kStatusCol = MTE_OBJ_COL_ENTRY_STATUS;
    static constexpr uint32_t kCreateMask = COL(MTE_OBJ_COL_ID) | COL(kStatusCol);
    static constexpr uint32_t kWaitStatus = MTE_ROW_ACTIVE;
    static constexpr uint32_t kExistsFc = 0, kMissingFc = kStatusCol;
    static constexpr uint32_t kSameOnActive = MTE_ERR_INCONSISTENT;
    static constexpr uint32_t kForcedStatusAlone = MTE_OK;  // on an active row
    static constexpr uint32_t kChangeMask = COL(MTE_OBJ_COL_ID);
    static Row Req(const char* pszOwner, const char* pszName, uint32_t uiStatus) {
        Row st = Named<Row>(pszOwner, pszName);
        st.uiIndex = 1;
        st.stID = FAKE_SNMP_MakeOid({1, 3, 6});
        st.uiEntryStatus = uiStatus;
        return st;
    }
    static void Change(Row* p) { p->stID = FAKE_SNMP_MakeOid({1, 3, 7}); }
    static bool Changed(const Row&) { return false; }
};

// The rows without a status: the action rows come and go with the event's
// action bits, the test rows and the delta row with the trigger's test bits
// and sample type; all follow their parent's status.
template <typename R, MTE_CAT_TABLE_E TABLE, uint8_t BIT, bool EVENT = false>
struct SubRowTable : Catalogued<TABLE> {
    using Row = R;
    static constexpr bool kHasStatus = false;
    static constexpr ParentList kParent = EVENT ? kEvents : kTriggers;
    static constexpr uint8_t kKind = BIT;  // the parent's bit that gives it a row here
    static constexpr uint32_t kMissingFc = 0;
    static constexpr uint32_t kSameOnActive = MTE_ERR_NO_CHANGE;
    static uint32_t Parent(const char* pszName, uint32_t uiStatus, bool bWithRow) {
        return (EVENT ? SetEvent : SetTrigger)("o", pszName, uiStatus, bWithRow ? BIT : 0);
    }
    static Row Req(const char* pszOwner, const char* pszName, uint32_t) {
        return Named<Row>(pszOwner, pszName);
    }
};

struct NotifyTable
    : SubRowTable<MTE_NOTIFY_ENTRY_S, MTE_CAT_NOTIFY, MTE_ACTION_NOTIFICATION, true> {
    static constexpr uint32_t kChangeMask = COL(MTE_NOTIFY_COL_NOTIFICATION);
    static void Change(Row* p) { p->stNotification = FAKE_SNMP_MakeOid({1, 3, 6, 1, 4, 1, 9}); }
    static bool Changed(const Row& st) { return st.stNotification.uiLen == 7; }
};

struct SetTable : SubRowTable<MTE_SET_ENTRY_S, MTE_CAT_SET, MTE_ACTION_SET, true> {
    static constexpr uint32_t kChangeMask = COL(MTE_SET_COL_VALUE);
    static Row Req(const char* pszOwner, const char* pszName, uint32_t) {
        Row st = Named<Row>(pszOwner, pszName);
        st.uiObjectWildcard = MTE_FALSE;  // the defaults of a new row
        st.uiContextNameWildcard = MTE_FALSE;
        return st;
    }
    static void Change(Row* p) { p->iValue = -42; }
    static bool Changed(const Row& st) { return st.iValue == -42; }
};

struct BooleanTable : SubRowTable<MTE_BOOL_ENTRY_S, MTE_CAT_BOOLEAN, MTE_TEST_BOOLEAN> {
    static constexpr uint32_t kChangeMask = COL(MTE_BOOL_COL_VALUE);
    static void Change(Row* p) { p->iValue = -42; }
    static bool Changed(const Row& st) { return st.iValue == -42; }
};

struct ExistenceTable : SubRowTable<MTE_EXIST_ENTRY_S, MTE_CAT_EXISTENCE, MTE_TEST_EXISTENCE> {
    static constexpr uint32_t kChangeMask = COL(MTE_EXIST_COL_TEST_CHANGED);
    static void Change(Row* p) { p->ucTest |= 0x20; }
    static bool Changed(const Row& st) { return (st.ucTest & 0x20) != 0; }
};

struct ThresholdTable : SubRowTable<MTE_THRES_ENTRY_S, MTE_CAT_THRESHOLD, MTE_TEST_THRESHOLD> {
    static constexpr uint32_t kChangeMask = COL(MTE_THRES_COL_STARTUP);
    static void Change(Row* p) { p->uiStartup = 1; }
    static bool Changed(const Row& st) { return st.uiStartup == 1; }
};

struct DeltaTable : SubRowTable<MTE_DELTA_ENTRY_S, MTE_CAT_DELTA, MTE_PRESENT_DELTA> {
    static constexpr uint32_t kChangeMask = COL(MTE_DELTA_COL_DISCONTINUITY_ID_TYPE);
    static void Change(Row* p) { p->uiDiscontinuityIDType = MTE_DELTA_TIME_STAMP; }
    static bool Changed(const Row& st) { return st.uiDiscontinuityIDType == MTE_DELTA_TIME_STAMP; }
};

// The tables up on the in-memory store with the memory guard on the fake
// alert service; every request goes through the dispatcher.
class TableStack : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_DBM_Reset();
        FAKE_MEMALERT_Reset();
        ASSERT_EQ(mte_DBG_Init(), 0u);
        ASSERT_EQ(mte_EPOLL_Init(), 0u);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
        ASSERT_EQ(mte_DBM_Init(), 0u);
        UpTables();
    }
    void TearDown() override {
        DownTables();
        mte_DBM_Fini();
        mte_MEMALERT_Fini();
        mte_EPOLL_Fini();
        mte_DBG_Fini();
    }
    void UpTables() {
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        ASSERT_EQ(mte_OBJ_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
    }
    void DownTables() {
        mte_EVENT_Fini();
        mte_OBJ_Fini();
        mte_TRIGGER_Fini();
    }
    // A restart: the tables go and come back from the store.
    void Restart() {
        DownTables();
        UpTables();
        ASSERT_EQ(mte_DBM_Recover(), 0u);
    }
    void SetMemoryState(uint32_t uiState) {
        mte_MEMALERT_Fini();
        FAKE_MEMALERT_SetCurrentState(uiState);
        ASSERT_EQ(mte_MEMALERT_Init(), 0u);
    }
};

template <typename T>
class RowTableTest : public TableStack {
  protected:
    using Row = typename T::Row;

    Reply Set(const Row& st, uint32_t uiMask) {
        return Dispatch(T::kType, MTE_MSG_OP_SET, uiMask, T::kItem, &st);
    }
    // The row as a get answers it, or "" when there is none.
    std::string Get(const char* pszName) {
        Row st = T::Req("o", pszName, MTE_ROW_NONE);
        Reply stReply = Dispatch(T::kType, MTE_MSG_OP_GET, 0, T::kItem, &st);
        return stReply.uiResult == MTE_OK ? stReply.strData : "";
    }
    Row GetRow(const char* pszName) {
        Row st{};
        std::string str = Get(pszName);
        EXPECT_EQ(str.size(), MTE_MSG_ItemSize(T::kItem));
        memcpy(&st, str.data(), std::min(str.size(), sizeof(st)));
        return st;
    }
    // A waiting row (an action row: of a waiting event).
    void Make(const char* pszName) {
        if constexpr (T::kHasStatus) {
            ASSERT_EQ(Set(T::Req("o", pszName, MTE_ROW_CREATE_AND_WAIT), T::kCreateMask).uiResult,
                      MTE_OK);
        } else {
            ASSERT_EQ(T::Parent(pszName, MTE_ROW_CREATE_AND_WAIT, true), MTE_OK);
        }
        ASSERT_NE(Get(pszName), "");
    }
    void Status(const char* pszName, uint32_t uiStatus) {
        if constexpr (T::kHasStatus) {
            ASSERT_EQ(Set(T::Req("o", pszName, uiStatus), COL(T::kStatusCol)).uiResult, MTE_OK);
        } else {
            ASSERT_EQ(T::Parent(pszName, uiStatus, true), MTE_OK);
        }
    }
    // The stored records of the table, sorted, against the rows a get returns.
    static std::vector<std::string> Stored() {
        std::vector<std::string> astr = FAKE_DBM_Records(T::kList);
        std::sort(astr.begin(), astr.end());
        return astr;
    }
    std::vector<std::string> RowsOf(std::initializer_list<const char*> apszNames) {
        std::vector<std::string> astr;
        for (const char* psz : apszNames) {
            astr.push_back(Get(psz));
        }
        std::sort(astr.begin(), astr.end());
        return astr;
    }
    // Everything a refused write must leave as it was.
    struct Snapshot {
        std::vector<std::string> astrRows, astrStored;
        uint64_t ulWrites;
        bool operator==(const Snapshot&) const = default;
    };
    Snapshot Take() { return {RowsOf({"a", "b"}), Stored(), FAKE_DBM_WriteCount()}; }
};

using AllTables = ::testing::Types<TriggerTable, EventTable, ObjectsTable, NotifyTable, SetTable,
                                   BooleanTable, ExistenceTable, ThresholdTable, DeltaTable>;
struct TableNames {
    template <typename T>
    static std::string GetName(int) {
        return T::kName;
    }
};
TYPED_TEST_SUITE(RowTableTest, AllTables, TableNames);

TYPED_TEST(RowTableTest, AcceptedWriteIsCopiedAndStoredAndARepeatWritesNothing) {
    using T = TypeParam;
    this->Make("a");
    this->Make("b");
    const std::string strNeighbour = this->Get("b");
    auto stReq = T::Req("o", "a", MTE_ROW_NONE);
    T::Change(&stReq);
    Reply stReply = this->Set(stReq, T::kChangeMask);
    if constexpr (std::is_same_v<T, ObjectsTable>) {
        EXPECT_EQ(stReply.uiResult, MTE_ERR_INCONSISTENT);
        stReq = T::Req("o", "a", MTE_ROW_ACTIVE);
        EXPECT_EQ(this->Set(stReq, COL(T::kStatusCol) | MTE_MASK_FORCE).uiResult, MTE_OK);
    } else {
        ASSERT_EQ(stReply.uiResult, MTE_OK);
        EXPECT_EQ(stReply.uiFailed, 0u);
        EXPECT_TRUE(T::Changed(this->GetRow("a")));
    }
    EXPECT_EQ(this->Get("b"), strNeighbour);
    EXPECT_EQ(this->Stored(), this->RowsOf({"a", "b"}));
    auto stBefore = this->Take();
    EXPECT_EQ(this->Set(stReq, T::kChangeMask).uiResult,
              (std::is_same_v<T, ObjectsTable> ? MTE_ERR_INCONSISTENT : MTE_OK));
    EXPECT_EQ(this->Take(), stBefore);
}

TYPED_TEST(RowTableTest, WritesToActiveRowsChangeNothing) {
    using T = TypeParam;
    this->Make("a");
    this->Make("b");
    this->Status("a", MTE_ROW_ACTIVE);
    auto stBefore = this->Take();
    auto stSame = this->GetRow("a");
    if constexpr (T::kHasStatus) {
        stSame.uiEntryStatus = MTE_ROW_NONE;
    }
    EXPECT_EQ(this->Set(stSame, T::kChangeMask).uiResult, T::kSameOnActive);
    auto stChange = stSame;
    T::Change(&stChange);
    Reply stReply = this->Set(stChange, T::kChangeMask);
    EXPECT_EQ(stReply.uiResult, MTE_ERR_INCONSISTENT);
    EXPECT_EQ(stReply.uiFailed, 0u);
    EXPECT_EQ(this->Take(), stBefore);
    if constexpr (T::kHasStatus) {
        // The status alone is the one write an active row takes.
        EXPECT_EQ(this->Set(T::Req("o", "a", MTE_ROW_ACTIVE), COL(T::kStatusCol)).uiResult, MTE_OK);
        EXPECT_EQ(this->Take(), stBefore);
        EXPECT_EQ(this->Set(T::Req("o", "a", MTE_ROW_ACTIVE), COL(T::kStatusCol) | MTE_MASK_FORCE)
                      .uiResult,
                  T::kForcedStatusAlone);
        EXPECT_EQ(this->Take(), stBefore);
    }
}

TYPED_TEST(RowTableTest, WriteToAMissingRowIsRefused) {
    using T = TypeParam;
    this->Make("b");
    auto stBefore = this->Take();
    auto stReq = T::Req("o", "a", MTE_ROW_NONE);
    T::Change(&stReq);
    for (uint32_t uiMask : {T::kChangeMask, T::kChangeMask | MTE_MASK_FORCE}) {
        Reply stReply = this->Set(stReq, uiMask);
        EXPECT_EQ(stReply.uiResult, MTE_ERR_NO_SUCH_ROW);
        EXPECT_EQ(stReply.uiFailed, T::kMissingFc);
    }
    if constexpr (!T::kHasStatus) {
        // The event is there, without this action.
        ASSERT_EQ(T::Parent("a", MTE_ROW_CREATE_AND_WAIT, false), MTE_OK);
        EXPECT_EQ(this->Set(stReq, T::kChangeMask).uiResult, MTE_ERR_NO_SUCH_ROW);
        stBefore.ulWrites = FAKE_DBM_WriteCount();
    }
    EXPECT_EQ(this->Take(), stBefore);
}

TYPED_TEST(RowTableTest, DestroyTakesTheRowAndItsRecord) {
    using T = TypeParam;
    this->Make("a");
    this->Make("b");
    this->Status("a", MTE_ROW_ACTIVE);
    this->Status("a", MTE_ROW_DESTROY);
    EXPECT_EQ(this->Get("a"), "");
    EXPECT_EQ(this->Stored(), std::vector<std::string>{this->Get("b")});
    this->Status("a", MTE_ROW_DESTROY);  // a missing row is destroyed already
    if constexpr (!T::kHasStatus) {
        // Clearing the action bit takes the row too; setting it again makes
        // a new one with the defaults.
        auto stReq = T::Req("o", "b", MTE_ROW_NONE);
        T::Change(&stReq);
        ASSERT_EQ(this->Set(stReq, T::kChangeMask).uiResult, MTE_OK);
        ASSERT_EQ(T::Parent("b", MTE_ROW_NONE, false), MTE_OK);
        EXPECT_EQ(this->Get("b"), "");
        EXPECT_TRUE(this->Stored().empty());
        ASSERT_EQ(T::Parent("b", MTE_ROW_NONE, true), MTE_OK);
        EXPECT_FALSE(T::Changed(this->GetRow("b")));
        EXPECT_EQ(this->Stored(), std::vector<std::string>{this->Get("b")});
    }
}

TYPED_TEST(RowTableTest, RecoveryBringsBackTheSameRowsWithoutWriting) {
    using T = TypeParam;
    this->Make("a");
    this->Make("b");
    auto stReq = T::Req("o", "a", MTE_ROW_NONE);
    T::Change(&stReq);
    this->Set(stReq, T::kChangeMask);
    this->Status("b", MTE_ROW_ACTIVE);
    auto stBefore = this->Take();
    this->Restart();
    EXPECT_EQ(this->Take(), stBefore);
}

// ---- creation, for the tables with a status ---------------------------------

template <typename T>
class StatusTableTest : public RowTableTest<T> {};
using StatusTables = ::testing::Types<TriggerTable, EventTable, ObjectsTable>;
TYPED_TEST_SUITE(StatusTableTest, StatusTables, TableNames);

TYPED_TEST(StatusTableTest, CreationFollowsTheRowStatus) {
    using T = TypeParam;
    constexpr uint32_t kNone = 0;  // no row afterwards
    const uint32_t kWithoutStatus = T::kCreateMask & ~COL(T::kStatusCol);
    struct {
        const char* pszWhat;
        bool bExisting;  // a waiting row is there before
        uint32_t uiStatus, uiMask, uiResult, uiFailed, uiStatusAfter;
    } astCases[] = {
        {"createAndGo", false, MTE_ROW_CREATE_AND_GO, T::kCreateMask, MTE_OK, 0, MTE_ROW_ACTIVE},
        {"createAndWait", false, MTE_ROW_CREATE_AND_WAIT, T::kCreateMask, MTE_OK, 0,
         T::kWaitStatus},
        {"no status column", false, MTE_ROW_NONE, kWithoutStatus, MTE_ERR_NO_SUCH_ROW,
         T::kStatusCol, kNone},
        {"active on a missing row", false, MTE_ROW_ACTIVE, T::kCreateMask, MTE_ERR_INCONSISTENT,
         T::kStatusCol, kNone},
        {"destroy of a missing row", false, MTE_ROW_DESTROY, T::kCreateMask, MTE_OK, 0, kNone},
        {"createAndGo on a row", true, MTE_ROW_CREATE_AND_GO, T::kCreateMask, MTE_ERR_ROW_EXISTS,
         T::kExistsFc, T::kWaitStatus},
        {"destroy", true, MTE_ROW_DESTROY, COL(T::kStatusCol), MTE_OK, 0, kNone},
    };
    for (const auto& c : astCases) {
        SCOPED_TRACE(c.pszWhat);
        this->Status("a", MTE_ROW_DESTROY);
        if (c.bExisting) {
            this->Make("a");
        }
        auto stBefore = this->Take();
        Reply stReply = this->Set(T::Req("o", "a", c.uiStatus), c.uiMask);
        EXPECT_EQ(stReply.uiResult, c.uiResult);
        EXPECT_EQ(stReply.uiFailed, c.uiFailed);
        if (c.uiResult != MTE_OK) {
            EXPECT_EQ(this->Take(), stBefore);
        }
        if (c.uiStatusAfter == kNone) {
            EXPECT_EQ(this->Get("a"), "");
            EXPECT_TRUE(this->Stored().empty());
            continue;
        }
        auto stRow = this->GetRow("a");
        EXPECT_EQ(stRow.uiEntryStatus, c.uiStatusAfter);
        EXPECT_EQ(this->Stored(), std::vector<std::string>{this->Get("a")});
    }
}

TYPED_TEST(StatusTableTest, MemoryGuardRefusesOnlyNewRowsWithoutTheForceBit) {
    using T = TypeParam;
    this->Make("a");
    this->SetMemoryState(MTE_MEM_STATE_EXCEEDED);
    ASSERT_EQ(mte_MEMALERT_GetFlag(), 1u);
    auto stBefore = this->Take();
    EXPECT_EQ(this->Set(T::Req("o", "b", MTE_ROW_CREATE_AND_GO), T::kCreateMask).uiResult,
              MTE_ERR_MEMORY_PRESSURE);
    EXPECT_EQ(this->Take(), stBefore);
    this->Status("a", MTE_ROW_ACTIVE);  // changes go on
    EXPECT_EQ(this->Set(T::Req("o", "b", MTE_ROW_CREATE_AND_GO), T::kCreateMask | MTE_MASK_FORCE)
                  .uiResult,
              MTE_OK);
    this->Status("b", MTE_ROW_DESTROY);  // and destroys
    this->SetMemoryState(MTE_MEM_STATE_NORMAL);
    EXPECT_EQ(this->Set(T::Req("o", "b", MTE_ROW_CREATE_AND_GO), T::kCreateMask).uiResult, MTE_OK);
}

// ---- get-next through the dispatcher ------------------------------------------
// Walks of all nine tables (the five above and the trigger's test and delta
// rows), with rows inserted and destroyed in the middle and a table's rows
// taken away, against a walk computed from the rows: index order, the end of
// a table told from an empty one by the presence flags, the walk's resume
// hint; and the cost of a long walk.

// A get-next after the given index of a table, through the dispatcher.
Reply NextAfter(uint16_t usType, const std::string& strOwner, const std::string& strName,
                uint32_t uiIndex = 0, uint32_t uiCapacity = MTE_MSG_MAX_LEN) {
    if (usType == MTE_MSG_TYPE_OBJECTS) {
        MTE_OBJ_INDEX_KEY_S st{};
        st.uiOwnerLen = static_cast<uint32_t>(strOwner.size());
        st.uiNameLen = static_cast<uint32_t>(strName.size());
        st.uiIndex = uiIndex;
        strcpy(st.szOwner, strOwner.c_str());
        strcpy(st.szName, strName.c_str());
        return Dispatch(usType, MTE_MSG_OP_GET_NEXT, 0, MTE_ITEM_OBJECTS_KEY, &st, uiCapacity);
    }
    MTE_INDEX_KEY_S st{};
    st.uiOwnerLen = static_cast<uint32_t>(strOwner.size());
    strcpy(st.szOwner, strOwner.c_str());
    strcpy(st.szName, strName.c_str());
    bool bEventSide = usType >= MTE_MSG_TYPE_EVENT && usType <= MTE_MSG_TYPE_SET;
    return Dispatch(usType, MTE_MSG_OP_GET_NEXT, 0,
                    bEventSide ? MTE_ITEM_EVENT_KEY : MTE_ITEM_TRIGGER_KEY, &st, uiCapacity);
}

struct ModelRow {
    std::string strOwner, strName;
    uint32_t uiIndex;
    uint8_t ucBits;
};

// The index order of each parent list: owners by length, then bytes; trigger
// and event names by bytes alone, objects names by length first.
auto OrderKey(ParentList eParent, const ModelRow& st) {
    bool bObjects = eParent == kObjects;
    return std::make_tuple(st.strOwner.size(), st.strOwner, bObjects ? st.strName.size() : 0,
                           st.strName, bObjects ? st.uiIndex : 0);
}

std::string Show(const ModelRow& st) {
    return st.strOwner + "/" + st.strName + "/" + std::to_string(st.uiIndex);
}

template <typename T>
class WalkTest : public TableStack {
  protected:
    bool InTable(const ModelRow& st) const { return T::kKind == 0 || (st.ucBits & T::kKind) != 0; }

    // The parent request that creates (status 5 or 4), destroys (6) or, with
    // status 0, rewrites the sub-row bits of one row.
    uint32_t Write(const ModelRow& st, uint32_t uiStatus) {
        constexpr ParentList eParent = T::kParent;
        if (eParent == kTriggers) {
            return SetTrigger(st.strOwner.c_str(), st.strName.c_str(), uiStatus, st.ucBits);
        }
        if (eParent == kEvents) {
            return SetEvent(st.strOwner.c_str(), st.strName.c_str(), uiStatus, st.ucBits);
        }
        MTE_OBJ_ROW_S stRow = ObjectsTable::Req(st.strOwner.c_str(), st.strName.c_str(), uiStatus);
        stRow.uiIndex = st.uiIndex;
        return Dispatch(T::kType, MTE_MSG_OP_SET, ObjectsTable::kCreateMask, T::kItem, &stRow)
            .uiResult;
    }

    void Add(const ModelRow& st) {
        ASSERT_EQ(Write(st, MTE_ROW_CREATE_AND_WAIT), MTE_OK) << Show(st);
        vecRows.push_back(st);
    }
    void Destroy(size_t i) {
        ASSERT_EQ(Write(vecRows[i], MTE_ROW_DESTROY), MTE_OK);
        vecRows.erase(vecRows.begin() + i);
    }
    // Takes this table's row away from every parent row (objects: destroys them).
    void DropAll() {
        if (T::kKind == 0) {
            while (!vecRows.empty()) {
                Destroy(0);
            }
            return;
        }
        for (ModelRow& st : vecRows) {
            st.ucBits &= ~T::kKind;
            ASSERT_EQ(Write(st, 0), MTE_OK);
        }
    }

    // One get-next through the dispatcher: the row it returns, and the code.
    ModelRow Next(const ModelRow& stKey, uint32_t* puiCode) {
        Reply stReply = NextAfter(T::kType, stKey.strOwner, stKey.strName, stKey.uiIndex);
        *puiCode = stReply.uiResult;
        if (stReply.uiResult != MTE_OK) {
            return {};
        }
        ModelRow stRow{stReply.strData.c_str() + offsetof(typename T::Row, szOwner),
                       stReply.strData.c_str() + offsetof(typename T::Row, szName), 0, 0};
        if (T::kParent == kObjects) {
            memcpy(&stRow.uiIndex, stReply.strData.data() + offsetof(MTE_OBJ_ROW_S, uiIndex), 4);
        }
        return stRow;
    }

    // What the table holds after the key, with the end or empty code.
    ModelRow Expected(const ModelRow& stKey, uint32_t* puiCode) const {
        constexpr ParentList eParent = T::kParent;
        const ModelRow* pstBest = nullptr;
        bool bAny = false;
        for (const ModelRow& st : vecRows) {
            if (!InTable(st)) {
                continue;
            }
            bAny = true;
            if (OrderKey(eParent, st) > OrderKey(eParent, stKey) &&
                (pstBest == nullptr || OrderKey(eParent, st) < OrderKey(eParent, *pstBest))) {
                pstBest = &st;
            }
        }
        *puiCode = pstBest != nullptr ? MTE_OK : bAny ? MTE_ERR_NO_SUCH_ROW : MTE_ERR_TABLE_EMPTY;
        if (pstBest == nullptr) {
            return {};
        }
        ModelRow stRow = *pstBest;
        stRow.uiIndex = eParent == kObjects ? stRow.uiIndex : 0;
        stRow.ucBits = 0;
        return stRow;
    }

    std::vector<ModelRow> vecRows;
};
TYPED_TEST_SUITE(WalkTest, AllTables, TableNames);

TYPED_TEST(WalkTest, WalkMatchesTheRowsThroughInsertsAndDestroysMidWalk) {
    using T = TypeParam;
    const char* apszOwners[] = {"b", "aa", "ab", "owner-of-thirty-two-characters-x"};
    const char* apszNames[] = {"x", "xy", "aa", "b", "n", "name-of-thirty-one-characters-"};
    const bool bObjects = T::kParent == kObjects;
    uint8_t ucBits = 0;
    for (const char* pszOwner : apszOwners) {
        for (const char* pszName : apszNames) {
            ucBits = static_cast<uint8_t>((ucBits + 0x20) & 0xe0);
            // Triggers: the test bits, and every third row samples deltas.
            uint8_t ucRowBits =
                T::kParent == kEvents
                    ? (ucBits & 0xc0)
                    : ucBits | (this->vecRows.size() % 3 == 0 ? MTE_PRESENT_DELTA : 0);
            this->Add({pszOwner, pszName, bObjects ? 1u : 0u, ucRowBits});
            if (bObjects) {
                this->Add({pszOwner, pszName, 7, 0});
            }
        }
    }
    const uint8_t ucAll = T::kParent == kEvents ? 0xc0 : 0xf0;
    for (int iRound = 0; iRound < 2; ++iRound) {
        SCOPED_TRACE(iRound);
        ModelRow stKey{"", "", 0, 0};
        for (int iStep = 0;; ++iStep) {
            if (iRound == 0 && iStep == 2) {
                this->Add(
                    {"a", "before-every-row", 1, ucAll});  // before the key, with every sub-row
            } else if (iRound == 0 && iStep == 3) {
                for (size_t i = 0; i < this->vecRows.size(); ++i) {
                    if (OrderKey(T::kParent, this->vecRows[i]) == OrderKey(T::kParent, stKey)) {
                        this->Destroy(i);  // the key's own row
                        break;
                    }
                }
            } else if (iRound == 0 && iStep == 4) {
                this->Add(
                    {stKey.strOwner, stKey.strName + "0", stKey.uiIndex, ucAll});  // just after
            } else if (iRound == 1 && iStep == 5) {
                this->DropAll();
            }
            uint32_t uiExpectedCode = 0, uiCode = 0;
            ModelRow stExpected = this->Expected(stKey, &uiExpectedCode);
            ModelRow stGot = this->Next(stKey, &uiCode);
            ASSERT_EQ(Show(stGot), Show(stExpected)) << "step " << iStep;
            ASSERT_EQ(uiCode, uiExpectedCode) << "step " << iStep;
            if (uiCode != MTE_OK) {
                break;
            }
            stKey = stGot;
        }
    }
}

// Each operation's list lock: the objects or the event list, read for get
// and get-next and write for set, always released; none for the trigger side,
// which locks itself. A row that does not fit the reply: a get is refused, a
// get-next says the next row is too big.
TYPED_TEST(WalkTest, ListLocksAndReplyRoomOfEachOperation) {
    using T = TypeParam;
    const uint16_t usType = T::kType, usRowItem = T::kItem;
    const std::string strList = T::kParent == kObjects  ? "obj:"
                                : T::kParent == kEvents ? "evt:"
                                                        : "";
    auto Held = [&](const char* pszMode) {
        return strList.empty() ? "" : strList + pszMode + " " + strList + "un ";
    };
    this->Add({"o", "n", 1, static_cast<uint8_t>(T::kParent == kEvents ? 0xc0 : 0xf0)});
    g_strLocks.clear();
    const Reply stNext = NextAfter(usType, "", "");
    ASSERT_EQ(stNext.uiResult, MTE_OK);
    EXPECT_EQ(g_strLocks, Held("rd"));
    const std::string& strRow = stNext.strData;
    const uint32_t uiFits = MTE_MSG_HEAD_SIZE + 8 + strRow.size();
    g_strLocks.clear();
    Reply stGet = Dispatch(usType, MTE_MSG_OP_GET, 0, usRowItem, strRow.data());
    EXPECT_EQ(stGet.strData, strRow);
    EXPECT_EQ(stGet.uiFailed, 0xffffffffu);
    EXPECT_EQ(g_strLocks, Held("rd"));
    g_strLocks.clear();
    Dispatch(usType, MTE_MSG_OP_SET, 0, usRowItem, strRow.data());
    EXPECT_EQ(g_strLocks, Held("wr"));
    stGet = Dispatch(usType, MTE_MSG_OP_GET, 0, usRowItem, strRow.data(), uiFits - 1);
    EXPECT_EQ(stGet.uiResult, MTE_ERR_REPLY_TOO_SMALL);
    EXPECT_EQ(stGet.strData, "");
    EXPECT_EQ(NextAfter(usType, "", "", 0, uiFits - 1).uiResult, MTE_ERR_NEXT_TOO_BIG);
    EXPECT_EQ(NextAfter(usType, "", "", 0, uiFits).uiResult, MTE_OK);
    g_strLocks.clear();
    EXPECT_EQ(Dispatch(usType, 4, 0, 0, nullptr).uiResult, MTE_ERR_GENERAL);
    EXPECT_EQ(g_strLocks, "");
}

// What the dispatcher answers without a table (malformed requests are the
// channel process test's): unknown types, the scalars and engine counters (get
// only), the value setters (any operation, always answered OK: the manager
// never sees a setter's result), the debug switch's disable and its reply
// room, and a reply buffer without room for a header.
TEST_F(TableStack, MessagesBesideTheTables) {
    for (uint16_t usType : {0, 17, 18, 0xffff}) {
        Reply stReply = Dispatch(usType, MTE_MSG_OP_GET, 0, 0, nullptr);
        EXPECT_EQ(stReply.uiResult, MTE_ERR_GENERAL) << usType;
        EXPECT_EQ(stReply.uiFailed, 0xffffffffu);
        EXPECT_EQ(stReply.uiSequence, 7u);
    }
    for (uint16_t usType : {MTE_MSG_TYPE_SCALARS, MTE_MSG_TYPE_ENGINE_COUNTERS}) {
        for (uint16_t usOp : {MTE_MSG_OP_SET, MTE_MSG_OP_GET_NEXT}) {
            EXPECT_EQ(Dispatch(usType, usOp, 0, 0, nullptr).uiResult, MTE_ERR_GENERAL);
        }
    }
    EXPECT_EQ(Dispatch(MTE_MSG_TYPE_ENGINE_COUNTERS, MTE_MSG_OP_GET, 0, 0, nullptr).strData.size(),
              sizeof(MTE_ENGINE_COUNTERS_S));
    EXPECT_EQ(Dispatch(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, 0, 0, nullptr, 20 + 35).uiResult,
              MTE_ERR_REPLY_TOO_SMALL);
    MTE_SCALAR_S stBefore{}, stAfter{};
    mte_SCALAR_Get(&stBefore);
    const uint32_t auiNew[] = {15, 300};
    FAKE_DBM_FailWrites(true);  // the setters fail
    EXPECT_EQ(Dispatch(MTE_MSG_TYPE_SAMPLE_MIN, 42, 0, MTE_ITEM_SAMPLE_MIN, &auiNew[0]).uiResult,
              MTE_OK);
    Dispatch(MTE_MSG_TYPE_INSTANCE_MAX, MTE_MSG_OP_SET, 0, MTE_ITEM_INSTANCE_MAX, &auiNew[1]);
    FAKE_DBM_FailWrites(false);
    mte_SCALAR_Get(&stAfter);
    EXPECT_EQ(std::make_tuple(stAfter.uiSampleMinimum, stAfter.uiSampleInstanceMaximum),
              std::make_tuple(15u, 300u));
    mte_SCALAR_SetSampleMin(stBefore.uiSampleMinimum);
    mte_SCALAR_SetInstancesMax(stBefore.uiSampleInstanceMaximum);

    // Enabling and reading the switch is the channel process test's.
    const uint32_t uiSwitch = mte_DBG_GetSwitch(), uiBits = MTE_DBG_ERR;
    mte_DBG_EnableSwitch(uiBits);
    Dispatch(MTE_MSG_TYPE_DBG_DISABLE, MTE_MSG_OP_GET, 0, MTE_ITEM_DBG_SWITCH, &uiBits);
    EXPECT_EQ(mte_DBG_GetSwitch() & MTE_DBG_ERR, 0u);
    EXPECT_EQ(Dispatch(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET, 0, 0, nullptr, 20 + 11).uiResult,
              MTE_ERR_REPLY_TOO_SMALL);
    mte_DBG_EnableSwitch(uiSwitch);
    uint8_t aucReq[MTE_MSG_HEAD_SIZE], aucNoRoom[MTE_MSG_HEAD_SIZE - 1];
    uint32_t uiLen = MTE_MSG_BuildRequest(1, 1, 1, 0, 0, nullptr, aucReq, sizeof(aucReq));
    EXPECT_EQ(mte_CFG_Proc(aucReq, uiLen, sizeof(aucNoRoom), aucNoRoom), 0u);
}

// A full walk costs time linear in the rows, like creating them: get-next
// starts where the last one ended instead of at the head of the list (which
// made a walk of 20,000 triggers take seconds).
TEST_F(TableStack, WalkOfManyTriggersCostsLessThanCreatingThem) {
    const int kRows = 20000;
    auto tStart = std::chrono::steady_clock::now();
    char szName[16];
    for (int i = 0; i < kRows; ++i) {
        snprintf(szName, sizeof(szName), "t%06d", i);
        ASSERT_EQ(SetTrigger(i % 2 ? "bb" : "a", szName, MTE_ROW_CREATE_AND_WAIT, MTE_TEST_BOOLEAN),
                  MTE_OK);
    }
    auto tCreated = std::chrono::steady_clock::now();
    Reply stReply = NextAfter(MTE_MSG_TYPE_BOOLEAN, "", "");
    int iSeen = 0;
    for (; stReply.uiResult == MTE_OK; ++iSeen) {
        const char* pcRow = stReply.strData.c_str();
        stReply = NextAfter(MTE_MSG_TYPE_BOOLEAN, pcRow + offsetof(MTE_BOOL_ENTRY_S, szOwner),
                            pcRow + offsetof(MTE_BOOL_ENTRY_S, szName));
    }
    auto tWalked = std::chrono::steady_clock::now();
    EXPECT_EQ(iSeen, kRows);
    EXPECT_LT(tWalked - tCreated, tCreated - tStart);
}

// ---- the trigger table's own rules -------------------------------------------
// Called directly, with the port service down; then with it up: the timer and
// the first sample are asked for exactly where a trigger starts, stopped where
// it stops, and a trigger whose timer cannot start is refused without a trace
// (the worker thread is not started).

constexpr uint32_t kGoMask = TriggerTable::kCreateMask;

MTE_TRIGGER_ROW_S TriggerReq(const char* pszOwner, const char* pszName, uint32_t uiStatus,
                             uint32_t uiFrequency = 60) {
    MTE_TRIGGER_ROW_S st = TriggerTable::Req(pszOwner, pszName, uiStatus);
    st.uiFrequency = uiFrequency;
    return st;
}

std::string Bytes(const void* p, size_t n) {
    return std::string(static_cast<const char*>(p), n);
}

// Everything a refused request must leave as it was: per entry in list order
// its row, run fields and test rows, then the stored records of the lists.
std::vector<std::string> TakeSnapshot() {
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
bool StoredAsIs(const MTE_TRIGGER_ENTRY_S* p) {
    std::vector<std::string> astr = FAKE_DBM_Records("mteTrigger");
    return std::count(astr.begin(), astr.end(), Bytes(&p->stRow, sizeof(p->stRow))) == 1;
}

class TriggerTableTest : public TableStack {
  protected:
    void SetUp() override {
        TableStack::SetUp();
        mte_SCALAR_SetSampleMin(10);
    }
    void TearDown() override {
        TableStack::TearDown();
        mte_SCALAR_SetSampleMin(1);
    }
    uint32_t Set(const MTE_TRIGGER_ROW_S& stReq, uint32_t uiMask, uint32_t* puiFailed = nullptr) {
        uint32_t uiFailed = 0;
        return mte_TRIGGER_Set(&stReq, uiMask, puiFailed != nullptr ? puiFailed : &uiFailed);
    }
    MTE_TRIGGER_ENTRY_S* Entry(const char* pszOwner, const char* pszName) {
        return mte_TRIGGER_GetTriggerEntry(pszOwner, pszName);
    }
    void Create(const char* pszOwner, const char* pszName, uint8_t ucTest = 0,
                uint32_t uiStatus = MTE_ROW_CREATE_AND_GO) {
        MTE_TRIGGER_ROW_S st = TriggerReq(pszOwner, pszName, uiStatus);
        st.ucTest = ucTest;
        ASSERT_EQ(Set(st, kGoMask), 0u);
    }
    void CreateWaiting(const char* pszOwner, const char* pszName, uint8_t ucTest = 0) {
        Create(pszOwner, pszName, ucTest, MTE_ROW_CREATE_AND_WAIT);
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
        Create("own", "a", MTE_TEST_THRESHOLD);  // a neighbour never touched
        if (c.eBefore == RuleCase::ACTIVE) {
            Create("own", "t1", MTE_TEST_EXISTENCE);
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
        EXPECT_TRUE(StoredAsIs(pstEntry));
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
    EXPECT_TRUE(StoredAsIs(pstEntry));

    // notReady and other odd statuses take the test bits, nothing else, and
    // only while the trigger is not active.
    stReq = TriggerReq("own", "t1", MTE_ROW_NOT_READY);
    stReq.ucTest = MTE_TEST_THRESHOLD;
    strcpy(stReq.szComment, "ignored");
    ASSERT_EQ(Set(stReq, COL(MTE_TRIGGER_COL_TEST_THRESHOLD) | kComment), 0u);
    EXPECT_NE(pstEntry->pstThres, nullptr);
    EXPECT_STREQ(pstEntry->stRow.szComment, "");
    EXPECT_EQ(pstEntry->stRow.uiEntryStatus, MTE_ROW_NOT_IN_SERVICE);
    Create("own", "a");
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
    Create("own", "t1");
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

// An owner column of each test table refuses another owner, bit 31 or not,
// and leaves everything as it was (the rest of their writes is in the table
// suite); an existence test bit is a column of its own.
TEST_F(TriggerTableTest, TestTableOwnerColumnsAndExistenceBits) {
    CreateWaiting("o", "w", MTE_TEST_EXISTENCE | MTE_TEST_BOOLEAN | MTE_TEST_THRESHOLD);
    auto stBefore = TakeSnapshot();
    auto stExist = Named<MTE_EXIST_ENTRY_S>("o", "w");
    auto stBool = Named<MTE_BOOL_ENTRY_S>("o", "w");
    auto stThres = Named<MTE_THRES_ENTRY_S>("o", "w");
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
    stExist = Named<MTE_EXIST_ENTRY_S>("o", "w");
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
        auto stReq = Named<MTE_THRES_ENTRY_S>("o", "w");
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
    Create("o", "act", MTE_TEST_THRESHOLD | MTE_TEST_EXISTENCE);
    CreateWaiting("o", "wait", MTE_TEST_BOOLEAN);
    auto stOrphan = Named<MTE_THRES_ENTRY_S>("o", "gone");
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
    // The store hands over whole records only, and a test record without its
    // trigger is the recovery test's orphan. With the trigger but without its
    // rows: boolean and threshold accept, existence refuses.
    MTE_TRIGGER_ROW_S stRow = TriggerReq("o", "t", MTE_ROW_NOT_IN_SERVICE);
    auto stThres = Named<MTE_THRES_ENTRY_S>("o", "t");
    auto stBool = Named<MTE_BOOL_ENTRY_S>("o", "t");
    auto stExist = Named<MTE_EXIST_ENTRY_S>("o", "t");
    mte_BIN_SetRecover(1);
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
    Create("o", "go");
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
    Create("o", "a", MTE_TEST_EXISTENCE);
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
