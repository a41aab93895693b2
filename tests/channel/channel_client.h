// A small synchronous client of the management socket for the process tests
// and the benchmark: raw packets or library-built requests, every wait
// bounded by a time-out.
#ifndef MTE_TESTS_CHANNEL_CLIENT_H
#define MTE_TESTS_CHANNEL_CLIENT_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "mte_msg.h"

class ChannelClient {
  public:
    ChannelClient() = default;
    ~ChannelClient() { Close(); }
    ChannelClient(const ChannelClient&) = delete;
    ChannelClient& operator=(const ChannelClient&) = delete;

    bool Connect(const std::string& strPath, int iTimeoutMs = 5000) {
        Close();
        sockaddr_un stAddr{};
        stAddr.sun_family = AF_UNIX;
        if (strPath.size() >= sizeof(stAddr.sun_path)) {
            return false;
        }
        strcpy(stAddr.sun_path, strPath.c_str());
        iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (iFd < 0) {
            return false;
        }
        timeval stTimeout{iTimeoutMs / 1000, (iTimeoutMs % 1000) * 1000};
        setsockopt(iFd, SOL_SOCKET, SO_RCVTIMEO, &stTimeout, sizeof(stTimeout));
        setsockopt(iFd, SOL_SOCKET, SO_SNDTIMEO, &stTimeout, sizeof(stTimeout));
        if (connect(iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
            Close();
            return false;
        }
        return true;
    }

    void Close() {
        if (iFd >= 0) {
            close(iFd);
            iFd = -1;
        }
    }

    int Fd() const { return iFd; }

    bool SendRaw(const void* pData, size_t uiLen) {
        return send(iFd, pData, uiLen, MSG_NOSIGNAL) == static_cast<ssize_t>(uiLen);
    }

    // One packet, or an empty vector on time-out, error or end of stream.
    std::vector<uint8_t> RecvRaw(int iTimeoutMs = 5000) {
        pollfd stPoll{iFd, POLLIN, 0};
        if (poll(&stPoll, 1, iTimeoutMs) != 1) {
            return {};
        }
        std::vector<uint8_t> vecBuf(MTE_MSG_MAX_LEN + 64);
        ssize_t lLen = recv(iFd, vecBuf.data(), vecBuf.size(), MSG_DONTWAIT);
        if (lLen <= 0) {
            return {};
        }
        vecBuf.resize(static_cast<size_t>(lLen));
        return vecBuf;
    }

    // True when nothing arrives within the time.
    bool Silent(int iTimeoutMs) {
        pollfd stPoll{iFd, POLLIN, 0};
        return poll(&stPoll, 1, iTimeoutMs) == 0;
    }

    // Sends a request built by the library and parses its reply into
    // stReply (the reply bytes stay in vecReply). False on any failure,
    // including a reply whose sequence does not match.
    bool Request(uint16_t usType, uint16_t usOp, uint32_t uiMask = 0, uint16_t usItem = 0,
                 const void* pValue = nullptr) {
        uint8_t aucMsg[MTE_MSG_MAX_LEN];
        uint32_t uiSeq = ++uiSequence;
        uint32_t uiLen = MTE_MSG_BuildRequest(uiSeq, usType, usOp, uiMask, usItem, pValue, aucMsg,
                                              sizeof(aucMsg));
        if (uiLen == 0 || !SendRaw(aucMsg, uiLen)) {
            return false;
        }
        return ReceiveReply(uiSeq);
    }

    bool ReceiveReply(uint32_t uiSeq) {
        vecReply = RecvRaw();
        if (vecReply.empty() ||
            MTE_MSG_ParseReply(vecReply.data(), static_cast<uint32_t>(vecReply.size()), &stReply) !=
                MTE_OK) {
            return false;
        }
        return stReply.uiSequence == uiSeq;
    }

    uint32_t uiSequence = 0;
    std::vector<uint8_t> vecReply;
    MTE_MSG_REPLY_S stReply{};

  private:
    int iFd = -1;
};

#endif  // MTE_TESTS_CHANNEL_CLIENT_H
