// Linux platform pieces of the core: state and runtime paths, the readiness
// report to systemd, and the bounded formatter.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <string>

#include "plat_log.h"
#include "plat_paths.h"
#include "plat_service.h"

namespace {

// Sets (or with null, unsets) a variable for the scope.
struct ScopedEnv {
    std::string strName;
    std::optional<std::string> strOld;
    ScopedEnv(const char* pszName, const char* pszValue) : strName(pszName) {
        if (const char* pszOld = getenv(pszName)) {
            strOld = pszOld;
        }
        (void)(pszValue ? setenv(pszName, pszValue, 1) : unsetenv(pszName));
    }
    ~ScopedEnv() {
        (void)(strOld ? setenv(strName.c_str(), strOld->c_str(), 1) : unsetenv(strName.c_str()));
    }
};

TEST(PathsTest, DirectoriesFromSystemdOrDefaults) {
    const struct {
        const char* pszValue;
        const char* pszState;
        const char* pszRuntime;
    } astCases[] = {
        {nullptr, "/var/lib/eventmibd", "/run/eventmibd"},
        {"", "/var/lib/eventmibd", "/run/eventmibd"},
        {"/srv/x", "/srv/x", "/srv/x"},
        {"/srv/a:/srv/b", "/srv/a", "/srv/a"},
        {":/srv/b", "/var/lib/eventmibd", "/run/eventmibd"},
    };
    for (const auto& stCase : astCases) {
        ScopedEnv stState("STATE_DIRECTORY", stCase.pszValue);
        ScopedEnv stRuntime("RUNTIME_DIRECTORY", stCase.pszValue);
        EXPECT_EQ(PLAT_StateDir(), stCase.pszState);
        EXPECT_EQ(PLAT_RuntimeDir(), stCase.pszRuntime);
    }
    ScopedEnv stState("STATE_DIRECTORY", "/s/");  // a trailing slash is not doubled
    EXPECT_EQ(PLAT_TrapSwitchPath(), "/s/trap-switch");
}

// Readiness reaching a service manager's socket is seen by every process test
// (the stack harness waits for it); these are the cases without one.
TEST(ServiceTest, ReadyWithoutAManagerOrWithItsSocketGone) {
    {
        ScopedEnv stNotify("NOTIFY_SOCKET", nullptr);  // no service manager: no failure
        EXPECT_EQ(SERVICE_SetStatus(SERVICE_STATUS_READY), 0u);
        EXPECT_NE(SERVICE_SetStatus(1), 0u);  // no other status is known to it
    }
    ScopedEnv stNotify("NOTIFY_SOCKET", "/nonexistent-mte-dir/notify");
    EXPECT_NE(SERVICE_SetStatus(SERVICE_STATUS_READY), 0u);
}

TEST(LogTest, ScnprintfReturnsWhatItStored) {
    char szBuf[8];
    EXPECT_EQ(scnprintf(szBuf, sizeof(szBuf), "%s", "abc"), 3);
    EXPECT_STREQ(szBuf, "abc");
    EXPECT_EQ(scnprintf(szBuf, sizeof(szBuf), "%s", "abcdefghij"), 7);
    EXPECT_STREQ(szBuf, "abcdefg");
    EXPECT_EQ(scnprintf(szBuf, 1, "%s", "abc"), 0);
    EXPECT_STREQ(szBuf, "");
    EXPECT_EQ(scnprintf(szBuf, 0, "%s", "abc"), 0);
    // Offsets chain without ever passing the end.
    int iLen = scnprintf(szBuf, sizeof(szBuf), "%s", "12345");
    iLen += scnprintf(szBuf + iLen, sizeof(szBuf) - iLen, "%s", "6789");
    EXPECT_EQ(iLen, 7);
    EXPECT_STREQ(szBuf, "1234567");
}

// Runs syslog2 in a child (the log decides once per process where its copy
// goes) whose standard error is a pipe, optionally named as the journal
// stream, and returns what arrived on the pipe and the child's pid.
std::string StderrOfChildLogging(bool bPipeIsJournal) {
    int aiPipe[2];
    EXPECT_EQ(pipe(aiPipe), 0);
    pid_t iPid = fork();
    if (iPid == 0) {
        (void)dup2(aiPipe[1], STDERR_FILENO);
        struct stat stErr;
        (void)fstat(STDERR_FILENO, &stErr);
        std::string strStream = std::to_string(stErr.st_dev) + ":" + std::to_string(stErr.st_ino);
        (void)(bPipeIsJournal ? setenv("JOURNAL_STREAM", strStream.c_str(), 1)
                              : unsetenv("JOURNAL_STREAM"));
        syslog2(0x100000bf, "EVENTMIB", "EVENTMIB_TRACE", "%s", "Ln: 107 x");
        _exit(0);
    }
    (void)close(aiPipe[1]);
    std::string strOut;
    char szBuf[256];
    ssize_t lGot;
    pollfd stPoll{aiPipe[0], POLLIN, 0};  // the child ends at once: bounded anyway
    while (poll(&stPoll, 1, 5000) == 1 && (lGot = read(aiPipe[0], szBuf, sizeof(szBuf))) > 0) {
        strOut.append(szBuf, static_cast<size_t>(lGot));
    }
    (void)close(aiPipe[0]);
    (void)kill(iPid, SIGKILL);
    (void)waitpid(iPid, nullptr, 0);
    return strOut.empty() ? strOut : strOut + "@" + std::to_string(iPid);
}

// Lines are copied to standard error with their mnemonic, unless standard
// error is the journal's stream and the log socket takes them.
TEST(LogTest, LinesAreCopiedToStandardErrorUnlessItIsTheJournal) {
    std::string strOut = StderrOfChildLogging(false);
    std::string strPid = strOut.substr(strOut.find('@') + 1);
    EXPECT_EQ(strOut, "EVENTMIB[" + strPid + "]: EVENTMIB_TRACE: Ln: 107 x\n@" + strPid);
    bool bHaveLogSocket = access("/dev/log", F_OK) == 0;
    strOut = StderrOfChildLogging(true);
    EXPECT_EQ(strOut.empty(), bHaveLogSocket) << strOut;
}

}  // namespace
