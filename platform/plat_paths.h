// Where the daemon keeps its state and sockets: systemd's STATE_DIRECTORY and
// RUNTIME_DIRECTORY, with defaults under /var/lib and /run.
#ifndef PLAT_PATHS_H
#define PLAT_PATHS_H

#include <string>

std::string PLAT_StateDir(void);
std::string PLAT_RuntimeDir(void);
// The management socket the agent side connects to.
std::string PLAT_MgmtSocketPath(void);
// The daemon's port-service socket, on which eventmib-agentx announces up and down.
std::string PLAT_PortSocketPath(void);
// eventmib-agentx's own socket: notifications to relay, port-status queries.
std::string PLAT_AgentxSocketPath(void);
// The persistent trap-switch setting.
std::string PLAT_TrapSwitchPath(void);

#endif  // PLAT_PATHS_H
