// System log with mnemonic, and the bounded formatter.
#ifndef PLAT_LOG_H
#define PLAT_LOG_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

// Writes one line to the system log. The low byte of the priority is the
// syslog facility and level; the flag bits above it belong to the log service.
void syslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic,
             const char* pszFormat, ...) __attribute__((format(printf, 4, 5)));
void vsyslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic,
              const char* pszFormat, va_list args);
// Like snprintf, but returns the number of characters stored (at most size - 1).
int scnprintf(char* pszBuf, size_t uiSize, const char* pszFormat, ...)
    __attribute__((format(printf, 3, 4)));

#endif  // PLAT_LOG_H
