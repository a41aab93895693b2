// CPU and memory of the idle daemon: the real eventmibd with 10,000 active
// triggers of frequency 600 s, sampling a private snmpd. The program starts
// snmpd (tests/support harness) and eventmibd (temporary state and runtime
// directories), configures the triggers with one eventmibctl scenario, brings
// the port up with the datagram "up", waits until the first samples are done
// (snmpd's snmpInPkts stops growing and the daemon's CPU settles), then reads
// the daemon's utime+stime from /proc over the measuring window, and VmRSS.
//
// Usage: bench_engine_idle [TRIGGERS [SECONDS [FREQUENCY]]]
//        (defaults 10000, 60 and 600; a shorter frequency shows how many
//        samples a period gets, from snmpd's request count in the window,
//        and, when the worker cannot keep up, the samples-missed counter and
//        the shortfall traces: for example 2000 20 1)
// Every wait is bounded; everything started is stopped at the end.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "stack.h"

extern char** environ;

namespace {

constexpr const char* kSampled = MTE_TEST_WRITABLE_INTEGER;  // an Integer32 (5)
constexpr const char* kInPkts = "1.3.6.1.2.1.11.1.0";        // snmpInPkts.0
constexpr const char* kInGets = "1.3.6.1.2.1.11.15.0";       // snmpInGetRequests.0

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Runs a program with its output in strOutPath; exit status, -1 on time-out.
int Run(const std::vector<std::string>& astrArgs, const std::string& strOutPath, int iTimeoutMs,
        std::string* pstrOut = nullptr) {
    std::vector<char*> apszArgv;
    for (const std::string& strArg : astrArgs) {
        apszArgv.push_back(const_cast<char*>(strArg.c_str()));
    }
    apszArgv.push_back(nullptr);
    posix_spawn_file_actions_t stActions;
    posix_spawn_file_actions_init(&stActions);
    posix_spawn_file_actions_addopen(&stActions, STDOUT_FILENO, strOutPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&stActions, STDOUT_FILENO, STDERR_FILENO);
    pid_t iPid = -1;
    int iRet = posix_spawn(&iPid, apszArgv[0], &stActions, nullptr, apszArgv.data(), environ);
    posix_spawn_file_actions_destroy(&stActions);
    if (iRet != 0) {
        return -1;
    }
    int iStatus = 0;
    int64_t llDeadline = NowMs() + iTimeoutMs;
    while (waitpid(iPid, &iStatus, WNOHANG) == 0) {
        if (NowMs() > llDeadline) {
            kill(iPid, SIGKILL);
            waitpid(iPid, &iStatus, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (pstrOut != nullptr) {
        std::ifstream stIn(strOutPath);
        std::stringstream stText;
        stText << stIn.rdbuf();
        *pstrOut = stText.str();
    }
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

// utime + stime of the process, in clock ticks (fields 14 and 15 of stat).
long long CpuTicks(pid_t iPid) {
    std::ifstream stIn("/proc/" + std::to_string(iPid) + "/stat");
    std::string strStat;
    std::getline(stIn, strStat);
    size_t uiEnd = strStat.rfind(')');
    if (uiEnd == std::string::npos) {
        return -1;
    }
    std::istringstream stFields(strStat.substr(uiEnd + 2));
    std::string strField;
    long long llUtime = 0;
    long long llStime = 0;
    for (int iField = 3; iField <= 15 && stFields >> strField; ++iField) {
        if (iField == 14) {
            llUtime = std::atoll(strField.c_str());
        } else if (iField == 15) {
            llStime = std::atoll(strField.c_str());
        }
    }
    return llUtime + llStime;
}

long RssKiB(pid_t iPid) {
    std::ifstream stIn("/proc/" + std::to_string(iPid) + "/status");
    for (std::string strLine; std::getline(stIn, strLine);) {
        if (strLine.rfind("VmRSS:", 0) == 0) {
            return std::atol(strLine.c_str() + 6);
        }
    }
    return -1;
}

bool SendPortUp(const std::string& strRuntime) {
    int iFd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (iFd < 0) {
        return false;
    }
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::string strPath = strRuntime + "/eventmibd-port.sock";
    snprintf(stAddr.sun_path, sizeof(stAddr.sun_path), "%s", strPath.c_str());
    bool bSent = sendto(iFd, "up", 2, 0, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) == 2;
    close(iFd);
    return bSent;
}

// A counter of the private snmpd (the client configuration of this process):
// snmpInPkts, or with pszOid another one.
long InPkts(const std::string& strDir, uint16_t usPort, const char* pszOid = kInPkts) {
    std::string strOut;
    if (Run({"/usr/bin/snmpget", "-Oqv", "127.0.0.1:" + std::to_string(usPort), pszOid},
            strDir + "/snmpget.out", 5000, &strOut) != 0) {
        return -1;
    }
    return std::atol(strOut.c_str());
}

int Fail(const char* pszWhat, mte_test::DaemonProcess* pstDaemon) {
    fprintf(stderr, "bench_engine_idle: %s\n", pszWhat);
    if (pstDaemon != nullptr) {
        fprintf(stderr, "--- eventmibd:\n%s", pstDaemon->Stderr().c_str());
    }
    return 1;
}

}  // namespace

int main(int iArgc, char** ppszArgv) {
    const int iTriggers = iArgc > 1 ? std::atoi(ppszArgv[1]) : 10000;
    const int iSeconds = iArgc > 2 ? std::atoi(ppszArgv[2]) : 60;
    const int iFrequency = iArgc > 3 ? std::atoi(ppszArgv[3]) : 600;
    if (iTriggers <= 0 || iSeconds <= 0 || iSeconds > 600 || iFrequency <= 0) {
        fprintf(stderr, "usage: bench_engine_idle [TRIGGERS [SECONDS (1-600) [FREQUENCY]]]\n");
        return 2;
    }
    mte_test::SnmpdHarness stSnmpd;
    std::string strError;
    if (!stSnmpd.Start(&strError, 15000)) {
        return Fail(strError.c_str(), nullptr);
    }
    if (!stSnmpd.UseClientConfig(mte_test::ClientSecurity::V3_AUTH_PRIV)) {
        return Fail("client configuration not written", nullptr);
    }
    mte_test::DaemonProcess stDaemon;
    if (!stDaemon.Start() || !stDaemon.WaitReady(15000)) {
        return Fail("eventmibd did not start", &stDaemon);
    }
    const pid_t iPid = stDaemon.Pid();
    const long lRssEmpty = RssKiB(iPid);

    // Configuration: one scenario, one connection. The thresholds lie around
    // the sampled value (5) so that no startup notification is due.
    std::string strScenario = stSnmpd.Dir() + "/triggers.ctl";
    {
        std::ofstream stOut(strScenario, std::ios::trunc);
        stOut << "set scalars sample-minimum=1\n";
        for (int iIndex = 0; iIndex < iTriggers; ++iIndex) {
            std::string strName = "name=t" + std::to_string(iIndex);
            stOut << "set trigger owner=bench " << strName << " valueid=" << kSampled
                  << " frequency=" << iFrequency << " test=threshold status=createAndWait\n"
                  << "set threshold owner=bench " << strName << " rising=10 falling=1\n"
                  << "set trigger owner=bench " << strName << " status=active\n";
        }
    }
    const std::string strCtl = MTE_EVENTMIBCTL_PATH;
    const std::string strSock = stDaemon.RuntimeDir() + "/eventmibd.sock";
    int64_t llStart = NowMs();
    std::string strOut;
    int iStatus = Run({strCtl, "-s", strSock, "-t", "30", "-f", strScenario},
                      stSnmpd.Dir() + "/ctl.out", 900000, &strOut);
    const int64_t llConfigMs = NowMs() - llStart;
    if (iStatus != 0) {
        fprintf(stderr, "%.2000s\n", strOut.c_str());
        return Fail("configuration failed", &stDaemon);
    }
    const long lRssConfigured = RssKiB(iPid);

    // Port up, then wait for the first samples: snmpd's packet count stops
    // growing (checked every 2 s) and the daemon's CPU settles, bounded by
    // five minutes. A check costs packets of its own (an SNMPv3 get may need
    // a discovery first): measured before the port comes up.
    const long lPktsProbe = InPkts(stSnmpd.Dir(), stSnmpd.Port());
    const long lPktsBefore = InPkts(stSnmpd.Dir(), stSnmpd.Port());
    const long lPerCheck = lPktsBefore - lPktsProbe;
    if (!SendPortUp(stDaemon.RuntimeDir())) {
        return Fail("port-up datagram not sent", &stDaemon);
    }
    llStart = NowMs();
    long lPkts = lPktsBefore;
    long lChecks = 0;
    long long llTicks = CpuTicks(iPid);
    for (;;) {
        std::this_thread::sleep_for(std::chrono::seconds(2));
        long lNow = InPkts(stSnmpd.Dir(), stSnmpd.Port());
        ++lChecks;
        long long llTicksNow = CpuTicks(iPid);
        bool bSettled = lNow - lPkts <= lPerCheck + 1 && llTicksNow - llTicks <= 2;
        lPkts = lNow;
        llTicks = llTicksNow;
        // A short frequency never lets snmpd go quiet: two periods and a
        // check are enough for every trigger's first sample and its timer.
        bool bShortFrequency = iFrequency <= 10 && NowMs() - llStart > 2000L * iFrequency;
        if (bSettled || bShortFrequency || NowMs() - llStart > 300000) {
            break;
        }
    }
    const long lSampled = lPkts - lPktsBefore - lChecks * lPerCheck;
    const int64_t llFirstMs = NowMs() - llStart;
    const long lRssSampled = RssKiB(iPid);

    // The idle window.
    const long lPktsWindow = InPkts(stSnmpd.Dir(), stSnmpd.Port());
    const long lGetsWindow = InPkts(stSnmpd.Dir(), stSnmpd.Port(), kInGets);
    const long long llTicksStart = CpuTicks(iPid);
    const int64_t llWindowStart = NowMs();
    std::this_thread::sleep_for(std::chrono::seconds(iSeconds));
    const long long llTicksEnd = CpuTicks(iPid);
    const double dWindowS = static_cast<double>(NowMs() - llWindowStart) / 1000.0;
    const long lRssIdle = RssKiB(iPid);
    // The get requests of the window: the samples, and the first reading's
    // own get after it was counted.
    const long lWindowGets = InPkts(stSnmpd.Dir(), stSnmpd.Port(), kInGets) - lGetsWindow - 1;
    const long lWindowPkts = InPkts(stSnmpd.Dir(), stSnmpd.Port()) - lPktsWindow - 3 * lPerCheck;
    const double dCpuS =
        static_cast<double>(llTicksEnd - llTicksStart) / static_cast<double>(sysconf(_SC_CLK_TCK));

    printf("triggers                        %d\n", iTriggers);
    printf("configuration (eventmibctl -f)  %.1f s (%.0f rows/s)\n", llConfigMs / 1000.0,
           iTriggers * 1000.0 / static_cast<double>(llConfigMs));
    printf("first samples (snmpd requests)  about %ld in %.1f s\n", lSampled, llFirstMs / 1000.0);
    printf("frequency                       %d s\n", iFrequency);
    printf("idle window                     %.1f s, snmpd requests in it %ld\n", dWindowS,
           lWindowPkts);
    printf("daemon CPU while idle           %.3f s = %.3f %% of a core\n", dCpuS,
           100.0 * dCpuS / dWindowS);
    const double dExpected = iTriggers * dWindowS / iFrequency;
    printf("samples in window (get requests) %ld of %.0f expected (%.1f %%)\n", lWindowGets,
           dExpected, 100.0 * static_cast<double>(lWindowGets) / dExpected);
    printf("VmRSS empty / configured / sampled / idle   %.1f / %.1f / %.1f / %.1f MiB\n",
           lRssEmpty / 1024.0, lRssConfigured / 1024.0, lRssSampled / 1024.0, lRssIdle / 1024.0);
    printf("VmRSS per 1,000 triggers        %.2f MiB\n",
           (lRssIdle - lRssEmpty) / 1024.0 / (iTriggers / 1000.0));

    // Triggers holding a sample: each single trigger sampled at least once
    // keeps one instance.
    std::string strScalars;
    if (Run({strCtl, "-s", strSock, "get", "scalars"}, stSnmpd.Dir() + "/scalars.out", 10000,
            &strScalars) == 0) {
        printf("--- eventmibctl get scalars\n%s", strScalars.c_str());
    }
    // The shortfall traces (the first at once, then one a minute).
    std::istringstream stLog(stDaemon.Stderr());
    for (std::string strLine; std::getline(stLog, strLine);) {
        if (strLine.find("Ln:2291") != std::string::npos) {
            printf("%s\n", strLine.c_str());
        }
    }

    stDaemon.Signal(SIGRTMIN + 1);
    int iExit = 0;
    if (!stDaemon.WaitExit(30000, &iExit)) {
        return Fail("eventmibd did not stop", &stDaemon);
    }
    stSnmpd.Stop();
    return 0;
}
