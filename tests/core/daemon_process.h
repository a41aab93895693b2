// Starts the real eventmibd for a test: its own temporary state and runtime
// directories, standard error captured in a file, readiness seen through a
// private NOTIFY_SOCKET, and bounded waits only. The destructor kills a
// daemon that is still running and removes the directories.
//
// Include as "core/daemon_process.h" from any test directory.
#ifndef MTE_TESTS_DAEMON_PROCESS_H
#define MTE_TESTS_DAEMON_PROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

class MteDaemonProcess {
  public:
    MteDaemonProcess() {
        char szRoot[] = "/tmp/mte-daemon-XXXXXX";
        if (mkdtemp(szRoot) != nullptr) {
            strRoot = szRoot;
            strStateDir = strRoot + "/state";
            strRuntimeDir = strRoot + "/run";
            std::error_code stErr;
            std::filesystem::create_directory(strStateDir, stErr);
            std::filesystem::create_directory(strRuntimeDir, stErr);
        }
    }

    ~MteDaemonProcess() {
        if (iPid > 0 && !bReaped) {
            (void)kill(iPid, SIGKILL);
            int iStatus = 0;
            (void)WaitExit(5000, &iStatus);
        }
        if (iNotifyFd >= 0) {
            (void)close(iNotifyFd);
        }
        std::error_code stErr;
        if (!strRoot.empty()) {
            std::filesystem::remove_all(strRoot, stErr);
        }
    }

    MteDaemonProcess(const MteDaemonProcess&) = delete;
    MteDaemonProcess& operator=(const MteDaemonProcess&) = delete;

    const std::string& Root() const { return strRoot; }
    const std::string& StateDir() const { return strStateDir; }
    const std::string& RuntimeDir() const { return strRuntimeDir; }
    pid_t Pid() const { return iPid; }

    // Points a directory variable somewhere else (for example at a regular
    // file, to make an initialiser fail); call before Start.
    void SetStateDir(const std::string& strDir) { strStateDir = strDir; }
    void SetRuntimeDir(const std::string& strDir) { strRuntimeDir = strDir; }
    void SetEnv(const std::string& strName, const std::string& strValue) {
        mapExtraEnv[strName] = strValue;
    }

    // Spawns the daemon with a clean signal mask and default dispositions.
    bool Start(const char* pszPath = MTE_EVENTMIBD_PATH) {
        if (strRoot.empty() || !OpenNotifySocket()) {
            return false;
        }
        std::vector<std::string> astrEnv = BuildEnv();
        std::vector<char*> apszEnv;
        for (auto& strVar : astrEnv) {
            apszEnv.push_back(strVar.data());
        }
        apszEnv.push_back(nullptr);

        posix_spawn_file_actions_t stActions;
        posix_spawn_file_actions_init(&stActions);
        posix_spawn_file_actions_addopen(&stActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&stActions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        std::string strErrPath = StderrPath();
        posix_spawn_file_actions_addopen(&stActions, STDERR_FILENO, strErrPath.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawnattr_t stAttr;
        posix_spawnattr_init(&stAttr);
        sigset_t stEmpty;
        sigemptyset(&stEmpty);
        sigset_t stDefault;
        sigfillset(&stDefault);
        posix_spawnattr_setsigmask(&stAttr, &stEmpty);
        posix_spawnattr_setsigdefault(&stAttr, &stDefault);
        posix_spawnattr_setflags(&stAttr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        char* apszArgv[] = {const_cast<char*>(pszPath), nullptr};
        int iRet = posix_spawn(&iPid, pszPath, &stActions, &stAttr, apszArgv, apszEnv.data());
        posix_spawn_file_actions_destroy(&stActions);
        posix_spawnattr_destroy(&stAttr);
        bReaped = false;
        return iRet == 0;
    }

    // True once the daemon reported READY=1; false when it exited first or
    // the time ran out.
    bool WaitReady(int iTimeoutMs) {
        int64_t llDeadline = NowMs() + iTimeoutMs;
        while (NowMs() < llDeadline) {
            pollfd stPoll{iNotifyFd, POLLIN, 0};
            if (poll(&stPoll, 1, 20) == 1) {
                char szMsg[256] = {};
                ssize_t lGot = recv(iNotifyFd, szMsg, sizeof(szMsg) - 1, 0);
                if (lGot > 0 && strstr(szMsg, "READY=1") != nullptr) {
                    return true;
                }
            }
            if (HasExited()) {
                return false;
            }
        }
        return false;
    }

    // Polls for the exit; true with the wait status once it is there.
    bool WaitExit(int iTimeoutMs, int* piStatus) {
        int64_t llDeadline = NowMs() + iTimeoutMs;
        do {
            if (bReaped) {
                *piStatus = iStatus;
                return true;
            }
            pid_t iGot = waitpid(iPid, &iStatus, WNOHANG);
            if (iGot == iPid) {
                bReaped = true;
                *piStatus = iStatus;
                return true;
            }
            usleep(10 * 1000);
        } while (NowMs() < llDeadline);
        return false;
    }

    bool HasExited() {
        int iIgnored = 0;
        return WaitExit(0, &iIgnored);
    }

    bool Signal(int iSignal) { return !bReaped && kill(iPid, iSignal) == 0; }

    std::string StderrPath() const { return strRoot + "/stderr"; }

    std::string Stderr() const {
        std::ifstream stIn(StderrPath());
        std::stringstream stOut;
        stOut << stIn.rdbuf();
        return stOut.str();
    }

    // Number of lines of standard error that contain the fragment.
    size_t CountStderr(const std::string& strFragment) const {
        std::istringstream stIn(Stderr());
        size_t uiCount = 0;
        for (std::string strLine; std::getline(stIn, strLine);) {
            if (strLine.find(strFragment) != std::string::npos) {
                ++uiCount;
            }
        }
        return uiCount;
    }

    static int64_t NowMs() {
        timespec stNow{};
        clock_gettime(CLOCK_MONOTONIC, &stNow);
        return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
    }

  private:
    bool OpenNotifySocket() {
        if (iNotifyFd >= 0) {
            return true;
        }
        strNotifyPath = strRoot + "/notify";
        iNotifyFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (iNotifyFd < 0) {
            return false;
        }
        sockaddr_un stAddr{};
        stAddr.sun_family = AF_UNIX;
        if (strNotifyPath.size() >= sizeof(stAddr.sun_path)) {
            return false;
        }
        strcpy(stAddr.sun_path, strNotifyPath.c_str());
        return bind(iNotifyFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) == 0;
    }

    std::vector<std::string> BuildEnv() const {
        std::map<std::string, std::string> mapEnv;
        for (char** ppszVar = environ; *ppszVar != nullptr; ++ppszVar) {
            std::string strVar(*ppszVar);
            size_t uiEq = strVar.find('=');
            if (uiEq != std::string::npos) {
                mapEnv[strVar.substr(0, uiEq)] = strVar.substr(uiEq + 1);
            }
        }
        mapEnv.erase("JOURNAL_STREAM");
        mapEnv["STATE_DIRECTORY"] = strStateDir;
        mapEnv["RUNTIME_DIRECTORY"] = strRuntimeDir;
        mapEnv["NOTIFY_SOCKET"] = strNotifyPath;
        for (const auto& [strName, strValue] : mapExtraEnv) {
            mapEnv[strName] = strValue;
        }
        std::vector<std::string> astrEnv;
        for (const auto& [strName, strValue] : mapEnv) {
            astrEnv.push_back(strName + "=" + strValue);
        }
        return astrEnv;
    }

    std::string strRoot;
    std::string strStateDir;
    std::string strRuntimeDir;
    std::string strNotifyPath;
    std::map<std::string, std::string> mapExtraEnv;
    int iNotifyFd = -1;
    pid_t iPid = -1;
    bool bReaped = false;
    int iStatus = 0;
};

#endif  // MTE_TESTS_DAEMON_PROCESS_H
