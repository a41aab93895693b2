// Bounded message queue of 16-byte messages, watched with epoll.
//
// The queue id is an eventfd in semaphore mode whose counter always equals
// the number of messages waiting, so the descriptor is readable exactly while
// the queue is not empty; each read takes one message and decrements the
// counter by one. The messages themselves sit in a ring buffer guarded by the
// queue's mutex; the counter is changed under the same mutex, so the two never
// disagree. Writes may come from several threads (main and worker), reads from
// one (the worker); neither ever blocks: a write to a full queue and a read of
// an empty one fail at once.
//
// Locks: the registry mutex (id -> queue) is taken first and handed over to the
// queue's mutex before it is released, so QUEUE_Delete waits for an operation
// under way instead of freeing the queue beneath it. The queue mutex is a leaf.
#include "plat_queue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

constexpr uint32_t MAX_QUEUES = 16;
constexpr uint32_t MAX_DEPTH = 1u << 20;

struct Queue {
    int iFd;
    uint32_t uiDepth;
    uint32_t uiHead;  // next message to read
    uint32_t uiCount;
    std::mutex stLock;
    unsigned char (*paucRing)[QUEUE_MSG_SIZE];
    char szName[32];
};

std::mutex g_stRegistryLock;
Queue* g_apstQueues[MAX_QUEUES];

// Returns the queue with its mutex held, or null.
Queue* LockQueue(uint32_t uiQueue, std::unique_lock<std::mutex>* pstQueueLock) {
    std::lock_guard<std::mutex> stGuard(g_stRegistryLock);
    for (Queue* pstQueue : g_apstQueues) {
        if (pstQueue != nullptr && static_cast<uint32_t>(pstQueue->iFd) == uiQueue) {
            *pstQueueLock = std::unique_lock<std::mutex>(pstQueue->stLock);
            return pstQueue;
        }
    }
    return nullptr;
}

void FreeQueue(Queue* pstQueue) {
    if (pstQueue->iFd >= 0) {
        close(pstQueue->iFd);
    }
    free(pstQueue->paucRing);
    delete pstQueue;
}

}  // namespace

uint32_t QUEUE_Create(const char* pszName, uint32_t uiDepth) {
    if (uiDepth == 0 || uiDepth > MAX_DEPTH) {
        return QUEUE_INVALID;
    }
    auto* pstQueue = new (std::nothrow) Queue();
    if (pstQueue == nullptr) {
        return QUEUE_INVALID;
    }
    pstQueue->uiDepth = uiDepth;
    pstQueue->paucRing =
        static_cast<unsigned char(*)[QUEUE_MSG_SIZE]>(calloc(uiDepth, QUEUE_MSG_SIZE));
    pstQueue->iFd = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
    if (pszName != nullptr) {
        strncpy(pstQueue->szName, pszName, sizeof(pstQueue->szName) - 1);
    }
    if (pstQueue->paucRing == nullptr || pstQueue->iFd < 0) {
        FreeQueue(pstQueue);
        return QUEUE_INVALID;
    }
    std::lock_guard<std::mutex> stGuard(g_stRegistryLock);
    for (Queue*& pstSlot : g_apstQueues) {
        if (pstSlot == nullptr) {
            pstSlot = pstQueue;
            return static_cast<uint32_t>(pstQueue->iFd);
        }
    }
    FreeQueue(pstQueue);
    return QUEUE_INVALID;
}

uint32_t QUEUE_Write(uint32_t uiQueue, uint32_t uiArg2, uint32_t uiArg3, const void* pMsg) {
    // uiArg2 (message count, always 1) and uiArg3 (flags, always 0) are
    // accepted for the interface's sake: one whole message per call.
    if (pMsg == nullptr) {
        return QUEUE_ERR_INVALID;
    }
    std::unique_lock<std::mutex> stQueueLock;
    Queue* pstQueue = LockQueue(uiQueue, &stQueueLock);
    if (pstQueue == nullptr) {
        return QUEUE_ERR_INVALID;
    }
    if (pstQueue->uiCount == pstQueue->uiDepth) {
        return QUEUE_ERR_FULL;
    }
    uint32_t uiTail = (pstQueue->uiHead + pstQueue->uiCount) % pstQueue->uiDepth;
    if (eventfd_write(pstQueue->iFd, 1) != 0) {
        return QUEUE_ERR_INVALID;
    }
    memcpy(pstQueue->paucRing[uiTail], pMsg, QUEUE_MSG_SIZE);
    pstQueue->uiCount++;
    return 0;
}

uint32_t QUEUE_Read(uint32_t uiQueue, uint32_t uiArg2, uint32_t uiArg3, void* pMsg) {
    if (pMsg == nullptr) {
        return QUEUE_ERR_INVALID;
    }
    std::unique_lock<std::mutex> stQueueLock;
    Queue* pstQueue = LockQueue(uiQueue, &stQueueLock);
    if (pstQueue == nullptr) {
        return QUEUE_ERR_INVALID;
    }
    if (pstQueue->uiCount == 0) {
        return QUEUE_ERR_EMPTY;
    }
    eventfd_t ullOne = 0;
    if (eventfd_read(pstQueue->iFd, &ullOne) != 0) {
        return QUEUE_ERR_INVALID;
    }
    memcpy(pMsg, pstQueue->paucRing[pstQueue->uiHead], QUEUE_MSG_SIZE);
    pstQueue->uiHead = (pstQueue->uiHead + 1) % pstQueue->uiDepth;
    pstQueue->uiCount--;
    return 0;
}

uint32_t QUEUE_Delete(uint32_t uiQueue, uint32_t uiArg2) {
    Queue* pstQueue = nullptr;
    {
        std::lock_guard<std::mutex> stGuard(g_stRegistryLock);
        for (Queue*& pstSlot : g_apstQueues) {
            if (pstSlot != nullptr && static_cast<uint32_t>(pstSlot->iFd) == uiQueue) {
                pstQueue = pstSlot;
                pstSlot = nullptr;
                // An operation that found the queue before it left the
                // registry holds its mutex: wait for it to finish.
                std::lock_guard<std::mutex> stDrain(pstQueue->stLock);
                break;
            }
        }
    }
    if (pstQueue == nullptr) {
        return QUEUE_ERR_INVALID;
    }
    FreeQueue(pstQueue);
    return 0;
}
