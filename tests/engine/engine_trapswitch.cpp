// The trap switch as the notification senders see it, settable by the tests.
#include <atomic>

#include "engine_helpers.h"
#include "mte_tarn.h"

namespace {
std::atomic<uint16_t> g_usEngTrapSwitch{1};
}

void ENG_SetTrapSwitch(uint16_t usOn) {
    g_usEngTrapSwitch.store(usOn);
}

uint16_t mte_TARN_TrapSwt(void) {
    return g_usEngTrapSwitch.load();
}
