// The Event MIB as eventmib-agentx serves it: RFC 2981's objects under
// mteObjects (1.3.6.1.2.1.88.1), how each column maps to the daemon's row
// records and column numbers, and the index encodings. Pure tables and
// functions (no socket, no agent state): any thread.
#ifndef EMA_MIB_MAP_H
#define EMA_MIB_MAP_H

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstddef>
#include <cstdint>

#include "mte_types.h"

// mteObjects; every OID below is relative to it.
constexpr oid EMA_MTE_OBJECTS[] = {1, 3, 6, 1, 2, 1, 88, 1};
constexpr size_t EMA_MTE_OBJECTS_LEN = 8;

// Syntaxes of the served objects.
enum : uint8_t {
    EMA_SYN_INTEGER = 1,  // Integer32 or an enumeration, range iMin..iMax
    EMA_SYN_UNSIGNED,     // Unsigned32
    EMA_SYN_GAUGE,        // Gauge32
    EMA_SYN_COUNTER,      // Counter32
    EMA_SYN_STRING,       // SnmpAdminString / SnmpTagValue, at most iMax octets
    EMA_SYN_OID,          // OBJECT IDENTIFIER, at most 128 sub-identifiers
    EMA_SYN_BITS,         // BITS in one octet; only ucBitsAllowed may be set
    EMA_SYN_TRUTH,        // TruthValue
    EMA_SYN_STATUS,       // RowStatus
};

// Index shapes: mteOwner (length-prefixed) and an IMPLIED trigger or event
// name; or mteOwner, mteObjectsName (length-prefixed) and mteObjectsIndex.
enum : uint8_t { EMA_INDEX_NAMED = 1, EMA_INDEX_OBJECTS = 2 };

// One RFC column of a table.
struct EMA_COLUMN_S {
    uint8_t ucRfcColumn;
    uint8_t ucSyntax;
    uint8_t ucWritable;     // 0: read-only here (a write gets notWritable)
    uint8_t ucBitsAllowed;  // BITS: the defined bits of the octet
    uint16_t usOffset;      // field in the daemon's row record
    uint16_t usSize;        // field size (strings with their zero byte)
    int32_t iMin;
    int32_t iMax;           // INTEGER range; strings: most octets
    uint32_t uiDaemonMask;  // the daemon's column-mask bits of a write
};

struct EMA_TABLE_S {
    const char* pszName;
    oid aoidEntry[3];  // the entry, relative to mteObjects
    uint16_t usMsgType;
    uint16_t usRowItem;
    uint16_t usKeyItem;
    uint16_t usRowSize;
    uint8_t ucIndexKind;
    uint16_t usOwnerOff;
    uint16_t usNameOff;
    uint16_t usIndexOff;    // objects index (EMA_INDEX_OBJECTS)
    uint8_t ucRfcStatus;    // RFC column of the RowStatus, 0 for none
    uint16_t usStatusOff;   // the status field in the row record
    uint32_t uiStatusMask;  // the daemon's mask bit of the status column
    const EMA_COLUMN_S* pstColumns;
    uint32_t uiColumnCount;
};

// The nine tables in OID order (which is also the order in which one SET's
// rows are applied: triggers before their delta rows and tests, events before
// actions).
constexpr uint32_t EMA_TABLE_COUNT = 9;
extern const EMA_TABLE_S g_astEmaTables[EMA_TABLE_COUNT];
// The table served with that message type; null for none.
const EMA_TABLE_S* EMA_TableOfType(uint16_t usMsgType);

// The seven scalars in OID order.
struct EMA_SCALAR_S {
    const char* pszName;
    oid aoidInstance[4];  // relative to mteObjects, with the .0
    uint8_t ucLen;
    uint8_t ucSyntax;
    uint8_t ucWord;         // index of the u32 in the daemon's scalars record
    uint16_t usSetMsgType;  // 0: read-only
    uint16_t usSetItem;
    int32_t iMin;  // smallest value a write may carry
};
constexpr uint32_t EMA_SCALAR_COUNT = 7;
extern const EMA_SCALAR_S g_astEmaScalars[EMA_SCALAR_COUNT];

// A row's identity.
struct EMA_INDEX_S {
    char szOwner[MTE_NAME_SIZE];
    char szName[MTE_NAME_SIZE];
    uint32_t uiIndex;
};

// Largest index suffix: owner and name with their lengths and the index.
constexpr size_t EMA_INDEX_MAX_LEN = 3 + 2 * (MTE_NAME_SIZE - 1);

const EMA_COLUMN_S* EMA_FindColumn(const EMA_TABLE_S* pstTable, uint32_t uiRfcColumn);
// The RFC column whose write the daemon's failed column blames, 0 for none.
uint32_t EMA_RfcColumnOfFailed(const EMA_TABLE_S* pstTable, uint32_t uiDaemonColumn);

// Index suffix of a row; its length.
size_t EMA_EncodeIndex(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, oid* poidOut);
// True when the suffix is exactly one valid index of the table.
bool EMA_DecodeIndex(const EMA_TABLE_S* pstTable, const oid* poidSuffix, size_t uiLen,
                     EMA_INDEX_S* pstIndex);

// AgentX carries 32-bit sub-identifiers, but net-snmp's AgentX decoder
// sign-extends those of 2^31 and above into its 64-bit oids (3000000000
// arrives as 0xffffffffb2d05e00): keeps the low 32 bits of each.
void EMA_SubIdsTo32Bits(oid* poid, size_t uiLen);

// Where a get-next after an arbitrary suffix starts: before the first row,
// after a key whose encoding is at most the suffix (rows between it and the
// suffix still have to be passed over), or past the table's end.
enum : uint8_t { EMA_START_FIRST = 0, EMA_START_AFTER_KEY = 1, EMA_START_PAST_END = 2 };
uint8_t EMA_LowerBound(const EMA_TABLE_S* pstTable, const oid* poidSuffix, size_t uiLen,
                       EMA_INDEX_S* pstKey);

void EMA_IndexFromRow(const EMA_TABLE_S* pstTable, const uint8_t* pucRow, EMA_INDEX_S* pstIndex);
void EMA_IndexToRow(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, uint8_t* pucRow);
// Fills the get-next key record (72 or 80 bytes); returns its size.
size_t EMA_IndexToKey(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, uint8_t* pucKey);

// SNMP_ERR_NOERROR, or wrongType / wrongLength / wrongValue for a value a
// column cannot hold.
int EMA_CheckValue(uint8_t ucSyntax, int32_t iMin, int32_t iMax, uint8_t ucBitsAllowed,
                   const netsnmp_variable_list* pstVb);
int EMA_CheckColumnValue(const EMA_COLUMN_S* pstColumn, const netsnmp_variable_list* pstVb);
// Writes a checked value into the row record and adds its mask bits; a
// RowStatus also goes into the status field.
void EMA_ApplyValue(const EMA_TABLE_S* pstTable, const EMA_COLUMN_S* pstColumn,
                    const netsnmp_variable_list* pstVb, uint8_t* pucRow, uint32_t* puiMask);
// Sets the varbind's value from the column of a row record.
void EMA_ColumnValue(const EMA_COLUMN_S* pstColumn, const uint8_t* pucRow,
                     netsnmp_variable_list* pstVb);
// The ASN.1 type of a syntax.
u_char EMA_AsnType(uint8_t ucSyntax);

// SNMP error of a daemon's set result. bStatusTable: the table has a RowStatus.
int EMA_SetErrorOf(uint32_t uiResult, bool bStatusTable);

#endif  // EMA_MIB_MAP_H
