// A manager alone configures the daemon: every row is written with snmpset
// through snmpd and eventmib-agentx (nothing through eventmibctl), and a
// threshold crossing ends with mteTriggerRising and the configured
// notification at snmptrapd.
#include "e2e_stack.h"

namespace {

using namespace mte_e2e;

constexpr const char* MTE_MIB = "1.3.6.1.2.1.88.1";
// Index of owner "mgr" with the implied name that follows it.
constexpr const char* OWNER_MGR = "3.109.103.114";
constexpr const char* NAME_T = "116";       // trigger "t"
constexpr const char* NAME_EV = "101.118";  // event "ev"
constexpr const char* CONFIGURED = ".1.3.6.1.4.1.99999.0.77";

class E2eManager : public E2eStack {
  protected:
    // snmpset with the write community; arguments are "OID TYPE VALUE" triples.
    std::string Set(const std::string& strArgs) {
        std::string strCommand = "env SNMPCONFPATH=" + m_stSnmpd.Dir() +
                                 "/etc MIBS= timeout 30 snmpset -v2c -c private -On -t 3 -r 0 "
                                 "127.0.0.1:" +
                                 std::to_string(m_stSnmpd.Port()) + " " + strArgs + " 2>&1";
        std::string strOut;
        FILE* pstPipe = popen(strCommand.c_str(), "r");
        if (pstPipe == nullptr) {
            return "popen failed";
        }
        char acBuf[4096];
        size_t uiGot;
        while ((uiGot = fread(acBuf, 1, sizeof(acBuf), pstPipe)) > 0) {
            strOut.append(acBuf, uiGot);
        }
        int iStatus = pclose(pstPipe);
        return iStatus == 0 ? "" : strOut.empty() ? "failed" : strOut;
    }
    static std::string Column(const char* pszTable, int iColumn, const char* pszName) {
        return std::string(MTE_MIB) + "." + pszTable + ".1." + std::to_string(iColumn) + "." +
               OWNER_MGR + "." + pszName;
    }
};

TEST_F(E2eManager, SnmpsetAloneConfiguresATriggerThatNotifies) {
    AgentOk("add - 9 20 33 row nine");
    const std::string strEvent = "4.2";
    const std::string strNotify = "4.3";
    const std::string strTrigger = "2.2";
    const std::string strThreshold = "2.6";
    // The event with its notification action, built while notInService.
    EXPECT_EQ(Set(Column(strEvent.c_str(), 5, NAME_EV) + " i 5 " +
                  Column(strEvent.c_str(), 3, NAME_EV) + " x 80"),
              "");
    EXPECT_EQ(Set(Column(strNotify.c_str(), 1, NAME_EV) + " o " + std::string(CONFIGURED + 1)), "");
    EXPECT_EQ(Set(Column(strEvent.c_str(), 5, NAME_EV) + " i 1"), "");
    // The trigger: a single instance of the test table, sampled every second.
    EXPECT_EQ(Set(Column(strTrigger.c_str(), 15, NAME_T) + " i 5 " +
                  Column(strTrigger.c_str(), 4, NAME_T) + " x 20 " +
                  Column(strTrigger.c_str(), 6, NAME_T) + " o " + TABLE + ".1.9 " +
                  Column(strTrigger.c_str(), 11, NAME_T) + " u 1"),
              "");
    // Thresholds: rising 100, falling 10, delta alarms out of reach.
    EXPECT_EQ(Set(Column(strThreshold.c_str(), 2, NAME_T) + " i 100 " +
                  Column(strThreshold.c_str(), 3, NAME_T) + " i 10 " +
                  Column(strThreshold.c_str(), 4, NAME_T) + " i 1000000 " +
                  Column(strThreshold.c_str(), 5, NAME_T) + " i -1000000 " +
                  Column(strThreshold.c_str(), 8, NAME_T) + " s mgr " +
                  Column(strThreshold.c_str(), 9, NAME_T) + " s ev"),
              "");
    EXPECT_EQ(Set(Column(strTrigger.c_str(), 15, NAME_T) + " i 1"), "");

    usleep(2000 * 1000);
    AgentOk("set - 9 int 150");
    ASSERT_TRUE(WaitTraps(RISING, "t", 1));
    ExpectHot(Traps(RISING, "t")[0], "t", "", InstanceOid(1, 9), Int(150));
    ASSERT_TRUE(WaitTraps(CONFIGURED, "", 1));
}

}  // namespace
