// The fake SNMP agent answers as its header documents: the event and engine
// tests rely on these behaviours.
#include <gtest/gtest.h>

#include "fake_snmp.h"
#include "plat_snmp.h"

namespace {
class FakeSnmpTest : public ::testing::Test {
  protected:
    void SetUp() override { FAKE_SNMP_Reset(); }
};

TEST_F(FakeSnmpTest, GetReturnsCopiesAndCountsLiveValues) {
    FAKE_SNMP_SetInteger("", {1, 3, 6, 1, 2}, -7);
    MTE_OID_S stOid = FAKE_SNMP_MakeOid({1, 3, 6, 1, 2});
    uint32_t uiStatus = 99;
    SNMP_VALUE_S* pstValue = SNMP_GetInstanceValue("o", "", &stOid, &uiStatus);
    ASSERT_NE(pstValue, nullptr);
    EXPECT_EQ(uiStatus, 0u);
    EXPECT_EQ(pstValue->uiLen, 4u);
    EXPECT_EQ(*static_cast<int32_t*>(pstValue->pData), -7);
    EXPECT_EQ(FAKE_SNMP_LiveValues(), 1);
    SNMP_FreeInstanceValue(pstValue);
    EXPECT_EQ(FAKE_SNMP_LiveValues(), 0);

    stOid = FAKE_SNMP_MakeOid({1, 3, 6, 1, 3});
    EXPECT_EQ(SNMP_GetInstanceValue("o", "", &stOid, &uiStatus), nullptr);
    EXPECT_EQ(uiStatus, SNMP_ST_NO_SUCH_INSTANCE);
    EXPECT_EQ(SNMP_GetInstanceValue("o", "nowhere", &stOid, &uiStatus), nullptr);
    EXPECT_EQ(uiStatus, SNMP_ST_UNKNOWN_CONTEXT);
    FAKE_SNMP_FailOid({1, 3, 6, 1, 2}, SNMP_ST_TIMEOUT);
    stOid = FAKE_SNMP_MakeOid({1, 3, 6, 1, 2});
    EXPECT_EQ(SNMP_GetInstanceValue("o", "", &stOid, &uiStatus), nullptr);
    EXPECT_EQ(uiStatus, SNMP_ST_TIMEOUT);
    EXPECT_EQ(FAKE_SNMP_Gets().size(), 4u);
}

TEST_F(FakeSnmpTest, GetNextWalksInOidOrderAndContextsInStrcmpOrder) {
    FAKE_SNMP_SetInteger("", {1, 3, 10}, 3);
    FAKE_SNMP_SetInteger("", {1, 3, 2, 5}, 2);
    FAKE_SNMP_AddContext("b");
    FAKE_SNMP_AddContext("a");
    MTE_OID_S stOid = FAKE_SNMP_MakeOid({1, 3});
    uint32_t uiStatus = 0;
    std::vector<FAKE_OID> astSeen;
    while (SNMP_VALUE_S* pstValue = SNMP_GetNextInstanceValue("o", "", &stOid, &uiStatus)) {
        astSeen.push_back(FAKE_SNMP_ToVector(stOid));
        SNMP_FreeInstanceValue(pstValue);
    }
    EXPECT_EQ(uiStatus, SNMP_ST_END_OF_MIB_VIEW);
    EXPECT_EQ(astSeen, (std::vector<FAKE_OID>{{1, 3, 2, 5}, {1, 3, 10}}));

    char szCtx[33] = "";
    std::vector<std::string> astCtx;
    while (SNMP_GetNextContextName(sizeof(szCtx), szCtx) == 0) {
        astCtx.push_back(szCtx);
    }
    EXPECT_EQ(astCtx, (std::vector<std::string>{"a", "b"}));
    EXPECT_STREQ(szCtx, "");
}

TEST_F(FakeSnmpTest, SetChecksPresenceAndTypeAndIsCaptured) {
    FAKE_SNMP_SetInteger("c", {1, 1}, 0);
    FAKE_SNMP_SetString("c", {1, 2}, "x");
    MTE_OID_S stOid = FAKE_SNMP_MakeOid({1, 1});
    EXPECT_EQ(SNMP_SetIntegerValueByOID("o", "c", &stOid, 42), 0u);
    int32_t iValue = 0;
    EXPECT_TRUE(FAKE_SNMP_GetInteger("c", {1, 1}, &iValue));
    EXPECT_EQ(iValue, 42);
    stOid = FAKE_SNMP_MakeOid({1, 2});
    EXPECT_EQ(SNMP_SetIntegerValueByOID("o", "c", &stOid, 1), SNMP_ST_WRONG_TYPE);
    stOid = FAKE_SNMP_MakeOid({1, 3});
    EXPECT_EQ(SNMP_SetIntegerValueByOID("o", "c", &stOid, 1), SNMP_ST_NO_CREATION);
    auto astSets = FAKE_SNMP_Sets();
    ASSERT_EQ(astSets.size(), 3u);
    EXPECT_EQ(astSets[0].strOwner, "o");
    EXPECT_EQ(astSets[2].uiResult, SNMP_ST_NO_CREATION);
}

TEST_F(FakeSnmpTest, NotifyCaptureAndHandleAccounting) {
    SNMP_NOTIFY_HANDLE h = SNMP_CreateNotifyHandle();
    SNMP_NOTIFY_VAR_S stVar{SNMP_VTYPE_OCTET_STRING, 3, "abc"};
    EXPECT_EQ(SNMP_AddNotifyVar(h, &stVar, 0), 0u);
    EXPECT_EQ(SNMP_SendNotify("mteTriggerFired", h), 0u);
    EXPECT_EQ(FAKE_SNMP_LiveHandles(), 1);
    EXPECT_EQ(SNMP_DestroyNotifyHandle(h), 0u);
    EXPECT_EQ(FAKE_SNMP_LiveHandles(), 0);
    auto astNotifies = FAKE_SNMP_Notifies();
    ASSERT_EQ(astNotifies.size(), 1u);
    EXPECT_EQ(astNotifies[0].strName, "mteTriggerFired");
    ASSERT_EQ(astNotifies[0].astVars.size(), 1u);
    EXPECT_EQ(astNotifies[0].astVars[0].strBytes, "abc");
    EXPECT_EQ(FAKE_SNMP_CallCount(), 4u);
}
}  // namespace
