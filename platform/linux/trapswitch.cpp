// Trap switch on Linux: the switch of the module "event-mib" is a small file,
// PLAT_TrapSwitchPath(), holding "on" or "off" (absent = on), so that it
// survives restarts of the daemon and of the agent. Operators change it with
// SNMP_TrapSwitch_Write (eventmibctl trap-switch on|off), which replaces the
// file atomically by rename; the daemon watches the state directory with
// inotify and re-reads the file on every change that names it.
//
// Handles and registrations are used by the main thread only; the writer may
// run in any process.
#include "plat_trapswitch.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "plat_paths.h"

namespace {

constexpr const char* TRAPSWITCH_MODULE = "event-mib";
constexpr size_t TRAPSWITCH_MAX_REG = 8;
constexpr uint32_t TRAPSWITCH_ERR = 1;

struct TRAPSWITCH_REG_S {
    int iHandle;  // -1: free slot
    char szModule[64];
    SNMP_TRAPSWITCH_CB_PF pfCb;
};

TRAPSWITCH_REG_S g_astRegs[TRAPSWITCH_MAX_REG] = {
    {-1, "", nullptr}, {-1, "", nullptr}, {-1, "", nullptr}, {-1, "", nullptr},
    {-1, "", nullptr}, {-1, "", nullptr}, {-1, "", nullptr}, {-1, "", nullptr},
};

bool IsOurModule(const char* pszModule) {
    return pszModule != nullptr && strcmp(pszModule, TRAPSWITCH_MODULE) == 0;
}

std::string DirOf(const std::string& strPath) {
    size_t uiSlash = strPath.rfind('/');
    if (uiSlash == std::string::npos) {
        return ".";
    }
    return uiSlash == 0 ? "/" : strPath.substr(0, uiSlash);
}

std::string BaseOf(const std::string& strPath) {
    size_t uiSlash = strPath.rfind('/');
    return uiSlash == std::string::npos ? strPath : strPath.substr(uiSlash + 1);
}

// The setting as the file says it: 1 on, 2 off, 0 unreadable or unknown text
// (which leaves the caller's record as it was: on).
uint64_t ReadSetting(void) {
    int iFd = open(PLAT_TrapSwitchPath().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (iFd < 0) {
        return errno == ENOENT ? SNMP_TRAPSWITCH_ON : 0;
    }
    char szBuf[16] = {};
    ssize_t lRead = read(iFd, szBuf, sizeof(szBuf) - 1);
    close(iFd);
    if (lRead < 0) {
        return 0;
    }
    szBuf[lRead] = '\0';
    szBuf[strcspn(szBuf, " \t\r\n")] = '\0';
    if (strcmp(szBuf, "off") == 0) {
        return SNMP_TRAPSWITCH_OFF;
    }
    if (strcmp(szBuf, "on") == 0) {
        return SNMP_TRAPSWITCH_ON;
    }
    return 0;
}

bool WriteAll(int iFd, const char* pszText) {
    size_t uiLen = strlen(pszText);
    while (uiLen > 0) {
        ssize_t lWritten = write(iFd, pszText, uiLen);
        if (lWritten < 0 && errno == EINTR) {
            continue;
        }
        if (lWritten <= 0) {
            return false;
        }
        pszText += lWritten;
        uiLen -= static_cast<size_t>(lWritten);
    }
    return true;
}

void FsyncDir(const std::string& strDir) {
    int iFd = open(strDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (iFd >= 0) {
        (void)fsync(iFd);
        close(iFd);
    }
}

}  // namespace

int SNMP_TrapSwitch_Init(void) {
    std::string strDir = DirOf(PLAT_TrapSwitchPath());
    // The state directory normally exists (the service manager makes it);
    // started by hand, the daemon makes it itself.
    (void)mkdir(strDir.c_str(), 0750);
    int iFd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (iFd < 0) {
        return -1;
    }
    // The file is replaced by rename (IN_MOVED_TO), may be written in place
    // by hand (IN_CLOSE_WRITE) or removed (IN_DELETE, IN_MOVED_FROM).
    if (inotify_add_watch(iFd, strDir.c_str(),
                          IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE) <
        0) {
        close(iFd);
        return -1;
    }
    return iFd;
}

uint32_t SNMP_TrapSwitch_Register(int iHandle, const char* pszModule, SNMP_TRAPSWITCH_CB_PF pfCb,
                                  uint32_t uiFlags) {
    if (iHandle < 0 || pszModule == nullptr || pfCb == nullptr ||
        strlen(pszModule) >= sizeof(g_astRegs[0].szModule)) {
        return TRAPSWITCH_ERR;
    }
    for (TRAPSWITCH_REG_S& stReg : g_astRegs) {
        if (stReg.iHandle == -1) {
            stReg.iHandle = iHandle;
            strcpy(stReg.szModule, pszModule);
            stReg.pfCb = pfCb;
            return 0;
        }
    }
    return TRAPSWITCH_ERR;
}

uint32_t SNMP_TrapSwitch_Get(const char* pszModule, SNMP_TRAPSWITCH_S* pstRecord) {
    if (!IsOurModule(pszModule) || pstRecord == nullptr) {
        return TRAPSWITCH_ERR;
    }
    uint64_t ulState = ReadSetting();
    if (ulState == 0) {
        return TRAPSWITCH_ERR;
    }
    pstRecord->szText[0] = '\0';
    pstRecord->ulState = ulState;
    return 0;
}

uint32_t SNMP_Dispatch(int iHandle) {
    const std::string strName = BaseOf(PLAT_TrapSwitchPath());
    alignas(inotify_event) char acBuf[4096];
    bool bChanged = false;
    for (;;) {
        ssize_t lRead = read(iHandle, acBuf, sizeof(acBuf));
        if (lRead < 0 && errno == EINTR) {
            continue;
        }
        if (lRead <= 0) {
            break;
        }
        for (ssize_t lPos = 0; lPos < lRead;) {
            const auto* pstEvent = reinterpret_cast<const inotify_event*>(acBuf + lPos);
            if ((pstEvent->mask & IN_Q_OVERFLOW) != 0 ||
                (pstEvent->len > 0 && strName == pstEvent->name)) {
                bChanged = true;
            }
            lPos += static_cast<ssize_t>(sizeof(inotify_event) + pstEvent->len);
        }
    }
    if (!bChanged) {
        return 0;
    }
    SNMP_TRAPSWITCH_S stRecord;
    memset(&stRecord, 0, sizeof(stRecord));
    stRecord.ulState = SNMP_TRAPSWITCH_ON;
    if (SNMP_TrapSwitch_Get(TRAPSWITCH_MODULE, &stRecord) != 0) {
        return 0;  // unreadable for now: keep the current switch
    }
    for (const TRAPSWITCH_REG_S& stReg : g_astRegs) {
        if (stReg.iHandle == iHandle && IsOurModule(stReg.szModule)) {
            SNMP_TRAPSWITCH_S stCopy = stRecord;
            (void)stReg.pfCb(TRAPSWITCH_MODULE, &stCopy);
        }
    }
    return 0;
}

uint32_t SNMP_TrapSwitch_Deregister(int iHandle, const char* pszModule) {
    uint32_t uiRet = TRAPSWITCH_ERR;
    for (TRAPSWITCH_REG_S& stReg : g_astRegs) {
        if (stReg.iHandle == iHandle && pszModule != nullptr &&
            strcmp(stReg.szModule, pszModule) == 0) {
            stReg.iHandle = -1;
            stReg.szModule[0] = '\0';
            stReg.pfCb = nullptr;
            uiRet = 0;
        }
    }
    return uiRet;
}

void SNMP_TrapSwitch_Fini(int iHandle) {
    if (iHandle < 0) {
        return;
    }
    for (TRAPSWITCH_REG_S& stReg : g_astRegs) {
        if (stReg.iHandle == iHandle) {
            stReg.iHandle = -1;
            stReg.szModule[0] = '\0';
            stReg.pfCb = nullptr;
        }
    }
    close(iHandle);
}

uint32_t SNMP_TrapSwitch_Write(const char* pszModule, uint64_t ulState) {
    if (!IsOurModule(pszModule)) {
        return TRAPSWITCH_ERR;
    }
    const std::string strPath = PLAT_TrapSwitchPath();
    const std::string strDir = DirOf(strPath);
    (void)mkdir(strDir.c_str(), 0750);
    char szTmp[PATH_MAX];
    if (snprintf(szTmp, sizeof(szTmp), "%s.tmp.%ld", strPath.c_str(),
                 static_cast<long>(getpid())) >= static_cast<int>(sizeof(szTmp))) {
        return TRAPSWITCH_ERR;
    }
    int iFd = open(szTmp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (iFd < 0) {
        return TRAPSWITCH_ERR;
    }
    bool bOk = WriteAll(iFd, ulState == SNMP_TRAPSWITCH_OFF ? "off\n" : "on\n") && fsync(iFd) == 0;
    bOk = close(iFd) == 0 && bOk;
    // The reader sees the old file or the new one, never a partial one.
    if (!bOk || rename(szTmp, strPath.c_str()) != 0) {
        unlink(szTmp);
        return TRAPSWITCH_ERR;
    }
    FsyncDir(strDir);
    return 0;
}
