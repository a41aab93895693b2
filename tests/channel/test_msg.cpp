// Message library: round trips, reply matching and every malformed shape the
// check must refuse with its code.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "mte_cfg.h"
#include "mte_msg.h"

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

TEST(MsgTest, ItemSizesMatchTheRecords) {
    const uint32_t auiSizes[] = {0,  28,  4,  4,   1220, 72, 212, 200, 416, 596,
                                 80, 332, 72, 648, 884,  4,  592, 8,   0};
    for (uint16_t i = 0; i <= 18; i++) {
        EXPECT_EQ(MTE_MSG_ItemSize(i), auiSizes[i]) << "item " << i;
    }
}

TEST(MsgTest, RequestRoundTrip) {
    MTE_TRIGGER_ROW_S stRow = SampleTrigger();
    Bytes msg = Build(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, MTE_ITEM_TRIGGER, &stRow, 0xabcdef01,
                      0x8000f000);
    ASSERT_EQ(msg.size(), 20u + 8u + 1220u);
    MTE_MSG_HEAD_S stHead;
    uint8_t aucReply[MTE_MSG_HEAD_SIZE];
    ASSERT_EQ(Check(msg, &stHead, aucReply), MTE_OK);
    EXPECT_EQ(stHead.uiColumnMask, 0x8000f000u);
    EXPECT_EQ(stHead.uiDataLen, 8u + 1220u);
    EXPECT_EQ(stHead.usMsgType, MTE_MSG_TYPE_TRIGGER);
    EXPECT_EQ(stHead.usOperation, MTE_MSG_OP_SET);
    EXPECT_EQ(stHead.uiSequence, 0xabcdef01u);

    MTE_TRIGGER_ROW_S stOut = {};
    ASSERT_EQ(MTE_MSG_GetDataFromMsg(MTE_ITEM_TRIGGER, stHead.uiDataLen, sizeof(stOut),
                                     msg.data() + 20, &stOut),
              MTE_OK);
    EXPECT_EQ(memcmp(&stOut, &stRow, sizeof(stRow)), 0);
    // Another item is not there: out untouched.
    uint32_t uiValue = 99;
    EXPECT_NE(
        MTE_MSG_GetDataFromMsg(MTE_ITEM_SAMPLE_MIN, stHead.uiDataLen, 4, msg.data() + 20, &uiValue),
        MTE_OK);
    EXPECT_EQ(uiValue, 99u);
}

TEST(MsgTest, ReplyCarriesTheRequestSequence) {
    uint32_t uiBits = 0xa;
    Bytes msg = Build(MTE_MSG_TYPE_DBG_ENABLE, MTE_MSG_OP_SET, MTE_ITEM_DBG_SWITCH, &uiBits, 4242);
    uint8_t aucReply[MTE_MSG_MAX_LEN] = {};
    MTE_MSG_HEAD_S stHead;
    ASSERT_EQ(Check(msg, &stHead, aucReply), MTE_OK);
    MTE_SCALAR_S stScalars = {1, 2, 3, 4, 5, 6, 7};
    uint32_t uiData =
        MTE_MSG_AppendData2Msg(MTE_ITEM_SCALARS, &stScalars, sizeof(aucReply) - 20, aucReply + 20);
    ASSERT_EQ(uiData, 8u + 28u);
    MTE_MSG_SetResponseMsgHead(MTE_ERR_INCONSISTENT, 12, uiData, aucReply);

    MTE_MSG_REPLY_S stReply;
    ASSERT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData, &stReply), MTE_OK);
    EXPECT_EQ(stReply.uiSequence, 4242u);
    EXPECT_EQ(stReply.uiResult, MTE_ERR_INCONSISTENT);
    EXPECT_EQ(stReply.uiFailedColumn, 12u);
    ASSERT_EQ(stReply.usItem, MTE_ITEM_SCALARS);
    ASSERT_EQ(stReply.uiDataSize, 28u);
    EXPECT_EQ(memcmp(stReply.pucData, &stScalars, 28), 0);

    // A request is not a reply, and a reply is not a request.
    EXPECT_EQ(MTE_MSG_ParseReply(msg.data(), msg.size(), &stReply), MTE_ERR_MSG_HEADER);
    Bytes reply(aucReply, aucReply + 20);
    Put32(reply, 16, 0);
    EXPECT_EQ(Check(reply), MTE_ERR_MSG_HEADER);
    // A request refused for its header is still answered with its sequence.
    msg[0] ^= 0xff;
    EXPECT_EQ(Check(msg, nullptr, aucReply), MTE_ERR_MSG_HEADER);
    MTE_MSG_SetResponseMsgHead(MTE_ERR_MSG_HEADER, 0xffffffff, 0, aucReply);
    ASSERT_EQ(MTE_MSG_ParseReply(aucReply, 20, &stReply), MTE_OK);
    EXPECT_EQ(stReply.uiSequence, 4242u);
    EXPECT_EQ(stReply.uiResult, MTE_ERR_MSG_HEADER);
}

// One malformed shape: a way to break a well-formed request and the code.
struct MALFORMED_S {
    const char* pszName;
    std::function<void(Bytes&)> pfBreak;
    uint32_t uiCode;
};

TEST(MsgTest, EveryMalformedShapeIsRefused) {
    MTE_TRIGGER_ROW_S stRow = SampleTrigger();
    const Bytes good = Build(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, MTE_ITEM_TRIGGER, &stRow);
    ASSERT_EQ(Check(good), MTE_OK);
    const size_t R = 28;  // record offset in the message
    const MALFORMED_S astCases[] = {
        {"empty", [](Bytes& m) { m.clear(); }, MTE_ERR_MSG_LENGTH},
        {"header cut", [](Bytes& m) { m.resize(19); }, MTE_ERR_MSG_LENGTH},
        {"bad magic", [](Bytes& m) { m[1] = 0; }, MTE_ERR_MSG_HEADER},
        {"bad version", [](Bytes& m) { m[2] = 2; }, MTE_ERR_MSG_HEADER},
        {"reply flag", [](Bytes& m) { m[3] = MTE_MSG_FLAG_REPLY; }, MTE_ERR_MSG_HEADER},
        {"unknown flag", [](Bytes& m) { m[3] = 0x80; }, MTE_ERR_MSG_HEADER},
        {"truncated record", [](Bytes& m) { m.resize(m.size() - 1); }, MTE_ERR_MSG_LENGTH},
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
    };
    for (const MALFORMED_S& stCase : astCases) {
        Bytes msg = good;
        stCase.pfBreak(msg);
        EXPECT_EQ(Check(msg), stCase.uiCode) << stCase.pszName;
    }
}

// Every string field of every record, and every OID: a zero at the field's
// last byte passes, the field filled to its end is refused;
// an OID of 128 arcs passes, 129 is refused.
TEST(MsgTest, EveryStringAndOidFieldOfEveryRecordIsChecked) {
    struct FIELD_CASE_S {
        uint16_t usItem;
        size_t uiOffset, uiSize;  // uiSize 0: OID count
    };
    const FIELD_CASE_S astFields[] = {
        {4, 0, 0},     {4, 540, 33},  {4, 573, 33},  {4, 606, 256}, {4, 862, 256},  {4, 1118, 33},
        {4, 1151, 33}, {4, 1184, 33}, {5, 4, 33},    {5, 37, 33},   {6, 12, 33},    {6, 45, 33},
        {6, 78, 33},   {6, 111, 33},  {6, 144, 33},  {6, 177, 33},  {7, 0, 33},     {7, 33, 33},
        {7, 66, 33},   {7, 99, 33},   {7, 132, 33},  {7, 165, 33},  {8, 20, 33},    {8, 53, 33},
        {8, 86, 33},   {8, 119, 33},  {8, 152, 33},  {8, 185, 33},  {8, 218, 33},   {8, 251, 33},
        {8, 284, 33},  {8, 317, 33},  {8, 350, 33},  {8, 383, 33},  {9, 0, 0},      {9, 528, 33},
        {9, 561, 33},  {10, 12, 33},  {10, 45, 33},  {11, 8, 33},   {11, 41, 33},   {11, 74, 256},
        {12, 4, 33},   {12, 37, 33},  {13, 0, 0},    {13, 516, 33}, {13, 549, 33},  {13, 582, 33},
        {13, 615, 33}, {14, 0, 0},    {14, 528, 33}, {14, 561, 33}, {14, 594, 256}, {14, 850, 33},
        {16, 0, 0},    {16, 524, 33}, {16, 557, 33},
    };
    for (const FIELD_CASE_S& stField : astFields) {
        uint32_t uiSize = MTE_MSG_ItemSize(stField.usItem);
        Bytes record(uiSize, 0);
        ASSERT_EQ(MTE_MSG_CheckRecord(stField.usItem, record.data(), uiSize), MTE_OK);
        if (stField.uiSize == 0) {
            uint32_t uiCount = 128;
            memcpy(&record[stField.uiOffset], &uiCount, 4);
            EXPECT_EQ(MTE_MSG_CheckRecord(stField.usItem, record.data(), uiSize), MTE_OK);
            uiCount = 129;
            memcpy(&record[stField.uiOffset], &uiCount, 4);
            EXPECT_EQ(MTE_MSG_CheckRecord(stField.usItem, record.data(), uiSize), MTE_ERR_MSG_OID)
                << "item " << stField.usItem << " oid at " << stField.uiOffset;
            continue;
        }
        memset(&record[stField.uiOffset], 'x', stField.uiSize - 1);
        // An index key's owner (and the objects key's name) carries its length too.
        const bool bCounted =
            stField.usItem == MTE_ITEM_OBJECTS_KEY ||
            ((stField.usItem == MTE_ITEM_TRIGGER_KEY || stField.usItem == MTE_ITEM_EVENT_KEY) &&
             stField.uiOffset == 4);
        EXPECT_EQ(MTE_MSG_CheckRecord(stField.usItem, record.data(), uiSize),
                  bCounted ? MTE_ERR_MSG_KEY : MTE_OK);
        record[stField.uiOffset + stField.uiSize - 1] = 'x';
        EXPECT_EQ(MTE_MSG_CheckRecord(stField.usItem, record.data(), uiSize), MTE_ERR_MSG_STRING)
            << "item " << stField.usItem << " field at " << stField.uiOffset;
    }
}

TEST(MsgTest, KeyLengthsMustMatchTheirStrings) {
    MTE_INDEX_KEY_S stKey = {2, "ab", "", {}};
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET_NEXT, MTE_ITEM_TRIGGER_KEY, &stKey)),
              MTE_OK);
    stKey.uiOwnerLen = 3;
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_EVENT, MTE_MSG_OP_GET_NEXT, MTE_ITEM_EVENT_KEY, &stKey)),
              MTE_ERR_MSG_KEY);
    MTE_OBJ_INDEX_KEY_S stObjKey = {0, 1, 0, "", "n", {}};
    EXPECT_EQ(
        Check(Build(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_GET_NEXT, MTE_ITEM_OBJECTS_KEY, &stObjKey)),
        MTE_OK);
    stObjKey.uiNameLen = 0;
    EXPECT_EQ(
        Check(Build(MTE_MSG_TYPE_OBJECTS, MTE_MSG_OP_GET_NEXT, MTE_ITEM_OBJECTS_KEY, &stObjKey)),
        MTE_ERR_MSG_KEY);
}

TEST(MsgTest, ItemsAcceptedPerTypeAndOperation) {
    uint32_t uiValue = 5;
    // Scalar setters ignore the operation.
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_SAMPLE_MIN, MTE_MSG_OP_GET, MTE_ITEM_SAMPLE_MIN, &uiValue)),
              MTE_OK);
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_SAMPLE_MIN, 9, MTE_ITEM_INSTANCE_MAX, &uiValue)),
              MTE_ERR_MSG_ITEM);
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, MTE_ITEM_SAMPLE_MIN, &uiValue)),
              MTE_ERR_MSG_ITEM);
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET, 0, nullptr)), MTE_OK);
    // No item at all is always well formed: the handler works on zeros.
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET, 0, nullptr)), MTE_OK);
    // Types the dispatcher refuses itself pass the check with any known item.
    EXPECT_EQ(Check(Build(0, 1, MTE_ITEM_SAMPLE_MIN, &uiValue)), MTE_OK);
    EXPECT_EQ(Check(Build(17, 1, MTE_ITEM_SAMPLE_MIN, &uiValue)), MTE_OK);
    // Unknown operation of a table: either of its items.
    MTE_INDEX_KEY_S stKey = {};
    EXPECT_EQ(Check(Build(MTE_MSG_TYPE_NOTIFY, 7, MTE_ITEM_EVENT_KEY, &stKey)), MTE_OK);
}

TEST(MsgTest, AppendRespectsTheRoom) {
    MTE_TRIGGER_ROW_S stRow = SampleTrigger();
    uint8_t aucOut[1228];
    EXPECT_EQ(MTE_MSG_AppendData2Msg(MTE_ITEM_TRIGGER, &stRow, 1227, aucOut), 0u);
    EXPECT_EQ(MTE_MSG_AppendData2Msg(MTE_ITEM_TRIGGER, &stRow, 1228, aucOut), 1228u);
    EXPECT_EQ(MTE_MSG_AppendData2Msg(0, &stRow, 1228, aucOut), 0u);
    EXPECT_EQ(MTE_MSG_BuildRequest(1, 4, 1, 0, MTE_ITEM_TRIGGER, &stRow, aucOut, 1227), 0u);
}

TEST(MsgTest, ParseReplyRefusesMalformedReplies) {
    uint8_t aucReply[64] = {};
    MTE_MSG_CheckMsg(nullptr, 0, nullptr, aucReply);
    uint32_t uiBits = 3;
    uint32_t uiData = MTE_MSG_AppendData2Msg(MTE_ITEM_DBG_SWITCH, &uiBits, 44, aucReply + 20);
    MTE_MSG_SetResponseMsgHead(0, 0xffffffff, uiData, aucReply);
    MTE_MSG_REPLY_S stReply;
    ASSERT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData, &stReply), MTE_OK);
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData - 1, &stReply), MTE_ERR_MSG_LENGTH);
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, 19, &stReply), MTE_ERR_MSG_LENGTH);
    aucReply[24] = 5;  // record length 5 for a 4-byte item
    MTE_MSG_SetResponseMsgHead(0, 0xffffffff, uiData + 1, aucReply);
    EXPECT_EQ(MTE_MSG_ParseReply(aucReply, 20 + uiData + 1, &stReply), MTE_ERR_MSG_ITEM_SIZE);
}

TEST(MsgTest, OidHelpers) {
    MTE_OID_S stA = {4, {1, 3, 6, 1}}, stB = stA;
    EXPECT_EQ(MTE_MSG_IsSameOID(&stA, &stB), 1u);
    stB.uiLen = 5;
    EXPECT_EQ(MTE_MSG_IsSameOID(&stA, &stB), 0u);
    stB = {4, {1, 3, 6, 2}};
    EXPECT_EQ(MTE_MSG_IsSameOID(&stA, &stB), 0u);
    char szOut[16];
    MTE_MSG_Oid2Str(&stA, sizeof(szOut), szOut);
    EXPECT_STREQ(szOut, "1.3.6.1");
    MTE_MSG_Oid2Str(&stA, 5, szOut);
    EXPECT_STREQ(szOut, "1.3.");
    stA.uiLen = 0;
    MTE_MSG_Oid2Str(&stA, sizeof(szOut), szOut);
    EXPECT_STREQ(szOut, "");
}

}  // namespace
