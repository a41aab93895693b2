// The Event MIB's columns and the daemon's row records side by side, and the
// index encodings of RFC 2981's tables. Constant tables and pure functions:
// any thread, no locks.
#include "mib_map.h"

#include <array>
#include <cstring>

#include "mte_catalogue.h"

namespace {

constexpr int32_t EMA_INT_MIN = INT32_MIN;
constexpr int32_t EMA_INT_MAX = INT32_MAX;

constexpr uint8_t SyntaxOf(MTE_CAT_KIND_E eKind) {
    switch (eKind) {
        case MTE_CAT_KIND_E::OID:
            return EMA_SYN_OID;
        case MTE_CAT_KIND_E::U32:
        case MTE_CAT_KIND_E::INDEX:
            return EMA_SYN_UNSIGNED;
        case MTE_CAT_KIND_E::I32:
        case MTE_CAT_KIND_E::ENUM:
            return EMA_SYN_INTEGER;
        case MTE_CAT_KIND_E::TRUTH:
            return EMA_SYN_TRUTH;
        case MTE_CAT_KIND_E::STATUS:
            return EMA_SYN_STATUS;
        case MTE_CAT_KIND_E::BITS:
            return EMA_SYN_BITS;
        case MTE_CAT_KIND_E::OWNER:
        case MTE_CAT_KIND_E::NAME:
        case MTE_CAT_KIND_E::STR:
        case MTE_CAT_KIND_E::OWNER_REF:
            break;
    }
    return EMA_SYN_STRING;
}

// The served column of a catalogue column. The daemon keeps a BITS object as
// one byte with the served bit positions (bit 0 = 0x80) but writes each bit
// as a column of its own; an enumeration's range is that of its named values.
constexpr EMA_COLUMN_S ServedColumn(const MTE_CAT_COLUMN_S& stColumn) {
    EMA_COLUMN_S stServed{stColumn.ucRfcColumn,        SyntaxOf(stColumn.eKind), 0, 0,
                          stColumn.usOffset,           stColumn.usSize,          0, 0,
                          MTE_CAT_ColumnMask(stColumn)};
    stServed.ucWritable = stServed.uiDaemonMask != 0 ? 1 : 0;
    switch (stColumn.eKind) {
        case MTE_CAT_KIND_E::OWNER:
        case MTE_CAT_KIND_E::NAME:
        case MTE_CAT_KIND_E::STR:
        case MTE_CAT_KIND_E::OWNER_REF:
            stServed.iMax = stColumn.usSize - 1;
            break;
        case MTE_CAT_KIND_E::I32:
            stServed.iMin = EMA_INT_MIN;
            stServed.iMax = EMA_INT_MAX;
            break;
        case MTE_CAT_KIND_E::TRUTH:
            stServed.iMin = MTE_TRUE;
            stServed.iMax = MTE_FALSE;
            break;
        case MTE_CAT_KIND_E::STATUS:
            stServed.iMin = MTE_ROW_ACTIVE;
            stServed.iMax = MTE_ROW_DESTROY;
            break;
        case MTE_CAT_KIND_E::ENUM:
            stServed.iMin = EMA_INT_MAX;
            for (size_t i = 0; i < stColumn.uiNameCount; ++i) {
                int32_t iValue = static_cast<int32_t>(stColumn.pstNames[i].uiValue);
                stServed.iMin = iValue < stServed.iMin ? iValue : stServed.iMin;
                stServed.iMax = iValue > stServed.iMax ? iValue : stServed.iMax;
            }
            break;
        case MTE_CAT_KIND_E::BITS:
            for (size_t i = 0; i < stColumn.uiNameCount; ++i) {
                stServed.ucBitsAllowed |= static_cast<uint8_t>(stColumn.pstNames[i].uiValue);
            }
            break;
        default:
            break;
    }
    return stServed;
}

constexpr size_t ServedCount(const MTE_CAT_TABLE_S& stTable) {
    size_t uiCount = 0;
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        uiCount += stTable.pstColumns[i].ucRfcColumn != 0 ? 1 : 0;
    }
    return uiCount;
}

// The served columns of a table, in sub-identifier order.
template <MTE_CAT_TABLE_E TABLE>
constexpr auto g_astServedColumns = [] {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[TABLE];
    std::array<EMA_COLUMN_S, ServedCount(g_astMteCatalogue[TABLE])> astColumns{};
    size_t uiCount = 0;
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        if (stTable.pstColumns[i].ucRfcColumn == 0) {
            continue;
        }
        EMA_COLUMN_S stNew = ServedColumn(stTable.pstColumns[i]);
        size_t uiPos = uiCount++;
        for (; uiPos > 0 && astColumns[uiPos - 1].ucRfcColumn > stNew.ucRfcColumn; --uiPos) {
            astColumns[uiPos] = astColumns[uiPos - 1];
        }
        astColumns[uiPos] = stNew;
    }
    return astColumns;
}();

// The served enumerations take exactly their named values' range.
template <MTE_CAT_TABLE_E TABLE>
constexpr bool ServedRangeIs(uint8_t ucRfcColumn, int32_t iMin, int32_t iMax) {
    for (const EMA_COLUMN_S& stColumn : g_astServedColumns<TABLE>) {
        if (stColumn.ucRfcColumn == ucRfcColumn) {
            return stColumn.iMin == iMin && stColumn.iMax == iMax;
        }
    }
    return false;
}
static_assert(ServedRangeIs<MTE_CAT_TRIGGER>(5, MTE_SAMPLE_ABSOLUTE, MTE_SAMPLE_DELTA));
static_assert(ServedRangeIs<MTE_CAT_DELTA>(3, MTE_DELTA_TIME_TICKS, MTE_DELTA_DATE_AND_TIME));
static_assert(ServedRangeIs<MTE_CAT_BOOLEAN>(1, MTE_BOOL_UNEQUAL, MTE_BOOL_GREATER_OR_EQUAL));
static_assert(ServedRangeIs<MTE_CAT_THRESHOLD>(1, MTE_THRES_STARTUP_RISING,
                                               MTE_THRES_STARTUP_RISING_OR_FALLING));

template <MTE_CAT_TABLE_E TABLE>
constexpr EMA_TABLE_S ServedTable() {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[TABLE];
    // Positions, not pointers: compared with null, a pointer is not a constant
    // under GCC's null-pointer sanitizer.
    const size_t uiIndex = MTE_CAT_KindIndex(stTable, MTE_CAT_KIND_E::INDEX);
    const size_t uiStatus = MTE_CAT_KindIndex(stTable, MTE_CAT_KIND_E::STATUS);
    const bool bIndex = uiIndex != MTE_CAT_NONE;
    const bool bStatus = uiStatus != MTE_CAT_NONE;
    const MTE_CAT_COLUMN_S& stIndex = stTable.pstColumns[bIndex ? uiIndex : 0];
    const MTE_CAT_COLUMN_S& stStatus = stTable.pstColumns[bStatus ? uiStatus : 0];
    return EMA_TABLE_S{
        stTable.pszMibName,
        {stTable.auiEntry[0], stTable.auiEntry[1], stTable.auiEntry[2]},
        stTable.usMsgType,
        stTable.usRowItem,
        stTable.usKeyItem,
        static_cast<uint16_t>(stTable.uiRowSize),
        bIndex ? EMA_INDEX_OBJECTS : EMA_INDEX_NAMED,
        stTable.pstColumns[MTE_CAT_KindIndex(stTable, MTE_CAT_KIND_E::OWNER)].usOffset,
        stTable.pstColumns[MTE_CAT_KindIndex(stTable, MTE_CAT_KIND_E::NAME)].usOffset,
        static_cast<uint16_t>(bIndex ? stIndex.usOffset : 0),
        static_cast<uint8_t>(bStatus ? stStatus.ucRfcColumn : 0),
        static_cast<uint16_t>(bStatus ? stStatus.usOffset : 0),
        bStatus ? MTE_CAT_ColumnMask(stStatus) : 0,
        g_astServedColumns<TABLE>.data(),
        static_cast<uint32_t>(g_astServedColumns<TABLE>.size())};
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
    ServedTable<MTE_CAT_TRIGGER>(),   ServedTable<MTE_CAT_DELTA>(),
    ServedTable<MTE_CAT_EXISTENCE>(), ServedTable<MTE_CAT_BOOLEAN>(),
    ServedTable<MTE_CAT_THRESHOLD>(), ServedTable<MTE_CAT_OBJECTS>(),
    ServedTable<MTE_CAT_EVENT>(),     ServedTable<MTE_CAT_NOTIFY>(),
    ServedTable<MTE_CAT_SET>(),
};
static_assert(EMA_TABLE_COUNT == MTE_CAT_TABLE_COUNT);

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
        if ((pstTable->pstColumns[i].uiDaemonMask & MTE_COLUMN_BIT(uiDaemonColumn)) != 0) {
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
