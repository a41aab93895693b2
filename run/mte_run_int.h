// Private interfaces between the sources of the sampling engine (run/): the
// worker and queue, the sample store, the sampler and the evaluation. Nothing
// outside run/ includes this file.
#ifndef MTE_RUN_INT_H
#define MTE_RUN_INT_H

#include <cstring>

#include "mte_run.h"

// Platform status codes with a meaning of their own to the sampler.
constexpr uint32_t MTE_ST_NO_SUCH_INSTANCE = 0x61010054;
constexpr uint32_t MTE_ST_END_OF_MIB_VIEW = 0x61010059;
// A context the agent does not know: a context prefix need not be one.
constexpr uint32_t MTE_ST_UNKNOWN_CONTEXT = 0x61010057;

// Walks are cut into batches of this many steps; between batches the trigger
// goes back into the queue.
constexpr int MTE_WALK_BATCH = 5;

// True when the value identifier or the context name is wildcarded: the
// trigger is walked and counts one instance per sample.
inline bool mte_run_IsWildcard(const MTE_TRIGGER_ENTRY_S* pstTrigger) {
    return pstTrigger->stRow.uiValueIDWildcard == MTE_TRUE ||
           pstTrigger->stRow.uiContextNameWildcard == MTE_TRUE;
}

// Bounded copy into a fixed field of uiSize bytes; always terminated.
inline void mte_run_StrCopy(char* pszDst, const char* pszSrc, size_t uiSize) {
    size_t uiLen = strnlen(pszSrc, uiSize - 1);
    memcpy(pszDst, pszSrc, uiLen);
    pszDst[uiLen] = '\0';
}

// --- worker and queue (mte_run.cpp) ----------------------------------------
// Writes the trigger's message to the queue; 0 or the queue's failure.
uint32_t mte_run_WriteQueue(MTE_TRIGGER_ENTRY_S* pstTrigger);
// True while the worker thread serves its epoll set (and can answer a drain).
bool mte_run_WorkerAlive(void);
// Frees a trigger that nothing refers to any more (destroyed while the worker
// held it), samples included.
void mte_run_FreeTrigger(MTE_TRIGGER_ENTRY_S* pstTrigger);
// Completes a request the main thread made while the worker held the trigger
// (run state 2, 3 or 5; caller holds the state lock). Returns true when the
// trigger is marked deleted: the caller frees it after unlocking.
bool mte_run_TakeOver(MTE_TRIGGER_ENTRY_S* pstTrigger);

// --- room in the queue, shared by the timers and the worker ------------------
// Due timers fire while fewer messages than this wait; the rest of the depth
// stays free for the walks the worker continues and for the samples taken at
// once, so that the queue itself refuses almost nothing.
constexpr uint32_t MTE_RUN_TIMER_ROOM = MTE_QUEUE_DEPTH - 100;
// Timers held back are fired again once the worker has drained the queue to
// this many messages.
constexpr uint32_t MTE_RUN_ROOM_LOW = MTE_QUEUE_DEPTH / 2;
// The timer set's gate (main thread): nonzero while a due timer may fire.
// When it answers 0 the worker is asked to say when room is back.
int mte_run_TimerGate(void);
// Worker: the queue has drained after the gate held timers back
// (mte_timer.cpp fires them on the main thread).
void mte_timer_RoomFreed(void);
// Main: a timer expiry that gave no sample because the worker could not
// take it (statistics counter and rate-limited trace).
void mte_timer_CountShortfall(uint32_t uiMissed);
// Makes the timer due at once; it fires as soon as the queue has room.
uint32_t mte_timer_ExpireNow(int64_t llTimerId);

// --- sample store (mte_samplist.cpp); caller holds the state lock -----------
// A new sample (context cut to 32 characters, state 255, not over-limit);
// null when memory is exhausted. The value is not taken on failure.
MTE_SAMPLE_S* mte_run_MakeSample(const char* pszContext, const MTE_OID_S* pstOid,
                                 SNMP_VALUE_S* pstValue);
void mte_run_FreeSample(MTE_SAMPLE_S* pstSample);
void mte_run_FreeValue(SNMP_VALUE_S* pstValue);
void mte_run_AppendCur(MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_SAMPLE_S* pstSample);
// Unlinks and frees the tail of the current list.
void mte_run_FreeCurTail(MTE_TRIGGER_ENTRY_S* pstTrigger);
// Over-limit tail rule: a run of refused instances keeps only its last sample.
void mte_run_ProcForLimit(MTE_SAMPLE_S* pstSample, MTE_TRIGGER_ENTRY_S* pstTrigger);
// Drops what is left of the previous list, then the current list (without its
// over-limit samples and context markers) becomes the previous list.
void mte_run_Commit(MTE_TRIGGER_ENTRY_S* pstTrigger);
// Drops the cycle under way: the current list and the instances it counted.
void mte_run_DropCycle(MTE_TRIGGER_ENTRY_S* pstTrigger);
// Instance suffix of a sample: its OID beyond the trigger's value identifier.
void mte_run_Suffix(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_SAMPLE_S* pstSample,
                    MTE_OID_S* pstSuffix);
void mte_run_SampleOid(const MTE_SAMPLE_S* pstSample, MTE_OID_S* pstOid);

// --- sampler (mte_sampler.cpp) ---------------------------------------------
// What the sampler needs of the trigger's row, copied under the state lock
// when the trigger is dequeued: the agent is asked without the lock, and the
// main thread may change a row that is out of service meanwhile.
struct MTE_RUN_CFG_S {
    char szOwner[MTE_NAME_SIZE];
    char szContext[MTE_NAME_SIZE];  // the context name, or the prefix of a context walk
    MTE_OID_S stValueID;
    bool bValueIDWildcard;
    bool bContextWildcard;
    // The delta row: the discontinuity indicators are read with the samples.
    bool bDelta;
    bool bDiscWildcard;
    bool bDiscIsUpTime;  // the discontinuity object is sysUpTime.0 itself
    MTE_OID_S stDiscID;
};
void mte_run_Snapshot(const MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_RUN_CFG_S* pstCfg);
// One cycle, or one batch of a walk, of a trigger dequeued in state 4. Lock
// not held on entry or return; the trigger may have been freed on return.
void mte_run_SampleStep(MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_RUN_CFG_S* pstCfg);

// --- discontinuity check of delta triggers (mte_disc.cpp) -------------------
// The indicators read with one sample: sysUpTime.0 and the discontinuity
// object's value.
struct MTE_DISC_S {
    bool bRead;
    uint32_t uiUpTime;
    uint32_t uiLen;
    uint8_t aucValue[12];
};
// One reading of the indicators; uiStatus is 0, or the client's status for
// the indicator that could not be read (stFailedOid).
struct MTE_DISC_READ_S {
    MTE_DISC_S stDisc;
    uint32_t uiStatus;
    MTE_OID_S stFailedOid;
};
// Copies the delta row into the snapshot (caller holds the state lock).
void mte_run_DeltaSnapshot(const MTE_TRIGGER_ENTRY_S* pstTrigger, MTE_RUN_CFG_S* pstCfg);
// One GET for the value at pstValueOid (none when null) and the indicators
// of the instance pstInstance; returns the value, its status in
// *puiValueStatus. No lock held.
SNMP_VALUE_S* mte_run_ReadWithDisc(const MTE_RUN_CFG_S* pstCfg, const char* pszContext,
                                   const MTE_OID_S* pstValueOid, const MTE_OID_S* pstInstance,
                                   uint32_t* puiValueStatus, MTE_DISC_READ_S* pstRead);
// Stores the indicators in the sample; nothing for null.
void mte_run_SetDisc(MTE_SAMPLE_S* pstSample, const MTE_DISC_READ_S* pstRead);
// True when the pair of a delta trigger straddles a discontinuity.
bool mte_run_Discontinuity(const MTE_TRIGGER_ENTRY_S* pstTrigger, const MTE_SAMPLE_S* pstPrev,
                           const MTE_SAMPLE_S* pstCur);

// --- evaluation (mte_eval.cpp); caller holds the state lock ------------------
// A list of event requests in the order collected.
struct MTE_EVENT_LIST_S {
    MTE_FIRED_EVENT_S* pstHead;
    MTE_FIRED_EVENT_S* pstTail;
};
// Runs the selected tests on one instance's pair of samples (either may be
// none), sends the notifications and collects event requests.
void mte_run_Evaluate(const MTE_OID_S* pstSuffix, MTE_TRIGGER_ENTRY_S* pstTrigger,
                      MTE_SAMPLE_S* pstPrev, MTE_SAMPLE_S* pstCur, MTE_EVENT_LIST_S* pstEvents);
// Hot value: the value as a signed 32-bit integer for type codes 0..2, else 0.
int32_t mte_run_HotValue(const MTE_SAMPLE_S* pstSample);

#endif  // MTE_RUN_INT_H
