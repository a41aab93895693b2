// Two ratios measured side by side in one run, on the whole stack:
//  - per varbind, snmpbulkwalk -Cr50 of the trigger table through snmpd ->
//    AgentX -> the bridge -> eventmibd, against the same walk of a table of as
//    many rows and columns that a plain AgentX subagent (ref_subagent) serves
//    from memory; at 1,000, 5,000 and 20,000 rows (aim: at most 1.3x);
//  - eventmibctl walk trigger of 20,000 triggers against the same walk of
//    2,000 on a second daemon (linear is 10x; aim: at most 12x).
// Walks alternate (bridge, reference, bridge, ...); each bridge walk starts
// without kept answers, as a walk after a quiet spell does (a SET of
// mteResourceSampleMinimum to its value through the bridge drops them, which
// is not timed). Prints the medians with min-max and /proc/loadavg.
//   bench_mib [ROUNDS [ROWS...]]   (default 5 rounds; 1000 5000 20000 rows)
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "stack.h"
#include "mte_msg.h"

namespace {

const char* const kTriggerTable = "1.3.6.1.2.1.88.1.2.2";
const char* const kRefTable = "1.3.6.1.4.1.8072.9999.1";

mte_test::SnmpdHarness* g_pstAgent = nullptr;

struct Sample {
    double dMs;
    long lVarbinds;
};

// Runs the command; its duration and the number of varbind lines it printed.
Sample Run(const std::string& strCommand) {
    std::string strFull = "env SNMPCONFPATH=" + g_pstAgent->Dir() +
                          "/etc SNMP_PERSISTENT_DIR=" + g_pstAgent->Dir() +
                          "/client-persist MIBS= timeout 300 " + strCommand + " 2>/dev/null";
    int64_t llStart = mte_test::MonoMs();
    FILE* pstPipe = popen(strFull.c_str(), "r");
    Sample stSample{0, 0};
    if (pstPipe == nullptr) {
        return stSample;
    }
    char acBuf[8192];
    while (fgets(acBuf, sizeof(acBuf), pstPipe) != nullptr) {
        stSample.lVarbinds += (acBuf[0] == '.' || strncmp(acBuf, "trigger", 7) == 0) ? 1 : 0;
    }
    pclose(pstPipe);
    stSample.dMs = static_cast<double>(mte_test::MonoMs() - llStart);
    return stSample;
}

std::string BulkWalk(const char* pszOid) {
    return "snmpbulkwalk -v2c -c public -On -Cr50 -t 30 -r 0 127.0.0.1:" +
           std::to_string(g_pstAgent->Port()) + " " + pszOid;
}

// Creates triggers iFrom .. iTo-1 (not in service) through the daemon's socket.
bool CreateTriggers(const mte_test::DaemonProcess& stDaemon, int iFrom, int iTo) {
    int iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::string strPath = stDaemon.RuntimeDir() + "/eventmibd.sock";
    strncpy(stAddr.sun_path, strPath.c_str(), sizeof(stAddr.sun_path) - 1);
    if (connect(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        close(iFd);
        return false;
    }
    bool bOk = true;
    for (int i = iFrom; i < iTo && bOk; ++i) {
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

pid_t StartSubagent(const std::vector<std::string>& astrArgs, const std::string& strName,
                    const std::vector<std::string>& astrEnv) {
    std::string strPersist = g_pstAgent->Dir() + "/" + strName + "-persist";
    mkdir(strPersist.c_str(), 0700);
    std::vector<std::string> astrFullEnv = {"SNMPCONFPATH=" + strPersist,
                                            "SNMP_PERSISTENT_DIR=" + strPersist, "MIBS="};
    astrFullEnv.insert(astrFullEnv.end(), astrEnv.begin(), astrEnv.end());
    return mte_test::SpawnProcess(astrArgs, astrFullEnv,
                                  g_pstAgent->Dir() + "/" + strName + ".log");
}

// Waits until a get-next at the OID returns something inside it.
bool WaitServing(const char* pszOid) {
    std::string strCommand =
        "snmpgetnext -v2c -c public -On -t 2 -r 0 127.0.0.1:" + std::to_string(g_pstAgent->Port()) +
        " " + pszOid;
    for (int i = 0; i < 200; ++i) {
        FILE* pstPipe = popen(("env MIBS= " + strCommand + " 2>/dev/null").c_str(), "r");
        char acBuf[512] = {};
        bool bIn = pstPipe != nullptr && fgets(acBuf, sizeof(acBuf), pstPipe) != nullptr &&
                   strncmp(acBuf + 1, pszOid, strlen(pszOid)) == 0;
        if (pstPipe != nullptr) {
            pclose(pstPipe);
        }
        if (bIn) {
            return true;
        }
        usleep(100 * 1000);
    }
    return false;
}

struct Stats {
    double dMedian, dMin, dMax;
};

Stats Summary(std::vector<double> adValues) {
    std::sort(adValues.begin(), adValues.end());
    size_t n = adValues.size();
    double dMedian = n % 2 ? adValues[n / 2] : (adValues[n / 2 - 1] + adValues[n / 2]) / 2;
    return {dMedian, adValues.front(), adValues.back()};
}

std::string LoadAvg(void) {
    std::ifstream stIn("/proc/loadavg");
    std::string strLine;
    std::getline(stIn, strLine);
    return strLine;
}

// Bridge against the reference subagent at one size; per-varbind figures in us.
void CompareBridge(int iRows, int iRounds) {
    std::string strDropAnswers =
        "snmpset -v2c -c private -On -t 5 -r 0 127.0.0.1:" + std::to_string(g_pstAgent->Port()) +
        " 1.3.6.1.2.1.88.1.1.1.0 i 1";
    std::vector<double> adBridge, adRef, adRatio;
    long lBridgeVb = 0, lRefVb = 0;
    for (int i = 0; i < iRounds; ++i) {
        (void)Run(strDropAnswers);
        Sample stBridge = Run(BulkWalk(kTriggerTable));
        Sample stRef = Run(BulkWalk(kRefTable));
        lBridgeVb = stBridge.lVarbinds;
        lRefVb = stRef.lVarbinds;
        if (lBridgeVb == 0 || lRefVb == 0) {
            printf("walk failed at %d rows (bridge %ld, reference %ld varbinds)\n", iRows,
                   lBridgeVb, lRefVb);
            return;
        }
        adBridge.push_back(stBridge.dMs * 1000 / lBridgeVb);
        adRef.push_back(stRef.dMs * 1000 / lRefVb);
        adRatio.push_back(adBridge.back() / adRef.back());
    }
    Stats stB = Summary(adBridge), stR = Summary(adRef), stQ = Summary(adRatio);
    printf(
        "bridge/subagent %6d rows (%ld/%ld varbinds): bridge %.1f us (%.1f-%.1f), "
        "subagent %.1f us (%.1f-%.1f), ratio %.2f (%.2f-%.2f)\n",
        iRows, lBridgeVb, lRefVb, stB.dMedian, stB.dMin, stB.dMax, stR.dMedian, stR.dMin, stR.dMax,
        stQ.dMedian, stQ.dMin, stQ.dMax);
    fflush(stdout);
}

// eventmibctl walk of the large daemon against the small one. The client and
// the daemon's main thread share one CPU: on these virtual machines a wake-up
// on the other CPU costs about 40 us per exchange, and whether the scheduler
// keeps a short walk on one CPU varies from run to run, which hid the walk's
// own cost (a 2,000-row walk took 21 to 74 ms, while each 2,000 rows of a
// 20,000-row walk took a steady 105 ms across CPUs or 21 ms on one).
void CompareCtlWalks(const mte_test::DaemonProcess& stLarge, int iLarge,
                     const mte_test::DaemonProcess& stSmall, int iSmall, int iRounds) {
    cpu_set_t stOneCpu;
    CPU_ZERO(&stOneCpu);
    CPU_SET(0, &stOneCpu);
    (void)sched_setaffinity(stLarge.Pid(), sizeof(stOneCpu), &stOneCpu);
    (void)sched_setaffinity(stSmall.Pid(), sizeof(stOneCpu), &stOneCpu);
    auto Walk = [](const mte_test::DaemonProcess& stDaemon) {
        return Run(std::string("taskset -c 0 ") + MTE_EVENTMIBCTL_PATH + " -s " +
                   stDaemon.RuntimeDir() + "/eventmibd.sock walk trigger");
    };
    std::vector<double> adLarge, adSmall, adRatio;
    for (int i = 0; i < iRounds; ++i) {
        Sample stL = Walk(stLarge);
        Sample stS = Walk(stSmall);
        adLarge.push_back(stL.dMs);
        adSmall.push_back(stS.dMs);
        adRatio.push_back(stS.dMs > 0 ? stL.dMs / stS.dMs : 0);
    }
    Stats stL = Summary(adLarge), stS = Summary(adSmall), stQ = Summary(adRatio);
    printf(
        "eventmibctl walk trigger: %d rows %.0f ms (%.0f-%.0f), %d rows %.0f ms (%.0f-%.0f), "
        "ratio %.1f (%.1f-%.1f)\n",
        iLarge, stL.dMedian, stL.dMin, stL.dMax, iSmall, stS.dMedian, stS.dMin, stS.dMax,
        stQ.dMedian, stQ.dMin, stQ.dMax);
    fflush(stdout);
}

}  // namespace

int main(int iArgc, char** ppszArgv) {
    int iRounds = iArgc > 1 ? atoi(ppszArgv[1]) : 5;
    std::vector<int> aiSizes;
    for (int i = 2; i < iArgc; ++i) {
        aiSizes.push_back(atoi(ppszArgv[i]));
    }
    if (aiSizes.empty()) {
        aiSizes = {1000, 5000, 20000};
    }
    // Rows are added to the same daemon one size after another, so sizes must grow.
    bool bSizesGrow = std::is_sorted(aiSizes.begin(), aiSizes.end(), std::less_equal<int>()) &&
                      aiSizes.front() > 0;
    if (iRounds <= 0 || !bSizesGrow) {
        fprintf(stderr, "usage: bench_mib [ROUNDS (1 or more) [ROWS...] (growing, above 0)]\n");
        return 2;
    }
    g_pstAgent = new mte_test::SnmpdHarness();
    mte_test::DaemonProcess stDaemon;
    mte_test::DaemonProcess stSmall;
    std::string strError;
    if (!g_pstAgent->Start(&strError) || !stDaemon.Start() || !stDaemon.WaitReady(10000) ||
        !stSmall.Start() || !stSmall.WaitReady(10000) || !CreateTriggers(stSmall, 0, 2000)) {
        fprintf(stderr, "setup failed: %s\n", strError.c_str());
        delete g_pstAgent;
        return 1;
    }
    pid_t iBridge =
        StartSubagent({MTE_AGENTX_PATH, "-f", "-i", "1", "-x", g_pstAgent->AgentxSocketPath()},
                      "bridge", {"RUNTIME_DIRECTORY=" + stDaemon.RuntimeDir()});
    printf("load before: %s\n", LoadAvg().c_str());
    int iHave = 0;
    for (int iRows : aiSizes) {
        if (!CreateTriggers(stDaemon, iHave, iRows)) {
            fprintf(stderr, "creating %d triggers failed\n", iRows);
            break;
        }
        iHave = iRows;
        pid_t iRef = StartSubagent({MTE_REF_SUBAGENT_PATH, "-x", g_pstAgent->AgentxSocketPath(),
                                    "-n", std::to_string(iRows)},
                                   "reference", {});
        if (WaitServing(kTriggerTable) && WaitServing(kRefTable)) {
            // Short walks vary more: more rounds for them.
            int iBridgeRounds = iRows <= 1000    ? 3 * iRounds
                                : iRows >= 20000 ? iRounds - 2
                                                 : iRounds;
            CompareBridge(iRows, std::max(3, iBridgeRounds));
        } else {
            printf("subagents not serving at %d rows\n", iRows);
        }
        mte_test::StopProcess(&iRef, 3000);
    }
    if (iHave == 20000) {
        CompareCtlWalks(stDaemon, 20000, stSmall, 2000, iRounds);
    }
    printf("load after: %s\n", LoadAvg().c_str());
    mte_test::StopProcess(&iBridge, 3000);
    delete g_pstAgent;
    return 0;
}
