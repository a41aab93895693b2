// The private snmpd itself: its own Event MIB is absent, snmptrapd receives
// what the agent sends, and both stop.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "client_test_util.h"
#include "snmpd_harness.h"

namespace {

std::string ReadAll(const std::string& strPath) {
    std::ifstream stIn(strPath);
    std::stringstream stText;
    stText << stIn.rdbuf();
    return stText.str();
}

TEST(SnmpdHarnessTest, AgentWithoutEventMibAndTrapReceiver) {
    mte_test::SnmpdHarness stAgent;
    std::string strError;
    if (!stAgent.StartTrapd(&strError)) {
        GTEST_SKIP() << strError;
    }
    ASSERT_TRUE(stAgent.Start(&strError)) << strError;
    ASSERT_TRUE(stAgent.UseClientConfig(mte_test::ClientSecurity::V2C));

    // Nothing of the agent answers under the Event MIB.
    MTE_OID_S stOid = mte_test::Oid("1.3.6.1.2.1.88.1.1.1.0");
    uint32_t uiStatus = 0;
    EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "", &stOid, &uiStatus));
    EXPECT_EQ(SNMP_ST_NO_SUCH_OBJECT, uiStatus);
    MTE_OID_S stCursor = mte_test::Oid("1.3.6.1.2.1.88");
    SNMP_FreeInstanceValue(SNMP_GetNextInstanceValue("owner", "", &stCursor, &uiStatus));
    EXPECT_FALSE(mte_test::IsUnder(stCursor, mte_test::Oid("1.3.6.1.2.1.88")))
        << mte_test::OidText(stCursor);

    // The agent's coldStart reaches snmptrapd.
    bool bSeen = false;
    for (int i = 0; i < 100 && !bSeen; i++) {
        bSeen = ReadAll(stAgent.TrapLogPath()).find(".1.3.6.1.6.3.1.1.5.1") != std::string::npos;
        if (!bSeen) {
            usleep(50000);
        }
    }
    EXPECT_TRUE(bSeen) << ReadAll(stAgent.TrapLogPath());

    stAgent.Stop();
    stAgent.StopTrapd();
    EXPECT_FALSE(stAgent.IsRunning());
}

}  // namespace
