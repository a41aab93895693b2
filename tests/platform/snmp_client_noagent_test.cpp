// SNMP client (SNMPv3) whose agent is not running when the first request is
// made: every call reports a time-out within the bound, none hangs, and a
// walk over contexts ends.
#include <gtest/gtest.h>
#include <time.h>

#include <string>

#include "plat_snmp.h"
#include "stack.h"

namespace {

double NowSeconds() {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return stNow.tv_sec + stNow.tv_nsec / 1e9;
}

TEST(SnmpClientNoAgentTest, EveryCallTimesOutWithinBound) {
    mte_test::SnmpdHarness stAgent;
    std::string strError;
    if (!stAgent.Start(&strError)) {
        GTEST_SKIP() << strError;
    }
    ASSERT_TRUE(stAgent.UseClientConfig(mte_test::ClientSecurity::V3_AUTH_PRIV));
    stAgent.Stop();

    MTE_OID_S stOid = mte_test::Oid("1.3.6.1.2.1.1.5.0");
    uint32_t uiStatus = 0;
    double dStart = NowSeconds();
    EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "", &stOid, &uiStatus));
    EXPECT_EQ(SNMP_ST_TIMEOUT, uiStatus) << std::hex << uiStatus;
    EXPECT_LT(NowSeconds() - dStart, 5.0);

    dStart = NowSeconds();
    char szContext[MTE_NAME_SIZE] = "ctxA";
    EXPECT_EQ(SNMP_ST_TIMEOUT, SNMP_GetNextContextName(sizeof(szContext), szContext));
    EXPECT_STREQ("", szContext);
    EXPECT_LT(NowSeconds() - dStart, 5.0);

    dStart = NowSeconds();
    EXPECT_EQ(SNMP_ST_TIMEOUT, SNMP_SetIntegerValueByOID("owner", "ctxA", &stOid, 1));
    EXPECT_LT(NowSeconds() - dStart, 5.0);
}

}  // namespace
