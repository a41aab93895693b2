// Local IPC channel with the SNMP agent: the management socket, the trap
// switch and the port-service subscription. Handlers run on the main thread;
// the trap flag is also read by the worker, under its mutex.
#ifndef MTE_TARN_H
#define MTE_TARN_H

#include <cstddef>
#include <cstdint>

#include "mte_trapflag.h"

// Size of the receive and reply buffers of one request.
constexpr size_t MTE_TARN_BUF_SIZE = 5120;

// Creates the listening socket and registers the trap switch; the OR of both.
uint32_t mte_TARN_Init(void);
// Closes the listening socket, the trap switch and the port subscription;
// accepted connections drain on their own. Safe to call twice.
void mte_TARN_Fini(void);
// Subscribes to the agent's port-service events.
uint32_t mte_SNMP_RegService(void);
// Number of accepted connections still open.
uint32_t mte_GetTarnSocketNum(void);

#endif  // MTE_TARN_H
