// The reference of the bridge's benchmark: a plain AgentX subagent of net-snmp
// serving, from a sorted array in memory, a table as large as the trigger
// table (ROWS rows of 13 columns, indexed like mteTriggerTable: an owner as a
// length-prefixed string, then an implied name) under net-snmp's playpen
// subtree 1.3.6.1.4.1.8072.9999.1. One raw handler, binary search for GET and
// GETNEXT: what any subagent pays per varbind, without the bridge's exchange
// with eventmibd.
//   ref_subagent -x AGENTX_SOCKET -n ROWS
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const oid kTableEntry[] = {1, 3, 6, 1, 4, 1, 8072, 9999, 1, 1, 1};
constexpr size_t kEntryLen = sizeof(kTableEntry) / sizeof(oid);
constexpr oid kColumns = 13;

struct Row {
    std::vector<oid> aoidIndex;
    std::string strComment;
};
std::vector<Row> g_astRows;  // sorted by index
volatile sig_atomic_t g_bStop = 0;

void OnStop(int) {
    g_bStop = 1;
}

std::vector<oid> IndexOf(const std::string& strOwner, const std::string& strName) {
    std::vector<oid> aoid{strOwner.size()};
    aoid.insert(aoid.end(), strOwner.begin(), strOwner.end());
    aoid.insert(aoid.end(), strName.begin(), strName.end());
    return aoid;
}

bool IndexLess(const std::vector<oid>& aoidA, const oid* poidB, size_t uiLenB) {
    return snmp_oid_compare(aoidA.data(), aoidA.size(), poidB, uiLenB) < 0;
}

void SetValue(netsnmp_variable_list* pstVb, oid uiColumn, const Row& stRow) {
    if (uiColumn % 2 == 1) {
        snmp_set_var_typed_value(pstVb, ASN_OCTET_STR, stRow.strComment.data(),
                                 stRow.strComment.size());
    } else {
        long lValue = static_cast<long>(uiColumn);
        snmp_set_var_typed_value(pstVb, ASN_INTEGER, &lValue, sizeof(lValue));
    }
}

void SetName(netsnmp_variable_list* pstVb, oid uiColumn, const Row& stRow) {
    oid aoid[MAX_OID_LEN];
    memcpy(aoid, kTableEntry, sizeof(kTableEntry));
    aoid[kEntryLen] = uiColumn;
    std::copy(stRow.aoidIndex.begin(), stRow.aoidIndex.end(), aoid + kEntryLen + 1);
    snmp_set_var_objid(pstVb, aoid, kEntryLen + 1 + stRow.aoidIndex.size());
}

// The first row whose index follows the suffix (or equals it when inclusive).
const Row* RowAfter(const oid* poidSuffix, size_t uiLen, bool bInclusive) {
    auto it = std::lower_bound(g_astRows.begin(), g_astRows.end(), 0, [&](const Row& stRow, int) {
        int iCmp =
            snmp_oid_compare(stRow.aoidIndex.data(), stRow.aoidIndex.size(), poidSuffix, uiLen);
        return bInclusive ? iCmp < 0 : iCmp <= 0;
    });
    return it == g_astRows.end() ? nullptr : &*it;
}

void GetNext(netsnmp_request_info* pstReq) {
    netsnmp_variable_list* pstVb = pstReq->requestvb;
    oid uiColumn = 1;
    const oid* poidSuffix = nullptr;
    size_t uiSuffixLen = 0;
    bool bInclusive = pstReq->inclusive != 0;
    if (snmp_oid_compare(pstVb->name, pstVb->name_length, kTableEntry, kEntryLen) > 0) {
        if (pstVb->name_length > kEntryLen &&
            netsnmp_oid_is_subtree(kTableEntry, kEntryLen, pstVb->name, pstVb->name_length) == 0) {
            uiColumn = std::max<oid>(pstVb->name[kEntryLen], 1);
            if (pstVb->name[kEntryLen] >= 1) {
                poidSuffix = pstVb->name + kEntryLen + 1;
                uiSuffixLen = pstVb->name_length - kEntryLen - 1;
            }
        } else {
            return;  // past the table
        }
    }
    for (; uiColumn <= kColumns; ++uiColumn, poidSuffix = nullptr, uiSuffixLen = 0) {
        const Row* pstRow = poidSuffix == nullptr ? (g_astRows.empty() ? nullptr : &g_astRows[0])
                                                  : RowAfter(poidSuffix, uiSuffixLen, bInclusive);
        if (pstRow != nullptr) {
            SetName(pstVb, uiColumn, *pstRow);
            SetValue(pstVb, uiColumn, *pstRow);
            return;
        }
    }
}

void Get(netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstReq) {
    netsnmp_variable_list* pstVb = pstReq->requestvb;
    if (pstVb->name_length <= kEntryLen + 1 ||
        netsnmp_oid_is_subtree(kTableEntry, kEntryLen, pstVb->name, pstVb->name_length) != 0 ||
        pstVb->name[kEntryLen] < 1 || pstVb->name[kEntryLen] > kColumns) {
        netsnmp_set_request_error(pstInfo, pstReq, SNMP_NOSUCHOBJECT);
        return;
    }
    const Row* pstRow =
        RowAfter(pstVb->name + kEntryLen + 1, pstVb->name_length - kEntryLen - 1, true);
    if (pstRow == nullptr ||
        snmp_oid_compare(pstRow->aoidIndex.data(), pstRow->aoidIndex.size(),
                         pstVb->name + kEntryLen + 1, pstVb->name_length - kEntryLen - 1) != 0) {
        netsnmp_set_request_error(pstInfo, pstReq, SNMP_NOSUCHINSTANCE);
        return;
    }
    SetValue(pstVb, pstVb->name[kEntryLen], *pstRow);
}

int Handler(netsnmp_mib_handler*, netsnmp_handler_registration*,
            netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstRequests) {
    for (netsnmp_request_info* pstReq = pstRequests; pstReq != nullptr; pstReq = pstReq->next) {
        if (pstReq->processed) {
            continue;
        }
        if (pstInfo->mode == MODE_GET) {
            Get(pstInfo, pstReq);
        } else if (pstInfo->mode == MODE_GETNEXT) {
            GetNext(pstReq);
        }
    }
    return SNMP_ERR_NOERROR;
}

}  // namespace

int main(int iArgc, char** ppszArgv) {
    const char* pszSocket = nullptr;
    long lRows = 1000;
    for (int iOpt; (iOpt = getopt(iArgc, ppszArgv, "x:n:")) != -1;) {
        if (iOpt == 'x') {
            pszSocket = optarg;
        } else if (iOpt == 'n') {
            lRows = strtol(optarg, nullptr, 10);
        } else {
            fprintf(stderr, "usage: ref_subagent -x AGENTX_SOCKET -n ROWS\n");
            return 2;
        }
    }
    // The same owners and names as the benchmark's triggers.
    for (long i = 0; i < lRows; ++i) {
        Row stRow{IndexOf("owner" + std::to_string(i % 7), "trigger" + std::to_string(i)),
                  "comment of row " + std::to_string(i)};
        g_astRows.push_back(std::move(stRow));
    }
    std::sort(g_astRows.begin(), g_astRows.end(), [](const Row& stA, const Row& stB) {
        return IndexLess(stA.aoidIndex, stB.aoidIndex.data(), stB.aoidIndex.size());
    });
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    if (pszSocket != nullptr) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, pszSocket);
    }
    init_agent("ref_subagent");
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
    netsnmp_handler_registration* pstReg = netsnmp_create_handler_registration(
        "refTable", Handler, kTableEntry, kEntryLen - 2, HANDLER_CAN_RONLY);
    if (pstReg == nullptr || netsnmp_register_handler(pstReg) != MIB_REGISTERED_OK) {
        fprintf(stderr, "ref_subagent: registration refused\n");
        return 1;
    }
    init_snmp("ref_subagent");
    signal(SIGTERM, OnStop);
    signal(SIGINT, OnStop);
    while (!g_bStop) {
        agent_check_and_process(1);
    }
    snmp_shutdown("ref_subagent");
    return 0;
}
