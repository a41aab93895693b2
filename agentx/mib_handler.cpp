// The agent-side handler of RFC 2981's mteObjects subtree in eventmib-agentx.
// GET, GETNEXT (and GETBULK, which the agent library turns into GETNEXTs) and
// SET are answered by asking eventmibd over its management socket; of the
// configuration only the answers to recent get-nexts are kept here, for at
// most EMA_CACHE_FRESH_MS and dropped by any SET (mib_cache.h). A SET is
// checked in RESERVE1 (types, lengths, ranges, writability: nothing reaches the
// daemon) and applied in ACTION, one management set request per row; rows that
// ACTION created are destroyed again when the PDU fails (UNDO). Runs on the
// agent's one thread (net-snmp's main loop); no locks.
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "mib_bridge.h"
#include "mib_cache.h"
#include "mib_client.h"
#include "mib_map.h"

namespace {

constexpr uint16_t EMA_OP_SET = 1;
constexpr uint16_t EMA_OP_GET = 2;
constexpr uint16_t EMA_OP_GETNEXT = 3;
constexpr uint16_t EMA_MSG_SCALARS = 1;
constexpr uint16_t EMA_ITEM_SCALARS = 1;
constexpr size_t EMA_ROW_MAX = sizeof(MTE_TRIGGER_ROW_S);  // the largest row record
constexpr size_t EMA_SCALAR_WORDS = 7;
constexpr uint32_t EMA_WALK_STEPS_MAX = 100000;  // bound of a get-next that passes rows over
constexpr size_t EMA_TRANSACTIONS_MAX = 64;

// One object of the subtree in OID order: a scalar, or a column of a table.
struct EMA_LEAF_S {
    const EMA_SCALAR_S* pstScalar;
    const EMA_TABLE_S* pstTable;
    const EMA_COLUMN_S* pstColumn;
    oid aoid[4];  // scalar instance, or entry + column; relative to mteObjects
    size_t uiLen;
};
constexpr size_t EMA_LEAVES_MAX = 80;
EMA_LEAF_S g_astLeaves[EMA_LEAVES_MAX];
size_t g_uiLeafCount = 0;

netsnmp_handler_registration* g_pstRegistration = nullptr;

// Rows that the ACTION phase of a SET created, by transaction, so that an
// UNDO can destroy them.
struct EMA_CREATED_S {
    const EMA_TABLE_S* pstTable;
    EMA_INDEX_S stIndex;
};
std::map<long, std::vector<EMA_CREATED_S>> g_mapCreated;

enum : uint8_t { EMA_ROW_FOUND, EMA_ROW_NONE, EMA_ROW_TABLE_EMPTY, EMA_ROW_ERROR };

void ema_BuildLeaves(void) {
    g_uiLeafCount = 0;
    for (const auto& stScalar : g_astEmaScalars) {
        EMA_LEAF_S& stLeaf = g_astLeaves[g_uiLeafCount++];
        stLeaf = {};
        stLeaf.pstScalar = &stScalar;
        memcpy(stLeaf.aoid, stScalar.aoidInstance, stScalar.ucLen * sizeof(oid));
        stLeaf.uiLen = stScalar.ucLen;
    }
    for (const auto& stTable : g_astEmaTables) {
        for (uint32_t i = 0; i < stTable.uiColumnCount && g_uiLeafCount < EMA_LEAVES_MAX; ++i) {
            EMA_LEAF_S& stLeaf = g_astLeaves[g_uiLeafCount++];
            stLeaf = {};
            stLeaf.pstTable = &stTable;
            stLeaf.pstColumn = &stTable.pstColumns[i];
            memcpy(stLeaf.aoid, stTable.aoidEntry, 3 * sizeof(oid));
            stLeaf.aoid[3] = stTable.pstColumns[i].ucRfcColumn;
            stLeaf.uiLen = 4;
        }
    }
    // Insertion sort into OID order: a walk visits the leaves in this order.
    for (size_t i = 1; i < g_uiLeafCount; ++i) {
        EMA_LEAF_S stLeaf = g_astLeaves[i];
        size_t j = i;
        while (j > 0 && snmp_oid_compare(g_astLeaves[j - 1].aoid, g_astLeaves[j - 1].uiLen,
                                         stLeaf.aoid, stLeaf.uiLen) > 0) {
            g_astLeaves[j] = g_astLeaves[j - 1];
            --j;
        }
        g_astLeaves[j] = stLeaf;
    }
}

bool ema_HasPrefix(const oid* poid, size_t uiLen, const oid* poidPrefix, size_t uiPrefixLen) {
    return uiLen >= uiPrefixLen && memcmp(poid, poidPrefix, uiPrefixLen * sizeof(oid)) == 0;
}

// The leaf whose object the OID (relative to mteObjects) names, with the
// instance suffix; null when it names none.
const EMA_LEAF_S* ema_Locate(const oid* poidTail, size_t uiTailLen, const oid** ppoidSuffix,
                             size_t* puiSuffixLen) {
    for (size_t i = 0; i < g_uiLeafCount; ++i) {
        const EMA_LEAF_S& stLeaf = g_astLeaves[i];
        size_t uiObjectLen = stLeaf.pstScalar != nullptr ? stLeaf.uiLen - 1 : stLeaf.uiLen;
        if (ema_HasPrefix(poidTail, uiTailLen, stLeaf.aoid, uiObjectLen)) {
            *ppoidSuffix = poidTail + uiObjectLen;
            *puiSuffixLen = uiTailLen - uiObjectLen;
            return &stLeaf;
        }
    }
    return nullptr;
}

bool ema_GetScalars(uint32_t auiWords[EMA_SCALAR_WORDS]) {
    EMA_REPLY_S stReply;
    if (EMA_CLIENT_Exchange(EMA_MSG_SCALARS, EMA_OP_GET, 0, 0, nullptr, &stReply) != 0 ||
        stReply.uiResult != MTE_OK || stReply.usItem != EMA_ITEM_SCALARS ||
        stReply.uiDataSize != EMA_SCALAR_WORDS * sizeof(uint32_t)) {
        return false;
    }
    memcpy(auiWords, stReply.aucData, EMA_SCALAR_WORDS * sizeof(uint32_t));
    return true;
}

void ema_ScalarValue(const EMA_SCALAR_S* pstScalar, const uint32_t* auiWords,
                     netsnmp_variable_list* pstVb) {
    uint32_t uiWord = auiWords[pstScalar->ucWord];
    long lValue = pstScalar->ucSyntax == EMA_SYN_INTEGER
                      ? static_cast<long>(static_cast<int32_t>(uiWord))
                      : static_cast<long>(uiWord);
    snmp_set_var_typed_integer(pstVb, EMA_AsnType(pstScalar->ucSyntax), lValue);
}

uint8_t ema_RowResult(const EMA_TABLE_S* pstTable, uint32_t uiRet, const EMA_REPLY_S& stReply,
                      uint8_t* pucRow) {
    if (uiRet != 0) {
        return EMA_ROW_ERROR;
    }
    if (stReply.uiResult == MTE_OK && stReply.usItem == pstTable->usRowItem &&
        stReply.uiDataSize == pstTable->usRowSize) {
        memcpy(pucRow, stReply.aucData, pstTable->usRowSize);
        return EMA_ROW_FOUND;
    }
    return EMA_ROW_ERROR;
}

uint8_t ema_GetRow(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstIndex, uint8_t* pucRow) {
    uint8_t aucRequest[EMA_ROW_MAX] = {};
    EMA_IndexToRow(pstTable, pstIndex, aucRequest);
    EMA_REPLY_S stReply;
    uint32_t uiRet = EMA_CLIENT_Exchange(pstTable->usMsgType, EMA_OP_GET, 0, pstTable->usRowItem,
                                         aucRequest, &stReply);
    if (uiRet == 0 && stReply.uiResult == MTE_ERR_GENERAL) {
        return EMA_ROW_NONE;  // the daemon's answer to a get of a missing row
    }
    return ema_RowResult(pstTable, uiRet, stReply, pucRow);
}

// The first row after the key (all zeros: the first row of the table).
uint8_t ema_NextRow(const EMA_TABLE_S* pstTable, const EMA_INDEX_S* pstKey, uint8_t* pucRow) {
    uint8_t aucKey[sizeof(MTE_OBJ_INDEX_KEY_S)] = {};
    EMA_INDEX_S stZero{};
    size_t uiKeyLen = EMA_IndexToKey(pstTable, pstKey != nullptr ? pstKey : &stZero, aucKey);
    uint8_t ucGot = EMA_ROW_ERROR;
    if (EMA_CACHE_Find(pstTable->usMsgType, aucKey, uiKeyLen, &ucGot, pucRow)) {
        return ucGot;
    }
    EMA_REPLY_S stReply;
    uint32_t uiRet = EMA_CLIENT_Exchange(pstTable->usMsgType, EMA_OP_GETNEXT, 0,
                                         pstTable->usKeyItem, aucKey, &stReply);
    if (uiRet == 0 && stReply.uiResult == MTE_ERR_NO_SUCH_ROW) {
        ucGot = EMA_ROW_NONE;
    } else if (uiRet == 0 && stReply.uiResult == MTE_ERR_TABLE_EMPTY) {
        ucGot = EMA_ROW_TABLE_EMPTY;
    } else {
        ucGot = ema_RowResult(pstTable, uiRet, stReply, pucRow);
    }
    if (ucGot != EMA_ROW_ERROR) {
        EMA_CACHE_Put(pstTable->usMsgType, aucKey, uiKeyLen, ucGot, pucRow,
                      ucGot == EMA_ROW_FOUND ? pstTable->usRowSize : 0);
    }
    return ucGot;
}

// The first row whose index suffix follows the given one (or equals it when
// bInclusive).
uint8_t ema_NextInColumn(const EMA_TABLE_S* pstTable, const oid* poidSuffix, size_t uiLen,
                         bool bInclusive, uint8_t* pucRow) {
    EMA_INDEX_S stIndex;
    if (bInclusive && EMA_DecodeIndex(pstTable, poidSuffix, uiLen, &stIndex)) {
        uint8_t ucGot = ema_GetRow(pstTable, &stIndex, pucRow);
        if (ucGot != EMA_ROW_NONE) {
            return ucGot;
        }
    }
    EMA_INDEX_S stKey;
    uint8_t ucStart = EMA_LowerBound(pstTable, poidSuffix, uiLen, &stKey);
    if (ucStart == EMA_START_PAST_END) {
        return EMA_ROW_NONE;
    }
    const EMA_INDEX_S* pstKey = ucStart == EMA_START_FIRST ? nullptr : &stKey;
    // The key is at most the suffix: rows between the two are passed over.
    for (uint32_t uiStep = 0; uiStep < EMA_WALK_STEPS_MAX; ++uiStep) {
        uint8_t ucGot = ema_NextRow(pstTable, pstKey, pucRow);
        if (ucGot != EMA_ROW_FOUND) {
            return ucGot;
        }
        EMA_IndexFromRow(pstTable, pucRow, &stKey);
        pstKey = &stKey;
        oid aoidRow[EMA_INDEX_MAX_LEN];
        size_t uiRowLen = EMA_EncodeIndex(pstTable, &stKey, aoidRow);
        if (snmp_oid_compare(aoidRow, uiRowLen, poidSuffix, uiLen) > 0) {
            return EMA_ROW_FOUND;
        }
    }
    return EMA_ROW_ERROR;
}

void ema_SetFullOid(netsnmp_variable_list* pstVb, const oid* poidLeaf, size_t uiLeafLen,
                    const oid* poidSuffix, size_t uiSuffixLen) {
    oid aoid[MAX_OID_LEN];
    size_t uiLen = 0;
    memcpy(aoid, EMA_MTE_OBJECTS, EMA_MTE_OBJECTS_LEN * sizeof(oid));
    uiLen += EMA_MTE_OBJECTS_LEN;
    memcpy(aoid + uiLen, poidLeaf, uiLeafLen * sizeof(oid));
    uiLen += uiLeafLen;
    if (uiSuffixLen > 0) {
        memcpy(aoid + uiLen, poidSuffix, uiSuffixLen * sizeof(oid));
        uiLen += uiSuffixLen;
    }
    snmp_set_var_objid(pstVb, aoid, uiLen);
}

void ema_Get(netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVb = pstRequest->requestvb;
    const oid* poidSuffix = nullptr;
    size_t uiSuffixLen = 0;
    const EMA_LEAF_S* pstLeaf = nullptr;
    if (ema_HasPrefix(pstVb->name, pstVb->name_length, EMA_MTE_OBJECTS, EMA_MTE_OBJECTS_LEN)) {
        pstLeaf = ema_Locate(pstVb->name + EMA_MTE_OBJECTS_LEN,
                             pstVb->name_length - EMA_MTE_OBJECTS_LEN, &poidSuffix, &uiSuffixLen);
    }
    if (pstLeaf == nullptr) {
        netsnmp_set_request_error(pstInfo, pstRequest, SNMP_NOSUCHOBJECT);
        return;
    }
    if (pstLeaf->pstScalar != nullptr) {
        uint32_t auiWords[EMA_SCALAR_WORDS];
        if (uiSuffixLen != 1 || poidSuffix[0] != 0) {
            netsnmp_set_request_error(pstInfo, pstRequest, SNMP_NOSUCHINSTANCE);
        } else if (!ema_GetScalars(auiWords)) {
            netsnmp_set_request_error(pstInfo, pstRequest, SNMP_ERR_GENERR);
        } else {
            ema_ScalarValue(pstLeaf->pstScalar, auiWords, pstVb);
        }
        return;
    }
    EMA_INDEX_S stIndex;
    uint8_t aucRow[EMA_ROW_MAX];
    uint8_t ucGot = EMA_DecodeIndex(pstLeaf->pstTable, poidSuffix, uiSuffixLen, &stIndex)
                        ? ema_GetRow(pstLeaf->pstTable, &stIndex, aucRow)
                        : static_cast<uint8_t>(EMA_ROW_NONE);
    if (ucGot == EMA_ROW_FOUND) {
        EMA_ColumnValue(pstLeaf->pstColumn, aucRow, pstVb);
    } else if (ucGot == EMA_ROW_ERROR) {
        netsnmp_set_request_error(pstInfo, pstRequest, SNMP_ERR_GENERR);
    } else {
        netsnmp_set_request_error(pstInfo, pstRequest, SNMP_NOSUCHINSTANCE);
    }
}

// Answers with the first object after the requested name (at it, when the
// master marks the search range inclusive); leaves the varbind alone when
// nothing of the subtree follows, so that the agent moves on.
void ema_GetNext(netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstRequest) {
    netsnmp_variable_list* pstVb = pstRequest->requestvb;
    bool bInclusive = pstRequest->inclusive != 0;
    const oid* poidTail = pstVb->name + EMA_MTE_OBJECTS_LEN;
    size_t uiTailLen = 0;
    if (snmp_oid_compare(pstVb->name, pstVb->name_length, EMA_MTE_OBJECTS, EMA_MTE_OBJECTS_LEN) <
        0) {
        bInclusive = true;  // before the subtree: everything in it follows
    } else if (ema_HasPrefix(pstVb->name, pstVb->name_length, EMA_MTE_OBJECTS,
                             EMA_MTE_OBJECTS_LEN)) {
        uiTailLen = pstVb->name_length - EMA_MTE_OBJECTS_LEN;
    } else {
        return;  // past the subtree
    }
    const EMA_TABLE_S* pstEmptyTable = nullptr;
    uint8_t aucRow[EMA_ROW_MAX];
    for (size_t i = 0; i < g_uiLeafCount; ++i) {
        const EMA_LEAF_S& stLeaf = g_astLeaves[i];
        int iCmp = snmp_oid_compare(stLeaf.aoid, stLeaf.uiLen, poidTail, uiTailLen);
        if (stLeaf.pstScalar != nullptr) {
            if (iCmp < 0 || (iCmp == 0 && !bInclusive)) {
                continue;
            }
            uint32_t auiWords[EMA_SCALAR_WORDS];
            if (!ema_GetScalars(auiWords)) {
                netsnmp_set_request_error(pstInfo, pstRequest, SNMP_ERR_GENERR);
                return;
            }
            ema_SetFullOid(pstVb, stLeaf.aoid, stLeaf.uiLen, nullptr, 0);
            ema_ScalarValue(stLeaf.pstScalar, auiWords, pstVb);
            return;
        }
        if (stLeaf.pstTable == pstEmptyTable) {
            continue;
        }
        uint8_t ucGot;
        if (ema_HasPrefix(poidTail, uiTailLen, stLeaf.aoid, stLeaf.uiLen)) {
            ucGot = ema_NextInColumn(stLeaf.pstTable, poidTail + stLeaf.uiLen,
                                     uiTailLen - stLeaf.uiLen, bInclusive, aucRow);
        } else if (iCmp > 0) {
            ucGot = ema_NextRow(stLeaf.pstTable, nullptr, aucRow);
        } else {
            continue;
        }
        if (ucGot == EMA_ROW_ERROR) {
            netsnmp_set_request_error(pstInfo, pstRequest, SNMP_ERR_GENERR);
            return;
        }
        if (ucGot == EMA_ROW_TABLE_EMPTY) {
            pstEmptyTable = stLeaf.pstTable;
        }
        if (ucGot != EMA_ROW_FOUND) {
            continue;
        }
        EMA_INDEX_S stIndex;
        EMA_IndexFromRow(stLeaf.pstTable, aucRow, &stIndex);
        oid aoidIndex[EMA_INDEX_MAX_LEN];
        size_t uiIndexLen = EMA_EncodeIndex(stLeaf.pstTable, &stIndex, aoidIndex);
        ema_SetFullOid(pstVb, stLeaf.aoid, stLeaf.uiLen, aoidIndex, uiIndexLen);
        EMA_ColumnValue(stLeaf.pstColumn, aucRow, pstVb);
        return;
    }
}

// ---------------------------------------------------------------------------
// SET
// ---------------------------------------------------------------------------

// What one varbind of a SET writes.
struct EMA_WRITE_S {
    const EMA_LEAF_S* pstLeaf;
    EMA_INDEX_S stIndex;
};

// SNMP_ERR_NOERROR with *pstWrite filled, or the error of the varbind.
int ema_CheckWrite(const netsnmp_variable_list* pstVb, EMA_WRITE_S* pstWrite) {
    memset(pstWrite, 0, sizeof(*pstWrite));
    const oid* poidSuffix = nullptr;
    size_t uiSuffixLen = 0;
    if (ema_HasPrefix(pstVb->name, pstVb->name_length, EMA_MTE_OBJECTS, EMA_MTE_OBJECTS_LEN)) {
        pstWrite->pstLeaf =
            ema_Locate(pstVb->name + EMA_MTE_OBJECTS_LEN, pstVb->name_length - EMA_MTE_OBJECTS_LEN,
                       &poidSuffix, &uiSuffixLen);
    }
    const EMA_LEAF_S* pstLeaf = pstWrite->pstLeaf;
    if (pstLeaf == nullptr) {
        return SNMP_ERR_NOCREATION;
    }
    if (pstLeaf->pstScalar != nullptr) {
        const EMA_SCALAR_S* pstScalar = pstLeaf->pstScalar;
        if (pstScalar->usSetMsgType == 0) {
            return SNMP_ERR_NOTWRITABLE;
        }
        if (uiSuffixLen != 1 || poidSuffix[0] != 0) {
            return SNMP_ERR_NOCREATION;
        }
        return EMA_CheckValue(pstScalar->ucSyntax, pstScalar->iMin, INT32_MAX, 0, pstVb);
    }
    if (pstLeaf->pstColumn->ucWritable == 0) {
        return SNMP_ERR_NOTWRITABLE;
    }
    if (!EMA_DecodeIndex(pstLeaf->pstTable, poidSuffix, uiSuffixLen, &pstWrite->stIndex)) {
        return SNMP_ERR_NOCREATION;
    }
    return EMA_CheckColumnValue(pstLeaf->pstColumn, pstVb);
}

void ema_Reserve1(netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstRequests) {
    for (netsnmp_request_info* pstReq = pstRequests; pstReq != nullptr; pstReq = pstReq->next) {
        EMA_WRITE_S stWrite;
        int iErr = ema_CheckWrite(pstReq->requestvb, &stWrite);
        if (iErr != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(pstInfo, pstReq, iErr);
            return;
        }
    }
}

long ema_TransactionId(netsnmp_agent_request_info* pstInfo) {
    if (pstInfo->asp == nullptr || pstInfo->asp->pdu == nullptr) {
        return 0;
    }
    return pstInfo->asp->pdu->transid;
}

void ema_DestroyCreated(long lTransaction) {
    auto it = g_mapCreated.find(lTransaction);
    if (it == g_mapCreated.end()) {
        return;
    }
    for (auto itRow = it->second.rbegin(); itRow != it->second.rend(); ++itRow) {
        const EMA_TABLE_S* pstTable = itRow->pstTable;
        uint8_t aucRow[EMA_ROW_MAX] = {};
        EMA_IndexToRow(pstTable, &itRow->stIndex, aucRow);
        uint32_t uiStatus = MTE_ROW_DESTROY;
        memcpy(aucRow + pstTable->usStatusOff, &uiStatus, sizeof(uiStatus));
        EMA_REPLY_S stReply;
        (void)EMA_CLIENT_Exchange(pstTable->usMsgType, EMA_OP_SET, pstTable->uiStatusMask,
                                  pstTable->usRowItem, aucRow, &stReply);
    }
    g_mapCreated.erase(it);
}

void ema_RememberCreated(long lTransaction, const EMA_TABLE_S* pstTable,
                         const EMA_INDEX_S& stIndex) {
    if (g_mapCreated.find(lTransaction) == g_mapCreated.end() &&
        g_mapCreated.size() >= EMA_TRANSACTIONS_MAX) {
        g_mapCreated.erase(g_mapCreated.begin());  // a transaction the master abandoned
    }
    g_mapCreated[lTransaction].push_back({pstTable, stIndex});
}

bool ema_SameRow(const EMA_WRITE_S& stA, const EMA_WRITE_S& stB) {
    return stA.pstLeaf->pstTable == stB.pstLeaf->pstTable &&
           strcmp(stA.stIndex.szOwner, stB.stIndex.szOwner) == 0 &&
           strcmp(stA.stIndex.szName, stB.stIndex.szName) == 0 &&
           stA.stIndex.uiIndex == stB.stIndex.uiIndex;
}

int ema_ApplyScalar(const EMA_SCALAR_S* pstScalar, const netsnmp_variable_list* pstVb) {
    uint32_t uiValue = static_cast<uint32_t>(*pstVb->val.integer);
    EMA_REPLY_S stReply;
    if (EMA_CLIENT_Exchange(pstScalar->usSetMsgType, EMA_OP_SET, 0, pstScalar->usSetItem, &uiValue,
                            &stReply) != 0) {
        return SNMP_ERR_GENERR;
    }
    return stReply.uiResult == MTE_OK ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

// One SET PDU while ACTION applies it.
struct EMA_PDU_S {
    long lTransaction;
    std::vector<EMA_WRITE_S> astWrites;
    std::vector<netsnmp_request_info*> apstReqs;
    std::vector<bool> abDone;
    // Rows whose activation waits until their test or action rows of the
    // same PDU are written (the daemon refuses writes below an active row).
    std::vector<size_t> aiDeferred;  // index of the row's RowStatus write
};

// The table whose rows own the rows of this one (a trigger owns its tests, an
// event its actions); null for the others.
const EMA_TABLE_S* ema_ParentOf(const EMA_TABLE_S* pstTable) {
    switch (pstTable->usMsgType) {
        case 5:
        case 6:
        case 7:
        case 15:                        // the delta rows
            return EMA_TableOfType(4);  // mteTriggerTable
        case 10:
        case 11:
            return EMA_TableOfType(9);  // mteEventTable
        default:
            return nullptr;
    }
}

bool ema_HasChildWrites(const EMA_PDU_S& stPdu, const EMA_WRITE_S& stParent) {
    for (const auto& stWrite : stPdu.astWrites) {
        const EMA_TABLE_S* pstTable = stWrite.pstLeaf->pstTable;
        if (pstTable != nullptr && ema_ParentOf(pstTable) == stParent.pstLeaf->pstTable &&
            strcmp(stWrite.stIndex.szOwner, stParent.stIndex.szOwner) == 0 &&
            strcmp(stWrite.stIndex.szName, stParent.stIndex.szName) == 0) {
            return true;
        }
    }
    return false;
}

// Sends one set and maps its result; *ppstFailed is left at the varbind to
// blame (the one that wrote the failed column, if any of aiMembers did).
int ema_SendSet(EMA_PDU_S& stPdu, const EMA_TABLE_S* pstTable, const uint8_t* pucRow,
                uint32_t uiMask, const std::vector<size_t>& aiMembers,
                netsnmp_request_info** ppstFailed, uint32_t* puiResult) {
    EMA_REPLY_S stReply;
    if (EMA_CLIENT_Exchange(pstTable->usMsgType, EMA_OP_SET, uiMask, pstTable->usRowItem, pucRow,
                            &stReply) != 0) {
        return SNMP_ERR_GENERR;
    }
    *puiResult = stReply.uiResult;
    int iErr = EMA_SetErrorOf(stReply.uiResult, pstTable->ucRfcStatus != 0);
    uint32_t uiRfcColumn = EMA_RfcColumnOfFailed(pstTable, stReply.uiFailedColumn);
    for (size_t i : aiMembers) {
        if (iErr != SNMP_ERR_NOERROR && uiRfcColumn != 0 &&
            stPdu.astWrites[i].pstLeaf->pstColumn->ucRfcColumn == uiRfcColumn) {
            *ppstFailed = stPdu.apstReqs[i];
        }
    }
    return iErr;
}

// One management set request for the row of write iFirst, with every varbind
// of the PDU that writes the same row; marks them done. SNMP_ERR_NOERROR, or
// the error with *ppstFailed the varbind to blame.
int ema_ApplyRow(EMA_PDU_S& stPdu, size_t iFirst, netsnmp_request_info** ppstFailed) {
    const EMA_WRITE_S& stFirst = stPdu.astWrites[iFirst];
    const EMA_TABLE_S* pstTable = stFirst.pstLeaf->pstTable;
    uint8_t aucRow[EMA_ROW_MAX] = {};
    EMA_IndexToRow(pstTable, &stFirst.stIndex, aucRow);
    uint32_t uiMask = 0;
    uint32_t uiStatus = MTE_ROW_NONE;
    size_t iStatus = SIZE_MAX;
    std::vector<size_t> aiMembers;
    for (size_t i = iFirst; i < stPdu.astWrites.size(); ++i) {
        const EMA_WRITE_S& stWrite = stPdu.astWrites[i];
        if (stPdu.abDone[i] || stWrite.pstLeaf->pstTable == nullptr ||
            !ema_SameRow(stFirst, stWrite)) {
            continue;
        }
        stPdu.abDone[i] = true;
        aiMembers.push_back(i);
        EMA_ApplyValue(pstTable, stWrite.pstLeaf->pstColumn, stPdu.apstReqs[i]->requestvb, aucRow,
                       &uiMask);
        if (stWrite.pstLeaf->pstColumn->ucSyntax == EMA_SYN_STATUS) {
            uiStatus = static_cast<uint32_t>(*stPdu.apstReqs[i]->requestvb->val.integer);
            iStatus = i;
        }
    }
    uint32_t uiSent = uiStatus;
    if ((uiStatus == MTE_ROW_CREATE_AND_GO || uiStatus == MTE_ROW_ACTIVE) &&
        ema_HasChildWrites(stPdu, stFirst)) {
        // Created (or left) not in service; made active after its sub-rows.
        uiSent = uiStatus == MTE_ROW_CREATE_AND_GO ? MTE_ROW_CREATE_AND_WAIT : MTE_ROW_NONE;
        if (uiSent == MTE_ROW_NONE) {
            uiMask &= ~pstTable->uiStatusMask;
        }
        stPdu.aiDeferred.push_back(iStatus);
    }
    if (pstTable->ucRfcStatus != 0) {
        memcpy(aucRow + pstTable->usStatusOff, &uiSent, sizeof(uiSent));
    }
    *ppstFailed = iStatus != SIZE_MAX ? stPdu.apstReqs[iStatus] : stPdu.apstReqs[iFirst];
    uint32_t uiResult = 0;
    int iErr = uiMask == 0
                   ? SNMP_ERR_NOERROR
                   : ema_SendSet(stPdu, pstTable, aucRow, uiMask, aiMembers, ppstFailed, &uiResult);
    if (iErr == SNMP_ERR_NOERROR && uiResult == MTE_OK &&
        (uiSent == MTE_ROW_CREATE_AND_GO || uiSent == MTE_ROW_CREATE_AND_WAIT)) {
        ema_RememberCreated(stPdu.lTransaction, pstTable, stFirst.stIndex);
    }
    return iErr;
}

// The activations held back until the sub-rows were written.
int ema_ApplyDeferred(EMA_PDU_S& stPdu, netsnmp_request_info** ppstFailed) {
    for (size_t iStatus : stPdu.aiDeferred) {
        const EMA_WRITE_S& stWrite = stPdu.astWrites[iStatus];
        const EMA_TABLE_S* pstTable = stWrite.pstLeaf->pstTable;
        uint8_t aucRow[EMA_ROW_MAX] = {};
        EMA_IndexToRow(pstTable, &stWrite.stIndex, aucRow);
        uint32_t uiActive = MTE_ROW_ACTIVE;
        memcpy(aucRow + pstTable->usStatusOff, &uiActive, sizeof(uiActive));
        *ppstFailed = stPdu.apstReqs[iStatus];
        uint32_t uiResult = 0;
        int iErr = ema_SendSet(stPdu, pstTable, aucRow, pstTable->uiStatusMask, {iStatus},
                               ppstFailed, &uiResult);
        if (iErr != SNMP_ERR_NOERROR) {
            return iErr;
        }
    }
    return SNMP_ERR_NOERROR;
}

// Applies the PDU: the scalars first, then the rows table by table in OID
// order (a trigger before its tests, an event before its actions), one
// request per row; a row made active in the same PDU as its test or action
// rows becomes active last. On a failure the rows this PDU created are
// destroyed again; rows that existed keep what was applied to them.
void ema_Action(netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstRequests) {
    EMA_PDU_S stPdu;
    stPdu.lTransaction = ema_TransactionId(pstInfo);
    for (netsnmp_request_info* pstReq = pstRequests; pstReq != nullptr; pstReq = pstReq->next) {
        EMA_WRITE_S stWrite;
        if (ema_CheckWrite(pstReq->requestvb, &stWrite) != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(pstInfo, pstReq, SNMP_ERR_GENERR);  // passed RESERVE1
            return;
        }
        stPdu.astWrites.push_back(stWrite);
        stPdu.apstReqs.push_back(pstReq);
    }
    stPdu.abDone.assign(stPdu.astWrites.size(), false);
    for (size_t i = 0; i < stPdu.astWrites.size(); ++i) {
        if (stPdu.astWrites[i].pstLeaf->pstScalar == nullptr) {
            continue;
        }
        stPdu.abDone[i] = true;
        int iErr =
            ema_ApplyScalar(stPdu.astWrites[i].pstLeaf->pstScalar, stPdu.apstReqs[i]->requestvb);
        if (iErr != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(pstInfo, stPdu.apstReqs[i], iErr);
            return;
        }
    }
    netsnmp_request_info* pstFailed = nullptr;
    int iErr = SNMP_ERR_NOERROR;
    for (const auto& stTable : g_astEmaTables) {
        for (size_t i = 0; i < stPdu.astWrites.size() && iErr == SNMP_ERR_NOERROR; ++i) {
            if (!stPdu.abDone[i] && stPdu.astWrites[i].pstLeaf->pstTable == &stTable) {
                iErr = ema_ApplyRow(stPdu, i, &pstFailed);
            }
        }
    }
    if (iErr == SNMP_ERR_NOERROR) {
        iErr = ema_ApplyDeferred(stPdu, &pstFailed);
    }
    if (iErr != SNMP_ERR_NOERROR) {
        ema_DestroyCreated(stPdu.lTransaction);
        netsnmp_set_request_error(pstInfo, pstFailed, iErr);
    }
}

// Tells one AgentX PDU from another: the agent library may call the handler
// several times for one (GETNEXT passes, GETBULK repetitions), and snmpd
// sends the same request again with the same ids when an answer is late.
uint64_t ema_RequestKey(const netsnmp_agent_request_info* pstInfo) {
    if (pstInfo->asp == nullptr || pstInfo->asp->pdu == nullptr) {
        return 0;
    }
    const netsnmp_pdu* pstPdu = pstInfo->asp->pdu;
    return (static_cast<uint64_t>(static_cast<uint32_t>(pstPdu->reqid)) << 32) |
           static_cast<uint32_t>(pstPdu->transid);
}

int ema_Handler(netsnmp_mib_handler* pstHandler, netsnmp_handler_registration* pstReg,
                netsnmp_agent_request_info* pstInfo, netsnmp_request_info* pstRequests) {
    EMA_CLIENT_BeginRequest(ema_RequestKey(pstInfo));
    for (netsnmp_request_info* pstReq = pstRequests; pstReq != nullptr; pstReq = pstReq->next) {
        EMA_SubIdsTo32Bits(pstReq->requestvb->name, pstReq->requestvb->name_length);
    }
    if (MODE_IS_SET(pstInfo->mode)) {
        // A write through the bridge is seen by the very next read.
        EMA_CACHE_Drop();
    }
    switch (pstInfo->mode) {
        case MODE_GET:
        case MODE_GETNEXT:
            for (netsnmp_request_info* pstReq = pstRequests; pstReq != nullptr;
                 pstReq = pstReq->next) {
                if (pstReq->processed) {
                    continue;
                }
                if (pstInfo->mode == MODE_GET) {
                    ema_Get(pstInfo, pstReq);
                } else {
                    ema_GetNext(pstInfo, pstReq);
                }
            }
            break;
        case MODE_SET_RESERVE1:
            ema_Reserve1(pstInfo, pstRequests);
            break;
        case MODE_SET_ACTION:
            ema_Action(pstInfo, pstRequests);
            break;
        case MODE_SET_UNDO:
            ema_DestroyCreated(ema_TransactionId(pstInfo));
            break;
        case MODE_SET_COMMIT:
        case MODE_SET_FREE:
            g_mapCreated.erase(ema_TransactionId(pstInfo));
            break;
        default:
            break;
    }
    EMA_CLIENT_EndRequest();
    return SNMP_ERR_NOERROR;
}

}  // namespace

uint32_t EMA_MIB_Register(void) {
    if (g_pstRegistration != nullptr) {
        return MTE_OK;
    }
    ema_BuildLeaves();
    netsnmp_handler_registration* pstReg = netsnmp_create_handler_registration(
        "eventMib", ema_Handler, EMA_MTE_OBJECTS, EMA_MTE_OBJECTS_LEN, HANDLER_CAN_RWRITE);
    if (pstReg == nullptr) {
        return MTE_ERR_GENERAL;
    }
    if (netsnmp_register_handler(pstReg) != MIB_REGISTERED_OK) {
        return MTE_ERR_GENERAL;  // the agent library has freed the registration
    }
    g_pstRegistration = pstReg;
    return MTE_OK;
}

void EMA_MIB_Unregister(void) {
    if (g_pstRegistration != nullptr) {
        (void)netsnmp_unregister_handler(g_pstRegistration);
        g_pstRegistration = nullptr;
    }
    g_mapCreated.clear();
    EMA_CACHE_Drop();
    EMA_CLIENT_Close();
}
