// Running events against the fake agent: the bindings of a configured
// notification (order, wildcard suffix, the 128 limit, missing groups, failed
// fetches), disabled and missing events, the set action's wildcard rules and
// failure paths, and the lock discipline while the agent is slow.
#include <atomic>
#include <chrono>
#include <thread>

#include "event_test_util.h"
#include "mte_conv.h"
#include "plat_snmp.h"

namespace {
const FAKE_OID kNotifyOid = {1, 3, 6, 1, 4, 1, 99, 0, 1};

// Trigger own/trig, fully specified, in context "ctx" with target tag "tag".
MTE_TRIGGER_ROW_S Trigger(const std::string& strObjOwner = "", const std::string& strObjects = "") {
    MTE_TRIGGER_ROW_S stTrigger{};
    CopyStr(stTrigger.szOwner, sizeof(stTrigger.szOwner), "own");
    CopyStr(stTrigger.szName, sizeof(stTrigger.szName), "trig");
    CopyStr(stTrigger.szObjectsOwner, sizeof(stTrigger.szObjectsOwner), strObjOwner);
    CopyStr(stTrigger.szObjects, sizeof(stTrigger.szObjects), strObjects);
    CopyStr(stTrigger.szTargetTag, sizeof(stTrigger.szTargetTag), "tag");
    CopyStr(stTrigger.szContextName, sizeof(stTrigger.szContextName), "ctx");
    return stTrigger;
}

MTE_FIRED_EVENT_S Fired(const std::string& strEvent, const FAKE_OID& astSuffix = {},
                        const std::string& strContext = "", const std::string& strObjOwner = "",
                        const std::string& strObjects = "") {
    MTE_FIRED_EVENT_S stFired{};
    stFired.uiSuffixLen = static_cast<uint32_t>(astSuffix.size());
    std::copy(astSuffix.begin(), astSuffix.end(), stFired.auiSuffix);
    CopyStr(stFired.szEventOwner, sizeof(stFired.szEventOwner), "own");
    CopyStr(stFired.szEventName, sizeof(stFired.szEventName), strEvent);
    CopyStr(stFired.szContextName, sizeof(stFired.szContextName), strContext);
    CopyStr(stFired.szObjectsOwner, sizeof(stFired.szObjectsOwner), strObjOwner);
    CopyStr(stFired.szObjectsName, sizeof(stFired.szObjectsName), strObjects);
    return stFired;
}

uint32_t EventFailures() {
    MTE_SCALAR_S stScalars{};
    mte_SCALAR_Get(&stScalars);
    return stScalars.uiEventFailures;
}

class EventRunTest : public EventFixture {
  protected:
    // An object row own/<group>/<index> naming the OID, with a value in the
    // fake agent's MIB (the index as an integer) unless told otherwise.
    void AddObject(const std::string& strGroup, uint32_t uiIndex, const FAKE_OID& astOid,
                   bool bWildcard = false, bool bValue = true) {
        ASSERT_EQ(
            SetObj(ObjReq("own", strGroup, uiIndex, 4, astOid, bWildcard ? MTE_TRUE : MTE_FALSE),
                   kObjMaskCreate),
            0u);
        if (bValue) {
            FAKE_SNMP_SetInteger("", astOid, static_cast<int32_t>(uiIndex));
        }
    }
    // Adds the bindings of group own/<group> to the list; returns the list as
    // "<oid> ..." ("old" for an element without a value) and checks its tail.
    static std::string Fetch(const char* pszGroup, const FAKE_OID& astSuffix,
                             const char* pszContext, MTE_VB_LIST_S* pstList) {
        char aszGroup[2][MTE_NAME_SIZE] = {"own", ""};
        CopyStr(aszGroup[1], MTE_NAME_SIZE, pszGroup);
        MTE_OID_S stSuffix = FAKE_SNMP_MakeOid(astSuffix);
        mte_OBJ_GetObjVBlist(aszGroup, &stSuffix, pszContext, pstList);
        std::string strOut;
        const MTE_VB_S* pstLast = nullptr;
        for (const MTE_VB_S* p = pstList->pstHead; p != nullptr; pstLast = p, p = p->pstNext) {
            strOut +=
                (strOut.empty() ? "" : " ") +
                (p->pValue == nullptr ? "old" : FAKE_SNMP_OidStr(FAKE_SNMP_ToVector(p->stOID)));
        }
        EXPECT_EQ(pstList->pstTail, pstLast);
        return strOut;
    }
    // An active event with the actions; the notification row names kNotifyOid
    // and the group, the set row is written with the request given.
    void AddEvent(const std::string& strName, uint8_t ucActions, const std::string& strGroup = "",
                  const MTE_SET_ENTRY_S* pstSet = nullptr, uint32_t uiSetMask = 0x6e) {
        ASSERT_EQ(SetEvent(EventReq("own", strName, 5, ucActions), kEventMaskAll), 0u);
        if (ucActions & MTE_ACTION_NOTIFICATION) {
            ASSERT_EQ(SetNotify(NotifyReq("own", strName, kNotifyOid, strGroup.empty() ? "" : "own",
                                          strGroup),
                                0x0e),
                      0u);
        }
        if (pstSet != nullptr) {
            ASSERT_EQ(SetSet(*pstSet, uiSetMask), 0u);
        }
        ASSERT_EQ(SetEvent(EventReq("own", strName, 1), 0x40), 0u);
    }
};

// ---------------------------------------------------------------------------
// Notification and its bindings.
// ---------------------------------------------------------------------------
TEST_F(EventRunTest, BindingsComeTriggerThenTestThenNotificationObjectsInIndexOrder) {
    AddObject("tg", 2, {1, 3, 6, 1, 2});
    AddObject("tg", 1, {1, 3, 6, 1, 1});
    AddObject("ts", 3, {1, 3, 6, 1, 3});
    AddObject("nt", 5, {1, 3, 6, 1, 5});
    AddObject("nt", 4, {1, 3, 6, 1, 4});
    AddObject("other", 1, {1, 3, 6, 1, 9});
    MTE_SET_ENTRY_S stSet = SetReq("own", "ev", {1, 3, 6, 1, 7}, 5);
    FAKE_SNMP_SetInteger("", {1, 3, 6, 1, 7}, 0);
    AddEvent("ev", 0xC0, "nt", &stSet);
    MTE_TRIGGER_ROW_S stTrigger = Trigger("own", "tg");
    MTE_FIRED_EVENT_S stFired = Fired("ev", {}, "", "own", "ts");
    mte_EVENT_Run(&stTrigger, &stFired);
    // The notification goes out before the set.
    EXPECT_EQ(FAKE_SNMP_Journal(),
              (std::vector<std::string>{"trap 1.3.6.1.4.1.99.0.1", "set  1.3.6.1.7"}));
    ASSERT_EQ(FAKE_SNMP_Sets().size(), 1u);
    EXPECT_EQ(FAKE_SNMP_Sets()[0].strOwner, "own");
    EXPECT_EQ(FAKE_SNMP_Sets()[0].iValue, 5);
    auto astTraps = FAKE_SNMP_Traps();
    ASSERT_EQ(astTraps.size(), 1u);
    // "<oid>=<value>": each object's value is its index.
    std::string strBindings;
    for (const FAKE_SNMP_VB_S& stVb : astTraps[0].astBindings) {
        int32_t iValue = -1;
        memcpy(&iValue, stVb.strBytes.data(), std::min<size_t>(stVb.strBytes.size(), 4));
        strBindings += FAKE_SNMP_OidStr(stVb.astOid) + "=" + std::to_string(iValue) + " ";
    }
    EXPECT_EQ(strBindings, "1.3.6.1.1=1 1.3.6.1.2=2 1.3.6.1.3=3 1.3.6.1.4=4 1.3.6.1.5=5 ");
    auto astGets = FAKE_SNMP_Gets();
    EXPECT_EQ(astGets.size(), 5u);
    EXPECT_TRUE(std::all_of(astGets.begin(), astGets.end(), [](const FAKE_SNMP_REQ_S& stGet) {
        return stGet.strOwner == "own";
    })) << "the group's owner asks the agent";
}

TEST_F(EventRunTest, WildcardedObjectsTakeTheSuffixUpTo128SubIdentifiers) {
    FAKE_OID ast128(120, 7);
    AddObject("w", 1, ast128, true, false);
    AddObject("w", 2, {1, 3, 6, 1, 2}, false);
    ast128.insert(ast128.end(), {1, 2, 3, 4, 5, 6, 7, 8});
    FAKE_SNMP_SetInteger("ctx", ast128, 11);
    FAKE_SNMP_SetInteger("ctx", {1, 3, 6, 1, 2}, 12);
    mte_DBG_EnableSwitch(MTE_DBG_ERR);
    MTE_VB_LIST_S stList{};
    EXPECT_EQ(Fetch("w", {1, 2, 3, 4, 5, 6, 7, 8, 9}, "ctx", &stList), "1.3.6.1.2");  // 129: out
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", "Invalid OID length."), 1u);
    mte_OBJ_FreeVBlist(&stList);
    EXPECT_EQ(Fetch("w", {1, 2, 3, 4, 5, 6, 7, 8}, "ctx", &stList),
              FAKE_SNMP_OidStr(ast128) + " 1.3.6.1.2");
    mte_OBJ_FreeVBlist(&stList);
    // A fully specified trigger (empty suffix) cannot complete a wildcarded row.
    EXPECT_EQ(Fetch("w", {}, "ctx", &stList), "1.3.6.1.2");
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR",
                             "Variable binding failed because the object own-w-1 in the objects "
                             "table is wildcarded but the trigger object is fully specified."),
              1u);
    mte_OBJ_FreeVBlist(&stList);
}

TEST_F(EventRunTest, FailedFetchesAreUnlinkedAndTheListKeepsItsEnds) {
    AddObject("g", 1, {1, 1}, false, false);
    AddObject("g", 2, {1, 2});
    AddObject("g", 3, {1, 3}, false, false);
    // Every fetch fails: the list comes back as it was, an element already in it untouched.
    auto* pstOld = static_cast<MTE_VB_S*>(calloc(1, sizeof(MTE_VB_S)));
    MTE_VB_LIST_S stList{pstOld, pstOld};
    FAKE_SNMP_FailOid({1, 2}, SNMP_ST_TIMEOUT);
    EXPECT_EQ(Fetch("g", {}, "", &stList), "old");
    EXPECT_EQ(FAKE_SNMP_Gets().size(), 3u);
    // Only the middle one answers: it is the new tail.
    FAKE_SNMP_FailOid({1, 2}, 0);
    EXPECT_EQ(Fetch("g", {}, "", &stList), "old 1.2");
    mte_OBJ_FreeVBlist(&stList);
    EXPECT_EQ(stList.pstHead, nullptr);
    // Starting from an empty list, with only the last value missing.
    FAKE_SNMP_SetInteger("", {1, 1}, 1);
    EXPECT_EQ(Fetch("g", {}, "", &stList), "1.1 1.2");
    mte_OBJ_FreeVBlist(&stList);
}

// A notification without an OID sends nothing; a missing objects group warns
// and the notification still goes out. A refused send is an event failure,
// and one refused for a full relay queue also a notification drop, traced at
// the start and the end of a burst only. A disabled or missing event only
// warns, and only while warnings are on.
TEST_F(EventRunTest, NotificationFailuresWarnOrCount) {
    AddObject("nt", 1, {1, 3, 6, 1, 1});
    AddEvent("ev", 0x80, "nt");
    AddEvent("plain", 0x80);
    ASSERT_EQ(SetEvent(EventReq("own", "blank", 4, 0x80), kEventMaskAll), 0u);
    mte_DBG_EnableSwitch(MTE_DBG_WARNING);
    uint32_t uiBefore = EventFailures();
    MTE_TRIGGER_ROW_S stTrigger = Trigger();
    MTE_FIRED_EVENT_S stBlank = Fired("blank");
    mte_EVENT_Run(&stTrigger, &stBlank);
    EXPECT_EQ(FAKE_SNMP_CallCount(), 0u);

    stTrigger = Trigger("own", "absent");
    // The test's pair has an owner but no name: skipped without a word.
    MTE_FIRED_EVENT_S stFired = Fired("ev", {}, "", "own", "");
    mte_EVENT_Run(&stTrigger, &stFired);
    auto astTraps = FAKE_SNMP_Traps();
    ASSERT_EQ(astTraps.size(), 1u);
    ASSERT_EQ(astTraps[0].astBindings.size(), 1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING", "Objects entry own-absent: Nonexistent objects."),
              1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING"), 1u);
    EXPECT_EQ(EventFailures(), uiBefore);

    stTrigger = Trigger();
    stFired = Fired("plain", {}, "c1");
    FAKE_SNMP_SetTrapResult(SNMP_ST_CLIENT_ERROR);
    mte_EVENT_Run(&stTrigger, &stFired);
    EXPECT_EQ(FAKE_SNMP_Traps().back().strContext, "c1");
    EXPECT_EQ(EventFailures(), uiBefore + 1);
    FAKE_SNMP_SetTrapResult(SNMP_ST_LOCAL_RESOURCE);
    mte_EVENT_Run(&stTrigger, &stFired);
    mte_EVENT_Run(&stTrigger, &stFired);
    FAKE_SNMP_SetTrapResult(0);
    mte_EVENT_Run(&stTrigger, &stFired);
    mte_EVENT_Run(&stTrigger, &stFired);
    EXPECT_EQ(mte_SCALAR_GetNotificationDrops(), 2u);
    EXPECT_EQ(EventFailures(), uiBefore + 3);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", "queue for eventmib-agentx is full"), 1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE", "has room again; 2 notifications were dropped"), 1u);

    ASSERT_EQ(SetEvent(EventReq("own", "plain", 2), 0x40), 0u);  // notInService, disabled
    uint64_t ulCalls = FAKE_SNMP_CallCount();
    MTE_FIRED_EVENT_S stMissing = Fired("nope");
    mte_EVENT_Run(&stTrigger, &stFired);
    mte_EVENT_Run(&stTrigger, &stMissing);
    EXPECT_EQ(FAKE_SNMP_CallCount(), ulCalls);
    EXPECT_EQ(EventFailures(), uiBefore + 3);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING", "Event entry own-plain: Event disabled."), 1u);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING", "Event entry own-nope: Nonexistent event."), 1u);
    mte_DBG_DisableSwitch(MTE_DBG_WARNING);
    mte_EVENT_Run(&stTrigger, &stMissing);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING"), 3u);
}

// ---------------------------------------------------------------------------
// Set action.
// ---------------------------------------------------------------------------
constexpr uint32_t W = MTE_TRUE, F = MTE_FALSE;  // wildcarded, fully specified
constexpr uint32_t GEN = SNMP_ST_GEN_ERR, NOCR = SNMP_ST_NO_CREATION, WRONG = SNMP_ST_WRONG_TYPE;
const FAKE_OID kObj = {1, 3, 6, 1, 4, 1, 5, 1, 2, 3};
const FAKE_OID kObj78 = {1, 3, 6, 1, 4, 1, 5, 1, 2, 3, 7, 8};
const FAKE_OID kOid127(127, 1);
const std::string kLong(32, 'p');
const char* const LONG = kLong.c_str();

struct SET_CASE_S {
    FAKE_OID astObject;  // the set row
    uint32_t uiObjWild;
    const char* pszSetContext;
    uint32_t uiCtxWild;
    uint32_t uiTrigValueWild;  // the trigger (its context "ctx")
    uint32_t uiTrigCtxWild;
    FAKE_OID astSuffix;  // the instance that fired
    const char* pszInstanceContext;
    bool bAgentFails;  // expected: the result comes from the agent's answer
    uint32_t uiCode;
    const char* pszMessage;  // EVENTMIB_ERR fragment, "" for none
    FAKE_OID astTarget;
    const char* pszTargetContext;
};

const SET_CASE_S kSetCases[] = {
    // A plain set; the wildcarded object and context take the instance's suffix
    // and the rest of its context; an instance context shorter than the prefix.
    {kObj, F, "c", F, F, F, {7, 8}, "", false, 0, "", kObj, "c"},
    {kObj, W, "", F, W, F, {7, 8}, "", false, 0, "", kObj78, ""},
    {kObj, F, "pre", W, F, W, {}, "ctxA1", false, 0, "", kObj, "preA1"},
    {kObj, F, "pre", W, F, W, {}, "c", false, 0, "", kObj, "pre"},
    // No object: nothing to do.
    {{}, W, "", W, F, F, {}, "", false, 0, "", {}, ""},
    // Wildcarded object or context against a fully specified trigger; the
    // object is checked first.
    {kObj, W, "", F, F, F, {7, 8}, "", false, GEN, "set object is wildcarded", kObj, ""},
    {kObj, F, "pre", W, F, F, {}, "ctxA1", false, GEN, "name is wildcarded", kObj, "pre"},
    {kObj, W, "pre", W, F, F, {}, "ctxA1", false, GEN, "Set target object failed", kObj, "pre"},
    // Context or OID too long once completed.
    {kObj, F, LONG, W, F, W, {}, "ctxA1", false, NOCR, "context name length", kObj, LONG},
    {kOid127, W, "", F, W, F, {7, 8}, "", false, NOCR, "Invalid OID length.", kOid127, ""},
    // The agent refuses: wrong type, time-out, a code unknown to the mapping, noCreation.
    {kObj, F, "", F, F, F, {}, "", true, WRONG, "1.3.6.1.4.1.5.1.2.3 doesn't match the", kObj, ""},
    {kObj, F, "", F, F, F, {}, "", true, SNMP_ST_TIMEOUT, "", kObj, ""},
    {kObj, F, "", F, F, F, {}, "", true, 0x61010099, "", kObj, ""},
    {kObj, F, "", F, F, F, {}, "", true, NOCR, "", kObj, ""},
};

TEST_F(EventRunTest, SetActionWildcardRulesAndFailures) {
    for (const SET_CASE_S& stCase : kSetCases) {
        SCOPED_TRACE(&stCase - kSetCases);
        FAKE_SNMP_Reset();
        FAKE_LOG_Clear();
        mte_DBG_EnableSwitch(MTE_DBG_ERR | MTE_DBG_INFO);
        FAKE_SNMP_SetInteger(stCase.pszTargetContext, stCase.astTarget, 0);
        FAKE_SNMP_FailOid(stCase.astTarget, stCase.bAgentFails ? stCase.uiCode : 0);
        MTE_SET_ENTRY_S stRow = SetReq("own", "ev", stCase.astObject, 9, stCase.uiObjWild,
                                       stCase.pszSetContext, stCase.uiCtxWild);
        MTE_TRIGGER_ROW_S stTrigger = Trigger();
        stTrigger.uiValueIDWildcard = stCase.uiTrigValueWild;
        stTrigger.uiContextNameWildcard = stCase.uiTrigCtxWild;
        MTE_OID_S stSuffix = FAKE_SNMP_MakeOid(stCase.astSuffix);
        uint32_t uiBefore = EventFailures();

        EXPECT_EQ(mte_SET_SetValueByOID(&stTrigger, &stRow, &stSuffix, stCase.pszInstanceContext),
                  stCase.uiCode);

        // The agent is asked when the target could be built.
        bool bAsked = !stCase.astObject.empty() && (stCase.uiCode == 0 || stCase.bAgentFails);
        auto astSets = FAKE_SNMP_Sets();
        ASSERT_EQ(astSets.size(), bAsked ? 1u : 0u);
        if (bAsked) {
            EXPECT_EQ(astSets[0].astOid, stCase.astTarget);
            EXPECT_EQ(astSets[0].strContext, stCase.pszTargetContext);
            EXPECT_EQ(astSets[0].iValue, 9);
        }
        EXPECT_EQ(EventFailures(), uiBefore + (stCase.uiCode != 0 ? 1 : 0));
        size_t uiErrors = stCase.pszMessage[0] != '\0' ? 1 : 0;
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR"), uiErrors);
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_ERR", stCase.pszMessage), uiErrors);
        // mteEventSetFailure: trigger name, its target tag, the target as built
        // so far, and the reason; one debug text says the same.
        auto astNotifies = FAKE_SNMP_Notifies();
        ASSERT_EQ(astNotifies.size(), stCase.uiCode != 0 ? 1u : 0u);
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_INFO"), astNotifies.size());
        if (astNotifies.empty()) {
            continue;
        }
        const FAKE_SNMP_NOTIFY_S& stSent = astNotifies[0];
        int32_t iReason = mte_RUN_convertErrCodeMor2Mte(stCase.uiCode);
        EXPECT_EQ(stSent.strName + " " + stSent.strTrigger + " " + stSent.strTag + " " +
                      stSent.strContext + " " + FAKE_SNMP_OidStr(stSent.astOid) + " " +
                      std::to_string(stSent.iLast),
                  std::string("mteEventSetFailure trig tag ") + stCase.pszTargetContext + " " +
                      FAKE_SNMP_OidStr(stCase.astTarget) + " " + std::to_string(iReason));
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_INFO", "SetTargetTag: tag"), 1u);
        EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_INFO",
                                 std::string("FailedReason: ") + mte_Run_Reason2Str(iReason)),
                  1u);
    }
}

// ---------------------------------------------------------------------------
// Lock discipline: the agent is asked with no table lock held.
// ---------------------------------------------------------------------------
TEST_F(EventRunTest, ManagementWritesAreNotBlockedWhileTheAgentStalls) {
    AddObject("nt", 1, {1, 3, 6, 1, 1});
    MTE_SET_ENTRY_S stSet = SetReq("own", "ev", {1, 3, 6, 1, 7}, 5);
    FAKE_SNMP_SetInteger("", {1, 3, 6, 1, 7}, 0);
    AddEvent("ev", 0xC0, "nt", &stSet);
    FAKE_SNMP_SetStallMs(1000);
    std::atomic<bool> bDone{false};
    std::thread stWorker([&] {
        MTE_TRIGGER_ROW_S stTrigger = Trigger();
        MTE_FIRED_EVENT_S stFired = Fired("ev");
        mte_EVENT_Run(&stTrigger, &stFired);
        bDone = true;
    });
    auto WriteTakes = [](auto&& fnWrite) {
        auto tStart = std::chrono::steady_clock::now();
        fnWrite();
        return std::chrono::steady_clock::now() - tStart;
    };
    // The value fetch of the notification's bindings is under way. A write
    // that had to wait for the lock would take most of the stall.
    EXPECT_TRUE(FAKE_SNMP_WaitForStall(5000));
    constexpr auto kQuick = std::chrono::milliseconds(400);
    EXPECT_LT(WriteTakes([] { EXPECT_EQ(SetEvent(EventReq("own", "other", 4), 0x40), 0u); }),
              kQuick);
    EXPECT_LT(WriteTakes([] { EXPECT_EQ(SetObj(ObjReq("own", "nt", 2, 4), 0x28), 0u); }), kQuick);
    // Taking the event out of service while the run is in flight: the run
    // goes on with the copies it made.
    EXPECT_LT(WriteTakes([] { EXPECT_EQ(SetEvent(EventReq("own", "ev", 2), 0x40), 0u); }), kQuick);
    EXPECT_FALSE(bDone);
    stWorker.join();
    EXPECT_EQ(FAKE_SNMP_Traps().size(), 1u);
    EXPECT_EQ(FAKE_SNMP_Sets().size(), 1u);
}
}  // namespace
