// Management message dispatch: one request buffer in, one reply buffer out.
// Runs on the main thread only.
#ifndef MTE_CFG_H
#define MTE_CFG_H

#include <cstdint>

// Message types (handler table slots 1..16).
enum : uint16_t {
    MTE_MSG_TYPE_SCALARS = 1,
    MTE_MSG_TYPE_SAMPLE_MIN = 2,
    MTE_MSG_TYPE_INSTANCE_MAX = 3,
    MTE_MSG_TYPE_TRIGGER = 4,
    MTE_MSG_TYPE_BOOLEAN = 5,
    MTE_MSG_TYPE_EXISTENCE = 6,
    MTE_MSG_TYPE_THRESHOLD = 7,
    MTE_MSG_TYPE_OBJECTS = 8,
    MTE_MSG_TYPE_EVENT = 9,
    MTE_MSG_TYPE_NOTIFY = 10,
    MTE_MSG_TYPE_SET = 11,
    MTE_MSG_TYPE_DBG_ENABLE = 12,
    MTE_MSG_TYPE_DBG_DISABLE = 13,
    MTE_MSG_TYPE_DBG_GET = 14,
    MTE_MSG_TYPE_DELTA = 15,            // an addition: mteTriggerDeltaTable
    MTE_MSG_TYPE_ENGINE_COUNTERS = 16,  // an addition: the engine's counters (get only)
    MTE_MSG_TYPE_COUNT = 17,            // slots in the handler table, slot 0 empty
};

// Operations.
enum : uint16_t {
    MTE_MSG_OP_SET = 1,
    MTE_MSG_OP_GET = 2,
    MTE_MSG_OP_GET_NEXT = 3,
};

// Answers one request; returns the reply length (at least 20).
uint32_t mte_CFG_Proc(const uint8_t* pucRequest, uint32_t uiRequestLen, uint32_t uiCapacity,
                      uint8_t* pucReply);

#endif  // MTE_CFG_H
