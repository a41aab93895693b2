// Local IPC channel with the SNMP agent: the management socket, the trap
// switch and the port-service subscription. Handlers run on the main thread;
// the trap flag is also read by the worker, under its mutex.
#ifndef MTE_TARN_H
#define MTE_TARN_H

#include <cstddef>
#include <cstdint>

// Size of the receive and reply buffers of one request.
constexpr size_t MTE_TARN_BUF_SIZE = 5120;
// Module name under which the trap switch is kept.
constexpr const char* MTE_TRAPSWITCH_MODULE = "event-mib";

// Creates the listening socket and registers the trap switch; the OR of both.
uint32_t mte_TARN_Init(void);
// Closes the listening socket, the trap switch and the port subscription;
// accepted connections drain on their own. Safe to call twice.
void mte_TARN_Fini(void);
// Subscribes to the agent's port-service events.
uint32_t mte_SNMP_RegService(void);
// Number of accepted connections still open.
uint32_t mte_GetTarnSocketNum(void);
// 1 while notifications may be sent, 0 while the trap switch is off.
uint16_t mte_TARN_TrapSwt(void);

void mte_tarn_TrapSwtLock(void);
void mte_tarn_TrapSwtUnLock(void);

#endif  // MTE_TARN_H
