// Message library: round trips, reply matching and every malformed shape the
// check must refuse with its code; and the OID and string helpers of the
// tables.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

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

TEST(OidTest, StrCopyIsBoundedAndTerminated) {
    char szField[5];
    memset(szField, 'x', sizeof(szField));
    mte_StrCopy(szField, "abcdefgh", sizeof(szField));
    EXPECT_STREQ(szField, "abcd");
    mte_StrCopy(szField, "ab", sizeof(szField));
    EXPECT_STREQ(szField, "ab");
}

}  // namespace
