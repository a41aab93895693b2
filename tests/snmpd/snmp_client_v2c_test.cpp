// SNMP client configured for SNMPv2c: the default context works, named
// contexts are out of reach and refused without a request.
#include <gtest/gtest.h>

#include <string>

#include "client_test_util.h"
#include "snmpd_harness.h"

namespace {

using mte_test::Oid;

class SnmpClientV2cTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        s_pstAgent = new mte_test::SnmpdHarness();
        std::string strError;
        s_bUp = s_pstAgent->Start(&strError) &&
                s_pstAgent->UseClientConfig(mte_test::ClientSecurity::V2C);
        if (!s_bUp) {
            fprintf(stderr, "private snmpd not available: %s\n", strError.c_str());
        }
    }
    static void TearDownTestSuite() {
        delete s_pstAgent;
        s_pstAgent = nullptr;
    }
    void SetUp() override {
        if (!s_bUp) {
            GTEST_SKIP() << "no private snmpd";
        }
    }
    static mte_test::SnmpdHarness* s_pstAgent;
    static bool s_bUp;
};
mte_test::SnmpdHarness* SnmpClientV2cTest::s_pstAgent = nullptr;
bool SnmpClientV2cTest::s_bUp = false;

TEST_F(SnmpClientV2cTest, DefaultContextReadsAndSets) {
    MTE_OID_S stWritable = Oid(MTE_TEST_WRITABLE_INTEGER);
    ASSERT_EQ(SNMP_ST_OK, SNMP_SetIntegerValueByOID("owner", "", &stWritable, 7));
    uint32_t uiStatus = 1;
    SNMP_VALUE_S* pstValue = SNMP_GetInstanceValue("owner", "", &stWritable, &uiStatus);
    ASSERT_EQ(SNMP_ST_OK, uiStatus);
    ASSERT_NE(nullptr, pstValue);
    EXPECT_EQ(SNMP_VTYPE_INTEGER, pstValue->uiType);
    EXPECT_EQ(7, *static_cast<int32_t*>(pstValue->pData));
    SNMP_FreeInstanceValue(pstValue);

    MTE_OID_S stCursor = Oid("1.3.6.1.2.1.1");
    pstValue = SNMP_GetNextInstanceValue("owner", "", &stCursor, &uiStatus);
    EXPECT_EQ(SNMP_ST_OK, uiStatus);
    EXPECT_EQ("1.3.6.1.2.1.1.1.0", mte_test::OidText(stCursor));
    SNMP_FreeInstanceValue(pstValue);
}

TEST_F(SnmpClientV2cTest, NamedContextsAreOutOfReach) {
    MTE_OID_S stOid = Oid("1.3.6.1.2.1.1.5.0");
    uint32_t uiStatus = 0;
    EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "ctxA", &stOid, &uiStatus));
    EXPECT_EQ(SNMP_ST_UNKNOWN_CONTEXT, uiStatus);
    EXPECT_EQ(SNMP_ST_UNKNOWN_CONTEXT, SNMP_SetIntegerValueByOID("owner", "ctxA", &stOid, 1));
    char szContext[MTE_NAME_SIZE] = "";
    EXPECT_EQ(SNMP_ST_NO_MORE_CONTEXTS, SNMP_GetNextContextName(sizeof(szContext), szContext));
    EXPECT_STREQ("", szContext);
}

}  // namespace
