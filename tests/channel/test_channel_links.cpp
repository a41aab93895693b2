// The trap-switch and port-service links in process, on the real Linux
// pieces: the switch file watched through the main epoll set, port events as
// datagrams with sender credentials, and the platform functions' refusals.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "mte_core.h"
#include "mte_tarn.h"
#include "mte_timer.h"
#include "plat_paths.h"
#include "plat_port.h"
#include "plat_trapswitch.h"
#include "stack.h"

namespace {

// Private runtime and state directories: the harness's, no process started.
class ChannelLinksTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { ASSERT_EQ(mte_EPOLL_Init(), 0u); }

    void TearDown() override {
        mte_TARN_Fini();
        mte_TARN_Fini();  // the second call finds nothing to close
        mte_TIMER_SetPortFlag(0);
        mte_EPOLL_Fini();
    }

    // Serves the main epoll set until the condition holds or iMs have passed.
    static bool PumpUntil(const std::function<bool()>& pfDone, int iMs = 3000) {
        for (int i = 0; i < iMs / 10 && !pfDone(); i++) {
            pollfd stPoll{mte_EPOLL_GetEpollFd(), POLLIN, 0};
            if (poll(&stPoll, 1, 10) == 1) {
                (void)mte_EPOLL_WaitAndDispatch(4);
            }
        }
        return pfDone();
    }
    static void Pump(int iMs) {
        PumpUntil([] { return false; }, iMs);
    }
};

// The stored switch applies at start, the flag follows the file as it is
// written, and the platform's reader refuses what it cannot use.
TEST_F(ChannelLinksTest, TrapFlagFollowsTheSwitchFile) {
    ASSERT_EQ(mte_TARN_Init(), 0u);
    EXPECT_EQ(mte_TARN_TrapSwt(), 1u) << "no file: notifications on";
    mte_TARN_Fini();
    ASSERT_EQ(SNMP_TrapSwitch_Write("event-mib", SNMP_TRAPSWITCH_OFF), 0u);
    ASSERT_EQ(mte_TARN_Init(), 0u);
    EXPECT_EQ(mte_TARN_TrapSwt(), 0u);

    ASSERT_EQ(SNMP_TrapSwitch_Write("event-mib", SNMP_TRAPSWITCH_ON), 0u);
    EXPECT_TRUE(PumpUntil([] { return mte_TARN_TrapSwt() == 1; }));
    ASSERT_EQ(SNMP_TrapSwitch_Write("event-mib", SNMP_TRAPSWITCH_OFF), 0u);
    ASSERT_TRUE(PumpUntil([] { return mte_TARN_TrapSwt() == 0; }));
    // Written in place by hand, then removed (absent = on).
    std::ofstream(PLAT_TrapSwitchPath()) << "garbage\n";
    Pump(200);
    EXPECT_EQ(mte_TARN_TrapSwt(), 0u) << "unreadable text keeps the switch";
    std::filesystem::remove(PLAT_TrapSwitchPath());
    EXPECT_TRUE(PumpUntil([] { return mte_TARN_TrapSwt() == 1; }));
    // Other files of the state directory do not count.
    std::ofstream(m_stDaemon.StateDir() + "/other") << "off\n";
    Pump(100);
    EXPECT_EQ(mte_TARN_TrapSwt(), 1u);
    std::filesystem::remove(m_stDaemon.StateDir() + "/other");

    SNMP_TRAPSWITCH_S stRecord{};
    stRecord.ulState = 77;
    EXPECT_NE(SNMP_TrapSwitch_Get("other-mib", &stRecord), 0u);
    EXPECT_NE(SNMP_TrapSwitch_Write("other-mib", SNMP_TRAPSWITCH_OFF), 0u);
    std::ofstream(PLAT_TrapSwitchPath()) << "maybe\n";
    EXPECT_NE(SNMP_TrapSwitch_Get("event-mib", &stRecord), 0u);
    EXPECT_EQ(stRecord.ulState, 77u) << "a failed read leaves the record alone";
    std::ofstream(PLAT_TrapSwitchPath()) << "off";
    ASSERT_EQ(SNMP_TrapSwitch_Get("event-mib", &stRecord), 0u);
    EXPECT_EQ(stRecord.ulState, SNMP_TRAPSWITCH_OFF);
    EXPECT_EQ(stRecord.szText[0], '\0');
    // No temporary file is left behind by a write.
    ASSERT_EQ(SNMP_TrapSwitch_Write("event-mib", SNMP_TRAPSWITCH_ON), 0u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_stDaemon.StateDir()), {}), 1);
}

TEST_F(ChannelLinksTest, ManagementSocketFailureStillRegistersTheTrapSwitch) {
    setenv("RUNTIME_DIRECTORY", (m_stDaemon.Root() + "/" + std::string(120, 'x')).c_str(), 1);
    EXPECT_EQ(mte_TARN_Init(), MTE_ERR_GENERAL);
    ASSERT_EQ(SNMP_TrapSwitch_Write("event-mib", SNMP_TRAPSWITCH_OFF), 0u);
    EXPECT_TRUE(PumpUntil([] { return mte_TARN_TrapSwt() == 0; }));
    EXPECT_EQ(mte_GetTarnSocketNum(), 0u);
}

TEST_F(ChannelLinksTest, PortEventsStartAndSuspendSampling) {
    // That a bridge already running is asked for the status on subscription
    // is AgentxEndToEnd.PortStatusFollowsTheBridgeAndLateSubscribersAsk's.
    ASSERT_EQ(mte_SNMP_RegService(), 0u);
    struct stat stInfo;
    ASSERT_EQ(stat(PLAT_PortSocketPath().c_str(), &stInfo), 0);
    EXPECT_EQ(stInfo.st_mode & 0777, 0660u);

    const std::string strPort = PLAT_PortSocketPath();
    ASSERT_TRUE(mte_test::SendDatagram(strPort, "up\n", 3));
    EXPECT_TRUE(PumpUntil([] { return mte_TIMER_GetPortFlag() == 1; }));
    SERVICE_PORT_EVENT_S stDown{0, SERVICE_PORT_DOWN, 0};
    ASSERT_TRUE(mte_test::SendDatagram(strPort, &stDown, sizeof(stDown)));
    EXPECT_TRUE(PumpUntil([] { return mte_TIMER_GetPortFlag() == 0; }));
    // Neither text nor record: ignored.
    ASSERT_TRUE(mte_test::SendDatagram(strPort, "sideways", 8));
    SERVICE_PORT_EVENT_S stOdd{0, 9, 0};
    ASSERT_TRUE(mte_test::SendDatagram(strPort, &stOdd, sizeof(stOdd)));
    Pump(100);
    EXPECT_EQ(mte_TIMER_GetPortFlag(), 0u);
    ASSERT_TRUE(mte_test::SendDatagram(strPort, "up", 2));
    EXPECT_TRUE(PumpUntil([] { return mte_TIMER_GetPortFlag() == 1; }));
    ASSERT_TRUE(mte_test::SendDatagram(strPort, "down", 4));
    EXPECT_TRUE(PumpUntil([] { return mte_TIMER_GetPortFlag() == 0; }));
    if (geteuid() == 0) {  // another user's "up" is ignored
        ASSERT_EQ(mte_test::AsNobodyOn(
                      strPort, [&] { return mte_test::SendDatagram(strPort, "up", 2) ? 0 : 2; }),
                  0);
        Pump(200);
        EXPECT_EQ(mte_TIMER_GetPortFlag(), 0u);
    }
    mte_TIMER_Fini();
}

}  // namespace
