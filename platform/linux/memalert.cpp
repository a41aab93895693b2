// Memory alerts on Linux. The source is chosen once per subscription:
//   1. cgroup v2: memory.current (less inactive file cache) against the
//      nearest memory.high or memory.max set on the daemon's cgroup or an
//      ancestor;
//   2. cgroup v1: memory.usage_in_bytes (less total_inactive_file) against the
//      hierarchical_memory_limit of memory.stat (the limit_in_bytes of the
//      cgroup and its ancestors);
//   3. no limit set: the system's MemAvailable against MemTotal.
// Usage is "exceeded" at 90% of a cgroup limit and "normal" again below 80%;
// without a limit, exceeded when MemAvailable falls below 5% of MemTotal and
// normal again above 10%. The gap keeps a value hovering at one edge from
// announcing a change at every look.
//
// The descriptor is a timerfd that expires every five seconds: each expiry
// costs one or two small reads under /sys or /proc, which is cheaper than any
// notification set-up that works on v1, v2 and without a cgroup alike.
// Called from the main thread; a mutex keeps the state sane for any other.
#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>

#include "plat_memalert.h"

namespace {

constexpr uint32_t MEM_CGROUP_HIGH_PERCENT = 90;
constexpr uint32_t MEM_CGROUP_LOW_PERCENT = 80;
constexpr uint32_t MEM_SYSTEM_HIGH_AVAIL_PERCENT = 5;
constexpr uint32_t MEM_SYSTEM_LOW_AVAIL_PERCENT = 10;
// v1 reports "no limit" as a page-rounded LONG_MAX; anything this large is none.
constexpr uint64_t MEM_NO_LIMIT = 1ull << 60;

enum MEM_SOURCE_E { MEM_SOURCE_NONE, MEM_SOURCE_CGROUP2, MEM_SOURCE_CGROUP1, MEM_SOURCE_SYSTEM };

struct MEM_ALERT_S {
    MEM_SOURCE_E eSource = MEM_SOURCE_NONE;
    std::string strDir;     // the cgroup directory of the source
    uint64_t ullLimit = 0;  // v2: the limit found at start
    uint32_t uiState = MEM_STATE_NORMAL;
    std::string strRoot;  // prefix of /proc and /sys (tests)
    uint32_t uiPollMs = 5000;
};

std::mutex g_stMemLock;
MEM_ALERT_S g_stMem;

bool mem_ReadU64(const std::string& strPath, uint64_t* pullOut) {
    std::ifstream stIn(strPath);
    std::string strWord;
    if (!(stIn >> strWord) || strWord.empty()) {
        return false;
    }
    if (strWord == "max") {
        *pullOut = UINT64_MAX;
        return true;
    }
    char* pszEnd = nullptr;
    errno = 0;
    unsigned long long ullValue = strtoull(strWord.c_str(), &pszEnd, 10);
    if (errno != 0 || *pszEnd != '\0') {
        return false;
    }
    *pullOut = ullValue;
    return true;
}

// A "name value" line of memory.stat or /proc/meminfo (value as written).
bool mem_ReadField(const std::string& strPath, const std::string& strName, uint64_t* pullOut) {
    std::ifstream stIn(strPath);
    std::string strLine;
    while (std::getline(stIn, strLine)) {
        std::istringstream stLine(strLine);
        std::string strKey;
        unsigned long long ullValue;
        if (stLine >> strKey >> ullValue) {
            if (!strKey.empty() && strKey.back() == ':') {
                strKey.pop_back();
            }
            if (strKey == strName) {
                *pullOut = ullValue;
                return true;
            }
        }
    }
    return false;
}

// The cgroup path of a hierarchy in /proc/self/cgroup: v2 is "0::", v1 names
// its controllers.
bool mem_CgroupPath(const std::string& strRoot, bool bV2, std::string* pstrPath) {
    std::ifstream stIn(strRoot + "/proc/self/cgroup");
    std::string strLine;
    while (std::getline(stIn, strLine)) {
        size_t uiFirst = strLine.find(':');
        size_t uiSecond = strLine.find(':', uiFirst + 1);
        if (uiFirst == std::string::npos || uiSecond == std::string::npos) {
            continue;
        }
        std::string strControllers = strLine.substr(uiFirst + 1, uiSecond - uiFirst - 1);
        bool bMatch = bV2 ? strLine.compare(0, 3, "0::") == 0
                          : ("," + strControllers + ",").find(",memory,") != std::string::npos;
        if (bMatch) {
            *pstrPath = strLine.substr(uiSecond + 1);
            return true;
        }
    }
    return false;
}

bool mem_Exists(const std::string& strPath) {
    return access(strPath.c_str(), R_OK) == 0;
}

// v2: the nearest memory.high or memory.max below "max", from the daemon's
// cgroup up to the root of the mount.
bool mem_FindCgroup2(MEM_ALERT_S* pstMem) {
    std::string strPath;
    if (!mem_CgroupPath(pstMem->strRoot, true, &strPath)) {
        return false;
    }
    for (const char* pszMount : {"/sys/fs/cgroup", "/sys/fs/cgroup/unified"}) {
        std::string strBase = pstMem->strRoot + pszMount;
        std::string strDir = strBase + strPath;
        if (!mem_Exists(strDir + "/memory.current")) {
            continue;
        }
        for (std::string strUp = strPath;;) {
            std::string strUpDir = strBase + strUp;
            uint64_t ullHigh = UINT64_MAX, ullMax = UINT64_MAX;
            mem_ReadU64(strUpDir + "/memory.high", &ullHigh);
            mem_ReadU64(strUpDir + "/memory.max", &ullMax);
            uint64_t ullLimit = ullHigh < ullMax ? ullHigh : ullMax;
            if (ullLimit < MEM_NO_LIMIT) {
                pstMem->eSource = MEM_SOURCE_CGROUP2;
                pstMem->strDir = strDir;
                pstMem->ullLimit = ullLimit;
                return true;
            }
            if (strUp.empty() || strUp == "/") {
                break;
            }
            strUp = strUp.substr(0, strUp.rfind('/'));
        }
    }
    return false;
}

// v1: the hierarchical limit that memory.stat reports already covers ancestors.
bool mem_FindCgroup1(MEM_ALERT_S* pstMem) {
    std::string strPath;
    if (!mem_CgroupPath(pstMem->strRoot, false, &strPath)) {
        return false;
    }
    std::string strBase = pstMem->strRoot + "/sys/fs/cgroup/memory";
    // Inside a cgroup namespace the listed path may not exist: the mount's
    // root is then the daemon's own cgroup.
    for (const std::string& strDir : {strBase + strPath, strBase}) {
        uint64_t ullLimit = UINT64_MAX;
        if (!mem_Exists(strDir + "/memory.usage_in_bytes") ||
            !mem_ReadField(strDir + "/memory.stat", "hierarchical_memory_limit", &ullLimit)) {
            mem_ReadU64(strDir + "/memory.limit_in_bytes", &ullLimit);
        }
        if (mem_Exists(strDir + "/memory.usage_in_bytes")) {
            if (ullLimit >= MEM_NO_LIMIT) {
                return false;
            }
            pstMem->eSource = MEM_SOURCE_CGROUP1;
            pstMem->strDir = strDir;
            pstMem->ullLimit = ullLimit;
            return true;
        }
    }
    return false;
}

void mem_ChooseSource(MEM_ALERT_S* pstMem) {
    if (!mem_FindCgroup2(pstMem) && !mem_FindCgroup1(pstMem)) {
        pstMem->eSource = MEM_SOURCE_SYSTEM;
        pstMem->strDir.clear();
        pstMem->ullLimit = 0;
    }
}

// Used and limit in the same unit; false when nothing could be read.
bool mem_Measure(const MEM_ALERT_S& stMem, uint64_t* pullUsed, uint64_t* pullLimit) {
    uint64_t ullInactive = 0;
    switch (stMem.eSource) {
        case MEM_SOURCE_CGROUP2:
            if (!mem_ReadU64(stMem.strDir + "/memory.current", pullUsed)) {
                return false;
            }
            mem_ReadField(stMem.strDir + "/memory.stat", "inactive_file", &ullInactive);
            break;
        case MEM_SOURCE_CGROUP1:
            if (!mem_ReadU64(stMem.strDir + "/memory.usage_in_bytes", pullUsed)) {
                return false;
            }
            mem_ReadField(stMem.strDir + "/memory.stat", "total_inactive_file", &ullInactive);
            break;
        case MEM_SOURCE_SYSTEM: {
            uint64_t ullTotal = 0, ullAvail = 0;
            std::string strInfo = stMem.strRoot + "/proc/meminfo";
            if (!mem_ReadField(strInfo, "MemTotal", &ullTotal) ||
                !mem_ReadField(strInfo, "MemAvailable", &ullAvail) || ullTotal == 0) {
                return false;
            }
            *pullUsed = ullTotal > ullAvail ? ullTotal - ullAvail : 0;
            *pullLimit = ullTotal;
            return true;
        }
        default:
            return false;
    }
    // Inactive file pages are reclaimed before the limit bites: not pressure.
    *pullUsed = *pullUsed > ullInactive ? *pullUsed - ullInactive : 0;
    *pullLimit = stMem.ullLimit;
    return true;
}

// The state after a look, with hysteresis around the current state.
uint32_t mem_Evaluate(const MEM_ALERT_S& stMem, uint32_t uiCurrent) {
    uint64_t ullUsed = 0, ullLimit = 0;
    if (!mem_Measure(stMem, &ullUsed, &ullLimit) || ullLimit == 0) {
        return uiCurrent;
    }
    bool bSystem = stMem.eSource == MEM_SOURCE_SYSTEM;
    uint64_t ullHighPct = bSystem ? 100 - MEM_SYSTEM_HIGH_AVAIL_PERCENT : MEM_CGROUP_HIGH_PERCENT;
    uint64_t ullLowPct = bSystem ? 100 - MEM_SYSTEM_LOW_AVAIL_PERCENT : MEM_CGROUP_LOW_PERCENT;
    // Compared as used * 100 against limit * percent; limits are far below 2^57.
    unsigned __int128 ullUsed100 = static_cast<unsigned __int128>(ullUsed) * 100;
    unsigned __int128 ullHigh = static_cast<unsigned __int128>(ullLimit) * ullHighPct;
    unsigned __int128 ullLow = static_cast<unsigned __int128>(ullLimit) * ullLowPct;
    if (uiCurrent == MEM_STATE_EXCEEDED) {
        return ullUsed100 < ullLow ? MEM_STATE_NORMAL : MEM_STATE_EXCEEDED;
    }
    return ullUsed100 >= ullHigh ? MEM_STATE_EXCEEDED : MEM_STATE_NORMAL;
}

}  // namespace

// Test knobs of the Linux source: the prefix under which /proc and /sys are
// read, and the period of the descriptor. Not part of the platform interface.
void PLAT_MEMALERT_SetRootForTest(const char* pszRoot, uint32_t uiPollMs) {
    std::lock_guard guard(g_stMemLock);
    g_stMem.strRoot = pszRoot != nullptr ? pszRoot : "";
    g_stMem.uiPollMs = uiPollMs != 0 ? uiPollMs : 5000;
    g_stMem.eSource = MEM_SOURCE_NONE;
}

int MEM_Alert_Init(uint32_t uiFlags) {
    std::lock_guard guard(g_stMemLock);
    int iFd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (iFd < 0) {
        return -1;
    }
    struct itimerspec stSpec = {};
    stSpec.it_interval.tv_sec = g_stMem.uiPollMs / 1000;
    stSpec.it_interval.tv_nsec = static_cast<long>(g_stMem.uiPollMs % 1000) * 1000000;
    stSpec.it_value = stSpec.it_interval;
    if (timerfd_settime(iFd, 0, &stSpec, nullptr) != 0) {
        close(iFd);
        return -1;
    }
    mem_ChooseSource(&g_stMem);
    g_stMem.uiState = mem_Evaluate(g_stMem, MEM_STATE_NORMAL);
    return iFd;
}

uint32_t Mem_Alert_GetCurrentState(void) {
    std::lock_guard guard(g_stMemLock);
    if (g_stMem.eSource == MEM_SOURCE_NONE) {
        mem_ChooseSource(&g_stMem);
        g_stMem.uiState = mem_Evaluate(g_stMem, MEM_STATE_NORMAL);
    }
    return g_stMem.uiState;
}

uint32_t MEM_Alert_Read(int iFd, uint32_t* puiState) {
    uint64_t ullExpiries = 0;
    ssize_t lRead;
    do {
        lRead = read(iFd, &ullExpiries, sizeof(ullExpiries));
    } while (lRead < 0 && errno == EINTR);
    if (lRead < 0 && errno != EAGAIN) {
        return 1;
    }
    std::lock_guard guard(g_stMemLock);
    uint32_t uiNew = mem_Evaluate(g_stMem, g_stMem.uiState);
    *puiState = uiNew != g_stMem.uiState ? uiNew : MEM_STATE_NO_CHANGE;
    g_stMem.uiState = uiNew;
    return 0;
}

void MEM_Alert_Fini(int iFd) {
    if (iFd >= 0) {
        close(iFd);
    }
}
