// The event-side tables behind the real dispatch: what the agent sees of
// them in replies (codes, failed columns, the end of a sub-table against an
// empty one).
#include "event_test_util.h"
#include "mte_cfg.h"
#include "mte_msg.h"

namespace {
struct REPLY_S {
    uint32_t uiResult;
    uint32_t uiFailedColumn;
    std::string strData;
};

REPLY_S Exchange(uint16_t usType, uint16_t usOp, uint32_t uiMask, uint16_t usItem,
                 const void* pValue) {
    uint8_t aucReq[MTE_MSG_MAX_LEN];
    uint8_t aucReply[MTE_MSG_MAX_LEN];
    uint32_t uiLen =
        MTE_MSG_BuildRequest(7, usType, usOp, uiMask, usItem, pValue, aucReq, sizeof(aucReq));
    EXPECT_GT(uiLen, 0u);
    uint32_t uiReplyLen = mte_CFG_Proc(aucReq, uiLen, sizeof(aucReply), aucReply);
    MTE_MSG_REPLY_S stReply{};
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, uiReplyLen, &stReply), 0u);
    return {stReply.uiResult, stReply.uiFailedColumn,
            std::string(reinterpret_cast<const char*>(stReply.pucData), stReply.uiDataSize)};
}

MTE_INDEX_KEY_S Key(const std::string& strOwner, const std::string& strName) {
    MTE_INDEX_KEY_S stKey{};
    stKey.uiOwnerLen = static_cast<uint32_t>(strOwner.size());
    CopyStr(stKey.szOwner, sizeof(stKey.szOwner), strOwner);
    CopyStr(stKey.szName, sizeof(stKey.szName), strName);
    return stKey;
}

class EventDispatchTest : public EventFixture {};

TEST_F(EventDispatchTest, SubTableGetNextTellsTheEndFromAnEmptyTable) {
    MTE_INDEX_KEY_S stStart = Key("", "");
    EXPECT_EQ(Exchange(10, 3, 0, MTE_ITEM_EVENT_KEY, &stStart).uiResult, 0x60010023u);

    MTE_EVENT_ROW_S stEvent = EventReq("o", "a", 5, 0x40);
    EXPECT_EQ(Exchange(9, 1, 0x48, MTE_ITEM_EVENT, &stEvent).uiResult, 0u);
    EXPECT_EQ(Exchange(10, 3, 0, MTE_ITEM_EVENT_KEY, &stStart).uiResult, 0x60010023u);
    REPLY_S stNext = Exchange(11, 3, 0, MTE_ITEM_EVENT_KEY, &stStart);
    ASSERT_EQ(stNext.uiResult, 0u);
    ASSERT_EQ(stNext.strData.size(), sizeof(MTE_SET_ENTRY_S));
    EXPECT_STREQ(reinterpret_cast<const MTE_SET_ENTRY_S*>(stNext.strData.data())->szName, "a");
    MTE_INDEX_KEY_S stAfter = Key("o", "a");
    EXPECT_EQ(Exchange(11, 3, 0, MTE_ITEM_EVENT_KEY, &stAfter).uiResult, 0x40010005u);
}

TEST_F(EventDispatchTest, SetRepliesCarryTheTablesCodesAndFailedColumns) {
    MTE_EVENT_ROW_S stEvent = EventReq("o", "a", 1, 0xC0);
    REPLY_S stReply = Exchange(9, 1, 0x58, MTE_ITEM_EVENT, &stEvent);
    EXPECT_EQ(stReply.uiResult, 0x40010010u);
    EXPECT_EQ(stReply.uiFailedColumn, 6u);
    stEvent.uiEntryStatus = 4;
    EXPECT_EQ(Exchange(9, 1, 0x58, MTE_ITEM_EVENT, &stEvent).uiResult, 0u);

    MTE_NOTIFY_ENTRY_S stNotify = NotifyReq("o", "a", {1, 2}, "other", "g");
    stReply = Exchange(10, 1, 0x0e, MTE_ITEM_NOTIFY, &stNotify);
    EXPECT_EQ(stReply.uiResult, 0x40010010u);  // the event is active
    EXPECT_EQ(stReply.uiFailedColumn, 0u);
    MTE_SET_ENTRY_S stSet = SetReq("o", "a", {1, 2}, 3);
    stReply = Exchange(11, 1, 0x0a, MTE_ITEM_SET, &stSet);
    EXPECT_EQ(stReply.uiResult, 0x40010010u);
    EXPECT_EQ(stReply.uiFailedColumn, 0u);

    MTE_OBJ_ROW_S stObj = ObjReq("o", "g", 1, 1);
    stReply = Exchange(8, 1, 0x28, MTE_ITEM_OBJECTS, &stObj);
    EXPECT_EQ(stReply.uiResult, 0x40010010u);
    EXPECT_EQ(stReply.uiFailedColumn, 5u);
    stObj.uiEntryStatus = 5;
    EXPECT_EQ(Exchange(8, 1, 0x28, MTE_ITEM_OBJECTS, &stObj).uiResult, 0u);
    REPLY_S stGet = Exchange(8, 2, 0, MTE_ITEM_OBJECTS, &stObj);
    ASSERT_EQ(stGet.uiResult, 0u);
    EXPECT_EQ(reinterpret_cast<const MTE_OBJ_ROW_S*>(stGet.strData.data())->uiEntryStatus, 1u);
}
}  // namespace
