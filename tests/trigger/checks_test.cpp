// The existence, boolean and threshold checks walked through sample
// sequences: startup rules, hysteresis kept in the samples' state bits,
// unsigned and 64-bit values, non-numeric values, deltas, equal thresholds.
#include <gtest/gtest.h>

#include <cstring>

#include "fake_log.h"
#include "mte_bool.h"
#include "mte_dbg.h"
#include "mte_exist.h"
#include "mte_thres.h"
#include "sample_helpers.h"

namespace {

constexpr int32_t N = MTE_CHECK_NONE;

MTE_EXIST_ENTRY_S ExistRow(uint8_t ucTest, uint8_t ucStartup, uint16_t usFirstCycle) {
    MTE_EXIST_ENTRY_S st{};
    st.ucTest = ucTest;
    st.ucStartup = ucStartup;
    st.usFirstCycle = usFirstCycle;
    return st;
}

TEST(ExistCheck, PresentAbsentAndStartup) {
    auto pOne = TestSample::Int(1);
    TestSample stNoValue;
    struct Case {
        const char* pszWhat;
        uint8_t ucTest, ucStartup;
        uint16_t usFirst;
        const MTE_SAMPLE_S* pstPrev;
        const MTE_SAMPLE_S* pstCur;
        int32_t iExpected;
    } astCases[] = {
        {"first cycle, present, startup present", 0xC0, 0xC0, 1, nullptr, &pOne->st,
         MTE_CHECK_PRESENT},
        {"first cycle, present, startup without present", 0xC0, 0x40, 1, nullptr, &pOne->st, N},
        {"later cycle, newly present", 0xC0, 0x00, 0, nullptr, &pOne->st, MTE_CHECK_PRESENT},
        {"present without present test", 0x40, 0xC0, 0, nullptr, &pOne->st, N},
        {"still present, no changed test", 0xC0, 0xC0, 0, &pOne->st, &pOne->st, N},
        {"first cycle, missing, startup absent", 0xC0, 0x40, 1, nullptr, nullptr, MTE_CHECK_ABSENT},
        {"first cycle, missing, startup without absent", 0xC0, 0x80, 1, &pOne->st, nullptr, N},
        {"later cycle, gone", 0xC0, 0x00, 0, &pOne->st, nullptr, MTE_CHECK_ABSENT},
        {"later cycle, missing before and now", 0xC0, 0xC0, 0, nullptr, nullptr, N},
        {"gone without absent test", 0x80, 0xC0, 0, &pOne->st, nullptr, N},
        {"a sample without value counts as missing", 0xC0, 0xC0, 0, &pOne->st, &stNoValue.st,
         MTE_CHECK_ABSENT},
        {"value appears on a sample that had none", 0xC0, 0xC0, 0, &stNoValue.st, &pOne->st,
         MTE_CHECK_PRESENT},
    };
    for (const Case& c : astCases) {
        MTE_EXIST_ENTRY_S stRow = ExistRow(c.ucTest, c.ucStartup, c.usFirst);
        EXPECT_EQ(mte_EXIST_Check(&stRow, c.pstPrev, c.pstCur), c.iExpected) << c.pszWhat;
    }
}

TEST(ExistCheck, ChangedComparesLengthTypeAndBytes) {
    MTE_EXIST_ENTRY_S stRow = ExistRow(0xE0, 0xC0, 0);
    auto pA = TestSample::Text("abcd");
    auto pB = TestSample::Text("abce");
    auto pA2 = TestSample::Text("abcd");
    auto pLonger = TestSample::Text("abcde");
    uint32_t uiBytes;
    memcpy(&uiBytes, "abcd", 4);
    auto pSameBytesOtherType = std::make_unique<TestSample>(SNMP_VTYPE_OPAQUE, &uiBytes, 4);
    EXPECT_EQ(mte_EXIST_Check(&stRow, &pA->st, &pB->st), MTE_CHECK_CHANGED);
    EXPECT_EQ(mte_EXIST_Check(&stRow, &pA->st, &pLonger->st), MTE_CHECK_CHANGED);
    EXPECT_EQ(mte_EXIST_Check(&stRow, &pA->st, &pSameBytesOtherType->st), MTE_CHECK_CHANGED);
    EXPECT_EQ(mte_EXIST_Check(&stRow, &pA->st, &pA2->st), N);
    MTE_EXIST_ENTRY_S stNoChanged = ExistRow(0xC0, 0xC0, 0);
    EXPECT_EQ(mte_EXIST_Check(&stNoChanged, &pA->st, &pB->st), N);
}

Check BoolCheck(const MTE_BOOL_ENTRY_S* pstRow, uint32_t uiSampleType) {
    return [=](const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
        return mte_BOOL_Check(pstRow, uiSampleType, pstPrev, pstCur);
    };
}

MTE_BOOL_ENTRY_S BoolRow(uint32_t uiComparison, int32_t iValue, uint32_t uiStartup) {
    MTE_BOOL_ENTRY_S st{};
    st.uiComparison = uiComparison;
    st.iValue = iValue;
    st.uiStartup = uiStartup;
    return st;
}

SampleMaker IntMaker() {
    return [](int64_t v) { return TestSample::Int(static_cast<int32_t>(v)); };
}
SampleMaker CounterMaker() {
    return [](int64_t v) { return TestSample::Counter(static_cast<uint32_t>(v)); };
}

TEST(BoolCheck, FiresWhenConditionBecomesTrue) {
    struct Case {
        const char* pszWhat;
        MTE_BOOL_ENTRY_S stRow;
        uint32_t uiSampleType;
        SampleMaker fnMake;
        std::vector<int64_t> allValues;
        std::vector<int32_t> aiExpected;
    } astCases[] = {
        {"greater 10, startup true",
         BoolRow(MTE_BOOL_GREATER, 10, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {5, 12, 15, 8, 20},
         {N, 22, N, N, 22}},
        {"startup true fires at once",
         BoolRow(MTE_BOOL_GREATER, 10, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {12, 13},
         {22, N}},
        {"startup false arms only",
         BoolRow(MTE_BOOL_GREATER, 10, MTE_FALSE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {12, 13, 14},
         {N, 22, N}},
        {"startup false, false first",
         BoolRow(MTE_BOOL_GREATER, 10, MTE_FALSE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {5, 12},
         {N, 22}},
        {"unequal",
         BoolRow(MTE_BOOL_UNEQUAL, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {0, 1, 2, 0, -1},
         {N, 22, N, N, 22}},
        {"equal",
         BoolRow(MTE_BOOL_EQUAL, 3, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {3, 3, 4, 3},
         {22, N, N, 22}},
        {"less",
         BoolRow(MTE_BOOL_LESS, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {-1, 0, -5},
         {22, N, 22}},
        {"lessOrEqual",
         BoolRow(MTE_BOOL_LESS_OR_EQUAL, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {1, 0, 1, -1},
         {N, 22, N, 22}},
        {"greaterOrEqual",
         BoolRow(MTE_BOOL_GREATER_OR_EQUAL, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {-1, 0, -1, 1},
         {N, 22, N, 22}},
        {"comparison 0 never fires",
         BoolRow(0, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {0, 1, -1},
         {N, N, N}},
        {"comparison 7 never fires",
         BoolRow(7, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         IntMaker(),
         {0, 1, -1},
         {N, N, N}},
        {"unsigned 3000000000 is greater than any value",
         BoolRow(MTE_BOOL_GREATER, 2147483647, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         CounterMaker(),
         {3000000000LL},
         {22}},
        {"unsigned above the range never less",
         BoolRow(MTE_BOOL_LESS, 0, MTE_TRUE),
         MTE_SAMPLE_ABSOLUTE,
         CounterMaker(),
         {3000000000LL},
         {N}},
        {"delta of a counter, greaterOrEqual 0: first arms, second fires either way",
         BoolRow(MTE_BOOL_GREATER_OR_EQUAL, 0, MTE_TRUE),
         MTE_SAMPLE_DELTA,
         CounterMaker(),
         {100, 90},
         {N, 22}},
        {"signed delta below the range compares less",
         BoolRow(MTE_BOOL_LESS, -5, MTE_TRUE),
         MTE_SAMPLE_DELTA,
         IntMaker(),
         {2147483647, -2147483648LL},
         {N, 22}},
        {"signed delta above the range compares greater",
         BoolRow(MTE_BOOL_GREATER, 2147483647, MTE_TRUE),
         MTE_SAMPLE_DELTA,
         IntMaker(),
         {-1, 2147483647},
         {N, 22}},
        {"delta values",
         BoolRow(MTE_BOOL_GREATER, 4, MTE_TRUE),
         MTE_SAMPLE_DELTA,
         IntMaker(),
         {0, 5, 10, 12, 20},
         {N, 22, N, N, 22}},
    };
    for (Case& c : astCases) {
        EXPECT_EQ(WalkValues(c.allValues, c.fnMake, BoolCheck(&c.stRow, c.uiSampleType)),
                  c.aiExpected)
            << c.pszWhat;
    }
}

TEST(BoolCheck, StateBitOnlyClearedWhenConditionHolds) {
    MTE_BOOL_ENTRY_S stRow = BoolRow(MTE_BOOL_GREATER, 10, MTE_TRUE);
    auto pLow = TestSample::Int(5);
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &pLow->st), N);
    EXPECT_EQ(pLow->st.uiTestState, MTE_TSTATE_NEW);
    auto pHigh = TestSample::Int(50);
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, &pLow->st, &pHigh->st), 22);
    EXPECT_EQ(pHigh->st.uiTestState, MTE_TSTATE_NEW & ~MTE_TSTATE_BOOLEAN);
}

TEST(BoolCheck, NonNumericAndDamagedValuesAreBadType) {
    MTE_BOOL_ENTRY_S stRow = BoolRow(MTE_BOOL_GREATER, 0, MTE_TRUE);
    auto pText = TestSample::Text("12");
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    uint16_t usShort = 7;
    TestSample stShort(SNMP_VTYPE_INTEGER32, &usShort, sizeof(usShort));
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &stShort.st), MTE_CHECK_BADTYPE);
    uint32_t uiHalf = 1;
    TestSample stHalf64(SNMP_VTYPE_COUNTER64, &uiHalf, sizeof(uiHalf));
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &stHalf64.st),
              MTE_CHECK_BADTYPE);
    // A delta whose previous value was a string has nothing to compare with.
    auto pNum = TestSample::Int(5);
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_DELTA, &TestSample::Text("")->st, &pNum->st), N);
}

MTE_THRES_ENTRY_S ThresRow(uint32_t uiStartup, int32_t iRising, int32_t iFalling,
                           int32_t iDeltaRising = 0, int32_t iDeltaFalling = 0) {
    MTE_THRES_ENTRY_S st{};
    st.uiStartup = uiStartup;
    st.iRising = iRising;
    st.iFalling = iFalling;
    st.iDeltaRising = iDeltaRising;
    st.iDeltaFalling = iDeltaFalling;
    return st;
}

Check Absolute(const MTE_THRES_ENTRY_S* pstRow) {
    return [=](const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
        return mte_THRES_CheckByAbsolute(pstRow, pstPrev, pstCur);
    };
}
Check Delta(const MTE_THRES_ENTRY_S* pstRow) {
    return [=](const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
        return mte_THRES_CheckByDelta(pstRow, pstPrev, pstCur);
    };
}

TEST(ThresCheck, AbsoluteHysteresisAndStartup) {
    constexpr int32_t R = MTE_CHECK_RISING, F = MTE_CHECK_FALLING;
    auto fnU64 = [](int64_t v) { return TestSample::Counter64(static_cast<uint64_t>(v)); };
    struct Case {
        const char* pszWhat;
        MTE_THRES_ENTRY_S stRow;
        SampleMaker fnMake;
        std::vector<int64_t> allValues;
        std::vector<int32_t> aiExpected;
    } astCases[] = {
        {"rising 80 falling 20",
         ThresRow(3, 80, 20),
         IntMaker(),
         {50, 85, 90, 60, 15, 10, 85},
         {N, R, N, N, F, N, R}},
        {"first value above rising", ThresRow(3, 80, 20), IntMaker(), {85, 90}, {R, N}},
        {"startup falling, first above rising", ThresRow(2, 80, 20), IntMaker(), {85, 85}, {N, R}},
        {"startup rising, first below falling", ThresRow(1, 80, 20), IntMaker(), {10, 10}, {N, F}},
        {"startup rising, first above rising", ThresRow(1, 80, 20), IntMaker(), {85, 10}, {R, F}},
        {"startup 0 disables the startup alarms",
         ThresRow(0, 80, 20),
         IntMaker(),
         {85, 85, 10},
         {N, R, F}},
        {"equal thresholds: falling wins, rising re-armed",
         ThresRow(3, 50, 50),
         IntMaker(),
         {50, 50, 60, 50},
         {F, R, N, F}},
        {"unsigned 4000000000 is above any rising, never below falling",
         ThresRow(3, 2147483647, 2147483647),
         CounterMaker(),
         {4000000000LL, 4000000000LL, 5},
         {R, N, F}},
        {"64-bit values", ThresRow(3, 1000, 10), fnU64, {5, 1ull << 40, 500, 9}, {F, R, N, F}},
    };
    for (Case& c : astCases) {
        EXPECT_EQ(WalkValues(c.allValues, c.fnMake, Absolute(&c.stRow)), c.aiExpected) << c.pszWhat;
    }
}

TEST(ThresCheck, DeltaHysteresis) {
    constexpr int32_t R = MTE_CHECK_DELTA_RISING, F = MTE_CHECK_DELTA_FALLING;
    struct Case {
        const char* pszWhat;
        MTE_THRES_ENTRY_S stRow;
        SampleMaker fnMake;
        std::vector<int64_t> allValues;
        std::vector<int32_t> aiExpected;
    } astCases[] = {
        {"signed, delta rising 10, falling -10",
         ThresRow(3, 0, 0, 10, -10),
         IntMaker(),
         {0, 15, 40, 35, 20},
         {N, R, N, N, F}},
        {"unsigned distances: falling 0 fires only on a repeat",
         ThresRow(3, 0, 0, 100, 0),
         CounterMaker(),
         {50, 40, 40, 200, 200},
         {N, N, F, R, F}},
        {"signed delta below the range is at or below falling",
         ThresRow(3, 0, 0, 2147483647, -2147483647 - 1 + 1),
         IntMaker(),
         {2147483647, -2147483648LL},
         {N, F}},
        {"signed delta above the range is at or above rising",
         ThresRow(3, 0, 0, 2147483647, -100),
         IntMaker(),
         {-2, 2147483647},
         {N, R}},
        {"unsigned wrap is a distance above any rising",
         ThresRow(3, 0, 0, 2147483647, 0),
         CounterMaker(),
         {4294967290LL, 5},
         {N, R}},
    };
    for (Case& c : astCases) {
        EXPECT_EQ(WalkValues(c.allValues, c.fnMake, Delta(&c.stRow)), c.aiExpected) << c.pszWhat;
    }
}

TEST(ThresCheck, BothPairsShareOneStateWord) {
    // The evaluation runs the absolute then the delta check on the same
    // samples; each must touch only its own bits.
    MTE_THRES_ENTRY_S stRow = ThresRow(3, 80, 20, 10, -10);
    auto p1 = TestSample::Int(50);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &p1->st), N);
    EXPECT_EQ(mte_THRES_CheckByDelta(&stRow, nullptr, &p1->st), N);
    EXPECT_EQ(p1->st.uiTestState, MTE_TSTATE_NEW);
    auto p2 = TestSample::Int(85);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, &p1->st, &p2->st), MTE_CHECK_RISING);
    EXPECT_EQ(mte_THRES_CheckByDelta(&stRow, &p1->st, &p2->st), MTE_CHECK_DELTA_RISING);
    EXPECT_EQ(p2->st.uiTestState & 0x0f, MTE_TSTATE_FALLING | MTE_TSTATE_DELTA_FALLING);
    EXPECT_EQ(p2->st.uiTestState & MTE_TSTATE_BOOLEAN, MTE_TSTATE_BOOLEAN);
}

TEST(ThresCheck, NonNumericWarnsOnlyWhileItsBitIsOn) {
    MTE_THRES_ENTRY_S stRow = ThresRow(3, 80, 20);
    auto pText = TestSample::Text("85");
    FAKE_LOG_Clear();
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING"), 0u);
    mte_DBG_EnableSwitch(MTE_DBG_WARNING);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    mte_DBG_DisableSwitch(MTE_DBG_WARNING);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING", "Sample value is not numeric."), 1u);
}

TEST(ThresCheck, NonNumericIsBadType) {
    MTE_THRES_ENTRY_S stRow = ThresRow(3, 80, 20);
    auto pText = TestSample::Text("85");
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    EXPECT_EQ(mte_THRES_CheckByDelta(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    uint32_t auiOid[2] = {1, 3};
    TestSample stOid(SNMP_VTYPE_OID, auiOid, sizeof(auiOid));
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &stOid.st), MTE_CHECK_BADTYPE);
}

}  // namespace
