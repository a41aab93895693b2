// mte-testagent: an AgentX subagent for tests. It serves the table
// 1.3.6.1.4.1.99999.1.1.1.<column>.<index> (1 Integer32 read-write, 2
// Gauge32, 3 OCTET STRING, 4 TimeTicks) in the default context and in each
// -n context, with rows and values that the test changes at run time through
// a control socket. With -C it is the control client instead: it sends one
// command and prints the reply.
//
// One thread: net-snmp's agent_check_and_process loop, with the control
// socket registered as one more read descriptor. No locks.
#include <errno.h>
#include <getopt.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <array>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>

#include "plat_unixsock.h"
#include "testagent_ctl.h"

namespace {

constexpr const char* TA_APP_NAME = "mte-testagent";
constexpr oid TA_ENTRY_OID[] = {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1};
constexpr size_t TA_ENTRY_LEN = OID_LENGTH(TA_ENTRY_OID);
enum Column : uint32_t { COL_INTEGER = 1, COL_GAUGE, COL_STRING, COL_TICKS };
const std::string COLUMN_NAMES[] = {"int", "gauge", "string", "ticks"};

// A row's values by column - 1, as text; numbers are checked when written.
using Row = std::array<std::string, 4>;
const Row NEW_ROW = {"0", "0", "", "0"};
using Rows = std::map<uint32_t, Row>;  // by index: get-next walks them in order

std::map<std::string, Rows> g_mapContexts;
bool g_bConnected = false;
volatile sig_atomic_t g_iStop = 0;

void SetValue(netsnmp_variable_list* pstVar, uint32_t uiCol, const Row& astRow) {
    static const u_char s_aucTypes[] = {ASN_INTEGER, ASN_GAUGE, ASN_OCTET_STR, ASN_TIMETICKS};
    const std::string& strValue = astRow[uiCol - 1];
    long lValue = strtol(strValue.c_str(), nullptr, 10);  // Gauge32 and TimeTicks fit too
    if (uiCol == COL_STRING) {
        snmp_set_var_typed_value(pstVar, ASN_OCTET_STR, strValue.data(), strValue.size());
    } else {
        snmp_set_var_typed_value(pstVar, s_aucTypes[uiCol - 1], &lValue, sizeof(lValue));
    }
}

// The first instance after the requested name (or at it, when inclusive);
// nothing when the table has no more, so the agent moves on.
void GetNext(const Rows& mapRows, netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVar = pstRequest->requestvb;
    oid aulName[TA_ENTRY_LEN + 2];
    memcpy(aulName, TA_ENTRY_OID, sizeof(TA_ENTRY_OID));
    for (uint32_t uiCol = COL_INTEGER; uiCol <= COL_TICKS; uiCol++) {
        for (const auto& [uiIndex, stRow] : mapRows) {
            aulName[TA_ENTRY_LEN] = uiCol;
            aulName[TA_ENTRY_LEN + 1] = uiIndex;
            int iCmp =
                snmp_oid_compare(aulName, TA_ENTRY_LEN + 2, pstVar->name, pstVar->name_length);
            if (iCmp > 0 || (iCmp == 0 && pstRequest->inclusive)) {
                snmp_set_var_objid(pstVar, aulName, TA_ENTRY_LEN + 2);
                SetValue(pstVar, uiCol, stRow);
                return;
            }
        }
    }
}

// The error of one binding, SNMP_ERR_NOERROR when it was served. A set is
// checked in RESERVE1, in the order SNMP gives the checks (a column that can
// never be written, the type, an instance that does not exist), and written
// in ACTION; the daemon sets one binding at a time, so nothing is undone.
int Serve(int iMode, Rows* pmapRows, netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVar = pstRequest->requestvb;
    bool bInstance = pstVar->name_length == TA_ENTRY_LEN + 2;
    uint32_t uiCol = pstVar->name_length > TA_ENTRY_LEN ? pstVar->name[TA_ENTRY_LEN] : 0;
    auto it = bInstance ? pmapRows->find(pstVar->name[TA_ENTRY_LEN + 1]) : pmapRows->end();
    bool bRow = it != pmapRows->end();
    switch (iMode) {
        case MODE_GET:
            if (uiCol < COL_INTEGER || uiCol > COL_TICKS) {
                return SNMP_NOSUCHOBJECT;
            }
            if (!bRow) {
                return SNMP_NOSUCHINSTANCE;
            }
            SetValue(pstVar, uiCol, it->second);
            return SNMP_ERR_NOERROR;
        case MODE_GETNEXT:
            GetNext(*pmapRows, pstRequest);
            return SNMP_ERR_NOERROR;
        case MODE_SET_RESERVE1:
            if (!bInstance || uiCol != COL_INTEGER) {
                return SNMP_ERR_NOTWRITABLE;
            }
            if (pstVar->type != ASN_INTEGER) {
                return SNMP_ERR_WRONGTYPE;
            }
            return bRow ? SNMP_ERR_NOERROR : SNMP_ERR_NOCREATION;
        case MODE_SET_ACTION:
            // The row may have been removed by a control command since RESERVE1.
            if (!bRow) {
                return SNMP_ERR_COMMITFAILED;
            }
            it->second[0] = std::to_string(static_cast<int32_t>(*pstVar->val.integer));
            return SNMP_ERR_NOERROR;
        default:
            return SNMP_ERR_NOERROR;
    }
}

int TableHandler(netsnmp_mib_handler* pstHandler, netsnmp_handler_registration* pstReg,
                 netsnmp_agent_request_info* pstReqInfo, netsnmp_request_info* pstRequests) {
    Rows* pmapRows = &g_mapContexts[pstReg->contextName != nullptr ? pstReg->contextName : ""];
    for (netsnmp_request_info* pstRequest = pstRequests; pstRequest != nullptr;
         pstRequest = pstRequest->next) {
        int iError = pstRequest->processed ? SNMP_ERR_NOERROR
                                           : Serve(pstReqInfo->mode, pmapRows, pstRequest);
        if (iError != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(pstReqInfo, pstRequest, iError);
        }
    }
    return SNMP_ERR_NOERROR;
}

bool RegisterContext(const std::string& strContext) {
    netsnmp_handler_registration* pstReg = netsnmp_create_handler_registration(
        "mteTestTable", TableHandler, TA_ENTRY_OID, TA_ENTRY_LEN, HANDLER_CAN_RWRITE);
    if (pstReg == nullptr) {
        return false;
    }
    if (!strContext.empty()) {
        pstReg->contextName = strdup(strContext.c_str());
    }
    g_mapContexts[strContext];
    // netsnmp_register_handler releases the registration on failure.
    return netsnmp_register_handler(pstReg) == MIB_REGISTERED_OK;
}

// ---- control commands

bool ParseNumber(const std::string& str, int64_t llMin, int64_t llMax, int64_t* pllOut) {
    char* pszEnd = nullptr;
    errno = 0;
    long long llValue = strtoll(str.c_str(), &pszEnd, 10);
    if (str.empty() || errno != 0 || *pszEnd != '\0' || llValue < llMin || llValue > llMax) {
        return false;
    }
    *pllOut = llValue;
    return true;
}

std::string SetColumn(Row* pastRow, uint32_t uiCol, const std::string& strValue) {
    int64_t llValue = 0;
    bool bInteger = uiCol == COL_INTEGER;
    if (uiCol == COL_STRING ? strValue.size() > 255
                            : !ParseNumber(strValue, bInteger ? INT32_MIN : 0,
                                           bInteger ? INT32_MAX : UINT32_MAX, &llValue)) {
        return "error " + COLUMN_NAMES[uiCol - 1] + " value out of range: " + strValue;
    }
    (*pastRow)[uiCol - 1] = uiCol == COL_STRING ? strValue : std::to_string(llValue);
    return "ok";
}

// One command, CTX "-" being the default context; the reply, "ok ..." or
// "error ...". ping | add CTX INDEX [INT [GAUGE [STRING]]] | del CTX INDEX |
// set CTX INDEX COLUMN VALUE | get CTX INDEX COLUMN | reset CTX INDEX TICKS
std::string RunCommand(const std::string& strCommand) {
    std::istringstream stIn(strCommand);
    std::vector<std::string> astrWords;
    for (std::string strWord; stIn >> strWord;) {
        astrWords.push_back(strWord);
    }
    // A string value is the rest of the line from word uiFirst.
    auto Rest = [&](size_t uiFirst) {
        std::string strRest;
        for (size_t i = uiFirst; i < astrWords.size(); i++) {
            strRest += (i > uiFirst ? " " : "") + astrWords[i];
        }
        return strRest;
    };
    const std::string strVerb = astrWords.empty() ? "" : astrWords[0];
    if (strVerb == "ping") {
        return g_bConnected ? "ok connected" : "ok disconnected";
    }
    int64_t llIndex = 0;
    if (astrWords.size() < 3 || !ParseNumber(astrWords[2], 1, INT32_MAX, &llIndex)) {
        return "error unknown command or index (ping, add, del, set, get, reset)";
    }
    auto itContext = g_mapContexts.find(astrWords[1] == "-" ? "" : astrWords[1]);
    if (itContext == g_mapContexts.end()) {
        return "error unknown context " + astrWords[1];
    }
    Rows& mapRows = itContext->second;
    if (strVerb == "add") {
        Row stRow = NEW_ROW;
        for (uint32_t uiCol = COL_INTEGER; uiCol <= COL_STRING && uiCol + 2 < astrWords.size();
             uiCol++) {
            std::string strReply = SetColumn(
                &stRow, uiCol, uiCol == COL_STRING ? Rest(uiCol + 2) : astrWords[uiCol + 2]);
            if (strReply != "ok") {
                return strReply;
            }
        }
        return mapRows.emplace(static_cast<uint32_t>(llIndex), stRow).second ? "ok"
                                                                             : "error row exists";
    }
    auto it = mapRows.find(static_cast<uint32_t>(llIndex));
    if (it == mapRows.end()) {
        return "error no such row";
    }
    uint32_t uiCol = 0;
    while (astrWords.size() > 3 && uiCol < 4 && COLUMN_NAMES[uiCol] != astrWords[3]) {
        uiCol++;
    }
    uiCol++;  // 1 to 4, 5 when the word names no column
    if (strVerb == "del" && astrWords.size() == 3) {
        mapRows.erase(it);
        return "ok";
    }
    if (strVerb == "reset" && astrWords.size() == 4) {
        // A counter reset as a device shows it: the value and its
        // discontinuity time change in one step, so no reader sees one
        // without the other.
        Row stReset = it->second;
        stReset[0] = "0";
        std::string strReply = SetColumn(&stReset, COL_TICKS, astrWords[3]);
        it->second = strReply == "ok" ? stReset : it->second;
        return strReply;
    }
    if (strVerb == "get" && astrWords.size() == 4 && uiCol <= COL_TICKS) {
        return "ok " + it->second[uiCol - 1];
    }
    if (strVerb == "set" && astrWords.size() >= 5 && uiCol <= COL_TICKS) {
        return SetColumn(&it->second, uiCol, Rest(4));
    }
    return "error unknown command (ping, add, del, set, get, reset)";
}

// One command per datagram; the reply goes back to the sender's address.
void OnControl(int iFd, void* pData) {
    for (int i = 0; i < 64; i++) {
        char acBuf[1024];
        sockaddr_un stFrom{};
        socklen_t uiFromLen = sizeof(stFrom);
        ssize_t lRead = recvfrom(iFd, acBuf, sizeof(acBuf) - 1, MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&stFrom), &uiFromLen);
        if (lRead < 0) {
            return;
        }
        std::string strReply = RunCommand(std::string(acBuf, static_cast<size_t>(lRead)));
        if (uiFromLen > sizeof(sa_family_t)) {
            (void)sendto(iFd, strReply.data(), strReply.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                         reinterpret_cast<sockaddr*>(&stFrom), uiFromLen);
        }
    }
}

int BindControl(const std::string& strPath) {
    sockaddr_un stAddr;
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    unlink(strPath.c_str());
    if (iFd < 0 || !PLAT_UnixAddress(strPath, &stAddr) ||
        bind(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        fprintf(stderr, "%s: control socket %s: %s\n", TA_APP_NAME, strPath.c_str(),
                strerror(errno));
        return -1;
    }
    chmod(strPath.c_str(), 0600);
    return iFd;
}

int Usage() {
    fprintf(stderr,
            "usage: %s -c CONTROL_SOCKET [-x MASTER_SOCKET] [-n CONTEXT]...\n"
            "       %s -C CONTROL_SOCKET COMMAND...\n",
            TA_APP_NAME, TA_APP_NAME);
    return 2;
}

int RunClient(const std::string& strSocket, int iArgc, char** ppszArgv) {
    std::string strCommand;
    for (int i = optind; i < iArgc; i++) {
        strCommand += (strCommand.empty() ? "" : " ") + std::string(ppszArgv[i]);
    }
    std::string strReply;
    if (!TESTAGENT_Command(strSocket, strCommand, &strReply)) {
        fprintf(stderr, "%s: %s\n", TA_APP_NAME, strReply.c_str());
        return 1;
    }
    printf("%s\n", strReply.c_str());
    return strReply.compare(0, 2, "ok") == 0 ? 0 : 1;
}

int OnIndexEvent(int iMajor, int iMinor, void* pServerArg, void* pClientArg) {
    g_bConnected = iMinor == SNMPD_CALLBACK_INDEX_START;
    return 0;
}

}  // namespace

int main(int iArgc, char** ppszArgv) {
    const char* pszMaster = nullptr;
    std::string strControl;
    std::string strClientSocket;
    std::vector<std::string> astrContexts = {""};
    for (int iOpt; (iOpt = getopt(iArgc, ppszArgv, "+c:C:x:n:")) != -1;) {
        switch (iOpt) {
            case 'c':
                strControl = optarg;
                break;
            case 'C':
                strClientSocket = optarg;
                break;
            case 'x':
                pszMaster = optarg;
                break;
            case 'n':
                astrContexts.push_back(optarg);
                break;
            default:
                return Usage();
        }
    }
    if (!strClientSocket.empty()) {
        return RunClient(strClientSocket, iArgc, ppszArgv);
    }
    if (strControl.empty() || optind != iArgc) {
        return Usage();
    }
    struct sigaction stAction {};
    stAction.sa_handler = [](int) { g_iStop = 1; };  // no SA_RESTART: select returns at once
    sigaction(SIGTERM, &stAction, nullptr);
    sigaction(SIGINT, &stAction, nullptr);
    signal(SIGPIPE, SIG_IGN);

    int iControl = BindControl(strControl);
    if (iControl < 0) {
        return 1;
    }
    snmp_enable_stderrlog();
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    if (pszMaster != nullptr) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, pszMaster);
    }
    for (int iEvent : {SNMPD_CALLBACK_INDEX_START, SNMPD_CALLBACK_INDEX_STOP}) {
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, iEvent, OnIndexEvent, nullptr);
    }
    init_agent(TA_APP_NAME);
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
    for (const std::string& strContext : astrContexts) {
        if (!RegisterContext(strContext)) {
            fprintf(stderr, "%s: cannot register context \"%s\"\n", TA_APP_NAME,
                    strContext.c_str());
            return 1;
        }
    }
    init_snmp(TA_APP_NAME);
    register_readfd(iControl, OnControl, nullptr);
    while (g_iStop == 0) {
        agent_check_and_process(1);
    }
    unregister_readfd(iControl);
    snmp_shutdown(TA_APP_NAME);
    close(iControl);
    unlink(strControl.c_str());
    return 0;
}
