// OID and owner helpers shared by the tables.
#include <gtest/gtest.h>

#include <cstring>

#include "mte_oid.h"

namespace {

MTE_OID_S OidOfLength(uint32_t uiLen, uint32_t uiFirst) {
    MTE_OID_S stOid = {};
    stOid.uiLen = uiLen;
    for (uint32_t i = 0; i < uiLen; i++) {
        stOid.auiOid[i] = uiFirst + i;
    }
    return stOid;
}

TEST(OidTest, AppendSuffixUpTo128) {
    MTE_OID_S stSuffix = OidOfLength(3, 1000);
    MTE_OID_S stOid = OidOfLength(125, 1);
    ASSERT_EQ(AppendSuffix2OID(&stSuffix, &stOid), MTE_OK);
    EXPECT_EQ(stOid.uiLen, 128u);
    EXPECT_EQ(stOid.auiOid[124], 125u);
    EXPECT_EQ(stOid.auiOid[125], 1000u);
    EXPECT_EQ(stOid.auiOid[127], 1002u);

    MTE_OID_S stLong = OidOfLength(126, 1);
    MTE_OID_S stBefore = stLong;
    EXPECT_EQ(AppendSuffix2OID(&stSuffix, &stLong), MTE_ERR_GENERAL);
    EXPECT_EQ(memcmp(&stLong, &stBefore, sizeof(stLong)), 0);

    MTE_OID_S stEmpty = {};
    stBefore = stLong;
    EXPECT_EQ(AppendSuffix2OID(&stEmpty, &stLong), MTE_OK);
    EXPECT_EQ(memcmp(&stLong, &stBefore, sizeof(stLong)), 0);
}

TEST(OidTest, OwnerRule) {
    EXPECT_EQ(mte_checkOwner("", "owner"), 1u);
    EXPECT_EQ(mte_checkOwner("owner", "owner"), 1u);
    EXPECT_EQ(mte_checkOwner("Owner", "owner"), 0u);
    EXPECT_EQ(mte_checkOwner("own", "owner"), 0u);
}

TEST(OidTest, StrCopyIsBoundedAndTerminated) {
    char szField[5];
    memset(szField, 'x', sizeof(szField));
    mte_StrCopy(szField, "abcdefgh", sizeof(szField));
    EXPECT_STREQ(szField, "abcd");
    mte_StrCopy(szField, "ab", sizeof(szField));
    EXPECT_STREQ(szField, "ab");
}

}  // namespace
