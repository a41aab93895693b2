// Decoding of the notification datagrams that eventmibd sends to the AgentX
// bridge ("MTEN" version 1, see docs/snmp-client.md) into a net-snmp variable
// list ready for send_v2trap. Pure: no I/O, no global state; any thread.
#ifndef AGX_NOTIFY_H
#define AGX_NOTIFY_H

#include <cstddef>
#include <cstdint>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

constexpr uint32_t AGX_NOTIFY_MAGIC = 0x4e45544d;  // "MTEN" in host byte order
constexpr uint16_t AGX_NOTIFY_VERSION = 1;
constexpr size_t AGX_NOTIFY_MAX_BYTES = 65000;
constexpr size_t AGX_CONTEXT_SIZE = 33;  // at most 32 characters and the NUL

// Result of AGX_DecodeNotify: 0 or the reason a datagram is dropped.
enum : uint32_t {
    AGX_DECODE_OK = 0,
    AGX_DECODE_SHORT,         // ends inside a field
    AGX_DECODE_LONG,          // bytes left after the last variable
    AGX_DECODE_MAGIC,         // not a notification datagram
    AGX_DECODE_VERSION,       // a version this bridge does not know
    AGX_DECODE_OID_LENGTH,    // an OID of 0 or more than 128 sub-identifiers
    AGX_DECODE_CONTEXT,       // context longer than 32 bytes or holding a NUL
    AGX_DECODE_TYPE,          // unknown value type code
    AGX_DECODE_VALUE_LENGTH,  // value length wrong for its type
    AGX_DECODE_NO_MEMORY,
};

struct AGX_NOTIFY_S {
    netsnmp_variable_list* pstVars;  // snmpTrapOID.0 first, then the bindings
    char szContext[AGX_CONTEXT_SIZE];
    uint16_t usVarCount;  // bindings after snmpTrapOID.0
};

// Decodes one datagram. On success *pstOut owns a variable list that the
// caller frees with snmp_free_varbind; on failure nothing is allocated.
uint32_t AGX_DecodeNotify(const unsigned char* pucData, size_t uiLen, AGX_NOTIFY_S* pstOut);
// A short English text for a decode result, for the log.
const char* AGX_DecodeReason(uint32_t uiResult);

#endif  // AGX_NOTIFY_H
