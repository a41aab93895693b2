// Trigger firings through the whole stack: eventmibd samples mte-testagent's
// table through snmpd every second, and its built-in notifications reach
// snmptrapd through eventmib-agentx with the right five variables:
// existence (present, absent, changed), boolean across contexts, threshold
// on a single trigger and delta threshold on a wildcarded one, failures with
// their reason, and the trap switch.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stack.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

using namespace mte_test;

class E2eTriggers : public WholeStackTest {};

// Absolute thresholds or delta thresholds out of reach, so that only the
// pair under test can fire.
constexpr const char* NO_DELTA = "deltarising=1000000 deltafalling=-1000000";
constexpr const char* NO_ABSOLUTE = "rising=1000000 falling=-1000000";

TEST_F(E2eTriggers, ExistencePresentChangedAbsentOnWildcardedAndSingleTriggers) {
    CtlScenarioOk(
        TriggerLines("exist", "test=existence valueid=" + std::string(TABLE) + ".1 wildcard=true",
                     "existence", "test=present,absent,changed startup=none") +
        TriggerLines("exist1",
                     "test=existence valueid=" + std::string(TABLE) + ".1.8 wildcard=false",
                     "existence", "test=present,absent startup=none"));
    usleep(2500 * 1000);  // first samples taken: nothing there yet
    EXPECT_TRUE(Traps(FIRED).empty());

    AgentOk("add - 7 70");
    AgentOk("add - 8 80");
    Trap stTrap;
    ASSERT_TRUE(WaitTrapWith(FIRED, "exist", HOT_OID, InstanceOid(1, 7), &stTrap));
    ExpectHot(stTrap, "exist", "", InstanceOid(1, 7), Int(70));
    ASSERT_TRUE(WaitTrapWith(FIRED, "exist1", HOT_OID, InstanceOid(1, 8), &stTrap));
    ExpectHot(stTrap, "exist1", "", InstanceOid(1, 8), Int(80));

    // changed: only the wildcarded trigger asks for it.
    AgentOk("set - 7 int 71");
    ASSERT_TRUE(WaitTrapWith(FIRED, "exist", HOT_VALUE, Int(71), &stTrap));
    ExpectHot(stTrap, "exist", "", InstanceOid(1, 7), Int(71));

    AgentOk("del - 7");
    AgentOk("del - 8");
    // absent: reported on the last sample the instance had. Index 8 is
    // watched by both triggers: the wildcarded one saw it come and go too.
    ASSERT_TRUE(WaitTraps(FIRED, "exist", 5));
    std::vector<Trap> astExist = Traps(FIRED, "exist");
    EXPECT_EQ(astExist[1].Value(HOT_OID), InstanceOid(1, 8));
    ExpectHot(astExist[3], "exist", "", InstanceOid(1, 7), Int(71));
    ExpectHot(astExist[4], "exist", "", InstanceOid(1, 8), Int(80));
    ASSERT_TRUE(WaitTraps(FIRED, "exist1", 2));
    EXPECT_EQ(Traps(FIRED, "exist1")[1].Value(HOT_OID), InstanceOid(1, 8));
    usleep(1500 * 1000);
    EXPECT_EQ(Traps(FIRED, "exist").size(), 5u);
    EXPECT_EQ(Traps(FIRED, "exist1").size(), 2u);
}

TEST_F(E2eTriggers, BooleanOnAWildcardedTriggerAcrossContexts) {
    AgentOk("add ctxT1 1 10");
    AgentOk("add ctxT2 1 10");
    AgentOk("add - 1 99");  // the default context is not under the prefix "ctxT"
    CtlScenarioOk(TriggerLines("bool",
                               "test=boolean valueid=" + std::string(TABLE) +
                                   ".1 wildcard=true context=ctxT contextwildcard=true",
                               "boolean", "comparison=greater value=50 startup=false"));
    usleep(2500 * 1000);
    EXPECT_TRUE(Traps(FIRED, "bool").empty());

    AgentOk("set ctxT2 1 int 60");
    Trap stTrap;
    ASSERT_TRUE(WaitTraps(FIRED, "bool", 1));
    ExpectHot(Traps(FIRED, "bool")[0], "bool", "ctxT2", InstanceOid(1, 1), Int(60));

    AgentOk("set ctxT1 1 int 51");
    ASSERT_TRUE(WaitTrapWith(FIRED, "bool", HOT_CONTEXT, Str("ctxT1"), &stTrap));
    ExpectHot(stTrap, "bool", "ctxT1", InstanceOid(1, 1), Int(51));
    usleep(1500 * 1000);
    // Each became true once; staying true fires nothing more.
    EXPECT_EQ(Traps(FIRED, "bool").size(), 2u);
}

// A wildcarded delta trigger with a per-instance timeStamp as its
// discontinuity object (column 4, as ifCounterDiscontinuityTime): the row
// whose counter was reset fires nothing, the row that really fell does, and
// the reset row fires again on a real rise.
TEST_F(E2eTriggers, PerInstanceDiscontinuityTimeKeepsAResetRowFromFiring) {
    for (int iRow : {5, 6}) {
        AgentOk("add - " + std::to_string(iRow) + " 1000");
        AgentOk("set - " + std::to_string(iRow) + " ticks 7");
    }
    const std::string strColumn4 = std::string(TABLE) + ".4";
    CtlScenarioOk(
        "set trigger owner=e2e name=reset frequency=1 test=threshold sampletype=delta "
        "valueid=" +
        std::string(TABLE) +
        ".1 wildcard=true status=createAndWait\n"
        "set delta owner=e2e name=reset discontinuityid=" +
        strColumn4 +
        " discontinuityidwildcard=true discontinuityidtype=timeStamp\n"
        "set threshold owner=e2e name=reset " +
        std::string(NO_ABSOLUTE) +
        " deltarising=100 deltafalling=-100\n"
        "set trigger owner=e2e name=reset status=active\n");
    ToolRun stRow = Ctl("get delta owner=e2e name=reset");
    ASSERT_EQ(stRow.iExit, 0) << stRow.strOut;
    EXPECT_THAT(stRow.strOut, AllOf(HasSubstr(strColumn4), HasSubstr("timeStamp")));
    usleep(2500 * 1000);

    AgentOk("reset - 5 900");
    AgentOk("set - 6 int 0");
    Trap stTrap;
    ASSERT_TRUE(WaitTrapWith(FALLING, "reset", HOT_OID, InstanceOid(1, 6), &stTrap));
    usleep(1500 * 1000);
    AgentOk("set - 5 int 400");
    ASSERT_TRUE(WaitTrapWith(RISING, "reset", HOT_OID, InstanceOid(1, 5), &stTrap));
    ExpectHot(stTrap, "reset", "", InstanceOid(1, 5), Int(400));
    EXPECT_EQ(Traps(FALLING, "reset").size(), 1u);
}

TEST_F(E2eTriggers, FailingSamplesArriveAsTriggerFailureWithTheirReason) {
    AgentOk("add - 5 1 2 not a number");
    long lBefore = Scalar("trigger-failures");
    // A context the agent does not know: noSuchName. A string held against a
    // threshold: badType.
    CtlScenarioOk(
        TriggerLines("noctx",
                     "test=existence context=nosuchctx valueid=" + std::string(TABLE) + ".1.5",
                     "existence", "test=present") +
        TriggerLines("notnum", "test=threshold valueid=" + std::string(TABLE) + ".3.5", "threshold",
                     "rising=10 falling=0"));
    const struct {
        const char* pszName;
        std::string strContext, strOid;
        const char* pszReason;
    } astCases[] = {{"noctx", "nosuchctx", InstanceOid(1, 5), "INTEGER: 2"},
                    {"notnum", "", InstanceOid(3, 5), "INTEGER: -5"}};
    for (const auto& stCase : astCases) {
        ASSERT_TRUE(WaitTraps(FAILURE, stCase.pszName, 1)) << stCase.pszName;
        Trap stTrap = Traps(FAILURE, stCase.pszName)[0];
        EXPECT_EQ(stTrap.Value(HOT_CONTEXT), Str(stCase.strContext)) << stCase.pszName;
        EXPECT_EQ(stTrap.Value(HOT_OID), stCase.strOid) << stCase.pszName;
        EXPECT_EQ(stTrap.Value(FAILED_REASON), stCase.pszReason) << stCase.pszName;
        EXPECT_EQ(stTrap.Value(HOT_VALUE), "<absent>") << stCase.pszName;
    }
    EXPECT_GE(Scalar("trigger-failures"), lBefore + 2);
}

// An absolute threshold on a single instance rises and falls once each; with
// the trap switch off a rising is evaluated, not sent, and the switch back on
// lets the next falling through. Delta thresholds on a wildcarded trigger are
// PerInstanceDiscontinuityTimeKeepsAResetRowFromFiring's.
TEST_F(E2eTriggers, ThresholdFiresOnceEachWayAndTheTrapSwitchHoldsItBack) {
    AgentOk("add - 3 20");
    CtlScenarioOk(TriggerLines(
        "thres",
        "test=threshold sampletype=absolute valueid=" + std::string(TABLE) + ".1.3 wildcard=false",
        "threshold", "startup=rising rising=100 falling=10 " + std::string(NO_DELTA)));
    usleep(2500 * 1000);
    AgentOk("set - 3 int 150");
    ASSERT_TRUE(WaitTraps(RISING, "thres", 1));
    ExpectHot(Traps(RISING, "thres")[0], "thres", "", InstanceOid(1, 3), Int(150));
    AgentOk("set - 3 int 5");
    ASSERT_TRUE(WaitTraps(FALLING, "thres", 1));
    ExpectHot(Traps(FALLING, "thres")[0], "thres", "", InstanceOid(1, 3), Int(5));
    usleep(1500 * 1000);  // hysteresis: staying below fires nothing more
    EXPECT_EQ(Traps(FALLING, "thres").size(), 1u);

    CtlOk("trap-switch off");
    EXPECT_EQ(Ctl("trap-switch get").strOut, "off\n");
    EXPECT_EQ(ReadFile(m_stDaemon.StateDir() + "/trap-switch").substr(0, 3), "off");
    AgentOk("set - 3 int 150");
    usleep(3000 * 1000);
    EXPECT_EQ(Traps(RISING, "thres").size(), 1u);
    CtlOk("trap-switch on");
    AgentOk("set - 3 int 6");
    ASSERT_TRUE(WaitTraps(FALLING, "thres", 2));
    ExpectHot(Traps(FALLING, "thres")[1], "thres", "", InstanceOid(1, 3), Int(6));
    EXPECT_EQ(Traps(RISING, "thres").size(), 1u);
}

}  // namespace
