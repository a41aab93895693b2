// Management requests per second from one client over the socket, side by
// side with a bare SOCK_SEQPACKET echo server on the same machine: the ratio
// shows what the daemon's check, dispatch and table work cost on top of the
// transport. The echo server runs in its own process, like the daemon, and
// sends back a reply of the size the daemon would send.
//
// Run: bench_channel [--benchmark_min_time=2]. The daemon is started with
// temporary directories and stopped at the end.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "stack.h"
#include "mte_cfg.h"
#include "mte_msg.h"

namespace {

std::unique_ptr<mte_test::DaemonProcess> g_pDaemon;
std::string g_strEchoPath;
pid_t g_iEchoPid = -1;
std::map<std::string, double> g_mapEchoRate;  // per request kind

// A reply of the size the daemon sends for a row: header, item head, record.
constexpr size_t ROW_REPLY_LEN = 20 + 8 + sizeof(MTE_TRIGGER_ROW_S);
constexpr size_t SET_REPLY_LEN = 20;

[[noreturn]] void EchoServe(int iListen) {
    // One client at a time is all the benchmark uses.
    for (;;) {
        int iConn = accept(iListen, nullptr, nullptr);
        if (iConn < 0) {
            continue;
        }
        uint8_t aucBuf[MTE_MSG_MAX_LEN];
        ssize_t lLen;
        while ((lLen = recv(iConn, aucBuf, sizeof(aucBuf), 0)) > 0) {
            // The first byte after the header tells the reply size wanted.
            size_t uiReply = aucBuf[lLen - 1] == 1 ? SET_REPLY_LEN : ROW_REPLY_LEN;
            (void)send(iConn, aucBuf, uiReply, MSG_NOSIGNAL);
        }
        close(iConn);
    }
}

bool StartEcho(const std::string& strDir) {
    g_strEchoPath = strDir + "/echo.sock";
    int iListen = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    strcpy(stAddr.sun_path, g_strEchoPath.c_str());
    if (bind(iListen, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0 ||
        listen(iListen, 16) != 0) {
        return false;
    }
    g_iEchoPid = fork();
    if (g_iEchoPid == 0) {
        EchoServe(iListen);
    }
    close(iListen);
    return g_iEchoPid > 0;
}

bool Setup() {
    g_pDaemon = std::make_unique<mte_test::DaemonProcess>();
    if (!g_pDaemon->Start() || !g_pDaemon->WaitReady(10000)) {
        fprintf(stderr, "bench_channel: eventmibd did not start:\n%s\n",
                g_pDaemon->Stderr().c_str());
        return false;
    }
    // Ten triggers, so that get and get-next find their row among others.
    mte_test::ChannelClient stClient;
    if (!stClient.Connect(g_pDaemon->RuntimeDir() + "/eventmibd.sock")) {
        return false;
    }
    for (int i = 0; i < 10; i++) {
        MTE_TRIGGER_ROW_S stRow{};
        snprintf(stRow.szOwner, sizeof(stRow.szOwner), "owner");
        snprintf(stRow.szName, sizeof(stRow.szName), "trigger%d", i);
        stRow.stValueID.uiLen = 9;
        const uint32_t auiOid[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
        memcpy(stRow.stValueID.auiOid, auiOid, sizeof(auiOid));
        stRow.uiFrequency = 600;
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
        if (!stClient.Request(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET,
                              MTE_COLUMN_BIT(8) | MTE_COLUMN_BIT(12) | MTE_COLUMN_BIT(15),
                              MTE_ITEM_TRIGGER, &stRow) ||
            stClient.stReply.uiResult != MTE_OK) {
            fprintf(stderr, "bench_channel: cannot create the triggers\n");
            return false;
        }
    }
    return StartEcho(g_pDaemon->Root());
}

void Teardown() {
    if (g_iEchoPid > 0) {
        kill(g_iEchoPid, SIGKILL);
        waitpid(g_iEchoPid, nullptr, 0);
    }
    if (g_pDaemon) {
        int iStatus;
        g_pDaemon->Signal(SIGRTMIN + 1);
        g_pDaemon->WaitExit(10000, &iStatus);
        g_pDaemon.reset();
    }
}

// The three requests measured: get of the fifth trigger, get-next after the
// fourth, and a set that flips the comment of the fifth (a stored write).
std::vector<uint8_t> BuildRequest(const std::string& strKind, uint32_t uiSeq, bool bFlip) {
    std::vector<uint8_t> vecMsg(MTE_MSG_MAX_LEN);
    uint32_t uiLen;
    if (strKind == "get-next") {
        MTE_INDEX_KEY_S stKey{};
        stKey.uiOwnerLen = 5;
        strcpy(stKey.szOwner, "owner");
        strcpy(stKey.szName, "trigger4");
        uiLen = MTE_MSG_BuildRequest(uiSeq, MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET_NEXT, 0,
                                     MTE_ITEM_TRIGGER_KEY, &stKey, vecMsg.data(), vecMsg.size());
    } else {
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, "owner");
        strcpy(stRow.szName, "trigger5");
        strcpy(stRow.szComment, bFlip ? "a" : "b");
        bool bSet = strKind == "set";
        uiLen = MTE_MSG_BuildRequest(
            uiSeq, MTE_MSG_TYPE_TRIGGER, bSet ? MTE_MSG_OP_SET : MTE_MSG_OP_GET,
            bSet ? MTE_COLUMN_BIT(3) : 0, MTE_ITEM_TRIGGER, &stRow, vecMsg.data(), vecMsg.size());
    }
    vecMsg.resize(uiLen);
    // Tells the echo server which reply size to imitate (the last byte of a
    // request is padding of the record and otherwise zero).
    vecMsg.back() = strKind == "set" ? 1 : 0;
    return vecMsg;
}

void RunRequests(benchmark::State& stState, const std::string& strKind, bool bEcho) {
    mte_test::ChannelClient stClient;
    std::string strPath = bEcho ? g_strEchoPath : g_pDaemon->RuntimeDir() + "/eventmibd.sock";
    if (!stClient.Connect(strPath)) {
        stState.SkipWithError("cannot connect");
        return;
    }
    std::vector<uint8_t> vecA = BuildRequest(strKind, 1, true);
    std::vector<uint8_t> vecB = BuildRequest(strKind, 1, false);
    uint8_t aucReply[MTE_MSG_MAX_LEN];
    bool bFlip = false;
    for (auto _ : stState) {
        const std::vector<uint8_t>& vecMsg = bFlip ? vecA : vecB;
        bFlip = !bFlip;
        if (send(stClient.Fd(), vecMsg.data(), vecMsg.size(), 0) !=
                static_cast<ssize_t>(vecMsg.size()) ||
            recv(stClient.Fd(), aucReply, sizeof(aucReply), 0) < 20) {
            stState.SkipWithError("exchange failed");
            return;
        }
        if (!bEcho) {
            uint32_t uiResult;
            memcpy(&uiResult, aucReply + 8, 4);
            if (uiResult != MTE_OK) {
                stState.SkipWithError(MTE_MSG_ResultName(uiResult));
                return;
            }
        }
    }
    double dRate = static_cast<double>(stState.iterations());
    stState.counters["req/s"] = benchmark::Counter(dRate, benchmark::Counter::kIsRate);
    if (bEcho) {
        stState.counters["echo_ratio"] = 1.0;
    }
}

void BM_Echo(benchmark::State& stState, const char* pszKind) {
    RunRequests(stState, pszKind, true);
}

void BM_Daemon(benchmark::State& stState, const char* pszKind) {
    RunRequests(stState, pszKind, false);
}

// Prints the ratios once all runs are done.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& vecRuns) override {
        for (const Run& stRun : vecRuns) {
            std::string strName = stRun.benchmark_name();
            double dRate = stRun.iterations / stRun.real_accumulated_time;
            mapRates[strName] = dRate;
        }
        ConsoleReporter::ReportRuns(vecRuns);
    }
    void PrintRatios() {
        printf("\nrequests per second, daemon vs bare echo (same client, same sizes):\n");
        for (const char* pszKind : {"get", "get_next", "set"}) {
            double dEcho = Rate(std::string("BM_Echo/") + pszKind);
            double dDaemon = Rate(std::string("BM_Daemon/") + pszKind);
            printf("  %-9s daemon %9.0f/s  echo %9.0f/s  ratio %.2f\n", pszKind, dDaemon, dEcho,
                   dEcho > 0 ? dDaemon / dEcho : 0.0);
        }
    }

  private:
    double Rate(const std::string& strPrefix) {
        for (const auto& [strName, dRate] : mapRates) {
            if (strName.rfind(strPrefix, 0) == 0) {
                return dRate;
            }
        }
        return 0;
    }
    std::map<std::string, double> mapRates;
};

}  // namespace

BENCHMARK_CAPTURE(BM_Echo, get, "get")->UseRealTime();
BENCHMARK_CAPTURE(BM_Daemon, get, "get")->UseRealTime();
BENCHMARK_CAPTURE(BM_Echo, get_next, "get-next")->UseRealTime();
BENCHMARK_CAPTURE(BM_Daemon, get_next, "get-next")->UseRealTime();
BENCHMARK_CAPTURE(BM_Echo, set, "set")->UseRealTime();
BENCHMARK_CAPTURE(BM_Daemon, set, "set")->UseRealTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!Setup()) {
        Teardown();
        return 1;
    }
    RatioReporter stReporter;
    benchmark::RunSpecifiedBenchmarks(&stReporter);
    stReporter.PrintRatios();
    Teardown();
    benchmark::Shutdown();
    return 0;
}
