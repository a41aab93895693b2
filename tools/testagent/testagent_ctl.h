// Client side of mte-testagent's control socket: one text command per
// datagram, one text reply ("ok ..." or "error ..."). Used by tests and by
// `mte-testagent -C SOCKET COMMAND...`.
#ifndef TESTAGENT_CTL_H
#define TESTAGENT_CTL_H

#include <string>

// Sends strCommand to the test agent's control socket at strSocket and waits
// at most iTimeoutMs for the reply. True when a reply arrived (whatever it
// says); false with *pstrReply describing the failure otherwise.
bool TESTAGENT_Command(const std::string& strSocket, const std::string& strCommand,
                       std::string* pstrReply, int iTimeoutMs = 2000);

#endif  // TESTAGENT_CTL_H
