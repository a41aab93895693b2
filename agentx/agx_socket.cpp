// The bridge's local datagram socket (eventmib-agentx.sock): eventmibd sends
// notifications and "status" queries to it, and the bridge answers on
// eventmibd's port socket. Credentials come with every datagram
// (SO_PASSCRED), so the sender is known without a connection. Main thread
// only; no locks.
#include "agx_socket.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "plat_unixsock.h"

namespace {

void MakeParentDir(const std::string& strPath) {
    size_t uiSlash = strPath.rfind('/');
    if (uiSlash != std::string::npos && uiSlash > 0) {
        (void)mkdir(strPath.substr(0, uiSlash).c_str(), 0750);
    }
}

}  // namespace

int AGX_BindSocket(const std::string& strPath, AGX_SOCKET_FILE_S* pstFile, std::string* pstrError) {
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(strPath, &stAddr)) {
        *pstrError = "socket path empty or too long: " + strPath;
        return -1;
    }
    int iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (iFd < 0) {
        *pstrError = std::string("socket: ") + strerror(errno);
        return -1;
    }
    int iOn = 1;
    if (setsockopt(iFd, SOL_SOCKET, SO_PASSCRED, &iOn, sizeof(iOn)) != 0) {
        *pstrError = std::string("SO_PASSCRED: ") + strerror(errno);
        close(iFd);
        return -1;
    }
    MakeParentDir(strPath);
    PLAT_RemoveStaleSocket(&stAddr, SOCK_DGRAM);
    if (bind(iFd, reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
        *pstrError = errno == EADDRINUSE ? strPath + " is served by another process"
                                         : "bind " + strPath + ": " + strerror(errno);
        close(iFd);
        return -1;
    }
    struct stat stInfo;
    if (chmod(strPath.c_str(), 0660) != 0 || stat(strPath.c_str(), &stInfo) != 0) {
        *pstrError = "chmod " + strPath + ": " + strerror(errno);
        unlink(strPath.c_str());
        close(iFd);
        return -1;
    }
    pstFile->ulDev = stInfo.st_dev;
    pstFile->ulIno = stInfo.st_ino;
    return iFd;
}

bool AGX_SocketFileIntact(const std::string& strPath, const AGX_SOCKET_FILE_S* pstFile) {
    struct stat stInfo;
    return lstat(strPath.c_str(), &stInfo) == 0 && S_ISSOCK(stInfo.st_mode) &&
           stInfo.st_dev == pstFile->ulDev && stInfo.st_ino == pstFile->ulIno;
}

bool AGX_SendPortStatus(int iFd, const std::string& strPortPath, bool bUp) {
    sockaddr_un stAddr;
    if (!PLAT_UnixAddress(strPortPath, &stAddr)) {
        return false;
    }
    const char* pszText = bUp ? "up" : "down";
    ssize_t lSent = sendto(iFd, pszText, strlen(pszText), MSG_DONTWAIT | MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&stAddr), sizeof(stAddr));
    return lSent == static_cast<ssize_t>(strlen(pszText));
}
