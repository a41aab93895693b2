// eventmibctl: the tables as an operator names them (table and column names,
// value syntax) and their mapping onto the management records.
#ifndef CTL_TABLES_H
#define CTL_TABLES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class CTL_KIND_E {
    OWNER,   // index string (33 bytes)
    NAME,    // index string (33 bytes)
    INDEX,   // index u32 (objects index)
    OID,     // MTE_OID_S
    U32,     // unsigned number
    I32,     // signed number
    TRUTH,   // TruthValue: true / false
    STATUS,  // RowStatus by name
    ENUM,    // u32 by name (sample type, comparison, threshold startup)
    STR,     // string of usSize bytes
    BITS,    // u8 of named bits, each bit its own column
};

struct CTL_NAMED_S {
    const char* pszName;
    uint32_t uiValue;   // value (ENUM) or bit (BITS)
    uint32_t uiColumn;  // BITS: the column of this bit
};

struct CTL_COLUMN_S {
    const char* pszName;
    CTL_KIND_E eKind;
    uint32_t uiColumn;  // 0: no column (index, or not writable)
    uint16_t usOffset;
    uint16_t usSize;  // STR: field size
    const CTL_NAMED_S* pstNames = nullptr;
    size_t uiNameCount = 0;
};

struct CTL_TABLE_S {
    const char* pszName;
    uint16_t usType;
    uint16_t usRowItem;
    uint16_t usKeyItem;
    uint32_t uiRowSize;
    const CTL_COLUMN_S* pstColumns;
    size_t uiColumnCount;
};

// The table of that name (trigger, delta, existence, boolean, threshold,
// objects, event, notification, set), or null.
const CTL_TABLE_S* CTL_FindTable(const std::string& strName);
const std::vector<const CTL_TABLE_S*>& CTL_Tables(void);

// Applies "column=value" to the row and the mask; false with a message.
bool CTL_ApplyAssignment(const CTL_TABLE_S& stTable, const std::string& strAssignment,
                         uint8_t* pucRow, uint32_t* puiMask, std::string* pstrError);
// The value of one column of a row as text.
std::string CTL_FormatValue(const CTL_COLUMN_S& stColumn, const uint8_t* pucRow);
// The name of a failed column of the table ("frequency"), or its number.
std::string CTL_ColumnName(const CTL_TABLE_S& stTable, uint32_t uiColumn);
// Builds the get-next key of a row's index (owner, name, objects index):
// from an operator's arguments, or from the last row of a walk.
void CTL_KeyFromIndex(const CTL_TABLE_S& stTable, const uint8_t* pucRow, uint8_t* pucKey);

// Reads the escapes that strings are shown with: \xHH (any byte but 00) and
// \\; false with a message on any other backslash.
bool CTL_UnescapeString(const std::string& strText, std::string* pstrOut, std::string* pstrError);
// Parses a number (decimal, 0x hex); false when it is not one or out of range.
bool CTL_ParseNumber(const std::string& strText, int64_t llMin, int64_t llMax, int64_t* pllOut);

#endif  // CTL_TABLES_H
