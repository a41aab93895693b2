// Sampler, run states and evaluation, driven step by step: the tests play the
// main thread and call the worker's queue and control handlers directly.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "engine_helpers.h"
#include "fake_log.h"
#include "mte_conv.h"
#include "mte_dbg.h"
#include "mte_event.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "plat_snmp.h"
#include "mte_trigger.h"
#include "../run/mte_run_int.h"

namespace {

const FAKE_OID kIfIn = {1, 3, 6, 1, 2, 1, 2, 2, 1, 10};
const FAKE_OID kScalar = {1, 3, 6, 1, 4, 1, 99, 1, 0};

FAKE_OID Sub(const FAKE_OID& astBase, std::initializer_list<uint32_t> auiSuffix) {
    FAKE_OID astOid = astBase;
    astOid.insert(astOid.end(), auiSuffix);
    return astOid;
}

class EngineSampler : public ::testing::Test {
  protected:
    void SetUp() override {
        FAKE_SNMP_Reset();
        FAKE_LOG_Clear();
        mte_DBG_Init();
        mte_SCALAR_Init();
        mte_EVENT_Init();
        ENG_SetTrapSwitch(1);
        mte_TIMER_SetPortFlag(1);
        ASSERT_EQ(mte_run_InitWithoutThread(), 0u);
    }

    void TearDown() override {
        Drain();
        mte_RUN_Fini();
        mte_SCALAR_SetInstancesMax(0);
        mte_TIMER_SetPortFlag(0);
        for (MTE_TRIGGER_ENTRY_S* pstTrigger : m_apTriggers) {
            mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
            mte_RUN_ClearSampleRes(pstTrigger);
            mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
            mte_TRIGGER_FreeNode(pstTrigger);
        }
        EXPECT_EQ(ENG_Instances(), 0u) << "instance counts not given back";
        mte_DBG_DisableSwitch(0xffffffffu);
        mte_EVENT_Fini();
        mte_DBG_Fini();
    }

    // A trigger the fixture frees at the end (unless the worker did).
    MTE_TRIGGER_ENTRY_S* Make(const char* pszName, const FAKE_OID& astValueId,
                              const char* pszContext = "", bool bOidWild = false,
                              bool bContextWild = false) {
        MTE_TRIGGER_ENTRY_S* pstTrigger = ENG_NewTrigger(pszName);
        pstTrigger->stRow.stValueID = FAKE_SNMP_MakeOid(astValueId);
        strncpy(pstTrigger->stRow.szContextName, pszContext, MTE_NAME_SIZE - 1);
        pstTrigger->stRow.uiValueIDWildcard = bOidWild ? MTE_TRUE : MTE_FALSE;
        pstTrigger->stRow.uiContextNameWildcard = bContextWild ? MTE_TRUE : MTE_FALSE;
        m_apTriggers.push_back(pstTrigger);
        return pstTrigger;
    }

    // Instances 1..n of kIfIn in the default context, each valued its index.
    static void Fill(uint32_t uiCount) {
        for (uint32_t i = 1; i <= uiCount; ++i) {
            FAKE_SNMP_SetInteger("", Sub(kIfIn, {i}), static_cast<int32_t>(i));
        }
    }

    // The worker freed it: the fixture must not.
    void Forget(MTE_TRIGGER_ENTRY_S* pstTrigger) {
        m_apTriggers.erase(std::remove(m_apTriggers.begin(), m_apTriggers.end(), pstTrigger),
                           m_apTriggers.end());
    }

    // Hands the worker a control message as the main thread does.
    static void Control(eventfd_t ulCode) {
        int iCtrl = mte_RUN_GetEventFd();
        if (iCtrl >= 0) {
            eventfd_write(iCtrl, ulCode);
            mte_run_CtrlProc(EPOLLIN, iCtrl);
        }
    }
    static void Drain() { Control(MTE_RUN_CTRL_DRAIN); }

    static void SetState(MTE_TRIGGER_ENTRY_S* pstTrigger, uint32_t uiState, bool bClear = false) {
        mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
        if (bClear) {
            mte_RUN_ClearSampleRes(pstTrigger);
        }
        pstTrigger->uiRunState = uiState;
        mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    }

    // One full cycle: queued at once and sampled to its end.
    static void Cycle(MTE_TRIGGER_ENTRY_S* pstTrigger) {
        ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
        ENG_PumpAll();
        ASSERT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
    }

    // "[context/]oid" with kIfIn shown as "if" and kScalar as "s".
    static std::string Short(const std::string& strContext, const FAKE_OID& astOid) {
        std::string strOid = astOid == kScalar ? "s" : FAKE_SNMP_OidStr(astOid);
        const std::string strIfIn = FAKE_SNMP_OidStr(kIfIn);
        if (strOid.rfind(strIfIn, 0) == 0) {
            strOid.replace(0, strIfIn.size(), "if");
        }
        return (strContext.empty() ? "" : strContext + "/") + strOid;
    }

    static void Add(std::string& strOut, const std::string& strWord, const char* pszSep = ", ") {
        strOut += (strOut.empty() ? "" : pszSep) + strWord;
    }

    // The instances kept for the next cycle, space-separated.
    static std::string Kept(const MTE_TRIGGER_ENTRY_S* pstTrigger) {
        std::string strOut;
        for (const MTE_SAMPLE_S* p = pstTrigger->pstPrevSamples; p != nullptr; p = p->pstNext) {
            Add(strOut, Short(p->szContextName, FAKE_OID(p->auiOid, p->auiOid + p->uiOidLen)), " ");
        }
        return strOut;
    }

    // The notifications sent, as "<name less mteTrigger> [context/]oid=<hot value or reason>, ...".
    static std::string Sent(size_t uiFrom = 0) {
        std::string strOut;
        auto astNotifies = FAKE_SNMP_Notifies();
        for (size_t i = uiFrom; i < astNotifies.size(); ++i) {
            Add(strOut, astNotifies[i].strName.substr(10) + " " +
                            Short(astNotifies[i].strContext, astNotifies[i].astOid) + "=" +
                            std::to_string(astNotifies[i].iLast));
        }
        return strOut;
    }

    // Events that ran, in order, as the event table reports them missing.
    static std::string EventsRun() {
        std::string strOut;
        for (const auto& stLine : FAKE_LOG_Lines()) {
            if (stLine.strMnemonic == MTE_DBG_MNEMONIC_WARNING &&
                stLine.strText.find("Nonexistent event") != std::string::npos) {
                Add(strOut, stLine.strText);
            }
        }
        return strOut;
    }
    static size_t EventsRunCount() {
        return FAKE_LOG_Count(MTE_DBG_MNEMONIC_WARNING, "Nonexistent event");
    }

    std::vector<MTE_TRIGGER_ENTRY_S*> m_apTriggers;
};

// --- single requests --------------------------------------------------------

// A failed sample reports its reason and flushes the last one; the mapping of
// each status to its reason is ConvReason's and the five variables' types and
// values at the trap receiver are E2eTriggers'.
TEST_F(EngineSampler, SingleRequestFiresExistenceAndAFailedOneKeepsNoPreviousSample) {
    FAKE_SNMP_SetInteger("", kScalar, 7);
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("t1", kScalar);
    strcpy(pstTrigger->stRow.szTargetTag, "tagA");
    ENG_AddExistence(pstTrigger, "evExist");
    mte_DBG_EnableSwitch(MTE_DBG_WARNING | MTE_DBG_INFO);

    ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
    EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(pstTrigger->usInstanceReleased, 0);
    EXPECT_EQ(ENG_Instances(), 1u);
    EXPECT_EQ(ENG_PumpAll(), 1u);
    EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstTrigger->pstExist->usFirstCycle, 0);
    EXPECT_EQ(ENG_ListLen(pstTrigger->pstPrevSamples), 1u);
    EXPECT_EQ(pstTrigger->pstCurSamples, nullptr);
    EXPECT_EQ(Sent(), "Fired s=7");
    EXPECT_EQ(FAKE_SNMP_Notifies()[0].strTag, "tagA");
    EXPECT_EQ(EventsRunCount(), 1u);

    // Changed value, then the instance goes away: reported with what was last seen.
    FAKE_SNMP_SetInteger("", kScalar, 9);
    Cycle(pstTrigger);
    FAKE_SNMP_Remove("", kScalar);
    Cycle(pstTrigger);
    EXPECT_EQ(Sent(), "Fired s=7, Fired s=9, Fired s=9");
    for (const char* pszType : {"present", "changed", "absent"}) {
        EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_INFO,
                                 std::string("Type of existence test: ") + pszType),
                  1u);
    }
    EXPECT_EQ(EventsRunCount(), 3u);

    // Back as an unsigned value, without a target tag: sent with hot value 0.
    FAKE_SNMP_SetUnsigned("", kScalar, 77, SNMP_VTYPE_GAUGE32);
    pstTrigger->stRow.szTargetTag[0] = '\0';
    Cycle(pstTrigger);
    EXPECT_EQ(Sent(3), "Fired s=0");
    EXPECT_EQ(FAKE_SNMP_Notifies().back().strTag, "");

    FAKE_SNMP_FailOid(kScalar, SNMP_ST_NO_ACCESS);
    Cycle(pstTrigger);
    EXPECT_EQ(pstTrigger->pstPrevSamples, nullptr);
    EXPECT_EQ(Sent(4), "Failure s=6");
    EXPECT_EQ(FAKE_SNMP_Notifies().back().astVars.back().uiType, 2u);
    EXPECT_EQ(ENG_Scalars().uiTriggerFailures, 1u);
}

// --- walks --------------------------------------------------------------------

TEST_F(EngineSampler, InstanceMaximumReachedMidWalkKeepsOnlyTheLastRefusedSample) {
    mte_SCALAR_SetInstancesMax(3);
    Fill(6);
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("walk", kIfIn, "", true);
    ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
    ASSERT_EQ(mte_run_PumpQueue(1), 1u);
    EXPECT_EQ(ENG_ListLen(pstTrigger->pstCurSamples), 4u);
    ASSERT_NE(pstTrigger->pstCurSamplesTail, nullptr);
    EXPECT_EQ(pstTrigger->pstCurSamplesTail->usOverLimit, 1);
    ENG_PumpAll();
    EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(ENG_ListLen(pstTrigger->pstPrevSamples), 3u);
    EXPECT_EQ(ENG_Instances(), 3u);
    MTE_SCALAR_S stScalars = ENG_Scalars();
    EXPECT_EQ(stScalars.uiSampleInstanceLacks, 3u);
    EXPECT_EQ(stScalars.uiTriggerFailures, 3u);
    EXPECT_EQ(Sent(), "Failure if.4=-1, Failure if.5=-1, Failure if.6=-1");
}

// A context walk visits the prefix first, then longer names, and stops at the
// first name past them. Contexts without the instance leave a marker: a batch
// made only of them resumes after the last one instead of starting over. A
// prefix that is no context of its own is passed over without a failure.
TEST_F(EngineSampler, ContextWalksVisitThePrefixAndLongerNamesOnly) {
    const struct {
        const char *pszValued, *pszEmpty, *pszPrefix;  // contexts, space-separated
        bool bOidWild;
        const char *pszVisited, *pszKept;  // no check of visits if empty
    } astCases[] = {
        {"b c1 c1a c1b c2x", "", "c1", false, "c1 c1a c1b", "c1/s c1a/s c1b/s"},
        {"c6 d", "c c1 c2 c3 c4 c5", "c", false, "c c1 c2 c3 c4 c5 c6", "c6/s"},
        {"vrf1 vrf2", "", "vrf", false, "", "vrf1/s vrf2/s"},
        {"vrf1 vrf2", "", "vrf", true, "", "vrf1/if.1 vrf2/if.1"},
    };
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(&stCase - astCases);
        FAKE_SNMP_Reset();
        std::istringstream stEmpty(stCase.pszEmpty), stValued(stCase.pszValued);
        for (std::string strContext; stEmpty >> strContext;) {
            FAKE_SNMP_AddContext(strContext);
        }
        for (std::string strContext; stValued >> strContext;) {
            FAKE_SNMP_SetInteger(strContext, stCase.bOidWild ? Sub(kIfIn, {1}) : kScalar, 1);
        }
        MTE_TRIGGER_ENTRY_S* pstTrigger =
            Make("ctx", stCase.bOidWild ? kIfIn : kScalar, stCase.pszPrefix, stCase.bOidWild, true);
        Cycle(pstTrigger);
        std::string strVisited;
        for (const auto& stReq : FAKE_SNMP_Gets()) {
            Add(strVisited, stReq.strContext, " ");
        }
        EXPECT_EQ(stCase.pszVisited[0] == '\0' ? "" : strVisited, stCase.pszVisited);
        EXPECT_EQ(Kept(pstTrigger), stCase.pszKept);
        EXPECT_EQ(ENG_Instances(), ENG_ListLen(pstTrigger->pstPrevSamples));
        EXPECT_TRUE(FAKE_SNMP_Notifies().empty());
        EXPECT_EQ(ENG_Scalars().uiTriggerFailures, 0u);
        SetState(pstTrigger, MTE_RUN_IDLE, true);
    }
}

// Wildcarded instances and contexts together: context then OID order, and the
// next cycle pairs what stayed and reports what went (with its last value),
// changed and came.
TEST_F(EngineSampler, WalkOverInstancesAndContextsPairsTheNextCycle) {
    FAKE_SNMP_SetInteger("v", Sub(kIfIn, {1}), 1);
    FAKE_SNMP_SetInteger("v", Sub(kIfIn, {2}), 2);
    FAKE_SNMP_AddContext("v1");
    for (uint32_t i = 1; i <= 3; ++i) {
        FAKE_SNMP_SetInteger("v2", Sub(kIfIn, {i}), 1);
    }
    FAKE_SNMP_SetInteger("v2", {1, 3, 6, 1, 2, 1, 2, 2, 1, 11, 1}, 1);
    FAKE_SNMP_SetInteger("w", Sub(kIfIn, {1}), 1);
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("both", kIfIn, "v", true, true);
    ENG_AddExistence(pstTrigger, "", MTE_EXIST_PRESENT | MTE_EXIST_ABSENT | MTE_EXIST_CHANGED,
                     MTE_EXIST_PRESENT);
    Cycle(pstTrigger);
    EXPECT_EQ(Kept(pstTrigger), "v/if.1 v/if.2 v2/if.1 v2/if.2 v2/if.3");
    EXPECT_EQ(ENG_Instances(), 5u);
    EXPECT_EQ(Sent(),
              "Fired v/if.1=1, Fired v/if.2=2, Fired v2/if.1=1, Fired v2/if.2=1, Fired v2/if.3=1");

    FAKE_SNMP_Remove("v2", Sub(kIfIn, {2}));
    FAKE_SNMP_SetInteger("v2", Sub(kIfIn, {3}), 31);
    FAKE_SNMP_SetInteger("v2", Sub(kIfIn, {4}), 40);
    Cycle(pstTrigger);
    EXPECT_EQ(Sent(5), "Fired v2/if.2=1, Fired v2/if.3=31, Fired v2/if.4=40");
    EXPECT_EQ(Kept(pstTrigger), "v/if.1 v/if.2 v2/if.1 v2/if.3 v2/if.4");
    EXPECT_EQ(ENG_Instances(), 5u);
}

TEST_F(EngineSampler, FailedWalkStepReportsAndFlushesThePreviousCycle) {
    Fill(4);
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("walk", kIfIn, "", true);
    // Present at the first cycle, but the startup rule holds it back.
    ENG_AddExistence(pstTrigger, "", MTE_EXIST_PRESENT | MTE_EXIST_ABSENT, 0);
    Cycle(pstTrigger);
    EXPECT_TRUE(FAKE_SNMP_Notifies().empty());
    FAKE_SNMP_FailOid(Sub(kIfIn, {2}), SNMP_ST_GEN_ERR);
    Cycle(pstTrigger);
    // Instances 3 and 4 were not reached: the flush reports them absent.
    EXPECT_EQ(Sent(), "Failure if.2=5, Fired if.3=3, Fired if.4=4");
    EXPECT_EQ(Kept(pstTrigger), "if.1 if.2");
    EXPECT_EQ(ENG_Instances(), 2u);
}

TEST_F(EngineSampler, FullQueueEndsTheWalkAtTheEndOfTheBatch) {
    Fill(12);
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("walk", kIfIn, "", true);
    ENG_AddExistence(pstTrigger, "", MTE_EXIST_ABSENT, 0);
    Cycle(pstTrigger);
    ASSERT_EQ(ENG_Instances(), 12u);

    // An idle trigger's messages are stale and skipped by the worker.
    MTE_TRIGGER_ENTRY_S* pstFiller = Make("filler", kScalar);
    ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
    for (uint32_t i = 1; i < MTE_QUEUE_DEPTH; ++i) {
        ASSERT_EQ(mte_run_WriteQueue(pstFiller), 0u);
    }
    FAKE_SNMP_SetStallMs(20);
    std::thread stWorker([] { mte_run_PumpQueue(1); });
    ASSERT_TRUE(FAKE_SNMP_WaitForStall(5000));
    ASSERT_EQ(mte_run_WriteQueue(pstFiller), 0u);  // the queue is full again
    stWorker.join();
    FAKE_SNMP_SetStallMs(0);

    EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(ENG_ListLen(pstTrigger->pstPrevSamples), 5u);
    EXPECT_EQ(ENG_Instances(), 5u);
    EXPECT_EQ(FAKE_SNMP_Notifies().size(), 7u);  // the instances not reached, as absent
    EXPECT_EQ(ENG_PumpAll(), MTE_QUEUE_DEPTH);
}

// --- run states ---------------------------------------------------------------

TEST_F(EngineSampler, RequestsMadeWhileQueuedAreCompletedAtDequeue) {
    for (uint32_t uiState : {MTE_RUN_CANCELLED, MTE_RUN_DELETED, MTE_RUN_RESTART}) {
        SCOPED_TRACE(uiState);
        FAKE_SNMP_Reset();
        FAKE_SNMP_SetInteger("", kScalar, 7);
        MTE_TRIGGER_ENTRY_S* pstTrigger = Make("t", kScalar);
        ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
        SetState(pstTrigger, uiState, uiState == MTE_RUN_DELETED);
        EXPECT_EQ(mte_run_PumpQueue(1), 1u);
        if (uiState == MTE_RUN_DELETED) {
            Forget(pstTrigger);
            EXPECT_EQ(mte_run_PumpQueue(1), 0u);
            EXPECT_EQ(FAKE_SNMP_CallCount(), 0u);
            continue;
        }
        EXPECT_TRUE(FAKE_SNMP_Gets().empty());
        // A restarted one is queued again at once and sampled.
        bool bRestart = uiState == MTE_RUN_RESTART;
        EXPECT_EQ(pstTrigger->uiRunState, bRestart ? MTE_RUN_BUSY : MTE_RUN_IDLE);
        EXPECT_EQ(mte_run_PumpQueue(1), bRestart ? 1u : 0u);
        EXPECT_EQ(FAKE_SNMP_Gets().size(), bRestart ? 1u : 0u);
        EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
        EXPECT_EQ(ENG_ListLen(pstTrigger->pstPrevSamples), bRestart ? 1u : 0u);
    }
}

// A walk goes in batches of five. The client's read-ahead for it lives as
// long as the cycle and ends with it, whether the cycle completes or is
// dropped between batches: deactivation and destruction drop the samples
// before they mark the trigger, and a restart runs a whole new cycle.
TEST_F(EngineSampler, WalkBatchesAndStopDestroyOrRestartBetweenThem) {
    Fill(12);
    FAKE_SNMP_SetInteger("", {1, 3, 6, 1, 2, 1, 2, 2, 1, 11, 1}, 0);  // past the column
    for (uint32_t uiState : {MTE_RUN_CANCELLED, MTE_RUN_DELETED, MTE_RUN_RESTART}) {
        SCOPED_TRACE(uiState);
        bool bRestart = uiState == MTE_RUN_RESTART;
        MTE_TRIGGER_ENTRY_S* pstTrigger = Make("walk", kIfIn, "", true);
        size_t uiGetNexts = FAKE_SNMP_GetNexts().size();
        size_t uiEnded = FAKE_SNMP_EndedWalks().size();
        ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
        ASSERT_EQ(mte_run_PumpQueue(1), 1u);
        EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_BUSY);
        EXPECT_EQ(ENG_ListLen(pstTrigger->pstCurSamples), 5u);
        EXPECT_EQ(ENG_Instances(), 5u);
        EXPECT_EQ(FAKE_SNMP_EndedWalks().size(), uiEnded);
        SetState(pstTrigger, bRestart ? MTE_RUN_CANCELLED : uiState, true);
        if (bRestart) {
            SetState(pstTrigger, MTE_RUN_RESTART);
        }
        EXPECT_EQ(ENG_Instances(), 0u);
        EXPECT_EQ(ENG_PumpAll(), bRestart ? 4u : 1u);
        EXPECT_EQ(FAKE_SNMP_EndedWalks().size(), uiEnded + (bRestart ? 2 : 1));
        EXPECT_EQ(FAKE_SNMP_EndedWalks()[uiEnded], pstTrigger);
        auto astGetNexts = FAKE_SNMP_GetNexts();
        EXPECT_EQ(astGetNexts.size(), uiGetNexts + 5 + (bRestart ? 13 : 0));
        for (size_t i = uiGetNexts; i < astGetNexts.size(); ++i) {
            EXPECT_EQ(astGetNexts[i].pWalk, pstTrigger);
        }
        if (uiState == MTE_RUN_DELETED) {
            Forget(pstTrigger);
            continue;
        }
        EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
        EXPECT_EQ(pstTrigger->pstCurSamples, nullptr);
        EXPECT_EQ(Kept(pstTrigger), bRestart ? "if.1 if.2 if.3 if.4 if.5 if.6 if.7 if.8 if.9 "
                                               "if.10 if.11 if.12"
                                             : "");
        EXPECT_EQ(ENG_Instances(), bRestart ? 12u : 0u);
        SetState(pstTrigger, MTE_RUN_IDLE, true);
    }
}

TEST_F(EngineSampler, StopOrDestroyDuringTheAgentRequestDropsTheResult) {
    FAKE_SNMP_SetInteger("", kScalar, 7);
    for (uint32_t uiState : {MTE_RUN_CANCELLED, MTE_RUN_DELETED}) {
        SCOPED_TRACE(uiState);
        MTE_TRIGGER_ENTRY_S* pstTrigger = Make("t", kScalar);
        ENG_AddExistence(pstTrigger, "");
        ASSERT_EQ(ENG_Queue(pstTrigger), 0u);
        FAKE_SNMP_SetStallMs(200);
        std::thread stWorker([] { ENG_PumpAll(); });
        ASSERT_TRUE(FAKE_SNMP_WaitForStall(5000));
        SetState(pstTrigger, uiState, true);
        stWorker.join();
        FAKE_SNMP_SetStallMs(0);
        EXPECT_TRUE(FAKE_SNMP_Notifies().empty());
        if (uiState == MTE_RUN_DELETED) {
            Forget(pstTrigger);
            continue;
        }
        EXPECT_EQ(pstTrigger->uiRunState, MTE_RUN_IDLE);
        EXPECT_EQ(pstTrigger->pstPrevSamples, nullptr);
        EXPECT_EQ(pstTrigger->pstCurSamples, nullptr);
    }
}

// A trigger still busy at its expiry overruns and its pending cycle goes on
// undisturbed; a single trigger refused at the instance maximum is not queued.
// The failure's debug text lists its pieces in order.
// The trap switch holding every notification back is E2eTriggers'.
TEST_F(EngineSampler, TimerExpiryOfABusyTriggerOrAtTheInstanceMaximumFails) {
    mte_DBG_EnableSwitch(MTE_DBG_INFO);
    MTE_TRIGGER_ENTRY_S* pstBusy = Make("t", kScalar, "ctxA");
    ASSERT_EQ(ENG_Queue(pstBusy), 0u);
    EXPECT_EQ(mte_RUN_ProcTimer(pstBusy), 0u);
    EXPECT_EQ(pstBusy->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_INFO,
                             "\r\n   Condition to generate the mteTriggerFailure notification "
                             "occurred.\r\n   TriggerOwner: own\r\n   TriggerName: t\r\n   "
                             "TriggerTargetTag: N/A\r\n   ContextName: ctxA\r\n   ValueID: "
                             "1.3.6.1.4.1.99.1.0\r\n   FailedReason: sampleOverrun"),
              1u);
    mte_SCALAR_SetInstancesMax(1);
    MTE_TRIGGER_ENTRY_S* pstRefused = Make("b", kIfIn);
    EXPECT_NE(mte_RUN_ProcTimer(pstRefused), 0u);
    EXPECT_EQ(pstRefused->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstRefused->usInstanceReleased, 1);
    MTE_SCALAR_S stScalars = ENG_Scalars();
    EXPECT_EQ(stScalars.uiSampleInstanceLacks, 1u);
    EXPECT_EQ(stScalars.uiTriggerFailures, 2u);
    // sampleOverrun, localResourceLack
    EXPECT_EQ(Sent(), "Failure ctxA/s=-6, Failure if=-1");
    EXPECT_EQ(ENG_PumpAll(), 1u);
}

// --- evaluation ---------------------------------------------------------------

TEST_F(EngineSampler, BooleanFiresOnTheInstancesThatMatchWithTheirFullOids) {
    FAKE_SNMP_SetInteger("", Sub(kIfIn, {1}), 5);
    FAKE_SNMP_SetInteger("", Sub(kIfIn, {2}), 20);
    FAKE_SNMP_SetString("", Sub(kIfIn, {3}), "text");
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("b", kIfIn, "", true);
    ENG_AddBoolean(pstTrigger, MTE_BOOL_GREATER, 10, "evBool");
    mte_DBG_EnableSwitch(MTE_DBG_WARNING | MTE_DBG_INFO);
    Cycle(pstTrigger);
    EXPECT_EQ(Sent(), "Fired if.2=20, Failure if.3=-5");  // badType
    EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_INFO, "Type of boolean comparison: greater"), 1u);
    EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_INFO, "FailedReason: badType"), 1u);
    EXPECT_EQ(EventsRunCount(), 1u);
}

// Both pairs' events run in that order, and the firing's debug text lists
// its pieces in order.
TEST_F(EngineSampler, AbsoluteRisingAndDeltaFallingInOnePairRunInThatOrder) {
    FAKE_SNMP_SetInteger("", kScalar, 50);
    MTE_TRIGGER_ENTRY_S* pstTrigger = Make("th", kScalar);
    ENG_AddThreshold(pstTrigger, MTE_THRES_STARTUP_FALLING, 10, 0, 100, -10);
    mte_DBG_EnableSwitch(MTE_DBG_WARNING | MTE_DBG_INFO);
    Cycle(pstTrigger);
    EXPECT_TRUE(FAKE_SNMP_Notifies().empty());
    FAKE_SNMP_SetInteger("", kScalar, 20);
    Cycle(pstTrigger);
    EXPECT_EQ(Sent(), "Rising s=20, Falling s=20");
    EXPECT_EQ(EventsRun(),
              "Event entry own-evRising: Nonexistent event., Event entry own-evDeltaFalling: "
              "Nonexistent event.");

    // A rising startup fires at the first sample already.
    MTE_TRIGGER_ENTRY_S* pstRising = Make("r", kScalar);
    ENG_AddThreshold(pstRising, MTE_THRES_STARTUP_RISING, 10, 0, 100, -100);
    Cycle(pstRising);
    EXPECT_EQ(Sent(2), "Rising s=20");
    EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_INFO,
                             "\r\n   Condition to generate the mteTriggerRising notification "
                             "occurred.\r\n   TriggerOwner: own\r\n   TriggerName: r\r\n   "
                             "TriggerTest: Threshold\r\n   Rising: 10\r\n   ValueID: "
                             "1.3.6.1.4.1.99.1.0\r\n   Value of mteTriggerValueID: 20\r\n   "
                             "ContextName: N/A"),
              1u);
}

// --- discontinuities of delta triggers ----------------------------------------

const FAKE_OID kUpTime = {1, 3, 6, 1, 2, 1, 1, 3, 0};

// A single trigger reads sysUpTime.0 in the sample's own GET; a walk reads it
// once per cycle (instance 7 is in the second batch).
TEST_F(EngineSampler, AgentRestartIsNoDeltaAndTheNextRealRiseFires) {
    for (bool bWalk : {false, true}) {
        SCOPED_TRACE(bWalk ? "walk" : "single");
        FAKE_SNMP_Reset();
        const FAKE_OID astValue = bWalk ? Sub(kIfIn, {7}) : kScalar;
        for (uint32_t i = 1; bWalk && i <= 6; ++i) {
            FAKE_SNMP_SetInteger("", Sub(kIfIn, {i}), 1000);
        }
        MTE_TRIGGER_ENTRY_S* pstTrigger = bWalk ? Make("dw", kIfIn, "", true) : Make("d", kScalar);
        // A delta threshold that fires on a rise or fall of 100 per sample.
        ENG_AddThreshold(pstTrigger, MTE_THRES_STARTUP_RISING_OR_FALLING, INT32_MAX, INT32_MIN, 100,
                         -100);
        ENG_AddDelta(pstTrigger, kUpTime, false, MTE_DELTA_TIME_TICKS);
        mte_DBG_EnableSwitch(MTE_DBG_INFO);
        struct {
            int32_t iValue;
            uint32_t uiUpTime;
            const char* pszFired;
        } astCycles[] = {
            {1000, 500, ""},      {1050, 600, ""},
            {5, 10, ""},  // restarted: a fall of 1045 that is no delta
            {300, 110, "Rising"}, {100, 210, "Falling"},
        };
        for (const auto& stCycle : astCycles) {
            SCOPED_TRACE(stCycle.iValue);
            FAKE_SNMP_SetInteger("", astValue, stCycle.iValue);
            FAKE_SNMP_SetUnsigned("", kUpTime, stCycle.uiUpTime, SNMP_VTYPE_TIMETICKS);
            size_t uiSeen = FAKE_SNMP_Notifies().size();
            Cycle(pstTrigger);
            std::string strFired = stCycle.pszFired;
            EXPECT_EQ(Sent(uiSeen), strFired.empty() ? ""
                                                     : strFired + " " + Short("", astValue) + "=" +
                                                           std::to_string(stCycle.iValue));
        }
        EXPECT_EQ(FAKE_LOG_Count(MTE_DBG_MNEMONIC_INFO,
                                 "discontinuity at " + FAKE_SNMP_OidStr(astValue) + " "),
                  1u);
        EXPECT_EQ(FAKE_SNMP_Gets().size(), (bWalk ? 1 : 2) * std::size(astCycles));

        // An indicator that cannot be read makes the sample a failed one.
        FAKE_SNMP_FailOid(kUpTime, SNMP_ST_NO_ACCESS);
        size_t uiSeen = FAKE_SNMP_Notifies().size();
        Cycle(pstTrigger);
        EXPECT_EQ(Sent(uiSeen), "Failure 1.3.6.1.2.1.1.3.0=6");
        EXPECT_EQ(pstTrigger->pstPrevSamples, nullptr);
        FAKE_LOG_Clear();
    }
}

// --- drain and exit -------------------------------------------------------------

// A drain returns queued triggers to idle and frees destroyed ones; an exit
// alone leaves the queue as it is; the end drops the queued messages without
// touching their triggers.
TEST_F(EngineSampler, DrainExitAndFiniOfTheQueue) {
    FAKE_SNMP_SetInteger("", kScalar, 1);
    MTE_TRIGGER_ENTRY_S* pstA = Make("a", kScalar);
    MTE_TRIGGER_ENTRY_S* pstB = Make("b", kIfIn, "", true);
    MTE_TRIGGER_ENTRY_S* pstC = Make("c", kScalar);
    for (auto* p : {pstA, pstB, pstC}) {
        ASSERT_EQ(ENG_Queue(p), 0u);
    }
    SetState(pstC, MTE_RUN_DELETED, true);
    Forget(pstC);
    Drain();
    EXPECT_EQ(pstA->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(pstB->uiRunState, MTE_RUN_IDLE);
    EXPECT_EQ(FAKE_SNMP_EndedWalks(), std::vector<const void*>{nullptr});
    EXPECT_EQ(mte_run_PumpQueue(10), 0u);
    EXPECT_EQ(FAKE_SNMP_CallCount(), 0u);

    ASSERT_EQ(ENG_Queue(pstA), 0u);
    Control(MTE_RUN_CTRL_EXIT);
    EXPECT_EQ(pstA->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(mte_run_PumpQueue(10), 1u);

    ASSERT_EQ(ENG_Queue(pstA), 0u);
    uint64_t ulCalls = FAKE_SNMP_CallCount();
    mte_RUN_Fini();
    EXPECT_EQ(mte_RUN_GetEventFd(), -1);
    EXPECT_EQ(pstA->uiRunState, MTE_RUN_BUSY);
    EXPECT_EQ(FAKE_SNMP_CallCount(), ulCalls);
    mte_RUN_Fini();
}

}  // namespace
