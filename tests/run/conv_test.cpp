// Value and reason conversions and the OID/owner helpers: the boundaries of
// the signed 32-bit range, unsigned distances, the status codes and the OID
// length limit.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mte_conv.h"
#include "mte_oid.h"

namespace {

TEST(ConvAbsolute, FitsOrNot) {
    int32_t iOut = 12345;
    uint64_t ulBig = 2147483648ull;
    EXPECT_EQ(mte_RUN_AbsoluteVal(MTE_VKIND_UNSIGNED64, &ulBig, &iOut), 1u);
    EXPECT_EQ(iOut, 12345);  // nothing written when it does not fit
    uint64_t ulMax = 2147483647ull;
    EXPECT_EQ(mte_RUN_AbsoluteVal(MTE_VKIND_UNSIGNED64, &ulMax, &iOut), 0u);
    EXPECT_EQ(iOut, 2147483647);
    uint32_t uiTop = 0x80000000u;
    EXPECT_EQ(mte_RUN_AbsoluteVal(MTE_VKIND_UNSIGNED32, &uiTop, &iOut), 1u);
    int32_t iNeg = -7;
    EXPECT_EQ(mte_RUN_AbsoluteVal(MTE_VKIND_SIGNED32, &iNeg, &iOut), 0u);
    EXPECT_EQ(iOut, -7);
    // Values are read unaligned.
    unsigned char aucBuf[16] = {};
    uint64_t ulValue = 77;
    memcpy(aucBuf + 1, &ulValue, sizeof(ulValue));
    EXPECT_EQ(mte_RUN_AbsoluteVal(MTE_VKIND_UNSIGNED64, aucBuf + 1, &iOut), 0u);
    EXPECT_EQ(iOut, 77);
}

struct DeltaCase {
    uint32_t uiKind;
    int64_t llNew;
    int64_t llOld;
    uint32_t uiResult;
    int32_t iOut;  // 999: left as it was
};

TEST(ConvDelta, Table) {
    const DeltaCase astCases[] = {
        {MTE_VKIND_SIGNED32, -2147483648LL, 1, 2, 999},
        {MTE_VKIND_SIGNED32, 2147483647, -1, 1, 999},
        {MTE_VKIND_SIGNED32, 2147483647, 0, 0, 2147483647},
        {MTE_VKIND_SIGNED32, -2147483648LL, 0, 0, INT32_MIN},
        {MTE_VKIND_SIGNED32, 5, 10, 0, -5},
        {MTE_VKIND_UNSIGNED32, 3, 10, 0, 7},  // distance, not the wrapped difference
        {MTE_VKIND_UNSIGNED32, 10, 3, 0, 7},
        {MTE_VKIND_UNSIGNED32, 5, 0xfffffff0LL, 1, 999},  // a wrapped counter is too far
        {MTE_VKIND_UNSIGNED64, 1, 0x80000001LL, 1, 999},
        {MTE_VKIND_UNSIGNED64, 0x100000005LL, 0x100000000LL, 0, 5},
        {MTE_VKIND_NONE, 1, 2, 0, 999},
    };
    for (const DeltaCase& c : astCases) {
        int32_t iOut = 999;
        uint32_t uiRet;
        if (c.uiKind == MTE_VKIND_UNSIGNED64) {
            uint64_t ulNew = static_cast<uint64_t>(c.llNew), ulOld = static_cast<uint64_t>(c.llOld);
            uiRet = mte_RUN_DeltaVal(c.uiKind, &ulNew, &ulOld, &iOut);
        } else {
            uint32_t uiNew = static_cast<uint32_t>(c.llNew), uiOld = static_cast<uint32_t>(c.llOld);
            uiRet = mte_RUN_DeltaVal(c.uiKind, &uiNew, &uiOld, &iOut);
        }
        SCOPED_TRACE(std::to_string(c.uiKind) + ": " + std::to_string(c.llNew) + " - " +
                     std::to_string(c.llOld));
        EXPECT_EQ(uiRet, c.uiResult);
        EXPECT_EQ(iOut, c.iOut);
    }
}

TEST(ConvReason, PlatformCodesAndNames) {
    const struct {
        uint32_t uiCode;
        int32_t iReason;
    } astCodes[] = {{0, 0},          {0x61010055, 1},  {0x61010050, 18},
                    {0x61010057, 2}, {0x61010059, 0},  {0x61010054, 0},
                    {0x61010052, 5}, {0x6101005a, 13}, {0x61010099, 5}};
    for (const auto& stCode : astCodes) {
        EXPECT_EQ(mte_RUN_convertErrCodeMor2Mte(stCode.uiCode), stCode.iReason) << stCode.uiCode;
    }
    // Names at the ends of the range and past them (the others are read in the
    // failure reports of the engine tests).
    const std::pair<int32_t, const char*> astNames[] = {
        {-6, "sampleOverrun"}, {18, "inconsistentName"}, {-7, "unknown"},
        {19, "unknown"},       {INT32_MIN, "unknown"},   {INT32_MAX, "unknown"}};
    for (const auto& [iReason, pszName] : astNames) {
        EXPECT_STREQ(mte_Run_Reason2Str(iReason), pszName);
    }
}

// The basic append, owner and copy cases are covered with the message
// library's tests; these are the damaged-input cases.
TEST(OidAppend, DamagedCountDoesNotWrap) {
    MTE_OID_S stHuge{};
    stHuge.uiLen = 0xffffffffu;
    MTE_OID_S stOne{};
    stOne.uiLen = 1;
    MTE_OID_S stBefore = stOne;
    EXPECT_EQ(AppendSuffix2OID(&stHuge, &stOne), MTE_ERR_GENERAL);
    EXPECT_EQ(memcmp(&stOne, &stBefore, sizeof(stBefore)), 0);
}

TEST(OidStrCopy, UnterminatedSourceIsReadUpToTheBound) {
    char acSrc[4] = {'w', 'x', 'y', 'z'};
    char szSmall[4];
    mte_StrCopy(szSmall, acSrc, sizeof(szSmall));
    EXPECT_STREQ(szSmall, "wxy");
    char szUntouched[2] = {'a', 'b'};
    mte_StrCopy(szUntouched, "long", 0);  // no room at all: nothing written
    EXPECT_EQ(szUntouched[0], 'a');
}

}  // namespace
