// Fake system log: captures lines in memory, from any thread.
#include "fake_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "plat_log.h"

namespace {
std::mutex g_stLock;
std::vector<FAKE_LOG_LINE_S> g_astLines;
}  // namespace

void vsyslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic,
              const char* pszFormat, va_list args) {
    char szBuf[8192];
    vsnprintf(szBuf, sizeof(szBuf), pszFormat, args);
    std::lock_guard<std::mutex> guard(g_stLock);
    g_astLines.push_back(
        {uiPriority, pszIdent ? pszIdent : "", pszMnemonic ? pszMnemonic : "", szBuf});
}

void syslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic,
             const char* pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    vsyslog2(uiPriority, pszIdent, pszMnemonic, pszFormat, args);
    va_end(args);
}

int scnprintf(char* pszBuf, size_t uiSize, const char* pszFormat, ...) {
    if (uiSize == 0) {
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

std::vector<FAKE_LOG_LINE_S> FAKE_LOG_Lines(void) {
    std::lock_guard<std::mutex> guard(g_stLock);
    return g_astLines;
}

void FAKE_LOG_Clear(void) {
    std::lock_guard<std::mutex> guard(g_stLock);
    g_astLines.clear();
}

size_t FAKE_LOG_Count(const std::string& strMnemonic, const std::string& strFragment) {
    std::lock_guard<std::mutex> guard(g_stLock);
    return std::count_if(g_astLines.begin(), g_astLines.end(), [&](const FAKE_LOG_LINE_S& stLine) {
        return stLine.strMnemonic == strMnemonic &&
               stLine.strText.find(strFragment) != std::string::npos;
    });
}
