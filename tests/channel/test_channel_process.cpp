// The real eventmibd as a process, driven over its management socket with
// eventmibctl and with the message library: every message type, index order,
// a configuration that survives a restart, bad input after which the daemon
// still answers, holds no extra descriptor and has changed no stored row;
// peers of another user refused; stops that drain open connections; a start
// on a broken directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "mte_cfg.h"
#include "mte_msg.h"
#include "stack.h"

namespace {

using ::testing::HasSubstr;

using mte_test::ChannelClient;
using mte_test::ToolRun;

constexpr const char* INIT_FAILED_TRACE = "Ln: 107 Failed to initialize Event-MIB module.";

class ChannelProcessTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { MTE_START_STACK(*this, mte_test::DAEMON); }

    std::string SocketPath() const { return m_stDaemon.SocketPath(); }
    bool StopDaemon() { return m_stDaemon.Stop() == 0; }

    // The daemon closes connections on its own time.
    bool FdCountReturnsTo(size_t uiExpected) {
        return mte_test::WaitUntil([&] { return m_stDaemon.FdCount() == uiExpected; }, 3000);
    }
};

// Owners and names chosen so that index order differs from plain byte order.
const char* const SCENARIO = R"(# three owners: index order is b, aa, ab (length first)
set trigger owner=ab name=t1 valueid=1.3.6.1.2.1.1.3.0 frequency=60 test=threshold status=createAndWait
set trigger owner=b name=t1 valueid=1.3.6.1.2.1.2.2.1.10 wildcard=true frequency=30 test=existence,boolean status=createAndWait
set trigger owner=aa name=zz valueid=1.3.6.1.2.1.1.5.0 frequency=90 comment="watch the name" status=createAndWait
set threshold owner=ab name=t1 rising=100 falling=10
set boolean owner=b name=t1 comparison=greater value=5
set existence owner=b name=t1 test=present,changed
set objects owner=b name=grp index=2 id=1.3.6.1.2.1.1.1.0 status=createAndGo
set objects owner=b name=grp index=1 id=1.3.6.1.2.1.1.5.0 status=createAndGo
set objects owner=b name=g index=7 id=1.3.6.1.2.1.1.6.0 status=createAndGo
set event owner=ab name=e1 actions=notification,set comment="two actions" status=createAndWait
set event owner=b name=e0 status=createAndWait
set notification owner=ab name=e1 notification=1.3.6.1.4.1.99.0.1 objectsowner=ab objects=grp
set set owner=ab name=e1 object=1.3.6.1.4.1.99.1.0 value=42
set scalars sample-minimum=1 instance-maximum=500
debug enable err
)";

// True when the texts appear in the output, in this order.
bool InOrder(const std::string& strOut, const std::vector<std::string>& vecKeys) {
    size_t uiAt = 0;
    for (const std::string& strKey : vecKeys) {
        uiAt = strOut.find(strKey, uiAt);
        if (uiAt == std::string::npos) {
            return false;
        }
    }
    return true;
}

// A configuration written with eventmibctl walks in index order, is refused
// with the code and the failed column's name, shows names escaped, survives a
// restart, and bad input of every kind leaves it as it is.
TEST_F(ChannelProcessTest, ScenarioSurvivesRestartAndBadInputChangesNothing) {
    ToolRun stRun = CtlScenario(SCENARIO);
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    const std::pair<const char*, std::vector<std::string>> astWalks[] = {
        {"walk trigger", {"1.3.6.1.2.1.2.2.1.10", "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.3.0"}},
        {"get trigger owner=aa name=zz", {"watch the name"}},
        // Objects: name length first (g before grp), then the index.
        {"walk objects", {"1.3.6.1.2.1.1.6.0", "1.3.6.1.2.1.1.5.0", "1.3.6.1.2.1.1.1.0"}},
        {"walk event", {"\nb ", "\nab "}},
        // The sub-tables hold what the actions made.
        {"get notification owner=ab name=e1", {"1.3.6.1.4.1.99.0.1"}},
        {"get set owner=ab name=e1", {"42"}},
    };
    for (const auto& [pszCommand, vecKeys] : astWalks) {
        stRun = Ctl(pszCommand);
        EXPECT_EQ(stRun.iExit, 0) << stRun.strOut;
        EXPECT_TRUE(InOrder(stRun.strOut, vecKeys)) << pszCommand << ":\n" << stRun.strOut;
    }
    EXPECT_EQ(Ctl("debug get").strOut, "0x00000002 err\n");

    // An existing row refuses creation; a missing row is reported by name;
    // usage errors (exit 2) never reach the daemon.
    ASSERT_EQ(Ctl("set trigger owner=ab name=t1 status=active").iExit, 0);
    const std::pair<std::string, std::vector<std::string>> astRefusals[] = {
        {"set trigger owner=b name=t1 status=createAndGo", {"MTE_ERR_ROW_EXISTS", "(status)"}},
        {"set trigger owner=x name=y objectsowner=z status=createAndWait",
         {"MTE_ERR_INCONSISTENT", "failed column 13 (objectsowner)"}},
        {"get trigger owner=nobody name=none", {"MTE_ERR_GENERAL"}},
        {"set trigger owner=b name=t1 nosuchcolumn=1", {}},
        {"set trigger owner=b name=t1 valueid=1.x.3", {}},
        {"walk nosuchtable", {}},
        {"set trigger owner=" + std::string(33, 'o') + " name=t", {}},
    };
    for (const auto& [strCommand, vecKeys] : astRefusals) {
        stRun = Ctl(strCommand);
        EXPECT_EQ(stRun.iExit, vecKeys.empty() ? 2 : 1) << strCommand << "\n" << stRun.strOut;
        EXPECT_TRUE(InOrder(stRun.strOut, vecKeys)) << strCommand << "\n" << stRun.strOut;
    }
    // A scenario reports every failing line and exits non-zero.
    stRun = CtlScenario("get trigger owner=b name=t1\nget trigger owner=q name=q\nbogus\n");
    EXPECT_EQ(stRun.iExit, 1);
    EXPECT_TRUE(InOrder(stRun.strOut, {":2: failed", ":3: failed"})) << stRun.strOut;

    // Names set over SNMP may hold any byte: eventmibctl shows them escaped
    // (no byte reaches the terminal that could control it) and takes the
    // escaped form back as input.
    const struct {
        const char* pszName;
        const char* pszShown;
    } astNames[] = {
        {"\x1b[2J", "\\x1b[2J"},
        {"tab\there\n", "tab\\x09here\\x0a"},
        {"back\\slash", "back\\\\slash"},
        {"caf\xc3\xa9\x7f", "caf\\xc3\\xa9\\x7f"},
    };
    ChannelClient stClient;
    ASSERT_TRUE(stClient.Connect(SocketPath()));
    for (const auto& stCase : astNames) {
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, "esc");
        strcpy(stRow.szName, stCase.pszName);
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
        ASSERT_TRUE(stClient.Request(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, MTE_COLUMN_BIT(15),
                                     MTE_ITEM_TRIGGER, &stRow));
        ASSERT_EQ(stClient.stReply.uiResult, MTE_OK) << stCase.pszShown;
    }
    stClient.Close();  // an open connection would hold the stop below
    ToolRun stWalk = Ctl("walk trigger");
    ASSERT_EQ(stWalk.iExit, 0) << stWalk.strOut;
    for (unsigned char uc : stWalk.strOut) {
        ASSERT_TRUE(uc == '\n' || (uc >= 0x20 && uc < 0x7f)) << "raw byte " << int(uc);
    }
    for (const auto& stCase : astNames) {
        EXPECT_THAT(stWalk.strOut, HasSubstr(std::string(" ") + stCase.pszShown + " "));
        ToolRun stGet = Ctl(std::string("get trigger owner=esc name='") + stCase.pszShown + "'");
        EXPECT_EQ(stGet.iExit, 0) << stCase.pszShown << ": " << stGet.strOut;
    }
    EXPECT_EQ(Ctl("get trigger owner=esc name='a\\q'").iExit, 2) << "unknown escape";

    std::string strBefore = Snapshot();
    ASSERT_TRUE(StopDaemon()) << m_stDaemon.Stderr();
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    EXPECT_EQ(Snapshot(), strBefore);
    EXPECT_THAT(Ctl("get scalars").strOut, HasSubstr("instance-maximum          500"));

    // Malformed input gets its code (every shape's is MsgTest's), peers hang
    // up at any point, a hundred connect at once: nothing crashes, leaks or
    // changes.
    size_t uiFdsBefore = m_stDaemon.SettledFdCount();
    ASSERT_TRUE(stClient.Connect(SocketPath()));
    auto NowNs = [] { return static_cast<uint64_t>(mte_test::MonoMs()) * 1000000; };
    auto Create = [](const char* pszName, uint8_t* pucMsg) {
        MTE_TRIGGER_ROW_S stRow{};
        strcpy(stRow.szOwner, "x");
        strcpy(stRow.szName, pszName);
        stRow.uiEntryStatus = MTE_ROW_CREATE_AND_WAIT;
        return MTE_MSG_BuildRequest(7, MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_SET, MTE_COLUMN_BIT(15),
                                    MTE_ITEM_TRIGGER, &stRow, pucMsg, MTE_MSG_MAX_LEN);
    };
    auto Exists = [&](const char* pszName) {
        return Ctl(std::string("get trigger owner=x name=") + pszName).iExit == 0;
    };
    uint8_t aucGood[MTE_MSG_MAX_LEN];
    uint32_t uiGoodLen = Create("good", aucGood);
    struct {
        const char* pszName;
        size_t uiOffset;
        std::vector<uint8_t> vecPatch;
        size_t uiLen;
        uint32_t uiCode;
    } const astShapes[] = {
        {"bad magic", 0, {0, 0}, uiGoodLen, MTE_ERR_MSG_HEADER},
        {"truncated", 0, {}, uiGoodLen - 100, MTE_ERR_MSG_LENGTH},
        {"short header", 0, {}, 11, MTE_ERR_MSG_LENGTH},
    };
    for (const auto& c : astShapes) {
        SCOPED_TRACE(c.pszName);
        std::vector<uint8_t> vecMsg(aucGood, aucGood + uiGoodLen);
        std::copy(c.vecPatch.begin(), c.vecPatch.end(), vecMsg.begin() + c.uiOffset);
        vecMsg.resize(c.uiLen);
        ASSERT_TRUE(stClient.SendRaw(vecMsg.data(), vecMsg.size()));
        ASSERT_TRUE(stClient.ReceiveReply(c.uiLen >= 8 ? 7 : 0));
        EXPECT_EQ(stClient.stReply.uiResult, c.uiCode)
            << MTE_MSG_ResultName(stClient.stReply.uiResult);
        EXPECT_EQ(stClient.vecReply.size(), 20u);
    }

    // Oversized: cut to 5120 bytes by the daemon, then refused by length.
    std::vector<uint8_t> vecHuge(9000, 0);
    std::copy(aucGood, aucGood + 20, vecHuge.begin());
    ASSERT_TRUE(stClient.SendRaw(vecHuge.data(), vecHuge.size()));
    ASSERT_TRUE(stClient.ReceiveReply(7));
    EXPECT_EQ(stClient.stReply.uiResult, MTE_ERR_MSG_LENGTH);

    // An empty packet gets no reply, and the connection keeps working.
    ASSERT_TRUE(stClient.SendRaw("", 0));
    EXPECT_TRUE(stClient.Silent(200));
    ASSERT_TRUE(stClient.Request(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET));

    // Hang-ups: right after a request, with requests pending, and bare.
    for (int i = 0; i < 20; i++) {
        ChannelClient stShort;
        ASSERT_TRUE(stShort.Connect(SocketPath()));
        if (i % 2 == 0) {
            ASSERT_TRUE(stShort.SendRaw(aucGood, 20));
        }
    }
    // A peer that stops sending (half-close) is let go of.
    ChannelClient stHalf;
    ASSERT_TRUE(stHalf.Connect(SocketPath()));
    ASSERT_TRUE(stHalf.Request(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET));
    ASSERT_EQ(shutdown(stHalf.Fd(), SHUT_WR), 0);
    EXPECT_TRUE(stHalf.RecvRaw(2000).empty());
    // A hundred connections at once, each with one request.
    std::vector<ChannelClient> vecMany(100);
    for (auto& stConn : vecMany) {
        ASSERT_TRUE(stConn.Connect(SocketPath()));
    }
    for (auto& stConn : vecMany) {
        ASSERT_TRUE(stConn.Request(MTE_MSG_TYPE_TRIGGER, MTE_MSG_OP_GET_NEXT));
        EXPECT_EQ(stConn.stReply.uiResult, MTE_OK);
    }
    for (auto& stConn : vecMany) {
        stConn.Close();
    }
    stClient.Close();

    EXPECT_TRUE(FdCountReturnsTo(uiFdsBefore))
        << m_stDaemon.FdCount() << " descriptors, " << uiFdsBefore << " before";
    EXPECT_EQ(Snapshot(), strBefore);

    // A request that states how long it is good for is refused, not applied,
    // when read later; any other request is served even when its sender has
    // hung up by the time it is read.
    const int64_t llNever = -1;
    struct {
        const char* pszName;
        int64_t llLeftNs;  // llNever: the flag without its 8 bytes
        uint32_t uiCode;
    } const astExpiries[] = {
        {"past", -1000000, MTE_ERR_MSG_EXPIRED},
        {"future", 60000000000, MTE_OK},
        {"cut", llNever, MTE_ERR_MSG_HEADER},
    };
    ASSERT_TRUE(stClient.Connect(SocketPath()));
    uint8_t aucMsg[MTE_MSG_MAX_LEN];
    for (const auto& c : astExpiries) {
        SCOPED_TRACE(c.pszName);
        uint32_t uiLen = Create(c.pszName, aucMsg);
        if (c.llLeftNs == llNever) {
            aucMsg[3] |= MTE_MSG_FLAG_EXPIRY;
        } else {
            uiLen = MTE_MSG_AddExpiry(NowNs() + c.llLeftNs, aucMsg, uiLen, sizeof(aucMsg));
        }
        ASSERT_TRUE(stClient.SendRaw(aucMsg, uiLen));
        ASSERT_TRUE(stClient.ReceiveReply(7));
        EXPECT_EQ(stClient.stReply.uiResult, c.uiCode)
            << MTE_MSG_ResultName(stClient.stReply.uiResult);
        EXPECT_EQ(Exists(c.pszName), c.uiCode == MTE_OK);
    }

    // Sent and hung up while the daemon cannot read: both reach it with the
    // hang-up; the plain one is applied, the one that expired meanwhile not.
    ASSERT_TRUE(m_stDaemon.Signal(SIGSTOP));
    for (const char* pszName : {"hungup", "late"}) {
        ChannelClient stGone;
        ASSERT_TRUE(stGone.Connect(SocketPath()));
        uint32_t uiLen = Create(pszName, aucMsg);
        if (strcmp(pszName, "late") == 0) {
            uiLen = MTE_MSG_AddExpiry(NowNs() + 50000000, aucMsg, uiLen, sizeof(aucMsg));
        }
        ASSERT_TRUE(stGone.SendRaw(aucMsg, uiLen));
    }
    usleep(200 * 1000);
    ASSERT_TRUE(m_stDaemon.Signal(SIGCONT));
    EXPECT_TRUE(Exists("hungup"));
    EXPECT_FALSE(Exists("late"));
    EXPECT_FALSE(m_stDaemon.HasExited());
    stClient.Close();
    EXPECT_TRUE(StopDaemon()) << "stop with every connection closed";
}

// CPU time (user + system) the process has used, in milliseconds.
int64_t ProcessCpuMs(pid_t iPid) {
    clockid_t iClock;
    timespec stUsed{};
    (void)(clock_getcpuclockid(iPid, &iClock) == 0 && clock_gettime(iClock, &stUsed) == 0);
    return static_cast<int64_t>(stUsed.tv_sec) * 1000 + stUsed.tv_nsec / 1000000;
}

// Peers that never read their replies, or that hold every descriptor the
// daemon may open, cost neither a line per attempt nor a busy loop.
TEST_F(ChannelProcessTest, UnreadRepliesAndDescriptorExhaustionNeitherFloodNorSpin) {
    uint8_t aucRequest[32];
    uint32_t uiLen = MTE_MSG_BuildRequest(1, MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET, 0, 0, nullptr,
                                          aucRequest, sizeof(aucRequest));
    ChannelClient stDeaf;
    ASSERT_TRUE(stDeaf.Connect(SocketPath()));
    for (int i = 0; i < 3000; i++) {
        ASSERT_TRUE(stDeaf.SendRaw(aucRequest, uiLen)) << "request " << i;
    }
    int iUnread = 1;
    for (int i = 0; i < 500 && iUnread > 0; i++) {  // until the daemon has read them all
        usleep(10 * 1000);
        ASSERT_EQ(ioctl(stDeaf.Fd(), SIOCOUTQ, &iUnread), 0);
    }
    EXPECT_EQ(m_stDaemon.CountStderr("Ln: 346 "), 1u);

    // Room for a few connections only: the others wait in the listen queue.
    size_t uiFds = m_stDaemon.SettledFdCount();
    rlimit stLimit{};
    ASSERT_EQ(prlimit(m_stDaemon.Pid(), RLIMIT_NOFILE, nullptr, &stLimit), 0);
    stLimit.rlim_cur = uiFds + 3;
    ASSERT_EQ(prlimit(m_stDaemon.Pid(), RLIMIT_NOFILE, &stLimit, nullptr), 0);
    std::vector<ChannelClient> vecHeld(12);
    for (auto& stConn : vecHeld) {
        ASSERT_TRUE(stConn.Connect(SocketPath()));
    }
    int64_t llCpuBefore = ProcessCpuMs(m_stDaemon.Pid());
    ASSERT_GT(llCpuBefore, 0) << "no CPU clock for the daemon";
    usleep(2000 * 1000);
    EXPECT_LT(ProcessCpuMs(m_stDaemon.Pid()) - llCpuBefore, 300) << "the main loop spins";
    EXPECT_EQ(m_stDaemon.CountStderr("Ln: 349 "), 1u) << m_stDaemon.Stderr();
    vecHeld.clear();
    ChannelClient stLater;
    ASSERT_TRUE(stLater.Connect(SocketPath()));
    EXPECT_TRUE(stLater.Request(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET)) << "not served again";

    // The count of what was held back is written, at the latest at the stop.
    stDeaf.Close();
    stLater.Close();
    ASSERT_TRUE(StopDaemon());
    EXPECT_EQ(m_stDaemon.CountStderr("more records of this trace held back"), 2u)
        << m_stDaemon.Stderr();
}

// As user nobody: connects and sends one request. 0 refused (closed without
// a reply), 2 served, 3 neither served nor closed.
int ConnectAsNobody(const std::string& strPath) {
    return mte_test::AsNobodyOn(strPath, [&] {
        ChannelClient stClient;
        if (!stClient.Connect(strPath, 2000)) {
            return 0;
        }
        uint8_t aucMsg[32];
        uint32_t uiLen = MTE_MSG_BuildRequest(1, MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET, 0, 0,
                                              nullptr, aucMsg, sizeof(aucMsg));
        (void)stClient.SendRaw(aucMsg, uiLen);
        if (stClient.Silent(2000)) {
            return 3;
        }
        char acBuf[64];
        return recv(stClient.Fd(), acBuf, sizeof(acBuf), MSG_DONTWAIT) > 0 ? 2 : 0;
    });
}

// The socket is not open to everyone, and another user who reaches it all the
// same is refused: no reply, no descriptor kept. A second daemon leaves the
// socket to the first; a stop removes the socket file, and a stale one, as a
// killed daemon leaves it, is replaced at start.
TEST_F(ChannelProcessTest, SocketFileIsTheDaemonsAlone) {
    struct stat stInfo;
    ASSERT_EQ(stat(SocketPath().c_str(), &stInfo), 0);
    EXPECT_TRUE(S_ISSOCK(stInfo.st_mode));
    EXPECT_EQ(stInfo.st_mode & 0777, 0660u);
    if (geteuid() == 0) {  // the path is opened to everyone: only the daemon's check stands
        size_t uiFdsBefore = m_stDaemon.SettledFdCount();
        EXPECT_EQ(ConnectAsNobody(SocketPath()), 0)
            << "-1: not nobody, 2: another user was served, 3: connection left open";
        // The first refusal writes a trace, which may open the log once.
        usleep(100 * 1000);
        size_t uiFdsAfterFirst = m_stDaemon.SettledFdCount();
        EXPECT_LE(uiFdsAfterFirst, uiFdsBefore + 1);
        EXPECT_EQ(ConnectAsNobody(SocketPath()), 0);
        EXPECT_TRUE(FdCountReturnsTo(uiFdsAfterFirst));
    }

    mte_test::DaemonProcess stSecond;
    stSecond.SetRuntimeDir(m_stDaemon.RuntimeDir());
    ASSERT_TRUE(stSecond.Start());
    EXPECT_EQ(stSecond.Stop(false), 255) << "second daemon kept running";
    // Refused peers are no open connections: the stop is immediate.
    ASSERT_TRUE(StopDaemon());
    EXPECT_NE(stat(SocketPath().c_str(), &stInfo), 0) << "socket file left behind";
    int iFd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    ASSERT_TRUE(mte_test::BindTo(iFd, SocketPath()));
    close(iFd);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    ChannelClient stClient;
    ASSERT_TRUE(stClient.Connect(SocketPath()));
    EXPECT_TRUE(stClient.Request(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET));

    // A stop waits for the open connection, a second stop signal neither ends
    // the wait nor harms, and the end is status 0; SIGTERM is left to its
    // default action.
    int iStatus = 0;
    for (int i = 0; i < 2; i++) {
        ASSERT_TRUE(m_stDaemon.Signal(SIGRTMIN + 1));
        EXPECT_FALSE(m_stDaemon.WaitExit(300, &iStatus)) << "stopped with a connection open";
    }
    stClient.Close();
    EXPECT_EQ(m_stDaemon.Stop(false), 0) << m_stDaemon.Stderr();
    EXPECT_EQ(m_stDaemon.CountStderr(INIT_FAILED_TRACE), 0u);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    ASSERT_TRUE(m_stDaemon.Signal(SIGTERM));
    ASSERT_TRUE(m_stDaemon.WaitExit(10000, &iStatus));
    ASSERT_TRUE(WIFSIGNALED(iStatus)) << "wait status " << iStatus;
    EXPECT_EQ(WTERMSIG(iStatus), SIGTERM);
}

// A state or runtime directory that is a regular file ends the start with
// status 255 and exactly one trace, before any ready report.
TEST(ProcessTest, BrokenDirectoryEndsTheStartWithStatus255AndOneTrace) {
    for (bool bStateDir : {true, false}) {
        SCOPED_TRACE(bStateDir ? "state directory is a file" : "runtime directory is a file");
        mte_test::DaemonProcess stDaemon;
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
