// The notification datagrams that eventmibd sends to the AgentX bridge
// (plat_notify_dgram.h decodes them) turned into a net-snmp variable list
// ready for send_v2trap. Pure: no I/O, no global state; any thread.
#ifndef AGX_NOTIFY_H
#define AGX_NOTIFY_H

#include <cstddef>
#include <cstdint>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "plat_notify_dgram.h"

constexpr size_t AGX_NOTIFY_MAX_BYTES = NDG_MAX_BYTES;
constexpr size_t AGX_CONTEXT_SIZE = NDG_CONTEXT_SIZE;

// Result of AGX_DecodeNotify: 0, the datagram decoder's reason for dropping
// the datagram, or the bridge's own.
enum : uint32_t {
    AGX_DECODE_OK = NDG_DECODE_OK,
    AGX_DECODE_SHORT = NDG_DECODE_SHORT,
    AGX_DECODE_LONG = NDG_DECODE_LONG,
    AGX_DECODE_MAGIC = NDG_DECODE_MAGIC,
    AGX_DECODE_VERSION = NDG_DECODE_VERSION,
    AGX_DECODE_OID_LENGTH = NDG_DECODE_OID_LENGTH,
    AGX_DECODE_CONTEXT = NDG_DECODE_CONTEXT,
    AGX_DECODE_TYPE = NDG_DECODE_TYPE,
    AGX_DECODE_VALUE_LENGTH = NDG_DECODE_VALUE_LENGTH,
    AGX_DECODE_NO_MEMORY = NDG_DECODE_CODES,  // net-snmp could not hold a binding
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
