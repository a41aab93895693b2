// The notification datagram's encoder and decoder (plat_notify_dgram.h). The
// decoder trusts nothing: the datagram comes from another local process, so
// every length must fit in what is left, the variable count must be met
// exactly and nothing may follow the last variable.
#include "plat_notify_dgram.h"

#include <cstring>

#include "plat_snmp.h"

namespace {

// ---------------------------------------------------------------------------
// Encoding.
// ---------------------------------------------------------------------------

void Put(NDG_WRITER_S* pstOut, const void* pBytes, uint32_t uiLen) {
    if (uiLen == 0) {
        return;
    }
    if (pstOut->bOverflow || uiLen > NDG_MAX_BYTES - pstOut->uiLen) {
        pstOut->bOverflow = true;
        return;
    }
    memcpy(pstOut->aucBytes + pstOut->uiLen, pBytes, uiLen);
    pstOut->uiLen += uiLen;
}

void PutU32(NDG_WRITER_S* pstOut, uint32_t uiValue) {
    Put(pstOut, &uiValue, 4);
}

void PutOid(NDG_WRITER_S* pstOut, const uint32_t* puiOid, uint32_t uiLen) {
    PutU32(pstOut, uiLen);
    Put(pstOut, puiOid, uiLen * 4);
}

// ---------------------------------------------------------------------------
// Decoding.
// ---------------------------------------------------------------------------

bool TakeBytes(NDG_READER_S* pstIn, void* pOut, size_t uiCount) {
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
bool TakeView(NDG_READER_S* pstIn, size_t uiCount, const unsigned char** ppucView) {
    if (uiCount > pstIn->uiLen - pstIn->uiPos) {
        return false;
    }
    *ppucView = pstIn->pucData + pstIn->uiPos;
    pstIn->uiPos += uiCount;
    return true;
}

// An OID as the datagram carries it: a 32-bit count, then 32-bit sub-identifiers.
uint32_t TakeOid(NDG_READER_S* pstIn, MTE_OID_S* pstOid) {
    uint32_t uiCount = 0;
    if (!TakeBytes(pstIn, &uiCount, 4)) {
        return NDG_DECODE_SHORT;
    }
    if (uiCount == 0 || uiCount > MTE_OID_MAX_LEN) {
        return NDG_DECODE_OID_LENGTH;
    }
    if (!TakeBytes(pstIn, pstOid->auiOid, 4 * static_cast<size_t>(uiCount))) {
        return NDG_DECODE_SHORT;
    }
    pstOid->uiLen = uiCount;
    return NDG_DECODE_OK;
}

// The value length each type code requires: a fixed size, any length, or
// (OID values) whole sub-identifiers up to the OID limit. Code 9 is never
// produced and is refused with the unknown codes.
enum class LenRule { FIXED, ANY, OID };
struct TypeRule {
    uint32_t uiCode;
    LenRule eRule;
    uint32_t uiFixedLen;
};
constexpr TypeRule g_astTypeRules[] = {
    {SNMP_VTYPE_INTEGER, LenRule::FIXED, 4},    {SNMP_VTYPE_INTEGER32, LenRule::FIXED, 4},
    {SNMP_VTYPE_ENUM, LenRule::FIXED, 4},       {SNMP_VTYPE_COUNTER32, LenRule::FIXED, 4},
    {SNMP_VTYPE_GAUGE32, LenRule::FIXED, 4},    {SNMP_VTYPE_TIMETICKS, LenRule::FIXED, 4},
    {SNMP_VTYPE_UINTEGER32, LenRule::FIXED, 4}, {SNMP_VTYPE_OPAQUE_U32, LenRule::FIXED, 4},
    {SNMP_VTYPE_COUNTER64, LenRule::FIXED, 8},  {SNMP_VTYPE_OCTET_STRING, LenRule::ANY, 0},
    {SNMP_VTYPE_OID, LenRule::OID, 0},          {SNMP_VTYPE_IPADDRESS, LenRule::FIXED, 4},
    {SNMP_VTYPE_OPAQUE, LenRule::ANY, 0},       {SNMP_VTYPE_NULL, LenRule::FIXED, 0},
};

const TypeRule* FindTypeRule(uint32_t uiCode) {
    for (const auto& stRule : g_astTypeRules) {
        if (stRule.uiCode == uiCode) {
            return &stRule;
        }
    }
    return nullptr;
}

bool LengthFits(const TypeRule& stRule, uint32_t uiLen) {
    switch (stRule.eRule) {
        case LenRule::FIXED:
            return uiLen == stRule.uiFixedLen;
        case LenRule::OID:
            return uiLen % 4 == 0 && uiLen / 4 <= MTE_OID_MAX_LEN;
        default:
            return true;
    }
}

}  // namespace

void NDG_PutHeader(NDG_WRITER_S* pstOut, const MTE_OID_S* pstTrapOid, const char* pszContext,
                   uint16_t usVarCount) {
    pstOut->uiLen = 0;
    pstOut->bOverflow = false;
    const NDG_HEAD_S stHead = {NDG_MAGIC, NDG_VERSION, usVarCount};
    Put(pstOut, &stHead, sizeof(stHead));
    PutOid(pstOut, pstTrapOid->auiOid, pstTrapOid->uiLen);
    uint16_t usContextLen = 0;
    if (pszContext != nullptr) {
        usContextLen = static_cast<uint16_t>(strnlen(pszContext, NDG_CONTEXT_SIZE - 1));
    }
    Put(pstOut, &usContextLen, 2);
    Put(pstOut, pszContext, usContextLen);
}

void NDG_PutVar(NDG_WRITER_S* pstOut, const uint32_t* puiOid, uint32_t uiOidLen, uint32_t uiType,
                const void* pValue, uint32_t uiLen) {
    PutOid(pstOut, puiOid, uiOidLen);
    const NDG_VAR_HEAD_S stHead = {uiType, uiLen};
    Put(pstOut, &stHead, sizeof(stHead));
    Put(pstOut, pValue, uiLen);
}

// The fields are read one at a time, so that a datagram cut inside the fixed
// start is refused for the first field it lacks, after the checks of those
// before it.
uint32_t NDG_ReadHeader(const unsigned char* pucData, size_t uiLen, NDG_READER_S* pstIn,
                        NDG_HEADER_S* pstOut) {
    memset(pstOut, 0, sizeof(*pstOut));
    *pstIn = {pucData, pucData != nullptr ? uiLen : 0, 0};  // nothing to read: truncated
    if (uiLen > NDG_MAX_BYTES) {
        return NDG_DECODE_LONG;
    }
    NDG_HEAD_S stHead = {};
    if (!TakeBytes(pstIn, &stHead.uiMagic, sizeof(stHead.uiMagic))) {
        return NDG_DECODE_SHORT;
    }
    if (stHead.uiMagic != NDG_MAGIC) {
        return NDG_DECODE_MAGIC;
    }
    if (!TakeBytes(pstIn, &stHead.usVersion, sizeof(stHead.usVersion))) {
        return NDG_DECODE_SHORT;
    }
    if (stHead.usVersion != NDG_VERSION) {
        return NDG_DECODE_VERSION;
    }
    if (!TakeBytes(pstIn, &pstOut->usVarCount, sizeof(stHead.usVarCount))) {
        return NDG_DECODE_SHORT;
    }
    uint32_t uiRet = TakeOid(pstIn, &pstOut->stTrapOid);
    if (uiRet != NDG_DECODE_OK) {
        return uiRet;
    }
    uint16_t usContextLen = 0;
    const unsigned char* pucContext = nullptr;
    if (!TakeBytes(pstIn, &usContextLen, 2)) {
        return NDG_DECODE_SHORT;
    }
    if (usContextLen >= NDG_CONTEXT_SIZE) {
        return NDG_DECODE_CONTEXT;
    }
    if (!TakeView(pstIn, usContextLen, &pucContext)) {
        return NDG_DECODE_SHORT;
    }
    if (memchr(pucContext, '\0', usContextLen) != nullptr) {
        return NDG_DECODE_CONTEXT;
    }
    memcpy(pstOut->szContext, pucContext, usContextLen);
    pstOut->szContext[usContextLen] = '\0';
    return NDG_DECODE_OK;
}

uint32_t NDG_ReadVar(NDG_READER_S* pstIn, NDG_VAR_S* pstOut) {
    uint32_t uiRet = TakeOid(pstIn, &pstOut->stName);
    if (uiRet != NDG_DECODE_OK) {
        return uiRet;
    }
    NDG_VAR_HEAD_S stHead = {};
    if (!TakeBytes(pstIn, &stHead.uiType, sizeof(stHead.uiType)) ||
        !TakeBytes(pstIn, &stHead.uiLen, sizeof(stHead.uiLen))) {
        return NDG_DECODE_SHORT;
    }
    const TypeRule* pstRule = FindTypeRule(stHead.uiType);
    if (pstRule == nullptr) {
        return NDG_DECODE_TYPE;
    }
    if (!LengthFits(*pstRule, stHead.uiLen)) {
        return NDG_DECODE_VALUE_LENGTH;
    }
    if (!TakeView(pstIn, stHead.uiLen, &pstOut->pucValue)) {
        return NDG_DECODE_SHORT;
    }
    pstOut->uiType = stHead.uiType;
    pstOut->uiLen = stHead.uiLen;
    return NDG_DECODE_OK;
}

uint32_t NDG_ReadEnd(const NDG_READER_S* pstIn) {
    return pstIn->uiPos == pstIn->uiLen ? NDG_DECODE_OK : NDG_DECODE_LONG;
}

const char* NDG_DecodeReason(uint32_t uiResult) {
    switch (uiResult) {
        case NDG_DECODE_OK:
            return "ok";
        case NDG_DECODE_SHORT:
            return "truncated";
        case NDG_DECODE_LONG:
            return "bytes after the last variable";
        case NDG_DECODE_MAGIC:
            return "not a notification datagram";
        case NDG_DECODE_VERSION:
            return "unknown version";
        case NDG_DECODE_OID_LENGTH:
            return "OID of 0 or more than 128 sub-identifiers";
        case NDG_DECODE_CONTEXT:
            return "bad context name";
        case NDG_DECODE_TYPE:
            return "unknown value type";
        case NDG_DECODE_VALUE_LENGTH:
            return "value length wrong for its type";
        default:
            return "unknown";
    }
}
