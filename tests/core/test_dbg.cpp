// Diagnostics: trace records and the message texts' registry, observed
// through the fake system log. Debug lines and their switch are read by the
// engine and event tests.
#include <gtest/gtest.h>

#include <string>

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

// Out-of-range texts and texts asked for after the end come back empty.
TEST_F(DbgTest, TextsOutsideTheRegistryAreEmpty) {
    EXPECT_STREQ(RC_LoadString(MTE_TEXT(MTE_TEXT_COUNT)), "");
    EXPECT_STREQ(mte_DBG_Text(MTE_TEXT_COUNT), "");
    mte_DBG_Fini();
    EXPECT_STREQ(mte_DBG_Text(MTE_TEXT_INIT_FAILED), "");
    ASSERT_EQ(mte_DBG_Init(), 0u);
    EXPECT_STREQ(mte_DBG_Text(MTE_TEXT_INIT_FAILED), g_astMteTexts[MTE_TEXT_INIT_FAILED].pszText);
}

}  // namespace
