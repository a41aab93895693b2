// Diagnostics: trace records cut to fit and the message texts' registry,
// observed through the fake system log. The trace prefix's columns are read
// by every test that counts a trace (two, three and four digits), debug
// lines and their switch by the engine and event tests.
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
