// eventmibctl: the tables as an operator names them (table and column names,
// value syntax, all from the catalogue) and the reading and writing of values
// by those names.
#ifndef CTL_TABLES_H
#define CTL_TABLES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mte_catalogue.h"

// The tables, their columns and the operator's names for them are the
// catalogue's.
using CTL_KIND_E = MTE_CAT_KIND_E;
using CTL_NAMED_S = MTE_CAT_NAMED_S;
using CTL_COLUMN_S = MTE_CAT_COLUMN_S;
using CTL_TABLE_S = MTE_CAT_TABLE_S;

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
