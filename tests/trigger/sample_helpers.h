// Samples for the check tests: a value of any platform type with its own
// bytes, and a walk that feeds a sequence of values through a check the way
// the evaluation does (previous sample of the same instance, then current).
#ifndef TRIGGER_SAMPLE_HELPERS_H
#define TRIGGER_SAMPLE_HELPERS_H

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "mte_types.h"
#include "plat_snmp.h"

struct TestSample {
    MTE_SAMPLE_S st{};
    SNMP_VALUE_S stValue{};
    std::vector<unsigned char> aucBytes;

    // No value at all (an instance whose get returned null).
    TestSample() { st.uiTestState = MTE_TSTATE_NEW; }

    TestSample(uint32_t uiType, const void* pData, size_t uiLen) : TestSample() {
        aucBytes.assign(static_cast<const unsigned char*>(pData),
                        static_cast<const unsigned char*>(pData) + uiLen);
        stValue.pData = aucBytes.empty() ? nullptr : aucBytes.data();
        stValue.uiLen = static_cast<uint32_t>(uiLen);
        stValue.uiType = uiType;
        st.pstValue = &stValue;
    }

    static std::unique_ptr<TestSample> Int(int32_t iValue) {
        return std::make_unique<TestSample>(SNMP_VTYPE_INTEGER32, &iValue, sizeof(iValue));
    }
    static std::unique_ptr<TestSample> Unsigned(uint32_t uiValue) {
        return std::make_unique<TestSample>(SNMP_VTYPE_GAUGE32, &uiValue, sizeof(uiValue));
    }
    static std::unique_ptr<TestSample> Counter(uint32_t uiValue) {
        return std::make_unique<TestSample>(SNMP_VTYPE_COUNTER32, &uiValue, sizeof(uiValue));
    }
    static std::unique_ptr<TestSample> Counter64(uint64_t ulValue) {
        return std::make_unique<TestSample>(SNMP_VTYPE_COUNTER64, &ulValue, sizeof(ulValue));
    }
    static std::unique_ptr<TestSample> Text(const char* pszText) {
        return std::make_unique<TestSample>(SNMP_VTYPE_OCTET_STRING, pszText, strlen(pszText));
    }
};

using SampleMaker = std::function<std::unique_ptr<TestSample>(int64_t)>;
using Check = std::function<int32_t(const MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur)>;

// Feeds the values one per cycle through the check and returns its results.
inline std::vector<int32_t> WalkValues(const std::vector<int64_t>& allValues,
                                       const SampleMaker& fnMake, const Check& fnCheck) {
    std::vector<int32_t> aiResults;
    std::unique_ptr<TestSample> pPrev;
    for (int64_t llValue : allValues) {
        std::unique_ptr<TestSample> pCur = fnMake(llValue);
        aiResults.push_back(fnCheck(pPrev ? &pPrev->st : nullptr, &pCur->st));
        pPrev = std::move(pCur);
    }
    return aiResults;
}

#endif  // TRIGGER_SAMPLE_HELPERS_H
