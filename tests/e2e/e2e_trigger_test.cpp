// Trigger firings through the whole stack, one daemon start: eventmibd
// samples mte-testagent's table through snmpd every second and its built-in
// notifications reach snmptrapd through eventmib-agentx with the right five
// variables. The triggers watch rows or contexts apart, so that none sees
// another's changes.
#include <gtest/gtest.h>

#include "stack.h"

namespace {

using namespace mte_test;

class E2eTriggers : public WholeStackTest {
  protected:
    E2eTriggers() { m_astrContexts = {"ctxT1", "ctxT2", "ctxE", "ctxD"}; }
};

TEST_F(E2eTriggers, EveryTestTypeFiresWithItsFiveVariables) {
    const std::string strCol1 = std::string(TABLE) + ".1";
    for (const char* pszRow :
         {"add ctxT1 1 10", "add ctxT2 1 10", "add - 1 99", "add - 5 1000", "add - 6 1000",
          "set - 5 ticks 7", "set - 6 ticks 7", "add - 9 1 2 not a number", "add ctxD 3 20"}) {
        AgentOk(pszRow);
    }
    long lFailures = Scalar("trigger-failures");
    CtlScenarioOk(
        TriggerLines("exist", "test=existence context=ctxE valueid=" + strCol1 + " wildcard=true",
                     "existence", "test=present,absent,changed startup=none") +
        // The default context is not under the prefix "ctxT".
        TriggerLines(
            "bool",
            "test=boolean valueid=" + strCol1 + " wildcard=true context=ctxT contextwildcard=true",
            "boolean", "comparison=greater value=50 startup=false") +
        // A per-instance timeStamp as the discontinuity object (column 4, as
        // ifCounterDiscontinuityTime): a reset row fires nothing.
        "set trigger owner=e2e name=reset frequency=1 test=threshold sampletype=delta "
        "valueid=" +
        strCol1 +
        " wildcard=true status=createAndWait\n"
        "set delta owner=e2e name=reset discontinuityid=" +
        TABLE +
        ".4 discontinuityidwildcard=true discontinuityidtype=timeStamp\n"
        "set threshold owner=e2e name=reset rising=1000000 falling=-1000000 deltarising=100 "
        "deltafalling=-100\n"
        "set trigger owner=e2e name=reset status=active\n" +
        // A context the agent does not know: noSuchName. A string held against
        // a threshold: badType.
        TriggerLines("noctx", "test=existence context=nosuchctx valueid=" + strCol1 + ".5",
                     "existence", "test=present") +
        TriggerLines("notnum", "test=threshold valueid=" + std::string(TABLE) + ".3.9", "threshold",
                     "rising=10 falling=0") +
        TriggerLines("thres", "test=threshold context=ctxD valueid=" + strCol1 + ".3", "threshold",
                     "startup=rising rising=100 falling=10 deltarising=1000000 "
                     "deltafalling=-1000000"));
    usleep(2500 * 1000);  // first samples taken: nothing fired yet
    EXPECT_TRUE(Traps(FIRED).empty());

    for (const char* pszStep : {"add ctxE 7 70", "add ctxE 8 80", "set ctxT2 1 int 60",
                                "reset - 5 900", "set - 6 int 0", "set ctxD 3 int 150"}) {
        AgentOk(pszStep);
    }
    Trap stTrap;
    ASSERT_TRUE(WaitTrapWith(FIRED, "exist", HOT_OID, InstanceOid(1, 7), &stTrap));
    ExpectHot(stTrap, "exist", "ctxE", InstanceOid(1, 7), Int(70));
    ASSERT_TRUE(WaitTraps(FIRED, "bool", 1));
    ExpectHot(Traps(FIRED, "bool")[0], "bool", "ctxT2", InstanceOid(1, 1), Int(60));
    ASSERT_TRUE(WaitTrapWith(FALLING, "reset", HOT_OID, InstanceOid(1, 6), &stTrap));
    ASSERT_TRUE(WaitTraps(RISING, "thres", 1));
    ExpectHot(Traps(RISING, "thres")[0], "thres", "ctxD", InstanceOid(1, 3), Int(150));

    for (const char* pszStep :
         {"set ctxE 7 int 71", "set ctxT1 1 int 51", "set - 5 int 400", "set ctxD 3 int 5"}) {
        AgentOk(pszStep);
    }
    // changed: only the wildcarded existence trigger asks for it.
    ASSERT_TRUE(WaitTrapWith(FIRED, "exist", HOT_VALUE, Int(71), &stTrap));
    ExpectHot(stTrap, "exist", "ctxE", InstanceOid(1, 7), Int(71));
    ASSERT_TRUE(WaitTrapWith(FIRED, "bool", HOT_CONTEXT, Str("ctxT1"), &stTrap));
    ExpectHot(stTrap, "bool", "ctxT1", InstanceOid(1, 1), Int(51));
    ASSERT_TRUE(WaitTrapWith(RISING, "reset", HOT_OID, InstanceOid(1, 5), &stTrap));
    ExpectHot(stTrap, "reset", "", InstanceOid(1, 5), Int(400));
    ASSERT_TRUE(WaitTraps(FALLING, "thres", 1));
    ExpectHot(Traps(FALLING, "thres")[0], "thres", "ctxD", InstanceOid(1, 3), Int(5));

    AgentOk("del ctxE 7");
    AgentOk("del ctxE 8");
    // absent: reported with the last sample the instance had.
    ASSERT_TRUE(WaitTraps(FIRED, "exist", 5));
    std::vector<Trap> astExist = Traps(FIRED, "exist");
    EXPECT_EQ(astExist[1].Value(HOT_OID), InstanceOid(1, 8));
    ExpectHot(astExist[3], "exist", "ctxE", InstanceOid(1, 7), Int(71));
    ExpectHot(astExist[4], "exist", "ctxE", InstanceOid(1, 8), Int(80));

    const struct {
        const char* pszName;
        std::string strContext, strOid;
        const char* pszReason;
    } astFailures[] = {{"noctx", "nosuchctx", InstanceOid(1, 5), "INTEGER: 2"},
                       {"notnum", "", InstanceOid(3, 9), "INTEGER: -5"}};
    for (const auto& stCase : astFailures) {
        ASSERT_TRUE(WaitTraps(FAILURE, stCase.pszName, 1)) << stCase.pszName;
        Trap stFailure = Traps(FAILURE, stCase.pszName)[0];
        EXPECT_EQ(stFailure.Value(HOT_CONTEXT), Str(stCase.strContext)) << stCase.pszName;
        EXPECT_EQ(stFailure.Value(HOT_OID), stCase.strOid) << stCase.pszName;
        EXPECT_EQ(stFailure.Value(FAILED_REASON), stCase.pszReason) << stCase.pszName;
        EXPECT_EQ(stFailure.Value(HOT_VALUE), "<absent>") << stCase.pszName;
    }
    EXPECT_GE(Scalar("trigger-failures"), lFailures + 2);

    // Staying where they are fires nothing more: each boolean became true
    // once, the thresholds' hysteresis holds, the reset row never fell.
    usleep(1500 * 1000);
    EXPECT_EQ(Traps(FIRED, "exist").size(), 5u);
    EXPECT_EQ(Traps(FIRED, "bool").size(), 2u);
    EXPECT_EQ(Traps(FALLING, "reset").size(), 1u);
    EXPECT_EQ(Traps(FALLING, "thres").size(), 1u);

    // With the trap switch off a rising is evaluated, not sent; back on, the
    // next falling goes through.
    CtlOk("trap-switch off");
    EXPECT_EQ(Ctl("trap-switch get").strOut, "off\n");
    EXPECT_EQ(ReadFile(m_stDaemon.StateDir() + "/trap-switch").substr(0, 3), "off");
    AgentOk("set ctxD 3 int 150");
    usleep(3000 * 1000);
    EXPECT_EQ(Traps(RISING, "thres").size(), 1u);
    CtlOk("trap-switch on");
    AgentOk("set ctxD 3 int 6");
    ASSERT_TRUE(WaitTraps(FALLING, "thres", 2));
    ExpectHot(Traps(FALLING, "thres")[1], "thres", "ctxD", InstanceOid(1, 3), Int(6));
    EXPECT_EQ(Traps(RISING, "thres").size(), 1u);
}

}  // namespace
