// Bounded message queue of 16-byte messages whose id is a descriptor that is
// readable while the queue is not empty. Write fails at once when full, read
// at once when empty.
#ifndef PLAT_QUEUE_H
#define PLAT_QUEUE_H

#include <cstdint>

constexpr uint32_t QUEUE_MSG_SIZE = 16;
constexpr uint32_t QUEUE_INVALID = 0xFFFFFFFFu;
// Results of QUEUE_Write, QUEUE_Read and QUEUE_Delete besides 0 (success).
constexpr uint32_t QUEUE_ERR_FULL = 1;     // write: the queue holds its depth already
constexpr uint32_t QUEUE_ERR_EMPTY = 2;    // read: nothing is waiting
constexpr uint32_t QUEUE_ERR_INVALID = 3;  // no such queue, or a null message

uint32_t QUEUE_Create(const char* pszName, uint32_t uiDepth);
uint32_t QUEUE_Write(uint32_t uiQueue, uint32_t uiArg2, uint32_t uiArg3, const void* pMsg);
uint32_t QUEUE_Read(uint32_t uiQueue, uint32_t uiArg2, uint32_t uiArg3, void* pMsg);
uint32_t QUEUE_Delete(uint32_t uiQueue, uint32_t uiArg2);

#endif  // PLAT_QUEUE_H
