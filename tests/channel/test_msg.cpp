// Message library: round trips, reply matching and every malformed shape the
// check must refuse with its code; and the OID and string helpers of the
// tables.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "mte_catalogue.h"
#include "mte_msg.h"
#include "mte_oid.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Build(uint16_t usType, uint16_t usOp, uint16_t usItem, const void* pValue, uint32_t uiSeq = 7,
            uint32_t uiMask = 0) {
    Bytes msg(MTE_MSG_MAX_LEN);
    uint32_t uiLen =
        MTE_MSG_BuildRequest(uiSeq, usType, usOp, uiMask, usItem, pValue, msg.data(), msg.size());
    msg.resize(uiLen);
    return msg;
}

uint32_t Check(const Bytes& msg, MTE_MSG_HEAD_S* pstHead = nullptr, uint8_t* pucReply = nullptr) {
    MTE_MSG_HEAD_S stHead;
    return MTE_MSG_CheckMsg(msg.data(), msg.size(), pstHead ? pstHead : &stHead, pucReply);
}

void Put32(Bytes& msg, size_t uiOff, uint32_t uiValue) {
    memcpy(msg.data() + uiOff, &uiValue, 4);
}

MTE_TRIGGER_ROW_S SampleTrigger() {
    MTE_TRIGGER_ROW_S stRow = {};
    stRow.stValueID = {3, {1, 3, 6}};
    stRow.uiFrequency = 10;
    strcpy(stRow.szOwner, "owner");
    strcpy(stRow.szName, "name");
    return stRow;
}

// What the table suite's dispatches do not show: an item that is not there
// leaves the output untouched, and nothing is built without room or without
// an item of that number.
TEST(MsgTest, RequestItems) {
    MTE_TRIGGER_ROW_S stRow = SampleTrigger();
    Bytes msg = Build(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, MTE_ITEM_TRIGGER, &stRow);
    uint32_t uiValue = 99;
    EXPECT_NE(MTE_MSG_GetDataFromMsg(MTE_ITEM_SAMPLE_MIN, 8 + 1220, 4, msg.data() + 20, &uiValue),
              MTE_OK);
    EXPECT_EQ(uiValue, 99u);
    EXPECT_EQ(MTE_MSG_BuildRequest(1, 4, 1, 0, MTE_ITEM_TRIGGER, &stRow, msg.data(), 1227), 0u);
    EXPECT_EQ(MTE_MSG_AppendData2Msg(0, &stRow, 1228, msg.data()), 0u);
}

// A reply carries all 32 bits of the request's sequence, also when the
// request was refused for its header; requests and replies are never taken
// for each other, and a reply whose lengths do not add up is refused.
TEST(MsgTest, Replies) {
    uint32_t uiBits = 0xa;
    Bytes msg =
        Build(MTE_MSG_TYPE_DBG_ENABLE, MTE_MSG_OP_SET, MTE_ITEM_DBG_SWITCH, &uiBits, 0xabcdef01);
    uint8_t aucReply[MTE_MSG_MAX_LEN] = {};
    ASSERT_EQ(Check(msg, nullptr, aucReply), MTE_OK);
    uint32_t uiData = MTE_MSG_AppendData2Msg(MTE_ITEM_DBG_SWITCH, &uiBits, 12, aucReply + 20);
    MTE_MSG_SetResponseMsgHead(MTE_OK, 0xffffffff, uiData, aucReply);
    MTE_MSG_REPLY_S stReply;
    ASSERT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData, &stReply), MTE_OK);
    EXPECT_EQ(stReply.uiSequence, 0xabcdef01u);
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData - 1, &stReply), MTE_ERR_MSG_LENGTH);
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, 19, &stReply), MTE_ERR_MSG_LENGTH);
    EXPECT_EQ(MTE_MSG_ParseReply(msg.data(), msg.size(), &stReply), MTE_ERR_MSG_HEADER);
    EXPECT_EQ(Check(Bytes(aucReply, aucReply + 20)), MTE_ERR_MSG_HEADER);
    aucReply[24] = 5;  // record length 5 for a 4-byte item
    MTE_MSG_SetResponseMsgHead(0, 0xffffffff, uiData + 1, aucReply);
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData + 1, &stReply), MTE_ERR_MSG_ITEM_SIZE);

    EXPECT_EQ(MTE_MSG_CheckMsg(nullptr, 0, nullptr, aucReply), MTE_ERR_MSG_LENGTH);
    msg[0] ^= 0xff;
    EXPECT_EQ(Check(msg, nullptr, aucReply), MTE_ERR_MSG_HEADER);
    MTE_MSG_SetResponseMsgHead(MTE_ERR_MSG_HEADER, 0xffffffff, 0, aucReply);
    ASSERT_EQ(MTE_MSG_ParseReply(aucReply, 20, &stReply), MTE_OK);
    EXPECT_EQ(stReply.uiSequence, 0xabcdef01u);
}

// One shape: a way to turn a well-formed trigger set into the message under
// test, and the check's code for it.
struct SHAPE_S {
    const char* pszName;
    std::function<void(Bytes&)> pfShape;
    uint32_t uiCode;
};

// The shapes the channel process test sends (bad magic, short header, cut
// record, unterminated owner, OID count 129) are not repeated here.
TEST(MsgTest, EveryShapeGetsItsCode) {
    MTE_TRIGGER_ROW_S stRow = SampleTrigger();
    const Bytes good = Build(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, MTE_ITEM_TRIGGER, &stRow);
    const size_t R = 28;  // record offset in the message
    uint32_t uiValue = 5;
    MTE_INDEX_KEY_S stKey = {2, "ab", "", {}}, stBadKey = {3, "ab", "", {}};
    MTE_OBJ_INDEX_KEY_S stObjKey = {0, 1, 0, "", "n", {}}, stBadObjKey = {0, 0, 0, "", "n", {}};
    auto Message = [](uint16_t usType, uint16_t usOp, uint16_t usItem, const void* pValue) {
        return [=](Bytes& m) { m = Build(usType, usOp, usItem, pValue); };
    };
    const SHAPE_S astCases[] = {
        {"well formed", [](Bytes&) {}, MTE_OK},
        {"empty", [](Bytes& m) { m.clear(); }, MTE_ERR_MSG_LENGTH},
        {"bad version", [](Bytes& m) { m[2] = 2; }, MTE_ERR_MSG_HEADER},
        {"reply flag", [](Bytes& m) { m[3] = MTE_MSG_FLAG_REPLY; }, MTE_ERR_MSG_HEADER},
        {"unknown flag", [](Bytes& m) { m[3] = 0x80; }, MTE_ERR_MSG_HEADER},
        {"truncated, length adjusted",
         [](Bytes& m) {
             m.resize(m.size() - 100);
             Put32(m, 12, m.size() - 20);
         },
         MTE_ERR_MSG_LENGTH},
        {"trailing byte", [](Bytes& m) { m.push_back(0); }, MTE_ERR_MSG_LENGTH},
        {"trailing byte, length adjusted",
         [](Bytes& m) {
             m.push_back(0);
             Put32(m, 12, m.size() - 20);
         },
         MTE_ERR_MSG_LENGTH},
        {"data length too big", [](Bytes& m) { Put32(m, 12, 0xffffffff); }, MTE_ERR_MSG_LENGTH},
        {"item head cut",
         [](Bytes& m) {
             m.resize(24);
             Put32(m, 12, 4);
         },
         MTE_ERR_MSG_LENGTH},
        {"item 0", [](Bytes& m) { m[20] = 0; }, MTE_ERR_MSG_ITEM},
        {"item 18", [](Bytes& m) { m[20] = 18; }, MTE_ERR_MSG_ITEM},
        {"item zero word", [](Bytes& m) { m[22] = 1; }, MTE_ERR_MSG_ITEM},
        {"item of another table", [](Bytes& m) { m[20] = MTE_ITEM_EVENT; }, MTE_ERR_MSG_ITEM},
        {"key item for a set", [](Bytes& m) { m[20] = MTE_ITEM_TRIGGER_KEY; }, MTE_ERR_MSG_ITEM},
        {"record length short",
         [](Bytes& m) {
             Put32(m, 24, 1219);
             m.resize(m.size() - 1);
             Put32(m, 12, m.size() - 20);
         },
         MTE_ERR_MSG_ITEM_SIZE},
        {"record length beyond data", [](Bytes& m) { Put32(m, 24, 1221); }, MTE_ERR_MSG_LENGTH},
        // Every string and OID field has its own case in the next test.
        {"oid count huge", [&](Bytes& m) { Put32(m, R, 0x80000000); }, MTE_ERR_MSG_OID},
        // Key lengths must match their strings.
        {"key", Message(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET_NEXT, MTE_ITEM_TRIGGER_KEY, &stKey),
         MTE_OK},
        {"key owner length off",
         Message(MTE_MSG_TYPE_EVENT, MTE_MSG_OP_GET_NEXT, MTE_ITEM_EVENT_KEY, &stBadKey),
         MTE_ERR_MSG_KEY},
        {"objects key",
         Message(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_GET_NEXT, MTE_ITEM_OBJECTS_KEY, &stObjKey),
         MTE_OK},
        {"objects key name length off",
         Message(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_GET_NEXT, MTE_ITEM_OBJECTS_KEY, &stBadObjKey),
         MTE_ERR_MSG_KEY},
        // The items each type takes: value setters ignore the operation, no
        // item at all is well formed (the handler works on zeros), types the
        // dispatcher refuses itself pass with any known item, and a table's
        // unknown operation takes either of its items.
        {"value setter, any operation",
         Message(MTE_MSG_TYPE_SAMPLE_MIN, MTE_MSG_OP_GET, MTE_ITEM_SAMPLE_MIN, &uiValue), MTE_OK},
        {"value setter, another's item",
         Message(MTE_MSG_TYPE_SAMPLE_MIN, 9, MTE_ITEM_INSTANCE_MAX, &uiValue), MTE_ERR_MSG_ITEM},
        {"scalars with an item",
         Message(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, MTE_ITEM_SAMPLE_MIN, &uiValue),
         MTE_ERR_MSG_ITEM},
        {"no item", Message(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET, 0, nullptr), MTE_OK},
        {"type 0", Message(0, 1, MTE_ITEM_SAMPLE_MIN, &uiValue), MTE_OK},
        {"type 17", Message(17, 1, MTE_ITEM_SAMPLE_MIN, &uiValue), MTE_OK},
        {"unknown operation", Message(MTE_MSG_TYPE_NOTIFY, 7, MTE_ITEM_EVENT_KEY, &stKey), MTE_OK},
    };
    for (const SHAPE_S& stCase : astCases) {
        Bytes msg = good;
        stCase.pfShape(msg);
        EXPECT_EQ(Check(msg), stCase.uiCode) << stCase.pszName;
    }
}

// Every string field of every row (as the table catalogue lays them out) and
// of the index keys, and every OID: a zero at the field's last byte passes, the
// field filled to its end is refused; an OID of 128 arcs passes, 129 is refused.
TEST(MsgTest, EveryStringAndOidFieldOfEveryRecordIsChecked) {
    struct FIELD_S {
        uint16_t usItem, usOffset, usSize;  // usSize 0: OID count
    };
    std::vector<FIELD_S> astFields = {
        {MTE_ITEM_TRIGGER_KEY, 4, 33},  {MTE_ITEM_TRIGGER_KEY, 37, 33},
        {MTE_ITEM_EVENT_KEY, 4, 33},    {MTE_ITEM_EVENT_KEY, 37, 33},
        {MTE_ITEM_OBJECTS_KEY, 12, 33}, {MTE_ITEM_OBJECTS_KEY, 45, 33}};
    for (const MTE_CAT_TABLE_S& stTable : g_astMteCatalogue) {
        for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
            const MTE_CAT_COLUMN_S& stColumn = stTable.pstColumns[i];
            bool bOid = stColumn.eKind == MTE_CAT_KIND_E::OID;
            if (bOid || MTE_CAT_IsString(stColumn.eKind)) {
                astFields.push_back({stTable.usRowItem, stColumn.usOffset,
                                     static_cast<uint16_t>(bOid ? 0 : stColumn.usSize)});
            }
        }
    }
    ASSERT_EQ(astFields.size(), 57u);  // no string or OID column left out
    for (const FIELD_S& stField : astFields) {
        SCOPED_TRACE(testing::Message() << "item " << stField.usItem << " at " << stField.usOffset);
        uint32_t uiSize = MTE_MSG_ItemSize(stField.usItem);
        Bytes record(uiSize, 0);
        auto Checked = [&] { return MTE_MSG_CheckRecord(stField.usItem, record.data(), uiSize); };
        ASSERT_EQ(Checked(), MTE_OK);
        if (stField.usSize == 0) {
            Put32(record, stField.usOffset, 128);
            EXPECT_EQ(Checked(), MTE_OK);
            Put32(record, stField.usOffset, 129);
            EXPECT_EQ(Checked(), MTE_ERR_MSG_OID);
            continue;
        }
        memset(&record[stField.usOffset], 'x', stField.usSize - 1);
        // An index key's owner (and the objects key's name) carries its length too.
        const bool bCounted =
            stField.usItem == MTE_ITEM_OBJECTS_KEY ||
            ((stField.usItem == MTE_ITEM_TRIGGER_KEY || stField.usItem == MTE_ITEM_EVENT_KEY) &&
             stField.usOffset == 4);
        EXPECT_EQ(Checked(), bCounted ? MTE_ERR_MSG_KEY : MTE_OK);
        record[stField.usOffset + stField.usSize - 1] = 'x';
        EXPECT_EQ(Checked(), MTE_ERR_MSG_STRING);
    }
}

TEST(MsgTest, OidHelpers) {
    MTE_OID_S stA = {4, {1, 3, 6, 1}}, stLonger = {5, {1, 3, 6, 1}}, stOther = {4, {1, 3, 6, 2}};
    EXPECT_EQ(MTE_MSG_IsSameOID(&stA, &stA), 1u);
    EXPECT_EQ(MTE_MSG_IsSameOID(&stA, &stLonger), 0u);
    EXPECT_EQ(MTE_MSG_IsSameOID(&stA, &stOther), 0u);
    char szOut[16];
    MTE_MSG_Oid2Str(&stA, sizeof(szOut), szOut);
    EXPECT_STREQ(szOut, "1.3.6.1");
    MTE_MSG_Oid2Str(&stA, 5, szOut);
    EXPECT_STREQ(szOut, "1.3.");
    stA.uiLen = 0;
    MTE_MSG_Oid2Str(&stA, sizeof(szOut), szOut);
    EXPECT_STREQ(szOut, "");
}

MTE_OID_S OidOfLength(uint32_t uiLen, uint32_t uiFirst) {
    MTE_OID_S stOid = {};
    stOid.uiLen = uiLen;
    for (uint32_t i = 0; i < uiLen; i++) {
        stOid.auiOid[i] = uiFirst + i;
    }
    return stOid;
}

TEST(OidTest, AppendSuffixUpTo128) {
    MTE_OID_S stSuffix = OidOfLength(3, 1000);
    MTE_OID_S stOid = OidOfLength(125, 1);
    ASSERT_EQ(AppendSuffix2OID(&stSuffix, &stOid), MTE_OK);
    EXPECT_EQ(stOid.uiLen, 128u);
    EXPECT_EQ(stOid.auiOid[124], 125u);
    EXPECT_EQ(stOid.auiOid[125], 1000u);
    EXPECT_EQ(stOid.auiOid[127], 1002u);

    MTE_OID_S stLong = OidOfLength(126, 1);
    MTE_OID_S stBefore = stLong;
    EXPECT_EQ(AppendSuffix2OID(&stSuffix, &stLong), MTE_ERR_GENERAL);
    EXPECT_EQ(memcmp(&stLong, &stBefore, sizeof(stLong)), 0);

    MTE_OID_S stEmpty = {};
    stBefore = stLong;
    EXPECT_EQ(AppendSuffix2OID(&stEmpty, &stLong), MTE_OK);
    EXPECT_EQ(memcmp(&stLong, &stBefore, sizeof(stLong)), 0);
}

}  // namespace
