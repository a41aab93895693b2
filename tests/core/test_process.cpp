// The daemon as a process: ready report, stop on SIGRTMIN+1 with status 0,
// SIGTERM left to its default action, and status 255 with exactly one trace
// when an initialiser fails.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <fstream>
#include <string>

#include "core/daemon_process.h"

namespace {

constexpr int READY_MS = 10000;
constexpr int EXIT_MS = 10000;
constexpr const char* INIT_FAILED_TRACE = "Ln: 107 Failed to initialize Event-MIB module.";

int StopSignal() {
    return SIGRTMIN + 1;
}

TEST(ProcessTest, StopSignalEndsTheDaemonWithStatusZero) {
    MteDaemonProcess stDaemon;
    ASSERT_TRUE(stDaemon.Start());
    ASSERT_TRUE(stDaemon.WaitReady(READY_MS)) << stDaemon.Stderr();
    ASSERT_TRUE(stDaemon.Signal(StopSignal()));
    int iStatus = 0;
    ASSERT_TRUE(stDaemon.WaitExit(EXIT_MS, &iStatus));
    ASSERT_TRUE(WIFEXITED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WEXITSTATUS(iStatus), 0) << stDaemon.Stderr();
    EXPECT_EQ(stDaemon.CountStderr(INIT_FAILED_TRACE), 0u);
}

TEST(ProcessTest, SecondStopSignalWhileStoppingIsHarmless) {
    MteDaemonProcess stDaemon;
    ASSERT_TRUE(stDaemon.Start());
    ASSERT_TRUE(stDaemon.WaitReady(READY_MS)) << stDaemon.Stderr();
    ASSERT_TRUE(stDaemon.Signal(StopSignal()));
    (void)stDaemon.Signal(StopSignal());  // may find the daemon already gone
    int iStatus = 0;
    ASSERT_TRUE(stDaemon.WaitExit(EXIT_MS, &iStatus));
    ASSERT_TRUE(WIFEXITED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WEXITSTATUS(iStatus), 0) << stDaemon.Stderr();
}

// With a management connection open the daemon drains: it stays up through
// any number of stop signals until the connection closes, then exits 0.
TEST(ProcessTest, StopWaitsForTheOpenManagementConnection) {
    MteDaemonProcess stDaemon;
    ASSERT_TRUE(stDaemon.Start());
    ASSERT_TRUE(stDaemon.WaitReady(READY_MS)) << stDaemon.Stderr();

    int iConn = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_GE(iConn, 0);
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    std::string strPath = stDaemon.RuntimeDir() + "/eventmibd.sock";
    ASSERT_LT(strPath.size(), sizeof(stAddr.sun_path));
    strcpy(stAddr.sun_path, strPath.c_str());
    ASSERT_EQ(connect(iConn, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)), 0)
        << strerror(errno);
    // Let the daemon accept the connection before the stop arrives.
    usleep(200 * 1000);

    ASSERT_TRUE(stDaemon.Signal(StopSignal()));
    int iStatus = 0;
    EXPECT_FALSE(stDaemon.WaitExit(300, &iStatus)) << "stopped with a connection open";
    ASSERT_TRUE(stDaemon.Signal(StopSignal()));
    EXPECT_FALSE(stDaemon.WaitExit(300, &iStatus)) << "second stop signal ended the drain";

    (void)close(iConn);
    ASSERT_TRUE(stDaemon.WaitExit(EXIT_MS, &iStatus));
    ASSERT_TRUE(WIFEXITED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WEXITSTATUS(iStatus), 0) << stDaemon.Stderr();
}

TEST(ProcessTest, TerminateSignalIsNotCaught) {
    MteDaemonProcess stDaemon;
    ASSERT_TRUE(stDaemon.Start());
    ASSERT_TRUE(stDaemon.WaitReady(READY_MS)) << stDaemon.Stderr();
    ASSERT_TRUE(stDaemon.Signal(SIGTERM));
    int iStatus = 0;
    ASSERT_TRUE(stDaemon.WaitExit(EXIT_MS, &iStatus));
    ASSERT_TRUE(WIFSIGNALED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WTERMSIG(iStatus), SIGTERM);
}

struct FAILING_DIR_S {
    const char* pszName;
    bool bStateDir;  // else the runtime directory
};

void PrintTo(const FAILING_DIR_S& stCase, std::ostream* pstOut) {
    *pstOut << stCase.pszName;
}

class FailedStartTest : public ::testing::TestWithParam<FAILING_DIR_S> {};

TEST_P(FailedStartTest, EndsWithStatus255AndOneTrace) {
    const FAILING_DIR_S& stCase = GetParam();
    MteDaemonProcess stDaemon;
    std::string strFile = stDaemon.Root() + "/not-a-directory";
    std::ofstream(strFile) << "x\n";
    if (stCase.bStateDir) {
        stDaemon.SetStateDir(strFile);
    } else {
        stDaemon.SetRuntimeDir(strFile);
    }
    ASSERT_TRUE(stDaemon.Start());
    EXPECT_FALSE(stDaemon.WaitReady(EXIT_MS)) << "reported ready with a broken directory";
    int iStatus = 0;
    if (!stDaemon.WaitExit(EXIT_MS, &iStatus)) {
        FAIL() << "still running with a broken directory";
    }
    ASSERT_TRUE(WIFEXITED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WEXITSTATUS(iStatus), 255);
    EXPECT_EQ(stDaemon.CountStderr(INIT_FAILED_TRACE), 1u) << stDaemon.Stderr();
}

INSTANTIATE_TEST_SUITE_P(BrokenDirectory, FailedStartTest,
                         ::testing::Values(FAILING_DIR_S{"StateDirIsAFile", true},
                                           FAILING_DIR_S{"RuntimeDirIsAFile", false}),
                         [](const auto& stInfo) { return std::string(stInfo.param.pszName); });

}  // namespace
