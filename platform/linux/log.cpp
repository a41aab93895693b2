// System log with mnemonic on Linux, and the bounded formatter.
//
// Every line goes to syslog(3) as "<MNEMONIC>: <message>", at the level and
// facility of the priority's low byte (the flag bits above it have no meaning
// on Linux). The ident is the one the daemon gave openlog().
//
// A copy goes to standard error as "<ident>[<pid>]: <MNEMONIC>: <message>",
// unless standard error is closed or /dev/null, or it is the journal stream
// systemd connected (JOURNAL_STREAM) while the system log socket /dev/log
// exists: the journal then has the line already. So a person starting the
// daemon by hand, or a test that starts it with standard error in a pipe or a
// file, sees every line, also on machines without a system log socket.
//
// Called from both threads. The stderr decision is taken once; each copy is
// written with a single write(2), so lines of the two threads never interleave.
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "plat_log.h"

namespace {

constexpr size_t LOG_LINE_MAX = 4096;
constexpr uint32_t LOG_LEVEL_FACILITY_MASK = 0xff;
constexpr const char* LOG_SOCKET_PATH = "/dev/log";

std::once_flag g_stStderrOnce;
bool g_bCopyToStderr = false;

bool log_SameFile(const struct stat& stA, const struct stat& stB) {
    return stA.st_dev == stB.st_dev && stA.st_ino == stB.st_ino;
}

// systemd sets JOURNAL_STREAM to "<device>:<inode>" of the stream it gave us.
bool log_StderrIsJournal(const struct stat& stErr) {
    const char* pszStream = getenv("JOURNAL_STREAM");
    if (pszStream == nullptr) {
        return false;
    }
    unsigned long long ullDev = 0;
    unsigned long long ullIno = 0;
    if (sscanf(pszStream, "%llu:%llu", &ullDev, &ullIno) != 2) {
        return false;
    }
    return stErr.st_dev == ullDev && stErr.st_ino == ullIno;
}

bool log_DecideStderr(void) {
    struct stat stErr;
    if (fstat(STDERR_FILENO, &stErr) != 0) {
        return false;
    }
    struct stat stNull;
    if (stat("/dev/null", &stNull) == 0 && log_SameFile(stErr, stNull)) {
        return false;
    }
    struct stat stSock;
    bool bHaveSyslog = stat(LOG_SOCKET_PATH, &stSock) == 0;
    return !(bHaveSyslog && log_StderrIsJournal(stErr));
}

bool log_CopyToStderr(void) {
    std::call_once(g_stStderrOnce, [] { g_bCopyToStderr = log_DecideStderr(); });
    return g_bCopyToStderr;
}

void log_WriteStderr(const char* pszIdent, const char* pszMnemonic, const char* pszText) {
    char szLine[LOG_LINE_MAX + 128];
    int iLen = scnprintf(szLine, sizeof(szLine), "%s[%ld]: %s: %s\n", pszIdent,
                         static_cast<long>(getpid()), pszMnemonic, pszText);
    if (iLen > 0 && szLine[iLen - 1] != '\n') {
        szLine[iLen - 1] = '\n';  // cut line: keep it a line
    }
    const char* pszOut = szLine;
    size_t uiLeft = static_cast<size_t>(iLen);
    while (uiLeft > 0) {
        ssize_t lDone = write(STDERR_FILENO, pszOut, uiLeft);
        if (lDone <= 0) {
            return;
        }
        pszOut += lDone;
        uiLeft -= static_cast<size_t>(lDone);
    }
}

}  // namespace

int scnprintf(char* pszBuf, size_t uiSize, const char* pszFormat, ...) {
    if (pszBuf == nullptr || uiSize == 0) {
        return 0;
    }
    va_list args;
    va_start(args, pszFormat);
    int iRet = vsnprintf(pszBuf, uiSize, pszFormat, args);
    va_end(args);
    if (iRet < 0) {
        pszBuf[0] = '\0';
        return 0;
    }
    return static_cast<size_t>(iRet) >= uiSize ? static_cast<int>(uiSize - 1) : iRet;
}

void vsyslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic,
              const char* pszFormat, va_list args) {
    char szText[LOG_LINE_MAX];
    if (vsnprintf(szText, sizeof(szText), pszFormat, args) < 0) {
        szText[0] = '\0';
    }
    const char* pszMne = pszMnemonic != nullptr ? pszMnemonic : "";
    syslog(static_cast<int>(uiPriority & LOG_LEVEL_FACILITY_MASK), "%s: %s", pszMne, szText);
    if (log_CopyToStderr()) {
        log_WriteStderr(pszIdent != nullptr ? pszIdent : "", pszMne, szText);
    }
}

void syslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic,
             const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    vsyslog2(uiPriority, pszIdent, pszMnemonic, pszFormat, args);
    va_end(args);
}
