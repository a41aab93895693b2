// Fake SNMP agent for tests: an in-memory MIB of OID -> value per context that
// answers the platform SNMP client (platform/plat_snmp.h), with per-OID
// failures, a configurable stall, and capture of every notification and set.
//
// Behaviour of the client calls against the fake:
// - Contexts: "" always exists; others exist once added (FAKE_SNMP_AddContext)
//   or once a value is put into them. A request in an unknown context fails
//   with SNMP_ST_UNKNOWN_CONTEXT.
// - SNMP_GetInstanceValue: a malloc'ed copy of the value (release it with
//   SNMP_FreeInstanceValue); a missing OID gives null and
//   SNMP_ST_NO_SUCH_INSTANCE.
// - SNMP_GetInstanceValues: each OID answered as SNMP_GetInstanceValue would,
//   recorded as that many gets.
// - SNMP_GetNextInstanceValue: the first OID of the context greater than the
//   given one (lexicographic on sub-identifiers); at the end null and
//   SNMP_ST_END_OF_MIB_VIEW.
// - SNMP_GetNextContextName: known contexts in strcmp order, starting after
//   the given one ("" starts at the first non-empty one); at the end it stores
//   "" and returns SNMP_ST_NO_MORE_CONTEXTS.
// - SNMP_SetIntegerValueByOID: a missing OID gives SNMP_ST_NO_CREATION, an
//   OID whose value is not of type 0, 1 or 2 gives SNMP_ST_WRONG_TYPE;
//   otherwise the value is written (type kept) and 0 returned.
// - A failure set with FAKE_SNMP_FailOid wins over all of the above for gets,
//   get-nexts (on the OID asked for) and sets of that OID, in every context.
// - SNMP_SendTrapByVBList and SNMP_SendNotify are captured and return the
//   result set with FAKE_SNMP_SetTrapResult / FAKE_SNMP_SetNotifyResult (0).
//   SNMP_AddNotifyVar returns the result set with FAKE_SNMP_SetAddVarResult.
// - SNMP_SetWalk / SNMP_EndWalk read nothing ahead: each get-next records the
//   walk set on its thread, and the walks ended are listed in order.
// - With a stall set, every get, get-next, context step and set sleeps that
//   long before it answers (outside the fake's lock).
// All functions are thread-safe.
#ifndef FAKE_SNMP_H
#define FAKE_SNMP_H

#include <cstdint>
#include <string>
#include <vector>

#include "mte_types.h"

typedef std::vector<uint32_t> FAKE_OID;

// OID conversions for tests.
MTE_OID_S FAKE_SNMP_MakeOid(const FAKE_OID& astOid);
FAKE_OID FAKE_SNMP_ToVector(const MTE_OID_S& stOid);
std::string FAKE_SNMP_OidStr(const FAKE_OID& astOid);  // "1.3.6.1"

// Forgets the MIB, the contexts, the failures, the stall and every capture.
void FAKE_SNMP_Reset(void);

// MIB contents.
void FAKE_SNMP_AddContext(const std::string& strContext);
void FAKE_SNMP_SetValue(const std::string& strContext, const FAKE_OID& astOid, uint32_t uiType,
                        const std::string& strBytes);
void FAKE_SNMP_SetInteger(const std::string& strContext, const FAKE_OID& astOid, int32_t iValue,
                          uint32_t uiType = 0);
void FAKE_SNMP_SetUnsigned(const std::string& strContext, const FAKE_OID& astOid, uint32_t uiValue,
                           uint32_t uiType = 4);
void FAKE_SNMP_SetCounter64(const std::string& strContext, const FAKE_OID& astOid,
                            uint64_t ulValue);
void FAKE_SNMP_SetString(const std::string& strContext, const FAKE_OID& astOid,
                         const std::string& strValue);
void FAKE_SNMP_Remove(const std::string& strContext, const FAKE_OID& astOid);
// The integer stored at the OID (false when absent or not 4 bytes).
bool FAKE_SNMP_GetInteger(const std::string& strContext, const FAKE_OID& astOid, int32_t* piOut);

// Every request on this OID fails with the status (0 clears the failure).
void FAKE_SNMP_FailOid(const FAKE_OID& astOid, uint32_t uiStatus);
// Every get, get-next, context step and set sleeps this long (0: none).
void FAKE_SNMP_SetStallMs(uint32_t uiMs);
// Waits until a request is sleeping in its stall; false after the time-out.
bool FAKE_SNMP_WaitForStall(uint32_t uiTimeoutMs);

void FAKE_SNMP_SetTrapResult(uint32_t uiStatus);
void FAKE_SNMP_SetNotifyResult(uint32_t uiStatus);
void FAKE_SNMP_SetAddVarResult(uint32_t uiStatus);

// Captures.
struct FAKE_SNMP_REQ_S {
    std::string strOwner;
    std::string strContext;
    FAKE_OID astOid;
    const void* pWalk = nullptr;  // get-nexts: the walk set with SNMP_SetWalk
};
struct FAKE_SNMP_VB_S {
    FAKE_OID astOid;
    bool bHasValue;
    uint32_t uiType;
    std::string strBytes;
};
struct FAKE_SNMP_TRAP_S {  // one SNMP_SendTrapByVBList
    FAKE_OID astNotification;
    std::string strContext;
    std::vector<FAKE_SNMP_VB_S> astBindings;
};
struct FAKE_SNMP_VAR_S {
    uint32_t uiType;
    std::string strBytes;  // uiLen bytes of the value
};
struct FAKE_SNMP_NOTIFY_S {  // one SNMP_SendNotify
    std::string strName;
    std::vector<FAKE_SNMP_VAR_S> astVars;
};
struct FAKE_SNMP_SET_S {  // one SNMP_SetIntegerValueByOID
    std::string strOwner;
    std::string strContext;
    FAKE_OID astOid;
    int32_t iValue;
    uint32_t uiResult;
};

std::vector<FAKE_SNMP_REQ_S> FAKE_SNMP_Gets(void);      // SNMP_GetInstanceValue calls
std::vector<FAKE_SNMP_REQ_S> FAKE_SNMP_GetNexts(void);  // SNMP_GetNextInstanceValue calls
std::vector<const void*> FAKE_SNMP_EndedWalks(void);    // SNMP_EndWalk arguments
std::vector<FAKE_SNMP_TRAP_S> FAKE_SNMP_Traps(void);
std::vector<FAKE_SNMP_NOTIFY_S> FAKE_SNMP_Notifies(void);
std::vector<FAKE_SNMP_SET_S> FAKE_SNMP_Sets(void);
// The requests and sends in the order they were made, one line each:
// "get <oid>", "getnext <oid>", "context", "set <context> <oid>",
// "trap <oid>", "notify <name>" (OIDs dotted).
std::vector<std::string> FAKE_SNMP_Journal(void);
// Number of SNMP_* calls of any kind since the last reset.
uint64_t FAKE_SNMP_CallCount(void);
// Value records handed out and not yet freed; notify handles not destroyed.
int64_t FAKE_SNMP_LiveValues(void);
int64_t FAKE_SNMP_LiveHandles(void);

#endif  // FAKE_SNMP_H
