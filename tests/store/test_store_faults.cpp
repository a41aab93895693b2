// The real daemon on a state directory that fails under it: a small tmpfs the
// test fills, a read-only bind mount, a damaged file beside its write-ahead
// log. Every change the daemon acknowledged must come back after a restart
// once space returns; a store it cannot use is refused with the real cause and
// left byte-for-byte as it was. The mounts live in a private mount namespace;
// where mounting is not allowed the tests skip.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "stack.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

using mte_test::ReadFile;

bool Exists(const std::string& strPath) {
    struct stat stSt;
    return stat(strPath.c_str(), &stSt) == 0;
}

// Empty when mounts are allowed here, else why not.
std::string PrivateMounts() {
    static std::string s_strWhyNot = [] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return std::string("cannot make a private mount namespace: ") + strerror(errno);
        }
        return std::string();
    }();
    return s_strWhyNot;
}

// Writes zeros until the file system refuses them, as dd would.
void FillUp(const std::string& strPath) {
    int iFd = open(strPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    ASSERT_GE(iFd, 0);
    const std::vector<char> vecZeros(1024 * 1024, 0);
    for (size_t uiChunk : {size_t{1024 * 1024}, size_t{4096}, size_t{1}}) {
        while (write(iFd, vecZeros.data(), uiChunk) == static_cast<ssize_t>(uiChunk)) {
        }
    }
    ASSERT_EQ(errno, ENOSPC);
    close(iFd);
}

class StoreFaultTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override {
        std::string strWhyNot = PrivateMounts();
        if (!strWhyNot.empty()) {
            GTEST_SKIP() << strWhyNot;
        }
    }
    void TearDown() override { Unmount(); }

    // A mount over the state directory, undone lazily (the daemon may still
    // hold it) by Unmount or at the end of the test.
    bool MountState(const char* pszType, const char* pszSource, unsigned long ulFlags,
                    const char* pszData) {
        m_bMounted =
            mount(pszSource, m_stDaemon.StateDir().c_str(), pszType, ulFlags, pszData) == 0;
        return m_bMounted;
    }
    void Unmount() {
        if (m_bMounted) {
            umount2(m_stDaemon.StateDir().c_str(), MNT_DETACH);
            m_bMounted = false;
        }
    }
    bool m_bMounted = false;

    std::string Cfg() const { return m_stDaemon.StateDir() + "/eventmib-config.db"; }
    std::string Reserve() const { return m_stDaemon.StateDir() + "/eventmib-reserve"; }
    // The exit status of a start refused before it was ready.
    int Refused() { return m_stDaemon.Stop(false); }
    void Kill() {
        ASSERT_TRUE(m_stDaemon.Signal(SIGKILL));
        (void)Refused();
    }

    // Creates events, one per name; every one must be acknowledged.
    void CreateEvents(const std::vector<std::string>& vecNames) {
        std::string strCommands;
        for (const std::string& strName : vecNames) {
            strCommands += "set event owner=ops name=" + strName + " comment=\"" +
                           std::string(150, 'c') + "\" status=createAndWait\n";
        }
        CtlScenarioOk(strCommands);
    }

    std::string ThreeFiles() const {
        return ReadFile(Cfg()) + "|wal|" + ReadFile(Cfg() + "-wal") + "|shm|" +
               ReadFile(Cfg() + "-shm");
    }
};

// The changes land in the reserve's room at once; without a reserve they are
// kept pending until space returns and are all there after a restart. A full
// disk at start-up is named as such, never as damage.
TEST_F(StoreFaultTest, FullDiskKeepsEveryAcknowledgedChange) {
    ASSERT_TRUE(MountState("tmpfs", "tmpfs", 0, "size=8m")) << strerror(errno);
    const std::string strFill = m_stDaemon.StateDir() + "/fill";
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    ASSERT_TRUE(Exists(Reserve()));

    // The reserve takes the first writes on a full disk: durable at once.
    FillUp(strFill);
    CreateEvents({"a1", "a2", "a3", "a4", "a5"});
    EXPECT_EQ(m_stDaemon.CountStderr("refuses writes"), 0u) << m_stDaemon.Stderr();
    EXPECT_FALSE(Exists(Reserve()));
    Kill();
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    std::string strWalk = Ctl("walk event").strOut;
    for (const char* pszName : {"a1", "a2", "a3", "a4", "a5"}) {
        EXPECT_THAT(strWalk, HasSubstr(pszName));
    }

    // No reserve left: changes are pending, then written once space returns.
    FillUp(strFill);
    CreateEvents({"b1", "b2", "b3"});
    // A row changed or destroyed again while pending keeps only its last write.
    CtlScenarioOk(
        "set event owner=ops name=b1 comment=changed\nset event owner=ops name=b2 status=destroy\n"
        "set event owner=ops name=a1 status=destroy\nset scalars instance-maximum=321\n");
    EXPECT_EQ(m_stDaemon.CountStderr("refuses writes (no space left on the file system)"), 1u)
        << m_stDaemon.Stderr();
    ASSERT_EQ(unlink(strFill.c_str()), 0);
    EXPECT_TRUE(mte_test::WaitUntil(
        [&] { return m_stDaemon.CountStderr("accepts writes again: 5 pending changes written"); },
        5000))
        << m_stDaemon.Stderr();
    for (int i = 0; i < 40 && !Exists(Reserve()); ++i) {
        usleep(100 * 1000);  // made again on a later write or retry
        CreateEvents({"c" + std::to_string(i)});
    }
    EXPECT_TRUE(Exists(Reserve()));

    // Pending at the stop: written by the stop itself once space is back.
    FillUp(strFill);
    ASSERT_EQ(unlink(Reserve().c_str()), 0);
    CreateEvents({"d1"});
    ASSERT_EQ(unlink(strFill.c_str()), 0);
    EXPECT_EQ(m_stDaemon.Stop(), 0);
    EXPECT_EQ(m_stDaemon.CountStderr("lost"), 0u) << m_stDaemon.Stderr();
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    strWalk = Ctl("walk event").strOut;
    for (const char* pszName : {"a2", "a5", "b1", "b3", "d1", "changed"}) {
        EXPECT_THAT(strWalk, HasSubstr(pszName));
    }
    EXPECT_THAT(strWalk, AllOf(Not(HasSubstr("a1")), Not(HasSubstr("b2"))));
    EXPECT_THAT(Ctl("get scalars").strOut, HasSubstr("321"));

    // A full disk at start-up: the reserve makes room for the store's side
    // files; without it the start is refused with the real cause.
    EXPECT_EQ(m_stDaemon.Stop(), 0);
    ASSERT_TRUE(Exists(Reserve()));
    FillUp(strFill);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    FillUp(strFill);
    CreateEvents({"late"});  // still pending at the stop: the one loss left
    EXPECT_EQ(m_stDaemon.Stop(), 0);
    EXPECT_EQ(m_stDaemon.CountStderr("pending changes lost: 1."), 1u) << m_stDaemon.Stderr();
    ASSERT_FALSE(Exists(Reserve()));
    FillUp(strFill);
    const std::string strBefore = ThreeFiles();
    ASSERT_TRUE(m_stDaemon.Start());
    EXPECT_EQ(Refused(), 255);
    EXPECT_EQ(m_stDaemon.CountStderr("no space left on the file system"), 1u)
        << m_stDaemon.Stderr();
    EXPECT_EQ(m_stDaemon.CountStderr("damaged"), 0u);
    EXPECT_TRUE(ThreeFiles() == strBefore) << "the refused store was changed";
}

// A store left with its write-ahead log by a kill: on a read-only mount it is
// refused as read-only; with its main file damaged it is refused as damaged.
// Neither start changes a byte of the three files.
TEST_F(StoreFaultTest, ReadOnlyOrDamagedStoreIsRefusedUntouched) {
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    std::vector<std::string> vecNames;
    for (int i = 0; i < 40; ++i) {
        vecNames.push_back("e" + std::to_string(i));
    }
    CreateEvents(vecNames);
    ASSERT_EQ(m_stDaemon.Stop(), 0);  // checkpointed: the main file holds the rows
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    CreateEvents({"after1", "after2"});
    Kill();
    ASSERT_TRUE(Exists(Cfg() + "-wal") && Exists(Cfg() + "-shm"));

    ASSERT_TRUE(MountState(nullptr, m_stDaemon.StateDir().c_str(), MS_BIND, nullptr))
        << strerror(errno);
    ASSERT_EQ(mount(nullptr, m_stDaemon.StateDir().c_str(), nullptr,
                    MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr),
              0)
        << strerror(errno);
    std::string strBefore = ThreeFiles();
    ASSERT_TRUE(m_stDaemon.Start());
    EXPECT_EQ(Refused(), 255);
    EXPECT_EQ(m_stDaemon.CountStderr("the file system is read-only"), 1u) << m_stDaemon.Stderr();
    EXPECT_EQ(m_stDaemon.CountStderr("damaged"), 0u);
    EXPECT_TRUE(ThreeFiles() == strBefore) << "the read-only store was changed";
    Unmount();

    std::string strDamaged = ReadFile(Cfg());
    ASSERT_GT(strDamaged.size(), 3u * 4096);
    for (size_t i = 4096 + 8; i < 3 * 4096; ++i) {
        strDamaged[i] = static_cast<char>(i * 7);
    }
    std::ofstream(Cfg(), std::ios::binary | std::ios::trunc) << strDamaged;
    strBefore = ThreeFiles();
    ASSERT_TRUE(m_stDaemon.Start());
    EXPECT_EQ(Refused(), 255);
    EXPECT_EQ(m_stDaemon.CountStderr("damaged"), 1u) << m_stDaemon.Stderr();
    EXPECT_TRUE(ThreeFiles() == strBefore) << "the damaged store or its log was changed";
}

}  // namespace
