// Message queue: its depth, and two writers with one reader woken by epoll.
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "plat_queue.h"

namespace {

struct Msg {
    uint64_t ullReserved;
    uint64_t ullValue;
};
static_assert(sizeof(Msg) == QUEUE_MSG_SIZE);

bool Readable(int iEpoll) {
    epoll_event stEvent{};
    return epoll_wait(iEpoll, &stEvent, 1, 0) == 1 && (stEvent.events & EPOLLIN);
}

// Order, wrap-around, refusals while full and readability (also that a
// drained queue is not readable) are TwoWritersOneReader's, the exact depth
// the engine's full-queue test's (EngineSampler.FullQueueEndsTheWalk...);
// here a deleted queue, which must refuse rather than be written.
TEST(QueueTest, DeletedQueueRefuses) {
    uint32_t uiQueue = QUEUE_Create("mteMsgQue", 3);
    ASSERT_NE(QUEUE_INVALID, uiQueue);
    Msg stMsg{};
    EXPECT_EQ(0u, QUEUE_Delete(uiQueue, 0));
    EXPECT_NE(0u, QUEUE_Write(uiQueue, 1, 0, &stMsg));
    EXPECT_NE(0u, QUEUE_Delete(uiQueue, 0));
}

// Two writers, one reader woken by epoll: nothing lost, nothing duplicated,
// and each writer's messages arrive in its order.
TEST(QueueTest, TwoWritersOneReader) {
    constexpr uint64_t N = 20000;
    uint32_t uiQueue = QUEUE_Create("mteMsgQue", 1000);
    ASSERT_NE(QUEUE_INVALID, uiQueue);
    auto writer = [uiQueue](uint64_t ullTag) {
        for (uint64_t i = 0; i < N;) {
            Msg stMsg{0, (ullTag << 32) | i};
            if (QUEUE_Write(uiQueue, 1, 0, &stMsg) == 0) {
                i++;
            } else {
                std::this_thread::yield();
            }
        }
    };
    std::thread a(writer, 1);
    std::thread b(writer, 2);
    int iEpoll = epoll_create(2);
    epoll_event stEvent{};
    stEvent.events = EPOLLIN;
    ASSERT_EQ(0, epoll_ctl(iEpoll, EPOLL_CTL_ADD, static_cast<int>(uiQueue), &stEvent));
    uint64_t aullNext[3] = {0, 0, 0};
    uint64_t ullGot = 0;
    while (ullGot < 2 * N) {
        ASSERT_EQ(1, epoll_wait(iEpoll, &stEvent, 1, 5000));
        Msg stMsg{};
        while (QUEUE_Read(uiQueue, 1, 0, &stMsg) == 0) {
            uint64_t ullTag = stMsg.ullValue >> 32;
            ASSERT_TRUE(ullTag == 1 || ullTag == 2);
            ASSERT_EQ(aullNext[ullTag], stMsg.ullValue & 0xFFFFFFFF);
            aullNext[ullTag]++;
            ullGot++;
        }
    }
    a.join();
    b.join();
    EXPECT_FALSE(Readable(iEpoll));
    close(iEpoll);
    QUEUE_Delete(uiQueue, 0);
}

}  // namespace
