// The daemon's message texts and trace numbers, each under a name that says
// what it reports. The numbers and the words are what operators and tests
// search the log for: an entry never moves and its words never change. A
// text used as a format is taken with mte_DBG_TextFormat, so that the
// compiler checks the call's arguments against it.
#ifndef MTE_TEXTS_H
#define MTE_TEXTS_H

#include <cstddef>
#include <cstdint>

// Resource-string module of the message texts; text i is registered as
// MTE_TEXT(i).
constexpr uint32_t MTE_RC_MODULE = 0x1700000;
constexpr uint32_t MTE_TEXT_COUNT = 52;
constexpr uint32_t MTE_TEXT(uint32_t uiIndex) {
    return MTE_RC_MODULE | uiIndex;
}

// Index of each text ("text n" in the docs). The "REPORT" texts are the
// "\r\n" continuation lines of the firing and failure reports.
enum MTE_TEXT_ID_E : uint32_t {
    MTE_TEXT_NONE = 0,
    MTE_TEXT_ENTRY_NO_MEMORY = 1,
    MTE_TEXT_TIMER_CREATE_FAILED = 2,
    MTE_TEXT_INIT_FAILED = 3,
    MTE_TEXT_REPORT_SAMPLE_TYPE = 4,
    MTE_TEXT_SET_CONTEXT_WILDCARDED = 5,
    MTE_TEXT_SAMPLE_VALUE_NULL = 6,
    MTE_TEXT_SET_SYNTAX_MISMATCH = 7,
    MTE_TEXT_SET_OBJECT_WILDCARDED = 8,
    MTE_TEXT_BUCKET_FULL = 9,
    MTE_TEXT_TIMER_START_FAILED = 10,
    MTE_TEXT_OBJECTS_NONEXISTENT = 11,
    MTE_TEXT_EVENT_DISABLED = 12,
    MTE_TEXT_SAMPLE_NOT_NUMERIC = 13,
    MTE_TEXT_EVENT_NONEXISTENT = 14,
    MTE_TEXT_REPORT_TRIGGER_FIRED = 15,
    MTE_TEXT_REPORT_TRIGGER_RISING = 16,
    MTE_TEXT_REPORT_TRIGGER_FALLING = 17,
    MTE_TEXT_REPORT_TRIGGER_FAILURE = 18,
    MTE_TEXT_REPORT_SET_FAILURE = 19,
    MTE_TEXT_REPORT_TRIGGER_TEST = 20,
    MTE_TEXT_REPORT_TRIGGER_OWNER_NAME = 21,
    MTE_TEXT_REPORT_VALUE_ID = 22,
    MTE_TEXT_REPORT_VALUE = 23,
    MTE_TEXT_REPORT_CONTEXT_NAME = 24,
    MTE_TEXT_REPORT_BOOLEAN_COMPARISON = 25,
    MTE_TEXT_OBJECT_NO_MEMORY = 26,
    MTE_TEXT_REPORT_EXISTENCE_TEST = 27,
    MTE_TEXT_REPORT_BOOLEAN_VALUE = 28,
    MTE_TEXT_REPORT_RISING = 29,
    MTE_TEXT_REPORT_FALLING = 30,
    MTE_TEXT_REPORT_DELTA_RISING = 31,
    MTE_TEXT_REPORT_DELTA_FALLING = 32,
    MTE_TEXT_REPORT_FAILED_REASON = 33,
    MTE_TEXT_RECOVER_FAILED = 34,
    MTE_TEXT_EPOLL_ADD_FAILED = 35,
    MTE_TEXT_PORT_SUBSCRIBE_FAILED = 36,
    MTE_TEXT_SEND_FAILED = 37,
    MTE_TEXT_INVALID_CONTEXT_LENGTH = 38,
    MTE_TEXT_BATCH_CREATE_FAILED = 39,
    MTE_TEXT_INVALID_OID_LENGTH = 40,
    MTE_TEXT_TIMER_INTERVAL_FAILED = 41,
    MTE_TEXT_TIMER_FD_FAILED = 42,
    MTE_TEXT_TIMER_SET_INIT_FAILED = 43,
    MTE_TEXT_RECOVER_NO_HANDLE = 44,
    MTE_TEXT_RECOVER_LIST_NUM = 45,
    MTE_TEXT_MEM_EXCEEDED = 46,
    MTE_TEXT_MEM_NORMAL = 47,
    MTE_TEXT_REPORT_SET_TARGET_TAG = 48,
    MTE_TEXT_REPORT_TRIGGER_TARGET_TAG = 49,
    MTE_TEXT_OBJECT_WILDCARDED = 50,
    MTE_TEXT_TIMER_MODULE_INIT_FAILED = 51,
};

struct MTE_TEXT_S {
    MTE_TEXT_ID_E eId;
    const char* pszText;
};

// clang-format off
inline constexpr MTE_TEXT_S g_astMteTexts[] = {
    {MTE_TEXT_NONE, ""},
    {MTE_TEXT_ENTRY_NO_MEMORY, "%s entry %s-%s: Insufficient memory."},
    {MTE_TEXT_TIMER_CREATE_FAILED, "Trigger entry %s-%s: Failed to create a timer."},
    {MTE_TEXT_INIT_FAILED, "Failed to initialize Event-MIB module."},
    {MTE_TEXT_REPORT_SAMPLE_TYPE, "\r\n   SampleType: %s"},
    {MTE_TEXT_SET_CONTEXT_WILDCARDED,
     "Set failed because the set object's context name is wildcarded but the trigger "
     "context name is fully specified."},
    {MTE_TEXT_SAMPLE_VALUE_NULL, "Sample value is null."},
    {MTE_TEXT_SET_SYNTAX_MISMATCH, "Value syntax of %s doesn't match the destination object's syntax."},
    {MTE_TEXT_SET_OBJECT_WILDCARDED,
     "Set target object failed because the set object is wildcarded but the trigger "
     "object is fully specified."},
    {MTE_TEXT_BUCKET_FULL, "Failed to add sample records. Bucket is already full."},
    {MTE_TEXT_TIMER_START_FAILED, "Failed to start a timer."},
    {MTE_TEXT_OBJECTS_NONEXISTENT, "Objects entry %s-%s: Nonexistent objects."},
    {MTE_TEXT_EVENT_DISABLED, "Event entry %s-%s: Event disabled."},
    {MTE_TEXT_SAMPLE_NOT_NUMERIC, "Sample value is not numeric."},
    {MTE_TEXT_EVENT_NONEXISTENT, "Event entry %s-%s: Nonexistent event."},
    {MTE_TEXT_REPORT_TRIGGER_FIRED, "\r\n   Condition to generate the mteTriggerFired notification occurred."},
    {MTE_TEXT_REPORT_TRIGGER_RISING, "\r\n   Condition to generate the mteTriggerRising notification occurred."},
    {MTE_TEXT_REPORT_TRIGGER_FALLING, "\r\n   Condition to generate the mteTriggerFalling notification occurred."},
    {MTE_TEXT_REPORT_TRIGGER_FAILURE, "\r\n   Condition to generate the mteTriggerFailure notification occurred."},
    {MTE_TEXT_REPORT_SET_FAILURE, "\r\n   Condition to generate the mteEventSetFailure notification occurred."},
    {MTE_TEXT_REPORT_TRIGGER_TEST, "\r\n   TriggerTest: %s"},
    {MTE_TEXT_REPORT_TRIGGER_OWNER_NAME, "\r\n   TriggerOwner: %s\r\n   TriggerName: %s"},
    {MTE_TEXT_REPORT_VALUE_ID, "\r\n   ValueID: %s"},
    {MTE_TEXT_REPORT_VALUE, "\r\n   Value of mteTriggerValueID: %d"},
    {MTE_TEXT_REPORT_CONTEXT_NAME, "\r\n   ContextName: %s"},
    {MTE_TEXT_REPORT_BOOLEAN_COMPARISON, "\r\n   Type of boolean comparison: %s"},
    {MTE_TEXT_OBJECT_NO_MEMORY, "Object entry %s-%s-%u: Insufficient memory."},
    {MTE_TEXT_REPORT_EXISTENCE_TEST, "\r\n   Type of existence test: %s"},
    {MTE_TEXT_REPORT_BOOLEAN_VALUE, "\r\n   Boolean comparison value: %d"},
    {MTE_TEXT_REPORT_RISING, "\r\n   Rising: %d"},
    {MTE_TEXT_REPORT_FALLING, "\r\n   Falling: %d"},
    {MTE_TEXT_REPORT_DELTA_RISING, "\r\n   Deltarising: %d"},
    {MTE_TEXT_REPORT_DELTA_FALLING, "\r\n   Deltafalling: %d"},
    {MTE_TEXT_REPORT_FAILED_REASON, "\r\n   FailedReason: %s"},
    {MTE_TEXT_RECOVER_FAILED, "Failed to recover information about the %s module from DBM."},
    {MTE_TEXT_EPOLL_ADD_FAILED, "Failed to add iFd handler to epoll, iFd = %d."},
    {MTE_TEXT_PORT_SUBSCRIBE_FAILED, "Failed to subscribe to SNMP port service."},
    {MTE_TEXT_SEND_FAILED, "Failed to send TARN message, errno = [%d]."},
    {MTE_TEXT_INVALID_CONTEXT_LENGTH, "Invalid context name length."},
    {MTE_TEXT_BATCH_CREATE_FAILED, "Failed to batch-create sortlists, iRet = %d."},
    {MTE_TEXT_INVALID_OID_LENGTH, "Invalid OID length."},
    {MTE_TEXT_TIMER_INTERVAL_FAILED, "Failed to set timer interval = %d."},
    {MTE_TEXT_TIMER_FD_FAILED, "Failed to create timer FD."},
    {MTE_TEXT_TIMER_SET_INIT_FAILED, "Failed to initialize timer instances."},
    {MTE_TEXT_RECOVER_NO_HANDLE, "Event-MIB module binary recovery: Failed to get DBM handler."},
    {MTE_TEXT_RECOVER_LIST_NUM, "Event-MIB module binary recovery: Obtained sortlist num = %lu."},
    {MTE_TEXT_MEM_EXCEEDED, "Memory threshold was exceeded."},
    {MTE_TEXT_MEM_NORMAL, "Memory usage dropped below the memory threshold."},
    {MTE_TEXT_REPORT_SET_TARGET_TAG, "\r\n   SetTargetTag: %s"},
    {MTE_TEXT_REPORT_TRIGGER_TARGET_TAG, "\r\n   TriggerTargetTag: %s"},
    {MTE_TEXT_OBJECT_WILDCARDED,
     "Variable binding failed because the object %s-%s-%u in the objects table is "
     "wildcarded but the trigger object is fully specified."},
    {MTE_TEXT_TIMER_MODULE_INIT_FAILED, "Failed to initialize timer submodule."},
};
// clang-format on

consteval bool mte_texts_InIndexOrder(void) {
    for (size_t i = 0; i < sizeof(g_astMteTexts) / sizeof(g_astMteTexts[0]); ++i) {
        if (g_astMteTexts[i].eId != i) {
            return false;
        }
    }
    return true;
}
static_assert(sizeof(g_astMteTexts) / sizeof(g_astMteTexts[0]) == MTE_TEXT_COUNT);
static_assert(mte_texts_InIndexOrder(), "row i of the texts table must be text i");

// The text as a string literal, for use as a format: evaluated at compile
// time, so g++ checks the arguments of the printing call against it.
consteval const char* mte_DBG_TextFormat(MTE_TEXT_ID_E eId) {
    return g_astMteTexts[eId].pszText;
}

// Trace numbers ("Ln:" of a trace record), by the module that writes them.

// core: start-up, the main epoll set, the memory alert.
constexpr int64_t MTE_TRACE_EPOLL_ADD_FAILED = 84;
constexpr int64_t MTE_TRACE_INIT_FAILED = 107;
constexpr int64_t MTE_TRACE_MEM_EXCEEDED = 206;
constexpr int64_t MTE_TRACE_MEM_NORMAL = 213;

// channel: the management socket and the port service.
constexpr int64_t MTE_TRACE_PORT_SUBSCRIBE_FAILED = 260;
constexpr int64_t MTE_TRACE_SEND_FAILED = 346;
constexpr int64_t MTE_TRACE_SOCKET_SETUP_FAILED = 347;
constexpr int64_t MTE_TRACE_PEER_REFUSED = 348;
constexpr int64_t MTE_TRACE_ACCEPT_PAUSED = 349;

// run: the sampling timers, the worker and the relay to eventmib-agentx.
constexpr int64_t MTE_TRACE_TIMER_CREATE_FAILED = 176;
constexpr int64_t MTE_TRACE_TIMER_INTERVAL_FAILED = 541;
constexpr int64_t MTE_TRACE_TIMER_SET_INIT_FAILED = 579;
constexpr int64_t MTE_TRACE_TIMER_FD_FAILED = 596;
constexpr int64_t MTE_TRACE_TIMER_MODULE_INIT_FAILED = 715;
constexpr int64_t MTE_TRACE_SAMPLING_SHORTFALL = 2291;
constexpr int64_t MTE_TRACE_SIGMASK_FAILED = 3532;
constexpr int64_t MTE_TRACE_RELAY_FULL = 3541;
constexpr int64_t MTE_TRACE_RELAY_ROOM_AGAIN = 3542;
constexpr int64_t MTE_TRACE_RELAY_PEER_AWAY = 3543;
constexpr int64_t MTE_TRACE_RELAY_PEER_BACK = 3544;
constexpr int64_t MTE_TRACE_RELAY_DROPPED_AT_STOP = 3545;

// store: the configuration store and the replay of stored rows.
constexpr int64_t MTE_TRACE_RECOVER_NO_HANDLE = 1217;
constexpr int64_t MTE_TRACE_WRITES_PENDING = 1218;
constexpr int64_t MTE_TRACE_PENDING_WRITTEN = 1219;
constexpr int64_t MTE_TRACE_PENDING_LOST = 1220;
constexpr int64_t MTE_TRACE_RECOVER_LIST_NUM = 1224;
constexpr int64_t MTE_TRACE_BATCH_CREATE_FAILED = 1513;

#endif  // MTE_TEXTS_H
