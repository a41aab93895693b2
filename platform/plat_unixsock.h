// Local (AF_UNIX) socket helpers shared by the daemon's links, the bridge and
// the tools.
#ifndef PLAT_UNIXSOCK_H
#define PLAT_UNIXSOCK_H

#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>
#include <string>

// Fills a local-socket address; false when the path is empty or too long.
bool PLAT_UnixAddress(const std::string& strPath, sockaddr_un* pstAddr);
// Removes a socket file whose owner is gone (a connect of the given socket
// type is refused). A file that is not a socket, or a socket somebody still
// serves, is left alone, so that two processes never share one path.
void PLAT_RemoveStaleSocket(const sockaddr_un* pstAddr, int iType);

// Outcome of PLAT_RecvWithCredentials.
enum class PlatRecv { DATA, NONE, TRUNCATED, NO_CREDENTIALS, ERROR };
// Receives one datagram without blocking (retrying on EINTR) from a socket
// with SO_PASSCRED; *puiLen and *piUid (the sender's user) describe it. NONE:
// nothing waiting; TRUNCATED: it did not fit (credentials are still read).
PlatRecv PLAT_RecvWithCredentials(int iFd, void* pBuf, size_t uiCap, size_t* puiLen, uid_t* piUid);
// True for the users whose datagrams are believed: root and our own user.
bool PLAT_TrustedSender(uid_t iUid);

#endif  // PLAT_UNIXSOCK_H
