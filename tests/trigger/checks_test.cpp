// The existence, boolean and threshold checks walked through sample
// sequences: startup rules, hysteresis kept in the samples' state bits,
// unsigned and 64-bit values, non-numeric values, deltas, equal thresholds.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <tuple>
#include <vector>

#include "fake_log.h"
#include "mte_bool.h"
#include "mte_dbg.h"
#include "mte_exist.h"
#include "mte_thres.h"
#include "plat_snmp.h"

namespace {

// A sample with a value of any platform type in bytes of its own; without
// one it is an instance whose get returned null.
struct TestSample {
    MTE_SAMPLE_S st{};
    SNMP_VALUE_S stValue{};
    std::vector<unsigned char> aucBytes;

    TestSample() { st.uiTestState = MTE_TSTATE_NEW; }
    TestSample(uint32_t uiType, const void* pData, size_t uiLen) : TestSample() {
        aucBytes.assign(static_cast<const unsigned char*>(pData),
                        static_cast<const unsigned char*>(pData) + uiLen);
        stValue = {aucBytes.empty() ? nullptr : aucBytes.data(), static_cast<uint32_t>(uiLen),
                   uiType};
        st.pstValue = &stValue;
    }
};
using Sample = std::unique_ptr<TestSample>;

enum Kind { INT, U32, U64, TEXT };
Sample Make(Kind eKind, int64_t llValue, const char* pszText = "") {
    int32_t iValue = static_cast<int32_t>(llValue);
    uint32_t uiValue = static_cast<uint32_t>(llValue);
    switch (eKind) {
        case INT:
            return std::make_unique<TestSample>(SNMP_VTYPE_INTEGER32, &iValue, 4);
        case U32:
            return std::make_unique<TestSample>(SNMP_VTYPE_COUNTER32, &uiValue, 4);
        case U64:
            return std::make_unique<TestSample>(SNMP_VTYPE_COUNTER64, &llValue, 8);
        default:
            return std::make_unique<TestSample>(SNMP_VTYPE_OCTET_STRING, pszText, strlen(pszText));
    }
}
Sample Int(int32_t iValue) {
    return Make(INT, iValue);
}
Sample Text(const char* pszText) {
    return Make(TEXT, 0, pszText);
}

using Check = std::function<int32_t(const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur)>;

// Feeds the values one per cycle through the check the way the evaluation
// does (previous sample of the same instance, then current); its results.
std::vector<int32_t> WalkValues(const std::vector<int64_t>& allValues, Kind eKind,
                                const Check& fnCheck) {
    std::vector<int32_t> aiResults;
    Sample pPrev;
    for (int64_t llValue : allValues) {
        Sample pCur = Make(eKind, llValue);
        aiResults.push_back(fnCheck(pPrev ? &pPrev->st : nullptr, &pCur->st));
        pPrev = std::move(pCur);
    }
    return aiResults;
}

constexpr int32_t N = MTE_CHECK_NONE;

TEST(ExistCheck, PresentAbsentChangedAndStartup) {
    auto pOne = Int(1);
    TestSample stNoValue;
    auto pA = Text("abcd"), pB = Text("abce"), pA2 = Text("abcd"), pLonger = Text("abcde");
    uint32_t uiBytes;
    memcpy(&uiBytes, "abcd", 4);
    TestSample stSameBytesOtherType(SNMP_VTYPE_OPAQUE, &uiBytes, 4);
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
        // Changed compares the length, the type and the bytes.
        {"other bytes", 0xE0, 0xC0, 0, &pA->st, &pB->st, MTE_CHECK_CHANGED},
        {"longer", 0xE0, 0xC0, 0, &pA->st, &pLonger->st, MTE_CHECK_CHANGED},
        {"same bytes, other type", 0xE0, 0xC0, 0, &pA->st, &stSameBytesOtherType.st,
         MTE_CHECK_CHANGED},
        {"same value", 0xE0, 0xC0, 0, &pA->st, &pA2->st, N},
        {"other bytes without changed test", 0xC0, 0xC0, 0, &pA->st, &pB->st, N},
    };
    for (const Case& c : astCases) {
        MTE_EXIST_ENTRY_S stRow{};
        stRow.ucTest = c.ucTest;
        stRow.ucStartup = c.ucStartup;
        stRow.usFirstCycle = c.usFirst;
        EXPECT_EQ(mte_EXIST_Check(&stRow, c.pstPrev, c.pstCur), c.iExpected) << c.pszWhat;
    }
}

TEST(BoolCheck, FiresWhenConditionBecomesTrue) {
    constexpr uint32_t T = MTE_TRUE, F = MTE_FALSE, A = MTE_SAMPLE_ABSOLUTE, D = MTE_SAMPLE_DELTA;
    constexpr uint32_t GT = MTE_BOOL_GREATER, GE = MTE_BOOL_GREATER_OR_EQUAL;
    constexpr uint32_t LT = MTE_BOOL_LESS, LE = MTE_BOOL_LESS_OR_EQUAL;
    constexpr uint32_t EQ = MTE_BOOL_EQUAL, NE = MTE_BOOL_UNEQUAL;
    constexpr int32_t Y = 22, MAX = 2147483647;  // Y: fired
    struct Case {
        const char* pszWhat;
        uint32_t uiComparison;
        int32_t iValue;
        uint32_t uiStartup, uiSampleType;
        bool bCounter;  // unsigned values instead of Integer32
        std::vector<int64_t> allValues;
        std::vector<int32_t> aiExpected;
    } astCases[] = {
        {"greater 10, startup true", GT, 10, T, A, false, {5, 12, 15, 8, 20}, {N, Y, N, N, Y}},
        {"startup true fires at once", GT, 10, T, A, false, {12, 13}, {Y, N}},
        {"startup false arms only", GT, 10, F, A, false, {12, 13, 14}, {N, Y, N}},
        {"startup false, false first", GT, 10, F, A, false, {5, 12}, {N, Y}},
        {"unequal", NE, 0, T, A, false, {0, 1, 2, 0, -1}, {N, Y, N, N, Y}},
        {"equal", EQ, 3, T, A, false, {3, 3, 4, 3}, {Y, N, N, Y}},
        {"less", LT, 0, T, A, false, {-1, 0, -5}, {Y, N, Y}},
        {"lessOrEqual", LE, 0, T, A, false, {1, 0, 1, -1}, {N, Y, N, Y}},
        {"greaterOrEqual", GE, 0, T, A, false, {-1, 0, -1, 1}, {N, Y, N, Y}},
        {"comparison 0 never fires", 0, 0, T, A, false, {0, 1, -1}, {N, N, N}},
        {"comparison 7 never fires", 7, 0, T, A, false, {0, 1, -1}, {N, N, N}},
        {"unsigned 3000000000 is greater", GT, MAX, T, A, true, {3000000000LL}, {Y}},
        {"unsigned above the range never less", LT, 0, T, A, true, {3000000000LL}, {N}},
        {"delta of a counter: first arms, second fires", GE, 0, T, D, true, {100, 90}, {N, Y}},
        {"signed delta below the range is less", LT, -5, T, D, false, {MAX, -MAX - 1}, {N, Y}},
        {"signed delta above the range is greater", GT, MAX, T, D, false, {-1, MAX}, {N, Y}},
        {"delta values", GT, 4, T, D, false, {0, 5, 10, 12, 20}, {N, Y, N, N, Y}},
    };
    for (const Case& c : astCases) {
        MTE_BOOL_ENTRY_S stRow{};
        std::tie(stRow.iValue, stRow.uiComparison, stRow.uiStartup) =
            std::tie(c.iValue, c.uiComparison, c.uiStartup);
        Check fnCheck = [&](const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
            return mte_BOOL_Check(&stRow, c.uiSampleType, pstPrev, pstCur);
        };
        EXPECT_EQ(WalkValues(c.allValues, c.bCounter ? U32 : INT, fnCheck), c.aiExpected)
            << c.pszWhat;
    }
}

TEST(BoolCheck, NonNumericAndDamagedValuesAreBadType) {
    MTE_BOOL_ENTRY_S stRow{};
    stRow.uiComparison = MTE_BOOL_GREATER;
    stRow.uiStartup = MTE_TRUE;
    auto pText = Text("12");
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    uint16_t usShort = 7;
    TestSample stShort(SNMP_VTYPE_INTEGER32, &usShort, sizeof(usShort));
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &stShort.st), MTE_CHECK_BADTYPE);
    uint32_t uiHalf = 1;
    TestSample stHalf64(SNMP_VTYPE_COUNTER64, &uiHalf, sizeof(uiHalf));
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_ABSOLUTE, nullptr, &stHalf64.st),
              MTE_CHECK_BADTYPE);
    // A delta whose previous value was a string has nothing to compare with.
    auto pNum = Int(5);
    EXPECT_EQ(mte_BOOL_Check(&stRow, MTE_SAMPLE_DELTA, &Text("")->st, &pNum->st), N);
}

// A threshold row: startup, rising and falling, delta rising and falling.
MTE_THRES_ENTRY_S TR(uint32_t uiStartup, int32_t iR, int32_t iF, int32_t iDR = 0, int32_t iDF = 0) {
    MTE_THRES_ENTRY_S st{};
    std::tie(st.uiStartup, st.iRising, st.iFalling, st.iDeltaRising, st.iDeltaFalling) =
        std::tie(uiStartup, iR, iF, iDR, iDF);
    return st;
}

TEST(ThresCheck, HysteresisAndStartup) {
    constexpr int32_t R = MTE_CHECK_RISING, F = MTE_CHECK_FALLING;
    constexpr int32_t DR = MTE_CHECK_DELTA_RISING, DF = MTE_CHECK_DELTA_FALLING;
    constexpr int32_t MAX = 2147483647;
    constexpr bool A = false, D = true;  // absolute or delta check
    struct Case {
        const char* pszWhat;
        MTE_THRES_ENTRY_S stRow;
        bool bDelta;
        Kind eKind;
        std::vector<int64_t> allValues;
        std::vector<int32_t> aiExpected;
    } astCases[] = {
        {"80/20", TR(3, 80, 20), A, INT, {50, 85, 90, 60, 15, 10, 85}, {N, R, N, N, F, N, R}},
        {"first value above rising", TR(3, 80, 20), A, INT, {85, 90}, {R, N}},
        {"startup falling, first above rising", TR(2, 80, 20), A, INT, {85, 85}, {N, R}},
        {"startup rising, first below falling", TR(1, 80, 20), A, INT, {10, 10}, {N, F}},
        {"startup rising, first above rising", TR(1, 80, 20), A, INT, {85, 10}, {R, F}},
        {"startup 0: no startup alarm", TR(0, 80, 20), A, INT, {85, 85, 10}, {N, R, F}},
        {"equal: falling wins, then rising", TR(3, 50, 50), A, INT, {50, 50, 60, 50}, {F, R, N, F}},
        {"unsigned > any rising", TR(3, MAX, MAX), A, U32, {4000000000, 4000000000, 5}, {R, N, F}},
        {"64-bit values", TR(3, 1000, 10), A, U64, {5, 1ll << 40, 500, 9}, {F, R, N, F}},
        {"delta 10/-10", TR(3, 0, 0, 10, -10), D, INT, {0, 15, 40, 35, 20}, {N, DR, N, N, DF}},
        // Unsigned distances: a delta falling of 0 is crossed only by a repeat.
        {"u32 distances", TR(3, 0, 0, 100, 0), D, U32, {50, 40, 40, 200, 200}, {N, N, DF, DR, DF}},
        {"signed delta below the range", TR(3, 0, 0, MAX, -MAX), D, INT, {MAX, -MAX - 1}, {N, DF}},
        {"signed delta above the range", TR(3, 0, 0, MAX, -100), D, INT, {-2, MAX}, {N, DR}},
        {"unsigned wrap: above any rising", TR(3, 0, 0, MAX, 0), D, U32, {4294967290, 5}, {N, DR}},
    };
    for (Case& c : astCases) {
        Check fnCheck = [&](const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur) {
            return (c.bDelta ? mte_THRES_CheckByDelta : mte_THRES_CheckByAbsolute)(&c.stRow,
                                                                                   pstPrev, pstCur);
        };
        EXPECT_EQ(WalkValues(c.allValues, c.eKind, fnCheck), c.aiExpected) << c.pszWhat;
    }
}

TEST(ThresCheck, BothPairsShareOneStateWord) {
    // The evaluation runs the absolute then the delta check on the same
    // samples; each must touch only its own bits.
    MTE_THRES_ENTRY_S stRow = TR(3, 80, 20, 10, -10);
    auto p1 = Int(50);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &p1->st), N);
    EXPECT_EQ(mte_THRES_CheckByDelta(&stRow, nullptr, &p1->st), N);
    EXPECT_EQ(p1->st.uiTestState, MTE_TSTATE_NEW);
    auto p2 = Int(85);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, &p1->st, &p2->st), MTE_CHECK_RISING);
    EXPECT_EQ(mte_THRES_CheckByDelta(&stRow, &p1->st, &p2->st), MTE_CHECK_DELTA_RISING);
    EXPECT_EQ(p2->st.uiTestState & 0x0f, MTE_TSTATE_FALLING | MTE_TSTATE_DELTA_FALLING);
    EXPECT_EQ(p2->st.uiTestState & MTE_TSTATE_BOOLEAN, MTE_TSTATE_BOOLEAN);
}

TEST(ThresCheck, NonNumericIsBadTypeAndWarnsOnlyWhileItsBitIsOn) {
    MTE_THRES_ENTRY_S stRow = TR(3, 80, 20);
    auto pText = Text("85");
    uint32_t auiOid[2] = {1, 3};
    TestSample stOid(SNMP_VTYPE_OID, auiOid, sizeof(auiOid));
    FAKE_LOG_Clear();
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    EXPECT_EQ(mte_THRES_CheckByDelta(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &stOid.st), MTE_CHECK_BADTYPE);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING"), 0u);
    mte_DBG_EnableSwitch(MTE_DBG_WARNING);
    EXPECT_EQ(mte_THRES_CheckByAbsolute(&stRow, nullptr, &pText->st), MTE_CHECK_BADTYPE);
    mte_DBG_DisableSwitch(MTE_DBG_WARNING);
    EXPECT_EQ(FAKE_LOG_Count("EVENTMIB_WARNING", "Sample value is not numeric."), 1u);
}

}  // namespace
