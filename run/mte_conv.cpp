// Value and reason conversions: the platform value type of a sample to its
// numeric kind, absolute and delta values as signed 32-bit numbers, the SNMP
// client's status codes to RFC 2981 failure reasons, and the reasons' names.
// Pure and stateless: called by the tests, the evaluation and the set action
// on either thread without any lock.
#include "mte_conv.h"

#include <cstring>

namespace {

constexpr uint32_t kKindByType[] = {
    MTE_VKIND_SIGNED32,    // 0 INTEGER
    MTE_VKIND_SIGNED32,    // 1 Integer32
    MTE_VKIND_SIGNED32,    // 2 enumerated INTEGER
    MTE_VKIND_UNSIGNED32,  // 3 Counter32
    MTE_VKIND_UNSIGNED32,  // 4 Gauge32
    MTE_VKIND_UNSIGNED32,  // 5 TimeTicks
    MTE_VKIND_UNSIGNED32,  // 6 UInteger32
    MTE_VKIND_UNSIGNED32,  // 7 Opaque unsigned 32
    MTE_VKIND_UNSIGNED64,  // 8 Counter64
    MTE_VKIND_UNSIGNED32,  // 9 reserved unsigned 32
};

struct ErrMap {
    uint32_t uiCode;
    int32_t iReason;
};

// Searched in this order; the first row with the code wins.
constexpr ErrMap kErrMap[] = {
    {0, 0},           {0x61010055, 1},  {0x61010056, 2},  {0x61010042, 3},  {0x61010043, 4},
    {0x61010041, 5},  {0x61010044, 6},  {0x61010045, 7},  {0x61010046, 8},  {0x61010047, 9},
    {0x61010048, 10}, {0x61010049, 11}, {0x6101004a, 12}, {0x6101004b, 13}, {0x6101004c, 14},
    {0x6101004d, 15}, {0x6101004e, 16}, {0x6101004f, 17}, {0x61010050, 18}, {0x61010057, 2},
    {0x61010058, 0},  {0x61010059, 0},  {0x61010051, 0},  {0x61010052, 5},  {0x61010053, 5},
    {0x61010054, 0},  {0x6101005a, 13},
};
static_assert(sizeof(kErrMap) / sizeof(kErrMap[0]) == 27);

// Reasons 0 down to -6, indexed by the negated reason.
constexpr const char* kOwnReasonNames[] = {
    "noError",    "localResourceLack", "badDestination", "destinationUnreachable",
    "noResponse", "badType",           "sampleOverrun",
};
// Reasons 0 to 18 (SNMP error-status values).
constexpr const char* kSnmpReasonNames[] = {
    "noError",
    "tooBig",
    "noSuchName",
    "badValue",
    "readOnly",
    "genErr",
    "noAccess",
    "wrongType",
    "wrongLength",
    "wrongEncoding",
    "wrongValue",
    "noCreation",
    "inconsistentValue",
    "resourceUnavailable",
    "commitFailed",
    "undoFailed",
    "authorizationError",
    "notWritable",
    "inconsistentName",
};
constexpr int32_t kOwnReasonCount = sizeof(kOwnReasonNames) / sizeof(kOwnReasonNames[0]);
constexpr int32_t kSnmpReasonCount = sizeof(kSnmpReasonNames) / sizeof(kSnmpReasonNames[0]);
static_assert(kOwnReasonCount == 7 && kSnmpReasonCount == 19);

constexpr int64_t kInt32Max = 2147483647;
constexpr int64_t kInt32Min = -2147483648LL;

// Sample values live in heap blocks of any alignment.
template <typename T>
T ReadValue(const void* pValue) {
    T tValue;
    memcpy(&tValue, pValue, sizeof(T));
    return tValue;
}

// Writes a non-negative distance or reports that it does not fit.
uint32_t PutDistance(uint64_t ulDistance, int32_t* piOut) {
    if (ulDistance > static_cast<uint64_t>(kInt32Max)) {
        return 1;
    }
    *piOut = static_cast<int32_t>(ulDistance);
    return 0;
}

}  // namespace

uint32_t mte_RUN_ConvertVType(uint32_t uiTypeCode) {
    if (uiTypeCode >= sizeof(kKindByType) / sizeof(kKindByType[0])) {
        return MTE_VKIND_NONE;
    }
    return kKindByType[uiTypeCode];
}

uint32_t mte_RUN_AbsoluteVal(uint32_t uiKind, const void* pValue, int32_t* piOut) {
    switch (uiKind) {
        case MTE_VKIND_UNSIGNED64:
            return PutDistance(ReadValue<uint64_t>(pValue), piOut);
        case MTE_VKIND_UNSIGNED32:
            return PutDistance(ReadValue<uint32_t>(pValue), piOut);
        default:
            *piOut = ReadValue<int32_t>(pValue);
            return 0;
    }
}

uint32_t mte_RUN_DeltaVal(uint32_t uiKind, const void* pNew, const void* pOld, int32_t* piOut) {
    switch (uiKind) {
        case MTE_VKIND_SIGNED32: {
            int64_t llDelta = static_cast<int64_t>(ReadValue<int32_t>(pNew)) -
                              static_cast<int64_t>(ReadValue<int32_t>(pOld));
            if (llDelta < kInt32Min) {
                return 2;
            }
            if (llDelta > kInt32Max) {
                return 1;
            }
            *piOut = static_cast<int32_t>(llDelta);
            return 0;
        }
        case MTE_VKIND_UNSIGNED32: {
            uint32_t uiNew = ReadValue<uint32_t>(pNew);
            uint32_t uiOld = ReadValue<uint32_t>(pOld);
            return PutDistance(uiNew >= uiOld ? uiNew - uiOld : uiOld - uiNew, piOut);
        }
        case MTE_VKIND_UNSIGNED64: {
            uint64_t ulNew = ReadValue<uint64_t>(pNew);
            uint64_t ulOld = ReadValue<uint64_t>(pOld);
            return PutDistance(ulNew >= ulOld ? ulNew - ulOld : ulOld - ulNew, piOut);
        }
        default:
            return 0;
    }
}

int32_t mte_RUN_convertErrCodeMor2Mte(uint32_t uiCode) {
    for (const ErrMap& stRow : kErrMap) {
        if (stRow.uiCode == uiCode) {
            return stRow.iReason;
        }
    }
    return MTE_REASON_GEN_ERR;
}

const char* mte_Run_Reason2Str(int32_t iReason) {
    if (iReason <= 0 && iReason > -kOwnReasonCount) {
        return kOwnReasonNames[-iReason];
    }
    if (iReason > 0 && iReason < kSnmpReasonCount) {
        return kSnmpReasonNames[iReason];
    }
    return "unknown";
}
