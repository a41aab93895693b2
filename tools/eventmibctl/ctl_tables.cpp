// eventmibctl: column names, value syntax and record offsets of every table.
// The offsets come from the shared records, so a layout change shows here at
// compile time.
#include "ctl_tables.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mte_cfg.h"
#include "mte_msg.h"
#include "mte_types.h"

namespace {

using K = CTL_KIND_E;

#define OFF(rec, field) static_cast<uint16_t>(offsetof(rec, field))
#define NAMES(arr) arr, sizeof(arr) / sizeof(arr[0])

constexpr CTL_NAMED_S g_astSampleTypes[] = {
    {"absoluteValue", MTE_SAMPLE_ABSOLUTE, 0},
    {"deltaValue", MTE_SAMPLE_DELTA, 0},
    {"absolute", MTE_SAMPLE_ABSOLUTE, 0},
    {"delta", MTE_SAMPLE_DELTA, 0},
};
constexpr CTL_NAMED_S g_astComparisons[] = {
    {"unequal", MTE_BOOL_UNEQUAL, 0}, {"equal", MTE_BOOL_EQUAL, 0},
    {"less", MTE_BOOL_LESS, 0},       {"lessOrEqual", MTE_BOOL_LESS_OR_EQUAL, 0},
    {"greater", MTE_BOOL_GREATER, 0}, {"greaterOrEqual", MTE_BOOL_GREATER_OR_EQUAL, 0},
};
constexpr CTL_NAMED_S g_astThresStartups[] = {
    {"rising", MTE_THRES_STARTUP_RISING, 0},
    {"falling", MTE_THRES_STARTUP_FALLING, 0},
    {"risingOrFalling", MTE_THRES_STARTUP_RISING_OR_FALLING, 0},
};
constexpr CTL_NAMED_S g_astDiscontinuityTypes[] = {
    {"timeTicks", MTE_DELTA_TIME_TICKS, 0},
    {"timeStamp", MTE_DELTA_TIME_STAMP, 0},
    {"dateAndTime", MTE_DELTA_DATE_AND_TIME, 0},
};
constexpr CTL_NAMED_S g_astTriggerTests[] = {
    {"existence", MTE_TEST_EXISTENCE, MTE_TRIGGER_COL_TEST_EXISTENCE},
    {"boolean", MTE_TEST_BOOLEAN, MTE_TRIGGER_COL_TEST_BOOLEAN},
    {"threshold", MTE_TEST_THRESHOLD, MTE_TRIGGER_COL_TEST_THRESHOLD},
};
constexpr CTL_NAMED_S g_astExistTests[] = {
    {"present", MTE_EXIST_PRESENT, MTE_EXIST_COL_TEST_PRESENT},
    {"absent", MTE_EXIST_ABSENT, MTE_EXIST_COL_TEST_ABSENT},
    {"changed", MTE_EXIST_CHANGED, MTE_EXIST_COL_TEST_CHANGED},
};
constexpr CTL_NAMED_S g_astExistStartups[] = {
    {"present", MTE_EXIST_PRESENT, MTE_EXIST_COL_STARTUP_PRESENT},
    {"absent", MTE_EXIST_ABSENT, MTE_EXIST_COL_STARTUP_ABSENT},
};
constexpr CTL_NAMED_S g_astActions[] = {
    {"notification", MTE_ACTION_NOTIFICATION, MTE_EVENT_COL_ACTION_NOTIFICATION},
    {"set", MTE_ACTION_SET, MTE_EVENT_COL_ACTION_SET},
};
constexpr CTL_NAMED_S g_astStatuses[] = {
    {"active", MTE_ROW_ACTIVE, 0},
    {"notInService", MTE_ROW_NOT_IN_SERVICE, 0},
    {"notReady", MTE_ROW_NOT_READY, 0},
    {"createAndGo", MTE_ROW_CREATE_AND_GO, 0},
    {"createAndWait", MTE_ROW_CREATE_AND_WAIT, 0},
    {"destroy", MTE_ROW_DESTROY, 0},
};

using TRG = MTE_TRIGGER_ROW_S;
const CTL_COLUMN_S g_astTriggerColumns[] = {
    {"owner", K::OWNER, 0, OFF(TRG, szOwner), 33},
    {"name", K::NAME, 0, OFF(TRG, szName), 33},
    {"comment", K::STR, MTE_TRIGGER_COL_COMMENT, OFF(TRG, szComment), 256},
    {"test", K::BITS, 0, OFF(TRG, ucTest), 1, NAMES(g_astTriggerTests)},
    {"sampletype", K::ENUM, MTE_TRIGGER_COL_SAMPLE_TYPE, OFF(TRG, uiSampleType), 4,
     NAMES(g_astSampleTypes)},
    {"valueid", K::OID, MTE_TRIGGER_COL_VALUE_ID, OFF(TRG, stValueID), 516},
    {"wildcard", K::TRUTH, MTE_TRIGGER_COL_VALUE_ID_WILDCARD, OFF(TRG, uiValueIDWildcard), 4},
    {"context", K::STR, MTE_TRIGGER_COL_CONTEXT_NAME, OFF(TRG, szContextName), 33},
    {"contextwildcard", K::TRUTH, MTE_TRIGGER_COL_CONTEXT_NAME_WILDCARD,
     OFF(TRG, uiContextNameWildcard), 4},
    {"frequency", K::U32, MTE_TRIGGER_COL_FREQUENCY, OFF(TRG, uiFrequency), 4},
    {"objectsowner", K::STR, MTE_TRIGGER_COL_OBJECTS_OWNER, OFF(TRG, szObjectsOwner), 33},
    {"objects", K::STR, MTE_TRIGGER_COL_OBJECTS, OFF(TRG, szObjects), 33},
    {"enabled", K::TRUTH, 0, OFF(TRG, uiEnabled), 4},
    {"targettag", K::STR, 0, OFF(TRG, szTargetTag), 256},
    {"status", K::STATUS, MTE_TRIGGER_COL_ENTRY_STATUS, OFF(TRG, uiEntryStatus), 4,
     NAMES(g_astStatuses)},
};

using EXI = MTE_EXIST_ENTRY_S;
const CTL_COLUMN_S g_astExistColumns[] = {
    {"owner", K::OWNER, 0, OFF(EXI, szOwner), 33},
    {"name", K::NAME, 0, OFF(EXI, szName), 33},
    {"test", K::BITS, 0, OFF(EXI, ucTest), 1, NAMES(g_astExistTests)},
    {"startup", K::BITS, 0, OFF(EXI, ucStartup), 1, NAMES(g_astExistStartups)},
    {"objectsowner", K::STR, MTE_EXIST_COL_OBJECTS_OWNER, OFF(EXI, szObjectsOwner), 33},
    {"objects", K::STR, MTE_EXIST_COL_OBJECTS, OFF(EXI, szObjects), 33},
    {"eventowner", K::STR, MTE_EXIST_COL_EVENT_OWNER, OFF(EXI, szEventOwner), 33},
    {"event", K::STR, MTE_EXIST_COL_EVENT, OFF(EXI, szEvent), 33},
};

using BOO = MTE_BOOL_ENTRY_S;
const CTL_COLUMN_S g_astBoolColumns[] = {
    {"owner", K::OWNER, 0, OFF(BOO, szOwner), 33},
    {"name", K::NAME, 0, OFF(BOO, szName), 33},
    {"comparison", K::ENUM, MTE_BOOL_COL_COMPARISON, OFF(BOO, uiComparison), 4,
     NAMES(g_astComparisons)},
    {"value", K::I32, MTE_BOOL_COL_VALUE, OFF(BOO, iValue), 4},
    {"startup", K::TRUTH, MTE_BOOL_COL_STARTUP, OFF(BOO, uiStartup), 4},
    {"objectsowner", K::STR, MTE_BOOL_COL_OBJECTS_OWNER, OFF(BOO, szObjectsOwner), 33},
    {"objects", K::STR, MTE_BOOL_COL_OBJECTS, OFF(BOO, szObjects), 33},
    {"eventowner", K::STR, MTE_BOOL_COL_EVENT_OWNER, OFF(BOO, szEventOwner), 33},
    {"event", K::STR, MTE_BOOL_COL_EVENT, OFF(BOO, szEvent), 33},
};

using THR = MTE_THRES_ENTRY_S;
const CTL_COLUMN_S g_astThresColumns[] = {
    {"owner", K::OWNER, 0, OFF(THR, szOwner), 33},
    {"name", K::NAME, 0, OFF(THR, szName), 33},
    {"startup", K::ENUM, MTE_THRES_COL_STARTUP, OFF(THR, uiStartup), 4, NAMES(g_astThresStartups)},
    {"rising", K::I32, MTE_THRES_COL_RISING, OFF(THR, iRising), 4},
    {"falling", K::I32, MTE_THRES_COL_FALLING, OFF(THR, iFalling), 4},
    {"deltarising", K::I32, MTE_THRES_COL_DELTA_RISING, OFF(THR, iDeltaRising), 4},
    {"deltafalling", K::I32, MTE_THRES_COL_DELTA_FALLING, OFF(THR, iDeltaFalling), 4},
    {"objectsowner", K::STR, MTE_THRES_COL_OBJECTS_OWNER, OFF(THR, szObjectsOwner), 33},
    {"objects", K::STR, MTE_THRES_COL_OBJECTS, OFF(THR, szObjects), 33},
    {"risingeventowner", K::STR, MTE_THRES_COL_RISING_EVENT_OWNER, OFF(THR, szRisingEventOwner),
     33},
    {"risingevent", K::STR, MTE_THRES_COL_RISING_EVENT, OFF(THR, szRisingEvent), 33},
    {"fallingeventowner", K::STR, MTE_THRES_COL_FALLING_EVENT_OWNER, OFF(THR, szFallingEventOwner),
     33},
    {"fallingevent", K::STR, MTE_THRES_COL_FALLING_EVENT, OFF(THR, szFallingEvent), 33},
    {"deltarisingeventowner", K::STR, MTE_THRES_COL_DELTA_RISING_EVENT_OWNER,
     OFF(THR, szDeltaRisingEventOwner), 33},
    {"deltarisingevent", K::STR, MTE_THRES_COL_DELTA_RISING_EVENT, OFF(THR, szDeltaRisingEvent),
     33},
    {"deltafallingeventowner", K::STR, MTE_THRES_COL_DELTA_FALLING_EVENT_OWNER,
     OFF(THR, szDeltaFallingEventOwner), 33},
    {"deltafallingevent", K::STR, MTE_THRES_COL_DELTA_FALLING_EVENT, OFF(THR, szDeltaFallingEvent),
     33},
};

using DLT = MTE_DELTA_ENTRY_S;
const CTL_COLUMN_S g_astDeltaColumns[] = {
    {"owner", K::OWNER, 0, OFF(DLT, szOwner), 33},
    {"name", K::NAME, 0, OFF(DLT, szName), 33},
    {"discontinuityid", K::OID, MTE_DELTA_COL_DISCONTINUITY_ID, OFF(DLT, stDiscontinuityID), 516},
    {"discontinuityidwildcard", K::TRUTH, MTE_DELTA_COL_DISCONTINUITY_ID_WILDCARD,
     OFF(DLT, uiDiscontinuityIDWildcard), 4},
    {"discontinuityidtype", K::ENUM, MTE_DELTA_COL_DISCONTINUITY_ID_TYPE,
     OFF(DLT, uiDiscontinuityIDType), 4, NAMES(g_astDiscontinuityTypes)},
};

using OBJ = MTE_OBJ_ROW_S;
const CTL_COLUMN_S g_astObjColumns[] = {
    {"owner", K::OWNER, 0, OFF(OBJ, szOwner), 33},
    {"name", K::NAME, 0, OFF(OBJ, szName), 33},
    {"index", K::INDEX, 0, OFF(OBJ, uiIndex), 4},
    {"id", K::OID, MTE_OBJ_COL_ID, OFF(OBJ, stID), 516},
    {"wildcard", K::TRUTH, MTE_OBJ_COL_ID_WILDCARD, OFF(OBJ, uiIDWildcard), 4},
    {"status", K::STATUS, MTE_OBJ_COL_ENTRY_STATUS, OFF(OBJ, uiEntryStatus), 4,
     NAMES(g_astStatuses)},
};

using EVT = MTE_EVENT_ROW_S;
const CTL_COLUMN_S g_astEventColumns[] = {
    {"owner", K::OWNER, 0, OFF(EVT, szOwner), 33},
    {"name", K::NAME, 0, OFF(EVT, szName), 33},
    {"comment", K::STR, MTE_EVENT_COL_COMMENT, OFF(EVT, szComment), 256},
    {"actions", K::BITS, 0, OFF(EVT, ucActions), 1, NAMES(g_astActions)},
    {"enabled", K::TRUTH, 0, OFF(EVT, uiEnabled), 4},
    {"status", K::STATUS, MTE_EVENT_COL_ENTRY_STATUS, OFF(EVT, uiEntryStatus), 4,
     NAMES(g_astStatuses)},
};

using NTF = MTE_NOTIFY_ENTRY_S;
const CTL_COLUMN_S g_astNotifyColumns[] = {
    {"owner", K::OWNER, 0, OFF(NTF, szOwner), 33},
    {"name", K::NAME, 0, OFF(NTF, szName), 33},
    {"notification", K::OID, MTE_NOTIFY_COL_NOTIFICATION, OFF(NTF, stNotification), 516},
    {"objectsowner", K::STR, MTE_NOTIFY_COL_OBJECTS_OWNER, OFF(NTF, szObjectsOwner), 33},
    {"objects", K::STR, MTE_NOTIFY_COL_OBJECTS, OFF(NTF, szObjects), 33},
};

using SET = MTE_SET_ENTRY_S;
const CTL_COLUMN_S g_astSetColumns[] = {
    {"owner", K::OWNER, 0, OFF(SET, szOwner), 33},
    {"name", K::NAME, 0, OFF(SET, szName), 33},
    {"object", K::OID, MTE_SET_COL_OBJECT, OFF(SET, stObject), 516},
    {"objectwildcard", K::TRUTH, MTE_SET_COL_OBJECT_WILDCARD, OFF(SET, uiObjectWildcard), 4},
    {"value", K::I32, MTE_SET_COL_VALUE, OFF(SET, iValue), 4},
    {"context", K::STR, MTE_SET_COL_CONTEXT_NAME, OFF(SET, szContextName), 33},
    {"contextwildcard", K::TRUTH, MTE_SET_COL_CONTEXT_NAME_WILDCARD,
     OFF(SET, uiContextNameWildcard), 4},
    {"targettag", K::STR, 0, OFF(SET, szTargetTag), 256},
};

#define TABLE(name, type, row, key, rec, cols) \
    { name, type, row, key, sizeof(rec), cols, sizeof(cols) / sizeof(cols[0]) }

const CTL_TABLE_S g_astTables[] = {
    TABLE("trigger", MTE_MSG_TYPE_TRIGGER, MTE_ITEM_TRIGGER, MTE_ITEM_TRIGGER_KEY, TRG,
          g_astTriggerColumns),
    TABLE("delta", MTE_MSG_TYPE_DELTA, MTE_ITEM_DELTA, MTE_ITEM_TRIGGER_KEY, DLT,
          g_astDeltaColumns),
    TABLE("existence", MTE_MSG_TYPE_EXISTENCE, MTE_ITEM_EXISTENCE, MTE_ITEM_TRIGGER_KEY, EXI,
          g_astExistColumns),
    TABLE("boolean", MTE_MSG_TYPE_BOOLEAN, MTE_ITEM_BOOLEAN, MTE_ITEM_TRIGGER_KEY, BOO,
          g_astBoolColumns),
    TABLE("threshold", MTE_MSG_TYPE_THRESHOLD, MTE_ITEM_THRESHOLD, MTE_ITEM_TRIGGER_KEY, THR,
          g_astThresColumns),
    TABLE("objects", MTE_MSG_TYPE_OBJECTS, MTE_ITEM_OBJECTS, MTE_ITEM_OBJECTS_KEY, OBJ,
          g_astObjColumns),
    TABLE("event", MTE_MSG_TYPE_EVENT, MTE_ITEM_EVENT, MTE_ITEM_EVENT_KEY, EVT, g_astEventColumns),
    TABLE("notification", MTE_MSG_TYPE_NOTIFY, MTE_ITEM_NOTIFY, MTE_ITEM_EVENT_KEY, NTF,
          g_astNotifyColumns),
    TABLE("set", MTE_MSG_TYPE_SET, MTE_ITEM_SET, MTE_ITEM_EVENT_KEY, SET, g_astSetColumns),
};

uint32_t GetU32(const uint8_t* pucRow, uint16_t usOffset) {
    uint32_t uiValue;
    memcpy(&uiValue, pucRow + usOffset, 4);
    return uiValue;
}

void PutU32(uint8_t* pucRow, uint16_t usOffset, uint32_t uiValue) {
    memcpy(pucRow + usOffset, &uiValue, 4);
}

const CTL_COLUMN_S* FindColumn(const CTL_TABLE_S& stTable, CTL_KIND_E eKind) {
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        if (stTable.pstColumns[i].eKind == eKind) {
            return &stTable.pstColumns[i];
        }
    }
    return nullptr;
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
        for (const CTL_TABLE_S& stTable : g_astTables) {
            vec.push_back(&stTable);
        }
        return vec;
    }();
    return s_vecTables;
}

const CTL_TABLE_S* CTL_FindTable(const std::string& strName) {
    for (const CTL_TABLE_S& stTable : g_astTables) {
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
        case K::STR: {
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
    std::string strOwner = FieldBytes(pucRow, *FindColumn(stTable, K::OWNER));
    std::string strName = FieldBytes(pucRow, *FindColumn(stTable, K::NAME));
    if (stTable.usKeyItem == MTE_ITEM_OBJECTS_KEY) {
        MTE_OBJ_INDEX_KEY_S stKey = {};
        stKey.uiOwnerLen = static_cast<uint32_t>(strOwner.size());
        stKey.uiNameLen = static_cast<uint32_t>(strName.size());
        stKey.uiIndex = GetU32(pucRow, FindColumn(stTable, K::INDEX)->usOffset);
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
