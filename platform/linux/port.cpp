// Port-service events on Linux: the AgentX bridge (eventmib-agentx) tells the
// daemon whether the SNMP agent's port service is up or down by sending one
// datagram to the daemon's port socket, PLAT_PortSocketPath(), an AF_UNIX
// SOCK_DGRAM socket. A datagram is either the 12-byte event record
// (SERVICE_PORT_EVENT_S, status u32 at offset 4: 1 up, 2 down) or the text
// "up" or "down" (a trailing newline is allowed). Only senders running as
// root or as the daemon's own user are believed; their credentials come with
// each datagram (SO_PASSCRED / SCM_CREDENTIALS).
//
// On subscription the daemon also sends the text "status" to the bridge's
// socket, PLAT_AgentxSocketPath(), so that a bridge already running answers
// at once with the current status; if the bridge is not there, it announces
// the status when it starts. Main thread only.
#include "plat_port.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "plat_paths.h"
#include "plat_unixsock.h"

namespace {

constexpr uint32_t PORT_ERR = 1;
constexpr const char* PORT_STATUS_QUERY = "status";

void AskForStatus(int iFd) {
    sockaddr_un stAgentx;
    if (!PLAT_UnixAddress(PLAT_AgentxSocketPath(), &stAgentx)) {
        return;
    }
    // Best effort: a bridge that is not running announces itself later.
    (void)sendto(iFd, PORT_STATUS_QUERY, strlen(PORT_STATUS_QUERY), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&stAgentx), sizeof(stAgentx));
}

uint32_t ParseStatus(const char* pcData, size_t uiLen) {
    if (uiLen == sizeof(SERVICE_PORT_EVENT_S)) {
        SERVICE_PORT_EVENT_S stEvent;
        memcpy(&stEvent, pcData, sizeof(stEvent));
        return stEvent.uiPortStatus;
    }
    while (uiLen > 0 && (pcData[uiLen - 1] == '\n' || pcData[uiLen - 1] == '\r')) {
        uiLen--;
    }
    if (uiLen == 2 && memcmp(pcData, "up", 2) == 0) {
        return SERVICE_PORT_UP;
    }
    if (uiLen == 4 && memcmp(pcData, "down", 4) == 0) {
        return SERVICE_PORT_DOWN;
    }
    return 0;
}
}  // namespace

int SubscribeServicePortEvent(uint32_t uiType, const SERVICE_PORT_SUB_S* pstSub) {
    (void)uiType;
    (void)pstSub;
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(PLAT_PortSocketPath(), &stAddr)) {
        return -1;
    }
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        return -1;
    }
    int iOn = 1;
    PLAT_RemoveStaleSocket(&stAddr, SOCK_DGRAM);
    if (setsockopt(iFd, SOL_SOCKET, SO_PASSCRED, &iOn, sizeof(iOn)) != 0 ||
        bind(iFd, reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        close(iFd);
        return -1;
    }
    if (chmod(stAddr.sun_path, 0660) != 0) {
        unlink(stAddr.sun_path);
        close(iFd);
        return -1;
    }
    AskForStatus(iFd);
    return iFd;
}

uint32_t RecvServicePortEvent(int iFd, SERVICE_PORT_EVENT_S* pstEvent) {
    char acData[64];
    size_t uiLen = 0;
    uid_t iUid = 0;
    if (PLAT_RecvWithCredentials(iFd, acData, sizeof(acData), &uiLen, &iUid) != PlatRecv::DATA ||
        !PLAT_TrustedSender(iUid)) {
        return PORT_ERR;
    }
    uint32_t uiStatus = ParseStatus(acData, uiLen);
    if (uiStatus != SERVICE_PORT_UP && uiStatus != SERVICE_PORT_DOWN) {
        return PORT_ERR;
    }
    memset(pstEvent, 0, sizeof(*pstEvent));
    pstEvent->uiPortStatus = uiStatus;
    return 0;
}
