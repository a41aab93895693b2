// A private snmpd (and optionally snmptrapd) for tests: an ordinary foreground
// process on 127.0.0.1 with a free high port, everything under a temporary
// directory, the agent's own Event MIB modules not initialised. Named contexts
// "ctxA" and "ctxAB" show the system group and "ctxB" the interfaces group of
// the agent itself through its proxy; user "testuser" (SHA/AES, authPriv) may
// read and write every context; communities "public" (read) and "private"
// (write) reach the default context. MTE_TEST_WRITABLE_INTEGER is a writable
// Integer32 (initially 5) in the default context.
#ifndef MTE_TEST_SNMPD_HARNESS_H
#define MTE_TEST_SNMPD_HARNESS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#define MTE_TEST_WRITABLE_INTEGER "1.3.6.1.4.1.8072.9999.1.0"

namespace mte_test {

enum class ClientSecurity { V2C, V3_AUTH_PRIV };

class SnmpdHarness {
  public:
    SnmpdHarness() = default;
    ~SnmpdHarness();
    SnmpdHarness(const SnmpdHarness&) = delete;
    SnmpdHarness& operator=(const SnmpdHarness&) = delete;

    // Extra lines for snmpd.conf; call before Start.
    void AddConfig(const std::string& strLine) { m_astrExtra.push_back(strLine); }
    // Creates the directory and configuration on the first call, starts snmpd
    // and waits (at most iWaitMs) until it answers. False with *pstrError set
    // when snmpd is missing or does not come up.
    bool Start(std::string* pstrError, int iWaitMs = 10000);
    // SIGTERM, then SIGKILL after iGraceMs; the directory stays for a restart
    // on the same port.
    void Stop(int iGraceMs = 3000);
    bool IsRunning() const { return m_iPid > 0; }
    pid_t Pid() const { return m_iPid; }
    // snmptrapd on its own free port, logging to TrapLogPath(); the agent
    // sends its notifications there (trap2sink).
    bool StartTrapd(std::string* pstrError, int iWaitMs = 5000);
    void StopTrapd(int iGraceMs = 3000);

    // Writes net-snmp client files for eventmibd (snmp.conf with the def*
    // tokens, eventmibd.conf with agentAddress) and points SNMPCONFPATH and
    // SNMP_PERSISTENT_DIR of this process at them.
    bool UseClientConfig(ClientSecurity eSecurity);

    uint16_t Port() const { return m_usPort; }
    uint16_t TrapPort() const { return m_usTrapPort; }
    const std::string& Dir() const { return m_strDir; }
    std::string AgentxSocketPath() const { return m_strDir + "/run/agentx.sock"; }
    std::string LogPath() const { return m_strDir + "/snmpd.log"; }
    std::string TrapLogPath() const { return m_strDir + "/traps.log"; }

  private:
    bool Prepare(std::string* pstrError);
    bool WaitAnswering(int iWaitMs);

    std::string m_strDir;
    uint16_t m_usPort = 0;
    uint16_t m_usTrapPort = 0;
    pid_t m_iPid = -1;
    pid_t m_iTrapdPid = -1;
    std::vector<std::string> m_astrExtra;
};

// A free UDP port on 127.0.0.1 (0 on failure).
uint16_t FreeUdpPort(void);
// Starts a program with the given arguments and extra environment, its
// output appended to strLogPath; the pid or -1.
pid_t SpawnProcess(const std::vector<std::string>& astrArgs,
                   const std::vector<std::string>& astrEnv, const std::string& strLogPath);
// SIGTERM, wait up to iGraceMs, then SIGKILL and reap.
void StopProcess(pid_t* piPid, int iGraceMs);

}  // namespace mte_test

#endif  // MTE_TEST_SNMPD_HARNESS_H
