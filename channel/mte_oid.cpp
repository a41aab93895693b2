// OID and owner helpers shared by the table modules. Pure functions of their
// arguments: no state, no locks, callable from the main and worker threads.
#include "mte_oid.h"

#include <cstring>

#include "mte_dbg.h"

namespace {
constexpr uint32_t TEXT_INVALID_OID_LENGTH = 40;
}  // namespace

uint32_t AppendSuffix2OID(const MTE_OID_S* pstSuffix, MTE_OID_S* pstOid) {
    // Counts are compared as 64-bit so that a corrupt count cannot wrap.
    if (static_cast<uint64_t>(pstOid->uiLen) + pstSuffix->uiLen > MTE_OID_MAX_LEN) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s", mte_DBG_Text(TEXT_INVALID_OID_LENGTH));
        }
        return MTE_ERR_GENERAL;
    }
    memmove(&pstOid->auiOid[pstOid->uiLen], pstSuffix->auiOid,
            pstSuffix->uiLen * sizeof(pstSuffix->auiOid[0]));
    pstOid->uiLen += pstSuffix->uiLen;
    return MTE_OK;
}

uint32_t mte_checkOwner(const char* pszField, const char* pszOwner) {
    return (pszField[0] == '\0' || strcmp(pszField, pszOwner) == 0) ? 1 : 0;
}

void mte_StrCopy(char* pszDst, const char* pszSrc, size_t uiSize) {
    if (uiSize == 0) {
        return;
    }
    size_t uiLen = strnlen(pszSrc, uiSize - 1);
    memmove(pszDst, pszSrc, uiLen);
    pszDst[uiLen] = '\0';
}
