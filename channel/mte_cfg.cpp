// Management message dispatch: turns one request into one reply. The message
// is checked by the message library, the handler of its type is taken from
// g_apfMTEMsgProc, and the handler calls the table's get, get-next or set.
//
// Runs on the main thread only, one request at a time; keeps no state between
// requests. Locks: the objects list lock (type 8) or the event list lock
// (types 9 to 11), taken for reading around get and get-next and for writing
// around set, held across the append so that the row is copied while no set
// can change it; never both. The trigger-side tables (types 4 to 7) lock
// themselves.
#include "mte_cfg.h"

#include <cstring>

#include "mte_bool.h"
#include "mte_catalogue.h"
#include "mte_dbg.h"
#include "mte_delta.h"
#include "mte_event.h"
#include "mte_exist.h"
#include "mte_lock_guard.h"
#include "mte_msg.h"
#include "mte_notify.h"
#include "mte_obj.h"
#include "mte_scalar.h"
#include "mte_set.h"
#include "mte_thres.h"
#include "mte_trigger.h"

namespace {

constexpr uint32_t NO_FAILED_COLUMN = 0xFFFFFFFF;

typedef void (*MTE_MSG_PROC_PF)(const uint8_t* pucRequest, const MTE_MSG_HEAD_S* pstHead,
                                uint32_t uiCapacity, uint8_t* pucReply, uint32_t* puiReplyLen);

// The list lock a table's handler holds around its table operation: the
// objects or the event list lock, none for the tables that lock themselves.
struct LIST_LOCK_S {
    void (*pfRdLock)(void);
    void (*pfWrLock)(void);
    void (*pfUnLock)(void);
};
constexpr LIST_LOCK_S NO_LOCK = {nullptr, nullptr, nullptr};
constexpr LIST_LOCK_S OBJ_LOCK = {mte_OBJ_ListRdLock, mte_OBJ_ListWrLock, mte_OBJ_ListUnLock};
constexpr LIST_LOCK_S EVENT_LOCK = {mte_EVENT_ListRdLock, mte_EVENT_ListWrLock,
                                    mte_EVENT_ListUnLock};

// Room for the largest record a table handler decodes (the trigger row),
// aligned so that it can be handed to the tables as their record type.
constexpr size_t MAX_RECORD_SIZE = sizeof(MTE_TRIGGER_ROW_S);
struct alignas(8) RECORD_BUF_S {
    uint8_t aucData[MAX_RECORD_SIZE];
};

// The uniform face of one table: lookups by the index fields of a decoded
// request record, and the set. Each adapter knows its record type.
struct TABLE_DESC_S {
    MTE_CAT_TABLE_E eTable;
    LIST_LOCK_S stLock;
    const void* (*pfGet)(const void* pRow);
    const void* (*pfGetNext)(const void* pKey, uint8_t* pucFlags);
    uint32_t (*pfSet)(const void* pRow, uint32_t uiMask, uint32_t* puiFailedColumn);
    // After an unsuccessful get-next: whether the table holds any row.
    bool (*pfHasRows)(uint8_t ucFlags);
};

template <typename T>
const T* As(const void* p) {
    return static_cast<const T*>(p);
}

// Lookup by owner and name: every table but the objects.
template <typename Row, auto pfGet>
const void* NamedGet(const void* p) {
    return pfGet(As<Row>(p)->szOwner, As<Row>(p)->szName);
}
// Get-next of the trigger and event tables.
template <auto pfGetNext>
const void* ParentGetNext(const void* p, uint8_t*) {
    const auto* pstKey = As<MTE_INDEX_KEY_S>(p);
    return pfGetNext(pstKey->uiOwnerLen, pstKey->szOwner, pstKey->szName);
}
// Get-next of a sub-table (test, delta, notification and set rows): it also
// reports which kinds of sub-row lie at or before the key.
template <auto pfGetNext>
const void* SubGetNext(const void* p, uint8_t* pucFlags) {
    const auto* pstKey = As<MTE_INDEX_KEY_S>(p);
    return pfGetNext(pstKey->uiOwnerLen, pstKey->szOwner, pstKey->szName, pucFlags);
}
template <typename Row, auto pfSet>
uint32_t RowSet(const void* p, uint32_t uiMask, uint32_t* puiFailed) {
    return pfSet(As<Row>(p), uiMask, puiFailed);
}
template <auto pfIsEmpty>
bool ParentHasRows(uint8_t) {
    return pfIsEmpty() == 0;
}
template <uint8_t PRESENT>
bool SubHasRows(uint8_t ucFlags) {
    return (ucFlags & PRESENT) != 0;
}

const void* ObjGet(const void* p) {
    const auto* pstRow = As<MTE_OBJ_ROW_S>(p);
    return mte_OBJ_Get(pstRow->szOwner, pstRow->szName, pstRow->uiIndex);
}
const void* ObjGetNext(const void* p, uint8_t*) {
    const auto* pstKey = As<MTE_OBJ_INDEX_KEY_S>(p);
    return mte_OBJ_GetNext(pstKey->uiOwnerLen, pstKey->szOwner, pstKey->uiNameLen, pstKey->szName,
                           pstKey->uiIndex);
}
// The set-action table reports no column: its replies carry failed column 0.
uint32_t SetSet(const void* p, uint32_t uiMask, uint32_t*) {
    return mte_SET_Set(As<MTE_SET_ENTRY_S>(p), uiMask);
}

// The handlers of each table, indexed by MTE_CAT_TABLE_E.
constexpr TABLE_DESC_S g_astTables[MTE_CAT_TABLE_COUNT] = {
    {MTE_CAT_TRIGGER, NO_LOCK, NamedGet<MTE_TRIGGER_ROW_S, mte_TRIGGER_Get>,
     ParentGetNext<mte_TRIGGER_GetNext>, RowSet<MTE_TRIGGER_ROW_S, mte_TRIGGER_Set>,
     ParentHasRows<mte_TRIGGER_IsEmpty>},
    {MTE_CAT_DELTA, NO_LOCK, NamedGet<MTE_DELTA_ENTRY_S, mte_DELTA_Get>,
     SubGetNext<mte_DELTA_GetNext>, RowSet<MTE_DELTA_ENTRY_S, mte_DELTA_Set>,
     SubHasRows<MTE_PRESENT_DELTA>},
    {MTE_CAT_EXISTENCE, NO_LOCK, NamedGet<MTE_EXIST_ENTRY_S, mte_EXIST_Get>,
     SubGetNext<mte_EXIST_GetNext>, RowSet<MTE_EXIST_ENTRY_S, mte_EXIST_Set>,
     SubHasRows<MTE_PRESENT_EXISTENCE>},
    {MTE_CAT_BOOLEAN, NO_LOCK, NamedGet<MTE_BOOL_ENTRY_S, mte_BOOL_Get>,
     SubGetNext<mte_BOOL_GetNext>, RowSet<MTE_BOOL_ENTRY_S, mte_BOOL_Set>,
     SubHasRows<MTE_PRESENT_BOOLEAN>},
    {MTE_CAT_THRESHOLD, NO_LOCK, NamedGet<MTE_THRES_ENTRY_S, mte_THRES_Get>,
     SubGetNext<mte_THRES_GetNext>, RowSet<MTE_THRES_ENTRY_S, mte_THRES_Set>,
     SubHasRows<MTE_PRESENT_THRESHOLD>},
    {MTE_CAT_OBJECTS, OBJ_LOCK, ObjGet, ObjGetNext, RowSet<MTE_OBJ_ROW_S, mte_OBJ_Set>,
     ParentHasRows<mte_OBJ_IsEmpty>},
    {MTE_CAT_EVENT, EVENT_LOCK, NamedGet<MTE_EVENT_ROW_S, mte_EVENT_Get>,
     ParentGetNext<mte_EVENT_GetNext>, RowSet<MTE_EVENT_ROW_S, mte_EVENT_Set>,
     ParentHasRows<mte_EVENT_IsEmpty>},
    {MTE_CAT_NOTIFY, EVENT_LOCK, NamedGet<MTE_NOTIFY_ENTRY_S, mte_NOTIFY_Get>,
     SubGetNext<mte_NOTIFY_GetNext>, RowSet<MTE_NOTIFY_ENTRY_S, mte_NOTIFY_Set>,
     SubHasRows<MTE_PRESENT_NOTIFY>},
    {MTE_CAT_SET, EVENT_LOCK, NamedGet<MTE_SET_ENTRY_S, mte_SET_Get>, SubGetNext<mte_SET_GetNext>,
     SetSet, SubHasRows<MTE_PRESENT_SET>},
};
constexpr bool TablesInCatalogueOrder() {
    for (uint32_t i = 0; i < MTE_CAT_TABLE_COUNT; ++i) {
        if (g_astTables[i].eTable != i) {
            return false;
        }
    }
    return true;
}
static_assert(TablesInCatalogueOrder());

// Reply header and length for a reply with uiDataLen bytes of data.
void FinishReply(uint32_t uiResult, uint32_t uiFailedColumn, uint32_t uiDataLen, uint8_t* pucReply,
                 uint32_t* puiReplyLen) {
    MTE_MSG_SetResponseMsgHead(uiResult, uiFailedColumn, uiDataLen, pucReply);
    *puiReplyLen = MTE_MSG_HEAD_SIZE + uiDataLen;
}

// Decodes the request's item into a zeroed record: a missing item leaves
// zeros, which then name the empty index.
void ReadItem(const uint8_t* pucRequest, const MTE_MSG_HEAD_S* pstHead, uint16_t usItem,
              RECORD_BUF_S* pstBuf) {
    memset(pstBuf, 0, sizeof(*pstBuf));
    (void)MTE_MSG_GetDataFromMsg(usItem, pstHead->uiDataLen, MTE_MSG_ItemSize(usItem),
                                 pucRequest + MTE_MSG_HEAD_SIZE, pstBuf->aucData);
}

uint32_t ReplyRoom(uint32_t uiCapacity) {
    return uiCapacity - MTE_MSG_HEAD_SIZE;  // the caller guarantees 20 bytes at least
}

void TableGet(const TABLE_DESC_S& stTable, const uint8_t* pucRequest, const MTE_MSG_HEAD_S* pstHead,
              uint32_t uiCapacity, uint8_t* pucReply, uint32_t* puiReplyLen) {
    const MTE_CAT_TABLE_S& stCat = g_astMteCatalogue[stTable.eTable];
    RECORD_BUF_S stRow;
    ReadItem(pucRequest, pstHead, stCat.usRowItem, &stRow);
    uint32_t uiResult = MTE_ERR_GENERAL;
    uint32_t uiDataLen = 0;
    {
        MTE_LOCK_GUARD stGuard(stTable.stLock.pfRdLock, stTable.stLock.pfUnLock);
        const void* pFound = stTable.pfGet(stRow.aucData);
        if (pFound != nullptr) {
            uiDataLen = MTE_MSG_AppendData2Msg(stCat.usRowItem, pFound, ReplyRoom(uiCapacity),
                                               pucReply + MTE_MSG_HEAD_SIZE);
            uiResult = uiDataLen != 0 ? MTE_OK : MTE_ERR_REPLY_TOO_SMALL;
        }
    }
    FinishReply(uiResult, NO_FAILED_COLUMN, uiDataLen, pucReply, puiReplyLen);
}

void TableGetNext(const TABLE_DESC_S& stTable, const uint8_t* pucRequest,
                  const MTE_MSG_HEAD_S* pstHead, uint32_t uiCapacity, uint8_t* pucReply,
                  uint32_t* puiReplyLen) {
    const MTE_CAT_TABLE_S& stCat = g_astMteCatalogue[stTable.eTable];
    RECORD_BUF_S stKey;
    ReadItem(pucRequest, pstHead, stCat.usKeyItem, &stKey);
    uint8_t ucFlags = 0;
    uint32_t uiResult;
    uint32_t uiDataLen = 0;
    {
        MTE_LOCK_GUARD stGuard(stTable.stLock.pfRdLock, stTable.stLock.pfUnLock);
        const void* pFound = stTable.pfGetNext(stKey.aucData, &ucFlags);
        if (pFound != nullptr) {
            uiDataLen = MTE_MSG_AppendData2Msg(stCat.usRowItem, pFound, ReplyRoom(uiCapacity),
                                               pucReply + MTE_MSG_HEAD_SIZE);
            uiResult = uiDataLen != 0 ? MTE_OK : MTE_ERR_NEXT_TOO_BIG;
        } else {
            // The end of a table and an empty table answer differently, so
            // that the agent can tell "no more rows" from "no rows at all".
            uiResult = stTable.pfHasRows(ucFlags) ? MTE_ERR_NO_SUCH_ROW : MTE_ERR_TABLE_EMPTY;
        }
    }
    FinishReply(uiResult, NO_FAILED_COLUMN, uiDataLen, pucReply, puiReplyLen);
}

void TableSet(const TABLE_DESC_S& stTable, const uint8_t* pucRequest, const MTE_MSG_HEAD_S* pstHead,
              uint8_t* pucReply, uint32_t* puiReplyLen) {
    RECORD_BUF_S stRow;
    ReadItem(pucRequest, pstHead, g_astMteCatalogue[stTable.eTable].usRowItem, &stRow);
    uint32_t uiFailedColumn = 0;
    uint32_t uiResult;
    {
        MTE_LOCK_GUARD stGuard(stTable.stLock.pfWrLock, stTable.stLock.pfUnLock);
        uiResult = stTable.pfSet(stRow.aucData, pstHead->uiColumnMask, &uiFailedColumn);
    }
    FinishReply(uiResult, uiFailedColumn, 0, pucReply, puiReplyLen);
}

template <uint16_t TYPE>
void mte_cfg_TableProc(const uint8_t* pucRequest, const MTE_MSG_HEAD_S* pstHead,
                       uint32_t uiCapacity, uint8_t* pucReply, uint32_t* puiReplyLen) {
    static_assert(MTE_CAT_IndexOfType(TYPE) != MTE_CAT_NONE, "a table type of the catalogue");
    const TABLE_DESC_S& stTable = g_astTables[MTE_CAT_IndexOfType(TYPE)];
    switch (pstHead->usOperation) {
        case MTE_MSG_OP_GET:
            TableGet(stTable, pucRequest, pstHead, uiCapacity, pucReply, puiReplyLen);
            break;
        case MTE_MSG_OP_GET_NEXT:
            TableGetNext(stTable, pucRequest, pstHead, uiCapacity, pucReply, puiReplyLen);
            break;
        case MTE_MSG_OP_SET:
            TableSet(stTable, pucRequest, pstHead, pucReply, puiReplyLen);
            break;
        default:
            FinishReply(MTE_ERR_GENERAL, NO_FAILED_COLUMN, 0, pucReply, puiReplyLen);
            break;
    }
}

void mte_cfg_ScalarsProc(const uint8_t*, const MTE_MSG_HEAD_S* pstHead, uint32_t uiCapacity,
                         uint8_t* pucReply, uint32_t* puiReplyLen) {
    if (pstHead->usOperation != MTE_MSG_OP_GET) {
        FinishReply(MTE_ERR_GENERAL, NO_FAILED_COLUMN, 0, pucReply, puiReplyLen);
        return;
    }
    MTE_SCALAR_S stScalars = {};
    mte_SCALAR_Get(&stScalars);
    uint32_t uiDataLen = MTE_MSG_AppendData2Msg(MTE_ITEM_SCALARS, &stScalars, ReplyRoom(uiCapacity),
                                                pucReply + MTE_MSG_HEAD_SIZE);
    FinishReply(uiDataLen != 0 ? MTE_OK : MTE_ERR_REPLY_TOO_SMALL, NO_FAILED_COLUMN, uiDataLen,
                pucReply, puiReplyLen);
}

void mte_cfg_EngineCountersProc(const uint8_t*, const MTE_MSG_HEAD_S* pstHead, uint32_t uiCapacity,
                                uint8_t* pucReply, uint32_t* puiReplyLen) {
    if (pstHead->usOperation != MTE_MSG_OP_GET) {
        FinishReply(MTE_ERR_GENERAL, NO_FAILED_COLUMN, 0, pucReply, puiReplyLen);
        return;
    }
    MTE_ENGINE_COUNTERS_S stCounters = {mte_SCALAR_GetSamplesMissed(),
                                        mte_SCALAR_GetNotificationDrops()};
    uint32_t uiDataLen = MTE_MSG_AppendData2Msg(
        MTE_ITEM_ENGINE_COUNTERS, &stCounters, ReplyRoom(uiCapacity), pucReply + MTE_MSG_HEAD_SIZE);
    FinishReply(uiDataLen != 0 ? MTE_OK : MTE_ERR_REPLY_TOO_SMALL, NO_FAILED_COLUMN, uiDataLen,
                pucReply, puiReplyLen);
}

// Types 2, 3, 12 and 13: one 32-bit value to a setter whose result the agent
// never sees (the operation is not looked at).
template <uint16_t ITEM, void (*SETTER)(uint32_t)>
void mte_cfg_ValueProc(const uint8_t* pucRequest, const MTE_MSG_HEAD_S* pstHead, uint32_t,
                       uint8_t* pucReply, uint32_t* puiReplyLen) {
    uint32_t uiValue = 0;
    (void)MTE_MSG_GetDataFromMsg(ITEM, pstHead->uiDataLen, sizeof(uiValue),
                                 pucRequest + MTE_MSG_HEAD_SIZE, &uiValue);
    SETTER(uiValue);
    FinishReply(MTE_OK, NO_FAILED_COLUMN, 0, pucReply, puiReplyLen);
}

void SetSampleMin(uint32_t uiValue) {
    (void)mte_SCALAR_SetSampleMin(uiValue);
}
void SetInstancesMax(uint32_t uiValue) {
    (void)mte_SCALAR_SetInstancesMax(uiValue);
}

void mte_cfg_DbgGetProc(const uint8_t*, const MTE_MSG_HEAD_S*, uint32_t uiCapacity,
                        uint8_t* pucReply, uint32_t* puiReplyLen) {
    uint32_t uiSwitch = mte_DBG_GetSwitch();
    uint32_t uiDataLen = MTE_MSG_AppendData2Msg(
        MTE_ITEM_DBG_SWITCH, &uiSwitch, ReplyRoom(uiCapacity), pucReply + MTE_MSG_HEAD_SIZE);
    FinishReply(uiDataLen != 0 ? MTE_OK : MTE_ERR_REPLY_TOO_SMALL, NO_FAILED_COLUMN, uiDataLen,
                pucReply, puiReplyLen);
}

// The handler of each message type; slot 0 is empty.
constexpr MTE_MSG_PROC_PF g_apfMTEMsgProc[] = {
    nullptr,
    mte_cfg_ScalarsProc,
    mte_cfg_ValueProc<MTE_ITEM_SAMPLE_MIN, SetSampleMin>,
    mte_cfg_ValueProc<MTE_ITEM_INSTANCE_MAX, SetInstancesMax>,
    mte_cfg_TableProc<MTE_MSG_TYPE_TRIGGER>,
    mte_cfg_TableProc<MTE_MSG_TYPE_BOOLEAN>,
    mte_cfg_TableProc<MTE_MSG_TYPE_EXISTENCE>,
    mte_cfg_TableProc<MTE_MSG_TYPE_THRESHOLD>,
    mte_cfg_TableProc<MTE_MSG_TYPE_OBJECTS>,
    mte_cfg_TableProc<MTE_MSG_TYPE_EVENT>,
    mte_cfg_TableProc<MTE_MSG_TYPE_NOTIFY>,
    mte_cfg_TableProc<MTE_MSG_TYPE_SET>,
    mte_cfg_ValueProc<MTE_ITEM_DBG_SWITCH, mte_DBG_EnableSwitch>,
    mte_cfg_ValueProc<MTE_ITEM_DBG_SWITCH, mte_DBG_DisableSwitch>,
    mte_cfg_DbgGetProc,
    mte_cfg_TableProc<MTE_MSG_TYPE_DELTA>,
    mte_cfg_EngineCountersProc,
};
static_assert(sizeof(g_apfMTEMsgProc) / sizeof(g_apfMTEMsgProc[0]) == MTE_MSG_TYPE_COUNT,
              "one handler slot per message type, slot 0 empty");

}  // namespace

uint32_t mte_CFG_Proc(const uint8_t* pucRequest, uint32_t uiRequestLen, uint32_t uiCapacity,
                      uint8_t* pucReply) {
    // Without room for a header there is nothing that could be answered.
    if (pucReply == nullptr || uiCapacity < MTE_MSG_HEAD_SIZE) {
        return 0;
    }
    uint32_t uiReplyLen = MTE_MSG_HEAD_SIZE;
    MTE_MSG_HEAD_S stHead;
    uint32_t uiResult = MTE_MSG_CheckMsg(pucRequest, uiRequestLen, &stHead, pucReply);
    if (uiResult != MTE_OK) {
        MTE_MSG_SetResponseMsgHead(uiResult, NO_FAILED_COLUMN, 0, pucReply);
        return uiReplyLen;
    }
    if (stHead.usMsgType == 0 || stHead.usMsgType >= MTE_MSG_TYPE_COUNT) {
        MTE_MSG_SetResponseMsgHead(MTE_ERR_GENERAL, NO_FAILED_COLUMN, 0, pucReply);
        return uiReplyLen;
    }
    g_apfMTEMsgProc[stHead.usMsgType](pucRequest, &stHead, uiCapacity, pucReply, &uiReplyLen);
    return uiReplyLen;
}
