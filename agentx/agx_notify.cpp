// Notification datagrams from eventmibd to net-snmp variable lists. The
// datagram comes from a local process and is checked field by field: every
// length must fit in what is left, the variable count must be met exactly and
// nothing may follow the last variable. Numbers are in host byte order (both
// ends run on the same machine). Pure; any thread; no locks.
#include "agx_notify.h"

#include <cstring>

#include "plat_snmp.h"

namespace {

constexpr uint32_t AGX_OID_MAX = MTE_OID_MAX_LEN;
constexpr oid SNMP_TRAP_OID_0[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

struct Reader {
    const unsigned char* pucData;
    size_t uiLen;
    size_t uiPos;
};

bool TakeBytes(Reader* pstIn, void* pOut, size_t uiCount) {
    if (uiCount > pstIn->uiLen - pstIn->uiPos) {
        return false;
    }
    if (uiCount > 0) {
        memcpy(pOut, pstIn->pucData + pstIn->uiPos, uiCount);
    }
    pstIn->uiPos += uiCount;
    return true;
}

// A view on bytes inside the datagram, without copying them.
bool TakeView(Reader* pstIn, size_t uiCount, const unsigned char** ppucView) {
    if (uiCount > pstIn->uiLen - pstIn->uiPos) {
        return false;
    }
    *ppucView = pstIn->pucData + pstIn->uiPos;
    pstIn->uiPos += uiCount;
    return true;
}

// An OID as the datagram carries it: a 32-bit count, then 32-bit sub-identifiers.
uint32_t TakeOid(Reader* pstIn, oid* pulOid, size_t* puiLen) {
    uint32_t uiCount = 0;
    if (!TakeBytes(pstIn, &uiCount, 4)) {
        return AGX_DECODE_SHORT;
    }
    if (uiCount == 0 || uiCount > AGX_OID_MAX) {
        return AGX_DECODE_OID_LENGTH;
    }
    for (uint32_t i = 0; i < uiCount; i++) {
        uint32_t uiSub = 0;
        if (!TakeBytes(pstIn, &uiSub, 4)) {
            return AGX_DECODE_SHORT;
        }
        pulOid[i] = uiSub;
    }
    *puiLen = uiCount;
    return AGX_DECODE_OK;
}

// The type code's ASN.1 type and the value length it requires (-1: any).
struct TypeRule {
    uint32_t uiCode;
    u_char ucAsn;
    int iLen;
};
// UInteger32 (6) and the opaque-wrapped unsigned (7) go as Gauge32, the SMIv2
// type of the same range: receivers of SNMPv2 notifications need not know the
// obsolete tags.
constexpr TypeRule g_astTypeRules[] = {
    {SNMP_VTYPE_INTEGER, ASN_INTEGER, 4},     {SNMP_VTYPE_INTEGER32, ASN_INTEGER, 4},
    {SNMP_VTYPE_ENUM, ASN_INTEGER, 4},        {SNMP_VTYPE_COUNTER32, ASN_COUNTER, 4},
    {SNMP_VTYPE_GAUGE32, ASN_GAUGE, 4},       {SNMP_VTYPE_TIMETICKS, ASN_TIMETICKS, 4},
    {SNMP_VTYPE_UINTEGER32, ASN_GAUGE, 4},    {SNMP_VTYPE_OPAQUE_U32, ASN_GAUGE, 4},
    {SNMP_VTYPE_COUNTER64, ASN_COUNTER64, 8}, {SNMP_VTYPE_OCTET_STRING, ASN_OCTET_STR, -1},
    {SNMP_VTYPE_OID, ASN_OBJECT_ID, -1},      {SNMP_VTYPE_IPADDRESS, ASN_IPADDRESS, 4},
    {SNMP_VTYPE_OPAQUE, ASN_OPAQUE, -1},      {SNMP_VTYPE_NULL, ASN_NULL, 0},
};

const TypeRule* FindTypeRule(uint32_t uiCode) {
    for (const auto& stRule : g_astTypeRules) {
        if (stRule.uiCode == uiCode) {
            return &stRule;
        }
    }
    return nullptr;
}

// Appends one binding with the value in net-snmp's in-memory form.
uint32_t AddValue(netsnmp_variable_list** ppstVars, const oid* pulName, size_t uiNameLen,
                  const TypeRule* pstRule, const unsigned char* pucValue, uint32_t uiLen) {
    netsnmp_variable_list* pstAdded = nullptr;
    switch (pstRule->ucAsn) {
        case ASN_INTEGER: {
            int32_t iValue = 0;
            memcpy(&iValue, pucValue, 4);
            long lValue = iValue;
            pstAdded = snmp_varlist_add_variable(ppstVars, pulName, uiNameLen, ASN_INTEGER, &lValue,
                                                 sizeof(lValue));
            break;
        }
        case ASN_COUNTER:
        case ASN_GAUGE:
        case ASN_TIMETICKS: {
            uint32_t uiValue = 0;
            memcpy(&uiValue, pucValue, 4);
            u_long ulValue = uiValue;
            pstAdded = snmp_varlist_add_variable(ppstVars, pulName, uiNameLen, pstRule->ucAsn,
                                                 &ulValue, sizeof(ulValue));
            break;
        }
        case ASN_COUNTER64: {
            uint64_t ullValue = 0;
            memcpy(&ullValue, pucValue, 8);
            counter64 stValue;
            stValue.high = static_cast<u_long>(ullValue >> 32);
            stValue.low = static_cast<u_long>(ullValue & 0xffffffffU);
            pstAdded = snmp_varlist_add_variable(ppstVars, pulName, uiNameLen, ASN_COUNTER64,
                                                 &stValue, sizeof(stValue));
            break;
        }
        case ASN_OBJECT_ID: {
            // An empty OID value has no BER form: it goes as 0.0, the null OID.
            oid aulValue[AGX_OID_MAX] = {0, 0};
            size_t uiCount = uiLen / 4;
            for (size_t i = 0; i < uiCount; i++) {
                uint32_t uiSub = 0;
                memcpy(&uiSub, pucValue + 4 * i, 4);
                aulValue[i] = uiSub;
            }
            if (uiCount == 0) {
                uiCount = 2;
            }
            pstAdded = snmp_varlist_add_variable(ppstVars, pulName, uiNameLen, ASN_OBJECT_ID,
                                                 aulValue, uiCount * sizeof(oid));
            break;
        }
        case ASN_NULL:
            pstAdded =
                snmp_varlist_add_variable(ppstVars, pulName, uiNameLen, ASN_NULL, nullptr, 0);
            break;
        default:  // strings, IpAddress (network order) and opaque bytes as they are
            pstAdded = snmp_varlist_add_variable(ppstVars, pulName, uiNameLen, pstRule->ucAsn,
                                                 pucValue, uiLen);
            break;
    }
    return pstAdded != nullptr ? AGX_DECODE_OK : AGX_DECODE_NO_MEMORY;
}

uint32_t TakeBinding(Reader* pstIn, netsnmp_variable_list** ppstVars) {
    oid aulName[AGX_OID_MAX];
    size_t uiNameLen = 0;
    uint32_t uiRet = TakeOid(pstIn, aulName, &uiNameLen);
    if (uiRet != AGX_DECODE_OK) {
        return uiRet;
    }
    uint32_t uiType = 0;
    uint32_t uiLen = 0;
    if (!TakeBytes(pstIn, &uiType, 4) || !TakeBytes(pstIn, &uiLen, 4)) {
        return AGX_DECODE_SHORT;
    }
    const TypeRule* pstRule = FindTypeRule(uiType);
    if (pstRule == nullptr) {
        return AGX_DECODE_TYPE;
    }
    bool bLenOk = pstRule->iLen >= 0 ? uiLen == static_cast<uint32_t>(pstRule->iLen)
                                     : pstRule->ucAsn != ASN_OBJECT_ID ||
                                           (uiLen % 4 == 0 && uiLen / 4 <= AGX_OID_MAX);
    if (!bLenOk) {
        return AGX_DECODE_VALUE_LENGTH;
    }
    const unsigned char* pucValue = nullptr;
    if (!TakeView(pstIn, uiLen, &pucValue)) {
        return AGX_DECODE_SHORT;
    }
    return AddValue(ppstVars, aulName, uiNameLen, pstRule, pucValue, uiLen);
}

uint32_t TakeHeader(Reader* pstIn, AGX_NOTIFY_S* pstOut, oid* pulTrapOid, size_t* puiTrapLen) {
    uint32_t uiMagic = 0;
    uint16_t usVersion = 0;
    if (!TakeBytes(pstIn, &uiMagic, 4)) {
        return AGX_DECODE_SHORT;
    }
    if (uiMagic != AGX_NOTIFY_MAGIC) {
        return AGX_DECODE_MAGIC;
    }
    if (!TakeBytes(pstIn, &usVersion, 2)) {
        return AGX_DECODE_SHORT;
    }
    if (usVersion != AGX_NOTIFY_VERSION) {
        return AGX_DECODE_VERSION;
    }
    if (!TakeBytes(pstIn, &pstOut->usVarCount, 2)) {
        return AGX_DECODE_SHORT;
    }
    uint32_t uiRet = TakeOid(pstIn, pulTrapOid, puiTrapLen);
    if (uiRet != AGX_DECODE_OK) {
        return uiRet;
    }
    uint16_t usContextLen = 0;
    const unsigned char* pucContext = nullptr;
    if (!TakeBytes(pstIn, &usContextLen, 2)) {
        return AGX_DECODE_SHORT;
    }
    if (usContextLen >= AGX_CONTEXT_SIZE) {
        return AGX_DECODE_CONTEXT;
    }
    if (!TakeView(pstIn, usContextLen, &pucContext)) {
        return AGX_DECODE_SHORT;
    }
    if (memchr(pucContext, '\0', usContextLen) != nullptr) {
        return AGX_DECODE_CONTEXT;
    }
    memcpy(pstOut->szContext, pucContext, usContextLen);
    pstOut->szContext[usContextLen] = '\0';
    return AGX_DECODE_OK;
}

}  // namespace

uint32_t AGX_DecodeNotify(const unsigned char* pucData, size_t uiLen, AGX_NOTIFY_S* pstOut) {
    memset(pstOut, 0, sizeof(*pstOut));
    if (uiLen > AGX_NOTIFY_MAX_BYTES) {
        return AGX_DECODE_LONG;
    }
    if (pucData == nullptr) {
        uiLen = 0;  // nothing to read: refused as truncated
    }
    Reader stIn = {pucData, uiLen, 0};
    oid aulTrapOid[AGX_OID_MAX];
    size_t uiTrapLen = 0;
    uint32_t uiRet = TakeHeader(&stIn, pstOut, aulTrapOid, &uiTrapLen);
    netsnmp_variable_list* pstVars = nullptr;
    if (uiRet == AGX_DECODE_OK &&
        snmp_varlist_add_variable(&pstVars, SNMP_TRAP_OID_0, OID_LENGTH(SNMP_TRAP_OID_0),
                                  ASN_OBJECT_ID, aulTrapOid, uiTrapLen * sizeof(oid)) == nullptr) {
        uiRet = AGX_DECODE_NO_MEMORY;
    }
    for (uint32_t i = 0; uiRet == AGX_DECODE_OK && i < pstOut->usVarCount; i++) {
        uiRet = TakeBinding(&stIn, &pstVars);
    }
    if (uiRet == AGX_DECODE_OK && stIn.uiPos != stIn.uiLen) {
        uiRet = AGX_DECODE_LONG;
    }
    if (uiRet != AGX_DECODE_OK) {
        snmp_free_varbind(pstVars);
        memset(pstOut, 0, sizeof(*pstOut));
        return uiRet;
    }
    pstOut->pstVars = pstVars;
    return AGX_DECODE_OK;
}

const char* AGX_DecodeReason(uint32_t uiResult) {
    switch (uiResult) {
        case AGX_DECODE_OK:
            return "ok";
        case AGX_DECODE_SHORT:
            return "truncated";
        case AGX_DECODE_LONG:
            return "bytes after the last variable";
        case AGX_DECODE_MAGIC:
            return "not a notification datagram";
        case AGX_DECODE_VERSION:
            return "unknown version";
        case AGX_DECODE_OID_LENGTH:
            return "OID of 0 or more than 128 sub-identifiers";
        case AGX_DECODE_CONTEXT:
            return "bad context name";
        case AGX_DECODE_TYPE:
            return "unknown value type";
        case AGX_DECODE_VALUE_LENGTH:
            return "value length wrong for its type";
        case AGX_DECODE_NO_MEMORY:
            return "out of memory";
        default:
            return "unknown";
    }
}
