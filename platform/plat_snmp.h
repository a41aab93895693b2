// SNMP client of the platform: reads and integer sets through the device's
// agent, and notifications delivered to the agent's notification targets.
#ifndef PLAT_SNMP_H
#define PLAT_SNMP_H

#include <cstdint>

#include "mte_types.h"

// Value type codes of SNMP_VALUE_S. Codes 0..9 are numeric; 8 is 64-bit.
enum : uint32_t {
    SNMP_VTYPE_INTEGER = 0,    // INTEGER / Integer32
    SNMP_VTYPE_INTEGER32 = 1,  // Integer32 (the notifications' hot value)
    SNMP_VTYPE_ENUM = 2,       // enumerated INTEGER (the failure reason)
    SNMP_VTYPE_COUNTER32 = 3,
    SNMP_VTYPE_GAUGE32 = 4,  // Gauge32 / Unsigned32
    SNMP_VTYPE_TIMETICKS = 5,
    SNMP_VTYPE_UINTEGER32 = 6,  // the obsolete UInteger32
    SNMP_VTYPE_OPAQUE_U32 = 7,  // Opaque-wrapped unsigned 32
    SNMP_VTYPE_COUNTER64 = 8,
    SNMP_VTYPE_RESERVED_U32 = 9,  // never produced
    SNMP_VTYPE_OCTET_STRING = 10,
    SNMP_VTYPE_OID = 11,        // 32-bit sub-identifiers
    SNMP_VTYPE_IPADDRESS = 12,  // 4 bytes, network order
    SNMP_VTYPE_OPAQUE = 13,
    SNMP_VTYPE_NULL = 14,
};

// Status codes of the client; mte_RUN_convertErrCodeMor2Mte turns them into
// failure reasons. 0 is success.
enum : uint32_t {
    SNMP_ST_OK = 0,
    SNMP_ST_GEN_ERR = 0x61010041,
    SNMP_ST_BAD_VALUE = 0x61010042,
    SNMP_ST_READ_ONLY = 0x61010043,
    SNMP_ST_NO_ACCESS = 0x61010044,
    SNMP_ST_WRONG_TYPE = 0x61010045,
    SNMP_ST_WRONG_LENGTH = 0x61010046,
    SNMP_ST_WRONG_ENCODING = 0x61010047,
    SNMP_ST_WRONG_VALUE = 0x61010048,
    SNMP_ST_NO_CREATION = 0x61010049,
    SNMP_ST_INCONSISTENT_VALUE = 0x6101004a,
    SNMP_ST_RESOURCE_UNAVAILABLE = 0x6101004b,
    SNMP_ST_COMMIT_FAILED = 0x6101004c,
    SNMP_ST_UNDO_FAILED = 0x6101004d,
    SNMP_ST_AUTHORIZATION_ERROR = 0x6101004e,
    SNMP_ST_NOT_WRITABLE = 0x6101004f,
    SNMP_ST_INCONSISTENT_NAME = 0x61010050,
    SNMP_ST_NO_SUCH_OBJECT = 0x61010051,    // exception noSuchObject
    SNMP_ST_TIMEOUT = 0x61010052,           // no response from the agent
    SNMP_ST_CLIENT_ERROR = 0x61010053,      // request could not be built or sent
    SNMP_ST_NO_SUCH_INSTANCE = 0x61010054,  // exception noSuchInstance
    SNMP_ST_TOO_BIG = 0x61010055,
    SNMP_ST_NO_SUCH_NAME = 0x61010056,      // SNMPv1 error-status noSuchName
    SNMP_ST_UNKNOWN_CONTEXT = 0x61010057,   // a context the agent does not know
    SNMP_ST_NO_MORE_CONTEXTS = 0x61010058,  // end of the context list
    SNMP_ST_END_OF_MIB_VIEW = 0x61010059,   // exception endOfMibView
    SNMP_ST_LOCAL_RESOURCE = 0x6101005a,    // out of memory in the client
};

// Reads one instance; a value record (owned by the caller) or null, status set.
SNMP_VALUE_S* SNMP_GetInstanceValue(const char* pszOwner, const char* pszContext,
                                    const MTE_OID_S* pstOid, uint32_t* puiStatus);
// Reads the instance after *pstOid, which is replaced with the OID returned.
SNMP_VALUE_S* SNMP_GetNextInstanceValue(const char* pszOwner, const char* pszContext,
                                        MTE_OID_S* pstOid, uint32_t* puiStatus);
// Sampling walks. The get-nexts that a thread makes after SNMP_SetWalk(walk)
// belong to that walk's current cycle (the sampler passes its trigger; the
// pointer is only compared, never dereferenced), and may be answered from
// GETBULK responses read ahead during the cycle; null: to no walk, plain
// GETNEXTs. SNMP_EndWalk(walk) ends the cycle for the client: what it read
// ahead for the walk is dropped, so the next cycle reads afresh. Null drops
// every walk's read-ahead (the agent's port went down). Neither sends a
// request; SNMP_EndWalk takes only the client's own lock.
void SNMP_SetWalk(const void* pWalk);
void SNMP_EndWalk(const void* pWalk);
// Replaces the context name (buffer of uiSize bytes) with the next one known to
// the agent in strcmp order; at the end it stores "" and returns
// SNMP_ST_NO_MORE_CONTEXTS.
uint32_t SNMP_GetNextContextName(uint32_t uiSize, char* pszContext);
void SNMP_FreeInstanceValue(SNMP_VALUE_S* pstValue);
// Reads up to SNMP_GET_MANY_MAX instances in one request. Each apstValues[i]
// (owned by the caller) or null, with its own status in auiStatus[i]; when
// the request as a whole fails every status is the request's.
constexpr uint32_t SNMP_GET_MANY_MAX = 4;
void SNMP_GetInstanceValues(const char* pszOwner, const char* pszContext, uint32_t uiCount,
                            const MTE_OID_S* astOids, SNMP_VALUE_S** apstValues,
                            uint32_t* auiStatus);

// Notifications of the Event MIB itself.
struct SNMP_NOTIFY_VAR_S {
    uint32_t uiType;  // SNMP_VTYPE_OCTET_STRING, _OID, _INTEGER32, _ENUM
    uint32_t uiLen;   // bytes: string length, sub-identifiers x 4, or 4
    const void* pValue;
};
typedef void* SNMP_NOTIFY_HANDLE;

SNMP_NOTIFY_HANDLE SNMP_CreateNotifyHandle(void);
uint32_t SNMP_AddNotifyVar(SNMP_NOTIFY_HANDLE hNotify, const SNMP_NOTIFY_VAR_S* pstVar,
                           uint32_t uiFlags);
// Sends the notification named by its MIB name ("mteTriggerFired", ...).
uint32_t SNMP_SendNotify(const char* pszName, SNMP_NOTIFY_HANDLE hNotify);
uint32_t SNMP_DestroyNotifyHandle(SNMP_NOTIFY_HANDLE hNotify);

// Sends a configured notification whose type is the OID, with the list's
// bindings in order; 0 on success.
uint32_t SNMP_SendTrapByVBList(const MTE_OID_S* pstNotification, const char* pszContext,
                               const MTE_VB_LIST_S* pstList);
// Relay queue. Until SNMP_NotifyRelayOpen is called a notification is sent to
// the relay at once (with a short wait for room) and fails when the relay is
// absent. After it, every notification is held in order in a bounded queue
// (SNMP_RELAY_QUEUE_MAX datagrams, SNMP_RELAY_QUEUE_MAX_BYTES bytes) and sent
// by SNMP_NotifyRelayProc; a send then fails only when the queue is full
// (SNMP_ST_LOCAL_RESOURCE). Open, Proc and Close belong to one thread (the
// daemon's main thread); the send functions may be called from any thread.
constexpr uint32_t SNMP_RELAY_QUEUE_MAX = 10000;
constexpr uint32_t SNMP_RELAY_QUEUE_MAX_BYTES = 16u << 20;
// What SNMP_NotifyRelayProc saw happen to the relay.
enum : uint32_t {
    SNMP_RELAY_UNCHANGED = 0,
    SNMP_RELAY_LOST = 1,  // the relay stopped taking notifications; they are held
    SNMP_RELAY_BACK = 2,  // the relay takes notifications again
};
// Starts holding notifications; a descriptor that is readable whenever
// SNMP_NotifyRelayProc has work, or -1 (sends stay direct).
int SNMP_NotifyRelayOpen(void);
// Sends held notifications without ever blocking; returns SNMP_RELAY_* and
// the number still held.
uint32_t SNMP_NotifyRelayProc(uint32_t* puiHeld);
// Sends what it can within iWaitMs, drops the rest and returns how many were
// dropped; sends are direct again afterwards. Only once no other thread
// sends any more (the daemon: after the worker is joined).
uint32_t SNMP_NotifyRelayClose(int iWaitMs);

// Sets an Integer32 object through the agent; 0 or a status code.
uint32_t SNMP_SetIntegerValueByOID(const char* pszOwner, const char* pszContext,
                                   const MTE_OID_S* pstOid, int32_t iValue);

#endif  // PLAT_SNMP_H
