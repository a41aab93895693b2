// Timer set: the periodic timers that decide when each trigger is sampled.
//
// A set keeps its own clock in milliseconds, advanced only by
// Timer_Tick_Announce (one tick per call, the tick length given to
// Timer_Initialize, 1000 ms for the daemon). Due timers are kept in a binary
// min-heap keyed by due time, so a tick costs O(k log n) for the k timers that
// expire and nothing for idle ones. Suspend, restart and delete do not search
// the heap: they bump the timer's generation and the stale heap entry is
// dropped when it surfaces (lazy invalidation); the heap is compacted when
// stale entries outnumber live ones.
//
// A gate (Timer_SetGate) is asked before each callback: while it says no, the
// due timers stay due in the heap, oldest first, and Timer_Fire_Due fires them
// later without moving the clock. The daemon's gate is the room left in the
// sampling queue, so a crowd of timers due in one tick is fired as fast as
// the worker takes them, not refused. A timer held back a whole tick has
// missed an expiry: it takes its new phase from the tick that fires it (a
// crowd the worker cannot take in one tick spreads itself out), and the
// expiries it missed are counted (Timer_Skipped).
//
// Threads: callbacks run on the announcing thread (the main thread). Every
// operation may be called from any thread: the set's mutex guards all of its
// state and is never held while a callback runs, so a callback may take other
// locks and call back into the set, and another thread (the sampling worker)
// may call Timer_SetStatus while the main thread announces. Lock order: the
// set's mutex is a leaf. Timer_Finalize must not race other calls on the same
// set.
//
// Ids: (creation sequence << 32) | slot. The sequence grows for every
// creation, so an id is never reused within a set; the slot makes lookup O(1).
#include "plat_timer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

constexpr uint64_t SET_MAGIC = 0x54494d4552534554ull;  // "TIMERSET"
constexpr uint32_t MIN_CAPACITY = 16;
constexpr uint32_t NO_SLOT = 0xFFFFFFFFu;
constexpr int64_t MAX_SEQUENCE = 0x7FFFFFFF;

enum : uint8_t { SLOT_FREE = 0, SLOT_ACTIVE = 1, SLOT_SUSPENDED = 2 };

struct TimerSlot {
    int64_t llId;         // id of the timer in this slot; -1 when free
    uint64_t ullDueMs;    // next expiry on the set's clock, valid while active
    uint32_t uiPeriodMs;  // > 0
    uint32_t uiGen;       // bumped on every change; heap entries carry a copy
    uint32_t uiNextFree;  // free-slot chain
    uint8_t ucState;
    TIMER_CALLBACK_PF pfCallback;
    unsigned char aucContext[TIMER_CONTEXT_SIZE];
};

struct HeapEntry {
    uint64_t ullDueMs;
    uint32_t uiSlot;
    uint32_t uiGen;
};

struct TimerSet {
    uint64_t ullMagic;
    std::mutex stLock;
    bool bRunning;
    uint32_t uiTickMs;
    uint64_t ullNowMs;
    int64_t llNextSeq;
    TimerSlot* pstSlots;
    uint32_t uiSlotCap;
    uint32_t uiSlotUsed;  // slots ever handed out (high-water mark)
    uint32_t uiFreeHead;
    uint32_t uiActive;  // timers in SLOT_ACTIVE: one valid heap entry each
    HeapEntry* pstHeap;
    uint32_t uiHeapLen;
    uint32_t uiHeapCap;
    TIMER_GATE_PF pfGate;  // null: every due timer fires
    uint64_t ullSkipped;   // expiries missed by timers the gate held back
};

TimerSet* SetFromHandle(uint64_t ulSet) {
    auto* pstSet = reinterpret_cast<TimerSet*>(ulSet);
    if (pstSet == nullptr || pstSet->ullMagic != SET_MAGIC) {
        return nullptr;
    }
    return pstSet;
}

bool HeapLess(const HeapEntry& a, const HeapEntry& b) {
    return a.ullDueMs < b.ullDueMs;
}

void HeapSiftUp(HeapEntry* pstHeap, uint32_t uiPos) {
    HeapEntry stItem = pstHeap[uiPos];
    while (uiPos > 0) {
        uint32_t uiParent = (uiPos - 1) / 2;
        if (!HeapLess(stItem, pstHeap[uiParent])) {
            break;
        }
        pstHeap[uiPos] = pstHeap[uiParent];
        uiPos = uiParent;
    }
    pstHeap[uiPos] = stItem;
}

void HeapSiftDown(HeapEntry* pstHeap, uint32_t uiLen, uint32_t uiPos) {
    HeapEntry stItem = pstHeap[uiPos];
    for (;;) {
        uint32_t uiChild = 2 * uiPos + 1;
        if (uiChild >= uiLen) {
            break;
        }
        if (uiChild + 1 < uiLen && HeapLess(pstHeap[uiChild + 1], pstHeap[uiChild])) {
            uiChild++;
        }
        if (!HeapLess(pstHeap[uiChild], stItem)) {
            break;
        }
        pstHeap[uiPos] = pstHeap[uiChild];
        uiPos = uiChild;
    }
    pstHeap[uiPos] = stItem;
}

bool EntryIsLive(const TimerSet* pstSet, const HeapEntry& stEntry) {
    const TimerSlot& stSlot = pstSet->pstSlots[stEntry.uiSlot];
    return stSlot.ucState == SLOT_ACTIVE && stSlot.uiGen == stEntry.uiGen;
}

// Drops stale entries and rebuilds the heap; keeps memory and pop cost
// proportional to the live timers however often they are suspended.
void HeapCompact(TimerSet* pstSet) {
    uint32_t uiKept = 0;
    for (uint32_t i = 0; i < pstSet->uiHeapLen; i++) {
        if (EntryIsLive(pstSet, pstSet->pstHeap[i])) {
            pstSet->pstHeap[uiKept++] = pstSet->pstHeap[i];
        }
    }
    pstSet->uiHeapLen = uiKept;
    for (uint32_t i = uiKept / 2; i-- > 0;) {
        HeapSiftDown(pstSet->pstHeap, uiKept, i);
    }
}

bool HeapPush(TimerSet* pstSet, uint64_t ullDueMs, uint32_t uiSlot, uint32_t uiGen) {
    if (pstSet->uiHeapLen > 2 * pstSet->uiActive + MIN_CAPACITY) {
        HeapCompact(pstSet);
    }
    if (pstSet->uiHeapLen == pstSet->uiHeapCap) {
        uint32_t uiNewCap = pstSet->uiHeapCap * 2;
        auto* pstNew =
            static_cast<HeapEntry*>(realloc(pstSet->pstHeap, sizeof(HeapEntry) * uiNewCap));
        if (pstNew == nullptr) {
            return false;
        }
        pstSet->pstHeap = pstNew;
        pstSet->uiHeapCap = uiNewCap;
    }
    pstSet->pstHeap[pstSet->uiHeapLen] = {ullDueMs, uiSlot, uiGen};
    HeapSiftUp(pstSet->pstHeap, pstSet->uiHeapLen);
    pstSet->uiHeapLen++;
    return true;
}

void HeapPop(TimerSet* pstSet) {
    pstSet->uiHeapLen--;
    if (pstSet->uiHeapLen > 0) {
        pstSet->pstHeap[0] = pstSet->pstHeap[pstSet->uiHeapLen];
        HeapSiftDown(pstSet->pstHeap, pstSet->uiHeapLen, 0);
    }
}

TimerSlot* SlotFromId(TimerSet* pstSet, int64_t llId) {
    if (llId < 0) {
        return nullptr;
    }
    uint32_t uiSlot = static_cast<uint32_t>(llId & 0xFFFFFFFF);
    if (uiSlot >= pstSet->uiSlotUsed) {
        return nullptr;
    }
    TimerSlot* pstSlot = &pstSet->pstSlots[uiSlot];
    return (pstSlot->ucState != SLOT_FREE && pstSlot->llId == llId) ? pstSlot : nullptr;
}

uint32_t SlotIndex(const TimerSet* pstSet, const TimerSlot* pstSlot) {
    return static_cast<uint32_t>(pstSlot - pstSet->pstSlots);
}

uint32_t AllocSlot(TimerSet* pstSet) {
    if (pstSet->uiFreeHead != NO_SLOT) {
        uint32_t uiSlot = pstSet->uiFreeHead;
        pstSet->uiFreeHead = pstSet->pstSlots[uiSlot].uiNextFree;
        return uiSlot;
    }
    if (pstSet->uiSlotUsed == pstSet->uiSlotCap) {
        if (pstSet->uiSlotCap > NO_SLOT / 4) {
            return NO_SLOT;
        }
        uint32_t uiNewCap = pstSet->uiSlotCap * 2;
        auto* pstNew =
            static_cast<TimerSlot*>(realloc(pstSet->pstSlots, sizeof(TimerSlot) * uiNewCap));
        if (pstNew == nullptr) {
            return NO_SLOT;
        }
        memset(pstNew + pstSet->uiSlotCap, 0, sizeof(TimerSlot) * (uiNewCap - pstSet->uiSlotCap));
        pstSet->pstSlots = pstNew;
        pstSet->uiSlotCap = uiNewCap;
    }
    return pstSet->uiSlotUsed++;
}

// (Re)starts the countdown of a timer from the current clock.
bool ArmSlot(TimerSet* pstSet, TimerSlot* pstSlot) {
    pstSlot->uiGen++;
    pstSlot->ullDueMs = pstSet->ullNowMs + pstSlot->uiPeriodMs;
    if (pstSlot->ucState != SLOT_ACTIVE) {
        pstSlot->ucState = SLOT_ACTIVE;
        pstSet->uiActive++;
    }
    if (!HeapPush(pstSet, pstSlot->ullDueMs, SlotIndex(pstSet, pstSlot), pstSlot->uiGen)) {
        // Without a heap entry the timer could never fire: leave it suspended
        // rather than pretend it runs.
        pstSlot->ucState = SLOT_SUSPENDED;
        pstSet->uiActive--;
        return false;
    }
    return true;
}

// Makes a running timer due now; it keeps its period.
bool ExpireSlot(TimerSet* pstSet, TimerSlot* pstSlot) {
    pstSlot->uiGen++;
    pstSlot->ullDueMs = pstSet->ullNowMs;
    if (!HeapPush(pstSet, pstSlot->ullDueMs, SlotIndex(pstSet, pstSlot), pstSlot->uiGen)) {
        pstSlot->ucState = SLOT_SUSPENDED;
        pstSet->uiActive--;
        return false;
    }
    return true;
}

void DisarmSlot(TimerSet* pstSet, TimerSlot* pstSlot) {
    pstSlot->uiGen++;
    if (pstSlot->ucState == SLOT_ACTIVE) {
        pstSet->uiActive--;
    }
    pstSlot->ucState = SLOT_SUSPENDED;
}

// True when a live timer is due at or before the set's clock; drops the
// stale entries on top of the heap on the way.
bool HasDue(TimerSet* pstSet) {
    while (pstSet->uiHeapLen > 0 && pstSet->pstHeap[0].ullDueMs <= pstSet->ullNowMs) {
        if (EntryIsLive(pstSet, pstSet->pstHeap[0])) {
            return true;
        }
        HeapPop(pstSet);
    }
    return false;
}

// Pops the next timer due at or before the set's clock, reschedules it and
// copies what the callback needs; false when nothing more is due.
bool TakeNextDue(TimerSet* pstSet, TIMER_CALLBACK_PF* ppfCallback,
                 unsigned char aucContext[TIMER_CONTEXT_SIZE]) {
    while (pstSet->uiHeapLen > 0 && pstSet->pstHeap[0].ullDueMs <= pstSet->ullNowMs) {
        HeapEntry stTop = pstSet->pstHeap[0];
        HeapPop(pstSet);
        if (!EntryIsLive(pstSet, stTop)) {
            continue;
        }
        TimerSlot* pstSlot = &pstSet->pstSlots[stTop.uiSlot];
        // A period shorter than the tick fires once per tick; the phase is kept.
        // A timer the gate held back a whole tick has missed the expiries
        // that fell meanwhile and takes its new phase from now.
        uint64_t ullBase = pstSlot->ullDueMs;
        if (pstSlot->ullDueMs + pstSet->uiTickMs <= pstSet->ullNowMs) {
            uint64_t ullStep = std::max(pstSlot->uiPeriodMs, pstSet->uiTickMs);
            pstSet->ullSkipped += (pstSet->ullNowMs - pstSlot->ullDueMs) / ullStep;
            ullBase = pstSet->ullNowMs;
        }
        uint64_t ullNext = ullBase + pstSlot->uiPeriodMs;
        if (ullNext <= pstSet->ullNowMs) {
            uint64_t ullBehind = pstSet->ullNowMs - ullNext;
            ullNext += (ullBehind / pstSlot->uiPeriodMs + 1) * pstSlot->uiPeriodMs;
        }
        pstSlot->ullDueMs = ullNext;
        if (!HeapPush(pstSet, ullNext, stTop.uiSlot, pstSlot->uiGen)) {
            DisarmSlot(pstSet, pstSlot);
        }
        *ppfCallback = pstSlot->pfCallback;
        memcpy(aucContext, pstSlot->aucContext, TIMER_CONTEXT_SIZE);
        return true;
    }
    return false;
}

}  // namespace

uint64_t Timer_Initialize(uint32_t uiMaxTimers, uint32_t uiTickMs, uint32_t uiArg3,
                          uint32_t uiArg4) {
    // uiMaxTimers only sizes the first allocation: the set grows on demand so
    // that the number of triggers is not capped here. uiArg3 and uiArg4 have
    // no meaning for this implementation.
    uint32_t uiCap = uiMaxTimers < MIN_CAPACITY ? MIN_CAPACITY : uiMaxTimers;
    auto* pstSet = new (std::nothrow) TimerSet();
    if (pstSet == nullptr) {
        return 0;
    }
    pstSet->pstSlots = static_cast<TimerSlot*>(calloc(uiCap, sizeof(TimerSlot)));
    pstSet->pstHeap = static_cast<HeapEntry*>(calloc(uiCap, sizeof(HeapEntry)));
    if (pstSet->pstSlots == nullptr || pstSet->pstHeap == nullptr) {
        free(pstSet->pstSlots);
        free(pstSet->pstHeap);
        delete pstSet;
        return 0;
    }
    pstSet->ullMagic = SET_MAGIC;
    pstSet->bRunning = false;
    pstSet->uiTickMs = uiTickMs == 0 ? 1000 : uiTickMs;
    pstSet->ullNowMs = 0;
    pstSet->llNextSeq = 1;
    pstSet->uiSlotCap = uiCap;
    pstSet->uiSlotUsed = 0;
    pstSet->uiFreeHead = NO_SLOT;
    pstSet->uiActive = 0;
    pstSet->uiHeapLen = 0;
    pstSet->uiHeapCap = uiCap;
    return reinterpret_cast<uint64_t>(pstSet);
}

uint32_t Timer_Config(uint64_t ulSet, uint32_t uiOn) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr || uiOn > 1) {
        return 1;
    }
    std::lock_guard<std::mutex> stGuard(pstSet->stLock);
    pstSet->bRunning = (uiOn == 1);
    return 0;
}

int64_t Timer_Create(uint64_t ulSet, uint32_t uiType, uint32_t uiPeriodMs,
                     TIMER_CALLBACK_PF pfCallback, const void* pContext) {
    // uiType 1 (periodic) is the only kind there is: every timer is periodic.
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr || uiPeriodMs == 0 || pfCallback == nullptr) {
        return -1;
    }
    std::lock_guard<std::mutex> stGuard(pstSet->stLock);
    if (pstSet->llNextSeq > MAX_SEQUENCE) {
        return -1;
    }
    uint32_t uiSlot = AllocSlot(pstSet);
    if (uiSlot == NO_SLOT) {
        return -1;
    }
    TimerSlot* pstSlot = &pstSet->pstSlots[uiSlot];
    pstSlot->llId = (pstSet->llNextSeq << 32) | uiSlot;
    pstSlot->uiPeriodMs = uiPeriodMs;
    pstSlot->pfCallback = pfCallback;
    pstSlot->ucState = SLOT_SUSPENDED;
    if (pContext != nullptr) {
        memcpy(pstSlot->aucContext, pContext, TIMER_CONTEXT_SIZE);
    } else {
        memset(pstSlot->aucContext, 0, TIMER_CONTEXT_SIZE);
    }
    if (!ArmSlot(pstSet, pstSlot)) {
        pstSlot->ucState = SLOT_FREE;
        pstSlot->llId = -1;
        pstSlot->uiNextFree = pstSet->uiFreeHead;
        pstSet->uiFreeHead = uiSlot;
        return -1;
    }
    pstSet->llNextSeq++;
    return pstSlot->llId;
}

// Status 1 resumes a suspended timer (its countdown starts again; a running
// timer is left alone); status 0 suspends; status 3 sets a new period and, if
// the timer runs, restarts its countdown. A suspended timer stays suspended
// after status 3, so changing the frequency of a stopped trigger does not
// start sampling it.
uint32_t Timer_SetStatus(uint64_t ulSet, int64_t llId, uint32_t uiStatus, uint32_t uiPeriodMs) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return 1;
    }
    std::lock_guard<std::mutex> stGuard(pstSet->stLock);
    TimerSlot* pstSlot = SlotFromId(pstSet, llId);
    if (pstSlot == nullptr) {
        return 1;
    }
    switch (uiStatus) {
        case TIMER_STATUS_SUSPEND:
            if (pstSlot->ucState == SLOT_ACTIVE) {
                DisarmSlot(pstSet, pstSlot);
            }
            return 0;
        case TIMER_STATUS_ACTIVE:
            if (pstSlot->ucState == SLOT_ACTIVE) {
                return 0;
            }
            return ArmSlot(pstSet, pstSlot) ? 0 : 1;
        case TIMER_STATUS_RESTART:
            if (uiPeriodMs == 0) {
                return 1;
            }
            pstSlot->uiPeriodMs = uiPeriodMs;
            if (pstSlot->ucState != SLOT_ACTIVE) {
                return 0;
            }
            return ArmSlot(pstSet, pstSlot) ? 0 : 1;
        case TIMER_STATUS_EXPIRE:
            if (pstSlot->ucState != SLOT_ACTIVE) {
                return 0;
            }
            return ExpireSlot(pstSet, pstSlot) ? 0 : 1;
        default:
            return 1;
    }
}

uint32_t Timer_Delete(uint64_t ulSet, int64_t llId) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return 1;
    }
    std::lock_guard<std::mutex> stGuard(pstSet->stLock);
    TimerSlot* pstSlot = SlotFromId(pstSet, llId);
    if (pstSlot == nullptr) {
        return 1;
    }
    DisarmSlot(pstSet, pstSlot);
    pstSlot->ucState = SLOT_FREE;
    pstSlot->llId = -1;
    pstSlot->uiNextFree = pstSet->uiFreeHead;
    pstSet->uiFreeHead = SlotIndex(pstSet, pstSlot);
    return 0;
}

void Timer_Finalize(uint64_t ulSet) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return;
    }
    pstSet->ullMagic = 0;
    free(pstSet->pstSlots);
    free(pstSet->pstHeap);
    delete pstSet;
}

namespace {

// Fires due timers one at a time, the lock released around each callback: a
// callback may delete or suspend a timer that is due in this same tick, and
// that timer must then not fire. Stops when nothing more is due or the gate
// says no; returns true when due timers are left (held back).
bool FireDue(TimerSet* pstSet) {
    for (;;) {
        TIMER_CALLBACK_PF pfCallback = nullptr;
        TIMER_GATE_PF pfGate = nullptr;
        unsigned char aucContext[TIMER_CONTEXT_SIZE];
        {
            std::lock_guard<std::mutex> stGuard(pstSet->stLock);
            if (!pstSet->bRunning || !HasDue(pstSet)) {
                return false;
            }
            pfGate = pstSet->pfGate;
        }
        // Asked without the lock: the gate may look at other threads' state.
        if (pfGate != nullptr && pfGate() == 0) {
            return true;
        }
        {
            std::lock_guard<std::mutex> stGuard(pstSet->stLock);
            if (!pstSet->bRunning || !TakeNextDue(pstSet, &pfCallback, aucContext)) {
                return false;
            }
        }
        pfCallback(aucContext);
    }
}

}  // namespace

void Timer_Tick_Announce(uint64_t ulSet) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return;
    }
    {
        std::lock_guard<std::mutex> stGuard(pstSet->stLock);
        if (!pstSet->bRunning) {
            return;
        }
        pstSet->ullNowMs += pstSet->uiTickMs;
    }
    (void)FireDue(pstSet);
}

uint32_t Timer_Fire_Due(uint64_t ulSet) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return 0;
    }
    return FireDue(pstSet) ? 1 : 0;
}

void Timer_SetGate(uint64_t ulSet, TIMER_GATE_PF pfGate) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> stGuard(pstSet->stLock);
    pstSet->pfGate = pfGate;
}

uint64_t Timer_Skipped(uint64_t ulSet) {
    TimerSet* pstSet = SetFromHandle(ulSet);
    if (pstSet == nullptr) {
        return 0;
    }
    std::lock_guard<std::mutex> stGuard(pstSet->stLock);
    return pstSet->ullSkipped;
}
