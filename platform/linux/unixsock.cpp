// Local (AF_UNIX) socket helpers. Any thread; no state.
#include "plat_unixsock.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

bool PLAT_UnixAddress(const std::string& strPath, sockaddr_un* pstAddr) {
    memset(pstAddr, 0, sizeof(*pstAddr));
    pstAddr->sun_family = AF_UNIX;
    if (strPath.empty() || strPath.size() >= sizeof(pstAddr->sun_path)) {
        return false;
    }
    memcpy(pstAddr->sun_path, strPath.c_str(), strPath.size() + 1);
    return true;
}

void PLAT_RemoveStaleSocket(const sockaddr_un* pstAddr, int iType) {
    struct stat stInfo;
    if (lstat(pstAddr->sun_path, &stInfo) != 0 || !S_ISSOCK(stInfo.st_mode)) {
        return;
    }
    int iProbe = socket(AF_UNIX, iType | SOCK_CLOEXEC, 0);
    if (iProbe < 0) {
        return;
    }
    int iRet = connect(iProbe, reinterpret_cast<const sockaddr*>(pstAddr), sizeof(*pstAddr));
    int iErr = errno;
    close(iProbe);
    if (iRet != 0 && iErr == ECONNREFUSED) {
        unlink(pstAddr->sun_path);
    }
}

PlatRecv PLAT_RecvWithCredentials(int iFd, void* pBuf, size_t uiCap, size_t* puiLen, uid_t* piUid) {
    alignas(cmsghdr) char acControl[CMSG_SPACE(sizeof(ucred))];
    iovec stIov = {pBuf, uiCap};
    msghdr stMsg = {};
    stMsg.msg_iov = &stIov;
    stMsg.msg_iovlen = 1;
    stMsg.msg_control = acControl;
    stMsg.msg_controllen = sizeof(acControl);
    ssize_t lRead;
    do {
        lRead = recvmsg(iFd, &stMsg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (lRead < 0 && errno == EINTR);
    if (lRead < 0) {
        return errno == EAGAIN || errno == EWOULDBLOCK ? PlatRecv::NONE : PlatRecv::ERROR;
    }
    *puiLen = static_cast<size_t>(lRead);
    bool bHaveCred = false;
    for (cmsghdr* pstCmsg = CMSG_FIRSTHDR(&stMsg); pstCmsg != nullptr && !bHaveCred;
         pstCmsg = CMSG_NXTHDR(&stMsg, pstCmsg)) {
        if (pstCmsg->cmsg_level == SOL_SOCKET && pstCmsg->cmsg_type == SCM_CREDENTIALS &&
            pstCmsg->cmsg_len >= CMSG_LEN(sizeof(ucred))) {
            ucred stCred;
            memcpy(&stCred, CMSG_DATA(pstCmsg), sizeof(stCred));
            *piUid = stCred.uid;
            bHaveCred = true;
        }
    }
    if (!bHaveCred || (stMsg.msg_flags & MSG_CTRUNC) != 0) {
        return PlatRecv::NO_CREDENTIALS;
    }
    if ((stMsg.msg_flags & MSG_TRUNC) != 0) {
        return PlatRecv::TRUNCATED;
    }
    return PlatRecv::DATA;
}

bool PLAT_TrustedSender(uid_t iUid) {
    return iUid == 0 || iUid == geteuid();
}
