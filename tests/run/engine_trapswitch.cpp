// The trap switch as the notification senders see it, set by the tests
// through the channel's own writer of the trap flag.
#include <cstdint>

#include "engine_helpers.h"

// Channel-private writer (channel/mte_tarn_priv.h).
void mte_tarn_SetTrapFlag(uint16_t usFlag);

void ENG_SetTrapSwitch(uint16_t usOn) {
    mte_tarn_SetTrapFlag(usOn);
}
