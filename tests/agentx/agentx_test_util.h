// Helpers of the AgentX bridge tests: a hand-built notification datagram,
// bounded runs of the net-snmp command-line tools, and the parsing of
// snmptrapd's -On log lines.
#ifndef MTE_TEST_AGENTX_TEST_UTIL_H
#define MTE_TEST_AGENTX_TEST_UTIL_H

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace mte_test {

inline int64_t MonoMs(void) {
    timespec stNow{};
    clock_gettime(CLOCK_MONOTONIC, &stNow);
    return static_cast<int64_t>(stNow.tv_sec) * 1000 + stNow.tv_nsec / 1000000;
}

// Polls bCondition every 50 ms until it holds or iTimeoutMs has passed.
inline bool WaitUntil(const std::function<bool()>& fnCondition, int iTimeoutMs) {
    int64_t llDeadline = MonoMs() + iTimeoutMs;
    do {
        if (fnCondition()) {
            return true;
        }
        usleep(50000);
    } while (MonoMs() < llDeadline);
    return fnCondition();
}

// A notification datagram ("MTEN" version 1) built field by field, so that
// tests can also build wrong ones.
class NotifyDatagram {
  public:
    NotifyDatagram& U16(uint16_t us) { return Raw(&us, 2); }
    NotifyDatagram& U32(uint32_t ui) { return Raw(&ui, 4); }
    NotifyDatagram& Raw(const void* p, size_t n) {
        const auto* puc = static_cast<const unsigned char*>(p);
        m_auc.insert(m_auc.end(), puc, puc + n);
        return *this;
    }
    NotifyDatagram& Oid(const std::vector<uint32_t>& auiOid) {
        U32(static_cast<uint32_t>(auiOid.size()));
        for (uint32_t ui : auiOid) {
            U32(ui);
        }
        return *this;
    }
    NotifyDatagram& Header(const std::vector<uint32_t>& auiTrap, const std::string& strContext,
                           uint16_t usCount) {
        U32(0x4e45544d).U16(1).U16(usCount).Oid(auiTrap);
        U16(static_cast<uint16_t>(strContext.size()));
        return Raw(strContext.data(), strContext.size());
    }
    NotifyDatagram& Var(const std::vector<uint32_t>& auiName, uint32_t uiType, const void* p,
                        uint32_t uiLen) {
        Oid(auiName).U32(uiType).U32(uiLen);
        return Raw(p, uiLen);
    }
    const std::vector<unsigned char>& Bytes() const { return m_auc; }
    std::vector<unsigned char>& Bytes() { return m_auc; }

  private:
    std::vector<unsigned char> m_auc;
};

// Runs a program (absolute path), waits at most iTimeoutMs, returns its exit
// status (-1 on time-out or failure to start) and its combined output.
inline int RunTool(const std::vector<std::string>& astrArgs, const std::string& strOutPath,
                   int iTimeoutMs, std::string* pstrOutput) {
    unlink(strOutPath.c_str());
    pid_t iPid = fork();
    if (iPid == 0) {
        FILE* pstOut = freopen(strOutPath.c_str(), "w", stdout);
        if (pstOut == nullptr || dup2(fileno(stdout), 2) < 0) {
            _exit(127);
        }
        std::vector<char*> apsz;
        for (const auto& str : astrArgs) {
            apsz.push_back(const_cast<char*>(str.c_str()));
        }
        apsz.push_back(nullptr);
        execv(apsz[0], apsz.data());
        _exit(127);
    }
    if (iPid < 0) {
        return -1;
    }
    int iStatus = 0;
    int64_t llDeadline = MonoMs() + iTimeoutMs;
    pid_t iDone = 0;
    while ((iDone = waitpid(iPid, &iStatus, WNOHANG)) == 0 && MonoMs() < llDeadline) {
        usleep(10000);
    }
    if (iDone == 0) {
        kill(iPid, SIGKILL);
        waitpid(iPid, &iStatus, 0);
    }
    std::ifstream stIn(strOutPath);
    std::stringstream stText;
    stText << stIn.rdbuf();
    *pstrOutput = stText.str();
    return iDone == iPid && WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
}

// One received notification from snmptrapd's -On log: the bindings in
// order, each name with its "TYPE: value" text.
struct Trap {
    std::vector<std::pair<std::string, std::string>> astBindings;
    std::string Value(const std::string& strName) const {
        for (const auto& [strOid, strValue] : astBindings) {
            if (strOid == strName) {
                return strValue;
            }
        }
        return "<absent>";
    }
};

// Every notification in the log whose snmpTrapOID.0 is strTrapOid.
inline std::vector<Trap> TrapsWithOid(const std::string& strLogPath,
                                      const std::string& strTrapOid) {
    std::vector<Trap> astTraps;
    std::ifstream stIn(strLogPath);
    std::string strLine;
    while (std::getline(stIn, strLine)) {
        Trap stTrap;
        std::stringstream stFields(strLine);
        std::string strField;
        while (std::getline(stFields, strField, '\t')) {
            size_t uiEq = strField.find(" = ");
            if (strField.empty() || strField[0] != '.' || uiEq == std::string::npos) {
                continue;
            }
            std::string strValue = strField.substr(uiEq + 3);
            while (!strValue.empty() && strValue.back() == ' ') {
                strValue.pop_back();
            }
            stTrap.astBindings.emplace_back(strField.substr(0, uiEq), strValue);
        }
        if (stTrap.Value(".1.3.6.1.6.3.1.1.4.1.0") == "OID: " + strTrapOid) {
            astTraps.push_back(stTrap);
        }
    }
    return astTraps;
}

}  // namespace mte_test

#endif  // MTE_TEST_AGENTX_TEST_UTIL_H
