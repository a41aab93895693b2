// Events through the whole stack: a configured notification carries its
// wildcarded objects list in order with the right types and values; a set
// action writes mte-testagent's writable column, its object and context
// completed from the instance that fired; a set that the agent refuses gives
// mteEventSetFailure with the mapped reason and one more mteEventFailures.
#include <gtest/gtest.h>

#include "stack.h"

namespace {

using namespace mte_test;

class E2eEvents : public WholeStackTest {
  protected:
    E2eEvents() { m_astrContexts = {"ctxT1", "ctxT2", "ctxU1", "ctxU2"}; }

    // A threshold trigger (rising 100, falling 10, deltas out of reach)
    // whose rising alarm runs the event strEvent; strWhere adds trigger columns.
    static std::string RisingTrigger(const std::string& strName, const std::string& strWhere,
                                     const std::string& strEvent) {
        return TriggerLines(strName, "test=threshold " + strWhere, "threshold",
                            "rising=100 falling=10 deltarising=1000000 deltafalling=-1000000 "
                            "risingeventowner=e2e risingevent=" +
                                strEvent);
    }
};

constexpr const char* SYS_UPTIME = ".1.3.6.1.2.1.1.3.0";
constexpr const char* TRAP_OID = ".1.3.6.1.6.3.1.1.4.1.0";

TEST_F(E2eEvents, NotificationCarriesTheWildcardedObjectsListInOrder) {
    AgentOk("add - 9 20 33 row nine");
    const std::string strTable(TABLE);
    CtlScenarioOk(
        // Indexes out of column order: the list goes by index.
        "set objects owner=e2e name=objs index=1 id=" + strTable +
        ".3 wildcard=true status=createAndGo\n" + "set objects owner=e2e name=objs index=2 id=" +
        strTable + ".2 wildcard=true status=createAndGo\n" +
        "set objects owner=e2e name=objs index=3 id=" + strTable +
        ".1 wildcard=true status=createAndGo\n" +
        "set objects owner=e2e name=objs index=4 id=1.3.6.1.2.1.1.3.0 status=createAndGo\n" +
        "set event owner=e2e name=note actions=notification status=createAndWait\n" +
        "set notification owner=e2e name=note notification=1.3.6.1.4.1.99999.0.42 "
        "objectsowner=e2e objects=objs\n" +
        "set event owner=e2e name=note status=active\n" +
        RisingTrigger("watch", "valueid=" + strTable + ".1 wildcard=true", "note"));
    usleep(2000 * 1000);
    AgentOk("set - 9 int 150");
    ASSERT_TRUE(WaitTraps(".1.3.6.1.4.1.99999.0.42", "", 1));
    Trap stTrap = Traps(".1.3.6.1.4.1.99999.0.42")[0];
    ASSERT_EQ(stTrap.astBindings.size(), 6u);
    const std::pair<std::string, std::string> astWanted[] = {
        {SYS_UPTIME, "Timeticks: "},
        {TRAP_OID, "OID: .1.3.6.1.4.1.99999.0.42"},
        {"." + strTable + ".3.9", "STRING: \"row nine\""},
        {"." + strTable + ".2.9", "Gauge32: 33"},
        {"." + strTable + ".1.9", "INTEGER: 150"},
        {SYS_UPTIME, "Timeticks: "},
    };
    for (size_t i = 0; i < 6; i++) {
        EXPECT_EQ(stTrap.astBindings[i].first, astWanted[i].first) << i;
        EXPECT_EQ(stTrap.astBindings[i].second.rfind(astWanted[i].second, 0), 0u)
            << i << ": " << stTrap.astBindings[i].second;
    }
    // The built-in notification went out too, before the event ran.
    ASSERT_TRUE(WaitTraps(RISING, "watch", 1));
    ExpectHot(Traps(RISING, "watch")[0], "watch", "", InstanceOid(1, 9), Int(150));
}

TEST_F(E2eEvents, SetActionCompletesObjectAndContextFromTheFiredInstance) {
    for (const char* pszRow :
         {"add ctxT1 4 10", "add ctxT2 4 10", "add ctxU1 4 0", "add ctxU2 4 0", "add ctxU2 5 0"}) {
        AgentOk(pszRow);
    }
    const std::string strTable(TABLE);
    // Fired in ctxT2 at index 4: the set goes to column 1, index 4, in
    // "ctxU" + "2".
    CtlScenarioOk(
        "set event owner=e2e name=mark actions=set status=createAndWait\n"
        "set set owner=e2e name=mark object=" +
        strTable +
        ".1 objectwildcard=true context=ctxU contextwildcard=true value=777\n"
        "set event owner=e2e name=mark status=active\n" +
        RisingTrigger("ctxwatch",
                      "valueid=" + strTable + ".1 wildcard=true context=ctxT contextwildcard=true",
                      "mark"));
    usleep(2000 * 1000);
    long lFailures = Scalar("event-failures");
    AgentOk("set ctxT2 4 int 150");
    ASSERT_TRUE(WaitUntil([&] { return Agent("get ctxU2 4 int") == "ok 777"; }, FIRE_WAIT_MS))
        << Agent("get ctxU2 4 int");
    EXPECT_EQ(Agent("get ctxU1 4 int"), "ok 0");
    EXPECT_EQ(Agent("get ctxU2 5 int"), "ok 0");
    EXPECT_EQ(Agent("get ctxT2 4 int"), "ok 150");
    EXPECT_EQ(Scalar("event-failures"), lFailures);
    EXPECT_TRUE(Traps(SET_FAILURE).empty());

    // A restarted daemon recovers the configuration, and it works: a firing
    // in ctxT1 sets ctxU1.
    std::string strBefore = Snapshot();
    ASSERT_EQ(m_stDaemon.Stop(), 0);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    EXPECT_EQ(Snapshot(), strBefore);
    usleep(2000 * 1000);
    AgentOk("set ctxT1 4 int 150");
    EXPECT_TRUE(WaitUntil([&] { return Agent("get ctxU1 4 int") == "ok 777"; }, FIRE_WAIT_MS));
}

TEST_F(E2eEvents, RefusedSetGivesEventSetFailureWithTheMappedReason) {
    AgentOk("add - 5 20 7 text");
    AgentOk("add - 6 20");
    AgentOk("add - 8 20");
    const std::string strTable(TABLE);
    struct Case {
        const char* pszTrigger;
        int iRow;  // the watched row
        std::string strSetOid;
        const char* pszReason;
    };
    const Case astCases[] = {
        // The test agent's Gauge32 column: notWritable.
        {"readonly", 5, strTable + ".2.5", "INTEGER: 17"},
        // snmpd's own sysContact.0 is a writable string: wrongType.
        {"wrongtype", 6, "1.3.6.1.2.1.1.4.0", "INTEGER: 7"},
        // The writable column of a row that does not exist: noCreation.
        {"norow", 8, strTable + ".1.99", "INTEGER: 11"},
    };
    std::string strLines;
    for (const Case& stCase : astCases) {
        std::string strEvent = std::string("ev") + stCase.pszTrigger;
        strLines +=
            "set event owner=e2e name=" + strEvent + " actions=set status=createAndWait\n" +
            "set set owner=e2e name=" + strEvent + " object=" + stCase.strSetOid + " value=1\n" +
            "set event owner=e2e name=" + strEvent + " status=active\n" +
            RisingTrigger(stCase.pszTrigger,
                          "valueid=" + strTable + ".1." + std::to_string(stCase.iRow), strEvent);
    }
    CtlScenarioOk(strLines);
    usleep(2000 * 1000);
    for (const Case& stCase : astCases) {
        long lFailures = Scalar("event-failures");
        AgentOk("set - " + std::to_string(stCase.iRow) + " int 150");
        ASSERT_TRUE(WaitTraps(SET_FAILURE, stCase.pszTrigger, 1)) << stCase.pszTrigger;
        Trap stTrap = Traps(SET_FAILURE, stCase.pszTrigger)[0];
        EXPECT_EQ(stTrap.Value(HOT_TARGET), Str("")) << stCase.pszTrigger;
        EXPECT_EQ(stTrap.Value(HOT_CONTEXT), Str("")) << stCase.pszTrigger;
        EXPECT_EQ(stTrap.Value(HOT_OID), "OID: ." + stCase.strSetOid) << stCase.pszTrigger;
        EXPECT_EQ(stTrap.Value(FAILED_REASON), stCase.pszReason) << stCase.pszTrigger;
        EXPECT_EQ(Scalar("event-failures"), lFailures + 1) << stCase.pszTrigger;
    }
    // Nothing was written.
    EXPECT_EQ(Agent("get - 5 gauge"), "ok 7");
    EXPECT_EQ(Agent("get - 99 int").rfind("error", 0), 0u);
}

}  // namespace
