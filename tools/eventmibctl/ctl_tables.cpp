// eventmibctl: reads and writes the catalogue's columns by their names.
#include "ctl_tables.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mte_msg.h"
#include "mte_types.h"

namespace {

using K = CTL_KIND_E;

uint32_t GetU32(const uint8_t* pucRow, uint16_t usOffset) {
    uint32_t uiValue;
    memcpy(&uiValue, pucRow + usOffset, 4);
    return uiValue;
}

void PutU32(uint8_t* pucRow, uint16_t usOffset, uint32_t uiValue) {
    memcpy(pucRow + usOffset, &uiValue, 4);
}

bool ParseOid(const std::string& strText, uint8_t* pucField) {
    MTE_OID_S stOid = {};
    const char* pc = strText.c_str();
    if (*pc == '.') {
        pc++;
    }
    while (*pc != '\0') {
        if (stOid.uiLen == MTE_OID_MAX_LEN || *pc < '0' || *pc > '9') {
            return false;
        }
        errno = 0;
        char* pcEnd;
        unsigned long ulSub = strtoul(pc, &pcEnd, 10);
        if (errno != 0 || ulSub > UINT32_MAX || (*pcEnd != '.' && *pcEnd != '\0')) {
            return false;
        }
        stOid.auiOid[stOid.uiLen++] = static_cast<uint32_t>(ulSub);
        pc = pcEnd;
        if (*pc == '.') {
            pc++;
            if (*pc == '\0') {
                return false;
            }
        }
    }
    memcpy(pucField, &stOid, sizeof(stOid));
    return true;
}

bool ParseNamed(const CTL_COLUMN_S& stColumn, const std::string& strText, uint32_t* puiValue) {
    for (size_t i = 0; i < stColumn.uiNameCount; i++) {
        if (strcasecmp(stColumn.pstNames[i].pszName, strText.c_str()) == 0) {
            *puiValue = stColumn.pstNames[i].uiValue;
            return true;
        }
    }
    int64_t llValue;
    if (CTL_ParseNumber(strText, 0, UINT32_MAX, &llValue)) {
        *puiValue = static_cast<uint32_t>(llValue);
        return true;
    }
    return false;
}

// "a,b" for a BITS column: every bit of the column is written, the named
// ones set and the others cleared; "" or "none" clears them all.
bool ApplyBits(const CTL_COLUMN_S& stColumn, const std::string& strText, uint8_t* pucRow,
               uint32_t* puiMask, std::string* pstrError) {
    uint8_t ucBits = 0;
    size_t uiPos = 0;
    std::string strList = strText == "none" ? "" : strText;
    while (uiPos < strList.size()) {
        size_t uiComma = strList.find(',', uiPos);
        std::string strWord = strList.substr(
            uiPos, uiComma == std::string::npos ? std::string::npos : uiComma - uiPos);
        bool bFound = false;
        for (size_t i = 0; i < stColumn.uiNameCount; i++) {
            if (strcasecmp(stColumn.pstNames[i].pszName, strWord.c_str()) == 0) {
                ucBits |= static_cast<uint8_t>(stColumn.pstNames[i].uiValue);
                bFound = true;
            }
        }
        if (!bFound) {
            *pstrError = "unknown " + std::string(stColumn.pszName) + " value '" + strWord + "'";
            return false;
        }
        if (uiComma == std::string::npos) {
            break;
        }
        uiPos = uiComma + 1;
    }
    uint8_t& ucField = pucRow[stColumn.usOffset];
    for (size_t i = 0; i < stColumn.uiNameCount; i++) {
        const CTL_NAMED_S& stBit = stColumn.pstNames[i];
        ucField = static_cast<uint8_t>((ucField & ~stBit.uiValue) | (ucBits & stBit.uiValue));
        *puiMask |= MTE_COLUMN_BIT(stBit.uiColumn);
    }
    return true;
}

std::string FormatNamed(const CTL_COLUMN_S& stColumn, uint32_t uiValue) {
    for (size_t i = 0; i < stColumn.uiNameCount; i++) {
        if (stColumn.pstNames[i].uiValue == uiValue) {
            return stColumn.pstNames[i].pszName;
        }
    }
    return std::to_string(uiValue);
}

// Strings come from the daemon as they were set, also over SNMP: a byte
// outside printable ASCII is shown as \xHH and a backslash as \\, so that
// a name cannot drive the operator's terminal and every name stays
// readable, distinct and can be typed back (CTL_UnescapeString).
std::string EscapeString(const char* psz, size_t uiLen) {
    static const char acHex[] = "0123456789abcdef";
    std::string strOut;
    for (size_t i = 0; i < uiLen; i++) {
        auto uc = static_cast<unsigned char>(psz[i]);
        if (uc == '\\') {
            strOut += "\\\\";
        } else if (uc >= 0x20 && uc < 0x7f) {
            strOut += static_cast<char>(uc);
        } else {
            strOut += {'\\', 'x', acHex[uc >> 4], acHex[uc & 0xf]};
        }
    }
    return strOut;
}

// The field's bytes as stored, up to its terminating zero.
std::string FieldBytes(const uint8_t* pucRow, const CTL_COLUMN_S& stColumn) {
    const char* psz = reinterpret_cast<const char*>(pucRow + stColumn.usOffset);
    return std::string(psz, strnlen(psz, stColumn.usSize));
}

std::string FieldString(const uint8_t* pucRow, const CTL_COLUMN_S& stColumn) {
    std::string strBytes = FieldBytes(pucRow, stColumn);
    return EscapeString(strBytes.data(), strBytes.size());
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

bool CTL_UnescapeString(const std::string& strText, std::string* pstrOut, std::string* pstrError) {
    pstrOut->clear();
    for (size_t i = 0; i < strText.size(); i++) {
        if (strText[i] != '\\') {
            *pstrOut += strText[i];
            continue;
        }
        std::string strRest = strText.substr(i + 1, 3);
        int iByte = strRest.size() == 3 && strRest[0] == 'x' && HexDigit(strRest[1]) >= 0 &&
                            HexDigit(strRest[2]) >= 0
                        ? HexDigit(strRest[1]) * 16 + HexDigit(strRest[2])
                        : 0;
        if (!strRest.empty() && strRest[0] == '\\') {
            *pstrOut += '\\';
            i += 1;
        } else if (iByte != 0) {
            *pstrOut += static_cast<char>(iByte);
            i += 3;
        } else {
            *pstrError = "a backslash starts \\xHH (a byte other than 00) or \\\\";
            return false;
        }
    }
    return true;
}

bool CTL_ParseNumber(const std::string& strText, int64_t llMin, int64_t llMax, int64_t* pllOut) {
    if (strText.empty()) {
        return false;
    }
    errno = 0;
    char* pcEnd;
    long long llValue = strtoll(strText.c_str(), &pcEnd, 0);
    if (errno != 0 || *pcEnd != '\0' || llValue < llMin || llValue > llMax) {
        return false;
    }
    *pllOut = llValue;
    return true;
}

const std::vector<const CTL_TABLE_S*>& CTL_Tables(void) {
    static const std::vector<const CTL_TABLE_S*> s_vecTables = [] {
        std::vector<const CTL_TABLE_S*> vec;
        for (const CTL_TABLE_S& stTable : g_astMteCatalogue) {
            vec.push_back(&stTable);
        }
        return vec;
    }();
    return s_vecTables;
}

const CTL_TABLE_S* CTL_FindTable(const std::string& strName) {
    for (const CTL_TABLE_S& stTable : g_astMteCatalogue) {
        if (strName == stTable.pszName) {
            return &stTable;
        }
    }
    return nullptr;
}

bool CTL_ApplyAssignment(const CTL_TABLE_S& stTable, const std::string& strAssignment,
                         uint8_t* pucRow, uint32_t* puiMask, std::string* pstrError) {
    size_t uiEq = strAssignment.find('=');
    if (uiEq == std::string::npos) {
        *pstrError = "expected column=value, got '" + strAssignment + "'";
        return false;
    }
    std::string strName = strAssignment.substr(0, uiEq);
    std::string strValue = strAssignment.substr(uiEq + 1);
    if (strName == "force") {
        // Waives the frequency minimum, threshold ordering and memory guard.
        if (strValue == "true" || strValue == "1") {
            *puiMask |= MTE_MASK_FORCE;
        }
        return true;
    }
    const CTL_COLUMN_S* pstColumn = nullptr;
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        if (strcasecmp(stTable.pstColumns[i].pszName, strName.c_str()) == 0) {
            pstColumn = &stTable.pstColumns[i];
        }
    }
    if (pstColumn == nullptr) {
        *pstrError = "table " + std::string(stTable.pszName) + " has no column '" + strName + "'";
        return false;
    }
    const CTL_COLUMN_S& c = *pstColumn;
    bool bIndex = c.eKind == K::OWNER || c.eKind == K::NAME || c.eKind == K::INDEX;
    if (!bIndex && c.uiColumn == 0 && c.eKind != K::BITS) {
        *pstrError = "column '" + strName + "' cannot be written";
        return false;
    }
    int64_t llValue = 0;
    uint32_t uiValue = 0;
    bool bOk = true;
    switch (c.eKind) {
        case K::OWNER:
        case K::NAME:
        case K::STR:
        case K::OWNER_REF: {
            std::string strBytes;
            if (!CTL_UnescapeString(strValue, &strBytes, pstrError)) {
                *pstrError = "'" + strName + "': " + *pstrError;
                return false;
            }
            if (strBytes.size() >= c.usSize) {
                *pstrError = "'" + strName + "' is longer than " + std::to_string(c.usSize - 1) +
                             " characters";
                return false;
            }
            memset(pucRow + c.usOffset, 0, c.usSize);
            memcpy(pucRow + c.usOffset, strBytes.data(), strBytes.size());
            break;
        }
        case K::INDEX:
        case K::U32:
            bOk = CTL_ParseNumber(strValue, 0, UINT32_MAX, &llValue);
            PutU32(pucRow, c.usOffset, static_cast<uint32_t>(llValue));
            break;
        case K::I32:
            bOk = CTL_ParseNumber(strValue, INT32_MIN, INT32_MAX, &llValue);
            PutU32(pucRow, c.usOffset, static_cast<uint32_t>(static_cast<int32_t>(llValue)));
            break;
        case K::TRUTH:
            if (strValue == "true" || strValue == "1") {
                uiValue = MTE_TRUE;
            } else if (strValue == "false" || strValue == "2") {
                uiValue = MTE_FALSE;
            } else {
                bOk = false;
            }
            PutU32(pucRow, c.usOffset, uiValue);
            break;
        case K::STATUS:
        case K::ENUM:
            bOk = ParseNamed(c, strValue, &uiValue);
            PutU32(pucRow, c.usOffset, uiValue);
            break;
        case K::OID:
            bOk = ParseOid(strValue, pucRow + c.usOffset);
            break;
        case K::BITS:
            return ApplyBits(c, strValue, pucRow, puiMask, pstrError);
    }
    if (!bOk) {
        *pstrError = "bad value '" + strValue + "' for " + strName;
        return false;
    }
    if (!bIndex) {
        *puiMask |= MTE_COLUMN_BIT(c.uiColumn);
    }
    return true;
}

std::string CTL_FormatValue(const CTL_COLUMN_S& c, const uint8_t* pucRow) {
    switch (c.eKind) {
        case K::OWNER:
        case K::NAME:
        case K::STR:
        case K::OWNER_REF:
            return FieldString(pucRow, c);
        case K::INDEX:
        case K::U32:
            return std::to_string(GetU32(pucRow, c.usOffset));
        case K::I32:
            return std::to_string(static_cast<int32_t>(GetU32(pucRow, c.usOffset)));
        case K::TRUTH: {
            uint32_t uiValue = GetU32(pucRow, c.usOffset);
            return uiValue == MTE_TRUE    ? "true"
                   : uiValue == MTE_FALSE ? "false"
                                          : std::to_string(uiValue);
        }
        case K::STATUS:
        case K::ENUM:
            return FormatNamed(c, GetU32(pucRow, c.usOffset));
        case K::OID: {
            MTE_OID_S stOid;
            memcpy(&stOid, pucRow + c.usOffset, sizeof(stOid));
            char szText[MTE_OID_MAX_LEN * 11 + 1];
            MTE_MSG_Oid2Str(&stOid, sizeof(szText), szText);
            return szText;
        }
        case K::BITS: {
            std::string strOut;
            uint8_t ucBits = pucRow[c.usOffset];
            for (size_t i = 0; i < c.uiNameCount; i++) {
                if ((ucBits & c.pstNames[i].uiValue) != 0) {
                    strOut += (strOut.empty() ? "" : ",") + std::string(c.pstNames[i].pszName);
                }
            }
            return strOut.empty() ? "none" : strOut;
        }
    }
    return "";
}

std::string CTL_ColumnName(const CTL_TABLE_S& stTable, uint32_t uiColumn) {
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        const CTL_COLUMN_S& c = stTable.pstColumns[i];
        if (c.eKind == K::BITS) {
            for (size_t j = 0; j < c.uiNameCount; j++) {
                if (c.pstNames[j].uiColumn == uiColumn) {
                    return std::string(c.pszName) + " (" + c.pstNames[j].pszName + ")";
                }
            }
        } else if (c.uiColumn == uiColumn && uiColumn != 0) {
            return c.pszName;
        }
    }
    return "column " + std::to_string(uiColumn);
}

void CTL_KeyFromIndex(const CTL_TABLE_S& stTable, const uint8_t* pucRow, uint8_t* pucKey) {
    std::string strOwner = FieldBytes(pucRow, *MTE_CAT_FindKind(stTable, K::OWNER));
    std::string strName = FieldBytes(pucRow, *MTE_CAT_FindKind(stTable, K::NAME));
    if (stTable.usKeyItem == MTE_ITEM_OBJECTS_KEY) {
        MTE_OBJ_INDEX_KEY_S stKey = {};
        stKey.uiOwnerLen = static_cast<uint32_t>(strOwner.size());
        stKey.uiNameLen = static_cast<uint32_t>(strName.size());
        stKey.uiIndex = GetU32(pucRow, MTE_CAT_FindKind(stTable, K::INDEX)->usOffset);
        memcpy(stKey.szOwner, strOwner.c_str(), strOwner.size());
        memcpy(stKey.szName, strName.c_str(), strName.size());
        memcpy(pucKey, &stKey, sizeof(stKey));
        return;
    }
    MTE_INDEX_KEY_S stKey = {};
    stKey.uiOwnerLen = static_cast<uint32_t>(strOwner.size());
    memcpy(stKey.szOwner, strOwner.c_str(), strOwner.size());
    memcpy(stKey.szName, strName.c_str(), strName.size());
    memcpy(pucKey, &stKey, sizeof(stKey));
}
