// Placeholder definitions: replaced by the module's implementation.
#include "plat_log.h"

void syslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic, const char* pszFormat, ...) {}
void vsyslog2(uint32_t uiPriority, const char* pszIdent, const char* pszMnemonic, const char* pszFormat, va_list args) {}
int scnprintf(char* pszBuf, size_t uiSize, const char* pszFormat, ...) { return -1; }
