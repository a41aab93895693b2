// Placeholder definitions: replaced by the module's implementation.
#include "mte_dbg.h"

uint32_t mte_DBG_Init(void) { return {}; }
void mte_DBG_Fini(void) {}
uint32_t MTE_AppRcInit(void) { return {}; }
uint32_t MTE_AppRcExit(void) { return {}; }
void mte_DBG_EnableSwitch(uint32_t uiMask) {}
void mte_DBG_DisableSwitch(uint32_t uiMask) {}
uint32_t mte_DBG_GetSwitch(void) { return {}; }
uint16_t mte_DBG_IsEnable(uint32_t uiMask) { return {}; }
void mte_DBG_PrintTraceInfo(int64_t llTraceNo, const char* pszFormat, ...) {}
void mte_DBG_Print(const char* pszMnemonic, const char* pszFormat, ...) {}
void mte_DBG_VPrint(const char* pszMnemonic, const char* pszFormat, va_list args) {}
const char* mte_DBG_Text(uint32_t uiIndex) { return nullptr; }
void mte_dbg_DbgSwtRdLock(void) {}
void mte_dbg_DbgSwtWrLock(void) {}
void mte_dbg_DbgSwtUnLock(void) {}
