// Diagnostics: trace records, debug lines, the switch and the message texts,
// observed through the fake system log.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "fake_log.h"
#include "mte_dbg.h"
#include "plat_rc.h"

namespace {

class DbgTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(mte_DBG_Init(), 0u);
        FAKE_LOG_Clear();
    }
    void TearDown() override { mte_DBG_Fini(); }

    static FAKE_LOG_LINE_S OnlyLine() {
        auto astLines = FAKE_LOG_Lines();
        EXPECT_EQ(astLines.size(), 1u);
        return astLines.empty() ? FAKE_LOG_LINE_S{} : astLines.front();
    }
};

TEST_F(DbgTest, TracePrefixKeepsFourColumnsAndWidensBeyond) {
    struct {
        int64_t llTraceNo;
        const char* pszExpected;
    } astCases[] = {
        {84, "Ln:  84 x"},   {107, "Ln: 107 x"},    {1217, "Ln:1217 x"},
        {3532, "Ln:3532 x"}, {12345, "Ln:12345 x"}, {-5, "Ln:  -5 x"},
    };
    for (const auto& stCase : astCases) {
        FAKE_LOG_Clear();
        mte_DBG_PrintTraceInfo(stCase.llTraceNo, "%s", "x");
        FAKE_LOG_LINE_S stLine = OnlyLine();
        EXPECT_EQ(stLine.strText, stCase.pszExpected);
        EXPECT_EQ(stLine.strMnemonic, "EVENTMIB_TRACE");
        EXPECT_EQ(stLine.strIdent, "EVENTMIB");
        EXPECT_EQ(stLine.uiPriority, 0x100000bfu);
    }
}

TEST_F(DbgTest, OverlongTraceIsCutToFitTheRecord) {
    std::string strLong(3000, 'a');
    mte_DBG_PrintTraceInfo(107, "%s", strLong.c_str());
    std::string strText = OnlyLine().strText;
    ASSERT_EQ(strText.size(), MTE_TRACE_BUF_SIZE - 1);
    EXPECT_EQ(strText.substr(0, 8), "Ln: 107 ");
    EXPECT_EQ(strText.find_first_not_of('a', 8), std::string::npos);

    // A message that just fits is not cut.
    FAKE_LOG_Clear();
    std::string strFits(MTE_TRACE_BUF_SIZE - 1 - 8, 'b');
    mte_DBG_PrintTraceInfo(107, "%s", strFits.c_str());
    EXPECT_EQ(OnlyLine().strText, "Ln: 107 " + strFits);
}

// Traces are written whatever the switch; a new start begins with it off.
TEST_F(DbgTest, SwitchArithmetic) {
    mte_DBG_PrintTraceInfo(84, "%d", 7);
    EXPECT_EQ(mte_DBG_GetSwitch(), 0u);
    mte_DBG_EnableSwitch(0x6);
    mte_DBG_DisableSwitch(0x2);
    EXPECT_EQ(mte_DBG_GetSwitch(), 0x4u);
    EXPECT_EQ(mte_DBG_IsEnable(MTE_DBG_WARNING), 1);
    EXPECT_EQ(mte_DBG_IsEnable(MTE_DBG_ERR), 0);
    EXPECT_EQ(mte_DBG_IsEnable(MTE_DBG_ERR | MTE_DBG_WARNING), 1);
    // Bits without a reader can still be set and read back.
    mte_DBG_EnableSwitch(0x80000001u);
    EXPECT_EQ(mte_DBG_GetSwitch(), 0x80000005u);
    mte_DBG_PrintTraceInfo(84, "%d", 8);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_TRACE"), 2u);
    mte_DBG_Fini();
    ASSERT_EQ(mte_DBG_Init(), 0u);
    EXPECT_EQ(mte_DBG_GetSwitch(), 0u);
}

// The words are pinned at compile time; the registry holds them while the
// module is up.
static_assert(std::string_view(mte_DBG_TextFormat(MTE_TEXT_INIT_FAILED)) ==
              "Failed to initialize Event-MIB module.");
TEST_F(DbgTest, TextsAreRegisteredWhileTheModuleIsUp) {
    for (uint32_t i = 0; i < MTE_TEXT_COUNT; ++i) {
        EXPECT_STREQ(RC_LoadString(MTE_TEXT(i)), g_astMteTexts[i].pszText) << "text " << i;
    }
    EXPECT_STREQ(RC_LoadString(MTE_TEXT(MTE_TEXT_COUNT)), "");
    EXPECT_STREQ(mte_DBG_Text(MTE_TEXT_COUNT), "");
    mte_DBG_Fini();
    EXPECT_STREQ(mte_DBG_Text(MTE_TEXT_INIT_FAILED), "");
    ASSERT_EQ(mte_DBG_Init(), 0u);
    EXPECT_STREQ(mte_DBG_Text(MTE_TEXT_INIT_FAILED), g_astMteTexts[3].pszText);
}

}  // namespace
