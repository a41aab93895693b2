// eventmibd: the Event MIB daemon. No options, no configuration file: the
// configuration lives in the configuration store and arrives through the
// management channel.
#include "mte_core.h"

int main() {
    return mte_MAIN_Run();
}
