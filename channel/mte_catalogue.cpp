// A set's copy of the masked columns into a row, read from the catalogue.
// Out of line, so that one body serves every row type: inlined for one row,
// the compiler would weigh the branches of kinds that row does not have.
#include <cstring>

#include "mte_catalogue.h"
#include "mte_oid.h"

namespace {

// One column, when the mask has it, by the column's copy rule.
void CopyColumn(const MTE_CAT_COLUMN_S& stColumn, const uint8_t* pucReq, uint32_t uiMask,
                uint8_t* pucRow) {
    const uint8_t* pucFrom = pucReq + stColumn.usOffset;
    uint8_t* pucTo = pucRow + stColumn.usOffset;
    if (stColumn.eCopy == MTE_CAT_COPY_E::BY_TABLE) {
        return;
    }
    if (stColumn.eKind == MTE_CAT_KIND_E::BITS) {
        *pucTo = MTE_CAT_MergeBits(stColumn, *pucFrom, uiMask, *pucTo);
        return;
    }
    if (stColumn.uiColumn == 0 || (uiMask & MTE_COLUMN_BIT(stColumn.uiColumn)) == 0) {
        return;
    }
    if (MTE_CAT_IsString(stColumn.eKind)) {
        mte_StrCopy(reinterpret_cast<char*>(pucTo), reinterpret_cast<const char*>(pucFrom),
                    stColumn.usSize);
    } else if (stColumn.eKind == MTE_CAT_KIND_E::OID) {
        const auto* pstFrom = reinterpret_cast<const MTE_OID_S*>(pucFrom);
        auto* pstTo = reinterpret_cast<MTE_OID_S*>(pucTo);
        if (pstFrom->uiLen > MTE_OID_MAX_LEN) {
            return;
        }
        if (stColumn.eCopy == MTE_CAT_COPY_E::OID_WHOLE) {
            *pstTo = *pstFrom;
        } else {
            pstTo->uiLen = pstFrom->uiLen;
            memcpy(pstTo->auiOid, pstFrom->auiOid, pstFrom->uiLen * sizeof(pstFrom->auiOid[0]));
        }
    } else {
        memcpy(pucTo, pucFrom, stColumn.usSize);
    }
}

}  // namespace

void MTE_CAT_CopyColumns(MTE_CAT_TABLE_E eTable, const void* pReq, uint32_t uiMask, void* pRow) {
    const MTE_CAT_TABLE_S& stTable = g_astMteCatalogue[eTable];
    for (size_t i = 0; i < stTable.uiColumnCount; ++i) {
        CopyColumn(stTable.pstColumns[i], static_cast<const uint8_t*>(pReq), uiMask,
                   static_cast<uint8_t*>(pRow));
    }
}
