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
