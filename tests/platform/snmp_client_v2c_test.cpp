// SNMP client configured for SNMPv2c: the default context works, named
// contexts are out of reach and refused without a request.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "plat_snmp.h"
#include "stack.h"

namespace {

using mte_test::Oid;

class SnmpClientV2cTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { MTE_START_STACK(*this, mte_test::SNMPD | mte_test::CLIENT_V2C); }
};

// The default context: a set, then several instances in one GET, each binding
// with its own value or status, and a get-next.
TEST_F(SnmpClientV2cTest, DefaultContextOnly) {
    const MTE_OID_S astOids[] = {Oid(MTE_TEST_WRITABLE_INTEGER), Oid("1.3.6.1.2.1.1.3.7"),
                                 Oid("1.3.6.1.2.1.1.5.0")};
    ASSERT_EQ(SNMP_ST_OK, SNMP_SetIntegerValueByOID("owner", "", &astOids[0], 7));
    SNMP_VALUE_S* apstValues[3] = {};
    uint32_t auiStatus[3] = {};
    SNMP_GetInstanceValues("owner", "", 3, astOids, apstValues, auiStatus);
    EXPECT_EQ(std::vector<uint32_t>(auiStatus, auiStatus + 3),
              (std::vector<uint32_t>{SNMP_ST_OK, SNMP_ST_NO_SUCH_INSTANCE, SNMP_ST_OK}));
    ASSERT_TRUE(apstValues[0] != nullptr && apstValues[1] == nullptr && apstValues[2] != nullptr);
    EXPECT_EQ(apstValues[0]->uiType, SNMP_VTYPE_INTEGER);
    EXPECT_EQ(7, *static_cast<int32_t*>(apstValues[0]->pData));
    EXPECT_EQ(apstValues[2]->uiType, SNMP_VTYPE_OCTET_STRING);
    for (SNMP_VALUE_S* pstValue : apstValues) {
        SNMP_FreeInstanceValue(pstValue);
    }
    // More than a request may carry: refused without a request.
    MTE_OID_S astMany[SNMP_GET_MANY_MAX + 1];
    std::fill(std::begin(astMany), std::end(astMany), astOids[0]);
    SNMP_VALUE_S* apstMany[SNMP_GET_MANY_MAX + 1] = {};
    uint32_t auiMany[SNMP_GET_MANY_MAX + 1] = {};
    SNMP_GetInstanceValues("owner", "", SNMP_GET_MANY_MAX + 1, astMany, apstMany, auiMany);
    EXPECT_EQ(auiMany[0], SNMP_ST_CLIENT_ERROR);
    EXPECT_EQ(apstMany[0], nullptr);

    MTE_OID_S stCursor = Oid("1.3.6.1.2.1.1");
    uint32_t uiStatus = 0;
    SNMP_FreeInstanceValue(SNMP_GetNextInstanceValue("owner", "", &stCursor, &uiStatus));
    EXPECT_EQ(SNMP_ST_OK, uiStatus);
    EXPECT_EQ("1.3.6.1.2.1.1.1.0", mte_test::OidText(stCursor));

    // Named contexts are out of reach: refused without a request.
    EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "ctxA", &astOids[2], &uiStatus));
    EXPECT_EQ(SNMP_ST_UNKNOWN_CONTEXT, uiStatus);
    EXPECT_EQ(SNMP_ST_UNKNOWN_CONTEXT, SNMP_SetIntegerValueByOID("owner", "ctxA", &astOids[2], 1));
    char szContext[MTE_NAME_SIZE] = "";
    EXPECT_EQ(SNMP_ST_NO_MORE_CONTEXTS, SNMP_GetNextContextName(sizeof(szContext), szContext));
    EXPECT_STREQ("", szContext);
}

}  // namespace
