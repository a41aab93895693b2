// Set action (mteEventSetTable): one row per event whose actions have the set
// bit, made and destroyed by the event table, and the writing of the event's
// integer object through the agent.
//
// Threads and locks: the rows have no lock of their own. Get, get-next and set
// run on the main thread under the event list lock that the dispatch holds;
// recover takes the event list write lock itself. mte_SET_SetValueByOID runs
// on the sampling worker on copies of the trigger and set rows with no lock
// held.
#include "mte_set.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "mte_conv.h"
#include "mte_catalogue.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_event.h"
#include "mte_lock_guard.h"
#include "mte_sorted_list.h"
#include "mte_msg.h"
#include "mte_oid.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_trap.h"
#include "plat_snmp.h"

namespace {
constexpr uint32_t MTE_SET_MASK_OBJECT = MTE_COLUMN_BIT(MTE_SET_COL_OBJECT);

// Failure codes of the set itself, as the platform's SNMP client reports them.
constexpr uint32_t MTE_SET_FAIL_GEN_ERR = SNMP_ST_GEN_ERR;          // 0x61010041
constexpr uint32_t MTE_SET_FAIL_WRONG_TYPE = SNMP_ST_WRONG_TYPE;    // 0x61010045
constexpr uint32_t MTE_SET_FAIL_NO_CREATION = SNMP_ST_NO_CREATION;  // 0x61010049

constexpr size_t MTE_SET_OID_TEXT_SIZE = 256;

void StoreRow(const MTE_SET_ENTRY_S& stRow) {
    mte_DBM_StoreRow(MTE_CAT_SET, &stRow);
}

void PrintErr(uint32_t uiText) {
    if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
        mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s", mte_DBG_Text(uiText));
    }
}

// The target of a set: the row's object and context, completed from the
// instance that fired when the row asks for it.
struct SET_TARGET_S {
    MTE_OID_S stOid;
    char szContext[MTE_NAME_SIZE];
};

uint32_t BuildTarget(const MTE_TRIGGER_ROW_S& stTrigger, const MTE_SET_ENTRY_S& stRow,
                     const MTE_OID_S* pstSuffix, const char* pszContext, SET_TARGET_S* pstTarget) {
    bool bObjectWild = stRow.uiObjectWildcard == MTE_TRUE;
    bool bContextWild = stRow.uiContextNameWildcard == MTE_TRUE;
    if (bObjectWild && stTrigger.uiValueIDWildcard != MTE_TRUE) {
        PrintErr(MTE_TEXT_SET_OBJECT_WILDCARDED);
        return MTE_SET_FAIL_GEN_ERR;
    }
    if (bContextWild && stTrigger.uiContextNameWildcard != MTE_TRUE) {
        PrintErr(MTE_TEXT_SET_CONTEXT_WILDCARDED);
        return MTE_SET_FAIL_GEN_ERR;
    }
    if (bObjectWild && pstSuffix != nullptr &&
        AppendSuffix2OID(pstSuffix, &pstTarget->stOid) != 0) {
        return MTE_SET_FAIL_NO_CREATION;  // the helper has said "Invalid OID length."
    }
    if (bContextWild) {
        // The trigger's context name is the prefix its wildcard matched; what
        // the instance has beyond it goes behind the row's context name.
        size_t uiPrefix = strnlen(stTrigger.szContextName, MTE_NAME_SIZE - 1);
        size_t uiInstance = strlen(pszContext);
        const char* pszPart = uiInstance > uiPrefix ? pszContext + uiPrefix : "";
        size_t uiTarget = strlen(pstTarget->szContext);
        if (uiTarget + strlen(pszPart) > MTE_NAME_SIZE - 1) {
            PrintErr(MTE_TEXT_INVALID_CONTEXT_LENGTH);
            return MTE_SET_FAIL_NO_CREATION;
        }
        memcpy(pstTarget->szContext + uiTarget, pszPart, strlen(pszPart) + 1);
    }
    return MTE_OK;
}

// Counts the failure, sends mteEventSetFailure and writes the failure details.
void ReportFailure(uint32_t uiCode, const MTE_TRIGGER_ROW_S& stTrigger,
                   const SET_TARGET_S& stTarget) {
    int32_t iReason = mte_RUN_convertErrCodeMor2Mte(uiCode);
    mte_SCALAR_EventFailuresInc();
    char szName[MTE_NAME_SIZE];
    char szTag[MTE_COMMENT_SIZE];
    mte_StrCopy(szName, stTrigger.szName, sizeof(szName));
    mte_StrCopy(szTag, stTrigger.szTargetTag, sizeof(szTag));
    TRAP_SendmteEventSetFailure(szName, static_cast<uint32_t>(strlen(szName)), szTag,
                                static_cast<uint32_t>(strlen(szTag)), stTarget.szContext,
                                static_cast<uint32_t>(strlen(stTarget.szContext)),
                                stTarget.stOid.auiOid, stTarget.stOid.uiLen, iReason);
    if (mte_DBG_IsEnable(MTE_DBG_INFO)) {
        mte_run_FailureDebug(iReason, stTarget.szContext, &stTrigger, &stTarget.stOid,
                             MTE_TEXT(MTE_TEXT_REPORT_SET_FAILURE),
                             MTE_TEXT(MTE_TEXT_REPORT_SET_TARGET_TAG));
    }
}
}  // namespace

MTE_SET_ENTRY_S* mte_SET_Create(const char* pszOwner, const char* pszName) {
    MTE_SET_ENTRY_S* pstRow = static_cast<MTE_SET_ENTRY_S*>(calloc(1, sizeof(MTE_SET_ENTRY_S)));
    if (pstRow == nullptr) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_ENTRY_NO_MEMORY), "Set",
                          pszOwner, pszName);
        }
        return nullptr;
    }
    mte_StrCopy(pstRow->szOwner, pszOwner, MTE_NAME_SIZE);
    mte_StrCopy(pstRow->szName, pszName, MTE_NAME_SIZE);
    pstRow->uiObjectWildcard = MTE_FALSE;
    pstRow->uiContextNameWildcard = MTE_FALSE;
    if (mte_BIN_GetRecover() != 1) {
        StoreRow(*pstRow);
    }
    return pstRow;
}

void mte_SET_Destroy(MTE_SET_ENTRY_S* pstRow) {
    if (pstRow == nullptr) {
        return;
    }
    mte_DBM_RemoveRow(MTE_CAT_SET, pstRow);
    free(pstRow);
}

MTE_SET_ENTRY_S* mte_SET_Get(const char* pszOwner, const char* pszName) {
    MTE_EVENT_ENTRY_S* pstEvent = mte_EVENT_GetEventEntry(pszOwner, pszName);
    return pstEvent == nullptr ? nullptr : pstEvent->pstSet;
}

MTE_SET_ENTRY_S* mte_SET_GetNext(uint32_t uiOwnerLen, const char* pszOwner, const char* pszName,
                                 uint8_t* pucFlags) {
    return mte_list_FirstSubRow(
        mte_EVENT_GetNextEventEntry(uiOwnerLen, pszOwner, pszName, pucFlags),
        &MTE_EVENT_ENTRY_S::pstSet);
}

uint32_t mte_SET_Set(const MTE_SET_ENTRY_S* pstRequest, uint32_t uiColumnMask) {
    if (pstRequest == nullptr) {
        return MTE_ERR_GENERAL;
    }
    MTE_SET_ENTRY_S stRequest = MTE_CAT_TerminatedCopy(MTE_CAT_SET, *pstRequest);
    MTE_EVENT_ENTRY_S* pstEvent = mte_EVENT_GetEventEntry(stRequest.szOwner, stRequest.szName);
    if (pstEvent == nullptr || pstEvent->pstSet == nullptr) {
        return MTE_ERR_NO_SUCH_ROW;
    }
    MTE_SET_ENTRY_S* pstRow = pstEvent->pstSet;
    bool bChanges = MTE_CAT_ColumnsDiffer(MTE_CAT_SET, &stRequest, uiColumnMask, pstRow);
    if (pstEvent->stRow.uiEntryStatus == MTE_ROW_ACTIVE) {
        return bChanges ? MTE_ERR_INCONSISTENT : MTE_ERR_NO_CHANGE;
    }
    if (!bChanges) {
        return MTE_OK;
    }
    // An OID longer than a record can hold is refused before anything is copied.
    if ((uiColumnMask & MTE_SET_MASK_OBJECT) && stRequest.stObject.uiLen > MTE_OID_MAX_LEN) {
        return MTE_ERR_INCONSISTENT;
    }
    MTE_CAT_CopyColumns(MTE_CAT_SET, &stRequest, uiColumnMask, pstRow);
    StoreRow(*pstRow);
    return MTE_OK;
}

uint32_t mte_SET_Recover(uint32_t uiLen, const void* pRecord) {
    if (pRecord == nullptr || uiLen != sizeof(MTE_SET_ENTRY_S)) {
        return MTE_ERR_GENERAL;
    }
    MTE_SET_ENTRY_S stRecord;
    memcpy(&stRecord, pRecord, sizeof(stRecord));
    stRecord = MTE_CAT_TerminatedCopy(MTE_CAT_SET, stRecord);
    MTE_LOCK_GUARD stGuard(mte_EVENT_ListWrLock, mte_EVENT_ListUnLock);
    MTE_EVENT_ENTRY_S* pstEvent = mte_EVENT_GetEventEntry(stRecord.szOwner, stRecord.szName);
    if (pstEvent == nullptr) {
        return MTE_ERR_GENERAL;
    }
    if (pstEvent->pstSet == nullptr) {
        return MTE_OK;
    }
    // A damaged OID is not laid over the row (the copy skips it); the rest
    // of the record is. The target tag has no column and is never laid over.
    MTE_CAT_CopyColumns(MTE_CAT_SET, &stRecord, MTE_MASK_ALL_COLUMNS, pstEvent->pstSet);
    return MTE_OK;
}

uint32_t mte_SET_SetValueByOID(const MTE_TRIGGER_ROW_S* pstTrigger, const MTE_SET_ENTRY_S* pstRow,
                               const MTE_OID_S* pstSuffix, const char* pszContextName) {
    if (pstTrigger == nullptr || pstRow == nullptr || pstRow->stObject.uiLen == 0) {
        return MTE_OK;
    }
    SET_TARGET_S stTarget{};
    stTarget.stOid = pstRow->stObject;
    stTarget.stOid.uiLen = std::min(stTarget.stOid.uiLen, MTE_OID_MAX_LEN);
    mte_StrCopy(stTarget.szContext, pstRow->szContextName, sizeof(stTarget.szContext));
    uint32_t uiCode = BuildTarget(*pstTrigger, *pstRow, pstSuffix,
                                  pszContextName == nullptr ? "" : pszContextName, &stTarget);
    if (uiCode == MTE_OK) {
        uiCode = SNMP_SetIntegerValueByOID(pstRow->szOwner, stTarget.szContext, &stTarget.stOid,
                                           pstRow->iValue);
        if (uiCode == MTE_OK) {
            return MTE_OK;
        }
        if (uiCode == MTE_SET_FAIL_WRONG_TYPE && mte_DBG_IsEnable(MTE_DBG_ERR)) {
            char szOid[MTE_SET_OID_TEXT_SIZE] = "";
            MTE_MSG_Oid2Str(&pstRow->stObject, sizeof(szOid), szOid);
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, mte_DBG_TextFormat(MTE_TEXT_SET_SYNTAX_MISMATCH),
                          szOid);
        }
    }
    ReportFailure(uiCode, *pstTrigger, stTarget);
    return uiCode;
}
