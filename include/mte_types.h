// Shared records and codes of the Event MIB daemon.
//
// Every row record below travels byte for byte in management messages and is
// stored as it is in the configuration store, so each size and field offset is
// pinned at compile time: a layout slip must fail the build, not corrupt a
// store or confuse the agent side. Integers are in host byte order.
#ifndef MTE_TYPES_H
#define MTE_TYPES_H

#include <pthread.h>

#include <cstddef>
#include <cstdint>

// ---------------------------------------------------------------------------
// Result codes (unsigned 32-bit, passed up unchanged).
// ---------------------------------------------------------------------------
constexpr uint32_t MTE_OK = 0;
constexpr uint32_t MTE_ERR_GENERAL = 0x40010001;      // general failure, every failed Init
constexpr uint32_t MTE_ERR_NO_SUCH_ROW = 0x40010005;  // no such row / create without status
constexpr uint32_t MTE_ERR_ROW_EXISTS = 0x40010006;   // the row already exists
constexpr uint32_t MTE_ERR_NO_CHANGE = 0x4001000b;    // write to an active row that changes nothing
constexpr uint32_t MTE_ERR_MEMORY_PRESSURE = 0x4001000f;  // creation refused by the memory guard
constexpr uint32_t MTE_ERR_INCONSISTENT = 0x40010010;     // inconsistent or refused write
constexpr uint32_t MTE_ERR_REPLY_TOO_SMALL = 0x20010002;  // get: the row does not fit the reply
constexpr uint32_t MTE_ERR_NEXT_TOO_BIG = 0x40010007;  // get-next: the row does not fit the reply
constexpr uint32_t MTE_ERR_TABLE_EMPTY = 0x60010023;   // get-next: the table holds no row

// ---------------------------------------------------------------------------
// SNMP textual conventions.
// ---------------------------------------------------------------------------
constexpr uint32_t MTE_TRUE = 1;
constexpr uint32_t MTE_FALSE = 2;

constexpr uint32_t MTE_ROW_NONE = 0;  // a request that carries no status
constexpr uint32_t MTE_ROW_ACTIVE = 1;
constexpr uint32_t MTE_ROW_NOT_IN_SERVICE = 2;
constexpr uint32_t MTE_ROW_NOT_READY = 3;
constexpr uint32_t MTE_ROW_CREATE_AND_GO = 4;
constexpr uint32_t MTE_ROW_CREATE_AND_WAIT = 5;
constexpr uint32_t MTE_ROW_DESTROY = 6;

// Column mask bit 31: waives the frequency minimum, the threshold ordering
// checks and the memory guard (used by recovery-like callers, never by SNMP).
constexpr uint32_t MTE_MASK_FORCE = 0x80000000u;
// Mask that recovery passes: every column, bit 31 clear.
constexpr uint32_t MTE_MASK_ALL_COLUMNS = 0x0fffffffu;

constexpr uint32_t MTE_COLUMN_BIT(uint32_t column) {
    return 1u << column;
}

// ---------------------------------------------------------------------------
// Sizes of fixed fields.
// ---------------------------------------------------------------------------
constexpr uint32_t MTE_OID_MAX_LEN = 128;
constexpr size_t MTE_NAME_SIZE = 33;      // owners, names, context names (32 characters + NUL)
constexpr size_t MTE_COMMENT_SIZE = 256;  // comments and target tags (255 characters + NUL)

// An object identifier as every record holds it.
struct MTE_OID_S {
    uint32_t uiLen;                    // number of meaningful sub-identifiers, 0..128
    uint32_t auiOid[MTE_OID_MAX_LEN];  // the first uiLen are meaningful
};
static_assert(sizeof(MTE_OID_S) == 516);
static_assert(offsetof(MTE_OID_S, auiOid) == 4);

// ---------------------------------------------------------------------------
// Trigger table (mteTriggerTable).
// ---------------------------------------------------------------------------
constexpr uint8_t MTE_TEST_EXISTENCE = 0x80;
constexpr uint8_t MTE_TEST_BOOLEAN = 0x40;
constexpr uint8_t MTE_TEST_THRESHOLD = 0x20;

constexpr uint32_t MTE_SAMPLE_ABSOLUTE = 1;
constexpr uint32_t MTE_SAMPLE_DELTA = 2;

struct MTE_TRIGGER_ROW_S {
    MTE_OID_S stValueID;
    uint32_t uiFrequency;            // seconds; default 600
    uint32_t uiSampleType;           // 1 absoluteValue, 2 deltaValue
    uint32_t uiValueIDWildcard;      // TruthValue
    uint32_t uiContextNameWildcard;  // TruthValue
    uint32_t uiEnabled;              // TruthValue, kept equal to (status == active)
    uint32_t uiEntryStatus;          // RowStatus
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szComment[MTE_COMMENT_SIZE];
    char szTargetTag[MTE_COMMENT_SIZE];  // never written by a set request
    char szContextName[MTE_NAME_SIZE];
    char szObjectsOwner[MTE_NAME_SIZE];  // empty or equal to szOwner
    char szObjects[MTE_NAME_SIZE];
    uint8_t ucTest;  // MTE_TEST_* bits
    uint8_t aucPad[2];
};
static_assert(sizeof(MTE_TRIGGER_ROW_S) == 1220);
static_assert(offsetof(MTE_TRIGGER_ROW_S, stValueID) == 0);
static_assert(offsetof(MTE_TRIGGER_ROW_S, uiFrequency) == 516);
static_assert(offsetof(MTE_TRIGGER_ROW_S, uiSampleType) == 520);
static_assert(offsetof(MTE_TRIGGER_ROW_S, uiValueIDWildcard) == 524);
static_assert(offsetof(MTE_TRIGGER_ROW_S, uiContextNameWildcard) == 528);
static_assert(offsetof(MTE_TRIGGER_ROW_S, uiEnabled) == 532);
static_assert(offsetof(MTE_TRIGGER_ROW_S, uiEntryStatus) == 536);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szOwner) == 540);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szName) == 573);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szComment) == 606);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szTargetTag) == 862);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szContextName) == 1118);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szObjectsOwner) == 1151);
static_assert(offsetof(MTE_TRIGGER_ROW_S, szObjects) == 1184);
static_assert(offsetof(MTE_TRIGGER_ROW_S, ucTest) == 1217);

// Trigger table columns (mask bit 1 << column; failed-column numbers alike).
enum : uint32_t {
    MTE_TRIGGER_COL_COMMENT = 3,
    MTE_TRIGGER_COL_TEST_EXISTENCE = 4,
    MTE_TRIGGER_COL_TEST_BOOLEAN = 5,
    MTE_TRIGGER_COL_TEST_THRESHOLD = 6,
    MTE_TRIGGER_COL_SAMPLE_TYPE = 7,
    MTE_TRIGGER_COL_VALUE_ID = 8,
    MTE_TRIGGER_COL_VALUE_ID_WILDCARD = 9,
    MTE_TRIGGER_COL_CONTEXT_NAME = 10,
    MTE_TRIGGER_COL_CONTEXT_NAME_WILDCARD = 11,
    MTE_TRIGGER_COL_FREQUENCY = 12,
    MTE_TRIGGER_COL_OBJECTS_OWNER = 13,
    MTE_TRIGGER_COL_OBJECTS = 14,
    MTE_TRIGGER_COL_ENTRY_STATUS = 15,
};

// ---------------------------------------------------------------------------
// Existence test (mteTriggerExistenceTable).
// ---------------------------------------------------------------------------
constexpr uint8_t MTE_EXIST_PRESENT = 0x80;
constexpr uint8_t MTE_EXIST_ABSENT = 0x40;
constexpr uint8_t MTE_EXIST_CHANGED = 0x20;

struct MTE_EXIST_ENTRY_S {
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szObjectsOwner[MTE_NAME_SIZE];
    char szObjects[MTE_NAME_SIZE];
    char szEventOwner[MTE_NAME_SIZE];
    char szEvent[MTE_NAME_SIZE];
    uint8_t ucTest;     // MTE_EXIST_* bits; default 0xC0
    uint8_t ucStartup;  // present/absent bits; default 0xC0
    // Run state, neither stored nor sent: 1 until the trigger's first sampling
    // cycle has been evaluated (selects the startup rule).
    uint16_t usFirstCycle;
};
constexpr size_t MTE_EXIST_ROW_SIZE = 200;  // the stored and exchanged part
static_assert(sizeof(MTE_EXIST_ENTRY_S) == 202);
static_assert(offsetof(MTE_EXIST_ENTRY_S, szOwner) == 0);
static_assert(offsetof(MTE_EXIST_ENTRY_S, szName) == 33);
static_assert(offsetof(MTE_EXIST_ENTRY_S, szObjectsOwner) == 66);
static_assert(offsetof(MTE_EXIST_ENTRY_S, szObjects) == 99);
static_assert(offsetof(MTE_EXIST_ENTRY_S, szEventOwner) == 132);
static_assert(offsetof(MTE_EXIST_ENTRY_S, szEvent) == 165);
static_assert(offsetof(MTE_EXIST_ENTRY_S, ucTest) == 198);
static_assert(offsetof(MTE_EXIST_ENTRY_S, ucStartup) == 199);
static_assert(offsetof(MTE_EXIST_ENTRY_S, usFirstCycle) == MTE_EXIST_ROW_SIZE);

enum : uint32_t {
    MTE_EXIST_COL_TEST_PRESENT = 1,
    MTE_EXIST_COL_TEST_ABSENT = 2,
    MTE_EXIST_COL_TEST_CHANGED = 3,
    MTE_EXIST_COL_STARTUP_PRESENT = 4,
    MTE_EXIST_COL_STARTUP_ABSENT = 5,
    MTE_EXIST_COL_OBJECTS_OWNER = 6,
    MTE_EXIST_COL_OBJECTS = 7,
    MTE_EXIST_COL_EVENT_OWNER = 8,
    MTE_EXIST_COL_EVENT = 9,
};

// ---------------------------------------------------------------------------
// Boolean test (mteTriggerBooleanTable).
// ---------------------------------------------------------------------------
enum : uint32_t {
    MTE_BOOL_UNEQUAL = 1,
    MTE_BOOL_EQUAL = 2,
    MTE_BOOL_LESS = 3,
    MTE_BOOL_LESS_OR_EQUAL = 4,
    MTE_BOOL_GREATER = 5,
    MTE_BOOL_GREATER_OR_EQUAL = 6,
};

struct MTE_BOOL_ENTRY_S {
    int32_t iValue;
    uint32_t uiComparison;  // MTE_BOOL_*; default unequal
    uint32_t uiStartup;     // TruthValue; default true
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szObjectsOwner[MTE_NAME_SIZE];
    char szObjects[MTE_NAME_SIZE];
    char szEventOwner[MTE_NAME_SIZE];
    char szEvent[MTE_NAME_SIZE];
    uint8_t aucPad[2];
};
static_assert(sizeof(MTE_BOOL_ENTRY_S) == 212);
static_assert(offsetof(MTE_BOOL_ENTRY_S, iValue) == 0);
static_assert(offsetof(MTE_BOOL_ENTRY_S, uiComparison) == 4);
static_assert(offsetof(MTE_BOOL_ENTRY_S, uiStartup) == 8);
static_assert(offsetof(MTE_BOOL_ENTRY_S, szOwner) == 12);
static_assert(offsetof(MTE_BOOL_ENTRY_S, szName) == 45);
static_assert(offsetof(MTE_BOOL_ENTRY_S, szObjectsOwner) == 78);
static_assert(offsetof(MTE_BOOL_ENTRY_S, szObjects) == 111);
static_assert(offsetof(MTE_BOOL_ENTRY_S, szEventOwner) == 144);
static_assert(offsetof(MTE_BOOL_ENTRY_S, szEvent) == 177);

enum : uint32_t {
    MTE_BOOL_COL_COMPARISON = 1,
    MTE_BOOL_COL_VALUE = 2,
    MTE_BOOL_COL_STARTUP = 3,
    MTE_BOOL_COL_OBJECTS_OWNER = 4,
    MTE_BOOL_COL_OBJECTS = 5,
    MTE_BOOL_COL_EVENT_OWNER = 6,
    MTE_BOOL_COL_EVENT = 7,
};

// ---------------------------------------------------------------------------
// Threshold test (mteTriggerThresholdTable).
// ---------------------------------------------------------------------------
enum : uint32_t {
    MTE_THRES_STARTUP_RISING = 1,
    MTE_THRES_STARTUP_FALLING = 2,
    MTE_THRES_STARTUP_RISING_OR_FALLING = 3,
};

struct MTE_THRES_ENTRY_S {
    uint32_t uiStartup;  // default risingOrFalling
    int32_t iRising;
    int32_t iFalling;
    int32_t iDeltaRising;
    int32_t iDeltaFalling;
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szObjectsOwner[MTE_NAME_SIZE];
    char szObjects[MTE_NAME_SIZE];
    char szRisingEventOwner[MTE_NAME_SIZE];
    char szRisingEvent[MTE_NAME_SIZE];
    char szFallingEventOwner[MTE_NAME_SIZE];
    char szFallingEvent[MTE_NAME_SIZE];
    char szDeltaRisingEventOwner[MTE_NAME_SIZE];
    char szDeltaRisingEvent[MTE_NAME_SIZE];
    char szDeltaFallingEventOwner[MTE_NAME_SIZE];
    char szDeltaFallingEvent[MTE_NAME_SIZE];
};
static_assert(sizeof(MTE_THRES_ENTRY_S) == 416);
static_assert(offsetof(MTE_THRES_ENTRY_S, uiStartup) == 0);
static_assert(offsetof(MTE_THRES_ENTRY_S, iRising) == 4);
static_assert(offsetof(MTE_THRES_ENTRY_S, iFalling) == 8);
static_assert(offsetof(MTE_THRES_ENTRY_S, iDeltaRising) == 12);
static_assert(offsetof(MTE_THRES_ENTRY_S, iDeltaFalling) == 16);
static_assert(offsetof(MTE_THRES_ENTRY_S, szOwner) == 20);
static_assert(offsetof(MTE_THRES_ENTRY_S, szName) == 53);
static_assert(offsetof(MTE_THRES_ENTRY_S, szObjectsOwner) == 86);
static_assert(offsetof(MTE_THRES_ENTRY_S, szObjects) == 119);
static_assert(offsetof(MTE_THRES_ENTRY_S, szRisingEventOwner) == 152);
static_assert(offsetof(MTE_THRES_ENTRY_S, szRisingEvent) == 185);
static_assert(offsetof(MTE_THRES_ENTRY_S, szFallingEventOwner) == 218);
static_assert(offsetof(MTE_THRES_ENTRY_S, szFallingEvent) == 251);
static_assert(offsetof(MTE_THRES_ENTRY_S, szDeltaRisingEventOwner) == 284);
static_assert(offsetof(MTE_THRES_ENTRY_S, szDeltaRisingEvent) == 317);
static_assert(offsetof(MTE_THRES_ENTRY_S, szDeltaFallingEventOwner) == 350);
static_assert(offsetof(MTE_THRES_ENTRY_S, szDeltaFallingEvent) == 383);

enum : uint32_t {
    MTE_THRES_COL_STARTUP = 1,
    MTE_THRES_COL_RISING = 2,
    MTE_THRES_COL_FALLING = 3,
    MTE_THRES_COL_DELTA_RISING = 4,
    MTE_THRES_COL_DELTA_FALLING = 5,
    MTE_THRES_COL_OBJECTS_OWNER = 6,
    MTE_THRES_COL_OBJECTS = 7,
    MTE_THRES_COL_RISING_EVENT_OWNER = 8,
    MTE_THRES_COL_RISING_EVENT = 9,
    MTE_THRES_COL_FALLING_EVENT_OWNER = 10,
    MTE_THRES_COL_FALLING_EVENT = 11,
    MTE_THRES_COL_DELTA_RISING_EVENT_OWNER = 12,
    MTE_THRES_COL_DELTA_RISING_EVENT = 13,
    MTE_THRES_COL_DELTA_FALLING_EVENT_OWNER = 14,
    MTE_THRES_COL_DELTA_FALLING_EVENT = 15,
};

// ---------------------------------------------------------------------------
// Delta row of a trigger (mteTriggerDeltaTable, RFC 2981): where the sampler
// reads the discontinuity indicator of a delta trigger's value. An addition
// to the tables above: present exactly for triggers of sample type
// deltaValue. See docs/trigger.md.
// ---------------------------------------------------------------------------
enum : uint32_t {
    MTE_DELTA_TIME_TICKS = 1,
    MTE_DELTA_TIME_STAMP = 2,
    MTE_DELTA_DATE_AND_TIME = 3,
};

struct MTE_DELTA_ENTRY_S {
    MTE_OID_S stDiscontinuityID;         // default sysUpTime.0
    uint32_t uiDiscontinuityIDWildcard;  // TruthValue; default false
    uint32_t uiDiscontinuityIDType;      // MTE_DELTA_*; default timeTicks
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    uint8_t aucPad[2];
};
static_assert(sizeof(MTE_DELTA_ENTRY_S) == 592);
static_assert(offsetof(MTE_DELTA_ENTRY_S, stDiscontinuityID) == 0);
static_assert(offsetof(MTE_DELTA_ENTRY_S, uiDiscontinuityIDWildcard) == 516);
static_assert(offsetof(MTE_DELTA_ENTRY_S, uiDiscontinuityIDType) == 520);
static_assert(offsetof(MTE_DELTA_ENTRY_S, szOwner) == 524);
static_assert(offsetof(MTE_DELTA_ENTRY_S, szName) == 557);

enum : uint32_t {
    MTE_DELTA_COL_DISCONTINUITY_ID = 1,
    MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD = 2,
    MTE_DELTA_COL_DISCONTINUITY_ID_TYPE = 3,
};

// Per-sample test state bits (uiTestState of MTE_SAMPLE_S); a new sample has
// all bits set (MTE_TSTATE_NEW).
constexpr uint32_t MTE_TSTATE_RISING = 0x01;
constexpr uint32_t MTE_TSTATE_DELTA_RISING = 0x02;
constexpr uint32_t MTE_TSTATE_FALLING = 0x04;
constexpr uint32_t MTE_TSTATE_DELTA_FALLING = 0x08;
constexpr uint32_t MTE_TSTATE_BOOLEAN = 0x10;
constexpr uint32_t MTE_TSTATE_NEW = 255;

// Test results shared by the tests and the evaluation.
enum : int32_t {
    MTE_CHECK_BADTYPE = -5,
    MTE_CHECK_PRESENT = 19,
    MTE_CHECK_ABSENT = 20,
    MTE_CHECK_CHANGED = 21,
    MTE_CHECK_BOOLEAN = 22,
    MTE_CHECK_RISING = 23,
    MTE_CHECK_FALLING = 24,
    MTE_CHECK_DELTA_RISING = 25,
    MTE_CHECK_DELTA_FALLING = 26,
    MTE_CHECK_NONE = 27,
};

// ---------------------------------------------------------------------------
// Objects table (mteObjectsTable).
// ---------------------------------------------------------------------------
struct MTE_OBJ_ROW_S {
    MTE_OID_S stID;
    uint32_t uiEntryStatus;  // always active for a row in the table
    uint32_t uiIDWildcard;   // TruthValue
    uint32_t uiIndex;        // mteObjectsIndex
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    uint8_t aucPad[2];
};
static_assert(sizeof(MTE_OBJ_ROW_S) == 596);
static_assert(offsetof(MTE_OBJ_ROW_S, stID) == 0);
static_assert(offsetof(MTE_OBJ_ROW_S, uiEntryStatus) == 516);
static_assert(offsetof(MTE_OBJ_ROW_S, uiIDWildcard) == 520);
static_assert(offsetof(MTE_OBJ_ROW_S, uiIndex) == 524);
static_assert(offsetof(MTE_OBJ_ROW_S, szOwner) == 528);
static_assert(offsetof(MTE_OBJ_ROW_S, szName) == 561);

enum : uint32_t {
    MTE_OBJ_COL_ID = 3,
    MTE_OBJ_COL_ID_WILDCARD = 4,
    MTE_OBJ_COL_ENTRY_STATUS = 5,
};

// ---------------------------------------------------------------------------
// Event table (mteEventTable).
// ---------------------------------------------------------------------------
constexpr uint8_t MTE_ACTION_NOTIFICATION = 0x80;
constexpr uint8_t MTE_ACTION_SET = 0x40;

struct MTE_EVENT_ROW_S {
    uint32_t uiEnabled;      // TruthValue, equal to (status == active)
    uint32_t uiEntryStatus;  // RowStatus
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szComment[MTE_COMMENT_SIZE];
    uint8_t ucActions;  // MTE_ACTION_* bits
    uint8_t ucPad;
};
static_assert(sizeof(MTE_EVENT_ROW_S) == 332);
static_assert(offsetof(MTE_EVENT_ROW_S, uiEnabled) == 0);
static_assert(offsetof(MTE_EVENT_ROW_S, uiEntryStatus) == 4);
static_assert(offsetof(MTE_EVENT_ROW_S, szOwner) == 8);
static_assert(offsetof(MTE_EVENT_ROW_S, szName) == 41);
static_assert(offsetof(MTE_EVENT_ROW_S, szComment) == 74);
static_assert(offsetof(MTE_EVENT_ROW_S, ucActions) == 330);

enum : uint32_t {
    MTE_EVENT_COL_COMMENT = 2,
    MTE_EVENT_COL_ACTION_SET = 3,
    MTE_EVENT_COL_ACTION_NOTIFICATION = 4,
    MTE_EVENT_COL_ENABLED = 5,  // ignored: mteEventEnabled follows the status
    MTE_EVENT_COL_ENTRY_STATUS = 6,
};

// Notification action (mteEventNotificationTable).
struct MTE_NOTIFY_ENTRY_S {
    MTE_OID_S stNotification;  // count 0: no notification configured
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szObjectsOwner[MTE_NAME_SIZE];
    char szObjects[MTE_NAME_SIZE];
};
static_assert(sizeof(MTE_NOTIFY_ENTRY_S) == 648);
static_assert(offsetof(MTE_NOTIFY_ENTRY_S, stNotification) == 0);
static_assert(offsetof(MTE_NOTIFY_ENTRY_S, szOwner) == 516);
static_assert(offsetof(MTE_NOTIFY_ENTRY_S, szName) == 549);
static_assert(offsetof(MTE_NOTIFY_ENTRY_S, szObjectsOwner) == 582);
static_assert(offsetof(MTE_NOTIFY_ENTRY_S, szObjects) == 615);

enum : uint32_t {
    MTE_NOTIFY_COL_NOTIFICATION = 1,
    MTE_NOTIFY_COL_OBJECTS = 2,
    MTE_NOTIFY_COL_OBJECTS_OWNER = 3,
};

// Set action (mteEventSetTable).
struct MTE_SET_ENTRY_S {
    MTE_OID_S stObject;  // count 0: no object configured
    int32_t iValue;
    uint32_t uiObjectWildcard;       // TruthValue; false on creation
    uint32_t uiContextNameWildcard;  // TruthValue; false on creation
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    char szTargetTag[MTE_COMMENT_SIZE];  // never written: sets are always local
    char szContextName[MTE_NAME_SIZE];
    uint8_t ucPad;
};
static_assert(sizeof(MTE_SET_ENTRY_S) == 884);
static_assert(offsetof(MTE_SET_ENTRY_S, stObject) == 0);
static_assert(offsetof(MTE_SET_ENTRY_S, iValue) == 516);
static_assert(offsetof(MTE_SET_ENTRY_S, uiObjectWildcard) == 520);
static_assert(offsetof(MTE_SET_ENTRY_S, uiContextNameWildcard) == 524);
static_assert(offsetof(MTE_SET_ENTRY_S, szOwner) == 528);
static_assert(offsetof(MTE_SET_ENTRY_S, szName) == 561);
static_assert(offsetof(MTE_SET_ENTRY_S, szTargetTag) == 594);
static_assert(offsetof(MTE_SET_ENTRY_S, szContextName) == 850);

enum : uint32_t {
    MTE_SET_COL_OBJECT = 1,
    MTE_SET_COL_OBJECT_WILDCARD = 2,
    MTE_SET_COL_VALUE = 3,
    MTE_SET_COL_TARGET_TAG = 4,  // ignored: sets are always local
    MTE_SET_COL_CONTEXT_NAME = 5,
    MTE_SET_COL_CONTEXT_NAME_WILDCARD = 6,
};

// ---------------------------------------------------------------------------
// Resource scalars record (management item 1).
// ---------------------------------------------------------------------------
struct MTE_SCALAR_S {
    uint32_t uiSampleMinimum;
    uint32_t uiSampleInstanceMaximum;
    uint32_t uiSampleInstances;
    uint32_t uiSampleInstancesHigh;
    uint32_t uiSampleInstanceLacks;
    uint32_t uiTriggerFailures;
    uint32_t uiEventFailures;
};
static_assert(sizeof(MTE_SCALAR_S) == 28);
static_assert(offsetof(MTE_SCALAR_S, uiEventFailures) == 24);

// The engine's own counters, an extension beside the scalars record
// (management type 16, item 17); the 28-byte record stays as it is. Both
// count since start and are never stored.
struct MTE_ENGINE_COUNTERS_S {
    uint32_t uiSamplesMissed;  // trigger samples not taken at their frequency
    // Notifications the daemon decided to send but had to drop because the
    // queue held for eventmib-agentx was full.
    uint32_t uiNotificationDrops;
};
static_assert(sizeof(MTE_ENGINE_COUNTERS_S) == 8);
static_assert(offsetof(MTE_ENGINE_COUNTERS_S, uiNotificationDrops) == 4);

// ---------------------------------------------------------------------------
// Index keys of get-next requests (management items 5, 10, 12): the index of
// the row before the wanted one.
// ---------------------------------------------------------------------------
struct MTE_INDEX_KEY_S {
    uint32_t uiOwnerLen;
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];  // trigger name or event name
    uint8_t aucPad[2];
};
static_assert(sizeof(MTE_INDEX_KEY_S) == 72);
static_assert(offsetof(MTE_INDEX_KEY_S, szOwner) == 4);
static_assert(offsetof(MTE_INDEX_KEY_S, szName) == 37);

struct MTE_OBJ_INDEX_KEY_S {
    uint32_t uiOwnerLen;
    uint32_t uiNameLen;
    uint32_t uiIndex;
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    uint8_t aucPad[2];
};
static_assert(sizeof(MTE_OBJ_INDEX_KEY_S) == 80);
static_assert(offsetof(MTE_OBJ_INDEX_KEY_S, uiIndex) == 8);
static_assert(offsetof(MTE_OBJ_INDEX_KEY_S, szOwner) == 12);
static_assert(offsetof(MTE_OBJ_INDEX_KEY_S, szName) == 45);

// Presence flags of the sub-table get-next walks.
constexpr uint8_t MTE_PRESENT_EXISTENCE = 0x80;
constexpr uint8_t MTE_PRESENT_BOOLEAN = 0x40;
constexpr uint8_t MTE_PRESENT_THRESHOLD = 0x20;
constexpr uint8_t MTE_PRESENT_DELTA = 0x10;
constexpr uint8_t MTE_PRESENT_NOTIFY = 0x80;
constexpr uint8_t MTE_PRESENT_SET = 0x40;

// ---------------------------------------------------------------------------
// Values as the platform's SNMP client returns them.
// ---------------------------------------------------------------------------
struct SNMP_VALUE_S {
    void* pData;      // the value's bytes, a heap block of its own
    uint32_t uiLen;   // length in bytes
    uint32_t uiType;  // value type code (SNMP_VTYPE_*, platform/snmp_client.h)
};
static_assert(sizeof(SNMP_VALUE_S) == 16);
static_assert(offsetof(SNMP_VALUE_S, uiLen) == 8);
static_assert(offsetof(SNMP_VALUE_S, uiType) == 12);

// One sampled instance. Owned by the sample list that holds it.
struct MTE_SAMPLE_S {
    MTE_SAMPLE_S* pstNext;
    uint32_t uiOidLen;  // 0 in a context marker
    uint32_t auiOid[MTE_OID_MAX_LEN];
    uint32_t uiTestState;    // MTE_TSTATE_* bits, MTE_TSTATE_NEW when made
    SNMP_VALUE_S* pstValue;  // may be null; owned by the sample
    char szContextName[MTE_NAME_SIZE];
    uint16_t usOverLimit;  // 1: not counted, the instance maximum was reached
    // Discontinuity indicators read with the sample of a delta trigger: the
    // agent's sysUpTime.0 and the value of the delta row's discontinuity
    // object (TimeTicks as 4 bytes, DateAndTime as 8 or 11).
    uint16_t usDiscRead;  // 1: the two below were read with this sample
    uint32_t uiUpTime;
    uint32_t uiDiscLen;
    uint8_t aucDisc[12];
};

// ---------------------------------------------------------------------------
// Trigger entry: a trigger with its run state. Never moves while it exists:
// its address is kept by its timer and carried through the worker queue.
// ---------------------------------------------------------------------------
enum : uint32_t {
    MTE_RUN_IDLE = 1,
    MTE_RUN_CANCELLED = 2,
    MTE_RUN_DELETED = 3,
    MTE_RUN_BUSY = 4,
    MTE_RUN_RESTART = 5,
};

struct MTE_TRIGGER_ENTRY_S {
    MTE_TRIGGER_ENTRY_S* pstNext;  // next in index order (main thread only)
    MTE_EXIST_ENTRY_S* pstExist;   // present exactly when ucTest has existence
    MTE_BOOL_ENTRY_S* pstBool;     // present exactly when ucTest has boolean
    MTE_THRES_ENTRY_S* pstThres;   // present exactly when ucTest has threshold
    // Sample lists, guarded by stStateLock.
    MTE_SAMPLE_S* pstPrevSamples;
    MTE_SAMPLE_S* pstPrevSamplesTail;
    MTE_SAMPLE_S* pstCurSamples;
    MTE_SAMPLE_S* pstCurSamplesTail;
    int64_t llTimerId;    // -1: no timer
    uint32_t uiRunState;  // MTE_RUN_*, guarded by stStateLock
    pthread_mutex_t stStateLock;
    MTE_TRIGGER_ROW_S stRow;
    // 1: a non-wildcarded trigger whose one instance is not counted.
    uint16_t usInstanceReleased;
    MTE_DELTA_ENTRY_S* pstDelta;  // present exactly when the sample type is deltaValue
    uint32_t uiOwnerLen;          // strlen of stRow.szOwner, set when the entry is linked
};

// One event to run, collected by the evaluation.
struct MTE_FIRED_EVENT_S {
    MTE_FIRED_EVENT_S* pstNext;
    uint32_t uiSuffixLen;
    uint32_t auiSuffix[MTE_OID_MAX_LEN];
    char szEventName[MTE_NAME_SIZE];
    char szEventOwner[MTE_NAME_SIZE];
    char szContextName[MTE_NAME_SIZE];
    char szObjectsOwner[MTE_NAME_SIZE];
    char szObjectsName[MTE_NAME_SIZE];
};

// Variable-binding list of a configured notification. The platform's
// SNMP_SendTrapByVBList walks it, so the element layout is fixed.
struct MTE_VB_S {
    MTE_VB_S* pstNext;
    MTE_OID_S stOID;
    uint32_t uiPad;
    SNMP_VALUE_S* pValue;  // none until fetched
};
static_assert(sizeof(MTE_VB_S) == 536);
static_assert(offsetof(MTE_VB_S, stOID) == 8);
static_assert(offsetof(MTE_VB_S, pValue) == 528);

struct MTE_VB_LIST_S {
    MTE_VB_S* pstHead;
    MTE_VB_S* pstTail;
};
static_assert(offsetof(MTE_VB_LIST_S, pstTail) == 8);

// Epoll handler: called with the event bits and the descriptor; the result is
// ignored. Used by the main epoll set and the worker's.
typedef void (*MTE_EPOLL_PROC_PF)(uint32_t uiEvents, int iFd);

#endif  // MTE_TYPES_H
