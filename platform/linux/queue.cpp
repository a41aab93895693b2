// Placeholder definitions: replaced by the module's implementation.
#include "plat_queue.h"

uint32_t QUEUE_Create(const char* pszName, uint32_t uiDepth) { return {}; }
uint32_t QUEUE_Write(uint32_t uiQueue, uint32_t uiArg2, uint32_t uiArg3, const void* pMsg) { return {}; }
uint32_t QUEUE_Read(uint32_t uiQueue, uint32_t uiArg2, uint32_t uiArg3, void* pMsg) { return {}; }
uint32_t QUEUE_Delete(uint32_t uiQueue, uint32_t uiArg2) { return {}; }
