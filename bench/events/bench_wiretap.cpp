#include "bench_wiretap.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace mte_bench {

namespace {

double NowMs() {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return stNow.tv_sec * 1e3 + stNow.tv_nsec / 1e6;
}

// Enters the BER element with the tag at *ppuc: *ppuc moves to its contents,
// *pulLen is their length. False when the bytes are not such an element.
bool Enter(const unsigned char** ppuc, const unsigned char* pucEnd, unsigned char ucTag,
           size_t* pulLen) {
    const unsigned char* puc = *ppuc;
    if (pucEnd - puc < 2 || *puc++ != ucTag) {
        return false;
    }
    size_t ulLen = *puc++;
    if (ulLen & 0x80) {
        size_t ulBytes = ulLen & 0x7f;
        if (ulBytes == 0 || ulBytes > 4 || static_cast<size_t>(pucEnd - puc) < ulBytes) {
            return false;
        }
        ulLen = 0;
        while (ulBytes-- > 0) {
            ulLen = (ulLen << 8) | *puc++;
        }
    }
    if (static_cast<size_t>(pucEnd - puc) < ulLen) {
        return false;
    }
    *ppuc = puc;
    *pulLen = ulLen;
    return true;
}

// The authentication bit of an SNMPv3 message's msgFlags (RFC 3412):
// SEQUENCE { version 3, SEQUENCE { msgID, msgMaxSize, msgFlags, ... }, ... }.
bool Authenticated(const unsigned char* puc, size_t ulLen) {
    const unsigned char* pucEnd = puc + ulLen;
    size_t ulPart = 0;
    if (!Enter(&puc, pucEnd, 0x30, &ulPart) || !Enter(&puc, pucEnd, 0x02, &ulPart) || ulPart != 1 ||
        *puc != 3) {
        return false;
    }
    puc += ulPart;
    if (!Enter(&puc, pucEnd, 0x30, &ulPart)) {
        return false;
    }
    for (int i = 0; i < 2; ++i) {  // msgID, msgMaxSize
        if (!Enter(&puc, pucEnd, 0x02, &ulPart)) {
            return false;
        }
        puc += ulPart;
    }
    return Enter(&puc, pucEnd, 0x04, &ulPart) && ulPart == 1 && (*puc & 0x01) != 0;
}

sockaddr_in Loopback(uint16_t usPort) {
    sockaddr_in stAddr{};
    stAddr.sin_family = AF_INET;
    stAddr.sin_port = htons(usPort);
    stAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return stAddr;
}

}  // namespace

bool WireTap::Start(uint16_t usAgentPort) {
    m_iFront = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    m_iBack = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    m_iStop = eventfd(0, EFD_CLOEXEC);
    sockaddr_in stFront = Loopback(0);
    sockaddr_in stAgent = Loopback(usAgentPort);
    socklen_t uiLen = sizeof(stFront);
    if (m_iFront < 0 || m_iBack < 0 || m_iStop < 0 ||
        bind(m_iFront, reinterpret_cast<sockaddr*>(&stFront), sizeof(stFront)) != 0 ||
        getsockname(m_iFront, reinterpret_cast<sockaddr*>(&stFront), &uiLen) != 0 ||
        connect(m_iBack, reinterpret_cast<sockaddr*>(&stAgent), sizeof(stAgent)) != 0) {
        Stop();
        return false;
    }
    m_usPort = ntohs(stFront.sin_port);
    m_stThread = std::thread([this] { Relay(); });
    return true;
}

void WireTap::Stop() {
    if (m_stThread.joinable()) {
        (void)eventfd_write(m_iStop, 1);
        m_stThread.join();
    }
    for (int* piFd : {&m_iFront, &m_iBack, &m_iStop}) {
        if (*piFd >= 0) {
            close(*piFd);
            *piFd = -1;
        }
    }
}

void WireTap::Note(bool bRequest, bool bAuthenticated) {
    double dNow = NowMs();
    std::lock_guard<std::mutex> stGuard(m_stLock);
    m_astSeen.push_back({dNow, bRequest, bAuthenticated});
}

// Requests go to the agent; answers go back to the client that spoke last
// (the benchmark runs one client at a time).
void WireTap::Relay() {
    unsigned char aucBuf[65536];
    sockaddr_in stClient{};
    bool bClient = false;
    pollfd astFds[] = {{m_iFront, POLLIN, 0}, {m_iBack, POLLIN, 0}, {m_iStop, POLLIN, 0}};
    for (;;) {
        if (poll(astFds, 3, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (astFds[2].revents != 0) {
            return;
        }
        if (astFds[0].revents & POLLIN) {
            socklen_t uiLen = sizeof(stClient);
            ssize_t lGot = recvfrom(m_iFront, aucBuf, sizeof(aucBuf), 0,
                                    reinterpret_cast<sockaddr*>(&stClient), &uiLen);
            if (lGot > 0) {
                bClient = true;
                Note(true, Authenticated(aucBuf, static_cast<size_t>(lGot)));
                (void)send(m_iBack, aucBuf, static_cast<size_t>(lGot), 0);
            }
        }
        if (astFds[1].revents & POLLIN) {
            ssize_t lGot = recv(m_iBack, aucBuf, sizeof(aucBuf), 0);
            if (lGot > 0 && bClient) {
                Note(false, false);
                (void)sendto(m_iFront, aucBuf, static_cast<size_t>(lGot), 0,
                             reinterpret_cast<sockaddr*>(&stClient), sizeof(stClient));
            }
        }
    }
}

void WireTap::Take(long* plRequests, double* pdMs) {
    std::lock_guard<std::mutex> stGuard(m_stLock);
    *plRequests = 0;
    *pdMs = 0;
    double dFirst = -1;
    for (const Passage& stPassage : m_astSeen) {
        if (stPassage.bRequest && stPassage.bAuthenticated) {
            dFirst = dFirst < 0 ? stPassage.dMs : dFirst;
            ++*plRequests;
        } else if (!stPassage.bRequest && dFirst >= 0) {
            *pdMs = stPassage.dMs - dFirst;
        }
    }
    m_astSeen.clear();
}

}  // namespace mte_bench
