// Control client of mte-testagent. The client's socket is auto-bound to an
// abstract address so that the agent can answer it with sendto; every wait
// is bounded by the caller's time-out. Any thread; no shared state.
#include "testagent_ctl.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

bool TESTAGENT_Command(const std::string& strSocket, const std::string& strCommand,
                       std::string* pstrReply, int iTimeoutMs) {
    sockaddr_un stAddr{};
    stAddr.sun_family = AF_UNIX;
    if (strSocket.empty() || strSocket.size() >= sizeof(stAddr.sun_path)) {
        *pstrReply = "control socket path empty or too long";
        return false;
    }
    memcpy(stAddr.sun_path, strSocket.c_str(), strSocket.size() + 1);
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        *pstrReply = std::string("socket: ") + strerror(errno);
        return false;
    }
    sa_family_t usFamily = AF_UNIX;
    sockaddr_un stSelf{};
    stSelf.sun_family = usFamily;
    bool bOk = bind(iFd, reinterpret_cast<sockaddr*>(&stSelf), sizeof(sa_family_t)) == 0;
    if (!bOk) {
        *pstrReply = std::string("bind: ") + strerror(errno);
    } else if (sendto(iFd, strCommand.data(), strCommand.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<sockaddr*>(&stAddr),
                      sizeof(stAddr)) != static_cast<ssize_t>(strCommand.size())) {
        *pstrReply = std::string("send: ") + strerror(errno);
        bOk = false;
    } else {
        pollfd stPoll = {iFd, POLLIN, 0};
        char acBuf[4096];
        ssize_t lRead = -1;
        if (poll(&stPoll, 1, iTimeoutMs) == 1) {
            lRead = recv(iFd, acBuf, sizeof(acBuf), MSG_DONTWAIT);
        }
        bOk = lRead >= 0;
        *pstrReply = bOk ? std::string(acBuf, static_cast<size_t>(lRead)) : "no reply";
    }
    close(iFd);
    return bOk;
}
