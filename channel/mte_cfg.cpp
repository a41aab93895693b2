// Placeholder definitions: replaced by the module's implementation.
#include "mte_cfg.h"

uint32_t mte_CFG_Proc(const uint8_t* pucRequest, uint32_t uiRequestLen, uint32_t uiCapacity, uint8_t* pucReply) { return {}; }
