// Where the daemon keeps its state and its sockets. systemd passes the
// directories it created for StateDirectory= and RuntimeDirectory= in
// STATE_DIRECTORY and RUNTIME_DIRECTORY, possibly several separated by
// colons: the first is ours. Without them (started by hand) the standard
// places apply. Pure functions of the environment; any thread.
#include "plat_paths.h"

#include <cstdlib>

namespace {

constexpr const char* PATHS_DEFAULT_STATE = "/var/lib/eventmibd";
constexpr const char* PATHS_DEFAULT_RUNTIME = "/run/eventmibd";

std::string paths_FirstOf(const char* pszVariable, const char* pszDefault) {
    const char* pszValue = getenv(pszVariable);
    if (pszValue == nullptr) {
        return pszDefault;
    }
    std::string strFirst(pszValue);
    strFirst = strFirst.substr(0, strFirst.find(':'));
    return strFirst.empty() ? pszDefault : strFirst;
}

std::string paths_Join(const std::string& strDir, const char* pszName) {
    if (!strDir.empty() && strDir.back() == '/') {
        return strDir + pszName;
    }
    return strDir + "/" + pszName;
}

}  // namespace

std::string PLAT_StateDir(void) {
    return paths_FirstOf("STATE_DIRECTORY", PATHS_DEFAULT_STATE);
}

std::string PLAT_RuntimeDir(void) {
    return paths_FirstOf("RUNTIME_DIRECTORY", PATHS_DEFAULT_RUNTIME);
}

std::string PLAT_MgmtSocketPath(void) {
    return paths_Join(PLAT_RuntimeDir(), "eventmibd.sock");
}

std::string PLAT_PortSocketPath(void) {
    return paths_Join(PLAT_RuntimeDir(), "eventmibd-port.sock");
}

std::string PLAT_AgentxSocketPath(void) {
    return paths_Join(PLAT_RuntimeDir(), "eventmib-agentx.sock");
}

std::string PLAT_TrapSwitchPath(void) {
    return paths_Join(PLAT_StateDir(), "trap-switch");
}
