// The test agent's table and its control commands. Rows live in one map per
// context, sorted by index, so get-next walks them in SNMP order (column by
// column, then index). A raw handler serves GET, GETNEXT and the SET phases;
// a set keeps the old value of each binding until the set is over so that a
// failure in any binding rolls back all of them. Main thread only (net-snmp's
// loop and the control socket run on it); no locks.
#include "testagent_table.h"

#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <vector>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace {

// enterprises.99999.1.1.1: the entry of the test table.
constexpr oid TA_ENTRY_OID[] = {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1};
constexpr size_t TA_ENTRY_LEN = OID_LENGTH(TA_ENTRY_OID);
constexpr uint32_t TA_COL_INTEGER = 1;
constexpr uint32_t TA_COL_GAUGE = 2;
constexpr uint32_t TA_COL_STRING = 3;
constexpr uint32_t TA_COL_TICKS = 4;
constexpr uint32_t TA_COL_LAST = TA_COL_TICKS;
constexpr size_t TA_STRING_MAX = 255;
constexpr const char* TA_OLD_VALUE = "mteTestOldValue";

struct Row {
    int32_t iInteger;
    uint32_t uiGauge;
    std::string strText;
    uint32_t uiTicks;
};

struct Context {
    std::map<uint32_t, Row> mapRows;
};

std::map<std::string, Context> g_mapContexts;
bool g_bConnected = false;

Context* FindContext(const char* pszContext) {
    auto it = g_mapContexts.find(pszContext != nullptr ? pszContext : "");
    return it == g_mapContexts.end() ? nullptr : &it->second;
}

// Splits an instance OID of the table into column and index; false if it is
// not exactly entry.column.index.
bool SplitInstance(const oid* pulName, size_t uiLen, uint32_t* puiCol, uint32_t* puiIndex) {
    if (uiLen != TA_ENTRY_LEN + 2 ||
        snmp_oid_compare(pulName, TA_ENTRY_LEN, TA_ENTRY_OID, TA_ENTRY_LEN) != 0) {
        return false;
    }
    *puiCol = static_cast<uint32_t>(pulName[TA_ENTRY_LEN]);
    *puiIndex = static_cast<uint32_t>(pulName[TA_ENTRY_LEN + 1]);
    return true;
}

void SetValue(netsnmp_variable_list* pstVar, uint32_t uiCol, const Row& stRow) {
    if (uiCol == TA_COL_INTEGER) {
        long lValue = stRow.iInteger;
        snmp_set_var_typed_value(pstVar, ASN_INTEGER, &lValue, sizeof(lValue));
    } else if (uiCol == TA_COL_GAUGE) {
        u_long ulValue = stRow.uiGauge;
        snmp_set_var_typed_value(pstVar, ASN_GAUGE, &ulValue, sizeof(ulValue));
    } else if (uiCol == TA_COL_TICKS) {
        u_long ulValue = stRow.uiTicks;
        snmp_set_var_typed_value(pstVar, ASN_TIMETICKS, &ulValue, sizeof(ulValue));
    } else {
        snmp_set_var_typed_value(pstVar, ASN_OCTET_STR, stRow.strText.data(), stRow.strText.size());
    }
}

void HandleGet(Context* pstCtx, netsnmp_agent_request_info* pstReqInfo,
               netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVar = pstRequest->requestvb;
    uint32_t uiCol = 0;
    uint32_t uiIndex = 0;
    bool bInstance = SplitInstance(pstVar->name, pstVar->name_length, &uiCol, &uiIndex);
    if (pstVar->name_length <= TA_ENTRY_LEN || pstVar->name[TA_ENTRY_LEN] < TA_COL_INTEGER ||
        pstVar->name[TA_ENTRY_LEN] > TA_COL_LAST) {
        netsnmp_set_request_error(pstReqInfo, pstRequest, SNMP_NOSUCHOBJECT);
        return;
    }
    auto it = bInstance ? pstCtx->mapRows.find(uiIndex) : pstCtx->mapRows.end();
    if (it == pstCtx->mapRows.end()) {
        netsnmp_set_request_error(pstReqInfo, pstRequest, SNMP_NOSUCHINSTANCE);
        return;
    }
    SetValue(pstVar, uiCol, it->second);
}

// The first instance after the requested name (or at it, when inclusive);
// nothing when the table has no more, so the agent moves on.
void HandleGetNext(Context* pstCtx, netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVar = pstRequest->requestvb;
    oid aulCandidate[TA_ENTRY_LEN + 2];
    memcpy(aulCandidate, TA_ENTRY_OID, sizeof(TA_ENTRY_OID));
    for (uint32_t uiCol = TA_COL_INTEGER; uiCol <= TA_COL_LAST; uiCol++) {
        aulCandidate[TA_ENTRY_LEN] = uiCol;
        for (const auto& [uiIndex, stRow] : pstCtx->mapRows) {
            aulCandidate[TA_ENTRY_LEN + 1] = uiIndex;
            int iCmp =
                snmp_oid_compare(aulCandidate, TA_ENTRY_LEN + 2, pstVar->name, pstVar->name_length);
            if (iCmp > 0 || (iCmp == 0 && pstRequest->inclusive)) {
                snmp_set_var_objid(pstVar, aulCandidate, TA_ENTRY_LEN + 2);
                SetValue(pstVar, uiCol, stRow);
                return;
            }
        }
    }
}

// RESERVE1: the checks of a set, in the order SNMP gives them: a column that
// can never be written, then the type, then an instance that does not exist.
int CheckSet(Context* pstCtx, netsnmp_variable_list* pstVar) {
    uint32_t uiCol = 0;
    uint32_t uiIndex = 0;
    if (!SplitInstance(pstVar->name, pstVar->name_length, &uiCol, &uiIndex) ||
        uiCol != TA_COL_INTEGER) {
        return SNMP_ERR_NOTWRITABLE;
    }
    if (pstVar->type != ASN_INTEGER) {
        return SNMP_ERR_WRONGTYPE;
    }
    if (pstCtx->mapRows.find(uiIndex) == pstCtx->mapRows.end()) {
        return SNMP_ERR_NOCREATION;
    }
    return SNMP_ERR_NOERROR;
}

Row* RowOfInstance(Context* pstCtx, netsnmp_variable_list* pstVar) {
    uint32_t uiCol = 0;
    uint32_t uiIndex = 0;
    if (!SplitInstance(pstVar->name, pstVar->name_length, &uiCol, &uiIndex)) {
        return nullptr;
    }
    auto it = pstCtx->mapRows.find(uiIndex);
    return it == pstCtx->mapRows.end() ? nullptr : &it->second;
}

void HandleSet(Context* pstCtx, netsnmp_agent_request_info* pstReqInfo,
               netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVar = pstRequest->requestvb;
    switch (pstReqInfo->mode) {
        case MODE_SET_RESERVE1: {
            int iErr = CheckSet(pstCtx, pstVar);
            if (iErr != SNMP_ERR_NOERROR) {
                netsnmp_set_request_error(pstReqInfo, pstRequest, iErr);
            }
            break;
        }
        case MODE_SET_ACTION: {
            // The row may have been removed by a control command between phases.
            Row* pstRow = RowOfInstance(pstCtx, pstVar);
            if (pstRow == nullptr) {
                netsnmp_set_request_error(pstReqInfo, pstRequest, SNMP_ERR_COMMITFAILED);
                break;
            }
            auto* piOld = static_cast<int32_t*>(malloc(sizeof(int32_t)));
            if (piOld == nullptr) {
                netsnmp_set_request_error(pstReqInfo, pstRequest, SNMP_ERR_RESOURCEUNAVAILABLE);
                break;
            }
            *piOld = pstRow->iInteger;
            netsnmp_request_add_list_data(pstRequest,
                                          netsnmp_create_data_list(TA_OLD_VALUE, piOld, free));
            pstRow->iInteger = static_cast<int32_t>(*pstVar->val.integer);
            break;
        }
        case MODE_SET_UNDO: {
            auto* piOld =
                static_cast<int32_t*>(netsnmp_request_get_list_data(pstRequest, TA_OLD_VALUE));
            Row* pstRow = RowOfInstance(pstCtx, pstVar);
            if (piOld != nullptr && pstRow != nullptr) {
                pstRow->iInteger = *piOld;
            }
            break;
        }
        default:  // RESERVE2, COMMIT, FREE: nothing held, nothing to release
            break;
    }
}

int TableHandler(netsnmp_mib_handler* pstHandler, netsnmp_handler_registration* pstReg,
                 netsnmp_agent_request_info* pstReqInfo, netsnmp_request_info* pstRequests) {
    Context* pstCtx = FindContext(pstReg->contextName);
    for (netsnmp_request_info* pstRequest = pstRequests; pstRequest != nullptr;
         pstRequest = pstRequest->next) {
        if (pstRequest->processed) {
            continue;
        }
        if (pstCtx == nullptr) {
            netsnmp_set_request_error(pstReqInfo, pstRequest, SNMP_NOSUCHOBJECT);
            continue;
        }
        switch (pstReqInfo->mode) {
            case MODE_GET:
                HandleGet(pstCtx, pstReqInfo, pstRequest);
                break;
            case MODE_GETNEXT:
                HandleGetNext(pstCtx, pstRequest);
                break;
            default:
                HandleSet(pstCtx, pstReqInfo, pstRequest);
                break;
        }
    }
    return SNMP_ERR_NOERROR;
}

// ---------------------------------------------------------------------------
// Control commands.
// ---------------------------------------------------------------------------

std::vector<std::string> Words(const std::string& strLine, size_t uiMax) {
    std::vector<std::string> astrWords;
    size_t uiPos = 0;
    while (uiPos < strLine.size() && astrWords.size() + 1 < uiMax) {
        size_t uiStart = strLine.find_first_not_of(" \t\r\n", uiPos);
        if (uiStart == std::string::npos) {
            return astrWords;
        }
        size_t uiEnd = strLine.find_first_of(" \t\r\n", uiStart);
        astrWords.push_back(strLine.substr(uiStart, uiEnd - uiStart));
        uiPos = uiEnd == std::string::npos ? strLine.size() : uiEnd + 1;
    }
    if (uiPos < strLine.size()) {  // the last word is the rest of the line
        std::string strRest = strLine.substr(uiPos);
        while (!strRest.empty() && (strRest.back() == '\n' || strRest.back() == '\r')) {
            strRest.pop_back();
        }
        astrWords.push_back(strRest);
    }
    return astrWords;
}

bool ParseInt64(const std::string& str, int64_t llMin, int64_t llMax, int64_t* pllOut) {
    if (str.empty()) {
        return false;
    }
    char* pszEnd = nullptr;
    errno = 0;
    long long llValue = strtoll(str.c_str(), &pszEnd, 10);
    if (errno != 0 || *pszEnd != '\0' || llValue < llMin || llValue > llMax) {
        return false;
    }
    *pllOut = llValue;
    return true;
}

// "-" names the default context.
std::string ContextName(const std::string& strWord) {
    return strWord == "-" ? std::string() : strWord;
}

bool ParseColumn(const std::string& strWord, uint32_t* puiCol) {
    static const std::pair<const char*, uint32_t> s_astNames[] = {
        {"int", TA_COL_INTEGER}, {"1", TA_COL_INTEGER},     {"gauge", TA_COL_GAUGE},
        {"2", TA_COL_GAUGE},     {"string", TA_COL_STRING}, {"3", TA_COL_STRING},
        {"ticks", TA_COL_TICKS}, {"4", TA_COL_TICKS},
    };
    for (const auto& [pszName, uiCol] : s_astNames) {
        if (strWord == pszName) {
            *puiCol = uiCol;
            return true;
        }
    }
    return false;
}

std::string SetColumn(Row* pstRow, uint32_t uiCol, const std::string& strValue) {
    int64_t llValue = 0;
    if (uiCol == TA_COL_INTEGER) {
        if (!ParseInt64(strValue, INT32_MIN, INT32_MAX, &llValue)) {
            return "error integer value out of range: " + strValue;
        }
        pstRow->iInteger = static_cast<int32_t>(llValue);
    } else if (uiCol == TA_COL_GAUGE) {
        if (!ParseInt64(strValue, 0, UINT32_MAX, &llValue)) {
            return "error gauge value out of range: " + strValue;
        }
        pstRow->uiGauge = static_cast<uint32_t>(llValue);
    } else if (uiCol == TA_COL_TICKS) {
        if (!ParseInt64(strValue, 0, UINT32_MAX, &llValue)) {
            return "error ticks value out of range: " + strValue;
        }
        pstRow->uiTicks = static_cast<uint32_t>(llValue);
    } else {
        if (strValue.size() > TA_STRING_MAX) {
            return "error string longer than 255 bytes";
        }
        pstRow->strText = strValue;
    }
    return "ok";
}

std::string ColumnText(const Row& stRow, uint32_t uiCol) {
    if (uiCol == TA_COL_INTEGER) {
        return std::to_string(stRow.iInteger);
    }
    if (uiCol == TA_COL_GAUGE) {
        return std::to_string(stRow.uiGauge);
    }
    if (uiCol == TA_COL_TICKS) {
        return std::to_string(stRow.uiTicks);
    }
    return stRow.strText;
}

// add CTX INDEX [INT [GAUGE [STRING...]]]
std::string CmdAdd(const std::vector<std::string>& astrArgs) {
    Context* pstCtx = FindContext(ContextName(astrArgs[1]).c_str());
    int64_t llIndex = 0;
    if (pstCtx == nullptr) {
        return "error unknown context " + astrArgs[1];
    }
    if (!ParseInt64(astrArgs[2], 1, INT32_MAX, &llIndex)) {
        return "error index must be 1 to 2147483647";
    }
    if (pstCtx->mapRows.count(static_cast<uint32_t>(llIndex)) != 0) {
        return "error row exists";
    }
    Row stRow = {0, 0, "", 0};
    for (size_t i = 3; i < astrArgs.size(); i++) {
        std::string strReply = SetColumn(&stRow, static_cast<uint32_t>(i - 2), astrArgs[i]);
        if (strReply != "ok") {
            return strReply;
        }
    }
    pstCtx->mapRows[static_cast<uint32_t>(llIndex)] = stRow;
    return "ok";
}

// set CTX INDEX COLUMN VALUE / get CTX INDEX COLUMN / del CTX INDEX /
// reset CTX INDEX TICKS
std::string CmdRow(const std::vector<std::string>& astrArgs) {
    const std::string& strVerb = astrArgs[0];
    Context* pstCtx = FindContext(ContextName(astrArgs[1]).c_str());
    int64_t llIndex = 0;
    if (pstCtx == nullptr) {
        return "error unknown context " + astrArgs[1];
    }
    if (!ParseInt64(astrArgs[2], 1, INT32_MAX, &llIndex)) {
        return "error index must be 1 to 2147483647";
    }
    auto it = pstCtx->mapRows.find(static_cast<uint32_t>(llIndex));
    if (it == pstCtx->mapRows.end()) {
        return "error no such row";
    }
    if (strVerb == "del") {
        pstCtx->mapRows.erase(it);
        return "ok";
    }
    if (strVerb == "reset") {
        // A counter reset as a device shows it: the value and its
        // discontinuity time change in one step, so no reader sees one
        // without the other.
        int64_t llTicks = 0;
        if (!ParseInt64(astrArgs[3], 0, UINT32_MAX, &llTicks)) {
            return "error ticks value out of range: " + astrArgs[3];
        }
        it->second.iInteger = 0;
        it->second.uiTicks = static_cast<uint32_t>(llTicks);
        return "ok";
    }
    uint32_t uiCol = 0;
    if (astrArgs.size() < 4 || !ParseColumn(astrArgs[3], &uiCol)) {
        return "error column must be int, gauge, string or ticks";
    }
    if (strVerb == "get") {
        return "ok " + ColumnText(it->second, uiCol);
    }
    if (astrArgs.size() < 5) {
        return "error set wants a value";
    }
    return SetColumn(&it->second, uiCol, astrArgs[4]);
}

}  // namespace

bool TA_RegisterContext(const std::string& strContext, std::string* pstrError) {
    if (g_mapContexts.count(strContext) != 0) {
        *pstrError = "context already registered";
        return false;
    }
    netsnmp_handler_registration* pstReg = netsnmp_create_handler_registration(
        "mteTestTable", TableHandler, TA_ENTRY_OID, TA_ENTRY_LEN, HANDLER_CAN_RWRITE);
    if (pstReg == nullptr) {
        *pstrError = "out of memory";
        return false;
    }
    if (!strContext.empty()) {
        pstReg->contextName = strdup(strContext.c_str());
    }
    g_mapContexts[strContext];
    if (netsnmp_register_handler(pstReg) != MIB_REGISTERED_OK) {
        // netsnmp_register_handler releases the registration on failure.
        g_mapContexts.erase(strContext);
        *pstrError = "registration refused";
        return false;
    }
    return true;
}

void TA_SetConnected(bool bConnected) {
    g_bConnected = bConnected;
}

void TA_RunCommand(const std::string& strCommand, std::string* pstrReply) {
    std::vector<std::string> astrArgs = Words(strCommand, 4);
    const std::string strVerb = astrArgs.empty() ? "" : astrArgs[0];
    if (strVerb == "set") {
        astrArgs = Words(strCommand, 5);  // the value is the rest of the line
    } else if (strVerb == "add") {
        astrArgs = Words(strCommand, 6);
    } else {
        astrArgs = Words(strCommand, 64);
    }
    std::string strReply;
    if (strVerb == "ping") {
        strReply = g_bConnected ? "ok connected" : "ok disconnected";
    } else if (strVerb == "context" && astrArgs.size() == 2) {
        std::string strError;
        strReply =
            TA_RegisterContext(ContextName(astrArgs[1]), &strError) ? "ok" : "error " + strError;
    } else if (strVerb == "clear" && astrArgs.size() == 2) {
        Context* pstCtx = FindContext(ContextName(astrArgs[1]).c_str());
        if (pstCtx != nullptr) {
            pstCtx->mapRows.clear();
        }
        strReply = pstCtx != nullptr ? "ok" : "error unknown context " + astrArgs[1];
    } else if (strVerb == "add" && astrArgs.size() >= 3) {
        strReply = CmdAdd(astrArgs);
    } else if ((strVerb == "del" && astrArgs.size() == 3) ||
               (strVerb == "get" && astrArgs.size() == 4) ||
               (strVerb == "reset" && astrArgs.size() == 4) ||
               (strVerb == "set" && astrArgs.size() == 5)) {
        strReply = CmdRow(astrArgs);
    } else {
        strReply = "error unknown command (ping, context, add, del, set, get, reset, clear)";
    }
    *pstrReply = strReply;
}
