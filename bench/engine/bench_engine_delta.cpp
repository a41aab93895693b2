// Cost of the discontinuity check: the sampling cycle of one delta trigger
// against a private snmpd through the real SNMP client, without a delta row
// (the value alone), with the row at its defaults (sysUpTime.0 in the same
// GET: one more varbind) and with a leaf object besides sysUpTime.0 (two
// more); and a wildcarded walk over ifInOctets without a row, with the leaf
// row (one more GET per cycle) and with a per-instance discontinuity object
// (ifLastChange: one more GET per instance). Variants run interleaved,
// round after round, so that a busy machine slows them alike; the output is
// the median cycle time per variant with min-max and the ratio to its
// baseline.
#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "mte_dbg.h"
#include "mte_delta.h"
#include "mte_event.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "mte_trigger.h"
#include "stack.h"

// Channel-private writer (channel/mte_tarn_priv.h): no notifications here.
void mte_tarn_SetTrapFlag(uint16_t usFlag);

namespace {

constexpr int kRounds = 41;
constexpr int kCyclesPerRound = 50;

MTE_OID_S Oid(std::initializer_list<uint32_t> auiSubIds) {
    MTE_OID_S stOid{};
    for (uint32_t ui : auiSubIds) {
        stOid.auiOid[stOid.uiLen++] = ui;
    }
    return stOid;
}

struct Variant {
    const char* pszName;
    const char* pszBaseline;  // the variant it is compared with
    bool bWildcard;
    int iDelta;  // 0 no row, 1 defaults, 2 leaf besides sysUpTime.0, 3 per instance
    MTE_TRIGGER_ENTRY_S* pstTrigger = nullptr;
    std::vector<double> adMicros;
};

MTE_TRIGGER_ENTRY_S* NewTrigger(const Variant& stVariant) {
    auto* pstTrigger = static_cast<MTE_TRIGGER_ENTRY_S*>(calloc(1, sizeof(MTE_TRIGGER_ENTRY_S)));
    pstTrigger->llTimerId = -1;
    pstTrigger->uiRunState = MTE_RUN_IDLE;
    pstTrigger->usInstanceReleased = 1;
    pthread_mutex_init(&pstTrigger->stStateLock, nullptr);
    MTE_TRIGGER_ROW_S& stRow = pstTrigger->stRow;
    stRow.uiSampleType = MTE_SAMPLE_DELTA;
    stRow.uiEntryStatus = MTE_ROW_ACTIVE;
    stRow.uiEnabled = MTE_TRUE;
    stRow.uiContextNameWildcard = MTE_FALSE;
    strcpy(stRow.szOwner, "bench");
    strncpy(stRow.szName, stVariant.pszName, MTE_NAME_SIZE - 1);
    // ifInOctets: of interface 1, or of every interface.
    stRow.stValueID = stVariant.bWildcard ? Oid({1, 3, 6, 1, 2, 1, 2, 2, 1, 10})
                                          : Oid({1, 3, 6, 1, 2, 1, 2, 2, 1, 10, 1});
    stRow.uiValueIDWildcard = stVariant.bWildcard ? MTE_TRUE : MTE_FALSE;
    if (stVariant.iDelta == 0) {
        return pstTrigger;
    }
    auto* pstDelta = static_cast<MTE_DELTA_ENTRY_S*>(calloc(1, sizeof(MTE_DELTA_ENTRY_S)));
    pstDelta->stDiscontinuityID = Oid({1, 3, 6, 1, 2, 1, 1, 3, 0});
    pstDelta->uiDiscontinuityIDWildcard = MTE_FALSE;
    pstDelta->uiDiscontinuityIDType = MTE_DELTA_TIME_TICKS;
    if (stVariant.iDelta == 2) {
        pstDelta->stDiscontinuityID = Oid({1, 3, 6, 1, 2, 1, 1, 8, 0});  // sysORLastChange
        pstDelta->uiDiscontinuityIDType = MTE_DELTA_TIME_STAMP;
    } else if (stVariant.iDelta == 3) {
        pstDelta->stDiscontinuityID = Oid({1, 3, 6, 1, 2, 1, 2, 2, 1, 9});  // ifLastChange
        pstDelta->uiDiscontinuityIDWildcard = MTE_TRUE;
        pstDelta->uiDiscontinuityIDType = MTE_DELTA_TIME_STAMP;
    }
    pstTrigger->pstDelta = pstDelta;
    return pstTrigger;
}

double NowMicros() {
    timeval stNow;
    gettimeofday(&stNow, nullptr);
    return stNow.tv_sec * 1e6 + stNow.tv_usec;
}

bool OneCycle(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    uint32_t uiQueued = mte_RUN_Sample4AtOnce(pstTrigger);
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    if (uiQueued != 0) {
        return false;
    }
    for (int i = 0; i < 1000; ++i) {
        (void)mte_run_PumpQueue(MTE_QUEUE_DEPTH);
        mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
        bool bIdle = pstTrigger->uiRunState == MTE_RUN_IDLE;
        mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
        if (bIdle) {
            return true;
        }
    }
    return false;
}

double Median(std::vector<double> adValues) {
    std::sort(adValues.begin(), adValues.end());
    return adValues[adValues.size() / 2];
}

}  // namespace

int main() {
    mte_test::SnmpdHarness stSnmpd;
    std::string strError;
    if (!stSnmpd.Start(&strError) || !stSnmpd.UseClientConfig(mte_test::ClientSecurity::V2C)) {
        fprintf(stderr, "private snmpd not available: %s\n", strError.c_str());
        return 1;
    }
    mte_DBG_Init();
    mte_SCALAR_Init();
    mte_EVENT_Init();
    mte_tarn_SetTrapFlag(0);
    mte_TIMER_SetPortFlag(1);
    if (mte_run_InitWithoutThread() != 0) {
        fprintf(stderr, "worker parts could not be set up\n");
        return 1;
    }
    std::vector<Variant> astVariants = {
        {"single, no delta row", "single, no delta row", false, 0, nullptr, {}},
        {"single, row at defaults", "single, no delta row", false, 1, nullptr, {}},
        {"single, leaf besides sysUpTime", "single, no delta row", false, 2, nullptr, {}},
        {"walk, no delta row", "walk, no delta row", true, 0, nullptr, {}},
        {"walk, row at defaults", "walk, no delta row", true, 1, nullptr, {}},
        {"walk, per-instance object", "walk, no delta row", true, 3, nullptr, {}},
    };
    for (Variant& stVariant : astVariants) {
        stVariant.pstTrigger = NewTrigger(stVariant);
        if (!OneCycle(stVariant.pstTrigger)) {  // the first cycle only makes samples
            fprintf(stderr, "%s: cycle did not end\n", stVariant.pszName);
            return 1;
        }
    }
    for (int iRound = 0; iRound < kRounds; ++iRound) {
        for (Variant& stVariant : astVariants) {
            double dStart = NowMicros();
            for (int i = 0; i < kCyclesPerRound; ++i) {
                (void)OneCycle(stVariant.pstTrigger);
            }
            stVariant.adMicros.push_back((NowMicros() - dStart) / kCyclesPerRound);
        }
    }
    uint32_t uiFailures = 0;
    {
        MTE_SCALAR_S stScalars{};
        mte_SCALAR_Get(&stScalars);
        uiFailures = stScalars.uiTriggerFailures;
    }
    printf("%-32s %10s %21s %8s\n", "cycle (us per cycle)", "median", "min-max", "ratio");
    for (const Variant& stVariant : astVariants) {
        double dBase = 0;
        for (const Variant& stOther : astVariants) {
            if (strcmp(stOther.pszName, stVariant.pszBaseline) == 0) {
                dBase = Median(stOther.adMicros);
            }
        }
        double dMedian = Median(stVariant.adMicros);
        auto [itMin, itMax] =
            std::minmax_element(stVariant.adMicros.begin(), stVariant.adMicros.end());
        printf("%-32s %10.1f %10.1f-%-10.1f %8.2f\n", stVariant.pszName, dMedian, *itMin, *itMax,
               dMedian / dBase);
    }
    printf("rounds %d x %d cycles per variant, interleaved; trigger failures %u\n", kRounds,
           kCyclesPerRound, uiFailures);
    FILE* pstLoad = fopen("/proc/loadavg", "r");
    char szLoad[128] = {};
    if (pstLoad != nullptr && fgets(szLoad, sizeof(szLoad), pstLoad) != nullptr) {
        printf("loadavg %s", szLoad);
    }
    if (pstLoad != nullptr) {
        fclose(pstLoad);
    }
    mte_RUN_Fini();
    mte_TIMER_SetPortFlag(0);
    for (Variant& stVariant : astVariants) {
        mte_TRIGGER_StateLock(&stVariant.pstTrigger->stStateLock);
        mte_RUN_ClearSampleRes(stVariant.pstTrigger);
        mte_TRIGGER_StateUnLock(&stVariant.pstTrigger->stStateLock);
        mte_TRIGGER_FreeNode(stVariant.pstTrigger);
    }
    mte_EVENT_Fini();
    mte_DBG_Fini();
    return uiFailures == 0 ? 0 : 1;
}
