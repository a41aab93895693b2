// What every row table promises, written once and run over all nine tables
// through the message dispatch (so the locks and the reply codes are the ones
// a manager sees): writes, refusals, destroys, recovery, creation under the
// memory guard, and get-next walks. Each table's own rules live beside its
// module's tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "fake_dbm.h"
#include "fake_memalert.h"
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
#include "mte_scalar.h"
#include "mte_thres.h"
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

MTE_OID_S Oid(std::initializer_list<uint32_t> auiArcs) {
    MTE_OID_S st{};
    for (uint32_t ui : auiArcs) {
        st.auiOid[st.uiLen++] = ui;
    }
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
        st.stValueID = Oid({1, 3, 6, 1, 2, 1, 1, 3, 0});
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
        st.stID = Oid({1, 3, 6});
        st.uiEntryStatus = uiStatus;
        return st;
    }
    static void Change(Row* p) { p->stID = Oid({1, 3, 7}); }
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
    static void Change(Row* p) { p->stNotification = Oid({1, 3, 6, 1, 4, 1, 9}); }
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
        MTE_OBJ_ROW_S stRow = Named<MTE_OBJ_ROW_S>(st.strOwner.c_str(), st.strName.c_str());
        stRow.uiIndex = st.uiIndex;
        stRow.stID = Oid({1, 0});
        stRow.uiEntryStatus = uiStatus;
        return Dispatch(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_SET,
                        COL(MTE_OBJ_COL_ID) | COL(MTE_OBJ_COL_ENTRY_STATUS), MTE_ITEM_OBJECTS,
                        &stRow)
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
    std::string strScalars = Dispatch(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, 0, 0, nullptr).strData;
    ASSERT_EQ(strScalars.size(), sizeof(stAfter));
    memcpy(&stAfter, strScalars.data(), sizeof(stAfter));
    EXPECT_EQ(stAfter.uiSampleMinimum, 15u);
    EXPECT_EQ(stAfter.uiSampleInstanceMaximum, 300u);
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

}  // namespace
