// The table catalogue: every fact about the nine row tables, written once.
//
// Per table: its record and the record's size on the wire and in the store,
// the message type and data items that carry it, the store list (name and
// id), and per column the column number (mask bit and failed column), the
// value kind, the field's offset and size in the record, the name eventmibctl
// and the docs show, and the column sub-identifier the bridge serves it
// under. The message check, the dispatch, the store's lists and recovery,
// eventmibctl and the bridge's column map are all read from here, so a new
// column is one row below (plus its record field): a set's copy of the masked
// columns is read from here too, by each column's kind and copy rule.
//
// Pure constants, usable at compile time by the daemon and both clients.
// The handlers of each table stay with their users (dispatch, recovery),
// which index them by MTE_CAT_TABLE_E.
#ifndef MTE_CATALOGUE_H
#define MTE_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "mte_msg.h"
#include "mte_types.h"

// How a column's value is held in the record and read and written by name.
enum class MTE_CAT_KIND_E : uint8_t {
    OWNER,   // index string (mteOwner)
    NAME,    // index string (trigger, event or objects name)
    INDEX,   // index u32 (mteObjectsIndex)
    OID,     // MTE_OID_S
    U32,     // unsigned number
    I32,     // signed number
    TRUTH,   // TruthValue
    STATUS,  // RowStatus
    ENUM,    // u32 enumeration, its values named
    STR,     // zero-terminated string of usSize bytes
    // A string naming an owner (of the objects or of an event): empty or the
    // row's own owner, as the table's set checks.
    OWNER_REF,
    BITS,  // one octet of named bits, each bit written as a column of its own
};

// How a set writes a masked column into the row. By kind: numbers by their
// size, strings bounded and terminated, BITS bit by bit as the mask names the
// bits, an OID by its length and meaningful sub-identifiers (the rest of the
// row's array keeps its old contents). An OID longer than a record can hold is
// never copied: a set refuses it before, recovery keeps the row's own.
enum class MTE_CAT_COPY_E : uint8_t {
    BY_KIND,
    OID_WHOLE,  // the whole OID with its unused sub-identifiers
    // Written only by the table's own steps (a status change, the rows that
    // follow the bits), never by the copy.
    BY_TABLE,
};

// A named value of an ENUM or STATUS column, or one bit of a BITS column
// (uiValue the bit, uiColumn the column that writes it).
struct MTE_CAT_NAMED_S {
    const char* pszName;
    uint32_t uiValue;
    uint32_t uiColumn;
};

struct MTE_CAT_COLUMN_S {
    const char* pszName;  // as eventmibctl and the docs show it
    MTE_CAT_KIND_E eKind;
    uint32_t uiColumn;    // mask bit and failed column; 0: index, read-only or BITS
    uint8_t ucRfcColumn;  // the served column's sub-identifier; 0: not served
    uint16_t usOffset;    // in the record
    uint16_t usSize;      // field size (strings with their zero byte)
    const MTE_CAT_NAMED_S* pstNames;
    size_t uiNameCount;
    MTE_CAT_COPY_E eCopy = MTE_CAT_COPY_E::BY_KIND;
};

struct MTE_CAT_TABLE_S {
    const char* pszName;     // eventmibctl's table name
    const char* pszMibName;  // the served table
    uint32_t auiEntry[3];    // the served entry, relative to mteObjects
    uint16_t usMsgType;
    uint16_t usRowItem;
    uint16_t usKeyItem;
    uint32_t uiRowSize;       // on the wire and in the store
    const char* pszList;      // store list name (a fixed text: stores hold it)
    uint32_t uiListNameSize;  // with its zero byte
    uint32_t uiListId;
    const MTE_CAT_COLUMN_S* pstColumns;
    size_t uiColumnCount;
};

// Store list ids and binary item ids.
enum : uint32_t {
    MTE_TBL_TRIGGER = 1,
    MTE_TBL_BOOLEAN = 2,
    MTE_TBL_THRESHOLD = 3,
    MTE_TBL_EXISTENCE = 4,
    MTE_TBL_OBJECTS = 5,
    MTE_TBL_EVENT = 6,
    MTE_TBL_NOTIFY = 7,
    MTE_TBL_SET = 8,
    MTE_ITEM_ID_SAMP_MINI = 9,
    MTE_ITEM_ID_SAMP_INST_MAX = 10,
    MTE_ITEM_ID_STATISTIC_DATA = 11,
    MTE_TBL_DELTA = 12,  // an addition: the delta rows (docs/store.md)
};

// The tables in the served OID order, which is also the order in which one
// SNMP SET's rows are applied: triggers before their delta rows and tests,
// events before their actions.
enum MTE_CAT_TABLE_E : uint32_t {
    MTE_CAT_TRIGGER,
    MTE_CAT_DELTA,
    MTE_CAT_EXISTENCE,
    MTE_CAT_BOOLEAN,
    MTE_CAT_THRESHOLD,
    MTE_CAT_OBJECTS,
    MTE_CAT_EVENT,
    MTE_CAT_NOTIFY,
    MTE_CAT_SET,
    MTE_CAT_TABLE_COUNT,
};

namespace mte_cat {

using K = MTE_CAT_KIND_E;

#define MTE_CAT_FIELD(REC, field) \
    static_cast<uint16_t>(offsetof(REC, field)), static_cast<uint16_t>(sizeof(REC::field))

constexpr MTE_CAT_COLUMN_S Col(const char* pszName, K eKind, uint32_t uiColumn, uint8_t ucRfc,
                               uint16_t usOffset, uint16_t usSize) {
    return {pszName, eKind, uiColumn, ucRfc, usOffset, usSize, nullptr, 0};
}
template <size_t N>
constexpr MTE_CAT_COLUMN_S Named(const char* pszName, K eKind, uint32_t uiColumn, uint8_t ucRfc,
                                 uint16_t usOffset, uint16_t usSize,
                                 const MTE_CAT_NAMED_S (&astNames)[N]) {
    return {pszName, eKind, uiColumn, ucRfc, usOffset, usSize, astNames, N};
}
constexpr MTE_CAT_COLUMN_S CopiedBy(MTE_CAT_COPY_E eCopy, MTE_CAT_COLUMN_S stColumn) {
    stColumn.eCopy = eCopy;
    return stColumn;
}
using C = MTE_CAT_COPY_E;
// The index columns every table starts with.
#define MTE_CAT_OWNER_AND_NAME(REC)                            \
    Col("owner", K::OWNER, 0, 0, MTE_CAT_FIELD(REC, szOwner)), \
        Col("name", K::NAME, 0, 0, MTE_CAT_FIELD(REC, szName))

inline constexpr MTE_CAT_NAMED_S g_astSampleTypes[] = {
    {"absoluteValue", MTE_SAMPLE_ABSOLUTE, 0},
    {"deltaValue", MTE_SAMPLE_DELTA, 0},
    {"absolute", MTE_SAMPLE_ABSOLUTE, 0},
    {"delta", MTE_SAMPLE_DELTA, 0},
};
inline constexpr MTE_CAT_NAMED_S g_astComparisons[] = {
    {"unequal", MTE_BOOL_UNEQUAL, 0}, {"equal", MTE_BOOL_EQUAL, 0},
    {"less", MTE_BOOL_LESS, 0},       {"lessOrEqual", MTE_BOOL_LESS_OR_EQUAL, 0},
    {"greater", MTE_BOOL_GREATER, 0}, {"greaterOrEqual", MTE_BOOL_GREATER_OR_EQUAL, 0},
};
inline constexpr MTE_CAT_NAMED_S g_astThresStartups[] = {
    {"rising", MTE_THRES_STARTUP_RISING, 0},
    {"falling", MTE_THRES_STARTUP_FALLING, 0},
    {"risingOrFalling", MTE_THRES_STARTUP_RISING_OR_FALLING, 0},
};
inline constexpr MTE_CAT_NAMED_S g_astDiscontinuityTypes[] = {
    {"timeTicks", MTE_DELTA_TIME_TICKS, 0},
    {"timeStamp", MTE_DELTA_TIME_STAMP, 0},
    {"dateAndTime", MTE_DELTA_DATE_AND_TIME, 0},
};
inline constexpr MTE_CAT_NAMED_S g_astStatuses[] = {
    {"active", MTE_ROW_ACTIVE, 0},
    {"notInService", MTE_ROW_NOT_IN_SERVICE, 0},
    {"notReady", MTE_ROW_NOT_READY, 0},
    {"createAndGo", MTE_ROW_CREATE_AND_GO, 0},
    {"createAndWait", MTE_ROW_CREATE_AND_WAIT, 0},
    {"destroy", MTE_ROW_DESTROY, 0},
};
// BITS: the octet holds the served bit positions (bit 0 = 0x80).
inline constexpr MTE_CAT_NAMED_S g_astTriggerTests[] = {
    {"existence", MTE_TEST_EXISTENCE, MTE_TRIGGER_COL_TEST_EXISTENCE},
    {"boolean", MTE_TEST_BOOLEAN, MTE_TRIGGER_COL_TEST_BOOLEAN},
    {"threshold", MTE_TEST_THRESHOLD, MTE_TRIGGER_COL_TEST_THRESHOLD},
};
inline constexpr MTE_CAT_NAMED_S g_astExistTests[] = {
    {"present", MTE_EXIST_PRESENT, MTE_EXIST_COL_TEST_PRESENT},
    {"absent", MTE_EXIST_ABSENT, MTE_EXIST_COL_TEST_ABSENT},
    {"changed", MTE_EXIST_CHANGED, MTE_EXIST_COL_TEST_CHANGED},
};
inline constexpr MTE_CAT_NAMED_S g_astExistStartups[] = {
    {"present", MTE_EXIST_PRESENT, MTE_EXIST_COL_STARTUP_PRESENT},
    {"absent", MTE_EXIST_ABSENT, MTE_EXIST_COL_STARTUP_ABSENT},
};
inline constexpr MTE_CAT_NAMED_S g_astActions[] = {
    {"notification", MTE_ACTION_NOTIFICATION, MTE_EVENT_COL_ACTION_NOTIFICATION},
    {"set", MTE_ACTION_SET, MTE_EVENT_COL_ACTION_SET},
};

// Columns in the order eventmibctl shows them; the index columns first.
using TRG = MTE_TRIGGER_ROW_S;
inline constexpr MTE_CAT_COLUMN_S g_astTriggerColumns[] = {
    MTE_CAT_OWNER_AND_NAME(TRG),
    Col("comment", K::STR, MTE_TRIGGER_COL_COMMENT, 3, MTE_CAT_FIELD(TRG, szComment)),
    // The test rows follow these bits, so the change that makes or destroys
    // them writes the bits, once it is accepted.
    CopiedBy(C::BY_TABLE,
             Named("test", K::BITS, 0, 4, MTE_CAT_FIELD(TRG, ucTest), g_astTriggerTests)),
    Named("sampletype", K::ENUM, MTE_TRIGGER_COL_SAMPLE_TYPE, 5, MTE_CAT_FIELD(TRG, uiSampleType),
          g_astSampleTypes),
    Col("valueid", K::OID, MTE_TRIGGER_COL_VALUE_ID, 6, MTE_CAT_FIELD(TRG, stValueID)),
    Col("wildcard", K::TRUTH, MTE_TRIGGER_COL_VALUE_ID_WILDCARD, 7,
        MTE_CAT_FIELD(TRG, uiValueIDWildcard)),
    Col("context", K::STR, MTE_TRIGGER_COL_CONTEXT_NAME, 9, MTE_CAT_FIELD(TRG, szContextName)),
    Col("contextwildcard", K::TRUTH, MTE_TRIGGER_COL_CONTEXT_NAME_WILDCARD, 10,
        MTE_CAT_FIELD(TRG, uiContextNameWildcard)),
    Col("frequency", K::U32, MTE_TRIGGER_COL_FREQUENCY, 11, MTE_CAT_FIELD(TRG, uiFrequency)),
    Col("objectsowner", K::OWNER_REF, MTE_TRIGGER_COL_OBJECTS_OWNER, 12,
        MTE_CAT_FIELD(TRG, szObjectsOwner)),
    Col("objects", K::STR, MTE_TRIGGER_COL_OBJECTS, 13, MTE_CAT_FIELD(TRG, szObjects)),
    Col("enabled", K::TRUTH, 0, 14, MTE_CAT_FIELD(TRG, uiEnabled)),
    Col("targettag", K::STR, 0, 8, MTE_CAT_FIELD(TRG, szTargetTag)),
    Named("status", K::STATUS, MTE_TRIGGER_COL_ENTRY_STATUS, 15, MTE_CAT_FIELD(TRG, uiEntryStatus),
          g_astStatuses),
};

using DLT = MTE_DELTA_ENTRY_S;
inline constexpr MTE_CAT_COLUMN_S g_astDeltaColumns[] = {
    MTE_CAT_OWNER_AND_NAME(DLT),
    // Copied whole, unused sub-identifiers too: stored delta rows hold it so.
    CopiedBy(C::OID_WHOLE, Col("discontinuityid", K::OID, MTE_DELTA_COL_DISCONTINUITY_ID, 1,
                               MTE_CAT_FIELD(DLT, stDiscontinuityID))),
    Col("discontinuityidwildcard", K::TRUTH, MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD, 2,
        MTE_CAT_FIELD(DLT, uiDiscontinuityIDWildcard)),
    Named("discontinuityidtype", K::ENUM, MTE_DELTA_COL_DISCONTINUITY_ID_TYPE, 3,
          MTE_CAT_FIELD(DLT, uiDiscontinuityIDType), g_astDiscontinuityTypes),
};

using EXI = MTE_EXIST_ENTRY_S;
inline constexpr MTE_CAT_COLUMN_S g_astExistColumns[] = {
    MTE_CAT_OWNER_AND_NAME(EXI),
    Named("test", K::BITS, 0, 1, MTE_CAT_FIELD(EXI, ucTest), g_astExistTests),
    Named("startup", K::BITS, 0, 2, MTE_CAT_FIELD(EXI, ucStartup), g_astExistStartups),
    Col("objectsowner", K::OWNER_REF, MTE_EXIST_COL_OBJECTS_OWNER, 3,
        MTE_CAT_FIELD(EXI, szObjectsOwner)),
    Col("objects", K::STR, MTE_EXIST_COL_OBJECTS, 4, MTE_CAT_FIELD(EXI, szObjects)),
    Col("eventowner", K::OWNER_REF, MTE_EXIST_COL_EVENT_OWNER, 5, MTE_CAT_FIELD(EXI, szEventOwner)),
    Col("event", K::STR, MTE_EXIST_COL_EVENT, 6, MTE_CAT_FIELD(EXI, szEvent)),
};

using BOO = MTE_BOOL_ENTRY_S;
inline constexpr MTE_CAT_COLUMN_S g_astBoolColumns[] = {
    MTE_CAT_OWNER_AND_NAME(BOO),
    Named("comparison", K::ENUM, MTE_BOOL_COL_COMPARISON, 1, MTE_CAT_FIELD(BOO, uiComparison),
          g_astComparisons),
    Col("value", K::I32, MTE_BOOL_COL_VALUE, 2, MTE_CAT_FIELD(BOO, iValue)),
    Col("startup", K::TRUTH, MTE_BOOL_COL_STARTUP, 3, MTE_CAT_FIELD(BOO, uiStartup)),
    Col("objectsowner", K::OWNER_REF, MTE_BOOL_COL_OBJECTS_OWNER, 4,
        MTE_CAT_FIELD(BOO, szObjectsOwner)),
    Col("objects", K::STR, MTE_BOOL_COL_OBJECTS, 5, MTE_CAT_FIELD(BOO, szObjects)),
    Col("eventowner", K::OWNER_REF, MTE_BOOL_COL_EVENT_OWNER, 6, MTE_CAT_FIELD(BOO, szEventOwner)),
    Col("event", K::STR, MTE_BOOL_COL_EVENT, 7, MTE_CAT_FIELD(BOO, szEvent)),
};

using THR = MTE_THRES_ENTRY_S;
inline constexpr MTE_CAT_COLUMN_S g_astThresColumns[] = {
    MTE_CAT_OWNER_AND_NAME(THR),
    Named("startup", K::ENUM, MTE_THRES_COL_STARTUP, 1, MTE_CAT_FIELD(THR, uiStartup),
          g_astThresStartups),
    Col("rising", K::I32, MTE_THRES_COL_RISING, 2, MTE_CAT_FIELD(THR, iRising)),
    Col("falling", K::I32, MTE_THRES_COL_FALLING, 3, MTE_CAT_FIELD(THR, iFalling)),
    Col("deltarising", K::I32, MTE_THRES_COL_DELTA_RISING, 4, MTE_CAT_FIELD(THR, iDeltaRising)),
    Col("deltafalling", K::I32, MTE_THRES_COL_DELTA_FALLING, 5, MTE_CAT_FIELD(THR, iDeltaFalling)),
    Col("objectsowner", K::OWNER_REF, MTE_THRES_COL_OBJECTS_OWNER, 6,
        MTE_CAT_FIELD(THR, szObjectsOwner)),
    Col("objects", K::STR, MTE_THRES_COL_OBJECTS, 7, MTE_CAT_FIELD(THR, szObjects)),
    Col("risingeventowner", K::OWNER_REF, MTE_THRES_COL_RISING_EVENT_OWNER, 8,
        MTE_CAT_FIELD(THR, szRisingEventOwner)),
    Col("risingevent", K::STR, MTE_THRES_COL_RISING_EVENT, 9, MTE_CAT_FIELD(THR, szRisingEvent)),
    Col("fallingeventowner", K::OWNER_REF, MTE_THRES_COL_FALLING_EVENT_OWNER, 10,
        MTE_CAT_FIELD(THR, szFallingEventOwner)),
    Col("fallingevent", K::STR, MTE_THRES_COL_FALLING_EVENT, 11,
        MTE_CAT_FIELD(THR, szFallingEvent)),
    Col("deltarisingeventowner", K::OWNER_REF, MTE_THRES_COL_DELTA_RISING_EVENT_OWNER, 12,
        MTE_CAT_FIELD(THR, szDeltaRisingEventOwner)),
    Col("deltarisingevent", K::STR, MTE_THRES_COL_DELTA_RISING_EVENT, 13,
        MTE_CAT_FIELD(THR, szDeltaRisingEvent)),
    Col("deltafallingeventowner", K::OWNER_REF, MTE_THRES_COL_DELTA_FALLING_EVENT_OWNER, 14,
        MTE_CAT_FIELD(THR, szDeltaFallingEventOwner)),
    Col("deltafallingevent", K::STR, MTE_THRES_COL_DELTA_FALLING_EVENT, 15,
        MTE_CAT_FIELD(THR, szDeltaFallingEvent)),
};

using OBJ = MTE_OBJ_ROW_S;
inline constexpr MTE_CAT_COLUMN_S g_astObjColumns[] = {
    MTE_CAT_OWNER_AND_NAME(OBJ),
    Col("index", K::INDEX, 0, 0, MTE_CAT_FIELD(OBJ, uiIndex)),
    Col("id", K::OID, MTE_OBJ_COL_ID, 3, MTE_CAT_FIELD(OBJ, stID)),
    Col("wildcard", K::TRUTH, MTE_OBJ_COL_ID_WILDCARD, 4, MTE_CAT_FIELD(OBJ, uiIDWildcard)),
    // A made row is always active.
    CopiedBy(C::BY_TABLE, Named("status", K::STATUS, MTE_OBJ_COL_ENTRY_STATUS, 5,
                                MTE_CAT_FIELD(OBJ, uiEntryStatus), g_astStatuses)),
};

using EVT = MTE_EVENT_ROW_S;
inline constexpr MTE_CAT_COLUMN_S g_astEventColumns[] = {
    MTE_CAT_OWNER_AND_NAME(EVT),
    Col("comment", K::STR, MTE_EVENT_COL_COMMENT, 2, MTE_CAT_FIELD(EVT, szComment)),
    Named("actions", K::BITS, 0, 3, MTE_CAT_FIELD(EVT, ucActions), g_astActions),
    Col("enabled", K::TRUTH, 0, 4, MTE_CAT_FIELD(EVT, uiEnabled)),
    // A status write is a step of its own: it also enables or disables.
    CopiedBy(C::BY_TABLE, Named("status", K::STATUS, MTE_EVENT_COL_ENTRY_STATUS, 5,
                                MTE_CAT_FIELD(EVT, uiEntryStatus), g_astStatuses)),
};

// The daemon numbers the objects name 2 and its owner 3; the served table has
// the owner at 2 and the name at 3.
using NTF = MTE_NOTIFY_ENTRY_S;
inline constexpr MTE_CAT_COLUMN_S g_astNotifyColumns[] = {
    MTE_CAT_OWNER_AND_NAME(NTF),
    Col("notification", K::OID, MTE_NOTIFY_COL_NOTIFICATION, 1, MTE_CAT_FIELD(NTF, stNotification)),
    Col("objectsowner", K::OWNER_REF, MTE_NOTIFY_COL_OBJECTS_OWNER, 2,
        MTE_CAT_FIELD(NTF, szObjectsOwner)),
    Col("objects", K::STR, MTE_NOTIFY_COL_OBJECTS, 3, MTE_CAT_FIELD(NTF, szObjects)),
};

using SET = MTE_SET_ENTRY_S;
inline constexpr MTE_CAT_COLUMN_S g_astSetColumns[] = {
    MTE_CAT_OWNER_AND_NAME(SET),
    Col("object", K::OID, MTE_SET_COL_OBJECT, 1, MTE_CAT_FIELD(SET, stObject)),
    Col("objectwildcard", K::TRUTH, MTE_SET_COL_OBJECT_WILDCARD, 2,
        MTE_CAT_FIELD(SET, uiObjectWildcard)),
    Col("value", K::I32, MTE_SET_COL_VALUE, 3, MTE_CAT_FIELD(SET, iValue)),
    Col("context", K::STR, MTE_SET_COL_CONTEXT_NAME, 5, MTE_CAT_FIELD(SET, szContextName)),
    Col("contextwildcard", K::TRUTH, MTE_SET_COL_CONTEXT_NAME_WILDCARD, 6,
        MTE_CAT_FIELD(SET, uiContextNameWildcard)),
    // Sets are always local: the tag is shown but never written.
    Col("targettag", K::STR, 0, 4, MTE_CAT_FIELD(SET, szTargetTag)),
};

#undef MTE_CAT_FIELD
#undef MTE_CAT_OWNER_AND_NAME

}  // namespace mte_cat

// A table's row; the served entry is mteObjects.uiGroup.uiTable.1.
template <size_t L, size_t N>
constexpr MTE_CAT_TABLE_S MTE_CAT_Table(const char* pszName, const char* pszMibName,
                                        uint32_t uiGroup, uint32_t uiTable, uint16_t usMsgType,
                                        uint16_t usRowItem, uint16_t usKeyItem, uint32_t uiRowSize,
                                        const char (&szList)[L], uint32_t uiListId,
                                        const MTE_CAT_COLUMN_S (&astColumns)[N]) {
    return {pszName,   pszMibName, {uiGroup, uiTable, 1},
            usMsgType, usRowItem,  usKeyItem,
            uiRowSize, szList,     L,
            uiListId,  astColumns, N};
}

// Indexed by MTE_CAT_TABLE_E.
inline constexpr MTE_CAT_TABLE_S g_astMteCatalogue[MTE_CAT_TABLE_COUNT] = {
    MTE_CAT_Table("trigger", "mteTriggerTable", 2, 2, MTE_MSG_TYPE_TRIGGER, MTE_ITEM_TRIGGER,
                  MTE_ITEM_TRIGGER_KEY, sizeof(MTE_TRIGGER_ROW_S), "mteTrigger", MTE_TBL_TRIGGER,
                  mte_cat::g_astTriggerColumns),
    MTE_CAT_Table("delta", "mteTriggerDeltaTable", 2, 3, MTE_MSG_TYPE_DELTA, MTE_ITEM_DELTA,
                  MTE_ITEM_TRIGGER_KEY, sizeof(MTE_DELTA_ENTRY_S), "mteDelta", MTE_TBL_DELTA,
                  mte_cat::g_astDeltaColumns),
    MTE_CAT_Table("existence", "mteTriggerExistenceTable", 2, 4, MTE_MSG_TYPE_EXISTENCE,
                  MTE_ITEM_EXISTENCE, MTE_ITEM_TRIGGER_KEY, MTE_EXIST_ROW_SIZE, "mteExistence",
                  MTE_TBL_EXISTENCE, mte_cat::g_astExistColumns),
    MTE_CAT_Table("boolean", "mteTriggerBooleanTable", 2, 5, MTE_MSG_TYPE_BOOLEAN, MTE_ITEM_BOOLEAN,
                  MTE_ITEM_TRIGGER_KEY, sizeof(MTE_BOOL_ENTRY_S), "mteBoolean", MTE_TBL_BOOLEAN,
                  mte_cat::g_astBoolColumns),
    MTE_CAT_Table("threshold", "mteTriggerThresholdTable", 2, 6, MTE_MSG_TYPE_THRESHOLD,
                  MTE_ITEM_THRESHOLD, MTE_ITEM_TRIGGER_KEY, sizeof(MTE_THRES_ENTRY_S),
                  "mteThreshold", MTE_TBL_THRESHOLD, mte_cat::g_astThresColumns),
    MTE_CAT_Table("objects", "mteObjectsTable", 3, 1, MTE_MSG_TYPE_OBJECTS, MTE_ITEM_OBJECTS,
                  MTE_ITEM_OBJECTS_KEY, sizeof(MTE_OBJ_ROW_S), "mteObjects", MTE_TBL_OBJECTS,
                  mte_cat::g_astObjColumns),
    MTE_CAT_Table("event", "mteEventTable", 4, 2, MTE_MSG_TYPE_EVENT, MTE_ITEM_EVENT,
                  MTE_ITEM_EVENT_KEY, sizeof(MTE_EVENT_ROW_S), "mteEvent", MTE_TBL_EVENT,
                  mte_cat::g_astEventColumns),
    MTE_CAT_Table("notification", "mteEventNotificationTable", 4, 3, MTE_MSG_TYPE_NOTIFY,
                  MTE_ITEM_NOTIFY, MTE_ITEM_EVENT_KEY, sizeof(MTE_NOTIFY_ENTRY_S), "mteNotify",
                  MTE_TBL_NOTIFY, mte_cat::g_astNotifyColumns),
    MTE_CAT_Table("set", "mteEventSetTable", 4, 4, MTE_MSG_TYPE_SET, MTE_ITEM_SET,
                  MTE_ITEM_EVENT_KEY, sizeof(MTE_SET_ENTRY_S), "mteSet", MTE_TBL_SET,
                  mte_cat::g_astSetColumns),
};

// Lookups by position: MTE_CAT_NONE when there is none. Compile-time users
// take these: GCC's null-pointer sanitizer makes a comparison of a table's
// address with null non-constant.
inline constexpr size_t MTE_CAT_NONE = SIZE_MAX;

// The position in g_astMteCatalogue of the table carried by that message type.
constexpr size_t MTE_CAT_IndexOfType(uint16_t usMsgType) {
    for (size_t i = 0; i < MTE_CAT_TABLE_COUNT; ++i) {
        if (g_astMteCatalogue[i].usMsgType == usMsgType) {
            return i;
        }
    }
    return MTE_CAT_NONE;
}

// The position of the table's first column of that kind (its index fields).
constexpr size_t MTE_CAT_KindIndex(const MTE_CAT_TABLE_S& stTable, MTE_CAT_KIND_E eKind) {
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        if (stTable.pstColumns[i].eKind == eKind) {
            return i;
        }
    }
    return MTE_CAT_NONE;
}

// The table carried by that message type, or null.
inline const MTE_CAT_TABLE_S* MTE_CAT_OfType(uint16_t usMsgType) {
    size_t i = MTE_CAT_IndexOfType(usMsgType);
    return i == MTE_CAT_NONE ? nullptr : &g_astMteCatalogue[i];
}

// The table's first column of that kind, or null.
constexpr const MTE_CAT_COLUMN_S* MTE_CAT_FindKind(const MTE_CAT_TABLE_S& stTable,
                                                   MTE_CAT_KIND_E eKind) {
    size_t i = MTE_CAT_KindIndex(stTable, eKind);
    return i == MTE_CAT_NONE ? nullptr : &stTable.pstColumns[i];
}

// The column-mask bits a write of the column sets (a BITS column: one per bit).
constexpr uint32_t MTE_CAT_ColumnMask(const MTE_CAT_COLUMN_S& stColumn) {
    uint32_t uiMask = stColumn.uiColumn != 0 ? MTE_COLUMN_BIT(stColumn.uiColumn) : 0;
    for (size_t i = 0; stColumn.eKind == MTE_CAT_KIND_E::BITS && i < stColumn.uiNameCount; ++i) {
        uiMask |= MTE_COLUMN_BIT(stColumn.pstNames[i].uiColumn);
    }
    return uiMask;
}

constexpr bool MTE_CAT_IsString(MTE_CAT_KIND_E eKind) {
    return eKind == MTE_CAT_KIND_E::OWNER || eKind == MTE_CAT_KIND_E::NAME ||
           eKind == MTE_CAT_KIND_E::STR || eKind == MTE_CAT_KIND_E::OWNER_REF;
}

// Terminates every string field of a table's row in place, so that a row from
// outside (a request, a stored record) is read as at most size - 1 characters
// per field and no lookup or copy reads beyond a field.
inline void MTE_CAT_TerminateStrings(MTE_CAT_TABLE_E eTable, void* pRow) {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[eTable];
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        const MTE_CAT_COLUMN_S& stColumn = stTable.pstColumns[i];
        if (MTE_CAT_IsString(stColumn.eKind)) {
            static_cast<char*>(pRow)[stColumn.usOffset + stColumn.usSize - 1] = '\0';
        }
    }
}

template <typename Row>
Row MTE_CAT_TerminatedCopy(MTE_CAT_TABLE_E eTable, const Row& stRow) {
    Row stCopy = stRow;
    MTE_CAT_TerminateStrings(eTable, &stCopy);
    return stCopy;
}

// Whether a write of the column, when the mask has it, changes the row:
// strings by their text, OIDs by their meaningful sub-identifiers, BITS bit by
// bit, numbers by value. Index and read-only columns are never written.
inline bool MTE_CAT_ColumnDiffers(const MTE_CAT_COLUMN_S& stColumn, const uint8_t* pucReq,
                                  uint32_t uiMask, const uint8_t* pucRow) {
    auto bMasked = [uiMask](uint32_t uiColumn) {
        return uiColumn != 0 && (uiMask & MTE_COLUMN_BIT(uiColumn)) != 0;
    };
    const uint8_t* pucA = pucReq + stColumn.usOffset;
    const uint8_t* pucB = pucRow + stColumn.usOffset;
    switch (stColumn.eKind) {
        case MTE_CAT_KIND_E::OWNER:
        case MTE_CAT_KIND_E::NAME:
        case MTE_CAT_KIND_E::INDEX:
            return false;
        case MTE_CAT_KIND_E::STR:
        case MTE_CAT_KIND_E::OWNER_REF:
            return bMasked(stColumn.uiColumn) && strcmp(reinterpret_cast<const char*>(pucA),
                                                        reinterpret_cast<const char*>(pucB)) != 0;
        case MTE_CAT_KIND_E::OID:
            return bMasked(stColumn.uiColumn) &&
                   MTE_MSG_IsSameOID(reinterpret_cast<const MTE_OID_S*>(pucA),
                                     reinterpret_cast<const MTE_OID_S*>(pucB)) != 1;
        case MTE_CAT_KIND_E::BITS:
            for (size_t i = 0; i < stColumn.uiNameCount; ++i) {
                if (bMasked(stColumn.pstNames[i].uiColumn) &&
                    ((*pucA ^ *pucB) & stColumn.pstNames[i].uiValue) != 0) {
                    return true;
                }
            }
            return false;
        default:
            return bMasked(stColumn.uiColumn) && memcmp(pucA, pucB, sizeof(uint32_t)) != 0;
    }
}

// Whether a write of the masked columns changes the row.
inline bool MTE_CAT_ColumnsDiffer(MTE_CAT_TABLE_E eTable, const void* pReq, uint32_t uiMask,
                                  const void* pRow) {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[eTable];
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        if (MTE_CAT_ColumnDiffers(stTable.pstColumns[i], static_cast<const uint8_t*>(pReq), uiMask,
                                  static_cast<const uint8_t*>(pRow))) {
            return true;
        }
    }
    return false;
}

// A BITS column's octet after a write: the bits the mask names from ucFrom,
// the others as they were in ucTo.
constexpr uint8_t MTE_CAT_MergeBits(const MTE_CAT_COLUMN_S& stColumn, uint8_t ucFrom,
                                    uint32_t uiMask, uint8_t ucTo) {
    for (size_t i = 0; i < stColumn.uiNameCount; ++i) {
        if ((uiMask & MTE_COLUMN_BIT(stColumn.pstNames[i].uiColumn)) != 0) {
            auto ucBit = static_cast<uint8_t>(stColumn.pstNames[i].uiValue);
            ucTo = static_cast<uint8_t>((ucTo & ~ucBit) | (ucFrom & ucBit));
        }
    }
    return ucTo;
}

// Writes the masked columns of a request (or of a stored record) into a row,
// each by its copy rule; index and read-only columns are never written. The
// daemon's tables use it (channel/mte_catalogue.cpp).
void MTE_CAT_CopyColumns(MTE_CAT_TABLE_E eTable, const void* pReq, uint32_t uiMask, void* pRow);

// Every column lies inside its record, no two columns share a mask bit, and
// no mask bit reaches the force bit.
constexpr bool MTE_CAT_IsSound(const MTE_CAT_TABLE_S& stTable) {
    uint32_t uiSeen = 0;
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        const MTE_CAT_COLUMN_S& stColumn = stTable.pstColumns[i];
        uint32_t uiMask = MTE_CAT_ColumnMask(stColumn);
        if (stColumn.usOffset + stColumn.usSize > stTable.uiRowSize || (uiSeen & uiMask) != 0 ||
            (uiMask & ~MTE_MASK_ALL_COLUMNS) != 0) {
            return false;
        }
        uiSeen |= uiMask;
    }
    return MTE_CAT_KindIndex(stTable, MTE_CAT_KIND_E::OWNER) != MTE_CAT_NONE &&
           MTE_CAT_KindIndex(stTable, MTE_CAT_KIND_E::NAME) != MTE_CAT_NONE;
}

constexpr bool MTE_CAT_AllSound() {
    for (const MTE_CAT_TABLE_S& stTable : g_astMteCatalogue) {
        if (!MTE_CAT_IsSound(stTable)) {
            return false;
        }
    }
    return true;
}
static_assert(MTE_CAT_AllSound(), "a catalogue column overlaps another or leaves its record");

#endif  // MTE_CATALOGUE_H
