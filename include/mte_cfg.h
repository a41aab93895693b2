// Management message dispatch: one request buffer in, one reply buffer out.
// Runs on the main thread only.
#ifndef MTE_CFG_H
#define MTE_CFG_H

#include <cstdint>

#include "mte_msg.h"

// Answers one request; returns the reply length (at least 20).
uint32_t mte_CFG_Proc(const uint8_t* pucRequest, uint32_t uiRequestLen, uint32_t uiCapacity,
                      uint8_t* pucReply);

#endif  // MTE_CFG_H
