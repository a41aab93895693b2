// The Event MIB's columns and the daemon's row records side by side, and the
// index encodings of RFC 2981's tables. Constant tables and pure functions:
// any thread, no locks.
#include "mib_map.h"

#include <cstring>

namespace {

#define EMA_OFF(S, f) static_cast<uint16_t>(offsetof(S, f))
#define EMA_SZ(S, f) static_cast<uint16_t>(sizeof(S::f))

constexpr uint32_t B(uint32_t uiColumn) {
    return MTE_COLUMN_BIT(uiColumn);
}

constexpr int32_t EMA_INT_MIN = INT32_MIN;
constexpr int32_t EMA_INT_MAX = INT32_MAX;
constexpr int32_t EMA_NAME_MAX = MTE_NAME_SIZE - 1;
constexpr int32_t EMA_COMMENT_MAX = MTE_COMMENT_SIZE - 1;

// The daemon keeps a BITS object as one byte with the RFC's bit positions
// (bit 0 = 0x80) but writes each bit as a column of its own. This is the
// mapping, per message type and RFC column, bit by bit; the columns' masks
// below are checked against it.
struct EMA_BITS_MAP_S {
    uint16_t usMsgType;
    uint8_t ucRfcColumn;
    uint8_t ucBit;  // the bit in the octet (0x80 = BITS bit 0)
    uint32_t uiDaemonColumn;
};
constexpr EMA_BITS_MAP_S g_astBitsMap[] = {
    {4, 4, 0x80, MTE_TRIGGER_COL_TEST_EXISTENCE},     // mteTriggerTest existence(0)
    {4, 4, 0x40, MTE_TRIGGER_COL_TEST_BOOLEAN},       // boolean(1)
    {4, 4, 0x20, MTE_TRIGGER_COL_TEST_THRESHOLD},     // threshold(2)
    {6, 1, 0x80, MTE_EXIST_COL_TEST_PRESENT},         // mteTriggerExistenceTest present(0)
    {6, 1, 0x40, MTE_EXIST_COL_TEST_ABSENT},          // absent(1)
    {6, 1, 0x20, MTE_EXIST_COL_TEST_CHANGED},         // changed(2)
    {6, 2, 0x80, MTE_EXIST_COL_STARTUP_PRESENT},      // mteTriggerExistenceStartup present(0)
    {6, 2, 0x40, MTE_EXIST_COL_STARTUP_ABSENT},       // absent(1)
    {9, 3, 0x80, MTE_EVENT_COL_ACTION_NOTIFICATION},  // mteEventActions notification(0)
    {9, 3, 0x40, MTE_EVENT_COL_ACTION_SET},           // set(1)
};
static_assert(MTE_TEST_EXISTENCE == 0x80 && MTE_TEST_BOOLEAN == 0x40 && MTE_TEST_THRESHOLD == 0x20);
static_assert(MTE_EXIST_PRESENT == 0x80 && MTE_EXIST_ABSENT == 0x40 && MTE_EXIST_CHANGED == 0x20);
static_assert(MTE_ACTION_NOTIFICATION == 0x80 && MTE_ACTION_SET == 0x40);

constexpr uint32_t BitsMask(uint16_t usMsgType, uint8_t ucRfcColumn) {
    uint32_t uiMask = 0;
    for (const auto& stMap : g_astBitsMap) {
        if (stMap.usMsgType == usMsgType && stMap.ucRfcColumn == ucRfcColumn) {
            uiMask |= B(stMap.uiDaemonColumn);
        }
    }
    return uiMask;
}
constexpr uint8_t BitsAllowed(uint16_t usMsgType, uint8_t ucRfcColumn) {
    uint8_t ucBits = 0;
    for (const auto& stMap : g_astBitsMap) {
        if (stMap.usMsgType == usMsgType && stMap.ucRfcColumn == ucRfcColumn) {
            ucBits |= stMap.ucBit;
        }
    }
    return ucBits;
}

using T = MTE_TRIGGER_ROW_S;
constexpr EMA_COLUMN_S g_astTriggerCols[] = {
    {3, EMA_SYN_STRING, 1, 0, EMA_OFF(T, szComment), EMA_SZ(T, szComment), 0, EMA_COMMENT_MAX,
     B(MTE_TRIGGER_COL_COMMENT)},
    {4, EMA_SYN_BITS, 1, BitsAllowed(4, 4), EMA_OFF(T, ucTest), 1, 0, 0, BitsMask(4, 4)},
    {5, EMA_SYN_INTEGER, 1, 0, EMA_OFF(T, uiSampleType), 4, 1, 2, B(MTE_TRIGGER_COL_SAMPLE_TYPE)},
    {6, EMA_SYN_OID, 1, 0, EMA_OFF(T, stValueID), EMA_SZ(T, stValueID), 0, 0,
     B(MTE_TRIGGER_COL_VALUE_ID)},
    {7, EMA_SYN_TRUTH, 1, 0, EMA_OFF(T, uiValueIDWildcard), 4, 1, 2,
     B(MTE_TRIGGER_COL_VALUE_ID_WILDCARD)},
    {8, EMA_SYN_STRING, 0, 0, EMA_OFF(T, szTargetTag), EMA_SZ(T, szTargetTag), 0, EMA_COMMENT_MAX,
     0},
    {9, EMA_SYN_STRING, 1, 0, EMA_OFF(T, szContextName), EMA_SZ(T, szContextName), 0, EMA_NAME_MAX,
     B(MTE_TRIGGER_COL_CONTEXT_NAME)},
    {10, EMA_SYN_TRUTH, 1, 0, EMA_OFF(T, uiContextNameWildcard), 4, 1, 2,
     B(MTE_TRIGGER_COL_CONTEXT_NAME_WILDCARD)},
    {11, EMA_SYN_UNSIGNED, 1, 0, EMA_OFF(T, uiFrequency), 4, 0, 0, B(MTE_TRIGGER_COL_FREQUENCY)},
    {12, EMA_SYN_STRING, 1, 0, EMA_OFF(T, szObjectsOwner), EMA_SZ(T, szObjectsOwner), 0,
     EMA_NAME_MAX, B(MTE_TRIGGER_COL_OBJECTS_OWNER)},
    {13, EMA_SYN_STRING, 1, 0, EMA_OFF(T, szObjects), EMA_SZ(T, szObjects), 0, EMA_NAME_MAX,
     B(MTE_TRIGGER_COL_OBJECTS)},
    {14, EMA_SYN_TRUTH, 0, 0, EMA_OFF(T, uiEnabled), 4, 1, 2, 0},
    {15, EMA_SYN_STATUS, 1, 0, EMA_OFF(T, uiEntryStatus), 4, 1, 6, B(MTE_TRIGGER_COL_ENTRY_STATUS)},
};

using D = MTE_DELTA_ENTRY_S;
constexpr EMA_COLUMN_S g_astDeltaCols[] = {
    {1, EMA_SYN_OID, 1, 0, EMA_OFF(D, stDiscontinuityID), EMA_SZ(D, stDiscontinuityID), 0, 0,
     B(MTE_DELTA_COL_DISCONTINUITY_ID)},
    {2, EMA_SYN_TRUTH, 1, 0, EMA_OFF(D, uiDiscontinuityIDWildcard), 4, 1, 2,
     B(MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD)},
    {3, EMA_SYN_INTEGER, 1, 0, EMA_OFF(D, uiDiscontinuityIDType), 4, MTE_DELTA_TIME_TICKS,
     MTE_DELTA_DATE_AND_TIME, B(MTE_DELTA_COL_DISCONTINUITY_ID_TYPE)},
};

using X = MTE_EXIST_ENTRY_S;
constexpr EMA_COLUMN_S g_astExistCols[] = {
    {1, EMA_SYN_BITS, 1, BitsAllowed(6, 1), EMA_OFF(X, ucTest), 1, 0, 0, BitsMask(6, 1)},
    {2, EMA_SYN_BITS, 1, BitsAllowed(6, 2), EMA_OFF(X, ucStartup), 1, 0, 0, BitsMask(6, 2)},
    {3, EMA_SYN_STRING, 1, 0, EMA_OFF(X, szObjectsOwner), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_EXIST_COL_OBJECTS_OWNER)},
    {4, EMA_SYN_STRING, 1, 0, EMA_OFF(X, szObjects), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_EXIST_COL_OBJECTS)},
    {5, EMA_SYN_STRING, 1, 0, EMA_OFF(X, szEventOwner), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_EXIST_COL_EVENT_OWNER)},
    {6, EMA_SYN_STRING, 1, 0, EMA_OFF(X, szEvent), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_EXIST_COL_EVENT)},
};

using O = MTE_BOOL_ENTRY_S;
constexpr EMA_COLUMN_S g_astBoolCols[] = {
    {1, EMA_SYN_INTEGER, 1, 0, EMA_OFF(O, uiComparison), 4, 1, 6, B(MTE_BOOL_COL_COMPARISON)},
    {2, EMA_SYN_INTEGER, 1, 0, EMA_OFF(O, iValue), 4, EMA_INT_MIN, EMA_INT_MAX,
     B(MTE_BOOL_COL_VALUE)},
    {3, EMA_SYN_TRUTH, 1, 0, EMA_OFF(O, uiStartup), 4, 1, 2, B(MTE_BOOL_COL_STARTUP)},
    {4, EMA_SYN_STRING, 1, 0, EMA_OFF(O, szObjectsOwner), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_BOOL_COL_OBJECTS_OWNER)},
    {5, EMA_SYN_STRING, 1, 0, EMA_OFF(O, szObjects), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_BOOL_COL_OBJECTS)},
    {6, EMA_SYN_STRING, 1, 0, EMA_OFF(O, szEventOwner), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_BOOL_COL_EVENT_OWNER)},
    {7, EMA_SYN_STRING, 1, 0, EMA_OFF(O, szEvent), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_BOOL_COL_EVENT)},
};

using H = MTE_THRES_ENTRY_S;
#define EMA_THRES_NAME(rfc, field, col) \
    { rfc, EMA_SYN_STRING, 1, 0, EMA_OFF(H, field), MTE_NAME_SIZE, 0, EMA_NAME_MAX, B(col) }
#define EMA_THRES_INT(rfc, field, col) \
    { rfc, EMA_SYN_INTEGER, 1, 0, EMA_OFF(H, field), 4, EMA_INT_MIN, EMA_INT_MAX, B(col) }
constexpr EMA_COLUMN_S g_astThresCols[] = {
    {1, EMA_SYN_INTEGER, 1, 0, EMA_OFF(H, uiStartup), 4, 1, 3, B(MTE_THRES_COL_STARTUP)},
    EMA_THRES_INT(2, iRising, MTE_THRES_COL_RISING),
    EMA_THRES_INT(3, iFalling, MTE_THRES_COL_FALLING),
    EMA_THRES_INT(4, iDeltaRising, MTE_THRES_COL_DELTA_RISING),
    EMA_THRES_INT(5, iDeltaFalling, MTE_THRES_COL_DELTA_FALLING),
    EMA_THRES_NAME(6, szObjectsOwner, MTE_THRES_COL_OBJECTS_OWNER),
    EMA_THRES_NAME(7, szObjects, MTE_THRES_COL_OBJECTS),
    EMA_THRES_NAME(8, szRisingEventOwner, MTE_THRES_COL_RISING_EVENT_OWNER),
    EMA_THRES_NAME(9, szRisingEvent, MTE_THRES_COL_RISING_EVENT),
    EMA_THRES_NAME(10, szFallingEventOwner, MTE_THRES_COL_FALLING_EVENT_OWNER),
    EMA_THRES_NAME(11, szFallingEvent, MTE_THRES_COL_FALLING_EVENT),
    EMA_THRES_NAME(12, szDeltaRisingEventOwner, MTE_THRES_COL_DELTA_RISING_EVENT_OWNER),
    EMA_THRES_NAME(13, szDeltaRisingEvent, MTE_THRES_COL_DELTA_RISING_EVENT),
    EMA_THRES_NAME(14, szDeltaFallingEventOwner, MTE_THRES_COL_DELTA_FALLING_EVENT_OWNER),
    EMA_THRES_NAME(15, szDeltaFallingEvent, MTE_THRES_COL_DELTA_FALLING_EVENT),
};

using J = MTE_OBJ_ROW_S;
constexpr EMA_COLUMN_S g_astObjCols[] = {
    {3, EMA_SYN_OID, 1, 0, EMA_OFF(J, stID), EMA_SZ(J, stID), 0, 0, B(MTE_OBJ_COL_ID)},
    {4, EMA_SYN_TRUTH, 1, 0, EMA_OFF(J, uiIDWildcard), 4, 1, 2, B(MTE_OBJ_COL_ID_WILDCARD)},
    {5, EMA_SYN_STATUS, 1, 0, EMA_OFF(J, uiEntryStatus), 4, 1, 6, B(MTE_OBJ_COL_ENTRY_STATUS)},
};

using E = MTE_EVENT_ROW_S;
constexpr EMA_COLUMN_S g_astEventCols[] = {
    {2, EMA_SYN_STRING, 1, 0, EMA_OFF(E, szComment), EMA_SZ(E, szComment), 0, EMA_COMMENT_MAX,
     B(MTE_EVENT_COL_COMMENT)},
    {3, EMA_SYN_BITS, 1, BitsAllowed(9, 3), EMA_OFF(E, ucActions), 1, 0, 0, BitsMask(9, 3)},
    {4, EMA_SYN_TRUTH, 0, 0, EMA_OFF(E, uiEnabled), 4, 1, 2, 0},
    {5, EMA_SYN_STATUS, 1, 0, EMA_OFF(E, uiEntryStatus), 4, 1, 6, B(MTE_EVENT_COL_ENTRY_STATUS)},
};

// The daemon numbers the notification's objects name 2 and its owner 3; RFC
// 2981 has mteEventNotificationObjectsOwner 2 and mteEventNotificationObjects 3.
using N = MTE_NOTIFY_ENTRY_S;
constexpr EMA_COLUMN_S g_astNotifyCols[] = {
    {1, EMA_SYN_OID, 1, 0, EMA_OFF(N, stNotification), EMA_SZ(N, stNotification), 0, 0,
     B(MTE_NOTIFY_COL_NOTIFICATION)},
    {2, EMA_SYN_STRING, 1, 0, EMA_OFF(N, szObjectsOwner), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_NOTIFY_COL_OBJECTS_OWNER)},
    {3, EMA_SYN_STRING, 1, 0, EMA_OFF(N, szObjects), MTE_NAME_SIZE, 0, EMA_NAME_MAX,
     B(MTE_NOTIFY_COL_OBJECTS)},
};

using S = MTE_SET_ENTRY_S;
constexpr EMA_COLUMN_S g_astSetCols[] = {
    {1, EMA_SYN_OID, 1, 0, EMA_OFF(S, stObject), EMA_SZ(S, stObject), 0, 0, B(1)},
    {2, EMA_SYN_TRUTH, 1, 0, EMA_OFF(S, uiObjectWildcard), 4, 1, 2, B(2)},
    {3, EMA_SYN_INTEGER, 1, 0, EMA_OFF(S, iValue), 4, EMA_INT_MIN, EMA_INT_MAX, B(3)},
    {4, EMA_SYN_STRING, 0, 0, EMA_OFF(S, szTargetTag), EMA_SZ(S, szTargetTag), 0, EMA_COMMENT_MAX,
     0},
    {5, EMA_SYN_STRING, 1, 0, EMA_OFF(S, szContextName), EMA_SZ(S, szContextName), 0, EMA_NAME_MAX,
     B(5)},
    {6, EMA_SYN_TRUTH, 1, 0, EMA_OFF(S, uiContextNameWildcard), 4, 1, 2, B(6)},
};

template <size_t N_>
constexpr uint32_t Count(const EMA_COLUMN_S (&)[N_]) {
    return N_;
}

bool ValidChar(oid uiSub) {
    return uiSub >= 1 && uiSub <= 255;
}

// Copies n sub-identifiers that are all valid characters; false otherwise.
bool CopyChars(const oid* poid, size_t uiCount, char* pszOut) {
    for (size_t i = 0; i < uiCount; ++i) {
        if (!ValidChar(poid[i])) {
            return false;
        }
        pszOut[i] = static_cast<char>(poid[i]);
    }
    pszOut[uiCount] = '\0';
    return true;
}

// Number of leading valid characters, at most uiMax.
size_t ValidPrefix(const oid* poid, size_t uiLen, size_t uiMax) {
    size_t i = 0;
    while (i < uiLen && i < uiMax && ValidChar(poid[i])) {
        ++i;
    }
    return i;
}

// The largest index whose owner is uiOwnerLen characters long.
void MaxKeyOfOwnerLength(size_t uiOwnerLen, EMA_INDEX_S* pstKey) {
    memset(pstKey, 0, sizeof(*pstKey));
    memset(pstKey->szOwner, 0xff, uiOwnerLen);
    memset(pstKey->szName, 0xff, MTE_NAME_SIZE - 1);
    pstKey->uiIndex = UINT32_MAX;
}

uint8_t LowerBoundNamed(const oid* poid, size_t uiLen, EMA_INDEX_S* pstKey) {
    size_t uiOwnerLen = poid[0];
    if (uiLen < 1 + uiOwnerLen || !CopyChars(poid + 1, uiOwnerLen, pstKey->szOwner)) {
        MaxKeyOfOwnerLength(uiOwnerLen - 1, pstKey);
        return EMA_START_AFTER_KEY;
    }
    const oid* poidName = poid + 1 + uiOwnerLen;
    size_t uiRest = uiLen - 1 - uiOwnerLen;
    size_t uiName = ValidPrefix(poidName, uiRest, MTE_NAME_SIZE - 1);
    (void)CopyChars(poidName, uiName, pstKey->szName);
    return EMA_START_AFTER_KEY;
}

uint8_t LowerBoundObjects(const oid* poid, size_t uiLen, EMA_INDEX_S* pstKey) {
    size_t uiOwnerLen = poid[0];
    if (uiLen < 1 + uiOwnerLen || !CopyChars(poid + 1, uiOwnerLen, pstKey->szOwner)) {
        MaxKeyOfOwnerLength(uiOwnerLen - 1, pstKey);
        return EMA_START_AFTER_KEY;
    }
    size_t uiPos = 1 + uiOwnerLen;
    if (uiLen == uiPos) {
        return EMA_START_AFTER_KEY;  // owner alone: before its first name
    }
    size_t uiNameLen = poid[uiPos];
    if (uiNameLen > MTE_NAME_SIZE - 1) {
        memset(pstKey->szName, 0xff, MTE_NAME_SIZE - 1);
        pstKey->uiIndex = UINT32_MAX;
        return EMA_START_AFTER_KEY;
    }
    ++uiPos;
    if (uiLen < uiPos + uiNameLen || !CopyChars(poid + uiPos, uiNameLen, pstKey->szName)) {
        // Past every name of this owner one character shorter.
        memset(pstKey->szName, 0, sizeof(pstKey->szName));
        if (uiNameLen > 0) {
            memset(pstKey->szName, 0xff, uiNameLen - 1);
        }
        pstKey->uiIndex = UINT32_MAX;
        return EMA_START_AFTER_KEY;
    }
    uiPos += uiNameLen;
    pstKey->uiIndex = uiLen > uiPos ? static_cast<uint32_t>(poid[uiPos]) : 0;
    return EMA_START_AFTER_KEY;
}

}  // namespace

const EMA_TABLE_S g_astEmaTables[EMA_TABLE_COUNT] = {
    {"mteTriggerTable",
     {2, 2, 1},
     4,
     4,
     5,
     sizeof(T),
     EMA_INDEX_NAMED,
     EMA_OFF(T, szOwner),
     EMA_OFF(T, szName),
     0,
     15,
     EMA_OFF(T, uiEntryStatus),
     B(MTE_TRIGGER_COL_ENTRY_STATUS),
     g_astTriggerCols,
     Count(g_astTriggerCols)},
    {"mteTriggerDeltaTable",
     {2, 3, 1},
     15,
     16,
     5,
     sizeof(D),
     EMA_INDEX_NAMED,
     EMA_OFF(D, szOwner),
     EMA_OFF(D, szName),
     0,
     0,
     0,
     0,
     g_astDeltaCols,
     Count(g_astDeltaCols)},
    {"mteTriggerExistenceTable",
     {2, 4, 1},
     6,
     7,
     5,
     MTE_EXIST_ROW_SIZE,
     EMA_INDEX_NAMED,
     EMA_OFF(X, szOwner),
     EMA_OFF(X, szName),
     0,
     0,
     0,
     0,
     g_astExistCols,
     Count(g_astExistCols)},
    {"mteTriggerBooleanTable",
     {2, 5, 1},
     5,
     6,
     5,
     sizeof(O),
     EMA_INDEX_NAMED,
     EMA_OFF(O, szOwner),
     EMA_OFF(O, szName),
     0,
     0,
     0,
     0,
     g_astBoolCols,
     Count(g_astBoolCols)},
    {"mteTriggerThresholdTable",
     {2, 6, 1},
     7,
     8,
     5,
     sizeof(H),
     EMA_INDEX_NAMED,
     EMA_OFF(H, szOwner),
     EMA_OFF(H, szName),
     0,
     0,
     0,
     0,
     g_astThresCols,
     Count(g_astThresCols)},
    {"mteObjectsTable",
     {3, 1, 1},
     8,
     9,
     10,
     sizeof(J),
     EMA_INDEX_OBJECTS,
     EMA_OFF(J, szOwner),
     EMA_OFF(J, szName),
     EMA_OFF(J, uiIndex),
     5,
     EMA_OFF(J, uiEntryStatus),
     B(MTE_OBJ_COL_ENTRY_STATUS),
     g_astObjCols,
     Count(g_astObjCols)},
    {"mteEventTable",
     {4, 2, 1},
     9,
     11,
     12,
     sizeof(E),
     EMA_INDEX_NAMED,
     EMA_OFF(E, szOwner),
     EMA_OFF(E, szName),
     0,
     5,
     EMA_OFF(E, uiEntryStatus),
     B(MTE_EVENT_COL_ENTRY_STATUS),
     g_astEventCols,
     Count(g_astEventCols)},
    {"mteEventNotificationTable",
     {4, 3, 1},
     10,
     13,
     12,
     sizeof(N),
     EMA_INDEX_NAMED,
     EMA_OFF(N, szOwner),
     EMA_OFF(N, szName),
     0,
     0,
     0,
     0,
     g_astNotifyCols,
     Count(g_astNotifyCols)},
    {"mteEventSetTable",
     {4, 4, 1},
     11,
     14,
     12,
     sizeof(S),
     EMA_INDEX_NAMED,
     EMA_OFF(S, szOwner),
     EMA_OFF(S, szName),
     0,
     0,
     0,
     0,
     g_astSetCols,
     Count(g_astSetCols)},
};

const EMA_TABLE_S* EMA_TableOfType(uint16_t usMsgType) {
    for (const EMA_TABLE_S& stTable : g_astEmaTables) {
        if (stTable.usMsgType == usMsgType) {
            return &stTable;
        }
    }
    return nullptr;
}

const EMA_SCALAR_S g_astEmaScalars[EMA_SCALAR_COUNT] = {
    {"mteResourceSampleMinimum", {1, 1, 0}, 3, EMA_SYN_INTEGER, 0, 2, 2, 1},
    {"mteResourceSampleInstanceMaximum", {1, 2, 0}, 3, EMA_SYN_UNSIGNED, 1, 3, 3, 0},
    {"mteResourceSampleInstances", {1, 3, 0}, 3, EMA_SYN_GAUGE, 2, 0, 0, 0},
    {"mteResourceSampleInstancesHigh", {1, 4, 0}, 3, EMA_SYN_GAUGE, 3, 0, 0, 0},
    {"mteResourceSampleInstanceLacks", {1, 5, 0}, 3, EMA_SYN_COUNTER, 4, 0, 0, 0},
    {"mteTriggerFailures", {2, 1, 0}, 3, EMA_SYN_COUNTER, 5, 0, 0, 0},
    {"mteEventFailures", {4, 1, 0}, 3, EMA_SYN_COUNTER, 6, 0, 0, 0},
};

const EMA_COLUMN_S* EMA_FindColumn(const EMA_TABLE_S* pstTable, uint32_t uiRfcColumn) {
    for (uint32_t i = 0; i < pstTable->uiColumnCount; ++i) {
        if (pstTable->pstColumns[i].ucRfcColumn == uiRfcColumn) {
            return &pstTable->pstColumns[i];
        }
    }
    return nullptr;
}

uint32_t EMA_RfcColumnOfFailed(const EMA_TABLE_S* pstTable, uint32_t uiDaemonColumn) {
    if (uiDaemonColumn == 0 || uiDaemonColumn > 30) {
        return 0;
    }
    for (uint32_t i = 0; i < pstTable->uiColumnCount; ++i) {
        if ((pstTable->pstColumns[i].uiDaemonMask & B(uiDaemonColumn)) != 0) {
            return pstTable->pstColumns[i].ucRfcColumn;
        }
    }
    return 0;
}

size_t EMA_EncodeIndex(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, oid* poidOut) {
    size_t uiPos = 0;
    size_t uiOwner = strnlen(pstIndex->szOwner, MTE_NAME_SIZE - 1);
    size_t uiName = strnlen(pstIndex->szName, MTE_NAME_SIZE - 1);
    poidOut[uiPos++] = uiOwner;
    for (size_t i = 0; i < uiOwner; ++i) {
        poidOut[uiPos++] = static_cast<unsigned char>(pstIndex->szOwner[i]);
    }
    if (pstTable->ucIndexKind == EMA_INDEX_OBJECTS) {
        poidOut[uiPos++] = uiName;
    }
    for (size_t i = 0; i < uiName; ++i) {
        poidOut[uiPos++] = static_cast<unsigned char>(pstIndex->szName[i]);
    }
    if (pstTable->ucIndexKind == EMA_INDEX_OBJECTS) {
        poidOut[uiPos++] = pstIndex->uiIndex;
    }
    return uiPos;
}

bool EMA_DecodeIndex(const EMA_TABLE_S* pstTable, const oid* poid, size_t uiLen,
                     EMA_INDEX_S* pstIndex) {
    memset(pstIndex, 0, sizeof(*pstIndex));
    if (uiLen < 1 || poid[0] > MTE_NAME_SIZE - 1 || uiLen < 1 + poid[0]) {
        return false;
    }
    size_t uiOwner = poid[0];
    if (!CopyChars(poid + 1, uiOwner, pstIndex->szOwner)) {
        return false;
    }
    size_t uiPos = 1 + uiOwner;
    if (pstTable->ucIndexKind == EMA_INDEX_NAMED) {
        size_t uiName = uiLen - uiPos;
        return uiName >= 1 && uiName <= MTE_NAME_SIZE - 1 &&
               CopyChars(poid + uiPos, uiName, pstIndex->szName);
    }
    if (uiLen < uiPos + 1) {
        return false;
    }
    size_t uiName = poid[uiPos++];
    if (uiName < 1 || uiName > MTE_NAME_SIZE - 1 || uiLen != uiPos + uiName + 1 ||
        !CopyChars(poid + uiPos, uiName, pstIndex->szName)) {
        return false;
    }
    // mteObjectsIndex is 1..4294967295.
    if (poid[uiPos + uiName] == 0 || poid[uiPos + uiName] > UINT32_MAX) {
        return false;
    }
    pstIndex->uiIndex = static_cast<uint32_t>(poid[uiPos + uiName]);
    return true;
}

void EMA_SubIdsTo32Bits(oid* poid, size_t uiLen) {
    for (size_t i = 0; i < uiLen; ++i) {
        poid[i] = static_cast<uint32_t>(poid[i]);
    }
}

uint8_t EMA_LowerBound(const EMA_TABLE_S* pstTable, const oid* poid, size_t uiLen,
                       EMA_INDEX_S* pstKey) {
    memset(pstKey, 0, sizeof(*pstKey));
    if (uiLen == 0) {
        return EMA_START_FIRST;
    }
    if (poid[0] > MTE_NAME_SIZE - 1) {
        return EMA_START_PAST_END;
    }
    return pstTable->ucIndexKind == EMA_INDEX_NAMED ? LowerBoundNamed(poid, uiLen, pstKey)
                                                    : LowerBoundObjects(poid, uiLen, pstKey);
}

void EMA_IndexFromRow(const EMA_TABLE_S* pstTable, const uint8_t* pucRow, EMA_INDEX_S* pstIndex) {
    memset(pstIndex, 0, sizeof(*pstIndex));
    memcpy(pstIndex->szOwner, pucRow + pstTable->usOwnerOff, MTE_NAME_SIZE - 1);
    memcpy(pstIndex->szName, pucRow + pstTable->usNameOff, MTE_NAME_SIZE - 1);
    if (pstTable->ucIndexKind == EMA_INDEX_OBJECTS) {
        memcpy(&pstIndex->uiIndex, pucRow + pstTable->usIndexOff, sizeof(uint32_t));
    }
}

void EMA_IndexToRow(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, uint8_t* pucRow) {
    memcpy(pucRow + pstTable->usOwnerOff, pstIndex->szOwner, MTE_NAME_SIZE);
    memcpy(pucRow + pstTable->usNameOff, pstIndex->szName, MTE_NAME_SIZE);
    pucRow[pstTable->usOwnerOff + MTE_NAME_SIZE - 1] = '\0';
    pucRow[pstTable->usNameOff + MTE_NAME_SIZE - 1] = '\0';
    if (pstTable->ucIndexKind == EMA_INDEX_OBJECTS) {
        memcpy(pucRow + pstTable->usIndexOff, &pstIndex->uiIndex, sizeof(uint32_t));
    }
}

size_t EMA_IndexToKey(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, uint8_t* pucKey) {
    if (pstTable->ucIndexKind == EMA_INDEX_OBJECTS) {
        MTE_OBJ_INDEX_KEY_S stKey{};
        memcpy(stKey.szOwner, pstIndex->szOwner, MTE_NAME_SIZE - 1);
        memcpy(stKey.szName, pstIndex->szName, MTE_NAME_SIZE - 1);
        stKey.uiOwnerLen = static_cast<uint32_t>(strlen(stKey.szOwner));
        stKey.uiNameLen = static_cast<uint32_t>(strlen(stKey.szName));
        stKey.uiIndex = pstIndex->uiIndex;
        memcpy(pucKey, &stKey, sizeof(stKey));
        return sizeof(stKey);
    }
    MTE_INDEX_KEY_S stKey{};
    memcpy(stKey.szOwner, pstIndex->szOwner, MTE_NAME_SIZE - 1);
    memcpy(stKey.szName, pstIndex->szName, MTE_NAME_SIZE - 1);
    stKey.uiOwnerLen = static_cast<uint32_t>(strlen(stKey.szOwner));
    memcpy(pucKey, &stKey, sizeof(stKey));
    return sizeof(stKey);
}

u_char EMA_AsnType(uint8_t ucSyntax) {
    switch (ucSyntax) {
        case EMA_SYN_UNSIGNED:
            return ASN_UNSIGNED;
        case EMA_SYN_GAUGE:
            return ASN_GAUGE;
        case EMA_SYN_COUNTER:
            return ASN_COUNTER;
        case EMA_SYN_STRING:
        case EMA_SYN_BITS:
            return ASN_OCTET_STR;
        case EMA_SYN_OID:
            return ASN_OBJECT_ID;
        default:
            return ASN_INTEGER;
    }
}

int EMA_CheckValue(uint8_t ucSyntax, int32_t iMin, int32_t iMax, uint8_t ucBitsAllowed,
                   const netsnmp_variable_list* pstVb) {
    if (pstVb->type != EMA_AsnType(ucSyntax)) {
        return SNMP_ERR_WRONGTYPE;
    }
    switch (ucSyntax) {
        case EMA_SYN_STRING:
            if (pstVb->val_len > static_cast<size_t>(iMax)) {
                return SNMP_ERR_WRONGLENGTH;
            }
            // The daemon keeps zero-terminated strings: an embedded zero would cut it.
            if (pstVb->val_len > 0 && memchr(pstVb->val.string, 0, pstVb->val_len) != nullptr) {
                return SNMP_ERR_WRONGVALUE;
            }
            return SNMP_ERR_NOERROR;
        case EMA_SYN_BITS:
            if (pstVb->val_len > 1) {
                return SNMP_ERR_WRONGLENGTH;
            }
            if (pstVb->val_len == 1 && (pstVb->val.string[0] & ~ucBitsAllowed) != 0) {
                return SNMP_ERR_WRONGVALUE;
            }
            return SNMP_ERR_NOERROR;
        case EMA_SYN_OID:
            return pstVb->val_len / sizeof(oid) > MTE_OID_MAX_LEN ? SNMP_ERR_WRONGLENGTH
                                                                  : SNMP_ERR_NOERROR;
        case EMA_SYN_UNSIGNED:
            return *pstVb->val.integer > static_cast<long>(UINT32_MAX) ? SNMP_ERR_WRONGVALUE
                                                                       : SNMP_ERR_NOERROR;
        case EMA_SYN_STATUS:
            // notReady is reported by the agent, never written.
            if (*pstVb->val.integer == MTE_ROW_NOT_READY) {
                return SNMP_ERR_WRONGVALUE;
            }
            [[fallthrough]];
        default:
            return *pstVb->val.integer < iMin || *pstVb->val.integer > iMax ? SNMP_ERR_WRONGVALUE
                                                                            : SNMP_ERR_NOERROR;
    }
}

int EMA_CheckColumnValue(const EMA_COLUMN_S* pstColumn, const netsnmp_variable_list* pstVb) {
    return EMA_CheckValue(pstColumn->ucSyntax, pstColumn->iMin, pstColumn->iMax,
                          pstColumn->ucBitsAllowed, pstVb);
}

void EMA_ApplyValue(const EMA_TABLE_S* pstTable, const EMA_COLUMN_S* pstColumn,
                    const netsnmp_variable_list* pstVb, uint8_t* pucRow, uint32_t* puiMask) {
    uint8_t* pucField = pucRow + pstColumn->usOffset;
    switch (pstColumn->ucSyntax) {
        case EMA_SYN_STRING:
            memset(pucField, 0, pstColumn->usSize);
            if (pstVb->val_len > 0) {
                memcpy(pucField, pstVb->val.string, pstVb->val_len);
            }
            break;
        case EMA_SYN_BITS:
            *pucField = pstVb->val_len > 0 ? pstVb->val.string[0] : 0;
            break;
        case EMA_SYN_OID: {
            MTE_OID_S stOid{};
            stOid.uiLen = static_cast<uint32_t>(pstVb->val_len / sizeof(oid));
            for (uint32_t i = 0; i < stOid.uiLen; ++i) {
                stOid.auiOid[i] = static_cast<uint32_t>(pstVb->val.objid[i]);
            }
            memcpy(pucField, &stOid, sizeof(stOid));
            break;
        }
        default: {
            uint32_t uiValue = static_cast<uint32_t>(*pstVb->val.integer);
            memcpy(pucField, &uiValue, sizeof(uiValue));
            break;
        }
    }
    *puiMask |= pstColumn->uiDaemonMask;
    (void)pstTable;
}

void EMA_ColumnValue(const EMA_COLUMN_S* pstColumn, const uint8_t* pucRow,
                     netsnmp_variable_list* pstVb) {
    const uint8_t* pucField = pucRow + pstColumn->usOffset;
    u_char ucType = EMA_AsnType(pstColumn->ucSyntax);
    switch (pstColumn->ucSyntax) {
        case EMA_SYN_STRING:
            snmp_set_var_typed_value(
                pstVb, ucType, pucField,
                strnlen(reinterpret_cast<const char*>(pucField), pstColumn->usSize - 1));
            break;
        case EMA_SYN_BITS:
            snmp_set_var_typed_value(pstVb, ucType, pucField, 1);
            break;
        case EMA_SYN_OID: {
            MTE_OID_S stOid;
            memcpy(&stOid, pucField, sizeof(stOid));
            oid aoid[MTE_OID_MAX_LEN];
            uint32_t uiLen = stOid.uiLen > MTE_OID_MAX_LEN ? MTE_OID_MAX_LEN : stOid.uiLen;
            for (uint32_t i = 0; i < uiLen; ++i) {
                aoid[i] = stOid.auiOid[i];
            }
            // An unset OID reads as 0.0, the RFC's "none".
            if (uiLen == 0) {
                aoid[0] = 0;
                aoid[1] = 0;
                uiLen = 2;
            }
            snmp_set_var_typed_value(pstVb, ucType, aoid, uiLen * sizeof(oid));
            break;
        }
        case EMA_SYN_INTEGER:
        case EMA_SYN_TRUTH:
        case EMA_SYN_STATUS: {
            int32_t iValue;
            memcpy(&iValue, pucField, sizeof(iValue));
            snmp_set_var_typed_integer(pstVb, ucType, iValue);
            break;
        }
        default: {
            uint32_t uiValue;
            memcpy(&uiValue, pucField, sizeof(uiValue));
            snmp_set_var_typed_integer(pstVb, ucType, static_cast<long>(uiValue));
            break;
        }
    }
}

int EMA_SetErrorOf(uint32_t uiResult, bool bStatusTable) {
    switch (uiResult) {
        case MTE_OK:
        case MTE_ERR_NO_CHANGE:  // the row already holds what was written
            return SNMP_ERR_NOERROR;
        case MTE_ERR_INCONSISTENT:
        case MTE_ERR_ROW_EXISTS:
            return SNMP_ERR_INCONSISTENTVALUE;
        case MTE_ERR_NO_SUCH_ROW:
            return bStatusTable ? SNMP_ERR_INCONSISTENTNAME : SNMP_ERR_NOCREATION;
        case MTE_ERR_MEMORY_PRESSURE:
        case MTE_ERR_GENERAL:
            return SNMP_ERR_RESOURCEUNAVAILABLE;
        default:
            return SNMP_ERR_GENERR;
    }
}
