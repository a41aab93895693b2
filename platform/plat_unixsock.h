// Local (AF_UNIX) socket helpers shared by the daemon's links, the bridge and
// the tools.
#ifndef PLAT_UNIXSOCK_H
#define PLAT_UNIXSOCK_H

#include <sys/un.h>

#include <string>

// Fills a local-socket address; false when the path is empty or too long.
bool PLAT_UnixAddress(const std::string& strPath, sockaddr_un* pstAddr);
// Removes a socket file whose owner is gone (a connect of the given socket
// type is refused). A file that is not a socket, or a socket somebody still
// serves, is left alone, so that two processes never share one path.
void PLAT_RemoveStaleSocket(const sockaddr_un* pstAddr, int iType);

#endif  // PLAT_UNIXSOCK_H
