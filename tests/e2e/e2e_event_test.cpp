// Events through the whole stack, one daemon start and one restart: a
// configured notification carries its wildcarded objects list in order; a
// set action writes mte-testagent's writable column, its object and context
// completed from the instance that fired; a set the agent refuses gives
// mteEventSetFailure with the mapped reason; a manager alone configures a
// delta trigger and its event with snmpset through snmpd and
// eventmib-agentx; everything is recovered by a restarted daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stack.h"

namespace {

using ::testing::HasSubstr;

using namespace mte_test;

constexpr const char* SYS_UPTIME = ".1.3.6.1.2.1.1.3.0";
constexpr const char* TRAP_OID = ".1.3.6.1.6.3.1.1.4.1.0";
constexpr const char* NOTE = ".1.3.6.1.4.1.99999.0.42";
constexpr const char* CONFIGURED = ".1.3.6.1.4.1.99999.0.77";

class E2eEvents : public WholeStackTest {
  protected:
    E2eEvents() { m_astrContexts = {"ctxT1", "ctxT2", "ctxU1", "ctxU2", "ctxN"}; }

    // A threshold trigger (rising 100, falling 10, deltas out of reach)
    // whose rising alarm runs the event strEvent; strWhere adds trigger columns.
    static std::string RisingTrigger(const std::string& strName, const std::string& strWhere,
                                     const std::string& strEvent) {
        return TriggerLines(strName, "test=threshold " + strWhere, "threshold",
                            "rising=100 falling=10 deltarising=1000000 deltafalling=-1000000 "
                            "risingeventowner=e2e risingevent=" +
                                strEvent);
    }
    // Column iColumn of row owner "mgr" with the implied name strName
    // (characters as sub-identifiers) in the Event MIB table strTable.
    static std::string Mgr(const std::string& strTable, int iColumn, const std::string& strName) {
        std::string strOid =
            "1.3.6.1.2.1.88.1." + strTable + ".1." + std::to_string(iColumn) + ".3.109.103.114";
        for (char c : strName) {
            strOid += "." + std::to_string(c);
        }
        return strOid;
    }
    // snmpset with the write community: "" when it succeeded, else its output.
    std::string SetOk(const std::string& strArgs) {
        ToolRun stRun = Set(strArgs);
        return stRun.iExit == 0 ? "" : stRun.strOut.empty() ? "failed" : stRun.strOut;
    }
};

TEST_F(E2eEvents, ConfiguredByCtlOrByManagersTheyRunAndOutliveARestart) {
    for (const char* pszRow :
         {"add ctxN 9 20 33 row nine", "add ctxT1 4 10", "add ctxT2 4 10", "add ctxU1 4 0",
          "add ctxU2 4 0", "add ctxU2 5 0", "add - 5 20 7 text", "add - 6 20", "add - 8 20",
          "add - 9 1000", "set - 9 ticks 50000"}) {
        AgentOk(pszRow);
    }
    const std::string strTable(TABLE);
    // Indexes out of column order: the list goes by index.
    std::string strLines;
    const char* apszObjects[] = {".3 wildcard=true", ".2 wildcard=true", ".1 wildcard=true",
                                 ".4.9"};
    for (int i = 0; i < 4; i++) {
        strLines += "set objects owner=e2e name=objs index=" + std::to_string(i + 1) +
                    " id=" + strTable + apszObjects[i] + " status=createAndGo\n";
    }
    strLines +=
        "set event owner=e2e name=note actions=notification status=createAndWait\n"
        "set notification owner=e2e name=note notification=" +
        std::string(NOTE + 1) +
        " objectsowner=e2e objects=objs\n"
        "set event owner=e2e name=note status=active\n" +
        RisingTrigger("watch", "context=ctxN valueid=" + strTable + ".1 wildcard=true", "note");
    // Fired in ctxT2 at index 4, the set goes to column 1, index 4, in
    // "ctxU" + "2".
    strLines +=
        "set event owner=e2e name=mark actions=set status=createAndWait\n"
        "set set owner=e2e name=mark object=" +
        strTable +
        ".1 objectwildcard=true context=ctxU contextwildcard=true value=777\n"
        "set event owner=e2e name=mark status=active\n" +
        RisingTrigger("ctxwatch",
                      "valueid=" + strTable + ".1 wildcard=true context=ctxT contextwildcard=true",
                      "mark");
    const struct {
        const char* pszTrigger;
        int iRow;  // the watched row
        std::string strSetOid;
        const char* pszReason;
    } astRefused[] = {
        // The test agent's Gauge32 column: notWritable.
        {"readonly", 5, strTable + ".2.5", "INTEGER: 17"},
        // snmpd's own sysContact.0 is a writable string: wrongType.
        {"wrongtype", 6, "1.3.6.1.2.1.1.4.0", "INTEGER: 7"},
        // The writable column of a row that does not exist: noCreation.
        {"norow", 8, strTable + ".1.99", "INTEGER: 11"},
    };
    for (const auto& stCase : astRefused) {
        std::string strEvent = std::string("ev") + stCase.pszTrigger;
        strLines +=
            "set event owner=e2e name=" + strEvent + " actions=set status=createAndWait\n" +
            "set set owner=e2e name=" + strEvent + " object=" + stCase.strSetOid + " value=1\n" +
            "set event owner=e2e name=" + strEvent + " status=active\n" +
            RisingTrigger(stCase.pszTrigger,
                          "valueid=" + strTable + ".1." + std::to_string(stCase.iRow), strEvent);
    }
    CtlScenarioOk(strLines);

    // The manager's event with its notification action, built while
    // notInService, and a delta trigger on row 9's counter with a threshold
    // test.
    EXPECT_EQ(SetOk(Mgr("4.2", 5, "ev") + " i 5 " + Mgr("4.2", 3, "ev") + " x 80"), "");
    EXPECT_EQ(SetOk(Mgr("4.3", 1, "ev") + " o " + std::string(CONFIGURED + 1)), "");
    EXPECT_EQ(SetOk(Mgr("4.2", 5, "ev") + " i 1"), "");
    EXPECT_EQ(SetOk(Mgr("2.2", 15, "t") + " i 5 " + Mgr("2.2", 4, "t") + " x 20 " +
                    Mgr("2.2", 5, "t") + " i 2 " + Mgr("2.2", 6, "t") + " o " + strTable + ".1.9 " +
                    Mgr("2.2", 11, "t") + " u 1"),
              "");
    // The delta row came with the trigger, at its defaults; managers keep
    // it. Its discontinuity object, an agent up time in row 9's column 4,
    // keeps a counter reset from firing.
    const std::string strDeltaWalk = "1.3.6.1.2.1.88.1.2.3";
    EXPECT_EQ(Walk(strDeltaWalk).strOut,
              "." + Mgr("2.3", 1, "t") + " = OID: .1.3.6.1.2.1.1.3.0\n." + Mgr("2.3", 2, "t") +
                  " = INTEGER: 2\n." + Mgr("2.3", 3, "t") + " = INTEGER: 1\n");
    const std::string strUpTime = strTable + ".4.9";
    EXPECT_EQ(SetOk(Mgr("2.3", 1, "t") + " o " + strUpTime + " " + Mgr("2.3", 3, "t") + " i 1"),
              "");
    EXPECT_EQ(SetOk(Mgr("2.6", 2, "t") + " i 1000000 " + Mgr("2.6", 3, "t") + " i -1000000 " +
                    Mgr("2.6", 4, "t") + " i 100 " + Mgr("2.6", 5, "t") + " i -100 " +
                    Mgr("2.6", 12, "t") + " s mgr " + Mgr("2.6", 13, "t") + " s ev"),
              "");
    EXPECT_EQ(SetOk(Mgr("2.2", 15, "t") + " i 1"), "");
    // Written while active: refused, the row unchanged.
    EXPECT_NE(SetOk(Mgr("2.3", 3, "t") + " i 2"), "");
    EXPECT_THAT(Get(Mgr("2.3", 1, "t")).strOut, HasSubstr("OID: ." + strUpTime));
    const std::string strConfigured = Walk(strDeltaWalk).strOut;
    EXPECT_THAT(strConfigured, HasSubstr("OID: ." + strUpTime));
    usleep(2500 * 1000);  // every trigger has its first sample

    AgentOk("set ctxN 9 int 150");
    ASSERT_TRUE(WaitTraps(NOTE, "", 1));
    Trap stTrap = Traps(NOTE)[0];
    ASSERT_EQ(stTrap.astBindings.size(), 6u);
    const std::pair<std::string, std::string> astWanted[] = {
        {SYS_UPTIME, "Timeticks: "},
        {TRAP_OID, std::string("OID: ") + NOTE},
        {"." + strTable + ".3.9", "STRING: \"row nine\""},
        {"." + strTable + ".2.9", "Gauge32: 33"},
        {"." + strTable + ".1.9", "INTEGER: 150"},
        {"." + strUpTime, "Timeticks: "},
    };
    for (size_t i = 0; i < 6; i++) {
        EXPECT_EQ(stTrap.astBindings[i].first, astWanted[i].first) << i;
        EXPECT_EQ(stTrap.astBindings[i].second.rfind(astWanted[i].second, 0), 0u)
            << i << ": " << stTrap.astBindings[i].second;
    }
    // The built-in notification went out too, before the event ran.
    ASSERT_TRUE(WaitTraps(RISING, "watch", 1));
    ExpectHot(Traps(RISING, "watch")[0], "watch", "ctxN", InstanceOid(1, 9), Int(150));

    long lFailures = Scalar("event-failures");
    AgentOk("set ctxT2 4 int 150");
    ASSERT_TRUE(WaitUntil([&] { return Agent("get ctxU2 4 int") == "ok 777"; }, FIRE_WAIT_MS))
        << Agent("get ctxU2 4 int");
    EXPECT_EQ(Agent("get ctxU1 4 int"), "ok 0");
    EXPECT_EQ(Agent("get ctxU2 5 int"), "ok 0");
    EXPECT_EQ(Agent("get ctxT2 4 int"), "ok 150");
    EXPECT_EQ(Scalar("event-failures"), lFailures);
    EXPECT_TRUE(Traps(SET_FAILURE).empty());

    for (const auto& stCase : astRefused) {
        lFailures = Scalar("event-failures");
        AgentOk("set - " + std::to_string(stCase.iRow) + " int 150");
        ASSERT_TRUE(WaitTraps(SET_FAILURE, stCase.pszTrigger, 1)) << stCase.pszTrigger;
        Trap stFailure = Traps(SET_FAILURE, stCase.pszTrigger)[0];
        EXPECT_EQ(stFailure.Value(HOT_TARGET), Str("")) << stCase.pszTrigger;
        EXPECT_EQ(stFailure.Value(HOT_CONTEXT), Str("")) << stCase.pszTrigger;
        EXPECT_EQ(stFailure.Value(HOT_OID), "OID: ." + stCase.strSetOid) << stCase.pszTrigger;
        EXPECT_EQ(stFailure.Value(FAILED_REASON), stCase.pszReason) << stCase.pszTrigger;
        EXPECT_EQ(Scalar("event-failures"), lFailures + 1) << stCase.pszTrigger;
    }
    EXPECT_EQ(Agent("get - 5 gauge"), "ok 7");  // nothing was written
    EXPECT_EQ(Agent("get - 99 int").rfind("error", 0), 0u);

    // The agent "restarts": its up time goes back and the counter starts at
    // 0, a fall of 1000 that is no delta. Then a real rise of 300 fires.
    AgentOk("reset - 9 20");
    usleep(2500 * 1000);
    EXPECT_TRUE(Traps(FALLING, "t").empty());
    EXPECT_TRUE(Traps(RISING, "t").empty());
    AgentOk("set - 9 int 300");
    ASSERT_TRUE(WaitTraps(RISING, "t", 1));
    ExpectHot(Traps(RISING, "t")[0], "t", "", InstanceOid(1, 9), Int(300));
    ASSERT_TRUE(WaitTraps(CONFIGURED, "", 1)) << "the event configured by snmpset did not run";
    EXPECT_TRUE(Traps(FALLING, "t").empty());

    // A restarted daemon recovers the configuration (every table's rows are
    // ChannelProcessTest's), the managers' delta row included, and it works:
    // a firing in ctxT1 sets ctxU1.
    ASSERT_EQ(m_stDaemon.Stop(), 0);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    EXPECT_TRUE(
        WaitUntil([&] { return Walk(strDeltaWalk).strOut == strConfigured; }, START_WAIT_MS))
        << Walk(strDeltaWalk).strOut;
    usleep(2000 * 1000);
    AgentOk("set ctxT1 4 int 150");
    EXPECT_TRUE(WaitUntil([&] { return Agent("get ctxU1 4 int") == "ok 777"; }, FIRE_WAIT_MS));
}

}  // namespace
