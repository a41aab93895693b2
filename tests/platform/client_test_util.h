// Small helpers shared by the SNMP client tests.
#ifndef MTE_TEST_CLIENT_TEST_UTIL_H
#define MTE_TEST_CLIENT_TEST_UTIL_H

#include <cstdlib>
#include <cstring>
#include <string>

#include "mte_types.h"
#include "plat_snmp.h"

namespace mte_test {

inline MTE_OID_S Oid(const char* pszDotted) {
    MTE_OID_S stOid{};
    const char* psz = pszDotted;
    while (*psz != '\0' && stOid.uiLen < MTE_OID_MAX_LEN) {
        char* pszEnd = nullptr;
        stOid.auiOid[stOid.uiLen++] = static_cast<uint32_t>(strtoul(psz, &pszEnd, 10));
        psz = (*pszEnd == '.') ? pszEnd + 1 : pszEnd;
    }
    return stOid;
}

inline std::string OidText(const MTE_OID_S& stOid) {
    std::string str;
    for (uint32_t i = 0; i < stOid.uiLen; i++) {
        str += (i ? "." : "") + std::to_string(stOid.auiOid[i]);
    }
    return str;
}

inline bool IsUnder(const MTE_OID_S& stOid, const MTE_OID_S& stPrefix) {
    return stOid.uiLen > stPrefix.uiLen &&
           memcmp(stOid.auiOid, stPrefix.auiOid, stPrefix.uiLen * 4) == 0;
}

// Strictly ascending in SNMP order.
inline bool OidLess(const MTE_OID_S& a, const MTE_OID_S& b) {
    for (uint32_t i = 0; i < a.uiLen && i < b.uiLen; i++) {
        if (a.auiOid[i] != b.auiOid[i]) {
            return a.auiOid[i] < b.auiOid[i];
        }
    }
    return a.uiLen < b.uiLen;
}

}  // namespace mte_test

#endif  // MTE_TEST_CLIENT_TEST_UTIL_H
