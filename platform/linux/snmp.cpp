// SNMP client of the platform: reads and integer sets through the device's own
// agent over net-snmp's single-session API, and notifications handed to the
// AgentX relay as one local datagram each.
//
// Requests. One session to the agent, opened lazily on first use and reopened
// after a transport or security failure. The agent's address and credentials
// are platform settings read by net-snmp from its own files under SNMPCONFPATH:
// "agentAddress" in eventmibd.conf (default udp:127.0.0.1:161) and the def*
// tokens of snmp.conf (version, community, v3 user, levels, passphrases). A
// context name is the SNMPv3 contextName of each request. Requests in a
// context that the agent does not list in vacmContextName are refused at once
// (SNMP_ST_UNKNOWN_CONTEXT): the agent would silently drop them and the caller
// would wait a full time-out. The context list is cached for a few seconds.
//
// Threads and locks: net-snmp is built without its own locking and keeps
// process-wide state (request ids, engine-time cache, snmp_errno), so every
// net-snmp call is made under g_stClientLock. The daemon makes all requests
// from its sampling worker, so the lock is never contended there; it only
// keeps a stray call from another thread from corrupting the library. The
// notification functions do not touch net-snmp: they build a datagram in
// memory and send it without blocking, or append it to the relay queue under
// its own leaf lock (g_stRelay.stLock), from either thread.
#include "plat_snmp.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <mutex>

#include "plat_notify_dgram.h"
#include "plat_paths.h"
#include "plat_unixsock.h"

namespace {

constexpr const char* APP_NAME = "eventmibd";
constexpr const char* DEFAULT_AGENT = "udp:127.0.0.1:161";
constexpr long DEFAULT_TIMEOUT_MS = 1000;  // per try
constexpr long MAX_TIMEOUT_MS = 60000;
constexpr int MAX_RETRIES = 10;
constexpr int DEFAULT_RETRIES = 1;
constexpr int CONTEXT_CACHE_SECONDS = 5;
constexpr uint32_t MAX_CONTEXTS = 4096;
constexpr uint32_t CONTEXT_SIZE = MTE_NAME_SIZE;  // 32 characters and the NUL

// vacmContextName, the column that lists the agent's contexts.
constexpr oid VACM_CONTEXT_NAME[] = {1, 3, 6, 1, 6, 3, 16, 1, 1, 1, 1};

std::mutex g_stClientLock;
bool g_bLibraryReady = false;
char g_szAgentAddress[256] = "";
long g_lTimeoutMs = DEFAULT_TIMEOUT_MS;
int g_iRetries = DEFAULT_RETRIES;
void* g_pSession = nullptr;

struct ContextCache {
    char (*paszNames)[CONTEXT_SIZE];  // sorted by strcmp
    uint32_t uiCount;
    bool bValid;
    time_t tLoaded;  // CLOCK_MONOTONIC seconds
};
ContextCache g_stContexts = {nullptr, 0, false, 0};

// ---------------------------------------------------------------------------
// Status mapping.
// ---------------------------------------------------------------------------

// error-status 1..18 of a response PDU.
constexpr uint32_t g_auiErrStatus2St[] = {
    SNMP_ST_OK,
    SNMP_ST_TOO_BIG,
    SNMP_ST_NO_SUCH_NAME,
    SNMP_ST_BAD_VALUE,
    SNMP_ST_READ_ONLY,
    SNMP_ST_GEN_ERR,
    SNMP_ST_NO_ACCESS,
    SNMP_ST_WRONG_TYPE,
    SNMP_ST_WRONG_LENGTH,
    SNMP_ST_WRONG_ENCODING,
    SNMP_ST_WRONG_VALUE,
    SNMP_ST_NO_CREATION,
    SNMP_ST_INCONSISTENT_VALUE,
    SNMP_ST_RESOURCE_UNAVAILABLE,
    SNMP_ST_COMMIT_FAILED,
    SNMP_ST_UNDO_FAILED,
    SNMP_ST_AUTHORIZATION_ERROR,
    SNMP_ST_NOT_WRITABLE,
    SNMP_ST_INCONSISTENT_NAME,
};
static_assert(sizeof(g_auiErrStatus2St) / sizeof(g_auiErrStatus2St[0]) == 19);

uint32_t ErrStatus2St(long lErrStat) {
    if (lErrStat < 0 || lErrStat >= 19) {
        return SNMP_ST_GEN_ERR;
    }
    return g_auiErrStatus2St[lErrStat];
}

// A request that got no usable response: a time-out, a refusal by the
// agent's security layer (reported as authorizationError, the closest
// failure reason), or a local failure.
uint32_t LibError2St(int iSnmpErrno) {
    switch (iSnmpErrno) {
        case SNMPERR_TIMEOUT:
            return SNMP_ST_TIMEOUT;
        case SNMPERR_UNKNOWN_USER_NAME:
        case SNMPERR_UNSUPPORTED_SEC_LEVEL:
        case SNMPERR_AUTHENTICATION_FAILURE:
        case SNMPERR_DECRYPTION_ERR:
        case SNMPERR_NOT_IN_TIME_WINDOW:
        case SNMPERR_UNKNOWN_ENG_ID:
        case SNMPERR_USM_UNKNOWNSECURITYNAME:
        case SNMPERR_USM_UNSUPPORTEDSECURITYLEVEL:
        case SNMPERR_USM_AUTHENTICATIONFAILURE:
        case SNMPERR_USM_DECRYPTIONERROR:
        case SNMPERR_USM_NOTINTIMEWINDOW:
        case SNMPERR_USM_UNKNOWNENGINEID:
            return SNMP_ST_AUTHORIZATION_ERROR;
        case SNMPERR_MALLOC:
            return SNMP_ST_LOCAL_RESOURCE;
        default:
            return SNMP_ST_CLIENT_ERROR;
    }
}

// ---------------------------------------------------------------------------
// Library and session (all under g_stClientLock).
// ---------------------------------------------------------------------------

void ParseAgentAddress(const char* pszToken, char* pszLine) {
    if (pszLine == nullptr || *pszLine == '\0') {
        config_perror("agentAddress needs a transport address, e.g. udp:127.0.0.1:161");
        return;
    }
    snprintf(g_szAgentAddress, sizeof(g_szAgentAddress), "%s", pszLine);
}

void FreeAgentAddress(void) {
    snprintf(g_szAgentAddress, sizeof(g_szAgentAddress), "%s", "");
}

void ParseAgentTimeout(const char* pszToken, char* pszLine) {
    char* pszEnd = nullptr;
    long lMs = pszLine != nullptr ? strtol(pszLine, &pszEnd, 10) : 0;
    if (pszLine == nullptr || pszEnd == pszLine || lMs < 1 || lMs > MAX_TIMEOUT_MS) {
        config_perror("agentTimeout needs milliseconds from 1 to 60000");
        return;
    }
    g_lTimeoutMs = lMs;
}

void FreeAgentTimeout(void) {
    g_lTimeoutMs = DEFAULT_TIMEOUT_MS;
}

void ParseAgentRetries(const char* pszToken, char* pszLine) {
    char* pszEnd = nullptr;
    long lRetries = pszLine != nullptr ? strtol(pszLine, &pszEnd, 10) : -1;
    if (pszLine == nullptr || pszEnd == pszLine || lRetries < 0 || lRetries > MAX_RETRIES) {
        config_perror("agentRetries needs a number from 0 to 10");
        return;
    }
    g_iRetries = static_cast<int>(lRetries);
}

void FreeAgentRetries(void) {
    g_iRetries = DEFAULT_RETRIES;
}

void EnsureLibrary(void) {
    if (g_bLibraryReady) {
        return;
    }
    // The client keeps no state worth saving between runs.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    register_config_handler(APP_NAME, "agentAddress", ParseAgentAddress, FreeAgentAddress,
                            "transport address of the agent to sample, e.g. udp:127.0.0.1:161");
    register_config_handler(APP_NAME, "agentTimeout", ParseAgentTimeout, FreeAgentTimeout,
                            "milliseconds to wait for each try of a request");
    register_config_handler(APP_NAME, "agentRetries", ParseAgentRetries, FreeAgentRetries,
                            "tries of a request after the first");
    init_snmp(APP_NAME);
    g_bLibraryReady = true;
}

void CloseSession(void) {
    if (g_pSession != nullptr) {
        snmp_sess_close(g_pSession);
        g_pSession = nullptr;
    }
}

const char* DsString(int iWhich) {
    return netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, iWhich);
}

// The SNMPv3 user of snmp.conf: defSecurityName, defSecurityLevel (by default
// the highest that the given passphrases allow), defAuthType and defPrivType
// (net-snmp's defaults when absent), defAuthPassphrase and defPrivPassphrase
// (defPassphrase for both when absent).
bool ApplyV3Defaults(netsnmp_session* pstSession) {
    const char* pszUser = DsString(NETSNMP_DS_LIB_SECNAME);
    if (pszUser == nullptr || *pszUser == '\0') {
        snmp_log(LOG_ERR, "%s: SNMPv3 needs defSecurityName in snmp.conf\n", APP_NAME);
        return false;
    }
    pstSession->securityName = const_cast<char*>(pszUser);
    pstSession->securityNameLen = strlen(pszUser);
    const char* pszAuth = DsString(NETSNMP_DS_LIB_AUTHPASSPHRASE);
    const char* pszPriv = DsString(NETSNMP_DS_LIB_PRIVPASSPHRASE);
    if (pszAuth == nullptr) {
        pszAuth = DsString(NETSNMP_DS_LIB_PASSPHRASE);
    }
    if (pszPriv == nullptr) {
        pszPriv = DsString(NETSNMP_DS_LIB_PASSPHRASE);
    }
    int iLevel = netsnmp_ds_get_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SECLEVEL);
    if (iLevel <= 0) {
        iLevel = pszAuth == nullptr   ? SNMP_SEC_LEVEL_NOAUTH
                 : pszPriv == nullptr ? SNMP_SEC_LEVEL_AUTHNOPRIV
                                      : SNMP_SEC_LEVEL_AUTHPRIV;
    }
    pstSession->securityLevel = iLevel;
    if (iLevel >= SNMP_SEC_LEVEL_AUTHNOPRIV) {
        size_t ulProtoLen = 0;
        const oid* pulProto = get_default_authtype(&ulProtoLen);
        pstSession->securityAuthProto = const_cast<oid*>(pulProto);
        pstSession->securityAuthProtoLen = ulProtoLen;
        pstSession->securityAuthKeyLen = USM_AUTH_KU_LEN;
        if (pszAuth == nullptr ||
            generate_Ku(pulProto, ulProtoLen, reinterpret_cast<const u_char*>(pszAuth),
                        strlen(pszAuth), pstSession->securityAuthKey,
                        &pstSession->securityAuthKeyLen) != SNMPERR_SUCCESS) {
            snmp_log(LOG_ERR, "%s: no usable defAuthPassphrase in snmp.conf\n", APP_NAME);
            return false;
        }
    }
    if (iLevel >= SNMP_SEC_LEVEL_AUTHPRIV) {
        size_t ulProtoLen = 0;
        pstSession->securityPrivProto = const_cast<oid*>(get_default_privtype(&ulProtoLen));
        pstSession->securityPrivProtoLen = ulProtoLen;
        pstSession->securityPrivKeyLen = USM_PRIV_KU_LEN;
        // The privacy key is derived with the authentication hash.
        if (pszPriv == nullptr ||
            generate_Ku(pstSession->securityAuthProto, pstSession->securityAuthProtoLen,
                        reinterpret_cast<const u_char*>(pszPriv), strlen(pszPriv),
                        pstSession->securityPrivKey,
                        &pstSession->securityPrivKeyLen) != SNMPERR_SUCCESS) {
            snmp_log(LOG_ERR, "%s: no usable defPrivPassphrase in snmp.conf\n", APP_NAME);
            return false;
        }
    }
    return true;
}

// Version and credentials from snmp.conf; SNMPv2c with community "public"
// when nothing is configured.
bool ApplyDefaults(netsnmp_session* pstSession) {
    switch (netsnmp_ds_get_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SNMPVERSION)) {
        case NETSNMP_DS_SNMP_VERSION_1:
            pstSession->version = SNMP_VERSION_1;
            break;
        case NETSNMP_DS_SNMP_VERSION_3:
            pstSession->version = SNMP_VERSION_3;
            return ApplyV3Defaults(pstSession);
        default:
            pstSession->version = SNMP_VERSION_2c;
            break;
    }
    const char* pszCommunity = DsString(NETSNMP_DS_LIB_COMMUNITY);
    if (pszCommunity == nullptr) {
        pszCommunity = "public";
    }
    pstSession->community = reinterpret_cast<u_char*>(const_cast<char*>(pszCommunity));
    pstSession->community_len = strlen(pszCommunity);
    return true;
}

// Opens the session if needed; 0 or a status code.
uint32_t EnsureSession(void) {
    EnsureLibrary();
    if (g_pSession != nullptr) {
        return SNMP_ST_OK;
    }
    netsnmp_session stSession;
    snmp_sess_init(&stSession);
    if (!ApplyDefaults(&stSession)) {
        return SNMP_ST_CLIENT_ERROR;
    }
    stSession.peername =
        const_cast<char*>(g_szAgentAddress[0] != '\0' ? g_szAgentAddress : DEFAULT_AGENT);
    // The agent is local and a lost answer rare: a short time-out keeps a
    // dead agent from holding the worker (two seconds per request at most
    // with the defaults).
    stSession.timeout = g_lTimeoutMs * 1000;
    stSession.retries = g_iRetries;
    g_pSession = snmp_sess_open(&stSession);
    if (g_pSession == nullptr) {
        return LibError2St(stSession.s_snmp_errno);
    }
    return SNMP_ST_OK;
}

bool SessionIsV3(void) {
    netsnmp_session* pstSession = snmp_sess_session(g_pSession);
    return pstSession != nullptr && pstSession->version == SNMP_VERSION_3;
}

// Sends one request (the PDU is consumed) and waits for its response.
// On 0 *ppstResponse is a response with error-status 0; otherwise null, and
// *pbRefused (when given) tells whether the agent answered with an
// error-status rather than not at all.
uint32_t Exchange(netsnmp_pdu* pstPdu, const char* pszContext, netsnmp_pdu** ppstResponse,
                  bool* pbRefused = nullptr) {
    *ppstResponse = nullptr;
    if (pbRefused != nullptr) {
        *pbRefused = false;
    }
    if (pszContext != nullptr && pszContext[0] != '\0') {
        size_t ulLen = strlen(pszContext);
        pstPdu->contextName = static_cast<char*>(malloc(ulLen + 1));
        if (pstPdu->contextName == nullptr) {
            snmp_free_pdu(pstPdu);
            return SNMP_ST_LOCAL_RESOURCE;
        }
        memcpy(pstPdu->contextName, pszContext, ulLen + 1);
        pstPdu->contextNameLen = ulLen;
    }
    netsnmp_pdu* pstResponse = nullptr;
    int iStat = snmp_sess_synch_response(g_pSession, pstPdu, &pstResponse);
    if (iStat == STAT_TIMEOUT) {
        return SNMP_ST_TIMEOUT;
    }
    if (iStat != STAT_SUCCESS || pstResponse == nullptr) {
        netsnmp_session* pstSession = snmp_sess_session(g_pSession);
        uint32_t uiSt = LibError2St(pstSession != nullptr ? pstSession->s_snmp_errno : 0);
        if (pstResponse != nullptr) {
            snmp_free_pdu(pstResponse);
        }
        // The transport or the security state may be broken: start afresh.
        CloseSession();
        return uiSt;
    }
    if (pstResponse->errstat != SNMP_ERR_NOERROR) {
        uint32_t uiSt = ErrStatus2St(pstResponse->errstat);
        snmp_free_pdu(pstResponse);
        if (pbRefused != nullptr) {
            *pbRefused = true;
        }
        return uiSt;
    }
    *ppstResponse = pstResponse;
    return SNMP_ST_OK;
}

bool OidToNetsnmp(const MTE_OID_S* pstOid, oid* pulOut, size_t* pulLen) {
    if (pstOid == nullptr || pstOid->uiLen == 0 || pstOid->uiLen > MTE_OID_MAX_LEN) {
        return false;
    }
    for (uint32_t i = 0; i < pstOid->uiLen; i++) {
        pulOut[i] = pstOid->auiOid[i];
    }
    *pulLen = pstOid->uiLen;
    return true;
}

bool OidFromNetsnmp(const oid* pulOid, size_t ulLen, MTE_OID_S* pstOut) {
    if (ulLen > MTE_OID_MAX_LEN) {
        return false;
    }
    for (size_t i = 0; i < ulLen; i++) {
        if (pulOid[i] > 0xFFFFFFFFul) {
            return false;
        }
        pstOut->auiOid[i] = static_cast<uint32_t>(pulOid[i]);
    }
    pstOut->uiLen = static_cast<uint32_t>(ulLen);
    return true;
}

// ---------------------------------------------------------------------------
// Values.
// ---------------------------------------------------------------------------

SNMP_VALUE_S* NewValue(uint32_t uiType, const void* pBytes, uint32_t uiLen) {
    auto* pstValue = static_cast<SNMP_VALUE_S*>(calloc(1, sizeof(SNMP_VALUE_S)));
    if (pstValue == nullptr) {
        return nullptr;
    }
    // Never a null pData, even for an empty value: comparisons of two values
    // may then always look at the bytes.
    pstValue->pData = malloc(uiLen == 0 ? 1 : uiLen);
    if (pstValue->pData == nullptr) {
        free(pstValue);
        return nullptr;
    }
    if (uiLen > 0) {
        memcpy(pstValue->pData, pBytes, uiLen);
    }
    pstValue->uiLen = uiLen;
    pstValue->uiType = uiType;
    return pstValue;
}

SNMP_VALUE_S* NewU32(uint32_t uiType, unsigned long ulValue) {
    uint32_t uiValue = static_cast<uint32_t>(ulValue);
    return NewValue(uiType, &uiValue, sizeof(uiValue));
}

// The exception carried by a varbind, or 0 for a value.
uint32_t VarException(const netsnmp_variable_list* pstVar) {
    switch (pstVar->type) {
        case SNMP_NOSUCHOBJECT:
            return SNMP_ST_NO_SUCH_OBJECT;
        case SNMP_NOSUCHINSTANCE:
            return SNMP_ST_NO_SUCH_INSTANCE;
        case SNMP_ENDOFMIBVIEW:
            return SNMP_ST_END_OF_MIB_VIEW;
        default:
            return SNMP_ST_OK;
    }
}

// Copies a varbind's value into a value record; null with *puiStatus set when
// memory runs out or the value cannot be represented.
SNMP_VALUE_S* ValueFromVar(const netsnmp_variable_list* pstVar, uint32_t* puiStatus) {
    SNMP_VALUE_S* pstValue = nullptr;
    switch (pstVar->type) {
        case ASN_INTEGER: {
            int32_t iValue = static_cast<int32_t>(*pstVar->val.integer);
            pstValue = NewValue(SNMP_VTYPE_INTEGER, &iValue, sizeof(iValue));
            break;
        }
        case ASN_COUNTER:
            pstValue = NewU32(SNMP_VTYPE_COUNTER32, *pstVar->val.integer);
            break;
        case ASN_GAUGE:  // also Unsigned32
            pstValue = NewU32(SNMP_VTYPE_GAUGE32, *pstVar->val.integer);
            break;
        case ASN_TIMETICKS:
            pstValue = NewU32(SNMP_VTYPE_TIMETICKS, *pstVar->val.integer);
            break;
        case ASN_UINTEGER:
            pstValue = NewU32(SNMP_VTYPE_UINTEGER32, *pstVar->val.integer);
            break;
        case ASN_COUNTER64:
#ifdef NETSNMP_WITH_OPAQUE_SPECIAL_TYPES
        case ASN_OPAQUE_COUNTER64:
        case ASN_OPAQUE_U64:
#endif
        {
            uint64_t ullValue = (static_cast<uint64_t>(pstVar->val.counter64->high) << 32) |
                                (pstVar->val.counter64->low & 0xFFFFFFFFul);
            pstValue = NewValue(SNMP_VTYPE_COUNTER64, &ullValue, sizeof(ullValue));
            break;
        }
        case ASN_OCTET_STR:
        case ASN_BIT_STR:
            pstValue = NewValue(SNMP_VTYPE_OCTET_STRING, pstVar->val.string,
                                static_cast<uint32_t>(pstVar->val_len));
            break;
        case ASN_OBJECT_ID: {
            MTE_OID_S stOid;
            if (!OidFromNetsnmp(pstVar->val.objid, pstVar->val_len / sizeof(oid), &stOid)) {
                *puiStatus = SNMP_ST_CLIENT_ERROR;
                return nullptr;
            }
            pstValue = NewValue(SNMP_VTYPE_OID, stOid.auiOid, stOid.uiLen * 4);
            break;
        }
        case ASN_IPADDRESS:
            pstValue = NewValue(SNMP_VTYPE_IPADDRESS, pstVar->val.string,
                                static_cast<uint32_t>(pstVar->val_len));
            break;
        case ASN_NULL:
            pstValue = NewValue(SNMP_VTYPE_NULL, nullptr, 0);
            break;
        default:  // Opaque and the opaque-wrapped float, double and int64
            pstValue = NewValue(SNMP_VTYPE_OPAQUE, pstVar->val.string,
                                static_cast<uint32_t>(pstVar->val_len));
            break;
    }
    if (pstValue == nullptr) {
        *puiStatus = SNMP_ST_LOCAL_RESOURCE;
    }
    return pstValue;
}

// ---------------------------------------------------------------------------
// Contexts.
// ---------------------------------------------------------------------------

time_t MonotonicSeconds(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return stNow.tv_sec;
}

int CompareNames(const void* a, const void* b) {
    return strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
}

bool IsUnder(const oid* pulOid, size_t ulLen, const oid* pulPrefix, size_t ulPrefixLen) {
    return ulLen > ulPrefixLen &&
           netsnmp_oid_equals(pulOid, ulPrefixLen, pulPrefix, ulPrefixLen) == 0;
}

// Walks vacmContextName in the default context into the cache.
uint32_t LoadContexts(void) {
    constexpr size_t ulColumnLen = sizeof(VACM_CONTEXT_NAME) / sizeof(oid);
    oid aulOid[MAX_OID_LEN];
    size_t ulOidLen = ulColumnLen;
    memcpy(aulOid, VACM_CONTEXT_NAME, sizeof(VACM_CONTEXT_NAME));
    uint32_t uiCount = 0;
    uint32_t uiCap = 0;
    char(*paszNames)[CONTEXT_SIZE] = nullptr;
    uint32_t uiSt = SNMP_ST_OK;
    while (uiCount < MAX_CONTEXTS) {
        uiSt = EnsureSession();
        if (uiSt != SNMP_ST_OK) {
            break;
        }
        netsnmp_pdu* pstPdu = snmp_pdu_create(SNMP_MSG_GETNEXT);
        if (pstPdu == nullptr) {
            uiSt = SNMP_ST_LOCAL_RESOURCE;
            break;
        }
        snmp_add_null_var(pstPdu, aulOid, ulOidLen);
        netsnmp_pdu* pstResponse = nullptr;
        uiSt = Exchange(pstPdu, "", &pstResponse);
        if (uiSt == SNMP_ST_NO_SUCH_NAME) {  // SNMPv1's end of the view
            uiSt = SNMP_ST_OK;
            break;
        }
        if (uiSt != SNMP_ST_OK) {
            break;
        }
        netsnmp_variable_list* pstVar = pstResponse->variables;
        bool bDone = pstVar == nullptr || VarException(pstVar) != SNMP_ST_OK ||
                     !IsUnder(pstVar->name, pstVar->name_length, VACM_CONTEXT_NAME, ulColumnLen) ||
                     pstVar->name_length > MAX_OID_LEN;
        if (!bDone) {
            memcpy(aulOid, pstVar->name, pstVar->name_length * sizeof(oid));
            ulOidLen = pstVar->name_length;
            // Names that would not fit a context field can never be asked for.
            if (pstVar->type == ASN_OCTET_STR && pstVar->val_len < CONTEXT_SIZE) {
                if (uiCount == uiCap) {
                    uint32_t uiNewCap = uiCap == 0 ? 16 : uiCap * 2;
                    auto* pNew = realloc(paszNames, uiNewCap * CONTEXT_SIZE);
                    if (pNew == nullptr) {
                        snmp_free_pdu(pstResponse);
                        uiSt = SNMP_ST_LOCAL_RESOURCE;
                        break;
                    }
                    paszNames = static_cast<char(*)[CONTEXT_SIZE]>(pNew);
                    uiCap = uiNewCap;
                }
                memcpy(paszNames[uiCount], pstVar->val.string, pstVar->val_len);
                paszNames[uiCount][pstVar->val_len] = '\0';
                uiCount++;
            }
        }
        snmp_free_pdu(pstResponse);
        if (bDone) {
            break;
        }
    }
    if (uiSt != SNMP_ST_OK) {
        free(paszNames);
        g_stContexts.bValid = false;
        return uiSt;
    }
    if (uiCount > 1) {
        qsort(paszNames, uiCount, CONTEXT_SIZE, CompareNames);
    }
    free(g_stContexts.paszNames);
    g_stContexts.paszNames = paszNames;
    g_stContexts.uiCount = uiCount;
    g_stContexts.bValid = true;
    g_stContexts.tLoaded = MonotonicSeconds();
    return SNMP_ST_OK;
}

uint32_t FreshContexts(void) {
    if (g_stContexts.bValid && MonotonicSeconds() - g_stContexts.tLoaded < CONTEXT_CACHE_SECONDS) {
        return SNMP_ST_OK;
    }
    return LoadContexts();
}

// 0 when a request may be sent in the context; the default context always may.
uint32_t CheckContext(const char* pszContext) {
    if (pszContext == nullptr || pszContext[0] == '\0') {
        return SNMP_ST_OK;
    }
    uint32_t uiSt = EnsureSession();
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    // SNMPv1 and v2c carry no context name: only the default context is
    // reachable with them.
    if (!SessionIsV3() || strlen(pszContext) >= CONTEXT_SIZE) {
        return SNMP_ST_UNKNOWN_CONTEXT;
    }
    uiSt = FreshContexts();
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    if (bsearch(pszContext, g_stContexts.paszNames, g_stContexts.uiCount, CONTEXT_SIZE,
                CompareNames) == nullptr) {
        return SNMP_ST_UNKNOWN_CONTEXT;
    }
    return SNMP_ST_OK;
}

// Sends a GET, GETNEXT or GETBULK of one OID in the context and waits for
// the answer (lock held). 0 with a response of error-status 0, or the status;
// *pbRefused as for Exchange.
uint32_t RequestOne(int iCommand, long lRepetitions, const char* pszContext, const oid* pulOid,
                    size_t ulLen, netsnmp_pdu** ppstResponse, bool* pbRefused = nullptr) {
    *ppstResponse = nullptr;
    if (pbRefused != nullptr) {
        *pbRefused = false;
    }
    uint32_t uiSt = CheckContext(pszContext);
    if (uiSt == SNMP_ST_OK) {
        uiSt = EnsureSession();
    }
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    netsnmp_pdu* pstPdu = snmp_pdu_create(iCommand);
    if (pstPdu == nullptr) {
        return SNMP_ST_LOCAL_RESOURCE;
    }
    if (iCommand == SNMP_MSG_GETBULK) {
        pstPdu->non_repeaters = 0;
        pstPdu->max_repetitions = lRepetitions;
    }
    snmp_add_null_var(pstPdu, pulOid, ulLen);
    return Exchange(pstPdu, pszContext, ppstResponse, pbRefused);
}

// The answer to a get-next of pulAsked carried by pstVar: *pstOid becomes
// the name answered (when it fits); a value, or null with the status.
SNMP_VALUE_S* NextAnswer(const netsnmp_variable_list* pstVar, const oid* pulAsked,
                         size_t ulAskedLen, MTE_OID_S* pstOid, uint32_t* puiStatus) {
    uint32_t uiSt = SNMP_ST_OK;
    SNMP_VALUE_S* pstValue = nullptr;
    if (pstVar == nullptr) {
        uiSt = SNMP_ST_GEN_ERR;
    } else if (!OidFromNetsnmp(pstVar->name, pstVar->name_length, pstOid)) {
        uiSt = SNMP_ST_TOO_BIG;  // an instance OID longer than a record can hold
    } else {
        uiSt = VarException(pstVar);
        // An agent that answers a get-next with an OID not after the one asked
        // would keep a walk going forever: report it as the agent's error.
        if (uiSt == SNMP_ST_OK &&
            snmp_oid_compare(pstVar->name, pstVar->name_length, pulAsked, ulAskedLen) <= 0) {
            uiSt = SNMP_ST_GEN_ERR;
        }
        if (uiSt == SNMP_ST_OK) {
            pstValue = ValueFromVar(pstVar, &uiSt);
        }
    }
    *puiStatus = uiSt;
    return pstValue;
}

// One GET of one OID.
SNMP_VALUE_S* ReadOne(const char* pszContext, const MTE_OID_S* pstOid, uint32_t* puiStatus) {
    oid aulOid[MTE_OID_MAX_LEN];
    size_t ulLen = 0;
    if (!OidToNetsnmp(pstOid, aulOid, &ulLen)) {
        *puiStatus = SNMP_ST_CLIENT_ERROR;
        return nullptr;
    }
    std::lock_guard<std::mutex> stGuard(g_stClientLock);
    netsnmp_pdu* pstResponse = nullptr;
    uint32_t uiSt = RequestOne(SNMP_MSG_GET, 0, pszContext, aulOid, ulLen, &pstResponse);
    if (uiSt != SNMP_ST_OK) {
        *puiStatus = uiSt;
        return nullptr;
    }
    SNMP_VALUE_S* pstValue = nullptr;
    netsnmp_variable_list* pstVar = pstResponse->variables;
    uiSt = pstVar == nullptr ? SNMP_ST_GEN_ERR : VarException(pstVar);
    if (uiSt == SNMP_ST_OK) {
        pstValue = ValueFromVar(pstVar, &uiSt);
    }
    snmp_free_pdu(pstResponse);
    *puiStatus = uiSt;
    return pstValue;
}

// ---------------------------------------------------------------------------
// Get-next and the read-ahead of sampling walks (under g_stClientLock, but
// g_pWalk, which belongs to the calling thread).
//
// A walk's get-nexts are answered from GETBULK responses: each repetition of
// a GETBULK is, by the protocol, the get-next of the name before it, so the
// leading varbinds of a response answer the walk's next get-nexts exactly as
// GETNEXTs would have. A read-ahead belongs to one walk (the sampler passes
// its trigger) and one context, and lives until SNMP_EndWalk: the sampler
// ends it with the cycle, so every value it hands out was read in the cycle.
// ---------------------------------------------------------------------------

// The first GETBULK of a walk in a context asks for one batch of the
// sampler's walk; each further one doubles, up to READ_AHEAD_MAX: a short
// subtree costs the agent little beyond its end, a long one few requests.
constexpr long READ_AHEAD_FIRST = 5;
constexpr long READ_AHEAD_MAX = 25;
// Walks holding a read-ahead at once; past it the least recently used is
// dropped (its next get-next asks the agent afresh).
constexpr uint32_t READ_AHEAD_WALKS = 256;

struct ReadAhead {
    ReadAhead* pstNext;  // most recently used first
    const void* pWalk;   // only compared, never dereferenced
    char szContext[CONTEXT_SIZE];
    netsnmp_pdu* pstResponse;       // the last GETBULK's answer, or null
    oid aulAsked[MTE_OID_MAX_LEN];  // what its first varbind answers
    size_t ulAskedLen;
    uint32_t uiUsable;  // leading varbinds that answer get-nexts as GETNEXTs would
    long lRepetitions;  // of the next GETBULK
    bool bBulkRefused;  // the agent refused a GETBULK: GETNEXTs for the rest of the walk
};

thread_local const void* g_pWalk = nullptr;
ReadAhead* g_pstReadAheads = nullptr;
uint32_t g_uiReadAheads = 0;

void DropResponse(ReadAhead* pstAhead) {
    if (pstAhead->pstResponse != nullptr) {
        snmp_free_pdu(pstAhead->pstResponse);
        pstAhead->pstResponse = nullptr;
    }
    pstAhead->uiUsable = 0;
}

void FreeReadAhead(ReadAhead* pstAhead) {
    DropResponse(pstAhead);
    free(pstAhead);
    g_uiReadAheads--;
}

// Unlinks and frees the walk's read-ahead (every one for null).
void DropReadAheads(const void* pWalk) {
    ReadAhead** ppstLink = &g_pstReadAheads;
    while (*ppstLink != nullptr) {
        ReadAhead* pstAhead = *ppstLink;
        if (pWalk == nullptr || pstAhead->pWalk == pWalk) {
            *ppstLink = pstAhead->pstNext;
            FreeReadAhead(pstAhead);
        } else {
            ppstLink = &pstAhead->pstNext;
        }
    }
}

// The walk's read-ahead for the context, first in the list; a new one when
// the walk has none or was in another context; null when memory runs out.
ReadAhead* WalkReadAhead(const void* pWalk, const char* pszContext) {
    ReadAhead** ppstLink = &g_pstReadAheads;
    ReadAhead* pstAhead = nullptr;
    ReadAhead** ppstLast = nullptr;
    for (; *ppstLink != nullptr; ppstLink = &(*ppstLink)->pstNext) {
        if ((*ppstLink)->pWalk == pWalk) {
            pstAhead = *ppstLink;
            *ppstLink = pstAhead->pstNext;
            break;
        }
        ppstLast = ppstLink;
    }
    if (pstAhead == nullptr) {
        if (g_uiReadAheads >= READ_AHEAD_WALKS && ppstLast != nullptr) {
            ReadAhead* pstOldest = *ppstLast;
            *ppstLast = nullptr;
            FreeReadAhead(pstOldest);
        }
        pstAhead = static_cast<ReadAhead*>(calloc(1, sizeof(ReadAhead)));
        if (pstAhead == nullptr) {
            return nullptr;
        }
        g_uiReadAheads++;
        pstAhead->pWalk = pWalk;
        pstAhead->lRepetitions = READ_AHEAD_FIRST;
    } else if (strcmp(pstAhead->szContext, pszContext) != 0) {
        DropResponse(pstAhead);
        pstAhead->lRepetitions = READ_AHEAD_FIRST;
        pstAhead->bBulkRefused = false;
    }
    snprintf(pstAhead->szContext, sizeof(pstAhead->szContext), "%s", pszContext);
    pstAhead->pstNext = g_pstReadAheads;
    g_pstReadAheads = pstAhead;
    return pstAhead;
}

// The leading varbinds of a GETBULK response that answer get-nexts exactly
// as GETNEXTs would: values, each after the name before it, and an
// endOfMibView that repeats the name asked, which ends them. Anything else
// (other exceptions, names out of order or too long) is left to a GETNEXT of
// its own, so that the caller sees what the agent answers to that.
uint32_t UsableAnswers(const netsnmp_pdu* pstResponse, const oid* pulAsked, size_t ulAskedLen) {
    uint32_t uiUsable = 0;
    for (const netsnmp_variable_list* pstVar = pstResponse->variables; pstVar != nullptr;
         pstVar = pstVar->next_variable) {
        if (pstVar->name_length > MTE_OID_MAX_LEN) {
            break;
        }
        int iOrder = snmp_oid_compare(pstVar->name, pstVar->name_length, pulAsked, ulAskedLen);
        uint32_t uiSt = VarException(pstVar);
        if (uiSt == SNMP_ST_END_OF_MIB_VIEW) {
            return iOrder == 0 ? uiUsable + 1 : uiUsable;
        }
        if (uiSt != SNMP_ST_OK || iOrder <= 0) {
            break;
        }
        uiUsable++;
        pulAsked = pstVar->name;
        ulAskedLen = pstVar->name_length;
    }
    return uiUsable;
}

// Answers the get-next of pulOid from the read-ahead; false when it holds no
// answer to it.
bool AnswerAhead(const ReadAhead* pstAhead, const oid* pulOid, size_t ulLen, MTE_OID_S* pstOid,
                 SNMP_VALUE_S** ppstValue, uint32_t* puiStatus) {
    if (pstAhead->pstResponse == nullptr) {
        return false;
    }
    const oid* pulAsked = pstAhead->aulAsked;
    size_t ulAskedLen = pstAhead->ulAskedLen;
    uint32_t uiIndex = 0;
    for (const netsnmp_variable_list* pstVar = pstAhead->pstResponse->variables;
         pstVar != nullptr && uiIndex < pstAhead->uiUsable;
         pstVar = pstVar->next_variable, uiIndex++) {
        if (snmp_oid_compare(pulAsked, ulAskedLen, pulOid, ulLen) == 0) {
            *ppstValue = NextAnswer(pstVar, pulAsked, ulAskedLen, pstOid, puiStatus);
            return true;
        }
        pulAsked = pstVar->name;
        ulAskedLen = pstVar->name_length;
    }
    return false;
}

// Reads ahead from pulOid with one GETBULK. 0 when the read-ahead holds a new
// response (perhaps without a usable answer); *pbRefused when the agent
// answered the GETBULK with an error-status.
uint32_t FetchAhead(ReadAhead* pstAhead, const oid* pulOid, size_t ulLen, bool* pbRefused) {
    DropResponse(pstAhead);
    netsnmp_pdu* pstResponse = nullptr;
    uint32_t uiSt = RequestOne(SNMP_MSG_GETBULK, pstAhead->lRepetitions, pstAhead->szContext,
                               pulOid, ulLen, &pstResponse, pbRefused);
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    pstAhead->pstResponse = pstResponse;
    memcpy(pstAhead->aulAsked, pulOid, ulLen * sizeof(oid));
    pstAhead->ulAskedLen = ulLen;
    pstAhead->uiUsable = UsableAnswers(pstResponse, pulOid, ulLen);
    pstAhead->lRepetitions = std::min(pstAhead->lRepetitions * 2, READ_AHEAD_MAX);
    return SNMP_ST_OK;
}

// The get-next of a walk, from its read-ahead or from a new GETBULK. False
// when a GETNEXT must answer: no usable GETBULK answer, or the agent refused
// the GETBULK. A GETBULK that gets no answer at all is not tried again as a
// GETNEXT: it fails with its own status, so that a dead agent still costs
// the worker one request's time.
bool ReadNextAhead(const char* pszContext, const oid* pulOid, size_t ulLen, MTE_OID_S* pstOid,
                   SNMP_VALUE_S** ppstValue, uint32_t* puiStatus) {
    ReadAhead* pstAhead = WalkReadAhead(g_pWalk, pszContext);
    if (pstAhead == nullptr) {
        return false;
    }
    if (AnswerAhead(pstAhead, pulOid, ulLen, pstOid, ppstValue, puiStatus)) {
        return true;
    }
    if (pstAhead->bBulkRefused) {
        return false;
    }
    bool bRefused = false;
    uint32_t uiSt = FetchAhead(pstAhead, pulOid, ulLen, &bRefused);
    if (uiSt == SNMP_ST_OK) {
        return AnswerAhead(pstAhead, pulOid, ulLen, pstOid, ppstValue, puiStatus);
    }
    if (bRefused) {
        pstAhead->bBulkRefused = true;
        return false;
    }
    *ppstValue = nullptr;
    *puiStatus = uiSt;
    return true;
}

bool SessionSpeaksBulk(void) {
    netsnmp_session* pstSession = snmp_sess_session(g_pSession);
    return pstSession != nullptr && pstSession->version != SNMP_VERSION_1;
}

// One get-next of one OID; *pstOid becomes the OID answered.
SNMP_VALUE_S* ReadNext(const char* pszContext, MTE_OID_S* pstOid, uint32_t* puiStatus) {
    oid aulOid[MTE_OID_MAX_LEN];
    size_t ulLen = 0;
    if (!OidToNetsnmp(pstOid, aulOid, &ulLen)) {
        *puiStatus = SNMP_ST_CLIENT_ERROR;
        return nullptr;
    }
    std::lock_guard<std::mutex> stGuard(g_stClientLock);
    SNMP_VALUE_S* pstValue = nullptr;
    if (g_pWalk != nullptr && EnsureSession() == SNMP_ST_OK && SessionSpeaksBulk() &&
        ReadNextAhead(pszContext != nullptr ? pszContext : "", aulOid, ulLen, pstOid, &pstValue,
                      puiStatus)) {
        return pstValue;
    }
    netsnmp_pdu* pstResponse = nullptr;
    uint32_t uiSt = RequestOne(SNMP_MSG_GETNEXT, 0, pszContext, aulOid, ulLen, &pstResponse);
    if (uiSt != SNMP_ST_OK) {
        *puiStatus = uiSt;
        return nullptr;
    }
    pstValue = NextAnswer(pstResponse->variables, aulOid, ulLen, pstOid, puiStatus);
    snmp_free_pdu(pstResponse);
    return pstValue;
}

// ---------------------------------------------------------------------------
// Notifications: one datagram per notification to the AgentX relay.
// ---------------------------------------------------------------------------

constexpr uint32_t NOTIFY_MAX_VARS = 5;
constexpr uint32_t NOTIFY_ERR_ARG = 1;
constexpr uint32_t NOTIFY_ERR_NOMEM = 2;
constexpr uint32_t NOTIFY_ERR_SEND = 3;
constexpr uint32_t NOTIFY_ERR_TOO_BIG = 4;

// RFC 2981: dismanEventMIBNotifications and dismanEventMIBNotificationObjects.
constexpr uint32_t EVENT_MIB[] = {1, 3, 6, 1, 2, 1, 88};
struct BuiltinNotification {
    const char* pszName;
    uint32_t uiNumber;      // under dismanEventMIBNotifications (88.2.0)
    uint32_t uiLastObject;  // mteHotValue (5) or mteFailedReason (6)
};
constexpr BuiltinNotification g_astBuiltins[] = {
    {"mteTriggerFired", 1, 5},   {"mteTriggerRising", 2, 5},   {"mteTriggerFalling", 3, 5},
    {"mteTriggerFailure", 4, 6}, {"mteEventSetFailure", 5, 6},
};

struct NotifyVar {
    uint32_t uiType;
    uint32_t uiLen;
    unsigned char* pucValue;
};

struct NotifyHandle {
    NotifyVar astVars[NOTIFY_MAX_VARS];
    uint32_t uiCount;
    uint32_t uiFirstError;  // reported by SNMP_DestroyNotifyHandle
};

// How long a send may wait for room in the relay's queue. The kernel queues
// only a few datagrams on a local socket (net.unix.max_dgram_qlen, 10 by
// default), so a burst of firings in one evaluation would otherwise lose
// everything past the tenth while the relay is alive and draining.
constexpr int NOTIFY_QUEUE_WAIT_MS = 50;

// ---------------------------------------------------------------------------
// Relay queue: notifications held for the relay while it is absent or busy.
//
// The kernel keeps only ten datagrams for a local socket, and a relay that is
// restarting keeps none, so the queue that carries notifications over a
// bridge restart or a burst has to be ours. Any thread appends under
// g_stRelay.stLock; the owner thread (SNMP_NotifyRelayOpen's) alone takes
// from the head, sends with no lock held and never waits: when the relay's
// queue is full it watches the socket for room, when the relay is absent it
// tries again on a short timer. Held datagrams keep their order.
// ---------------------------------------------------------------------------

constexpr int RELAY_RETRY_MS = 200;
// A backlog goes out at most RELAY_SENDS_PER_ROUND every RELAY_PACE_MS
// (500 a second, far above what the daemon produces): the agent passes each
// notification on as a UDP datagram, and a receiver flooded with a whole
// backlog at once drops what its socket buffer cannot hold. The pause also
// leaves the owner's other descriptors their turn.
constexpr uint32_t RELAY_SENDS_PER_ROUND = 10;
constexpr int RELAY_PACE_MS = 20;

struct HeldDatagram {
    unsigned char* pucBytes;
    uint32_t uiLen;
};

struct RelayQueue {
    std::mutex stLock;  // guards the ring and the counts; leaf
    HeldDatagram astRing[SNMP_RELAY_QUEUE_MAX] = {};
    uint32_t uiHead = 0;
    uint32_t uiCount = 0;
    uint64_t ulBytes = 0;
    std::atomic<bool> bHolding{false};
    // Owner thread only.
    int iEpollFd = -1;       // readable when one of the three below is
    int iWakeFd = -1;        // eventfd: the queue went from empty to not empty
    int iRetryFd = -1;       // timerfd: the next round of a backlog, or of an absent relay
    int iSockFd = -1;        // connected to the relay; -1 while it is absent
    bool bWaitRoom = false;  // iSockFd is watched for room (EPOLLOUT)
    bool bLost = false;      // the last attempt found the relay absent
};
RelayQueue g_stRelay;

enum class RelaySend { SENT, FULL, ABSENT };

uint32_t SendDirect(const NDG_WRITER_S* pstOut);

bool RelayPush(const NDG_WRITER_S* pstOut) {
    auto* pucCopy = static_cast<unsigned char*>(malloc(pstOut->uiLen));
    if (pucCopy == nullptr) {
        return false;
    }
    memcpy(pucCopy, pstOut->aucBytes, pstOut->uiLen);
    bool bWasEmpty;
    {
        std::lock_guard<std::mutex> stGuard(g_stRelay.stLock);
        if (g_stRelay.uiCount == SNMP_RELAY_QUEUE_MAX ||
            g_stRelay.ulBytes + pstOut->uiLen > SNMP_RELAY_QUEUE_MAX_BYTES) {
            free(pucCopy);
            return false;
        }
        uint32_t uiSlot = (g_stRelay.uiHead + g_stRelay.uiCount) % SNMP_RELAY_QUEUE_MAX;
        g_stRelay.astRing[uiSlot] = {pucCopy, pstOut->uiLen};
        bWasEmpty = g_stRelay.uiCount++ == 0;
        g_stRelay.ulBytes += pstOut->uiLen;
    }
    if (bWasEmpty) {
        (void)eventfd_write(g_stRelay.iWakeFd, 1);
    }
    return true;
}

// The oldest held datagram, left in place; false when none is held. Only
// the owner removes the head, so the slot stays valid without the lock.
bool RelayFront(HeldDatagram* pstFront) {
    std::lock_guard<std::mutex> stGuard(g_stRelay.stLock);
    if (g_stRelay.uiCount == 0) {
        return false;
    }
    *pstFront = g_stRelay.astRing[g_stRelay.uiHead];
    return true;
}

uint32_t RelayPop(void) {
    HeldDatagram stFront;
    uint32_t uiLeft;
    {
        std::lock_guard<std::mutex> stGuard(g_stRelay.stLock);
        stFront = g_stRelay.astRing[g_stRelay.uiHead];
        g_stRelay.uiHead = (g_stRelay.uiHead + 1) % SNMP_RELAY_QUEUE_MAX;
        g_stRelay.ulBytes -= stFront.uiLen;
        uiLeft = --g_stRelay.uiCount;
    }
    free(stFront.pucBytes);
    return uiLeft;
}

uint32_t RelayHeld(void) {
    std::lock_guard<std::mutex> stGuard(g_stRelay.stLock);
    return g_stRelay.uiCount;
}

void RelayWatchRoom(bool bWatch) {
    if (bWatch == g_stRelay.bWaitRoom || g_stRelay.iSockFd < 0) {
        return;
    }
    epoll_event stEvent{};
    stEvent.events = EPOLLOUT;
    stEvent.data.fd = g_stRelay.iSockFd;
    (void)epoll_ctl(g_stRelay.iEpollFd, bWatch ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, g_stRelay.iSockFd,
                    &stEvent);
    g_stRelay.bWaitRoom = bWatch;
}

void RelayCloseSocket(void) {
    RelayWatchRoom(false);
    if (g_stRelay.iSockFd >= 0) {
        close(g_stRelay.iSockFd);
        g_stRelay.iSockFd = -1;
    }
}

void RelayArmTimer(int iMs) {
    itimerspec stSpec{};
    stSpec.it_value.tv_nsec = iMs * 1000000L;
    (void)timerfd_settime(g_stRelay.iRetryFd, 0, &stSpec, nullptr);
}

void RelayDrainFd(int iFd) {
    uint64_t ulValue;
    while (read(iFd, &ulValue, sizeof(ulValue)) > 0) {
    }
}

// A socket connected to the relay, so that a full relay queue can be
// watched for room; false while the relay is absent.
bool RelayConnect(void) {
    if (g_stRelay.iSockFd >= 0) {
        return true;
    }
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(PLAT_AgentxSocketPath(), &stAddr)) {
        return false;
    }
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return false;
    }
    if (connect(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        close(iFd);
        return false;
    }
    g_stRelay.iSockFd = iFd;
    return true;
}

RelaySend RelaySendOne(const HeldDatagram& stDatagram) {
    if (!RelayConnect()) {
        return RelaySend::ABSENT;
    }
    ssize_t lSent;
    do {
        lSent = send(g_stRelay.iSockFd, stDatagram.pucBytes, stDatagram.uiLen,
                     MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (lSent < 0 && errno == EINTR);
    if (lSent >= 0) {
        return RelaySend::SENT;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
        return RelaySend::FULL;
    }
    // Refused, reset or not connected: the relay is gone (or restarted under
    // the same path); the next attempt connects afresh.
    RelayCloseSocket();
    return RelaySend::ABSENT;
}

// Sends one datagram. A relay that is not listening fails at once; a live
// relay whose queue is full is given a short, bounded wait for room. While
// the relay queue is open the datagram is held there instead.
uint32_t SendDatagram(const NDG_WRITER_S* pstOut) {
    if (pstOut->bOverflow) {
        return NOTIFY_ERR_TOO_BIG;
    }
    if (g_stRelay.bHolding.load()) {
        return RelayPush(pstOut) ? 0u : static_cast<uint32_t>(SNMP_ST_LOCAL_RESOURCE);
    }
    return SendDirect(pstOut);
}

uint32_t SendDirect(const NDG_WRITER_S* pstOut) {
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(PLAT_AgentxSocketPath(), &stAddr)) {
        return NOTIFY_ERR_SEND;
    }
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return NOTIFY_ERR_SEND;
    }
    // Connected, so that poll() reports when the relay's queue has room.
    if (connect(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        close(iFd);
        return NOTIFY_ERR_SEND;
    }
    ssize_t lSent = send(iFd, pstOut->aucBytes, pstOut->uiLen, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (lSent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        pollfd stPoll = {iFd, POLLOUT, 0};
        if (poll(&stPoll, 1, NOTIFY_QUEUE_WAIT_MS) == 1 && (stPoll.revents & POLLOUT)) {
            lSent = send(iFd, pstOut->aucBytes, pstOut->uiLen, MSG_DONTWAIT | MSG_NOSIGNAL);
        }
    }
    close(iFd);
    return lSent == static_cast<ssize_t>(pstOut->uiLen) ? 0 : NOTIFY_ERR_SEND;
}

bool ValidNotifyVar(const SNMP_NOTIFY_VAR_S* pstVar) {
    if (pstVar == nullptr || (pstVar->pValue == nullptr && pstVar->uiLen != 0)) {
        return false;
    }
    switch (pstVar->uiType) {
        case SNMP_VTYPE_OCTET_STRING:
            return pstVar->uiLen < 65536;
        case SNMP_VTYPE_OID:
            return pstVar->uiLen % 4 == 0 && pstVar->uiLen <= 4 * MTE_OID_MAX_LEN;
        case SNMP_VTYPE_INTEGER:
        case SNMP_VTYPE_INTEGER32:
        case SNMP_VTYPE_ENUM:
            return pstVar->uiLen == 4;
        default:
            return false;
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Reads and sets.
// ---------------------------------------------------------------------------

// pszOwner is not used: every request goes with the credentials configured
// for the daemon in snmp.conf.
SNMP_VALUE_S* SNMP_GetInstanceValue(const char* pszOwner, const char* pszContext,
                                    const MTE_OID_S* pstOid, uint32_t* puiStatus) {
    uint32_t uiStatus = SNMP_ST_OK;
    SNMP_VALUE_S* pstValue = ReadOne(pszContext, pstOid, &uiStatus);
    if (puiStatus != nullptr) {
        *puiStatus = uiStatus;
    }
    return pstValue;
}

SNMP_VALUE_S* SNMP_GetNextInstanceValue(const char* pszOwner, const char* pszContext,
                                        MTE_OID_S* pstOid, uint32_t* puiStatus) {
    uint32_t uiStatus = SNMP_ST_OK;
    SNMP_VALUE_S* pstValue = ReadNext(pszContext, pstOid, &uiStatus);
    if (puiStatus != nullptr) {
        *puiStatus = uiStatus;
    }
    return pstValue;
}

void SNMP_SetWalk(const void* pWalk) {
    g_pWalk = pWalk;
}

void SNMP_EndWalk(const void* pWalk) {
    std::lock_guard<std::mutex> stGuard(g_stClientLock);
    DropReadAheads(pWalk);
}

uint32_t SNMP_GetNextContextName(uint32_t uiSize, char* pszContext) {
    if (pszContext == nullptr || uiSize == 0) {
        return SNMP_ST_CLIENT_ERROR;
    }
    char szAfter[CONTEXT_SIZE];
    snprintf(szAfter, sizeof(szAfter), "%.*s", static_cast<int>(uiSize - 1), pszContext);
    // On every failure the name becomes "": a caller walking the contexts
    // then ends its walk instead of asking again from the same place.
    pszContext[0] = '\0';
    std::lock_guard<std::mutex> stGuard(g_stClientLock);
    uint32_t uiSt = EnsureSession();
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    // Without SNMPv3 no named context can be read: listing them would only
    // lead a walk into requests that are bound to fail.
    if (!SessionIsV3()) {
        return SNMP_ST_NO_MORE_CONTEXTS;
    }
    uiSt = FreshContexts();
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    for (uint32_t i = 0; i < g_stContexts.uiCount; i++) {
        const char* pszName = g_stContexts.paszNames[i];
        if (strcmp(pszName, szAfter) > 0 && strlen(pszName) < uiSize) {
            memcpy(pszContext, pszName, strlen(pszName) + 1);
            return SNMP_ST_OK;
        }
    }
    return SNMP_ST_NO_MORE_CONTEXTS;
}

void SNMP_FreeInstanceValue(SNMP_VALUE_S* pstValue) {
    if (pstValue != nullptr) {
        free(pstValue->pData);
        free(pstValue);
    }
}

uint32_t SNMP_SetIntegerValueByOID(const char* pszOwner, const char* pszContext,
                                   const MTE_OID_S* pstOid, int32_t iValue) {
    oid aulOid[MTE_OID_MAX_LEN];
    size_t ulLen = 0;
    if (!OidToNetsnmp(pstOid, aulOid, &ulLen)) {
        return SNMP_ST_CLIENT_ERROR;
    }
    std::lock_guard<std::mutex> stGuard(g_stClientLock);
    uint32_t uiSt = CheckContext(pszContext);
    if (uiSt == SNMP_ST_OK) {
        uiSt = EnsureSession();
    }
    if (uiSt != SNMP_ST_OK) {
        return uiSt;
    }
    netsnmp_pdu* pstPdu = snmp_pdu_create(SNMP_MSG_SET);
    if (pstPdu == nullptr) {
        return SNMP_ST_LOCAL_RESOURCE;
    }
    long lValue = iValue;
    snmp_pdu_add_variable(pstPdu, aulOid, ulLen, ASN_INTEGER, &lValue, sizeof(lValue));
    netsnmp_pdu* pstResponse = nullptr;
    uiSt = Exchange(pstPdu, pszContext, &pstResponse);
    if (pstResponse != nullptr) {
        snmp_free_pdu(pstResponse);
    }
    return uiSt;
}

// ---------------------------------------------------------------------------
// Notifications.
// ---------------------------------------------------------------------------

SNMP_NOTIFY_HANDLE SNMP_CreateNotifyHandle(void) {
    return calloc(1, sizeof(NotifyHandle));
}

uint32_t SNMP_AddNotifyVar(SNMP_NOTIFY_HANDLE hNotify, const SNMP_NOTIFY_VAR_S* pstVar,
                           uint32_t uiFlags) {
    auto* pstHandle = static_cast<NotifyHandle*>(hNotify);
    if (pstHandle == nullptr) {
        return NOTIFY_ERR_ARG;
    }
    uint32_t uiSt = 0;
    if (!ValidNotifyVar(pstVar) || pstHandle->uiCount == NOTIFY_MAX_VARS) {
        uiSt = NOTIFY_ERR_ARG;
    } else {
        NotifyVar& stVar = pstHandle->astVars[pstHandle->uiCount];
        stVar.pucValue =
            static_cast<unsigned char*>(malloc(pstVar->uiLen == 0 ? 1 : pstVar->uiLen));
        if (stVar.pucValue == nullptr) {
            uiSt = NOTIFY_ERR_NOMEM;
        } else {
            if (pstVar->uiLen > 0) {
                memcpy(stVar.pucValue, pstVar->pValue, pstVar->uiLen);
            }
            stVar.uiType = pstVar->uiType;
            stVar.uiLen = pstVar->uiLen;
            pstHandle->uiCount++;
        }
    }
    if (uiSt != 0 && pstHandle->uiFirstError == 0) {
        pstHandle->uiFirstError = uiSt;
    }
    return uiSt;
}

// The variables are the notification's objects in the order of its OBJECTS
// clause: mteHotTrigger, mteHotTargetName, mteHotContextName, mteHotOID, then
// mteHotValue or mteFailedReason; each is sent as the scalar's instance .0.
uint32_t SNMP_SendNotify(const char* pszName, SNMP_NOTIFY_HANDLE hNotify) {
    auto* pstHandle = static_cast<NotifyHandle*>(hNotify);
    const BuiltinNotification* pstBuiltin = nullptr;
    for (const auto& stBuiltin : g_astBuiltins) {
        if (pszName != nullptr && strcmp(pszName, stBuiltin.pszName) == 0) {
            pstBuiltin = &stBuiltin;
        }
    }
    uint32_t uiSt = 0;
    if (pstHandle == nullptr || pstBuiltin == nullptr || pstHandle->uiCount != NOTIFY_MAX_VARS) {
        uiSt = NOTIFY_ERR_ARG;
    } else {
        auto* pstOut = static_cast<NDG_WRITER_S*>(malloc(sizeof(NDG_WRITER_S)));
        if (pstOut == nullptr) {
            uiSt = NOTIFY_ERR_NOMEM;
        } else {
            MTE_OID_S stTrapOid{};
            memcpy(stTrapOid.auiOid, EVENT_MIB, sizeof(EVENT_MIB));
            stTrapOid.auiOid[7] = 2;
            stTrapOid.auiOid[8] = 0;
            stTrapOid.auiOid[9] = pstBuiltin->uiNumber;
            stTrapOid.uiLen = 10;
            NDG_PutHeader(pstOut, &stTrapOid, "", NOTIFY_MAX_VARS);
            for (uint32_t i = 0; i < NOTIFY_MAX_VARS; i++) {
                uint32_t auiObject[] = {
                    1, 3,  6, 1, 2,
                    1, 88, 2, 1, i + 1 < NOTIFY_MAX_VARS ? i + 1 : pstBuiltin->uiLastObject,
                    0};
                const NotifyVar& stVar = pstHandle->astVars[i];
                NDG_PutVar(pstOut, auiObject, 11, stVar.uiType, stVar.pucValue, stVar.uiLen);
            }
            uiSt = SendDatagram(pstOut);
            free(pstOut);
        }
    }
    if (uiSt != 0 && pstHandle != nullptr && pstHandle->uiFirstError == 0) {
        pstHandle->uiFirstError = uiSt;
    }
    return uiSt;
}

// Releases the handle and reports the first failure seen with it (an
// unusable variable or a failed send), 0 if there was none.
uint32_t SNMP_DestroyNotifyHandle(SNMP_NOTIFY_HANDLE hNotify) {
    auto* pstHandle = static_cast<NotifyHandle*>(hNotify);
    if (pstHandle == nullptr) {
        return NOTIFY_ERR_ARG;
    }
    uint32_t uiSt = pstHandle->uiFirstError;
    for (uint32_t i = 0; i < pstHandle->uiCount; i++) {
        free(pstHandle->astVars[i].pucValue);
    }
    free(pstHandle);
    return uiSt;
}

int SNMP_NotifyRelayOpen(void) {
    if (g_stRelay.iEpollFd >= 0) {
        return g_stRelay.iEpollFd;
    }
    g_stRelay.iEpollFd = epoll_create1(EPOLL_CLOEXEC);
    g_stRelay.iWakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    g_stRelay.iRetryFd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    bool bReady = g_stRelay.iEpollFd >= 0 && g_stRelay.iWakeFd >= 0 && g_stRelay.iRetryFd >= 0;
    for (int iFd : {g_stRelay.iWakeFd, g_stRelay.iRetryFd}) {
        epoll_event stEvent{};
        stEvent.events = EPOLLIN;
        stEvent.data.fd = iFd;
        bReady = bReady && epoll_ctl(g_stRelay.iEpollFd, EPOLL_CTL_ADD, iFd, &stEvent) == 0;
    }
    if (!bReady) {
        (void)SNMP_NotifyRelayClose(0);
        return -1;
    }
    g_stRelay.bLost = false;
    g_stRelay.bHolding.store(true);
    return g_stRelay.iEpollFd;
}

uint32_t SNMP_NotifyRelayProc(uint32_t* puiHeld) {
    if (g_stRelay.iEpollFd < 0) {
        *puiHeld = 0;
        return SNMP_RELAY_UNCHANGED;
    }
    RelayDrainFd(g_stRelay.iWakeFd);
    RelayDrainFd(g_stRelay.iRetryFd);
    RelayWatchRoom(false);
    bool bWasLost = g_stRelay.bLost;
    HeldDatagram stFront;
    uint32_t uiSent = 0;
    RelaySend eLast = RelaySend::SENT;
    while (uiSent < RELAY_SENDS_PER_ROUND && RelayFront(&stFront)) {
        eLast = RelaySendOne(stFront);
        if (eLast != RelaySend::SENT) {
            break;
        }
        (void)RelayPop();
        ++uiSent;
    }
    if (eLast == RelaySend::FULL) {
        RelayWatchRoom(true);
    } else if (eLast == RelaySend::ABSENT) {
        RelayArmTimer(RELAY_RETRY_MS);
    }
    *puiHeld = RelayHeld();
    if (eLast == RelaySend::SENT && *puiHeld != 0) {
        RelayArmTimer(RELAY_PACE_MS);  // the rest in the next round
    }
    g_stRelay.bLost = eLast == RelaySend::ABSENT;
    if (g_stRelay.bLost != bWasLost) {
        return g_stRelay.bLost ? SNMP_RELAY_LOST : SNMP_RELAY_BACK;
    }
    return SNMP_RELAY_UNCHANGED;
}

uint32_t SNMP_NotifyRelayClose(int iWaitMs) {
    g_stRelay.bHolding.store(false);
    timespec stNow;
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    int64_t llEnd = stNow.tv_sec * 1000LL + stNow.tv_nsec / 1000000 + iWaitMs;
    uint32_t uiHeld = RelayHeld();
    while (uiHeld != 0 && g_stRelay.iEpollFd >= 0) {
        (void)SNMP_NotifyRelayProc(&uiHeld);
        clock_gettime(CLOCK_MONOTONIC, &stNow);
        int64_t llLeft = llEnd - (stNow.tv_sec * 1000LL + stNow.tv_nsec / 1000000);
        if (uiHeld == 0 || llLeft <= 0) {
            break;
        }
        pollfd stPoll{g_stRelay.iEpollFd, POLLIN, 0};
        (void)poll(&stPoll, 1, static_cast<int>(llLeft));
    }
    uint32_t uiDropped = 0;
    while (RelayHeld() != 0) {
        (void)RelayPop();
        ++uiDropped;
    }
    RelayCloseSocket();
    for (int* piFd : {&g_stRelay.iWakeFd, &g_stRelay.iRetryFd, &g_stRelay.iEpollFd}) {
        if (*piFd >= 0) {
            close(*piFd);
            *piFd = -1;
        }
    }
    g_stRelay.bLost = false;
    return uiDropped;
}

uint32_t SNMP_SendTrapByVBList(const MTE_OID_S* pstNotification, const char* pszContext,
                               const MTE_VB_LIST_S* pstList) {
    if (pstNotification == nullptr || pstNotification->uiLen == 0 ||
        pstNotification->uiLen > MTE_OID_MAX_LEN) {
        return NOTIFY_ERR_ARG;
    }
    uint32_t uiCount = 0;
    for (const MTE_VB_S* pstVb = pstList != nullptr ? pstList->pstHead : nullptr; pstVb != nullptr;
         pstVb = pstVb->pstNext) {
        if (pstVb->stOID.uiLen == 0 || pstVb->stOID.uiLen > MTE_OID_MAX_LEN || ++uiCount > 0xFFFF) {
            return NOTIFY_ERR_ARG;
        }
    }
    auto* pstOut = static_cast<NDG_WRITER_S*>(malloc(sizeof(NDG_WRITER_S)));
    if (pstOut == nullptr) {
        return NOTIFY_ERR_NOMEM;
    }
    NDG_PutHeader(pstOut, pstNotification, pszContext, static_cast<uint16_t>(uiCount));
    for (const MTE_VB_S* pstVb = pstList != nullptr ? pstList->pstHead : nullptr; pstVb != nullptr;
         pstVb = pstVb->pstNext) {
        // A binding whose value could not be fetched goes as NULL.
        const SNMP_VALUE_S* pstValue = pstVb->pValue;
        if (pstValue == nullptr || (pstValue->pData == nullptr && pstValue->uiLen != 0)) {
            NDG_PutVar(pstOut, pstVb->stOID.auiOid, pstVb->stOID.uiLen, SNMP_VTYPE_NULL, nullptr,
                       0);
        } else {
            NDG_PutVar(pstOut, pstVb->stOID.auiOid, pstVb->stOID.uiLen, pstValue->uiType,
                       pstValue->pData, pstValue->uiLen);
        }
    }
    uint32_t uiSt = SendDatagram(pstOut);
    free(pstOut);
    return uiSt;
}

// One GET for the value and the discontinuity indicators of a delta trigger:
// the agent answers each binding on its own, so one missing object does not
// hide the others.
void SNMP_GetInstanceValues(const char* pszOwner, const char* pszContext, uint32_t uiCount,
                            const MTE_OID_S* astOids, SNMP_VALUE_S** apstValues,
                            uint32_t* auiStatus) {
    auto fail = [&](uint32_t uiSt) {
        for (uint32_t i = 0; i < uiCount; i++) {
            auiStatus[i] = uiSt;
        }
    };
    for (uint32_t i = 0; i < uiCount; i++) {
        apstValues[i] = nullptr;
    }
    if (uiCount == 0 || uiCount > SNMP_GET_MANY_MAX || astOids == nullptr) {
        fail(SNMP_ST_CLIENT_ERROR);
        return;
    }
    oid aaulOid[SNMP_GET_MANY_MAX][MTE_OID_MAX_LEN];
    size_t aulLen[SNMP_GET_MANY_MAX] = {};
    for (uint32_t i = 0; i < uiCount; i++) {
        if (!OidToNetsnmp(&astOids[i], aaulOid[i], &aulLen[i])) {
            fail(SNMP_ST_CLIENT_ERROR);
            return;
        }
    }
    std::lock_guard<std::mutex> stGuard(g_stClientLock);
    uint32_t uiSt = CheckContext(pszContext);
    if (uiSt == SNMP_ST_OK) {
        uiSt = EnsureSession();
    }
    netsnmp_pdu* pstPdu = uiSt == SNMP_ST_OK ? snmp_pdu_create(SNMP_MSG_GET) : nullptr;
    if (uiSt == SNMP_ST_OK && pstPdu == nullptr) {
        uiSt = SNMP_ST_LOCAL_RESOURCE;
    }
    if (uiSt != SNMP_ST_OK) {
        fail(uiSt);
        return;
    }
    for (uint32_t i = 0; i < uiCount; i++) {
        snmp_add_null_var(pstPdu, aaulOid[i], aulLen[i]);
    }
    netsnmp_pdu* pstResponse = nullptr;
    uiSt = Exchange(pstPdu, pszContext, &pstResponse);
    if (uiSt != SNMP_ST_OK) {
        fail(uiSt);
        return;
    }
    netsnmp_variable_list* pstVar = pstResponse->variables;
    for (uint32_t i = 0; i < uiCount;
         i++, pstVar = pstVar != nullptr ? pstVar->next_variable : nullptr) {
        auiStatus[i] = pstVar == nullptr ? SNMP_ST_GEN_ERR : VarException(pstVar);
        if (auiStatus[i] == SNMP_ST_OK) {
            apstValues[i] = ValueFromVar(pstVar, &auiStatus[i]);
        }
    }
    snmp_free_pdu(pstResponse);
}
