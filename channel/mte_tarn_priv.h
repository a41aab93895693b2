// Channel-private: the trap flag's writer, kept with the flag in its own
// source so that the notification senders, which only read the flag, do not
// pull the sockets and platform links of the channel into their programs.
#ifndef MTE_TARN_PRIV_H
#define MTE_TARN_PRIV_H

#include <cstdint>

// Sets the trap flag (1 on, 0 off) under the trap-switch mutex.
void mte_tarn_SetTrapFlag(uint16_t usFlag);

#endif  // MTE_TARN_PRIV_H
