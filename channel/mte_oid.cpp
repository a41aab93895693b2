// OID and owner helpers shared by the table modules: appending an instance
// suffix to an identifier, the owner rule of set requests, and the bounded
// copy into fixed string fields. Pure functions of their arguments; any
// thread, no locks (the debug switch is read through its own leaf lock).
#include "mte_oid.h"

#include <cstring>

#include "mte_dbg.h"

uint32_t AppendSuffix2OID(const MTE_OID_S* pstSuffix, MTE_OID_S* pstOid) {
    // Compare in 64 bits: a damaged count must not wrap into an accepted sum.
    if (static_cast<uint64_t>(pstOid->uiLen) + pstSuffix->uiLen > MTE_OID_MAX_LEN) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            const char* pszText = mte_DBG_Text(MTE_TEXT_INVALID_OID_LENGTH);
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s", pszText ? pszText : "Invalid OID length.");
        }
        return MTE_ERR_GENERAL;
    }
    memcpy(&pstOid->auiOid[pstOid->uiLen], pstSuffix->auiOid,
           pstSuffix->uiLen * sizeof(pstSuffix->auiOid[0]));
    pstOid->uiLen += pstSuffix->uiLen;
    return MTE_OK;
}

uint32_t mte_checkOwner(const char* pszField, const char* pszOwner) {
    if (pszField[0] == '\0') {
        return 1;
    }
    return strcmp(pszField, pszOwner) == 0 ? 1 : 0;
}

void mte_StrCopy(char* pszDst, const char* pszSrc, size_t uiSize) {
    if (uiSize == 0) {
        return;
    }
    // The source may itself be a fixed field without room for its terminator
    // (a damaged request), so never read past uiSize - 1 bytes of it.
    size_t uiLen = strnlen(pszSrc, uiSize - 1);
    memmove(pszDst, pszSrc, uiLen);
    pszDst[uiLen] = '\0';
}
