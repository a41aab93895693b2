// Management message library: encodes and checks the messages that the
// daemon and its clients (the AgentX bridge, eventmibctl, tests) exchange on
// the management socket. Pure functions of their buffers: no state, no locks,
// callable from any thread. Every multi-byte word is in host byte order and
// is read and written with memcpy, so no buffer needs any alignment.
//
// A message is a 20-byte header followed by at most one item (u16 item
// number, u16 zero, u32 record length, the record). The check refuses
// anything the handlers could misread: lengths that disagree, unknown or
// misplaced items, records of the wrong size, OID counts above 128 and
// strings that run past their fixed field. docs/management-protocol.md is the
// byte-by-byte description.
#include "mte_msg.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "mte_catalogue.h"

namespace {

// Header offsets shared by requests and replies.
constexpr uint32_t OFF_MAGIC = 0;
constexpr uint32_t OFF_VERSION = 2;
constexpr uint32_t OFF_FLAGS = 3;
constexpr uint32_t OFF_SEQUENCE = 4;
// Request words.
constexpr uint32_t OFF_REQ_MASK = 8;
constexpr uint32_t OFF_REQ_DATA_LEN = 12;
constexpr uint32_t OFF_REQ_TYPE = 16;
constexpr uint32_t OFF_REQ_OPERATION = 18;
// Reply words.
constexpr uint32_t OFF_REP_RESULT = 8;
constexpr uint32_t OFF_REP_FAILED_COLUMN = 12;
constexpr uint32_t OFF_REP_DATA_LEN = 16;

template <typename T>
T GetWord(const uint8_t* pucBuf, uint32_t uiOffset) {
    T value;
    memcpy(&value, pucBuf + uiOffset, sizeof(T));
    return value;
}

template <typename T>
void PutWord(uint8_t* pucBuf, uint32_t uiOffset, T value) {
    memcpy(pucBuf + uiOffset, &value, sizeof(T));
}

// The strings of the two index keys; the row records' strings and OIDs are
// read from the catalogue.
struct FIELD_S {
    uint16_t usOffset;
    uint16_t usSize;
};
constexpr FIELD_S g_astKeyFields[] = {
    {offsetof(MTE_INDEX_KEY_S, szOwner), MTE_NAME_SIZE},
    {offsetof(MTE_INDEX_KEY_S, szName), MTE_NAME_SIZE},
};
constexpr FIELD_S g_astObjKeyFields[] = {
    {offsetof(MTE_OBJ_INDEX_KEY_S, szOwner), MTE_NAME_SIZE},
    {offsetof(MTE_OBJ_INDEX_KEY_S, szName), MTE_NAME_SIZE},
};

// The position of the table whose row the item carries, or MTE_CAT_NONE.
constexpr size_t TableIndexOfRowItem(uint16_t usItem) {
    for (size_t i = 0; i < MTE_CAT_TABLE_COUNT; ++i) {
        if (g_astMteCatalogue[i].usRowItem == usItem) {
            return i;
        }
    }
    return MTE_CAT_NONE;
}

constexpr uint32_t ItemSizeOf(uint16_t usItem) {
    switch (usItem) {
        case MTE_ITEM_SCALARS:
            return sizeof(MTE_SCALAR_S);
        case MTE_ITEM_SAMPLE_MIN:
        case MTE_ITEM_INSTANCE_MAX:
        case MTE_ITEM_DBG_SWITCH:
            return sizeof(uint32_t);
        case MTE_ITEM_TRIGGER_KEY:
        case MTE_ITEM_EVENT_KEY:
            return sizeof(MTE_INDEX_KEY_S);
        case MTE_ITEM_OBJECTS_KEY:
            return sizeof(MTE_OBJ_INDEX_KEY_S);
        case MTE_ITEM_ENGINE_COUNTERS:
            return sizeof(MTE_ENGINE_COUNTERS_S);
        default:
            return TableIndexOfRowItem(usItem) != MTE_CAT_NONE
                       ? g_astMteCatalogue[TableIndexOfRowItem(usItem)].uiRowSize
                       : 0;
    }
}

// Indexed by item number; slot 0 is no item.
constexpr auto g_auiItemSizes = [] {
    std::array<uint32_t, MTE_MSG_ITEM_COUNT + 1> auiSizes{};
    for (uint16_t usItem = 1; usItem <= MTE_MSG_ITEM_COUNT; ++usItem) {
        auiSizes[usItem] = ItemSizeOf(usItem);
    }
    return auiSizes;
}();
constexpr bool EveryItemHasASize() {
    for (uint16_t usItem = 1; usItem <= MTE_MSG_ITEM_COUNT; ++usItem) {
        if (g_auiItemSizes[usItem] == 0) {
            return false;
        }
    }
    return true;
}
static_assert(EveryItemHasASize());
static_assert(g_auiItemSizes[MTE_ITEM_TRIGGER] == 1220);
static_assert(g_auiItemSizes[MTE_ITEM_EXISTENCE] == 200);
static_assert(g_auiItemSizes[MTE_ITEM_OBJECTS_KEY] == 80);
static_assert(g_auiItemSizes[MTE_ITEM_SET] == 884);

// The item a request of each type may carry: the row item for set and get,
// the key item for get-next. 0: the type carries no item.
struct TYPE_ITEMS_S {
    uint16_t usRowItem;
    uint16_t usKeyItem;
};
constexpr TYPE_ITEMS_S TypeItemsOf(uint16_t usType) {
    switch (usType) {
        case MTE_MSG_TYPE_SAMPLE_MIN:
            return {MTE_ITEM_SAMPLE_MIN, 0};
        case MTE_MSG_TYPE_INSTANCE_MAX:
            return {MTE_ITEM_INSTANCE_MAX, 0};
        case MTE_MSG_TYPE_DBG_ENABLE:
        case MTE_MSG_TYPE_DBG_DISABLE:
            return {MTE_ITEM_DBG_SWITCH, 0};
        default: {
            size_t uiTable = MTE_CAT_IndexOfType(usType);
            if (uiTable == MTE_CAT_NONE) {
                return TYPE_ITEMS_S{0, 0};
            }
            return TYPE_ITEMS_S{g_astMteCatalogue[uiTable].usRowItem,
                                g_astMteCatalogue[uiTable].usKeyItem};
        }
    }
}
constexpr auto g_astTypeItems = [] {
    std::array<TYPE_ITEMS_S, MTE_MSG_TYPE_COUNT> astItems{};
    for (uint16_t usType = 0; usType < MTE_MSG_TYPE_COUNT; ++usType) {
        astItems[usType] = TypeItemsOf(usType);
    }
    return astItems;
}();

// Whether a request of that type and operation may carry the item. Types
// outside 1..15 are refused later by the dispatcher with its own code, so
// here any known item passes for them.
bool ItemFitsType(uint16_t usType, uint16_t usOperation, uint16_t usItem) {
    if (usType == 0 || usType >= MTE_MSG_TYPE_COUNT) {
        return true;
    }
    const TYPE_ITEMS_S& stItems = g_astTypeItems[usType];
    if (stItems.usKeyItem == 0) {
        // Scalars and debug switch: the operation is not looked at.
        return usItem == stItems.usRowItem;
    }
    if (usOperation == MTE_MSG_OP_GET_NEXT) {
        return usItem == stItems.usKeyItem;
    }
    if (usOperation == MTE_MSG_OP_SET || usOperation == MTE_MSG_OP_GET) {
        return usItem == stItems.usRowItem;
    }
    return usItem == stItems.usRowItem || usItem == stItems.usKeyItem;
}

bool StringTerminated(const uint8_t* pucField, uint32_t uiSize) {
    return memchr(pucField, 0, uiSize) != nullptr;
}

size_t FieldLength(const uint8_t* pucRecord, size_t uiOffset) {
    return strlen(reinterpret_cast<const char*>(pucRecord + uiOffset));
}

// Every OID count first, then every string: a record with both faults is
// refused for its OID.
uint32_t CheckRowFields(const MTE_CAT_TABLE_S& stTable, const uint8_t* pucRecord) {
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        const MTE_CAT_COLUMN_S& stColumn = stTable.pstColumns[i];
        if (stColumn.eKind == MTE_CAT_KIND_E::OID &&
            GetWord<uint32_t>(pucRecord, stColumn.usOffset) > MTE_OID_MAX_LEN) {
            return MTE_ERR_MSG_OID;
        }
    }
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        const MTE_CAT_COLUMN_S& stColumn = stTable.pstColumns[i];
        if (MTE_CAT_IsString(stColumn.eKind) &&
            !StringTerminated(pucRecord + stColumn.usOffset, stColumn.usSize)) {
            return MTE_ERR_MSG_STRING;
        }
    }
    return MTE_OK;
}

uint32_t CheckKeyFields(uint16_t usItem, const uint8_t* pucRecord) {
    if (usItem == MTE_ITEM_TRIGGER_KEY || usItem == MTE_ITEM_EVENT_KEY ||
        usItem == MTE_ITEM_OBJECTS_KEY) {
        const FIELD_S* pstFields =
            usItem == MTE_ITEM_OBJECTS_KEY ? g_astObjKeyFields : g_astKeyFields;
        for (size_t i = 0; i < 2; i++) {
            if (!StringTerminated(pucRecord + pstFields[i].usOffset, pstFields[i].usSize)) {
                return MTE_ERR_MSG_STRING;
            }
        }
    }
    return MTE_OK;
}

// The strings of a key are known to be terminated when this runs.
bool KeyLengthsAgree(uint16_t usItem, const uint8_t* pucRecord) {
    if (usItem == MTE_ITEM_TRIGGER_KEY || usItem == MTE_ITEM_EVENT_KEY) {
        return GetWord<uint32_t>(pucRecord, offsetof(MTE_INDEX_KEY_S, uiOwnerLen)) ==
               FieldLength(pucRecord, offsetof(MTE_INDEX_KEY_S, szOwner));
    }
    if (usItem == MTE_ITEM_OBJECTS_KEY) {
        return GetWord<uint32_t>(pucRecord, offsetof(MTE_OBJ_INDEX_KEY_S, uiOwnerLen)) ==
                   FieldLength(pucRecord, offsetof(MTE_OBJ_INDEX_KEY_S, szOwner)) &&
               GetWord<uint32_t>(pucRecord, offsetof(MTE_OBJ_INDEX_KEY_S, uiNameLen)) ==
                   FieldLength(pucRecord, offsetof(MTE_OBJ_INDEX_KEY_S, szName));
    }
    return true;
}

// Checks the data area: empty, or exactly one item that the predicate
// accepts, of its fixed size, with a sound record. On success *pusItem and
// *puiRecordOff say where the record is (item 0 when there is none).
template <typename ACCEPT_PF>
uint32_t CheckData(const uint8_t* pucData, uint32_t uiDataLen, ACCEPT_PF pfAccept,
                   uint16_t* pusItem, uint32_t* puiRecordOff) {
    *pusItem = 0;
    *puiRecordOff = 0;
    if (uiDataLen == 0) {
        return MTE_OK;
    }
    if (uiDataLen < MTE_MSG_ITEM_HEAD_SIZE) {
        return MTE_ERR_MSG_LENGTH;
    }
    uint16_t usItem = GetWord<uint16_t>(pucData, 0);
    uint16_t usZero = GetWord<uint16_t>(pucData, 2);
    uint32_t uiRecordLen = GetWord<uint32_t>(pucData, 4);
    if (MTE_MSG_ItemSize(usItem) == 0 || usZero != 0 || !pfAccept(usItem)) {
        return MTE_ERR_MSG_ITEM;
    }
    if (uiRecordLen > uiDataLen - MTE_MSG_ITEM_HEAD_SIZE) {
        return MTE_ERR_MSG_LENGTH;  // the record is cut short
    }
    if (uiRecordLen != MTE_MSG_ItemSize(usItem)) {
        return MTE_ERR_MSG_ITEM_SIZE;
    }
    if (uiDataLen != MTE_MSG_ITEM_HEAD_SIZE + uiRecordLen) {
        return MTE_ERR_MSG_LENGTH;  // bytes after the one item
    }
    uint32_t uiResult = MTE_MSG_CheckRecord(usItem, pucData + MTE_MSG_ITEM_HEAD_SIZE, uiRecordLen);
    if (uiResult != MTE_OK) {
        return uiResult;
    }
    *pusItem = usItem;
    *puiRecordOff = MTE_MSG_ITEM_HEAD_SIZE;
    return MTE_OK;
}

void PutMatchingWords(uint8_t* pucReply, uint32_t uiSequence) {
    PutWord<uint16_t>(pucReply, OFF_MAGIC, MTE_MSG_MAGIC);
    PutWord<uint8_t>(pucReply, OFF_VERSION, MTE_MSG_VERSION);
    PutWord<uint8_t>(pucReply, OFF_FLAGS, MTE_MSG_FLAG_REPLY);
    PutWord<uint32_t>(pucReply, OFF_SEQUENCE, uiSequence);
}

struct RESULT_NAME_S {
    uint32_t uiCode;
    const char* pszName;
};

constexpr RESULT_NAME_S g_astResultNames[] = {
    {MTE_OK, "MTE_OK"},
    {MTE_ERR_GENERAL, "MTE_ERR_GENERAL"},
    {MTE_ERR_NO_SUCH_ROW, "MTE_ERR_NO_SUCH_ROW"},
    {MTE_ERR_ROW_EXISTS, "MTE_ERR_ROW_EXISTS"},
    {MTE_ERR_NO_CHANGE, "MTE_ERR_NO_CHANGE"},
    {MTE_ERR_MEMORY_PRESSURE, "MTE_ERR_MEMORY_PRESSURE"},
    {MTE_ERR_INCONSISTENT, "MTE_ERR_INCONSISTENT"},
    {MTE_ERR_REPLY_TOO_SMALL, "MTE_ERR_REPLY_TOO_SMALL"},
    {MTE_ERR_NEXT_TOO_BIG, "MTE_ERR_NEXT_TOO_BIG"},
    {MTE_ERR_TABLE_EMPTY, "MTE_ERR_TABLE_EMPTY"},
    {MTE_ERR_MSG_HEADER, "MTE_ERR_MSG_HEADER"},
    {MTE_ERR_MSG_LENGTH, "MTE_ERR_MSG_LENGTH"},
    {MTE_ERR_MSG_ITEM, "MTE_ERR_MSG_ITEM"},
    {MTE_ERR_MSG_ITEM_SIZE, "MTE_ERR_MSG_ITEM_SIZE"},
    {MTE_ERR_MSG_STRING, "MTE_ERR_MSG_STRING"},
    {MTE_ERR_MSG_OID, "MTE_ERR_MSG_OID"},
    {MTE_ERR_MSG_KEY, "MTE_ERR_MSG_KEY"},
    {MTE_ERR_MSG_EXPIRED, "MTE_ERR_MSG_EXPIRED"},
};

}  // namespace

uint32_t MTE_MSG_ItemSize(uint16_t usItem) {
    if (usItem == 0 || usItem > MTE_MSG_ITEM_COUNT) {
        return 0;
    }
    return g_auiItemSizes[usItem];
}

uint32_t MTE_MSG_CheckRecord(uint16_t usItem, const uint8_t* pucRecord, uint32_t uiLen) {
    uint32_t uiSize = MTE_MSG_ItemSize(usItem);
    if (uiSize == 0) {
        return MTE_ERR_MSG_ITEM;
    }
    if (pucRecord == nullptr || uiLen != uiSize) {
        return MTE_ERR_MSG_ITEM_SIZE;
    }
    size_t uiTable = TableIndexOfRowItem(usItem);
    const MTE_CAT_TABLE_S* pstTable =
        uiTable != MTE_CAT_NONE ? &g_astMteCatalogue[uiTable] : nullptr;
    uint32_t uiResult = pstTable != nullptr ? CheckRowFields(*pstTable, pucRecord)
                                            : CheckKeyFields(usItem, pucRecord);
    if (uiResult != MTE_OK) {
        return uiResult;
    }
    return KeyLengthsAgree(usItem, pucRecord) ? MTE_OK : MTE_ERR_MSG_KEY;
}

uint32_t MTE_MSG_CheckMsg(const uint8_t* pucMsg, uint32_t uiLen, MTE_MSG_HEAD_S* pstHead,
                          uint8_t* pucReply) {
    // The reply is matched by its sequence number even when the request is
    // refused, so it is copied before anything else is looked at.
    uint32_t uiSequence = 0;
    if (pucMsg != nullptr && uiLen >= OFF_SEQUENCE + sizeof(uint32_t)) {
        uiSequence = GetWord<uint32_t>(pucMsg, OFF_SEQUENCE);
    }
    if (pucReply != nullptr) {
        memset(pucReply, 0, MTE_MSG_HEAD_SIZE);
        PutMatchingWords(pucReply, uiSequence);
    }
    if (pstHead != nullptr) {
        memset(pstHead, 0, sizeof(*pstHead));
    }
    if (pucMsg == nullptr || uiLen < MTE_MSG_HEAD_SIZE) {
        return MTE_ERR_MSG_LENGTH;
    }
    if (GetWord<uint16_t>(pucMsg, OFF_MAGIC) != MTE_MSG_MAGIC ||
        GetWord<uint8_t>(pucMsg, OFF_VERSION) != MTE_MSG_VERSION ||
        GetWord<uint8_t>(pucMsg, OFF_FLAGS) != 0) {
        return MTE_ERR_MSG_HEADER;
    }
    uint32_t uiDataLen = GetWord<uint32_t>(pucMsg, OFF_REQ_DATA_LEN);
    if (uiDataLen != uiLen - MTE_MSG_HEAD_SIZE) {
        return MTE_ERR_MSG_LENGTH;
    }
    uint16_t usType = GetWord<uint16_t>(pucMsg, OFF_REQ_TYPE);
    uint16_t usOperation = GetWord<uint16_t>(pucMsg, OFF_REQ_OPERATION);
    uint16_t usItem;
    uint32_t uiRecordOff;
    uint32_t uiResult = CheckData(
        pucMsg + MTE_MSG_HEAD_SIZE, uiDataLen,
        [&](uint16_t usCandidate) { return ItemFitsType(usType, usOperation, usCandidate); },
        &usItem, &uiRecordOff);
    if (uiResult != MTE_OK) {
        return uiResult;
    }
    if (pstHead != nullptr) {
        memcpy(pstHead, pucMsg, MTE_MSG_HEAD_SIZE);
    }
    return MTE_OK;
}

uint32_t MTE_MSG_GetDataFromMsg(uint16_t usItem, uint32_t uiDataLen, uint32_t uiSize,
                                const uint8_t* pucData, void* pOut) {
    // Bounds are checked again: a caller may hand in data that never went
    // through the check.
    uint32_t uiPos = 0;
    while (pucData != nullptr && uiPos < uiDataLen && uiDataLen - uiPos >= MTE_MSG_ITEM_HEAD_SIZE) {
        uint16_t usFound = GetWord<uint16_t>(pucData, uiPos);
        uint32_t uiRecordLen = GetWord<uint32_t>(pucData, uiPos + 4);
        uint32_t uiRest = uiDataLen - uiPos - MTE_MSG_ITEM_HEAD_SIZE;
        if (uiRecordLen > uiRest) {
            break;
        }
        if (usFound == usItem) {
            memcpy(pOut, pucData + uiPos + MTE_MSG_ITEM_HEAD_SIZE,
                   uiRecordLen < uiSize ? uiRecordLen : uiSize);
            return MTE_OK;
        }
        uiPos += MTE_MSG_ITEM_HEAD_SIZE + uiRecordLen;
    }
    return MTE_ERR_GENERAL;
}

uint32_t MTE_MSG_AppendData2Msg(uint16_t usItem, const void* pValue, uint32_t uiRoom,
                                uint8_t* pucOut) {
    uint32_t uiSize = MTE_MSG_ItemSize(usItem);
    if (uiSize == 0 || pValue == nullptr || pucOut == nullptr ||
        uiRoom < MTE_MSG_ITEM_HEAD_SIZE + uiSize) {
        return 0;
    }
    PutWord<uint16_t>(pucOut, 0, usItem);
    PutWord<uint16_t>(pucOut, 2, 0);
    PutWord<uint32_t>(pucOut, 4, uiSize);
    memcpy(pucOut + MTE_MSG_ITEM_HEAD_SIZE, pValue, uiSize);
    return MTE_MSG_ITEM_HEAD_SIZE + uiSize;
}

void MTE_MSG_SetResponseMsgHead(uint32_t uiResult, uint32_t uiFailedColumn, uint32_t uiDataLen,
                                uint8_t* pucReply) {
    if (pucReply == nullptr) {
        return;
    }
    PutMatchingWords(pucReply, GetWord<uint32_t>(pucReply, OFF_SEQUENCE));
    PutWord<uint32_t>(pucReply, OFF_REP_RESULT, uiResult);
    PutWord<uint32_t>(pucReply, OFF_REP_FAILED_COLUMN, uiFailedColumn);
    PutWord<uint32_t>(pucReply, OFF_REP_DATA_LEN, uiDataLen);
}

uint32_t MTE_MSG_IsSameOID(const MTE_OID_S* pstA, const MTE_OID_S* pstB) {
    if (pstA->uiLen != pstB->uiLen) {
        return 0;
    }
    uint32_t uiLen = pstA->uiLen < MTE_OID_MAX_LEN ? pstA->uiLen : MTE_OID_MAX_LEN;
    for (uint32_t i = 0; i < uiLen; i++) {
        if (pstA->auiOid[i] != pstB->auiOid[i]) {
            return 0;
        }
    }
    return 1;
}

void MTE_MSG_Oid2Str(const MTE_OID_S* pstOid, uint32_t uiSize, char* pszOut) {
    if (pszOut == nullptr || uiSize == 0) {
        return;
    }
    pszOut[0] = '\0';
    uint32_t uiLen = pstOid->uiLen < MTE_OID_MAX_LEN ? pstOid->uiLen : MTE_OID_MAX_LEN;
    size_t uiUsed = 0;
    for (uint32_t i = 0; i < uiLen && uiUsed + 1 < uiSize; i++) {
        int iWritten =
            snprintf(pszOut + uiUsed, uiSize - uiUsed, i == 0 ? "%u" : ".%u", pstOid->auiOid[i]);
        if (iWritten < 0) {
            break;
        }
        uiUsed += static_cast<size_t>(iWritten);
    }
}

uint32_t MTE_MSG_BuildRequest(uint32_t uiSequence, uint16_t usMsgType, uint16_t usOperation,
                              uint32_t uiColumnMask, uint16_t usItem, const void* pValue,
                              uint8_t* pucOut, uint32_t uiCapacity) {
    if (pucOut == nullptr || uiCapacity < MTE_MSG_HEAD_SIZE) {
        return 0;
    }
    uint32_t uiDataLen = 0;
    if (usItem != 0) {
        uiDataLen = MTE_MSG_AppendData2Msg(usItem, pValue, uiCapacity - MTE_MSG_HEAD_SIZE,
                                           pucOut + MTE_MSG_HEAD_SIZE);
        if (uiDataLen == 0) {
            return 0;
        }
    }
    PutWord<uint16_t>(pucOut, OFF_MAGIC, MTE_MSG_MAGIC);
    PutWord<uint8_t>(pucOut, OFF_VERSION, MTE_MSG_VERSION);
    PutWord<uint8_t>(pucOut, OFF_FLAGS, 0);
    PutWord<uint32_t>(pucOut, OFF_SEQUENCE, uiSequence);
    PutWord<uint32_t>(pucOut, OFF_REQ_MASK, uiColumnMask);
    PutWord<uint32_t>(pucOut, OFF_REQ_DATA_LEN, uiDataLen);
    PutWord<uint16_t>(pucOut, OFF_REQ_TYPE, usMsgType);
    PutWord<uint16_t>(pucOut, OFF_REQ_OPERATION, usOperation);
    return MTE_MSG_HEAD_SIZE + uiDataLen;
}

uint32_t MTE_MSG_AddExpiry(uint64_t ullDeadlineNs, uint8_t* pucMsg, uint32_t uiLen,
                           uint32_t uiCapacity) {
    if (pucMsg == nullptr || uiLen < MTE_MSG_HEAD_SIZE ||
        uiLen + MTE_MSG_EXPIRY_SIZE > std::min(uiCapacity, MTE_MSG_MAX_LEN)) {
        return 0;
    }
    PutWord<uint8_t>(pucMsg, OFF_FLAGS, GetWord<uint8_t>(pucMsg, OFF_FLAGS) | MTE_MSG_FLAG_EXPIRY);
    PutWord<uint64_t>(pucMsg, uiLen, ullDeadlineNs);
    return uiLen + MTE_MSG_EXPIRY_SIZE;
}

bool MTE_MSG_TakeExpiry(uint8_t* pucMsg, uint32_t* puiLen, uint64_t* pullDeadlineNs) {
    uint32_t uiLen = *puiLen;
    if (pucMsg == nullptr || uiLen < MTE_MSG_HEAD_SIZE + MTE_MSG_EXPIRY_SIZE) {
        return false;
    }
    uint8_t ucFlags = GetWord<uint8_t>(pucMsg, OFF_FLAGS);
    uint32_t uiPlainLen = uiLen - MTE_MSG_EXPIRY_SIZE;
    if ((ucFlags & MTE_MSG_FLAG_EXPIRY) == 0 ||
        GetWord<uint32_t>(pucMsg, OFF_REQ_DATA_LEN) != uiPlainLen - MTE_MSG_HEAD_SIZE) {
        return false;
    }
    *pullDeadlineNs = GetWord<uint64_t>(pucMsg, uiPlainLen);
    PutWord<uint8_t>(pucMsg, OFF_FLAGS, static_cast<uint8_t>(ucFlags & ~MTE_MSG_FLAG_EXPIRY));
    *puiLen = uiPlainLen;
    return true;
}

uint32_t MTE_MSG_ParseReply(const uint8_t* pucMsg, uint32_t uiLen, MTE_MSG_REPLY_S* pstReply) {
    memset(pstReply, 0, sizeof(*pstReply));
    if (pucMsg == nullptr || uiLen < MTE_MSG_HEAD_SIZE) {
        return MTE_ERR_MSG_LENGTH;
    }
    if (GetWord<uint16_t>(pucMsg, OFF_MAGIC) != MTE_MSG_MAGIC ||
        GetWord<uint8_t>(pucMsg, OFF_VERSION) != MTE_MSG_VERSION ||
        GetWord<uint8_t>(pucMsg, OFF_FLAGS) != MTE_MSG_FLAG_REPLY) {
        return MTE_ERR_MSG_HEADER;
    }
    pstReply->uiSequence = GetWord<uint32_t>(pucMsg, OFF_SEQUENCE);
    uint32_t uiDataLen = GetWord<uint32_t>(pucMsg, OFF_REP_DATA_LEN);
    if (uiDataLen != uiLen - MTE_MSG_HEAD_SIZE) {
        return MTE_ERR_MSG_LENGTH;
    }
    uint16_t usItem;
    uint32_t uiRecordOff;
    uint32_t uiResult = CheckData(
        pucMsg + MTE_MSG_HEAD_SIZE, uiDataLen, [](uint16_t) { return true; }, &usItem,
        &uiRecordOff);
    if (uiResult != MTE_OK) {
        return uiResult;
    }
    pstReply->uiResult = GetWord<uint32_t>(pucMsg, OFF_REP_RESULT);
    pstReply->uiFailedColumn = GetWord<uint32_t>(pucMsg, OFF_REP_FAILED_COLUMN);
    pstReply->usItem = usItem;
    if (usItem != 0) {
        pstReply->pucData = pucMsg + MTE_MSG_HEAD_SIZE + uiRecordOff;
        pstReply->uiDataSize = MTE_MSG_ItemSize(usItem);
    }
    return MTE_OK;
}

const char* MTE_MSG_ResultName(uint32_t uiCode) {
    for (const RESULT_NAME_S& stName : g_astResultNames) {
        if (stName.uiCode == uiCode) {
            return stName.pszName;
        }
    }
    return "UNKNOWN";
}
