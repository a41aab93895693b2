// The notification datagram ("MTEN" version 1) that the SNMP client hands to
// the AgentX bridge: one encoder, used by the daemon's notification functions,
// and one decoder, used by the bridge, so that the layout and the magic exist
// once. docs/snmp-client.md describes the bytes. Numbers are in host byte order
// (both ends run on the same machine) and nothing is padded. Pure functions of
// their buffers: no I/O, no global state, any thread.
#ifndef PLAT_NOTIFY_DGRAM_H
#define PLAT_NOTIFY_DGRAM_H

#include <cstddef>
#include <cstdint>

#include "mte_types.h"

constexpr uint32_t NDG_MAGIC = 0x4e45544d;  // the bytes "MTEN" on a little-endian machine
constexpr uint16_t NDG_VERSION = 1;
constexpr uint32_t NDG_MAX_BYTES = 65000;
constexpr uint32_t NDG_CONTEXT_SIZE = 33;  // at most 32 bytes and the NUL
static_assert(NDG_CONTEXT_SIZE == MTE_NAME_SIZE, "a context travels whole");

// The fixed start of a datagram, then of each binding after its name. The
// encoder and decoder move these fields one by one; the records only pin the
// sizes and offsets that the wire format promises.
struct NDG_HEAD_S {
    uint32_t uiMagic;
    uint16_t usVersion;
    uint16_t usVarCount;  // bindings after the notification OID
};
static_assert(sizeof(NDG_HEAD_S) == 8);
static_assert(offsetof(NDG_HEAD_S, usVersion) == 4 && offsetof(NDG_HEAD_S, usVarCount) == 6);

struct NDG_VAR_HEAD_S {
    uint32_t uiType;  // SNMP_VTYPE_* code
    uint32_t uiLen;   // value bytes that follow
};
static_assert(sizeof(NDG_VAR_HEAD_S) == 8 && offsetof(NDG_VAR_HEAD_S, uiLen) == 4);

// ---------------------------------------------------------------------------
// Encoding. A field that does not fit sets bOverflow and the datagram must not
// be sent; the record is large, so callers allocate it.
// ---------------------------------------------------------------------------
struct NDG_WRITER_S {
    unsigned char aucBytes[NDG_MAX_BYTES];
    uint32_t uiLen;
    bool bOverflow;
};

// Starts a datagram; a context longer than 32 bytes is cut, nullptr is "".
void NDG_PutHeader(NDG_WRITER_S* pstOut, const MTE_OID_S* pstTrapOid, const char* pszContext,
                   uint16_t usVarCount);
void NDG_PutVar(NDG_WRITER_S* pstOut, const uint32_t* puiOid, uint32_t uiOidLen, uint32_t uiType,
                const void* pValue, uint32_t uiLen);

// ---------------------------------------------------------------------------
// Decoding: the header, then exactly usVarCount bindings, then the end. Every
// length is checked against what is left before it is used.
// ---------------------------------------------------------------------------
enum : uint32_t {
    NDG_DECODE_OK = 0,
    NDG_DECODE_SHORT,         // ends inside a field
    NDG_DECODE_LONG,          // bytes left after the last variable, or above 65000
    NDG_DECODE_MAGIC,         // not a notification datagram
    NDG_DECODE_VERSION,       // a version this decoder does not know
    NDG_DECODE_OID_LENGTH,    // an OID of 0 or more than 128 sub-identifiers
    NDG_DECODE_CONTEXT,       // context longer than 32 bytes or holding a NUL
    NDG_DECODE_TYPE,          // unknown value type code
    NDG_DECODE_VALUE_LENGTH,  // value length wrong for its type
    NDG_DECODE_CODES,         // the number of codes above; callers may add their own from here
};

struct NDG_READER_S {
    const unsigned char* pucData;
    size_t uiLen;
    size_t uiPos;
};

struct NDG_HEADER_S {
    MTE_OID_S stTrapOid;
    char szContext[NDG_CONTEXT_SIZE];
    uint16_t usVarCount;
};

struct NDG_VAR_S {
    MTE_OID_S stName;
    uint32_t uiType;                // a known SNMP_VTYPE_* code
    uint32_t uiLen;                 // the length its type allows
    const unsigned char* pucValue;  // inside the datagram, not aligned
};

// Checks the size and reads the header; positions pstIn on the first binding.
uint32_t NDG_ReadHeader(const unsigned char* pucData, size_t uiLen, NDG_READER_S* pstIn,
                        NDG_HEADER_S* pstOut);
uint32_t NDG_ReadVar(NDG_READER_S* pstIn, NDG_VAR_S* pstOut);
// After the last binding: NDG_DECODE_LONG if anything follows it.
uint32_t NDG_ReadEnd(const NDG_READER_S* pstIn);
// A short English text for a decode result, for the log.
const char* NDG_DecodeReason(uint32_t uiResult);

#endif  // PLAT_NOTIFY_DGRAM_H
