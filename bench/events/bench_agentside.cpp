// The engine against the real agent, side by side with net-snmp's own tools,
// in one run over one private stack on loopback: snmpd (its own Event MIB
// modules not initialised), snmptrapd, mte-testagent (the test table) and
// eventmib-agentx (the relay of notifications).
//
// Sampling: one cycle of a wildcarded trigger over column 1 of N rows of the
// test table (N = 100, 1,000), driven in this process through the worker's
// queue handler (mte_run_PumpQueue) with the real SNMP client, SNMPv3
// authPriv as the daemon runs it; against `snmpwalk` of the same subtree with
// the same user (wall time, the tool's start included). The engine's client
// reads the column ahead with GETBULK; snmpwalk makes one get-next per
// instance; snmpd passes both to the subagent one get-next at a time.
//
// Events: mte_EVENT_Run of an event whose notification carries five objects
// of the test table (five gets through snmpd, then the datagram to the
// bridge, which sends it through snmpd's trap2sink to snmptrapd), timed from
// the first run to the last arrival in snmptrapd's log; against `snmptrap`
// sending the same notification with the same bindings to the same
// snmptrapd, one process per notification as a script would.
//
// Walks on the wire: the engine's cycle over 1,000 rows against
// `snmpbulkwalk -Cr25` and `-Cr5` of the same column, each timed from its
// first request to its last response as they pass a relay between the
// clients and snmpd (bench_wiretap.h). Every client here, the engine's
// included, reaches snmpd through that relay.
//
// Also: the relay alone in a burst (sends refused when the bridge's queue is
// full), and one cycle firing for every one of 1,000 instances.
//
// Runs single-threaded; every wait is bounded; every process is stopped at
// the end (also when setup fails).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench_event_config.h"
#include "bench_wiretap.h"
#include "fake_dbm.h"
#include "fake_log.h"
#include "fake_memalert.h"
#include "mte_core.h"
#include "mte_dbg.h"
#include "mte_dbm.h"
#include "mte_memalert.h"
#include "mte_run.h"
#include "mte_scalar.h"
#include "mte_timer.h"
#include "mte_trigger.h"
#include "plat_snmp.h"
#include "stack.h"
#include "testagent_ctl.h"

extern char** environ;

namespace {

constexpr const char* kColumn1 = "1.3.6.1.4.1.99999.1.1.1.1";
constexpr int kStartWaitMs = 15000;
constexpr int kEventsEndToEnd = 500;
constexpr int kSnmptraps = 200;
constexpr int kArrivalWaitMs = 30000;

mte_test::SnmpdHarness* g_pstAgent = nullptr;
mte_bench::WireTap g_stTap;
pid_t g_iTestAgent = -1;
pid_t g_iBridge = -1;
bool g_bReady = false;
uint32_t g_uiRows = 0;

double NowMs() {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return stNow.tv_sec * 1e3 + stNow.tv_nsec / 1e6;
}

template <typename F>
bool WaitUntil(F fDone, int iTimeoutMs) {
    double dEnd = NowMs() + iTimeoutMs;
    while (NowMs() < dEnd) {
        if (fDone()) {
            return true;
        }
        usleep(2000);
    }
    return fDone();
}

std::string Agent(const std::string& strCommand) {
    std::string strReply;
    return TESTAGENT_Command(g_pstAgent->Dir() + "/testagent.sock", strCommand, &strReply)
               ? strReply
               : "no reply";
}

// Rows 1..N in the default context: column 1 = index, column 2 = 7, column 3 "row".
bool EnsureRows(uint32_t uiRows) {
    for (; g_uiRows < uiRows; ++g_uiRows) {
        std::string strIndex = std::to_string(g_uiRows + 1);
        if (Agent("add - " + strIndex + " " + strIndex + " 7 row").rfind("ok", 0) != 0) {
            return false;
        }
    }
    return g_uiRows == uiRows;
}

// Runs a net-snmp tool with the client configuration of the daemon (the same
// SNMPv3 user); its exit status, its standard output lines counted when asked.
int RunTool(const std::vector<std::string>& astrArgs, long* plLines = nullptr) {
    std::vector<char*> apszArgv;
    for (const std::string& str : astrArgs) {
        apszArgv.push_back(const_cast<char*>(str.c_str()));
    }
    apszArgv.push_back(nullptr);
    std::string strOut = g_pstAgent->Dir() + "/tool.out";
    posix_spawn_file_actions_t stActions;
    posix_spawn_file_actions_init(&stActions);
    posix_spawn_file_actions_addopen(&stActions, 1, strOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&stActions, 2, "/dev/null", O_WRONLY, 0);
    pid_t iPid = -1;
    int iRet = posix_spawnp(&iPid, apszArgv[0], &stActions, nullptr, apszArgv.data(), environ);
    posix_spawn_file_actions_destroy(&stActions);
    int iStatus = -1;
    if (iRet != 0 || waitpid(iPid, &iStatus, 0) != iPid) {
        return -1;
    }
    if (plLines != nullptr) {
        std::ifstream stIn(strOut);
        *plLines = 0;
        for (std::string strLine; std::getline(stIn, strLine);) {
            *plLines += strLine.rfind(".", 0) == 0 ? 1 : 0;
        }
    }
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

// Notifications of the benchmark's type in snmptrapd's log so far.
long ArrivedTraps(const char* pszOid = mte_bench::kNotifyOidText) {
    std::ifstream stIn(g_pstAgent->TrapLogPath());
    std::string strNeedle = std::string("OID: .") + pszOid;
    long lCount = 0;
    for (std::string strLine; std::getline(stIn, strLine);) {
        lCount += strLine.find(strNeedle) != std::string::npos ? 1 : 0;
    }
    return lCount;
}

std::vector<uint32_t> Column(uint32_t uiColumn, uint32_t uiIndex) {
    return {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1, uiColumn, uiIndex};
}

// One of snmpd's own SNMP counters (snmpInPkts 1, snmpOutTraps 29)
// read through the client; -1 when it cannot be read.
long AgentCounter(uint32_t uiObject) {
    MTE_OID_S stOid = mte_bench::MakeOid({1, 3, 6, 1, 2, 1, 11, uiObject, 0});
    uint32_t uiStatus = 0;
    SNMP_VALUE_S* pstValue = SNMP_GetInstanceValue("bench", "", &stOid, &uiStatus);
    long lValue = -1;
    if (pstValue != nullptr && uiStatus == 0 && pstValue->uiLen == 4) {
        uint32_t uiValue = 0;
        memcpy(&uiValue, pstValue->pData, sizeof(uiValue));
        lValue = uiValue;
    }
    SNMP_FreeInstanceValue(pstValue);
    return lValue;
}

bool StartEngine() {
    FAKE_DBM_Reset();
    FAKE_MEMALERT_Reset();
    return mte_DBG_Init() == 0 && mte_EPOLL_Init() == 0 && mte_MEMALERT_Init() == 0 &&
           mte_DBM_Init() == 0 && mte_SCALAR_Init() == 0 && mte_OBJ_Init() == 0 &&
           mte_EVENT_Init() == 0 && mte_run_InitWithoutThread() == 0 &&
           mte_bench::ConfigureNotifyEvent(
               {Column(1, 1), Column(2, 1), Column(3, 1), Column(1, 2), Column(2, 2)});
}

bool Setup() {
    g_pstAgent = new mte_test::SnmpdHarness();
    std::string strError;
    if (!g_pstAgent->Start(&strError, kStartWaitMs) || !g_pstAgent->StartTrapd(&strError) ||
        !g_pstAgent->UseClientConfig(mte_test::ClientSecurity::V3_AUTH_PRIV)) {
        fprintf(stderr, "private snmpd: %s\n", strError.c_str());
        return false;
    }
    const std::string& strDir = g_pstAgent->Dir();
    // The engine's client reaches snmpd through the tap, as the tools do.
    if (!g_stTap.Start(g_pstAgent->Port()) ||
        !(std::ofstream(strDir + "/client/eventmibd.conf")
          << "agentAddress udp:127.0.0.1:" << g_stTap.Port() << "\n")) {
        fprintf(stderr, "relay to snmpd failed\n");
        return false;
    }
    std::string strRuntime = strDir + "/rt";
    std::string strState = strDir + "/state";
    mkdir(strRuntime.c_str(), 0700);
    mkdir(strState.c_str(), 0700);
    // The client finds the bridge's socket and the trap switch through these.
    setenv("RUNTIME_DIRECTORY", strRuntime.c_str(), 1);
    setenv("STATE_DIRECTORY", strState.c_str(), 1);
    auto Env = [&](const std::string& strPersist) {
        return std::vector<std::string>{"RUNTIME_DIRECTORY=" + strRuntime,
                                        "MIBS=", "SNMPCONFPATH=" + strDir + "/" + strPersist,
                                        "SNMP_PERSISTENT_DIR=" + strDir + "/" + strPersist};
    };
    g_iTestAgent = mte_test::SpawnProcess({MTE_TESTAGENT_PATH, "-c", strDir + "/testagent.sock",
                                           "-x", g_pstAgent->AgentxSocketPath()},
                                          Env("testagent-persist"), strDir + "/testagent.log");
    if (g_iTestAgent <= 0 ||
        !WaitUntil([] { return Agent("ping") == "ok connected"; }, kStartWaitMs)) {
        fprintf(stderr, "mte-testagent did not connect\n");
        return false;
    }
    g_iBridge =
        mte_test::SpawnProcess({MTE_AGENTX_PATH, "-f", "-x", g_pstAgent->AgentxSocketPath()},
                               Env("agentx-persist"), strDir + "/agentx.log");
    std::string strSocket = strRuntime + "/eventmib-agentx.sock";
    if (g_iBridge <= 0 ||
        !WaitUntil([&] { return access(strSocket.c_str(), F_OK) == 0; }, kStartWaitMs)) {
        fprintf(stderr, "eventmib-agentx did not start\n");
        return false;
    }
    if (!EnsureRows(2) || !StartEngine()) {
        fprintf(stderr, "rows or engine set-up failed\n");
        return false;
    }
    mte_TIMER_SetPortFlag(1);
    return true;
}

void Teardown() {
    mte_TIMER_SetPortFlag(0);
    mte_RUN_Fini();
    mte_EVENT_Fini();
    mte_OBJ_Fini();
    mte_DBM_Fini();
    mte_MEMALERT_Fini();
    mte_EPOLL_Fini();
    mte_DBG_Fini();
    mte_test::StopProcess(&g_iBridge, 3000);
    mte_test::StopProcess(&g_iTestAgent, 3000);
    g_stTap.Stop();
    delete g_pstAgent;  // stops snmptrapd and snmpd, removes the directory
    g_pstAgent = nullptr;
}

// A wildcarded trigger on column 1 with a boolean test that never holds
// (value == -1), so a cycle is pure sampling and evaluation.
MTE_TRIGGER_ENTRY_S* NewWildcardTrigger(uint32_t uiComparison = MTE_BOOL_EQUAL) {
    auto* pstTrigger = static_cast<MTE_TRIGGER_ENTRY_S*>(calloc(1, sizeof(MTE_TRIGGER_ENTRY_S)));
    auto* pstBool = static_cast<MTE_BOOL_ENTRY_S*>(calloc(1, sizeof(MTE_BOOL_ENTRY_S)));
    if (pstTrigger == nullptr || pstBool == nullptr) {
        free(pstTrigger);
        free(pstBool);
        return nullptr;
    }
    pstTrigger->llTimerId = -1;
    pstTrigger->uiRunState = MTE_RUN_IDLE;
    pstTrigger->usInstanceReleased = 1;
    pthread_mutex_init(&pstTrigger->stStateLock, nullptr);
    MTE_TRIGGER_ROW_S& stRow = pstTrigger->stRow;
    mte_bench::CopyName(stRow.szOwner, sizeof(stRow.szOwner), "bench");
    mte_bench::CopyName(stRow.szName, sizeof(stRow.szName), "walk");
    stRow.uiFrequency = 600;
    stRow.uiSampleType = MTE_SAMPLE_ABSOLUTE;
    stRow.stValueID = mte_bench::MakeOid({1, 3, 6, 1, 4, 1, 99999, 1, 1, 1, 1});
    stRow.uiValueIDWildcard = MTE_TRUE;
    stRow.uiContextNameWildcard = MTE_FALSE;
    stRow.uiEnabled = MTE_TRUE;
    stRow.uiEntryStatus = MTE_ROW_ACTIVE;
    stRow.ucTest = MTE_TEST_BOOLEAN;
    mte_bench::CopyName(pstBool->szOwner, sizeof(pstBool->szOwner), "bench");
    mte_bench::CopyName(pstBool->szName, sizeof(pstBool->szName), "walk");
    pstBool->uiComparison = uiComparison;
    pstBool->iValue = -1;
    pstBool->uiStartup = MTE_TRUE;
    pstTrigger->pstBool = pstBool;
    return pstTrigger;
}

// One sampling cycle: queued as the timer would, pumped until idle (bounded).
uint32_t SampleCycle(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    uint32_t uiRet = mte_RUN_Sample4AtOnce(pstTrigger);
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    for (int i = 0; uiRet == 0 && i < 100000 && mte_run_PumpQueue(1000) > 0; ++i) {
    }
    uint32_t uiSamples = 0;
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    for (const MTE_SAMPLE_S* p = pstTrigger->pstPrevSamples; p != nullptr; p = p->pstNext) {
        ++uiSamples;
    }
    bool bIdle = pstTrigger->uiRunState == MTE_RUN_IDLE;
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    return bIdle ? uiSamples : 0;
}

void DropTrigger(MTE_TRIGGER_ENTRY_S* pstTrigger) {
    mte_TRIGGER_StateLock(&pstTrigger->stStateLock);
    mte_RUN_ClearSampleRes(pstTrigger);
    mte_TRIGGER_StateUnLock(&pstTrigger->stStateLock);
    mte_TRIGGER_FreeNode(pstTrigger);
}

// A wildcarded trigger over N rows after its first cycle, which pays for the
// first samples (the figures are the steady cycle's); null when the rows or
// that cycle failed.
MTE_TRIGGER_ENTRY_S* SampledTrigger(uint32_t uiRows) {
    MTE_TRIGGER_ENTRY_S* pstTrigger =
        g_bReady && EnsureRows(uiRows) ? NewWildcardTrigger() : nullptr;
    if (pstTrigger != nullptr && SampleCycle(pstTrigger) != uiRows) {
        DropTrigger(pstTrigger);
        pstTrigger = nullptr;
    }
    return pstTrigger;
}

double Median(std::vector<double> adValues) {
    std::sort(adValues.begin(), adValues.end());
    size_t uiMid = adValues.size() / 2;
    return adValues.size() % 2 != 0 ? adValues[uiMid] : (adValues[uiMid - 1] + adValues[uiMid]) / 2;
}

// Runs a tool and returns its wall time in ms (negative when it failed or,
// with lWantLines >= 0, printed another number of OID lines).
double TimedTool(const std::vector<std::string>& astrArgs, long lWantLines = -1) {
    long lLines = 0;
    double dStart = NowMs();
    int iStatus = RunTool(astrArgs, lWantLines >= 0 ? &lLines : nullptr);
    double dMs = NowMs() - dStart;
    return iStatus == 0 && (lWantLines < 0 || lLines == lWantLines) ? dMs : -1;
}

// snmpwalk, or snmpbulkwalk with that many repetitions, through the tap.
std::vector<std::string> Snmpwalk(const char* pszOid, int iRepetitions = 0) {
    std::string strAgent = "127.0.0.1:" + std::to_string(g_stTap.Port());
    if (iRepetitions > 0) {
        return {"snmpbulkwalk", "-On", "-Cr" + std::to_string(iRepetitions), "-t", "5", "-r", "0",
                strAgent,       pszOid};
    }
    return {"snmpwalk", "-On", "-t", "5", "-r", "0", strAgent, pszOid};
}

// Each iteration: one sampling cycle of the wildcarded trigger over N rows,
// then `snmpwalk` of the same subtree, so both see the same machine load.
// Counters: the medians of both in ms, their ratio (engine / snmpwalk; below 1
// is faster), snmpwalk of a single instance (its fixed cost: process start
// and SNMPv3 discovery), and the requests snmpd received per cycle.
void BM_SampleVsSnmpwalk(benchmark::State& stState) {
    uint32_t uiRows = static_cast<uint32_t>(stState.range(0));
    MTE_TRIGGER_ENTRY_S* pstTrigger = SampledTrigger(uiRows);
    if (pstTrigger == nullptr) {
        stState.SkipWithError("setup failed or the first cycle missed instances");
        return;
    }
    std::vector<double> adEngineMs, adWalkMs, adFixedMs;
    long lRequests = 0;
    for (auto _ : stState) {
        long lBefore = AgentCounter(1);
        double dStart = NowMs();
        uint32_t uiSamples = SampleCycle(pstTrigger);
        adEngineMs.push_back(NowMs() - dStart);
        lRequests += AgentCounter(1) - lBefore - 1;  // the read of the counter itself
        double dWalk = TimedTool(Snmpwalk(kColumn1), uiRows);
        double dFixed = TimedTool(Snmpwalk("1.3.6.1.2.1.1.3"), 1);  // sysUpTime
        if (uiSamples != uiRows || dWalk < 0 || dFixed < 0) {
            stState.SkipWithError("a cycle or a walk missed instances");
            break;
        }
        adWalkMs.push_back(dWalk);
        adFixedMs.push_back(dFixed);
    }
    if (!adWalkMs.empty()) {
        double dEngine = Median(adEngineMs);
        double dWalk = Median(adWalkMs);
        stState.counters["engine_ms"] = dEngine;
        stState.counters["snmpwalk_ms"] = dWalk;
        stState.counters["ratio"] = dEngine / dWalk;
        stState.counters["snmpwalk_1_ms"] = Median(adFixedMs);
        stState.counters["requests_per_cycle"] =
            static_cast<double>(lRequests) / static_cast<double>(adEngineMs.size());
    }
    DropTrigger(pstTrigger);
}

double LoadAverage() {
    double dLoad = -1;
    FILE* pstFile = fopen("/proc/loadavg", "r");
    if (pstFile != nullptr) {
        if (fscanf(pstFile, "%lf", &dLoad) != 1) {
            dLoad = -1;
        }
        fclose(pstFile);
    }
    return dLoad;
}

// The column walked with plain get-nexts through the daemon's client, as a
// cycle walked it before the client read ahead; true when it saw every row.
bool GetNextWalk(uint32_t uiRows) {
    MTE_OID_S stColumn = mte_bench::MakeOid({1, 3, 6, 1, 4, 1, 99999, 1, 1, 1, 1});
    MTE_OID_S stCursor = stColumn;
    uint32_t uiSeen = 0;
    for (;;) {
        uint32_t uiStatus = 0;
        SNMP_VALUE_S* pstValue = SNMP_GetNextInstanceValue("bench", "", &stCursor, &uiStatus);
        SNMP_FreeInstanceValue(pstValue);
        if (uiStatus != 0 || stCursor.uiLen <= stColumn.uiLen ||
            memcmp(stCursor.auiOid, stColumn.auiOid, stColumn.uiLen * 4) != 0) {
            return uiStatus == 0 && uiSeen == uiRows;
        }
        ++uiSeen;
    }
}

// Each iteration, interleaved: one cycle of the engine's wildcarded trigger
// over N rows; `snmpbulkwalk -Cr25` and `-Cr5` of the same column with the
// same SNMPv3 user; the column walked with plain get-nexts through the
// daemon's client (what a cycle cost before the client read ahead). Each is
// timed on the wire: from its first authenticated request to its last
// response at the tap. Counters per walk: median, min and max in ms and the
// requests of one walk; the ratios of the medians against snmpbulkwalk
// -Cr25 (the aim for the engine is 1.25 at most); the load average (1 min)
// before and after.
void BM_WalkOnTheWire(benchmark::State& stState) {
    uint32_t uiRows = static_cast<uint32_t>(stState.range(0));
    MTE_TRIGGER_ENTRY_S* pstTrigger = SampledTrigger(uiRows);
    if (pstTrigger == nullptr) {
        stState.SkipWithError("setup failed or the first cycle missed instances");
        return;
    }
    struct Walk {
        const char* pszName;
        std::vector<double> adMs;
        long lRequests;
    } astWalks[] = {{"engine", {}, 0}, {"bulk25", {}, 0}, {"bulk5", {}, 0}, {"getnext", {}, 0}};
    auto Note = [](Walk* pstWalk) {
        double dMs = 0;
        g_stTap.Take(&pstWalk->lRequests, &dMs);
        pstWalk->adMs.push_back(dMs);
    };
    double dLoadBefore = LoadAverage();
    for (auto _ : stState) {
        long lIgnored = 0;
        double dIgnored = 0;
        g_stTap.Take(&lIgnored, &dIgnored);
        bool bOk = SampleCycle(pstTrigger) == uiRows;
        Note(&astWalks[0]);
        bOk = TimedTool(Snmpwalk(kColumn1, 25), uiRows) >= 0 && bOk;
        Note(&astWalks[1]);
        bOk = TimedTool(Snmpwalk(kColumn1, 5), uiRows) >= 0 && bOk;
        Note(&astWalks[2]);
        bOk = GetNextWalk(uiRows) && bOk;
        Note(&astWalks[3]);
        if (!bOk) {
            stState.SkipWithError("a cycle or a walk missed instances");
            break;
        }
    }
    if (!astWalks[0].adMs.empty()) {
        double dReference = Median(astWalks[1].adMs);
        for (const Walk& stWalk : astWalks) {
            std::string strName = stWalk.pszName;
            stState.counters[strName + "_ms"] = Median(stWalk.adMs);
            stState.counters[strName + "_min"] =
                *std::min_element(stWalk.adMs.begin(), stWalk.adMs.end());
            stState.counters[strName + "_max"] =
                *std::max_element(stWalk.adMs.begin(), stWalk.adMs.end());
            stState.counters[strName + "_requests"] = static_cast<double>(stWalk.lRequests);
            stState.counters[strName + "_ratio"] = Median(stWalk.adMs) / dReference;
        }
        stState.counters["load_before"] = dLoadBefore;
        stState.counters["load_after"] = LoadAverage();
    }
    DropTrigger(pstTrigger);
}

// Waits until uiWant notifications of the benchmark's type are in snmptrapd's
// log, or until none has arrived for 2 s; the count then.
long WaitArrivals(long lWant, const char* pszOid = mte_bench::kNotifyOidText) {
    long lSeen = ArrivedTraps(pszOid);
    double dLastProgress = NowMs();
    while (lSeen < lWant && NowMs() - dLastProgress < 2000) {
        usleep(5000);
        long lNow = ArrivedTraps(pszOid);
        if (lNow > lSeen) {
            lSeen = lNow;
            dLastProgress = NowMs();
        }
    }
    return lSeen;
}

// Each iteration: kEventsEndToEnd runs of the event (five gets through snmpd,
// the datagram to the bridge, snmpd's trap2sink to snmptrapd) timed from the
// first run to the last arrival; then kSnmptraps `snmptrap` processes sending
// the same notification with the same bindings straight to snmptrapd, timed
// the same way. Counters: arrivals per second of both, their ratio (ours /
// snmptrap; above 1 is faster), the runs alone per second, and losses.
void BM_EventsVsSnmptrap(benchmark::State& stState) {
    if (!g_bReady) {
        stState.SkipWithError("setup failed");
        return;
    }
    const std::string strTable = "1.3.6.1.4.1.99999.1.1.1.";
    const std::vector<std::string> astrTrap = {
        "snmptrap",
        "-v2c",
        "-c",
        "public",
        "127.0.0.1:" + std::to_string(g_pstAgent->TrapPort()),
        "",
        mte_bench::kNotifyOidText,
        strTable + "1.1",
        "i",
        "1",
        strTable + "2.1",
        "u",
        "7",
        strTable + "3.1",
        "s",
        "row",
        strTable + "1.2",
        "i",
        "2",
        strTable + "2.2",
        "u",
        "7"};
    mte_bench::FiredNotify stRun;
    double dOursMs = 0, dRunsMs = 0, dTrapMs = 0;
    long lOursArrived = 0, lTrapArrived = 0;
    for (auto _ : stState) {
        long lBefore = ArrivedTraps();
        double dStart = NowMs();
        for (int i = 0; i < kEventsEndToEnd; ++i) {
            stRun.Run();
        }
        dRunsMs += NowMs() - dStart;
        long lGot = WaitArrivals(lBefore + kEventsEndToEnd) - lBefore;
        dOursMs += NowMs() - dStart;
        lOursArrived += lGot;

        lBefore = ArrivedTraps();
        dStart = NowMs();
        for (int i = 0; i < kSnmptraps; ++i) {
            if (RunTool(astrTrap) != 0) {
                stState.SkipWithError("snmptrap failed");
                return;
            }
        }
        lGot = WaitArrivals(lBefore + kSnmptraps) - lBefore;
        dTrapMs += NowMs() - dStart;
        lTrapArrived += lGot;
    }
    double dIter = static_cast<double>(stState.iterations());
    double dOursRate = lOursArrived / (dOursMs / 1000.0);
    double dTrapRate = lTrapArrived / (dTrapMs / 1000.0);
    stState.counters["ours_per_s"] = dOursRate;
    stState.counters["runs_per_s"] = kEventsEndToEnd * dIter / (dRunsMs / 1000.0);
    stState.counters["snmptrap_per_s"] = dTrapRate;
    stState.counters["ratio"] = dOursRate / dTrapRate;
    stState.counters["ours_lost"] = kEventsEndToEnd * dIter - lOursArrived;
    stState.counters["snmptrap_lost"] = kSnmptraps * dIter - lTrapArrived;
    MTE_SCALAR_S stScalars{};
    mte_SCALAR_Get(&stScalars);
    stState.counters["event_failures"] = stScalars.uiEventFailures;
}

// The relay alone: kEventsEndToEnd notifications with the same five bindings
// handed to the bridge with SNMP_SendTrapByVBList as fast as the client can,
// without the gets. The send never waits: a datagram that finds the bridge's
// receive queue full fails at once (net.unix.max_dgram_qlen datagrams, 10 by
// default) and is counted, as an event's send failure would be.
void BM_RelayBurst(benchmark::State& stState) {
    if (!g_bReady) {
        stState.SkipWithError("setup failed");
        return;
    }
    int32_t aiInts[] = {1, 2};
    uint32_t auiGauge = 7;
    char acRow[] = {'r', 'o', 'w'};
    SNMP_VALUE_S astValues[] = {{&aiInts[0], 4, SNMP_VTYPE_INTEGER32},
                                {&auiGauge, 4, SNMP_VTYPE_GAUGE32},
                                {acRow, 3, SNMP_VTYPE_OCTET_STRING},
                                {&aiInts[1], 4, SNMP_VTYPE_INTEGER32},
                                {&auiGauge, 4, SNMP_VTYPE_GAUGE32}};
    const uint32_t auiCols[][2] = {{1, 1}, {2, 1}, {3, 1}, {1, 2}, {2, 2}};
    MTE_VB_S astVbs[5] = {};
    MTE_VB_LIST_S stList = {&astVbs[0], &astVbs[4]};
    for (int i = 0; i < 5; ++i) {
        astVbs[i].pstNext = i < 4 ? &astVbs[i + 1] : nullptr;
        astVbs[i].stOID = mte_bench::MakeOid(Column(auiCols[i][0], auiCols[i][1]));
        astVbs[i].pValue = &astValues[i];
    }
    MTE_OID_S stNotification = mte_bench::MakeOid(
        std::vector<uint32_t>(std::begin(mte_bench::kNotifyOid), std::end(mte_bench::kNotifyOid)));
    double dMs = 0;
    long lArrived = 0, lRefused = 0;
    for (auto _ : stState) {
        long lBefore = ArrivedTraps();
        double dStart = NowMs();
        long lSent = 0;
        for (int i = 0; i < kEventsEndToEnd; ++i) {
            lSent += SNMP_SendTrapByVBList(&stNotification, "", &stList) == 0 ? 1 : 0;
        }
        lRefused += kEventsEndToEnd - lSent;
        lArrived += WaitArrivals(lBefore + lSent) - lBefore;
        dMs += NowMs() - dStart;
    }
    double dIter = static_cast<double>(stState.iterations());
    stState.counters["sent_ok"] = (kEventsEndToEnd * dIter - lRefused) / dIter;
    stState.counters["refused"] = lRefused / dIter;
    stState.counters["arrived"] = lArrived / dIter;
    stState.counters["arrived_per_s"] = lArrived / (dMs / 1000.0);
}

// A wildcarded trigger over the 1,000 rows whose boolean test holds for every
// instance at its first sample (value != -1, startup on): one cycle fires
// mteTriggerFired once per instance. Counts how many reach snmptrapd.
void BM_FiringEveryInstanceOnce(benchmark::State& stState) {
    constexpr const char* kFired = "1.3.6.1.2.1.88.2.0.1";
    if (!g_bReady || !EnsureRows(1000)) {
        stState.SkipWithError("setup failed");
        return;
    }
    long lFired = 0, lArrived = 0, lAgentSent = 0;
    double dMs = 0, dCycleMs = 0;
    for (auto _ : stState) {
        MTE_TRIGGER_ENTRY_S* pstTrigger = NewWildcardTrigger(MTE_BOOL_UNEQUAL);
        long lBefore = ArrivedTraps(kFired);
        long lAgentBefore = AgentCounter(29);  // snmpOutTraps
        double dStart = NowMs();
        lFired += SampleCycle(pstTrigger);
        dCycleMs += NowMs() - dStart;
        lArrived += WaitArrivals(lBefore + 1000, kFired) - lBefore;
        dMs += NowMs() - dStart;
        lAgentSent += AgentCounter(29) - lAgentBefore;
        DropTrigger(pstTrigger);
    }
    double dIter = static_cast<double>(stState.iterations());
    stState.counters["instances"] = lFired / dIter;
    stState.counters["arrived"] = lArrived / dIter;
    stState.counters["agent_sent"] = lAgentSent / dIter;  // what snmpd sent on
    // The pace at which the cycle hands its notifications to the bridge.
    stState.counters["fired_per_s"] = lFired / (dCycleMs / 1000.0);
    stState.counters["arrived_per_s"] = lArrived / (dMs / 1000.0);
}

// Registered in this order: the rows grow from 100 to 1,000.
BENCHMARK(BM_SampleVsSnmpwalk)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_SampleVsSnmpwalk)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(15);
BENCHMARK(BM_WalkOnTheWire)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(15)
    ->UseRealTime();
BENCHMARK(BM_EventsVsSnmptrap)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_RelayBurst)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_FiringEveryInstanceOnce)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

}  // namespace

int main(int iArgc, char** ppszArgv) {
    benchmark::Initialize(&iArgc, ppszArgv);
    g_bReady = Setup();
    benchmark::RunSpecifiedBenchmarks();
    Teardown();
    benchmark::Shutdown();
    return g_bReady ? 0 : 1;
}
