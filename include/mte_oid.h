// OID and owner helpers shared by the tables. Pure; any thread.
#ifndef MTE_OID_H
#define MTE_OID_H

#include "mte_types.h"

// Appends the suffix to the OID; 0x40010001 (OID unchanged) when the result
// would exceed 128 sub-identifiers.
uint32_t AppendSuffix2OID(const MTE_OID_S* pstSuffix, MTE_OID_S* pstOid);
// 1 when the field is empty or equal to the owner (case-sensitive), else 0.
uint32_t mte_checkOwner(const char* pszField, const char* pszOwner);
// Bounded copy into a fixed field of uiSize bytes; always terminated.
void mte_StrCopy(char* pszDst, const char* pszSrc, size_t uiSize);

#endif  // MTE_OID_H
