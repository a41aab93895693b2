// snmpbulkwalk (-Cr50) of the trigger table with 1,000 rows (13 columns:
// 13,000 varbinds) through snmpd -> AgentX -> the bridge -> eventmibd, and of
// about as many varbinds that snmpd serves from its own modules. The figure
// to compare is the time per varbind (counter "us_per_varbind").
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core/daemon_process.h"
#include "mte_msg.h"
#include "support/snmpd_harness.h"

namespace {

constexpr int kTriggers = 1000;

mte_test::SnmpdHarness* g_pstAgent = nullptr;
MteDaemonProcess* g_pstDaemon = nullptr;
pid_t g_iSubagent = -1;
bool g_bReady = false;

// Runs the command, returns the number of output lines (one per varbind).
long CountLines(const std::string& strCommand) {
    std::string strFull = "env SNMPCONFPATH=" + g_pstAgent->Dir() +
                          "/etc SNMP_PERSISTENT_DIR=" + g_pstAgent->Dir() +
                          "/client-persist MIBS= timeout 120 " + strCommand + " 2>/dev/null";
    FILE* pstPipe = popen(strFull.c_str(), "r");
    if (pstPipe == nullptr) {
        return -1;
    }
    long lLines = 0;
    char acBuf[8192];
    while (fgets(acBuf, sizeof(acBuf), pstPipe) != nullptr) {
        lLines += acBuf[0] == '.' ? 1 : 0;
    }
    pclose(pstPipe);
    return lLines;
}

bool CreateTriggers(void) {
    int iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::string strPath = g_pstDaemon->RuntimeDir() + "/eventmibd.sock";
    strncpy(stAddr.sun_path, strPath.c_str(), sizeof(stAddr.sun_path) - 1);
    if (connect(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        close(iFd);
        return false;
    }
    bool bOk = true;
    for (int i = 0; i < kTriggers && bOk; ++i) {
        MTE_TRIGGER_ROW_S stRow{};
        snprintf(stRow.szOwner, sizeof(stRow.szOwner), "owner%d", i % 7);
        snprintf(stRow.szName, sizeof(stRow.szName), "trigger%d", i);
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
        uint8_t aucMsg[MTE_MSG_MAX_LEN];
        uint32_t uiLen =
            MTE_MSG_BuildRequest(i + 1, 4, 1, MTE_COLUMN_BIT(MTE_TRIGGER_COL_ENTRY_STATUS),
                                 MTE_ITEM_TRIGGER, &stRow, aucMsg, sizeof(aucMsg));
        MTE_MSG_REPLY_S stReply{};
        bOk = send(iFd, aucMsg, uiLen, MSG_NOSIGNAL) == static_cast<ssize_t>(uiLen);
        ssize_t lGot = bOk ? recv(iFd, aucMsg, sizeof(aucMsg), 0) : -1;
        bOk = lGot > 0 && MTE_MSG_ParseReply(aucMsg, lGot, &stReply) == 0 && stReply.uiResult == 0;
    }
    close(iFd);
    return bOk;
}

bool Setup(void) {
    g_pstAgent = new mte_test::SnmpdHarness();
    g_pstDaemon = new MteDaemonProcess();
    std::string strError;
    if (!g_pstAgent->Start(&strError) || !g_pstDaemon->Start() || !g_pstDaemon->WaitReady(10000) ||
        !CreateTriggers()) {
        fprintf(stderr, "setup failed: %s\n", strError.c_str());
        return false;
    }
    std::string strPersist = g_pstAgent->Dir() + "/subagent-persist";
    mkdir(strPersist.c_str(), 0700);
    g_iSubagent = mte_test::SpawnProcess(
        {MTE_AGENTX_PATH, "-f", "-i", "1", "-x", g_pstAgent->AgentxSocketPath()},
        {"RUNTIME_DIRECTORY=" + g_pstDaemon->RuntimeDir(), "SNMPCONFPATH=" + strPersist,
         "SNMP_PERSISTENT_DIR=" + strPersist, "MIBS="},
        g_pstAgent->Dir() + "/subagent.log");
    std::string strGet =
        "snmpget -v2c -c public -On 127.0.0.1:" + std::to_string(g_pstAgent->Port()) +
        " 1.3.6.1.2.1.88.1.1.1.0";
    for (int i = 0; i < 100; ++i) {
        if (CountLines(strGet) == 1) {
            return true;
        }
        usleep(100 * 1000);
    }
    return false;
}

void Walk(benchmark::State& stState, const std::string& strOid) {
    if (!g_bReady) {
        stState.SkipWithError("setup failed");
        return;
    }
    std::string strCommand = "snmpbulkwalk -v2c -c public -On -Cr50 -t 5 -r 0 127.0.0.1:" +
                             std::to_string(g_pstAgent->Port()) + " " + strOid;
    long lVarbinds = 0;
    double dTotalUs = 0;
    for (auto _ : stState) {
        int64_t llStart = MteDaemonProcess::NowMs();
        lVarbinds = CountLines(strCommand);
        dTotalUs += (MteDaemonProcess::NowMs() - llStart) * 1000.0;
    }
    stState.counters["varbinds"] = static_cast<double>(lVarbinds);
    if (lVarbinds > 0) {
        stState.counters["us_per_varbind"] =
            dTotalUs / (static_cast<double>(lVarbinds) * stState.iterations());
    }
}

// 1,000 triggers x 13 columns through the bridge.
void BM_BulkwalkTriggersThroughBridge(benchmark::State& stState) {
    Walk(stState, "1.3.6.1.2.1.88.1.2.2");
}
// snmpd's own objects: the whole of mib-2 without the Event MIB, which the
// agent serves itself (system, interfaces, ip, tcp, udp, host resources ...).
void BM_BulkwalkAgentOwnObjects(benchmark::State& stState) {
    Walk(stState, "1.3.6.1.2.1.25");
}

BENCHMARK(BM_BulkwalkTriggersThroughBridge)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_BulkwalkAgentOwnObjects)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

int main(int iArgc, char** ppszArgv) {
    benchmark::Initialize(&iArgc, ppszArgv);
    g_bReady = Setup();
    benchmark::RunSpecifiedBenchmarks();
    mte_test::StopProcess(&g_iSubagent, 3000);
    delete g_pstDaemon;
    delete g_pstAgent;
    benchmark::Shutdown();
    return 0;
}
