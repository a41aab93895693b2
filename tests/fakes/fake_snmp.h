// Fake SNMP agent for tests: an in-memory MIB of OID -> value per context that
// answers the platform SNMP client (platform/plat_snmp.h) as the real agent
// would: "" always exists, other contexts once added or given a value; an
// unknown context fails with SNMP_ST_UNKNOWN_CONTEXT, a missing instance with
// SNMP_ST_NO_SUCH_INSTANCE, the end of a walk with SNMP_ST_END_OF_MIB_VIEW, a
// set of a missing OID with SNMP_ST_NO_CREATION and of a non-integer with
// SNMP_ST_WRONG_TYPE. A failure given with FAKE_SNMP_FailOid wins over all of
// that for every request on the OID. With a stall set, every get, get-next,
// context step and set sleeps before it answers, outside the fake's lock, so a
// test can run management operations meanwhile. Notifications, traps and sets
// are captured. Thread-safe.
#ifndef FAKE_SNMP_H
#define FAKE_SNMP_H

#include <cstdint>
#include <string>
#include <vector>

#include "mte_types.h"

typedef std::vector<uint32_t> FAKE_OID;

MTE_OID_S FAKE_SNMP_MakeOid(const FAKE_OID& astOid);
FAKE_OID FAKE_SNMP_ToVector(const MTE_OID_S& stOid);
std::string FAKE_SNMP_OidStr(const FAKE_OID& astOid);  // "1.3.6.1"

// Forgets the MIB, the contexts, the failures, the stall and every capture.
void FAKE_SNMP_Reset(void);

void FAKE_SNMP_AddContext(const std::string& strContext);
void FAKE_SNMP_SetInteger(const std::string& strContext, const FAKE_OID& astOid, int32_t iValue);
void FAKE_SNMP_SetUnsigned(const std::string& strContext, const FAKE_OID& astOid, uint32_t uiValue,
                           uint32_t uiType = 4);
void FAKE_SNMP_SetString(const std::string& strContext, const FAKE_OID& astOid,
                         const std::string& strValue);
void FAKE_SNMP_Remove(const std::string& strContext, const FAKE_OID& astOid);

// Every request on this OID fails with the status (0 clears the failure).
void FAKE_SNMP_FailOid(const FAKE_OID& astOid, uint32_t uiStatus);
void FAKE_SNMP_SetStallMs(uint32_t uiMs);
// Waits until a request is sleeping in its stall; false after the time-out.
bool FAKE_SNMP_WaitForStall(uint32_t uiTimeoutMs);
// What SNMP_SendTrapByVBList answers from now on.
void FAKE_SNMP_SetTrapResult(uint32_t uiStatus);

struct FAKE_SNMP_REQ_S {
    std::string strOwner;
    std::string strContext;
    FAKE_OID astOid;
    const void* pWalk = nullptr;  // get-nexts: the walk set with SNMP_SetWalk
};
struct FAKE_SNMP_VB_S {
    FAKE_OID astOid;
    std::string strBytes;
};
struct FAKE_SNMP_TRAP_S {  // one SNMP_SendTrapByVBList
    FAKE_OID astNotification;
    std::string strContext;
    std::vector<FAKE_SNMP_VB_S> astBindings;
};
struct FAKE_SNMP_VAR_S {
    uint32_t uiType;
    std::string strBytes;
};
struct FAKE_SNMP_NOTIFY_S {  // one SNMP_SendNotify
    std::string strName;
    std::vector<FAKE_SNMP_VAR_S> astVars;
    // The five variables of the daemon's own notifications, decoded: trigger
    // name, target tag, context, OID and hot value or failure reason.
    std::string strTrigger, strTag, strContext;
    FAKE_OID astOid;
    int32_t iLast = 0;
};
struct FAKE_SNMP_SET_S {  // one SNMP_SetIntegerValueByOID
    std::string strOwner;
    std::string strContext;
    FAKE_OID astOid;
    int32_t iValue;
};

std::vector<FAKE_SNMP_REQ_S> FAKE_SNMP_Gets(void);
std::vector<FAKE_SNMP_REQ_S> FAKE_SNMP_GetNexts(void);
std::vector<const void*> FAKE_SNMP_EndedWalks(void);  // SNMP_EndWalk arguments
std::vector<FAKE_SNMP_TRAP_S> FAKE_SNMP_Traps(void);
std::vector<FAKE_SNMP_NOTIFY_S> FAKE_SNMP_Notifies(void);
std::vector<FAKE_SNMP_SET_S> FAKE_SNMP_Sets(void);
// Traps and sets in the order they were made: "trap <oid>", "set <context> <oid>".
std::vector<std::string> FAKE_SNMP_Journal(void);
// SNMP_* calls of any kind since the last reset.
uint64_t FAKE_SNMP_CallCount(void);

#endif  // FAKE_SNMP_H
