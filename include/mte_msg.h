// Management message library, shared by the daemon and every client
// (eventmibctl, eventmib-agentx). Pure functions of their buffers.
// docs/management-protocol.md describes the wire format byte by byte.
#ifndef MTE_MSG_H
#define MTE_MSG_H

#include <cstddef>
#include <cstdint>

#include "mte_types.h"

constexpr uint32_t MTE_MSG_HEAD_SIZE = 20;
constexpr uint32_t MTE_MSG_ITEM_COUNT = 17;  // items 1..17

// Message types (handler table slots 1..16).
enum : uint16_t {
    MTE_MSG_TYPE_SCALARS = 1,
    MTE_MSG_TYPE_SAMPLE_MIN = 2,
    MTE_MSG_TYPE_INSTANCE_MAX = 3,
    MTE_MSG_TYPE_TRIGGER = 4,
    MTE_MSG_TYPE_BOOLEAN = 5,
    MTE_MSG_TYPE_EXISTENCE = 6,
    MTE_MSG_TYPE_THRESHOLD = 7,
    MTE_MSG_TYPE_OBJECTS = 8,
    MTE_MSG_TYPE_EVENT = 9,
    MTE_MSG_TYPE_NOTIFY = 10,
    MTE_MSG_TYPE_SET = 11,
    MTE_MSG_TYPE_DBG_ENABLE = 12,
    MTE_MSG_TYPE_DBG_DISABLE = 13,
    MTE_MSG_TYPE_DBG_GET = 14,
    MTE_MSG_TYPE_DELTA = 15,            // an addition: mteTriggerDeltaTable
    MTE_MSG_TYPE_ENGINE_COUNTERS = 16,  // an addition: the engine's counters (get only)
    MTE_MSG_TYPE_COUNT = 17,            // slots in the handler table, slot 0 empty
};

// Operations.
enum : uint16_t {
    MTE_MSG_OP_SET = 1,
    MTE_MSG_OP_GET = 2,
    MTE_MSG_OP_GET_NEXT = 3,
};

// Data items.
enum : uint16_t {
    MTE_ITEM_SCALARS = 1,
    MTE_ITEM_SAMPLE_MIN = 2,
    MTE_ITEM_INSTANCE_MAX = 3,
    MTE_ITEM_TRIGGER = 4,
    MTE_ITEM_TRIGGER_KEY = 5,
    MTE_ITEM_BOOLEAN = 6,
    MTE_ITEM_EXISTENCE = 7,
    MTE_ITEM_THRESHOLD = 8,
    MTE_ITEM_OBJECTS = 9,
    MTE_ITEM_OBJECTS_KEY = 10,
    MTE_ITEM_EVENT = 11,
    MTE_ITEM_EVENT_KEY = 12,
    MTE_ITEM_NOTIFY = 13,
    MTE_ITEM_SET = 14,
    MTE_ITEM_DBG_SWITCH = 15,
    MTE_ITEM_DELTA = 16,            // an addition: the delta row (docs/management-protocol.md)
    MTE_ITEM_ENGINE_COUNTERS = 17,  // an addition: reply to type 16
};

// Wire constants of the 20-byte header (docs/management-protocol.md).
constexpr uint16_t MTE_MSG_MAGIC = 0x4D45;  // bytes 0x45 0x4D, "EM"
constexpr uint8_t MTE_MSG_VERSION = 1;
constexpr uint8_t MTE_MSG_FLAG_REPLY = 0x01;    // set in every reply, clear in every request
constexpr uint32_t MTE_MSG_ITEM_HEAD_SIZE = 8;  // u16 item, u16 zero, u32 record length
constexpr uint32_t MTE_MSG_MAX_LEN = 5120;      // largest request or reply

// Codes of the message check (malformed messages).
constexpr uint32_t MTE_ERR_MSG_HEADER = 0x40010020;     // bad magic, version or flags
constexpr uint32_t MTE_ERR_MSG_LENGTH = 0x40010021;     // lengths disagree or are truncated
constexpr uint32_t MTE_ERR_MSG_ITEM = 0x40010022;       // unknown item, or not one the type carries
constexpr uint32_t MTE_ERR_MSG_ITEM_SIZE = 0x40010023;  // item of the wrong size
constexpr uint32_t MTE_ERR_MSG_STRING = 0x40010024;     // string field without its terminating zero
constexpr uint32_t MTE_ERR_MSG_OID = 0x40010025;        // OID count above 128
constexpr uint32_t MTE_ERR_MSG_KEY = 0x40010026;  // index key length disagrees with its string

// Request extension "expiry" (docs/management-protocol.md, section 10): with
// this flag bit the request carries, after its data, a u64 CLOCK_MONOTONIC
// time in nanoseconds after which it must not be carried out any more. A
// client that gives up on a request it has sent (and has told its own caller
// so) states this, so the daemon never applies the request afterwards.
constexpr uint8_t MTE_MSG_FLAG_EXPIRY = 0x02;
constexpr uint32_t MTE_MSG_EXPIRY_SIZE = 8;
// The reply to a request read after its expiry: refused, nothing done.
constexpr uint32_t MTE_ERR_MSG_EXPIRED = 0x40010027;

// The request header as the check decodes it for the handlers.
struct MTE_MSG_HEAD_S {
    // Matching words, copied into the reply by the check; the handlers ignore them.
    uint16_t usMagic;
    uint8_t ucVersion;
    uint8_t ucFlags;
    uint32_t uiSequence;
    uint32_t uiColumnMask;
    uint32_t uiDataLen;
    uint16_t usMsgType;
    uint16_t usOperation;
};
static_assert(sizeof(MTE_MSG_HEAD_S) == 20);
static_assert(offsetof(MTE_MSG_HEAD_S, uiSequence) == 4);
static_assert(offsetof(MTE_MSG_HEAD_S, uiColumnMask) == 8);
static_assert(offsetof(MTE_MSG_HEAD_S, uiDataLen) == 12);
static_assert(offsetof(MTE_MSG_HEAD_S, usMsgType) == 16);
static_assert(offsetof(MTE_MSG_HEAD_S, usOperation) == 18);

// The reply header as it lies on the wire.
struct MTE_MSG_REPLY_HEAD_S {
    uint16_t usMagic;
    uint8_t ucVersion;
    uint8_t ucFlags;  // MTE_MSG_FLAG_REPLY
    uint32_t uiSequence;
    uint32_t uiResult;
    uint32_t uiFailedColumn;  // 0xFFFFFFFF except in the reply to a table set
    uint32_t uiDataLen;
};
static_assert(sizeof(MTE_MSG_REPLY_HEAD_S) == 20);
static_assert(offsetof(MTE_MSG_REPLY_HEAD_S, uiResult) == 8);
static_assert(offsetof(MTE_MSG_REPLY_HEAD_S, uiFailedColumn) == 12);
static_assert(offsetof(MTE_MSG_REPLY_HEAD_S, uiDataLen) == 16);

// Fixed size of each item's record (0 for an unknown item).
uint32_t MTE_MSG_ItemSize(uint16_t usItem);
// Checks one item's record: every string field terminated inside its field,
// every OID count at most 128, key lengths equal to their strings. 0 or a code.
uint32_t MTE_MSG_CheckRecord(uint16_t usItem, const uint8_t* pucRecord, uint32_t uiLen);

// Checks a complete request of that length, decodes its header and starts the
// reply header (magic, version, reply flag, the request's sequence number;
// pucReply may be null). 0, or an MTE_ERR_MSG_* code.
uint32_t MTE_MSG_CheckMsg(const uint8_t* pucMsg, uint32_t uiLen, MTE_MSG_HEAD_S* pstHead,
                          uint8_t* pucReply);
// Copies the item's record (at most uiSize bytes) from the data that begin at
// message byte 20; 0 when found, else 0x40010001 (out untouched).
uint32_t MTE_MSG_GetDataFromMsg(uint16_t usItem, uint32_t uiDataLen, uint32_t uiSize,
                                const uint8_t* pucData, void* pOut);
// Appends the item with its record at pucOut if it fits in uiRoom bytes;
// returns the bytes appended, 0 when it does not fit.
uint32_t MTE_MSG_AppendData2Msg(uint16_t usItem, const void* pValue, uint32_t uiRoom,
                                uint8_t* pucOut);
// Completes the reply header (magic, version and reply flag rewritten, the
// sequence number that the check copied kept).
void MTE_MSG_SetResponseMsgHead(uint32_t uiResult, uint32_t uiFailedColumn, uint32_t uiDataLen,
                                uint8_t* pucReply);
// 1 when both OIDs have the same count and sub-identifiers, else 0.
uint32_t MTE_MSG_IsSameOID(const MTE_OID_S* pstA, const MTE_OID_S* pstB);
// Writes the OID in dotted form ("1.3.6.1"), cut to uiSize - 1 characters.
void MTE_MSG_Oid2Str(const MTE_OID_S* pstOid, uint32_t uiSize, char* pszOut);

// Client side: builds a request (header and at most one item); returns its
// length, 0 when it does not fit in uiCapacity.
uint32_t MTE_MSG_BuildRequest(uint32_t uiSequence, uint16_t usMsgType, uint16_t usOperation,
                              uint32_t uiColumnMask, uint16_t usItem, const void* pValue,
                              uint8_t* pucOut, uint32_t uiCapacity);

// Client side: adds the expiry to a request of uiLen bytes built by
// MTE_MSG_BuildRequest; returns the new length, 0 when it does not fit.
uint32_t MTE_MSG_AddExpiry(uint64_t ullDeadlineNs, uint8_t* pucMsg, uint32_t uiLen,
                           uint32_t uiCapacity);
// Daemon side, before the check: a request with a well-formed expiry loses it
// (flag cleared, *puiLen shortened by 8), so that the check sees the plain
// request; returns true with the deadline. Anything else is left as it is and
// returns false (a flag without its 8 bytes is then refused by the check).
bool MTE_MSG_TakeExpiry(uint8_t* pucMsg, uint32_t* puiLen, uint64_t* pullDeadlineNs);

// A decoded reply.
struct MTE_MSG_REPLY_S {
    uint32_t uiSequence;
    uint32_t uiResult;
    uint32_t uiFailedColumn;
    uint16_t usItem;         // 0 when the reply carries no data
    const uint8_t* pucData;  // the item's record inside the reply buffer
    uint32_t uiDataSize;
};
// Checks and decodes a reply (0 or 1 item); 0, or an MTE_ERR_MSG_* code.
// The caller matches uiSequence with the request it sent.
uint32_t MTE_MSG_ParseReply(const uint8_t* pucMsg, uint32_t uiLen, MTE_MSG_REPLY_S* pstReply);

// The name of a result code ("MTE_ERR_INCONSISTENT", ...), or "UNKNOWN".
// Never null.
const char* MTE_MSG_ResultName(uint32_t uiCode);

#endif  // MTE_MSG_H
