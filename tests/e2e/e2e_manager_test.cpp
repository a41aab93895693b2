// A manager alone configures the daemon: every row is written with snmpset
// through snmpd and eventmib-agentx (nothing through eventmibctl), and a
// threshold crossing ends with mteTriggerRising and the configured
// notification at snmptrapd.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stack.h"

namespace {

using ::testing::HasSubstr;

using namespace mte_test;

constexpr const char* MTE_MIB = "1.3.6.1.2.1.88.1";
// Index of owner "mgr" with the implied name that follows it.
constexpr const char* OWNER_MGR = "3.109.103.114";
constexpr const char* NAME_T = "116";       // trigger "t"
constexpr const char* NAME_EV = "101.118";  // event "ev"
constexpr const char* CONFIGURED = ".1.3.6.1.4.1.99999.0.77";

class E2eManager : public WholeStackTest {
  protected:
    // snmpset with the write community: "" when it succeeded, else its output.
    std::string Set(const std::string& strArgs) {
        ToolRun stRun = Stack::Set(strArgs);
        return stRun.iExit == 0 ? "" : stRun.strOut.empty() ? "failed" : stRun.strOut;
    }
    // snmpwalk with the read community: "OID = TYPE: VALUE" lines.
    std::string Walk(const std::string& strOid) {
        ToolRun stRun = Stack::Walk(strOid);
        return stRun.iExit == 0 ? stRun.strOut : "failed: " + stRun.strOut;
    }
    static std::string Column(const std::string& strTable, int iColumn, const char* pszName) {
        return std::string(MTE_MIB) + "." + strTable + ".1." + std::to_string(iColumn) + "." +
               OWNER_MGR + "." + pszName;
    }
};

// The delta row of a delta trigger, kept by managers alone: it appears with
// the sample type, is written and read with snmpset and snmpwalk, outlives a
// daemon restart (that it goes with the sample type and the trigger is
// TriggerTableTest.DeltaRowFollowsTheSampleTypeAndIsStored's). Its discontinuity object, an
// agent up time in row 9's column 4, keeps a counter reset from firing, and
// a real rise after it still fires.
TEST_F(E2eManager, DeltaRowByManagersAndNoFiringOnACounterReset) {
    AgentOk("add - 9 1000");
    AgentOk("set - 9 ticks 50000");
    const std::string strTrigger = "2.2";
    const std::string strDelta = "2.3";
    const std::string strThreshold = "2.6";
    const std::string strDeltaWalk = std::string(MTE_MIB) + "." + strDelta;
    const std::string strUpTime = std::string(TABLE) + ".4.9";
    // The event with its notification action, built while notInService.
    const std::string strEvent = "4.2";
    EXPECT_EQ(Set(Column(strEvent, 5, NAME_EV) + " i 5 " + Column(strEvent, 3, NAME_EV) + " x 80"),
              "");
    EXPECT_EQ(Set(Column("4.3", 1, NAME_EV) + " o " + std::string(CONFIGURED + 1)), "");
    EXPECT_EQ(Set(Column(strEvent, 5, NAME_EV) + " i 1"), "");
    // A delta trigger on row 9's counter, with a threshold test.
    EXPECT_EQ(
        Set(Column(strTrigger, 15, NAME_T) + " i 5 " + Column(strTrigger, 4, NAME_T) + " x 20 " +
            Column(strTrigger, 5, NAME_T) + " i 2 " + Column(strTrigger, 6, NAME_T) + " o " +
            TABLE + ".1.9 " + Column(strTrigger, 11, NAME_T) + " u 1"),
        "");
    // The row came with the trigger, at its defaults.
    EXPECT_EQ(Walk(strDeltaWalk), "." + Column(strDelta, 1, NAME_T) +
                                      " = OID: .1.3.6.1.2.1.1.3.0\n." +
                                      Column(strDelta, 2, NAME_T) + " = INTEGER: 2\n." +
                                      Column(strDelta, 3, NAME_T) + " = INTEGER: 1\n");
    EXPECT_NE(Set(Column(strDelta, 3, NAME_T) + " i 4"), "");  // no such type
    EXPECT_EQ(Set(Column(strDelta, 1, NAME_T) + " o " + strUpTime + " " +
                  Column(strDelta, 3, NAME_T) + " i 1"),
              "");
    EXPECT_EQ(
        Set(Column(strThreshold, 2, NAME_T) + " i 1000000 " + Column(strThreshold, 3, NAME_T) +
            " i -1000000 " + Column(strThreshold, 4, NAME_T) + " i 100 " +
            Column(strThreshold, 5, NAME_T) + " i -100 " + Column(strThreshold, 12, NAME_T) +
            " s mgr " + Column(strThreshold, 13, NAME_T) + " s ev"),
        "");
    EXPECT_EQ(Set(Column(strTrigger, 15, NAME_T) + " i 1"), "");
    // Written while active: refused, the row unchanged.
    EXPECT_NE(Set(Column(strDelta, 3, NAME_T) + " i 2"), "");
    EXPECT_THAT(Get(Column(strDelta, 1, NAME_T)).strOut, HasSubstr("OID: ." + strUpTime));
    const std::string strConfigured = Walk(strDeltaWalk);
    EXPECT_THAT(strConfigured, HasSubstr("OID: ." + strUpTime));

    // The agent "restarts": its up time goes back and the counter starts at 0,
    // a fall of 1000 that is no delta. Then a real rise of 300 fires.
    usleep(2500 * 1000);
    AgentOk("reset - 9 20");
    usleep(2500 * 1000);
    EXPECT_TRUE(Traps(FALLING, "t").empty());
    EXPECT_TRUE(Traps(RISING, "t").empty());
    AgentOk("set - 9 int 300");
    ASSERT_TRUE(WaitTraps(RISING, "t", 1));
    ExpectHot(Traps(RISING, "t")[0], "t", "", InstanceOid(1, 9), Int(300));
    ASSERT_TRUE(WaitTraps(CONFIGURED, "", 1)) << "the event configured by snmpset did not run";
    EXPECT_TRUE(Traps(FALLING, "t").empty());

    // The row outlives a daemon restart.
    ASSERT_EQ(m_stDaemon.Stop(), 0);
    ASSERT_TRUE(StartDaemon());
    EXPECT_TRUE(WaitUntil([&] { return Walk(strDeltaWalk) == strConfigured; }, START_WAIT_MS))
        << Walk(strDeltaWalk);
}

}  // namespace
