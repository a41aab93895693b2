// A UDP relay on loopback between the benchmark's SNMP clients and snmpd that
// notes when each datagram passes it: what a capture on the wire would show,
// without the privileges a capture needs. Every client of a comparison goes
// through it, so its extra hop is the same for all of them.
#ifndef BENCH_WIRETAP_H
#define BENCH_WIRETAP_H

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace mte_bench {

class WireTap {
  public:
    WireTap() = default;
    ~WireTap() { Stop(); }
    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;

    // Listens on 127.0.0.1 (a free port) and relays to the agent's port.
    bool Start(uint16_t usAgentPort);
    void Stop();
    uint16_t Port() const { return m_usPort; }

    // What passed since the last call, for one walk: its authenticated
    // requests (an SNMPv3 tool first discovers the agent's engine with an
    // unauthenticated probe, which is not part of the walk) and the time from
    // the first of them to the last response, in ms.
    void Take(long* plRequests, double* pdMs);

  private:
    struct Passage {
        double dMs;
        bool bRequest;
        bool bAuthenticated;
    };
    void Relay();
    void Note(bool bRequest, bool bAuthenticated);

    int m_iFront = -1;  // the clients' side
    int m_iBack = -1;   // connected to the agent
    int m_iStop = -1;   // eventfd
    uint16_t m_usPort = 0;
    std::thread m_stThread;
    std::mutex m_stLock;
    std::vector<Passage> m_astSeen;  // guarded by m_stLock
};

}  // namespace mte_bench

#endif  // BENCH_WIRETAP_H
