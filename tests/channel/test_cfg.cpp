// Dispatch against scripted tables: which table operation each message type
// and operation reaches, with which key and lock, and which result code and
// failed column come back in every branch.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "mock_tables.h"
#include "mte_cfg.h"
#include "mte_msg.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct REPLY_S {
    uint32_t uiLen = 0;
    MTE_MSG_REPLY_S stReply = {};
    Bytes vecBuf;
};

// A reply's result code and length; Bare is a reply that is its header alone.
std::pair<uint32_t, uint32_t> CodeLen(const REPLY_S& r) {
    return {r.stReply.uiResult, r.uiLen};
}
std::pair<uint32_t, uint32_t> Bare(uint32_t uiCode) {
    return {uiCode, 20};
}

class CfgTest : public ::testing::Test {
  protected:
    void SetUp() override { g_stMockTables = MOCK_TABLES_S(); }
    void TearDown() override { EXPECT_EQ(g_stMockTables.iLockBalance, 0); }

    REPLY_S Send(const Bytes& msg, uint32_t uiCapacity = MTE_MSG_MAX_LEN) {
        REPLY_S r;
        r.vecBuf.assign(MTE_MSG_MAX_LEN, 0xcc);
        r.uiLen = mte_CFG_Proc(msg.data(), msg.size(), uiCapacity, r.vecBuf.data());
        EXPECT_GE(r.uiLen, 20u);
        EXPECT_LE(r.uiLen, uiCapacity);
        EXPECT_EQ(MTE_MSG_ParseReply(r.vecBuf.data(), r.uiLen, &r.stReply), MTE_OK);
        return r;
    }
    REPLY_S Send(uint16_t usType, uint16_t usOp, uint16_t usItem = 0, const void* pValue = nullptr,
                 uint32_t uiMask = 0, uint32_t uiCapacity = MTE_MSG_MAX_LEN) {
        Bytes msg(MTE_MSG_MAX_LEN);
        msg.resize(
            MTE_MSG_BuildRequest(77, usType, usOp, uiMask, usItem, pValue, msg.data(), msg.size()));
        EXPECT_FALSE(msg.empty());
        return Send(msg, uiCapacity);
    }
};

TEST_F(CfgTest, TypesOutsideTheTableAreRefused) {
    for (uint16_t usType : {0, 17, 18, 0xffff}) {
        REPLY_S r = Send(usType, MTE_MSG_OP_GET);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_GENERAL)) << usType;
        EXPECT_EQ(r.stReply.uiFailedColumn, 0xffffffffu);
        EXPECT_EQ(r.stReply.uiSequence, 77u);
    }
    EXPECT_TRUE(g_stMockTables.vecCalls.empty());
}

TEST_F(CfgTest, MalformedRequestGetsTheCheckCodeAndTouchesNoTable) {
    MTE_TRIGGER_ROW_S stRow = {};
    Bytes msg(MTE_MSG_MAX_LEN);
    msg.resize(MTE_MSG_BuildRequest(5, MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, 0, MTE_ITEM_TRIGGER,
                                    &stRow, msg.data(), msg.size()));
    memset(&msg[28 + 540], 'x', 33);  // owner without its zero
    REPLY_S r = Send(msg);
    EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_MSG_STRING));
    EXPECT_EQ(r.stReply.uiSequence, 5u);
    msg.resize(30);
    EXPECT_EQ(Send(msg).stReply.uiResult, MTE_ERR_MSG_LENGTH);
    EXPECT_TRUE(g_stMockTables.vecCalls.empty());
}

// The scalars and, beside them, the engine counters (type 16).
TEST_F(CfgTest, ScalarsOnlyAnswerGet) {
    g_stMockTables.stScalars = {1, 2, 3, 4, 5, 6, 7};
    REPLY_S r = Send(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET);
    ASSERT_EQ(r.stReply.uiResult, MTE_OK);
    ASSERT_EQ(r.stReply.usItem, MTE_ITEM_SCALARS);
    EXPECT_EQ(r.uiLen, 20u + 8u + 28u);
    EXPECT_EQ(memcmp(r.stReply.pucData, &g_stMockTables.stScalars, 28), 0);
    EXPECT_EQ(r.stReply.uiFailedColumn, 0xffffffffu);
    for (uint16_t usOp : {MTE_MSG_OP_SET, MTE_MSG_OP_GET_NEXT}) {
        r = Send(MTE_MSG_TYPE_SCALARS, usOp);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_GENERAL));
    }
    r = Send(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, 0, nullptr, 0, 20 + 35);
    EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_REPLY_TOO_SMALL));

    r = Send(MTE_MSG_TYPE_ENGINE_COUNTERS, MTE_MSG_OP_GET);
    ASSERT_EQ(r.stReply.usItem, MTE_ITEM_ENGINE_COUNTERS);
    EXPECT_EQ(r.uiLen, 20u + 8u + 8u);
    EXPECT_EQ(r.stReply.pucData[0], 9);
    EXPECT_EQ(r.stReply.pucData[4], 10);
    EXPECT_EQ(Send(MTE_MSG_TYPE_ENGINE_COUNTERS, MTE_MSG_OP_SET).stReply.uiResult, MTE_ERR_GENERAL);
}

TEST_F(CfgTest, ValueSettersIgnoreTheOperationAndAlwaysSucceed) {
    uint32_t uiValue = 15;
    REPLY_S r = Send(MTE_MSG_TYPE_SAMPLE_MIN, MTE_MSG_OP_GET, MTE_ITEM_SAMPLE_MIN, &uiValue);
    EXPECT_EQ(r.stReply.uiResult, MTE_OK);  // although the setter failed
    EXPECT_EQ(r.stReply.uiFailedColumn, 0xffffffffu);
    EXPECT_EQ(g_stMockTables.uiSampleMin, 15u);
    uiValue = 300;
    Send(MTE_MSG_TYPE_INSTANCE_MAX, 42, MTE_ITEM_INSTANCE_MAX, &uiValue);
    EXPECT_EQ(g_stMockTables.uiInstancesMax, 300u);
    // Without an item the value is 0.
    Send(MTE_MSG_TYPE_SAMPLE_MIN, MTE_MSG_OP_SET);
    EXPECT_EQ(g_stMockTables.uiSampleMin, 0u);

    uint32_t uiBits = 0xe;
    Send(MTE_MSG_TYPE_DBG_ENABLE, MTE_MSG_OP_SET, MTE_ITEM_DBG_SWITCH, &uiBits);
    uiBits = 0x4;
    Send(MTE_MSG_TYPE_DBG_DISABLE, MTE_MSG_OP_GET, MTE_ITEM_DBG_SWITCH, &uiBits);
    r = Send(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_SET);
    ASSERT_EQ(r.stReply.usItem, MTE_ITEM_DBG_SWITCH);
    uint32_t uiSwitch;
    memcpy(&uiSwitch, r.stReply.pucData, 4);
    EXPECT_EQ(uiSwitch, 0xau);
    r = Send(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET, 0, nullptr, 0, 20 + 11);
    EXPECT_EQ(r.stReply.uiResult, MTE_ERR_REPLY_TOO_SMALL);
}

// One row per table: its message type, items, sizes, where the index lies in
// the row record, and the lock its handler must hold.
struct TABLE_CASE_S {
    uint16_t usType, usRowItem, usKeyItem;
    const char* pszTable;
    size_t uiOwnerOff, uiNameOff;
    const char *pszReadLock, *pszWriteLock;
    uint8_t ucPresentBit;  // 0: the table has its own empty test
};

const TABLE_CASE_S g_astTableCases[] = {
    {4, 4, 5, "trigger", 540, 573, "", "", 0},
    {5, 6, 5, "bool", 12, 45, "", "", 0x40},
    {6, 7, 5, "exist", 0, 33, "", "", 0x80},
    {7, 8, 5, "thres", 20, 53, "", "", 0x20},
    {8, 9, 10, "obj", 528, 561, "obj:rd", "obj:wr", 0},
    {9, 11, 12, "event", 8, 41, "evt:rd", "evt:wr", 0},
    {10, 13, 12, "notify", 516, 549, "evt:rd", "evt:wr", 0x80},
    {11, 14, 12, "set", 528, 561, "evt:rd", "evt:wr", 0x40},
    {15, 16, 5, "delta", 524, 557, "", "", 0x10},
};

Bytes RowWithIndex(const TABLE_CASE_S& c, const char* pszOwner, const char* pszName) {
    Bytes row(MTE_MSG_ItemSize(c.usRowItem), 0);
    strcpy(reinterpret_cast<char*>(&row[c.uiOwnerOff]), pszOwner);
    strcpy(reinterpret_cast<char*>(&row[c.uiNameOff]), pszName);
    return row;
}

TEST_F(CfgTest, GetFindsTheRowByItsIndexUnderTheReadLock) {
    for (const TABLE_CASE_S& c : g_astTableCases) {
        SCOPED_TRACE(c.pszTable);
        g_stMockTables = MOCK_TABLES_S();
        Bytes request = RowWithIndex(c, "own", "nm");
        if (c.usType == MTE_MSG_TYPE_OBJECTS) {
            uint32_t uiIndex = 9;
            memcpy(&request[524], &uiIndex, 4);
        }
        Bytes stored = RowWithIndex(c, "own", "nm");
        stored[stored.size() - 3] = 0x5a;  // something the reply must carry back
        g_stMockTables.pGetResult = stored.data();
        REPLY_S r = Send(c.usType, MTE_MSG_OP_GET, c.usRowItem, request.data());
        ASSERT_EQ(r.stReply.uiResult, MTE_OK);
        ASSERT_EQ(r.stReply.usItem, c.usRowItem);
        EXPECT_EQ(memcmp(r.stReply.pucData, stored.data(), stored.size()), 0);
        EXPECT_EQ(r.uiLen, 20 + 8 + stored.size());
        EXPECT_EQ(r.stReply.uiFailedColumn, 0xffffffffu);
        EXPECT_EQ(g_stMockTables.strLastOwner, "own");
        EXPECT_EQ(g_stMockTables.strLastName, "nm");
        if (c.usType == MTE_MSG_TYPE_OBJECTS) {
            EXPECT_EQ(g_stMockTables.uiLastIndex, 9u);
        }
        ASSERT_EQ(g_stMockTables.vecCalls.size(), 1u);
        EXPECT_EQ(g_stMockTables.vecCalls[0],
                  std::string(c.pszTable) + ".get lock=" + c.pszReadLock);

        // No such row.
        g_stMockTables.pGetResult = nullptr;
        r = Send(c.usType, MTE_MSG_OP_GET, c.usRowItem, request.data());
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_GENERAL));

        // A row that does not fit: get and get-next answer differently.
        g_stMockTables.pGetResult = stored.data();
        g_stMockTables.pGetNextResult = stored.data();
        uint32_t uiTight = 20 + 8 + stored.size() - 1;
        r = Send(c.usType, MTE_MSG_OP_GET, c.usRowItem, request.data(), 0, uiTight);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_REPLY_TOO_SMALL));
        r = Send(c.usType, MTE_MSG_OP_GET_NEXT, 0, nullptr, 0, uiTight);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_NEXT_TOO_BIG));
        r = Send(c.usType, MTE_MSG_OP_GET_NEXT, 0, nullptr, 0, uiTight + 1);
        EXPECT_EQ(r.stReply.uiResult, MTE_OK);
    }
}

TEST_F(CfgTest, GetNextTellsTheEndFromAnEmptyTable) {
    for (const TABLE_CASE_S& c : g_astTableCases) {
        SCOPED_TRACE(c.pszTable);
        g_stMockTables = MOCK_TABLES_S();
        // Nothing follows and nothing is there.
        REPLY_S r = Send(c.usType, MTE_MSG_OP_GET_NEXT);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_TABLE_EMPTY));
        // Nothing follows, but rows exist before the key.
        g_stMockTables.uiTriggerEmpty = 0;
        g_stMockTables.uiEventEmpty = 0;
        if (c.ucPresentBit == 0) {
            g_stMockTables.uiObjEmpty = 0;
        } else {
            // Another sub-table's bit says nothing about this one.
            g_stMockTables.ucFlagsToSet = static_cast<uint8_t>(0xe0 & ~c.ucPresentBit);
            EXPECT_EQ(Send(c.usType, MTE_MSG_OP_GET_NEXT).stReply.uiResult, MTE_ERR_TABLE_EMPTY);
            g_stMockTables.ucFlagsToSet = c.ucPresentBit;
        }
        r = Send(c.usType, MTE_MSG_OP_GET_NEXT);
        EXPECT_EQ(r.stReply.uiResult, MTE_ERR_NO_SUCH_ROW);
        EXPECT_EQ(r.stReply.uiFailedColumn, 0xffffffffu);
        EXPECT_EQ(g_stMockTables.vecCalls.back(),
                  std::string(c.pszTable) + ".next lock=" + c.pszReadLock);
    }
}

TEST_F(CfgTest, GetNextPassesTheKey) {
    MTE_INDEX_KEY_S stKey = {2, "ab", "t1", {}};
    Send(MTE_MSG_TYPE_THRESHOLD, MTE_MSG_OP_GET_NEXT, MTE_ITEM_TRIGGER_KEY, &stKey);
    EXPECT_EQ(g_stMockTables.uiLastOwnerLen, 2u);
    EXPECT_EQ(g_stMockTables.strLastOwner, "ab");
    EXPECT_EQ(g_stMockTables.strLastName, "t1");

    MTE_OBJ_INDEX_KEY_S stObjKey = {1, 3, 4, "o", "grp", {}};
    Send(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_GET_NEXT, MTE_ITEM_OBJECTS_KEY, &stObjKey);
    EXPECT_EQ(g_stMockTables.uiLastOwnerLen, 1u);
    EXPECT_EQ(g_stMockTables.uiLastNameLen, 3u);
    EXPECT_EQ(g_stMockTables.uiLastIndex, 4u);
    EXPECT_EQ(g_stMockTables.strLastName, "grp");
}

TEST_F(CfgTest, SetPassesMaskAndReturnsCodeAndFailedColumn) {
    for (const TABLE_CASE_S& c : g_astTableCases) {
        SCOPED_TRACE(c.pszTable);
        g_stMockTables = MOCK_TABLES_S();
        g_stMockTables.uiSetResult = MTE_ERR_INCONSISTENT;
        g_stMockTables.uiFailedColumnToSet = 7;
        Bytes row = RowWithIndex(c, "o", "n");
        REPLY_S r = Send(c.usType, MTE_MSG_OP_SET, c.usRowItem, row.data(), 0x80001234);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_INCONSISTENT));
        // The set-action table reports no column.
        EXPECT_EQ(r.stReply.uiFailedColumn, c.usType == MTE_MSG_TYPE_SET ? 0u : 7u);
        EXPECT_EQ(g_stMockTables.uiLastMask, 0x80001234u);
        ASSERT_GE(g_stMockTables.vecLastRow.size(), row.size());
        EXPECT_EQ(memcmp(g_stMockTables.vecLastRow.data(), row.data(), row.size()), 0);
        EXPECT_EQ(g_stMockTables.vecCalls.back(),
                  std::string(c.pszTable) + ".set lock=" + c.pszWriteLock);

        g_stMockTables.uiSetResult = MTE_OK;
        g_stMockTables.uiFailedColumnToSet = 0;
        r = Send(c.usType, MTE_MSG_OP_SET, c.usRowItem, row.data(), 2);
        EXPECT_EQ(r.stReply.uiResult, MTE_OK);
        EXPECT_EQ(r.stReply.uiFailedColumn, 0u);
    }
}

TEST_F(CfgTest, UnknownOperationOfATable) {
    for (const TABLE_CASE_S& c : g_astTableCases) {
        REPLY_S r = Send(c.usType, 4);
        EXPECT_EQ(CodeLen(r), Bare(MTE_ERR_GENERAL));
    }
    EXPECT_TRUE(g_stMockTables.vecCalls.empty());
}

TEST_F(CfgTest, NoRoomForAHeaderWritesNothing) {
    uint8_t aucReply[19];
    Bytes msg(64);
    msg.resize(MTE_MSG_BuildRequest(1, 1, 2, 0, 0, nullptr, msg.data(), msg.size()));
    EXPECT_EQ(mte_CFG_Proc(msg.data(), msg.size(), sizeof(aucReply), aucReply), 0u);
}

}  // namespace
