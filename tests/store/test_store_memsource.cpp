// The Linux memory-alert source on a made-up /proc and /sys tree: cgroup v1,
// cgroup v2 and no cgroup limit, with the hysteresis between the thresholds.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "plat_memalert.h"

// Linux source test knob (platform/linux/memalert.cpp).
void PLAT_MEMALERT_SetRootForTest(const char* pszRoot, uint32_t uiPollMs);

namespace {

class StoreMemSourceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szTemplate[] = "/tmp/mte-mem-XXXXXX";
        ASSERT_NE(mkdtemp(szTemplate), nullptr);
        m_strRoot = szTemplate;
    }
    void TearDown() override {
        if (m_iFd >= 0) {
            MEM_Alert_Fini(m_iFd);
        }
        PLAT_MEMALERT_SetRootForTest("", 0);
        ASSERT_EQ(system(("rm -rf '" + m_strRoot + "'").c_str()), 0);
    }
    void Put(const std::string& strPath, const std::string& strText) {
        std::string strFull = m_strRoot + strPath;
        ASSERT_EQ(system(("mkdir -p '" + strFull.substr(0, strFull.rfind('/')) + "'").c_str()), 0);
        std::ofstream(strFull) << strText;
    }
    void Start() {
        PLAT_MEMALERT_SetRootForTest(m_strRoot.c_str(), 20);
        m_iFd = MEM_Alert_Init(0);
        ASSERT_GE(m_iFd, 0);
    }
    // Waits (bounded) for the descriptor, then reads one state.
    uint32_t Next() {
        struct pollfd stPoll = {m_iFd, POLLIN, 0};
        EXPECT_EQ(poll(&stPoll, 1, 2000), 1);
        uint32_t uiState = 0;
        EXPECT_EQ(MEM_Alert_Read(m_iFd, &uiState), 0u);
        return uiState;
    }
    std::string m_strRoot;
    int m_iFd = -1;
};

TEST_F(StoreMemSourceTest, CgroupV1WithHysteresis) {
    Put("/proc/self/cgroup", "5:cpu:/\n4:memory:/svc/eventmib\n0::/\n");
    Put("/sys/fs/cgroup/memory/svc/eventmib/memory.stat",
        "cache 0\ntotal_inactive_file 100000\nhierarchical_memory_limit 1000000\n");
    Put("/sys/fs/cgroup/memory/svc/eventmib/memory.limit_in_bytes", "9223372036854771712\n");
    Put("/sys/fs/cgroup/memory/svc/eventmib/memory.usage_in_bytes", "900000\n");  // 80% less cache
    Start();
    EXPECT_EQ(Mem_Alert_GetCurrentState(), MEM_STATE_NORMAL);
    // 90 % and 80 % of the limit once the inactive cache is left out; between
    // the two thresholds nothing changes.
    const std::pair<const char*, uint32_t> astSteps[] = {
        {"999999", MEM_STATE_NO_CHANGE},  {"1000000", MEM_STATE_EXCEEDED},
        {"1050000", MEM_STATE_NO_CHANGE}, {"950000", MEM_STATE_NO_CHANGE},
        {"899999", MEM_STATE_NORMAL},     {"960000", MEM_STATE_NO_CHANGE},
    };
    for (const auto& [pszUsage, uiExpected] : astSteps) {
        SCOPED_TRACE(pszUsage);
        Put("/sys/fs/cgroup/memory/svc/eventmib/memory.usage_in_bytes", pszUsage);
        EXPECT_EQ(Next(), uiExpected);
    }
}

TEST_F(StoreMemSourceTest, CgroupV2LimitOnAnAncestorAndExceededAtStart) {
    Put("/proc/self/cgroup", "0::/system.slice/eventmibd.service\n");
    Put("/sys/fs/cgroup/system.slice/eventmibd.service/memory.current", "950\n");
    Put("/sys/fs/cgroup/system.slice/eventmibd.service/memory.max", "max\n");
    Put("/sys/fs/cgroup/system.slice/eventmibd.service/memory.stat", "inactive_file 0\n");
    Put("/sys/fs/cgroup/system.slice/memory.high", "1000\n");
    Start();
    EXPECT_EQ(Mem_Alert_GetCurrentState(), MEM_STATE_EXCEEDED);
    Put("/sys/fs/cgroup/system.slice/eventmibd.service/memory.current", "100\n");
    EXPECT_EQ(Next(), MEM_STATE_NORMAL);
}

TEST_F(StoreMemSourceTest, NoLimitFallsBackToAvailableMemory) {
    Put("/proc/self/cgroup", "4:memory:/\n0::/\n");
    Put("/sys/fs/cgroup/memory/memory.usage_in_bytes", "5000\n");
    Put("/sys/fs/cgroup/memory/memory.limit_in_bytes", "9223372036854771712\n");
    Put("/proc/meminfo", "MemTotal:  1000000 kB\nMemFree: 1 kB\nMemAvailable:  500000 kB\n");
    Start();
    EXPECT_EQ(Mem_Alert_GetCurrentState(), MEM_STATE_NORMAL);
    Put("/proc/meminfo", "MemTotal:  1000000 kB\nMemAvailable:  40000 kB\n");  // 4% left
    EXPECT_EQ(Next(), MEM_STATE_EXCEEDED);
    Put("/proc/meminfo", "MemTotal:  1000000 kB\nMemAvailable:  90000 kB\n");  // 9%: still
    EXPECT_EQ(Next(), MEM_STATE_NO_CHANGE);
    Put("/proc/meminfo", "MemTotal:  1000000 kB\nMemAvailable:  110000 kB\n");
    EXPECT_EQ(Next(), MEM_STATE_NORMAL);
}

TEST_F(StoreMemSourceTest, UnreadableFilesChangeNothing) {
    Start();  // an empty tree: nothing to read
    EXPECT_EQ(Mem_Alert_GetCurrentState(), MEM_STATE_NORMAL);
    EXPECT_EQ(Next(), MEM_STATE_NO_CHANGE);
}

}  // namespace
