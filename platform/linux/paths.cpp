// Placeholder definitions: replaced by the module's implementation.
#include "plat_paths.h"

std::string PLAT_StateDir(void) { return {}; }
std::string PLAT_RuntimeDir(void) { return {}; }
std::string PLAT_MgmtSocketPath(void) { return {}; }
std::string PLAT_PortSocketPath(void) { return {}; }
std::string PLAT_AgentxSocketPath(void) { return {}; }
std::string PLAT_TrapSwitchPath(void) { return {}; }
