// Resource scalars and statistics: the two sampling settings, the count of
// sampled instances with its high-water mark, and the failure counters. The
// worker reserves and releases instances and counts failures with atomic
// read-modify-write operations and no lock (it is on the path of every sampled
// instance); the main thread answers gets, stores the settings in the
// configuration store and saves the counters in the run-time database, at most
// every ten seconds, on a get and at shutdown. The only lock taken is the
// memory flag's read lock, inside mte_MEMALERT_GetFlag.
#include "mte_scalar.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_memalert.h"

namespace {

constexpr uint32_t MTE_SAMPLE_MIN_DEFAULT = 1;  // seconds
constexpr uint32_t MTE_SETTING_SIZE = 4;

std::atomic<uint32_t> g_uiMteSampleMinimum{MTE_SAMPLE_MIN_DEFAULT};
std::atomic<uint32_t> g_uiMteSampleInstanceMaximum{0};  // 0 = no limit
std::atomic<uint32_t> g_uiMteSampleInstances{0};        // never stored
std::atomic<uint32_t> g_uiMteSampleInstancesHigh{0};
std::atomic<uint32_t> g_uiMteSampleInstanceLacks{0};
std::atomic<uint32_t> g_uiMteTriggerFailures{0};
std::atomic<uint32_t> g_uiMteEventFailures{0};
std::atomic<uint32_t> g_uiMteSamplesMissed{0};      // never stored
std::atomic<uint32_t> g_uiMteNotificationDrops{0};  // never stored
// 1 when the four stored counters changed since the last save. A plain flag
// store: a change racing with a save is saved by the next one.
std::atomic<uint16_t> g_usMteStatChanged{0};

// The "StatisticData" item: instances high, lacks, trigger and event failures.
struct MTE_STATISTIC_DATA_S {
    uint32_t uiSampleInstancesHigh;
    uint32_t uiSampleInstanceLacks;
    uint32_t uiTriggerFailures;
    uint32_t uiEventFailures;
};
static_assert(sizeof(MTE_STATISTIC_DATA_S) == 16);

void mte_scalar_MarkChanged(void) {
    g_usMteStatChanged.store(1, std::memory_order_relaxed);
}

void mte_scalar_SaveIfChanged(void) {
    if (g_usMteStatChanged.load(std::memory_order_relaxed) != 1) {
        return;
    }
    MTE_STATISTIC_DATA_S stData = {
        g_uiMteSampleInstancesHigh.load(std::memory_order_relaxed),
        g_uiMteSampleInstanceLacks.load(std::memory_order_relaxed),
        g_uiMteTriggerFailures.load(std::memory_order_relaxed),
        g_uiMteEventFailures.load(std::memory_order_relaxed),
    };
    // Cleared before the write: a failed write is retried only after the next
    // change, and a change made during the write is not lost.
    g_usMteStatChanged.store(0, std::memory_order_relaxed);
    mte_DBM_SetBinary(MTE_DBM_RUN, "StatisticData", 14, &stData, sizeof(stData),
                      MTE_ITEM_ID_STATISTIC_DATA);
}

// Takes one instance from the count under the maximum; false when refused.
bool mte_scalar_TryReserve(uint32_t uiMax) {
    if (uiMax == 0) {
        g_uiMteSampleInstances.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    uint32_t uiCur = g_uiMteSampleInstances.load(std::memory_order_relaxed);
    do {
        // ">=" rather than "==": a maximum lowered below the count refuses too.
        if (uiCur >= uiMax) {
            return false;
        }
    } while (
        !g_uiMteSampleInstances.compare_exchange_weak(uiCur, uiCur + 1, std::memory_order_relaxed));
    return true;
}

// The mark follows the largest count reached, without a lock. Raising it to
// the count seen (rather than by one step per reservation) keeps it exact
// even when two reservations race: a step lost to a lost compare-and-swap
// would otherwise leave it behind for good.
void mte_scalar_RaiseHighWater(void) {
    uint32_t uiCur = g_uiMteSampleInstances.load(std::memory_order_relaxed);
    uint32_t uiHigh = g_uiMteSampleInstancesHigh.load(std::memory_order_relaxed);
    while (uiCur > uiHigh) {
        if (g_uiMteSampleInstancesHigh.compare_exchange_weak(uiHigh, uiCur,
                                                             std::memory_order_relaxed)) {
            mte_scalar_MarkChanged();
            return;
        }
    }
}

uint32_t mte_scalar_Setting(uint32_t uiLen, const void* pData) {
    uint32_t uiValue = 0;
    memcpy(&uiValue, pData, sizeof(uiValue));
    return uiValue;
}

}  // namespace

uint32_t mte_SCALAR_Init(void) {
    g_uiMteSampleMinimum = MTE_SAMPLE_MIN_DEFAULT;
    g_uiMteSampleInstanceMaximum = 0;
    g_uiMteSampleInstances = 0;
    g_uiMteSampleInstancesHigh = 0;
    g_uiMteSampleInstanceLacks = 0;
    g_uiMteTriggerFailures = 0;
    g_uiMteEventFailures = 0;
    g_uiMteSamplesMissed = 0;
    g_uiMteNotificationDrops = 0;
    g_usMteStatChanged = 0;
    return MTE_OK;
}

void mte_SCALAR_Get(MTE_SCALAR_S* pstOut) {
    pstOut->uiSampleMinimum = g_uiMteSampleMinimum.load(std::memory_order_relaxed);
    pstOut->uiSampleInstanceMaximum = g_uiMteSampleInstanceMaximum.load(std::memory_order_relaxed);
    pstOut->uiSampleInstances = g_uiMteSampleInstances.load(std::memory_order_relaxed);
    pstOut->uiSampleInstancesHigh = g_uiMteSampleInstancesHigh.load(std::memory_order_relaxed);
    pstOut->uiSampleInstanceLacks = g_uiMteSampleInstanceLacks.load(std::memory_order_relaxed);
    pstOut->uiTriggerFailures = g_uiMteTriggerFailures.load(std::memory_order_relaxed);
    pstOut->uiEventFailures = g_uiMteEventFailures.load(std::memory_order_relaxed);
    mte_scalar_SaveIfChanged();
}

uint32_t mte_SCALAR_SetSampleMin(uint32_t uiValue) {
    g_uiMteSampleMinimum.store(uiValue, std::memory_order_relaxed);
    return mte_DBM_SetBinary(MTE_DBM_CFG, "SampMini", 9, &uiValue, MTE_SETTING_SIZE,
                             MTE_ITEM_ID_SAMP_MINI);
}

uint32_t mte_SCALAR_SetInstancesMax(uint32_t uiValue) {
    g_uiMteSampleInstanceMaximum.store(uiValue, std::memory_order_relaxed);
    return mte_DBM_SetBinary(MTE_DBM_CFG, "SampInstMax", 12, &uiValue, MTE_SETTING_SIZE,
                             MTE_ITEM_ID_SAMP_INST_MAX);
}

uint32_t mte_SCALAR_GetSampMin(void) {
    return g_uiMteSampleMinimum.load(std::memory_order_relaxed);
}

uint32_t mte_SCALAR_CurInstanceInc(void) {
    uint32_t uiMax = g_uiMteSampleInstanceMaximum.load(std::memory_order_relaxed);
    if (mte_MEMALERT_GetFlag() == 1 || !mte_scalar_TryReserve(uiMax)) {
        if (mte_DBG_IsEnable(MTE_DBG_ERR)) {
            mte_DBG_Print(MTE_DBG_MNEMONIC_ERR, "%s", mte_DBG_Text(MTE_TEXT_BUCKET_FULL));
        }
        return MTE_ERR_GENERAL;
    }
    mte_scalar_RaiseHighWater();
    return MTE_OK;
}

void mte_SCALAR_CurInstanceDec(void) {
    g_uiMteSampleInstances.fetch_sub(1, std::memory_order_relaxed);
}

void mte_SCALAR_CurInstanceSub(uint32_t uiCount) {
    g_uiMteSampleInstances.fetch_sub(uiCount, std::memory_order_relaxed);
}

void mte_SCALAR_InstanceLacksInc(void) {
    mte_scalar_MarkChanged();
    g_uiMteSampleInstanceLacks.fetch_add(1, std::memory_order_relaxed);
}

void mte_SCALAR_TriggerFailuresInc(void) {
    mte_scalar_MarkChanged();
    g_uiMteTriggerFailures.fetch_add(1, std::memory_order_relaxed);
}

void mte_SCALAR_NotificationDropsInc(void) {
    g_uiMteNotificationDrops.fetch_add(1, std::memory_order_relaxed);
}

void mte_SCALAR_EventFailuresInc(void) {
    mte_scalar_MarkChanged();
    g_uiMteEventFailures.fetch_add(1, std::memory_order_relaxed);
}

void mte_SCALAR_SamplesMissedAdd(uint32_t uiCount) {
    g_uiMteSamplesMissed.fetch_add(uiCount, std::memory_order_relaxed);
}

uint32_t mte_SCALAR_GetSamplesMissed(void) {
    return g_uiMteSamplesMissed.load(std::memory_order_relaxed);
}

uint32_t mte_SCALAR_GetNotificationDrops(void) {
    return g_uiMteNotificationDrops.load(std::memory_order_relaxed);
}

uint32_t mte_SCALAR_SampMinRecover(uint32_t uiLen, const void* pData) {
    g_uiMteSampleMinimum.store(mte_scalar_Setting(uiLen, pData), std::memory_order_relaxed);
    return MTE_OK;
}

uint32_t mte_SCALAR_SampInstanceMaxRecover(uint32_t uiLen, const void* pData) {
    g_uiMteSampleInstanceMaximum.store(mte_scalar_Setting(uiLen, pData), std::memory_order_relaxed);
    return MTE_OK;
}

uint32_t mte_SCALAR_StatisticDataRecover(uint32_t uiLen, const void* pData) {
    MTE_STATISTIC_DATA_S stData;
    memcpy(&stData, pData, sizeof(stData));
    g_uiMteSampleInstancesHigh.store(stData.uiSampleInstancesHigh, std::memory_order_relaxed);
    g_uiMteSampleInstanceLacks.store(stData.uiSampleInstanceLacks, std::memory_order_relaxed);
    g_uiMteTriggerFailures.store(stData.uiTriggerFailures, std::memory_order_relaxed);
    g_uiMteEventFailures.store(stData.uiEventFailures, std::memory_order_relaxed);
    return MTE_OK;
}

void mte_SCALAR_SaveData(void) {
    mte_scalar_SaveIfChanged();
}

void mte_SCALAR_freshStati2DbmCallBack(uint32_t uiEvents, int iFd) {
    if ((uiEvents & 0x1) == 0) {
        return;
    }
    uint64_t ulExpirations = 0;
    ssize_t lRead;
    do {
        lRead = read(iFd, &ulExpirations, sizeof(ulExpirations));
    } while (lRead < 0 && errno == EINTR);
    if (lRead <= 0) {
        return;
    }
    mte_scalar_SaveIfChanged();
}
