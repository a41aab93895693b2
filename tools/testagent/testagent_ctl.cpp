// Control client of mte-testagent. The client's socket is auto-bound to an
// abstract address so that the agent can answer it with sendto; every wait
// is bounded by the caller's time-out. Any thread; no shared state.
#include "testagent_ctl.h"
#include "plat_unixsock.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

bool TESTAGENT_Command(const std::string& strSocket, const std::string& strCommand,
                       std::string* pstrReply, int iTimeoutMs) {
    sockaddr_un stAddr;
    sockaddr_un stSelf{};
    stSelf.sun_family = AF_UNIX;
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    pollfd stPoll = {iFd, POLLIN, 0};
    char acBuf[4096];
    ssize_t lRead = -1;
    *pstrReply = "no reply";
    if (!PLAT_UnixAddress(strSocket, &stAddr)) {
        *pstrReply = "control socket path empty or too long";
    } else if (iFd < 0 ||
               bind(iFd, reinterpret_cast<sockaddr*>(&stSelf), sizeof(sa_family_t)) != 0 ||
               sendto(iFd, strCommand.data(), strCommand.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<sockaddr*>(&stAddr),
                      sizeof(stAddr)) != static_cast<ssize_t>(strCommand.size())) {
        *pstrReply = std::string("control socket: ") + strerror(errno);
    } else if (poll(&stPoll, 1, iTimeoutMs) == 1) {
        lRead = recv(iFd, acBuf, sizeof(acBuf), MSG_DONTWAIT);
    }
    if (lRead >= 0) {
        pstrReply->assign(acBuf, static_cast<size_t>(lRead));
    }
    if (iFd >= 0) {
        close(iFd);
    }
    return lRead >= 0;
}
