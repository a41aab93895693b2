// The Event MIB served by eventmib-agentx: RFC 2981's objects under
// mteObjects (1.3.6.1.2.1.88.1), every answer fetched from eventmibd through
// its management socket. Call on the agent's thread only.
#ifndef EMA_MIB_BRIDGE_H
#define EMA_MIB_BRIDGE_H

#include <cstdint>

// Registers the handler of the mteObjects subtree with the agent library:
// call after init_agent() (before or after init_snmp()). 0, or 0x40010001
// when the agent library refuses the registration.
uint32_t EMA_MIB_Register(void);
// Removes the registration and closes the connection to eventmibd.
void EMA_MIB_Unregister(void);

#endif  // EMA_MIB_BRIDGE_H
