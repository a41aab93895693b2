// Notification datagrams from eventmibd to net-snmp variable lists. The
// datagram codec (plat_notify_dgram.h) checks every field; this side only
// gives each checked binding its SNMP type and net-snmp's in-memory form.
// Pure; any thread; no locks.
#include "agx_notify.h"

#include <cstring>

#include "plat_snmp.h"

namespace {

constexpr oid SNMP_TRAP_OID_0[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

// The SNMP type of each type code the codec accepts. UInteger32 (6) and the
// opaque-wrapped unsigned (7) go as Gauge32, the SMIv2 type of the same
// range: receivers of SNMPv2 notifications need not know the obsolete tags.
struct AsnOfCode {
    uint32_t uiCode;
    u_char ucAsn;
};
constexpr AsnOfCode g_astAsnOfCode[] = {
    {SNMP_VTYPE_INTEGER, ASN_INTEGER},     {SNMP_VTYPE_INTEGER32, ASN_INTEGER},
    {SNMP_VTYPE_ENUM, ASN_INTEGER},        {SNMP_VTYPE_COUNTER32, ASN_COUNTER},
    {SNMP_VTYPE_GAUGE32, ASN_GAUGE},       {SNMP_VTYPE_TIMETICKS, ASN_TIMETICKS},
    {SNMP_VTYPE_UINTEGER32, ASN_GAUGE},    {SNMP_VTYPE_OPAQUE_U32, ASN_GAUGE},
    {SNMP_VTYPE_COUNTER64, ASN_COUNTER64}, {SNMP_VTYPE_OCTET_STRING, ASN_OCTET_STR},
    {SNMP_VTYPE_OID, ASN_OBJECT_ID},       {SNMP_VTYPE_IPADDRESS, ASN_IPADDRESS},
    {SNMP_VTYPE_OPAQUE, ASN_OPAQUE},       {SNMP_VTYPE_NULL, ASN_NULL},
};

bool FindAsn(uint32_t uiCode, u_char* pucAsn) {
    for (const auto& stEntry : g_astAsnOfCode) {
        if (stEntry.uiCode == uiCode) {
            *pucAsn = stEntry.ucAsn;
            return true;
        }
    }
    return false;
}

// net-snmp's sub-identifiers are wider than the datagram's.
size_t ToNetsnmpOid(const MTE_OID_S& stOid, oid* pulOut) {
    for (uint32_t i = 0; i < stOid.uiLen; i++) {
        pulOut[i] = stOid.auiOid[i];
    }
    return stOid.uiLen;
}

// Appends one binding with the value in net-snmp's in-memory form.
uint32_t AddValue(netsnmp_variable_list** ppstVars, const NDG_VAR_S& stVar) {
    u_char ucAsn = 0;
    if (!FindAsn(stVar.uiType, &ucAsn)) {
        return AGX_DECODE_TYPE;  // a code the codec accepts but this table lacks
    }
    oid aulName[MTE_OID_MAX_LEN];
    size_t uiNameLen = ToNetsnmpOid(stVar.stName, aulName);
    const unsigned char* pucValue = stVar.pucValue;
    netsnmp_variable_list* pstAdded = nullptr;
    switch (ucAsn) {
        case ASN_INTEGER: {
            int32_t iValue = 0;
            memcpy(&iValue, pucValue, 4);
            long lValue = iValue;
            pstAdded = snmp_varlist_add_variable(ppstVars, aulName, uiNameLen, ASN_INTEGER, &lValue,
                                                 sizeof(lValue));
            break;
        }
        case ASN_COUNTER:
        case ASN_GAUGE:
        case ASN_TIMETICKS: {
            uint32_t uiValue = 0;
            memcpy(&uiValue, pucValue, 4);
            u_long ulValue = uiValue;
            pstAdded = snmp_varlist_add_variable(ppstVars, aulName, uiNameLen, ucAsn, &ulValue,
                                                 sizeof(ulValue));
            break;
        }
        case ASN_COUNTER64: {
            uint64_t ullValue = 0;
            memcpy(&ullValue, pucValue, 8);
            counter64 stValue;
            stValue.high = static_cast<u_long>(ullValue >> 32);
            stValue.low = static_cast<u_long>(ullValue & 0xffffffffU);
            pstAdded = snmp_varlist_add_variable(ppstVars, aulName, uiNameLen, ASN_COUNTER64,
                                                 &stValue, sizeof(stValue));
            break;
        }
        case ASN_OBJECT_ID: {
            // An empty OID value has no BER form: it goes as 0.0, the null OID.
            oid aulValue[MTE_OID_MAX_LEN] = {0, 0};
            size_t uiCount = stVar.uiLen / 4;
            for (size_t i = 0; i < uiCount; i++) {
                uint32_t uiSub = 0;
                memcpy(&uiSub, pucValue + 4 * i, 4);
                aulValue[i] = uiSub;
            }
            if (uiCount == 0) {
                uiCount = 2;
            }
            pstAdded = snmp_varlist_add_variable(ppstVars, aulName, uiNameLen, ASN_OBJECT_ID,
                                                 aulValue, uiCount * sizeof(oid));
            break;
        }
        case ASN_NULL:
            pstAdded =
                snmp_varlist_add_variable(ppstVars, aulName, uiNameLen, ASN_NULL, nullptr, 0);
            break;
        default:  // strings, IpAddress (network order) and opaque bytes as they are
            pstAdded = snmp_varlist_add_variable(ppstVars, aulName, uiNameLen, ucAsn, pucValue,
                                                 stVar.uiLen);
            break;
    }
    return pstAdded != nullptr ? AGX_DECODE_OK : AGX_DECODE_NO_MEMORY;
}

uint32_t AddTrapOid(netsnmp_variable_list** ppstVars, const MTE_OID_S& stTrapOid) {
    oid aulTrapOid[MTE_OID_MAX_LEN];
    size_t uiTrapLen = ToNetsnmpOid(stTrapOid, aulTrapOid);
    netsnmp_variable_list* pstAdded =
        snmp_varlist_add_variable(ppstVars, SNMP_TRAP_OID_0, OID_LENGTH(SNMP_TRAP_OID_0),
                                  ASN_OBJECT_ID, aulTrapOid, uiTrapLen * sizeof(oid));
    return pstAdded != nullptr ? AGX_DECODE_OK : AGX_DECODE_NO_MEMORY;
}

}  // namespace

uint32_t AGX_DecodeNotify(const unsigned char* pucData, size_t uiLen, AGX_NOTIFY_S* pstOut) {
    memset(pstOut, 0, sizeof(*pstOut));
    NDG_READER_S stIn;
    NDG_HEADER_S stHeader;
    uint32_t uiRet = NDG_ReadHeader(pucData, uiLen, &stIn, &stHeader);
    netsnmp_variable_list* pstVars = nullptr;
    if (uiRet == AGX_DECODE_OK) {
        uiRet = AddTrapOid(&pstVars, stHeader.stTrapOid);
    }
    for (uint32_t i = 0; uiRet == AGX_DECODE_OK && i < stHeader.usVarCount; i++) {
        NDG_VAR_S stVar;
        uiRet = NDG_ReadVar(&stIn, &stVar);
        if (uiRet == AGX_DECODE_OK) {
            uiRet = AddValue(&pstVars, stVar);
        }
    }
    if (uiRet == AGX_DECODE_OK) {
        uiRet = NDG_ReadEnd(&stIn);
    }
    if (uiRet != AGX_DECODE_OK) {
        snmp_free_varbind(pstVars);
        return uiRet;
    }
    memcpy(pstOut->szContext, stHeader.szContext, sizeof(pstOut->szContext));
    pstOut->usVarCount = stHeader.usVarCount;
    pstOut->pstVars = pstVars;
    return AGX_DECODE_OK;
}

const char* AGX_DecodeReason(uint32_t uiResult) {
    return uiResult == AGX_DECODE_NO_MEMORY ? "out of memory" : NDG_DecodeReason(uiResult);
}
