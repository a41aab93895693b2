// Placeholder definitions: replaced by the module's implementation.
#include "mte_oid.h"

uint32_t AppendSuffix2OID(const MTE_OID_S* pstSuffix, MTE_OID_S* pstOid) { return {}; }
uint32_t mte_checkOwner(const char* pszField, const char* pszOwner) { return {}; }
void mte_StrCopy(char* pszDst, const char* pszSrc, size_t uiSize) {}
