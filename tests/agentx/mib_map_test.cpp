// The bridge's column mapping, value checks and index encodings against RFC
// 2981's numbering and the daemon's index order.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "mib_map.h"

namespace {

const EMA_TABLE_S* Table(const char* pszName) {
    for (const auto& stTable : g_astEmaTables) {
        if (strcmp(stTable.pszName, pszName) == 0) {
            return &stTable;
        }
    }
    return nullptr;
}

EMA_INDEX_S Index(const std::string& strOwner, const std::string& strName, uint32_t uiIndex = 0) {
    EMA_INDEX_S stIndex{};
    memcpy(stIndex.szOwner, strOwner.data(), strOwner.size());
    memcpy(stIndex.szName, strName.data(), strName.size());
    stIndex.uiIndex = uiIndex;
    return stIndex;
}

std::vector<oid> Encode(const EMA_TABLE_S* pstTable, const EMA_INDEX_S& stIndex) {
    oid aoid[EMA_INDEX_MAX_LEN];
    size_t uiLen = EMA_EncodeIndex(pstTable, &stIndex, aoid);
    return std::vector<oid>(aoid, aoid + uiLen);
}

int OidCompare(const std::vector<oid>& a, const std::vector<oid>& b) {
    return snmp_oid_compare(a.data(), a.size(), b.data(), b.size());
}

// The daemon's index order: owner length, owner bytes, (objects: name
// length,) name bytes, (objects: index). Strings compare as unsigned bytes.
int DaemonCompare(const EMA_TABLE_S* pstTable, const EMA_INDEX_S& a, const EMA_INDEX_S& b) {
    auto Key = [bObjects = pstTable->ucIndexKind == EMA_INDEX_OBJECTS](const EMA_INDEX_S& st) {
        return std::make_tuple(strlen(st.szOwner), std::string(st.szOwner),
                               bObjects ? strlen(st.szName) : 0, std::string(st.szName),
                               bObjects ? st.uiIndex : 0);
    };
    return Key(a) < Key(b) ? -1 : (Key(b) < Key(a) ? 1 : 0);
}

std::vector<EMA_INDEX_S> SampleRows(bool bObjects) {
    std::vector<EMA_INDEX_S> astRows;
    for (const char* pszOwner : {"", "b", "aa", "ab", "\xff", "zz"}) {
        for (const char* pszName : {"a", "ab", "abc", "b", "ba", "\x7f\xff"}) {
            for (uint32_t uiIndex : {1u, 2u, 0xffffffffu}) {
                astRows.push_back(Index(pszOwner, pszName, uiIndex));
                if (!bObjects) {
                    break;
                }
            }
        }
    }
    return astRows;
}

// The encodings round-trip, and SNMP's order of them is the daemon's order of
// the rows, so a walk by the daemon's get-next is a walk in OID order. For any
// suffix, every row after it in OID order lies after the lower-bound key in
// the daemon's order, and the key never lies after the suffix: so a get-next
// from the key, passing over rows up to the suffix, misses nothing. (The
// encodings themselves are the bridge tests': their names are built by hand.)
TEST(MibMapTest, WalksInTheDaemonsOrderAreWalksInOidOrder) {
    for (const char* pszTable : {"mteTriggerTable", "mteObjectsTable"}) {
        const EMA_TABLE_S* pstTable = Table(pszTable);
        auto astRows = SampleRows(pstTable->ucIndexKind == EMA_INDEX_OBJECTS);
        std::vector<std::vector<oid>> aSuffixes;
        for (const auto& a : astRows) {
            std::vector<oid> aoid = Encode(pstTable, a);
            EMA_INDEX_S stBack;
            ASSERT_TRUE(EMA_DecodeIndex(pstTable, aoid.data(), aoid.size(), &stBack));
            EXPECT_EQ(DaemonCompare(pstTable, a, stBack), 0);
            for (const auto& b : astRows) {
                EXPECT_EQ(OidCompare(aoid, Encode(pstTable, b)), DaemonCompare(pstTable, a, b))
                    << a.szOwner << "/" << a.szName << " vs " << b.szOwner << "/" << b.szName;
            }
            // Suffixes: every cut of the encoding, alone, followed by 0 and
            // followed by a sub-identifier no length or character may have.
            for (size_t uiCut = 0; uiCut <= aoid.size(); ++uiCut) {
                std::vector<oid> aoidCut(aoid.begin(), aoid.begin() + uiCut);
                aSuffixes.push_back(aoidCut);
                aoidCut.push_back(0);
                aSuffixes.push_back(aoidCut);
                aoidCut.back() = 300;
                aSuffixes.push_back(aoidCut);
            }
        }
        for (const auto& aoidSuffix : aSuffixes) {
            EMA_INDEX_S stKey;
            uint8_t ucStart =
                EMA_LowerBound(pstTable, aoidSuffix.data(), aoidSuffix.size(), &stKey);
            for (const auto& stRow : astRows) {
                if (OidCompare(Encode(pstTable, stRow), aoidSuffix) <= 0) {
                    continue;
                }
                ASSERT_NE(ucStart, EMA_START_PAST_END) << pszTable;
                if (ucStart == EMA_START_AFTER_KEY) {
                    EXPECT_GT(DaemonCompare(pstTable, stRow, stKey), 0)
                        << pszTable << " row " << stRow.szOwner << "/" << stRow.szName
                        << " suffix length " << aoidSuffix.size();
                }
            }
        }
    }
}

TEST(MibMapTest, InvalidIndexesAreRefused) {
    const EMA_TABLE_S* pstTrigger = Table("mteTriggerTable");
    const EMA_TABLE_S* pstObjects = Table("mteObjectsTable");
    std::vector<oid> aoidLongName(35, 'n');
    aoidLongName[0] = 1;
    const std::vector<std::pair<const EMA_TABLE_S*, std::vector<oid>>> aCases = {
        {pstTrigger, {}},                           // nothing
        {pstTrigger, {1, 'a'}},                     // owner without a name
        {pstTrigger, {3, 'a', 'b'}},                // owner cut short
        {pstTrigger, {33}},                         // owner too long
        {pstTrigger, {1, 0, 'x'}},                  // zero character
        {pstTrigger, {1, 'a', 256}},                // not a byte
        {pstTrigger, aoidLongName},                 // name of 33 characters
        {pstObjects, {1, 'a', 1, 'n'}},             // no objects index
        {pstObjects, {1, 'a', 1, 'n', 1, 2}},       // one sub-identifier too many
        {pstObjects, {1, 'a', 0, 1}},               // empty objects name
        {pstObjects, {1, 'a', 2, 'n', 1}},          // name cut short
        {pstObjects, {0, 1, 'n', 0x100000000ull}},  // index beyond 32 bits
    };
    for (const auto& [pstTable, aoid] : aCases) {
        EMA_INDEX_S stIndex;
        EXPECT_FALSE(EMA_DecodeIndex(pstTable, aoid.data(), aoid.size(), &stIndex))
            << pstTable->pszName << " case of length " << aoid.size();
    }
}

// RFC 2981 column -> the daemon's mask bits, and the daemon's failed column
// back to the RFC column that the error index points at: the columns whose
// numbers differ, that stand for several daemon columns, or that are not
// written.
TEST(MibMapTest, ColumnMappingBothWays) {
    // Table, RFC column, daemon mask, the daemon's columns that fail as it.
    const std::vector<std::tuple<const char*, uint32_t, uint32_t, std::vector<uint32_t>>> aCases = {
        {"mteTriggerTable", 4, (1u << 4) | (1u << 5) | (1u << 6), {4, 5, 6}},
        {"mteTriggerTable", 5, 1u << 7, {7}},
        {"mteTriggerTable", 8, 0, {}},  // target tag: not written
        {"mteTriggerExistenceTable", 1, (1u << 1) | (1u << 2) | (1u << 3), {1, 2, 3}},
        {"mteTriggerExistenceTable", 6, 1u << 9, {9}},
        {"mteTriggerThresholdTable", 15, 1u << 15, {15}},
        {"mteEventTable", 3, (1u << 3) | (1u << 4), {3, 4}},
        {"mteEventTable", 5, 1u << 6, {6}},
        {"mteEventNotificationTable", 2, 1u << 3, {3}},
        {"mteEventNotificationTable", 3, 1u << 2, {2}},
        {"mteEventSetTable", 4, 0, {}},
    };
    for (const auto& [pszTable, uiRfcColumn, uiMask, auiFailed] : aCases) {
        SCOPED_TRACE(std::string(pszTable) + " " + std::to_string(uiRfcColumn));
        const EMA_COLUMN_S* pstColumn = EMA_FindColumn(Table(pszTable), uiRfcColumn);
        ASSERT_NE(pstColumn, nullptr);
        EXPECT_EQ(pstColumn->uiDaemonMask, uiMask);
        EXPECT_EQ(pstColumn->ucWritable != 0, uiMask != 0);
        for (uint32_t uiFailed : auiFailed) {
            EXPECT_EQ(EMA_RfcColumnOfFailed(Table(pszTable), uiFailed), uiRfcColumn) << uiFailed;
        }
    }
    EXPECT_EQ(EMA_RfcColumnOfFailed(Table("mteTriggerTable"), 0), 0u);
    EXPECT_EQ(EMA_RfcColumnOfFailed(Table("mteEventTable"), 5), 0u);  // the daemon's ignored column
    EXPECT_EQ(EMA_FindColumn(Table("mteTriggerTable"), 1), nullptr);  // index: not served
}

// A value of the wrong type, length or range, in table number and RFC column;
// an empty string stands for an integer.
TEST(MibMapTest, ValuesOfTheWrongTypeLengthOrRangeAreRefused) {
    struct Case {
        uint32_t uiTableNo;
        uint32_t uiRfcColumn;
        u_char ucType;
        std::string strBytes;
        long lValue;
        int iExpected;
    };
    const std::vector<Case> aCases = {
        {0, 3, ASN_OCTET_STR, "hi", 0, SNMP_ERR_NOERROR},
        {0, 3, ASN_OCTET_STR, std::string(256, 'c'), 0, SNMP_ERR_WRONGLENGTH},
        {0, 3, ASN_OCTET_STR, std::string("a\0b", 3), 0, SNMP_ERR_WRONGVALUE},
        {0, 4, ASN_OCTET_STR, "\xe0", 0, SNMP_ERR_NOERROR},
        {0, 4, ASN_OCTET_STR, "\x10", 0, SNMP_ERR_WRONGVALUE},
        {0, 4, ASN_OCTET_STR, std::string("\x80\0", 2), 0, SNMP_ERR_WRONGLENGTH},
        {0, 5, ASN_INTEGER, "", 3, SNMP_ERR_WRONGVALUE},
        {0, 7, ASN_INTEGER, "", 0, SNMP_ERR_WRONGVALUE},
        {0, 9, ASN_OCTET_STR, std::string(33, 'x'), 0, SNMP_ERR_WRONGLENGTH},
        {0, 11, ASN_INTEGER, "", 5, SNMP_ERR_WRONGTYPE},
        {0, 11, ASN_UNSIGNED, "", 5, SNMP_ERR_NOERROR},
        {0, 15, ASN_INTEGER, "", 7, SNMP_ERR_WRONGVALUE},
        {0, 15, ASN_INTEGER, "", 4, SNMP_ERR_NOERROR},
        {2, 2, ASN_OCTET_STR, "\x20", 0, SNMP_ERR_WRONGVALUE},  // startup has no "changed"
        {3, 2, ASN_INTEGER, "", -5, SNMP_ERR_NOERROR},
        {4, 1, ASN_INTEGER, "", 4, SNMP_ERR_WRONGVALUE},
        {6, 3, ASN_OCTET_STR, "\x80", 0, SNMP_ERR_NOERROR},
        {1, 3, ASN_INTEGER, "", 4, SNMP_ERR_WRONGVALUE},  // delta: no type beyond dateAndTime
    };
    std::vector<oid> aoidLong(129, 1);  // does not fit the daemon's record
    netsnmp_variable_list stVb{};
    snmp_set_var_typed_value(&stVb, ASN_OBJECT_ID, aoidLong.data(), aoidLong.size() * sizeof(oid));
    EXPECT_EQ(EMA_CheckColumnValue(EMA_FindColumn(&g_astEmaTables[0], 6), &stVb),
              SNMP_ERR_WRONGLENGTH);
    for (const auto& stCase : aCases) {
        const EMA_TABLE_S* pstTable = &g_astEmaTables[stCase.uiTableNo];
        const EMA_COLUMN_S* pstColumn = EMA_FindColumn(pstTable, stCase.uiRfcColumn);
        ASSERT_NE(pstColumn, nullptr);
        snmp_free_var_internals(&stVb);
        if (stCase.ucType == ASN_OCTET_STR) {
            snmp_set_var_typed_value(&stVb, stCase.ucType, stCase.strBytes.data(),
                                     stCase.strBytes.size());
        } else {
            snmp_set_var_typed_integer(&stVb, stCase.ucType, stCase.lValue);
        }
        EXPECT_EQ(EMA_CheckColumnValue(pstColumn, &stVb), stCase.iExpected)
            << pstTable->pszName << " column " << stCase.uiRfcColumn;
    }
    snmp_free_var_internals(&stVb);
}

// The daemon's results whose SNMP error is not the obvious one.
TEST(MibMapTest, DaemonResultsBecomeSnmpErrors) {
    const std::vector<std::tuple<uint32_t, bool, int>> aCases = {
        {MTE_ERR_NO_CHANGE, true, SNMP_ERR_NOERROR},
        {MTE_ERR_ROW_EXISTS, true, SNMP_ERR_INCONSISTENTVALUE},
        {MTE_ERR_NO_SUCH_ROW, true, SNMP_ERR_INCONSISTENTNAME},
        {MTE_ERR_NO_SUCH_ROW, false, SNMP_ERR_NOCREATION},
        {MTE_ERR_MEMORY_PRESSURE, true, SNMP_ERR_RESOURCEUNAVAILABLE},
        {0x40010022, true, SNMP_ERR_GENERR},
    };
    for (const auto& [uiResult, bStatus, iErr] : aCases) {
        EXPECT_EQ(EMA_SetErrorOf(uiResult, bStatus), iErr) << std::hex << uiResult;
    }
}

}  // namespace
