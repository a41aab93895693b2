// Fake SNMP agent (see fake_snmp.h). One mutex guards everything; the stall
// sleeps outside it.
#include "fake_snmp.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "plat_snmp.h"

namespace {
struct VALUE_S {
    uint32_t uiType;
    std::string strBytes;
};
typedef std::map<FAKE_OID, VALUE_S> MIB_MAP;

std::mutex g_stLock;
std::condition_variable g_stStallCv;
std::map<std::string, MIB_MAP> g_mapMib{{"", {}}};  // context -> MIB
std::map<FAKE_OID, uint32_t> g_mapFailures;
uint32_t g_uiStallMs = 0;
uint32_t g_uiStalled = 0;  // requests sleeping in their stall right now
uint32_t g_uiTrapResult = 0;
struct CAPTURE_S {  // what the client asked and sent since the last reset
    std::vector<FAKE_SNMP_REQ_S> astGets, astGetNexts;
    std::vector<FAKE_SNMP_TRAP_S> astTraps;
    std::vector<FAKE_SNMP_NOTIFY_S> astNotifies;
    std::vector<FAKE_SNMP_SET_S> astSets;
    std::vector<std::string> astJournal;
    std::vector<const void*> apEndedWalks;
    uint64_t ulCalls = 0;
} g_stCap;
thread_local const void* g_pWalk = nullptr;
typedef std::vector<FAKE_SNMP_VAR_S> NOTIFY_VARS;  // what a notify handle points to

std::string Str(const char* psz) {
    return psz == nullptr ? std::string{} : std::string(psz);
}

template <typename T>
std::string Bytes(const T& value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

template <typename T>
T Locked(const T& value) {
    std::lock_guard guard(g_stLock);
    return value;
}

// Counts the call and sleeps the configured stall, outside the lock.
void EnterRequest(void) {
    uint32_t uiMs;
    {
        std::lock_guard guard(g_stLock);
        ++g_stCap.ulCalls;
        uiMs = g_uiStallMs;
        if (uiMs == 0) {
            return;
        }
        ++g_uiStalled;
    }
    g_stStallCv.notify_all();
    std::this_thread::sleep_for(std::chrono::milliseconds(uiMs));
    std::lock_guard guard(g_stLock);
    --g_uiStalled;
}

// The context's MIB and the status of a request on the OID there (under the lock).
MIB_MAP* Find(const char* pszContext, const FAKE_OID& astOid, uint32_t* puiStatus) {
    auto itFail = g_mapFailures.find(astOid);
    auto itCtx = g_mapMib.find(Str(pszContext));
    *puiStatus = itFail != g_mapFailures.end() ? itFail->second
                 : itCtx == g_mapMib.end()     ? static_cast<uint32_t>(SNMP_ST_UNKNOWN_CONTEXT)
                                               : 0u;
    return *puiStatus == 0 ? &itCtx->second : nullptr;
}

SNMP_VALUE_S* NewValue(const VALUE_S& stValue) {
    auto* pstValue = static_cast<SNMP_VALUE_S*>(calloc(1, sizeof(SNMP_VALUE_S)));
    pstValue->pData = calloc(1, stValue.strBytes.size() + 1);
    memcpy(pstValue->pData, stValue.strBytes.data(), stValue.strBytes.size());
    pstValue->uiLen = static_cast<uint32_t>(stValue.strBytes.size());
    pstValue->uiType = stValue.uiType;
    return pstValue;
}

// One get under the lock: recorded, answered from the MIB.
SNMP_VALUE_S* Get(const char* pszOwner, const char* pszContext, const FAKE_OID& astOid,
                  uint32_t* puiStatus) {
    g_stCap.astGets.push_back({Str(pszOwner), Str(pszContext), astOid});
    MIB_MAP* pMib = Find(pszContext, astOid, puiStatus);
    if (pMib == nullptr) {
        return nullptr;
    }
    auto it = pMib->find(astOid);
    if (it == pMib->end()) {
        *puiStatus = SNMP_ST_NO_SUCH_INSTANCE;
        return nullptr;
    }
    return NewValue(it->second);
}

void SetValue(const std::string& strContext, const FAKE_OID& astOid, uint32_t uiType,
              const std::string& strBytes) {
    std::lock_guard guard(g_stLock);
    g_mapMib[strContext][astOid] = VALUE_S{uiType, strBytes};
}
}  // namespace

MTE_OID_S FAKE_SNMP_MakeOid(const FAKE_OID& astOid) {
    MTE_OID_S stOid{};
    stOid.uiLen = static_cast<uint32_t>(std::min<size_t>(astOid.size(), MTE_OID_MAX_LEN));
    std::copy_n(astOid.begin(), stOid.uiLen, stOid.auiOid);
    return stOid;
}

FAKE_OID FAKE_SNMP_ToVector(const MTE_OID_S& stOid) {
    return FAKE_OID(stOid.auiOid, stOid.auiOid + std::min(stOid.uiLen, MTE_OID_MAX_LEN));
}

std::string FAKE_SNMP_OidStr(const FAKE_OID& astOid) {
    std::string strOut;
    for (size_t i = 0; i < astOid.size(); ++i) {
        strOut += (i ? "." : "") + std::to_string(astOid[i]);
    }
    return strOut;
}

void FAKE_SNMP_Reset(void) {
    std::lock_guard guard(g_stLock);
    g_mapMib = {{"", {}}};
    g_mapFailures.clear();
    g_uiStallMs = g_uiTrapResult = 0;
    g_stCap = {};
}

void FAKE_SNMP_AddContext(const std::string& strContext) {
    std::lock_guard guard(g_stLock);
    g_mapMib[strContext];
}

void FAKE_SNMP_SetInteger(const std::string& strContext, const FAKE_OID& astOid, int32_t iValue) {
    SetValue(strContext, astOid, SNMP_VTYPE_INTEGER, Bytes(iValue));
}

void FAKE_SNMP_SetUnsigned(const std::string& strContext, const FAKE_OID& astOid, uint32_t uiValue,
                           uint32_t uiType) {
    SetValue(strContext, astOid, uiType, Bytes(uiValue));
}

void FAKE_SNMP_SetString(const std::string& strContext, const FAKE_OID& astOid,
                         const std::string& strValue) {
    SetValue(strContext, astOid, SNMP_VTYPE_OCTET_STRING, strValue);
}

void FAKE_SNMP_Remove(const std::string& strContext, const FAKE_OID& astOid) {
    std::lock_guard guard(g_stLock);
    if (auto it = g_mapMib.find(strContext); it != g_mapMib.end()) {
        it->second.erase(astOid);
    }
}

void FAKE_SNMP_FailOid(const FAKE_OID& astOid, uint32_t uiStatus) {
    std::lock_guard guard(g_stLock);
    g_mapFailures.erase(astOid);
    if (uiStatus != 0) {
        g_mapFailures[astOid] = uiStatus;
    }
}

void FAKE_SNMP_SetStallMs(uint32_t uiMs) {
    std::lock_guard guard(g_stLock);
    g_uiStallMs = uiMs;
}

bool FAKE_SNMP_WaitForStall(uint32_t uiTimeoutMs) {
    std::unique_lock lock(g_stLock);
    return g_stStallCv.wait_for(lock, std::chrono::milliseconds(uiTimeoutMs),
                                [] { return g_uiStalled > 0; });
}

void FAKE_SNMP_SetTrapResult(uint32_t uiStatus) {
    std::lock_guard guard(g_stLock);
    g_uiTrapResult = uiStatus;
}

// The captures, each copied out under the lock.
#define FAKE_SNMP_CAPTURE(NAME, FIELD)               \
    decltype(g_stCap.FIELD) FAKE_SNMP_##NAME(void) { \
        return Locked(g_stCap.FIELD);                \
    }
FAKE_SNMP_CAPTURE(Gets, astGets)
FAKE_SNMP_CAPTURE(GetNexts, astGetNexts)
FAKE_SNMP_CAPTURE(EndedWalks, apEndedWalks)
FAKE_SNMP_CAPTURE(Traps, astTraps)
FAKE_SNMP_CAPTURE(Notifies, astNotifies)
FAKE_SNMP_CAPTURE(Sets, astSets)
FAKE_SNMP_CAPTURE(Journal, astJournal)
FAKE_SNMP_CAPTURE(CallCount, ulCalls)

// ---------------------------------------------------------------------------
// The platform SNMP client.
// ---------------------------------------------------------------------------
SNMP_VALUE_S* SNMP_GetInstanceValue(const char* pszOwner, const char* pszContext,
                                    const MTE_OID_S* pstOid, uint32_t* puiStatus) {
    EnterRequest();
    std::lock_guard guard(g_stLock);
    uint32_t uiStatus = 0;
    SNMP_VALUE_S* pstValue = Get(pszOwner, pszContext, FAKE_SNMP_ToVector(*pstOid), &uiStatus);
    if (puiStatus != nullptr) {
        *puiStatus = uiStatus;
    }
    return pstValue;
}

// One request in the fake's eyes too: each OID answered as a get, the stall once.
void SNMP_GetInstanceValues(const char* pszOwner, const char* pszContext, uint32_t uiCount,
                            const MTE_OID_S* astOids, SNMP_VALUE_S** apstValues,
                            uint32_t* auiStatus) {
    EnterRequest();
    std::lock_guard guard(g_stLock);
    for (uint32_t i = 0; i < uiCount; i++) {
        apstValues[i] = Get(pszOwner, pszContext, FAKE_SNMP_ToVector(astOids[i]), &auiStatus[i]);
    }
}

SNMP_VALUE_S* SNMP_GetNextInstanceValue(const char* pszOwner, const char* pszContext,
                                        MTE_OID_S* pstOid, uint32_t* puiStatus) {
    EnterRequest();
    FAKE_OID astOid = FAKE_SNMP_ToVector(*pstOid);
    std::lock_guard guard(g_stLock);
    g_stCap.astGetNexts.push_back({Str(pszOwner), Str(pszContext), astOid, g_pWalk});
    uint32_t uiStatus = 0;
    SNMP_VALUE_S* pstValue = nullptr;
    if (MIB_MAP* pMib = Find(pszContext, astOid, &uiStatus); pMib != nullptr) {
        auto it = pMib->upper_bound(astOid);
        if (it == pMib->end()) {
            uiStatus = SNMP_ST_END_OF_MIB_VIEW;
        } else {
            *pstOid = FAKE_SNMP_MakeOid(it->first);
            pstValue = NewValue(it->second);
        }
    }
    if (puiStatus != nullptr) {
        *puiStatus = uiStatus;
    }
    return pstValue;
}

void SNMP_SetWalk(const void* pWalk) {
    g_pWalk = pWalk;
}

void SNMP_EndWalk(const void* pWalk) {
    std::lock_guard guard(g_stLock);
    g_stCap.apEndedWalks.push_back(pWalk);
}

uint32_t SNMP_GetNextContextName(uint32_t uiSize, char* pszContext) {
    EnterRequest();
    std::lock_guard guard(g_stLock);
    auto it = g_mapMib.upper_bound(std::string(pszContext, strnlen(pszContext, uiSize)));
    if (it == g_mapMib.end()) {
        pszContext[0] = '\0';
        return SNMP_ST_NO_MORE_CONTEXTS;
    }
    snprintf(pszContext, uiSize, "%s", it->first.c_str());
    return 0;
}

void SNMP_FreeInstanceValue(SNMP_VALUE_S* pstValue) {
    std::lock_guard guard(g_stLock);
    ++g_stCap.ulCalls;
    if (pstValue != nullptr) {
        free(pstValue->pData);
        free(pstValue);
    }
}

SNMP_NOTIFY_HANDLE SNMP_CreateNotifyHandle(void) {
    std::lock_guard guard(g_stLock);
    ++g_stCap.ulCalls;
    return new NOTIFY_VARS;
}

uint32_t SNMP_AddNotifyVar(SNMP_NOTIFY_HANDLE hNotify, const SNMP_NOTIFY_VAR_S* pstVar,
                           uint32_t uiFlags) {
    std::lock_guard guard(g_stLock);
    ++g_stCap.ulCalls;
    const char* pc = static_cast<const char*>(pstVar->pValue);
    static_cast<NOTIFY_VARS*>(hNotify)->push_back(
        {pstVar->uiType, pc == nullptr ? std::string{} : std::string(pc, pstVar->uiLen)});
    return 0;
}

uint32_t SNMP_SendNotify(const char* pszName, SNMP_NOTIFY_HANDLE hNotify) {
    std::lock_guard guard(g_stLock);
    ++g_stCap.ulCalls;
    FAKE_SNMP_NOTIFY_S stOut;
    stOut.strName = Str(pszName);
    stOut.astVars = *static_cast<NOTIFY_VARS*>(hNotify);
    if (stOut.astVars.size() == 5) {
        stOut.strTrigger = stOut.astVars[0].strBytes;
        stOut.strTag = stOut.astVars[1].strBytes;
        stOut.strContext = stOut.astVars[2].strBytes;
        const std::string& strOid = stOut.astVars[3].strBytes;
        stOut.astOid.resize(strOid.size() / 4);
        memcpy(stOut.astOid.data(), strOid.data(), stOut.astOid.size() * 4);
        memcpy(&stOut.iLast, stOut.astVars[4].strBytes.data(), 4);
    }
    g_stCap.astNotifies.push_back(stOut);
    return 0;
}

uint32_t SNMP_DestroyNotifyHandle(SNMP_NOTIFY_HANDLE hNotify) {
    std::lock_guard guard(g_stLock);
    ++g_stCap.ulCalls;
    delete static_cast<NOTIFY_VARS*>(hNotify);
    return 0;
}

uint32_t SNMP_SendTrapByVBList(const MTE_OID_S* pstNotification, const char* pszContext,
                               const MTE_VB_LIST_S* pstList) {
    FAKE_SNMP_TRAP_S stTrap{FAKE_SNMP_ToVector(*pstNotification), Str(pszContext), {}};
    for (const MTE_VB_S* pstVb = pstList->pstHead; pstVb != nullptr; pstVb = pstVb->pstNext) {
        const SNMP_VALUE_S* pstValue = pstVb->pValue;
        stTrap.astBindings.push_back(
            {FAKE_SNMP_ToVector(pstVb->stOID),
             pstValue == nullptr
                 ? std::string{}
                 : std::string(static_cast<const char*>(pstValue->pData), pstValue->uiLen)});
    }
    std::lock_guard guard(g_stLock);
    ++g_stCap.ulCalls;
    g_stCap.astTraps.push_back(stTrap);
    g_stCap.astJournal.push_back("trap " + FAKE_SNMP_OidStr(stTrap.astNotification));
    return g_uiTrapResult;
}

uint32_t SNMP_SetIntegerValueByOID(const char* pszOwner, const char* pszContext,
                                   const MTE_OID_S* pstOid, int32_t iValue) {
    EnterRequest();
    FAKE_OID astOid = FAKE_SNMP_ToVector(*pstOid);
    std::lock_guard guard(g_stLock);
    uint32_t uiStatus = 0;
    if (MIB_MAP* pMib = Find(pszContext, astOid, &uiStatus); pMib != nullptr) {
        auto it = pMib->find(astOid);
        if (it == pMib->end()) {
            uiStatus = SNMP_ST_NO_CREATION;
        } else if (it->second.uiType > SNMP_VTYPE_ENUM) {
            uiStatus = SNMP_ST_WRONG_TYPE;
        } else {
            it->second.strBytes = Bytes(iValue);
        }
    }
    g_stCap.astSets.push_back({Str(pszOwner), Str(pszContext), astOid, iValue});
    g_stCap.astJournal.push_back("set " + Str(pszContext) + " " + FAKE_SNMP_OidStr(astOid));
    return uiStatus;
}

// The fake sends at once: there is no relay queue to hold anything.
int SNMP_NotifyRelayOpen(void) {
    return -1;
}

uint32_t SNMP_NotifyRelayProc(uint32_t* puiHeld) {
    *puiHeld = 0;
    return SNMP_RELAY_UNCHANGED;
}

uint32_t SNMP_NotifyRelayClose(int) {
    return 0;
}
