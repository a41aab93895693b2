// The daemon as a process: ready report, a stop that drains open management
// connections and ends with status 0 however many stop signals arrive,
// SIGTERM left to its default action, and status 255 with exactly one trace
// when an initialiser fails.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "stack.h"

namespace {

using mte_test::ChannelClient;
using mte_test::DaemonProcess;

constexpr const char* INIT_FAILED_TRACE = "Ln: 107 Failed to initialize Event-MIB module.";

TEST(ProcessTest, StopDrainsTheOpenConnectionAndTerminateIsNotCaught) {
    DaemonProcess stDaemon;
    ASSERT_TRUE(stDaemon.StartReady()) << stDaemon.Stderr();
    ChannelClient stConn;
    ASSERT_TRUE(stConn.Connect(stDaemon.SocketPath()));
    usleep(200 * 1000);  // let the daemon accept it before the stop arrives

    int iStatus = 0;
    for (int i = 0; i < 2; i++) {  // a second stop signal neither ends the drain nor harms
        ASSERT_TRUE(stDaemon.Signal(SIGRTMIN + 1));
        EXPECT_FALSE(stDaemon.WaitExit(300, &iStatus)) << "stopped with a connection open";
    }
    stConn.Close();
    EXPECT_EQ(stDaemon.Stop(false), 0) << stDaemon.Stderr();
    EXPECT_EQ(stDaemon.CountStderr(INIT_FAILED_TRACE), 0u);

    // SIGTERM is left to its default action.
    ASSERT_TRUE(stDaemon.StartReady()) << stDaemon.Stderr();
    ASSERT_TRUE(stDaemon.Signal(SIGTERM));
    ASSERT_TRUE(stDaemon.WaitExit(10000, &iStatus));
    ASSERT_TRUE(WIFSIGNALED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WTERMSIG(iStatus), SIGTERM);
}

TEST(ProcessTest, BrokenDirectoryEndsTheStartWithStatus255AndOneTrace) {
    for (bool bStateDir : {true, false}) {
        SCOPED_TRACE(bStateDir ? "state directory is a file" : "runtime directory is a file");
        DaemonProcess stDaemon;
        std::string strFile = stDaemon.Root() + "/not-a-directory";
        std::ofstream(strFile) << "x\n";
        if (bStateDir) {
            stDaemon.SetStateDir(strFile);
        } else {
            stDaemon.SetRuntimeDir(strFile);
        }
        ASSERT_TRUE(stDaemon.Start());
        EXPECT_FALSE(stDaemon.WaitReady(10000)) << "reported ready with a broken directory";
        EXPECT_EQ(stDaemon.Stop(false), 255);
        EXPECT_EQ(stDaemon.CountStderr(INIT_FAILED_TRACE), 1u) << stDaemon.Stderr();
    }
}

}  // namespace
