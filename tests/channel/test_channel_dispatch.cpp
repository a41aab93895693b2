// Dispatch against the real tables on the in-memory store: the get-next
// answers that depend on what the tables hold (empty table, end of table,
// sub-tables told apart by their presence flags), reply-size limits, and the
// set-action table's failed column.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "fake_dbm.h"
#include "mte_cfg.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_msg.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_trigger.h"

namespace {

class ChannelDispatchTest : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_DBM_Reset();
        ASSERT_EQ(mte_DBG_Init(), 0u);
        ASSERT_EQ(mte_DBM_Init(), 0u);
        ASSERT_EQ(mte_TRIGGER_Init(), 0u);
        ASSERT_EQ(mte_EVENT_Init(), 0u);
        ASSERT_EQ(mte_OBJ_Init(), 0u);
        ASSERT_EQ(mte_SCALAR_Init(), 0u);
    }
    void TearDown() override {
        mte_OBJ_Fini();
        mte_EVENT_Fini();
        mte_TRIGGER_Fini();
        mte_DBM_Fini();
        mte_DBG_Fini();
    }

    // One request through the dispatcher; the reply is parsed into stReply.
    uint32_t Send(uint16_t usType, uint16_t usOp, uint32_t uiMask, uint16_t usItem,
                  const void* pValue, uint32_t uiCapacity = MTE_MSG_MAX_LEN) {
        uint8_t aucRequest[MTE_MSG_MAX_LEN];
        uint32_t uiLen = MTE_MSG_BuildRequest(++uiSeq, usType, usOp, uiMask, usItem, pValue,
                                              aucRequest, sizeof(aucRequest));
        EXPECT_NE(uiLen, 0u);
        vecReply.assign(MTE_MSG_MAX_LEN, 0);
        uint32_t uiReplyLen = mte_CFG_Proc(aucRequest, uiLen, uiCapacity, vecReply.data());
        EXPECT_EQ(MTE_MSG_ParseReply(vecReply.data(), uiReplyLen, &stReply), MTE_OK);
        EXPECT_EQ(stReply.uiSequence, uiSeq);
        return stReply.uiResult;
    }

    uint32_t CreateTrigger(const char* pszOwner, const char* pszName, uint8_t ucTest) {
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, pszOwner);
        strcpy(stRow.szName, pszName);
        stRow.stValueID.uiLen = 2;
        stRow.stValueID.auiOid[0] = 1;
        stRow.stValueID.auiOid[1] = 3;
        stRow.uiFrequency = 60;
        stRow.ucTest = ucTest;
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
        return Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET,
                    MTE_COLUMN_BIT(MTE_TRIGGER_COL_VALUE_ID) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_FREQUENCY) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_EXISTENCE) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_BOOLEAN) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_TEST_THRESHOLD) |
                        MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS),
                    MTE_ITEM_TRIGGER, &stRow);
    }

    uint32_t NextAfter(uint16_t usType, const char* pszOwner, const char* pszName) {
        MTE_INDEX_KEY_S stKey{};
        stKey.uiOwnerLen = static_cast<uint32_t>(strlen(pszOwner));
        strcpy(stKey.szOwner, pszOwner);
        strcpy(stKey.szName, pszName);
        uint16_t usKey = usType >= MTE_MSG_TYPE_EVENT ? MTE_ITEM_EVENT_KEY : MTE_ITEM_TRIGGER_KEY;
        return Send(usType, MTE_MSG_OP_GET_NEXT, 0, usKey, &stKey);
    }

    std::string RowOwner(size_t uiOffset) const {
        return reinterpret_cast<const char*>(stReply.pucData + uiOffset);
    }

    uint32_t uiSeq = 0;
    std::vector<uint8_t> vecReply;
    MTE_MSG_REPLY_S stReply{};
};

TEST_F(ChannelDispatchTest, GetNextTellsEmptyFromEnd) {
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_TRIGGER, "", ""), MTE_ERR_TABLE_EMPTY);
    ASSERT_EQ(CreateTrigger("ab", "t", 0), MTE_OK);
    ASSERT_EQ(CreateTrigger("b", "t", 0), MTE_OK);
    ASSERT_EQ(CreateTrigger("aa", "t", 0), MTE_OK);
    // Walk: b, aa, ab (owner length first).
    const char* apszOrder[] = {"b", "aa", "ab"};
    std::string strOwner, strName;
    for (const char* pszExpected : apszOrder) {
        ASSERT_EQ(NextAfter(MTE_MSG_TYPE_TRIGGER, strOwner.c_str(), strName.c_str()), MTE_OK);
        strOwner = RowOwner(offsetof(MTE_TRIGGER_ROW_S, szOwner));
        strName = RowOwner(offsetof(MTE_TRIGGER_ROW_S, szName));
        EXPECT_EQ(strOwner, pszExpected);
    }
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_TRIGGER, "ab", "t"), MTE_ERR_NO_SUCH_ROW);
    EXPECT_EQ(stReply.usItem, 0u);
}

TEST_F(ChannelDispatchTest, SubTablesUseTheirPresenceFlags) {
    ASSERT_EQ(CreateTrigger("a", "1", MTE_TEST_BOOLEAN), MTE_OK);
    ASSERT_EQ(CreateTrigger("a", "2", MTE_TEST_THRESHOLD), MTE_OK);
    // Triggers exist, but none has an existence test.
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_EXISTENCE, "", ""), MTE_ERR_TABLE_EMPTY);
    // The only threshold row lies at or before the key: end, not empty.
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_THRESHOLD, "", ""), MTE_OK);
    EXPECT_EQ(RowOwner(offsetof(MTE_THRES_ENTRY_S, szName)), "2");
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_THRESHOLD, "a", "2"), MTE_ERR_NO_SUCH_ROW);
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_BOOLEAN, "a", "1"), MTE_ERR_NO_SUCH_ROW);
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_NOTIFY, "", ""), MTE_ERR_TABLE_EMPTY);
    EXPECT_EQ(NextAfter(MTE_MSG_TYPE_SET, "", ""), MTE_ERR_TABLE_EMPTY);
}

TEST_F(ChannelDispatchTest, RowTooBigForTheReply) {
    ASSERT_EQ(CreateTrigger("o", "t", 0), MTE_OK);
    MTE_TRIGGER_ROW_S stRow{};
    strcpy(stRow.szOwner, "o");
    strcpy(stRow.szName, "t");
    const uint32_t uiTight = 20 + 8 + sizeof(MTE_TRIGGER_ROW_S) - 1;
    EXPECT_EQ(Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET, 0, MTE_ITEM_TRIGGER, &stRow, uiTight),
              MTE_ERR_REPLY_TOO_SMALL);
    MTE_INDEX_KEY_S stKey{};
    EXPECT_EQ(
        Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET_NEXT, 0, MTE_ITEM_TRIGGER_KEY, &stKey, uiTight),
        MTE_ERR_NEXT_TOO_BIG);
    EXPECT_EQ(Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET, 0, MTE_ITEM_TRIGGER, &stRow), MTE_OK);
    EXPECT_EQ(memcmp(stReply.pucData + offsetof(MTE_TRIGGER_ROW_S, szName), "t", 2), 0);
}

TEST_F(ChannelDispatchTest, SetActionRefusalCarriesColumnZero) {
    MTE_SET_ENTRY_S stSet{};
    strcpy(stSet.szOwner, "o");
    strcpy(stSet.szName, "missing");
    uint32_t uiCode = Send(MTE_MSG_TYPE_SET, MTE_MSG_OP_SET, MTE_COLUMN_BIT(MTE_SET_COL_VALUE),
                           MTE_ITEM_SET, &stSet);
    EXPECT_NE(uiCode, MTE_OK);
    EXPECT_EQ(stReply.uiFailedColumn, 0u);
    // A table set reply carries the column, every other reply 0xFFFFFFFF.
    MTE_TRIGGER_ROW_S stRow{};
    strcpy(stRow.szOwner, "o");
    strcpy(stRow.szName, "t");
    EXPECT_EQ(Send(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, 0, MTE_ITEM_TRIGGER, &stRow),
              MTE_ERR_NO_SUCH_ROW);
    EXPECT_EQ(stReply.uiFailedColumn, static_cast<uint32_t>(MTE_TRIGGER_COL_ENTRY_STATUS));
    EXPECT_EQ(Send(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, 0, 0, nullptr), MTE_OK);
    EXPECT_EQ(stReply.uiFailedColumn, 0xffffffffu);
}

TEST_F(ChannelDispatchTest, SampleMinimumSetWithAGetOperation) {
    uint32_t uiValue = 9;
    EXPECT_EQ(Send(MTE_MSG_TYPE_SAMPLE_MIN, MTE_MSG_OP_GET, 0, MTE_ITEM_SAMPLE_MIN, &uiValue),
              MTE_OK);
    EXPECT_EQ(mte_SCALAR_GetSampMin(), 9u);
    EXPECT_EQ(Send(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_SET, 0, 0, nullptr), MTE_ERR_GENERAL);
    EXPECT_EQ(Send(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET_NEXT, 0, 0, nullptr), MTE_ERR_GENERAL);
}

}  // namespace
