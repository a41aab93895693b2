// The bridge's local datagram socket: binding it safely and sending the port
// status to eventmibd.
// Main thread only.
#ifndef AGX_SOCKET_H
#define AGX_SOCKET_H

#include <sys/types.h>

#include <cstddef>
#include <string>

// Where the socket file stands, to notice when it is removed or replaced.
struct AGX_SOCKET_FILE_S {
    dev_t ulDev;
    ino_t ulIno;
};

// Binds a non-blocking AF_UNIX SOCK_DGRAM socket with SO_PASSCRED at strPath
// (mode 0660). A socket file that nobody serves any more is removed first; a
// live one makes the bind fail. The directory is created (0750) if missing.
// The descriptor, or -1 with *pstrError set.
int AGX_BindSocket(const std::string& strPath, AGX_SOCKET_FILE_S* pstFile, std::string* pstrError);
// True while strPath is still the socket file recorded at bind time.
bool AGX_SocketFileIntact(const std::string& strPath, const AGX_SOCKET_FILE_S* pstFile);

// Datagrams are received with PLAT_RecvWithCredentials and their senders
// checked with PLAT_TrustedSender (plat_unixsock.h), as the daemon's port
// socket does.

// Sends "up" or "down" to eventmibd's port socket without blocking; a daemon
// that is not there simply misses it (it asks with "status" when it starts).
bool AGX_SendPortStatus(int iFd, const std::string& strPortPath, bool bUp);

#endif  // AGX_SOCKET_H
