// Notifications leave as one datagram each for the AgentX relay: the layout
// documented in docs/snmp-client.md, RFC 2981's OIDs for the built-in ones,
// and an immediate failure when no relay listens.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "stack.h"
#include "plat_paths.h"
#include "plat_snmp.h"

namespace {

struct Var {
    std::string strOid;
    uint32_t uiType;
    std::vector<unsigned char> aucValue;
};

struct Parsed {
    uint32_t uiMagic = 0;
    uint16_t usVersion = 0;
    std::string strTrapOid;
    std::string strContext;
    std::vector<Var> astVars;
};

class Reader {
  public:
    Reader(const unsigned char* puc, size_t ulLen) : m_puc(puc), m_ulLen(ulLen) {}
    bool Take(void* p, size_t n) {
        if (n > m_ulLen - m_ulPos) {
            return false;
        }
        if (n == 0) {
            return true;
        }
        memcpy(p, m_puc + m_ulPos, n);
        m_ulPos += n;
        return true;
    }
    bool TakeOid(std::string* pstr) {
        uint32_t uiLen = 0;
        if (!Take(&uiLen, 4) || uiLen > MTE_OID_MAX_LEN) {
            return false;
        }
        MTE_OID_S stOid{};
        stOid.uiLen = uiLen;
        if (!Take(stOid.auiOid, uiLen * 4)) {
            return false;
        }
        *pstr = mte_test::OidText(stOid);
        return true;
    }
    bool AtEnd() const { return m_ulPos == m_ulLen; }

  private:
    const unsigned char* m_puc;
    size_t m_ulLen;
    size_t m_ulPos = 0;
};

bool Parse(const unsigned char* puc, size_t ulLen, Parsed* pstOut) {
    Reader stIn(puc, ulLen);
    uint16_t usCount = 0;
    uint16_t usContextLen = 0;
    if (!stIn.Take(&pstOut->uiMagic, 4) || !stIn.Take(&pstOut->usVersion, 2) ||
        !stIn.Take(&usCount, 2) || !stIn.TakeOid(&pstOut->strTrapOid) ||
        !stIn.Take(&usContextLen, 2)) {
        return false;
    }
    pstOut->strContext.resize(usContextLen);
    if (!stIn.Take(pstOut->strContext.data(), usContextLen)) {
        return false;
    }
    for (uint16_t i = 0; i < usCount; i++) {
        Var stVar;
        uint32_t uiLen = 0;
        if (!stIn.TakeOid(&stVar.strOid) || !stIn.Take(&stVar.uiType, 4) || !stIn.Take(&uiLen, 4)) {
            return false;
        }
        stVar.aucValue.resize(uiLen);
        if (!stIn.Take(stVar.aucValue.data(), uiLen)) {
            return false;
        }
        pstOut->astVars.push_back(stVar);
    }
    return stIn.AtEnd();
}

// Plays the AgentX relay on its socket in a private runtime directory.
class NotifyTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char szDir[] = "/tmp/mte-notify.XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(szDir));
        m_strDir = szDir;
        setenv("RUNTIME_DIRECTORY", m_strDir.c_str(), 1);
        m_strRelayPath = PLAT_AgentxSocketPath();
        m_iRelay = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un stAddr{};
        stAddr.sun_family = AF_UNIX;
        strcpy(stAddr.sun_path, m_strRelayPath.c_str());
        ASSERT_EQ(0, bind(m_iRelay, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)));
        timeval stTimeout{2, 0};
        setsockopt(m_iRelay, SOL_SOCKET, SO_RCVTIMEO, &stTimeout, sizeof(stTimeout));
    }
    void TearDown() override {
        if (m_iRelay >= 0) {
            close(m_iRelay);
        }
        unlink(m_strRelayPath.c_str());
        rmdir(m_strDir.c_str());
    }
    bool Receive(Parsed* pstOut) {
        unsigned char aucBuf[70000];
        ssize_t lLen = recv(m_iRelay, aucBuf, sizeof(aucBuf), 0);
        return lLen > 0 && Parse(aucBuf, static_cast<size_t>(lLen), pstOut);
    }
    std::string m_strDir;
    std::string m_strRelayPath;
    int m_iRelay = -1;
};

// Adds the five variables of a built-in notification; the sum of results.
uint32_t AddFive(SNMP_NOTIFY_HANDLE hNotify, uint32_t uiLastType, int32_t iLast) {
    static const uint32_t auiOid[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, 10, 3};
    SNMP_NOTIFY_VAR_S astVars[] = {
        {SNMP_VTYPE_OCTET_STRING, 5, "trig1"},
        {SNMP_VTYPE_OCTET_STRING, 0, ""},
        {SNMP_VTYPE_OCTET_STRING, 4, "ctxA"},
        {SNMP_VTYPE_OID, sizeof(auiOid), auiOid},
        {uiLastType, 4, &iLast},
    };
    uint32_t uiSum = 0;
    for (const auto& stVar : astVars) {
        uiSum += SNMP_AddNotifyVar(hNotify, &stVar, 0);
    }
    return uiSum;
}

TEST_F(NotifyTest, BuiltinNotificationsCarryRfcOids) {
    struct {
        const char* pszName;
        const char* pszTrapOid;
        uint32_t uiLastType;
        const char* pszLastOid;
    } astCases[] = {
        {"mteTriggerFired", "1.3.6.1.2.1.88.2.0.1", SNMP_VTYPE_INTEGER32, "1.3.6.1.2.1.88.2.1.5.0"},
        {"mteTriggerRising", "1.3.6.1.2.1.88.2.0.2", SNMP_VTYPE_INTEGER32,
         "1.3.6.1.2.1.88.2.1.5.0"},
        {"mteTriggerFalling", "1.3.6.1.2.1.88.2.0.3", SNMP_VTYPE_INTEGER32,
         "1.3.6.1.2.1.88.2.1.5.0"},
        {"mteTriggerFailure", "1.3.6.1.2.1.88.2.0.4", SNMP_VTYPE_ENUM, "1.3.6.1.2.1.88.2.1.6.0"},
        {"mteEventSetFailure", "1.3.6.1.2.1.88.2.0.5", SNMP_VTYPE_ENUM, "1.3.6.1.2.1.88.2.1.6.0"},
    };
    for (const auto& stCase : astCases) {
        SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
        ASSERT_EQ(0u, AddFive(hNotify, stCase.uiLastType, -6));
        ASSERT_EQ(0u, SNMP_SendNotify(stCase.pszName, hNotify));
        EXPECT_EQ(0u, SNMP_DestroyNotifyHandle(hNotify));
        Parsed stGot;
        ASSERT_TRUE(Receive(&stGot)) << stCase.pszName;
        EXPECT_EQ(0x4e45544du, stGot.uiMagic);
        EXPECT_EQ(1, stGot.usVersion);
        EXPECT_EQ(stCase.pszTrapOid, stGot.strTrapOid);
        EXPECT_EQ("", stGot.strContext);
        ASSERT_EQ(5u, stGot.astVars.size());
        EXPECT_EQ("1.3.6.1.2.1.88.2.1.1.0", stGot.astVars[0].strOid);
        EXPECT_EQ("trig1",
                  std::string(stGot.astVars[0].aucValue.begin(), stGot.astVars[0].aucValue.end()));
        EXPECT_EQ("1.3.6.1.2.1.88.2.1.2.0", stGot.astVars[1].strOid);
        EXPECT_TRUE(stGot.astVars[1].aucValue.empty());
        EXPECT_EQ("1.3.6.1.2.1.88.2.1.3.0", stGot.astVars[2].strOid);
        EXPECT_EQ("1.3.6.1.2.1.88.2.1.4.0", stGot.astVars[3].strOid);
        EXPECT_EQ(SNMP_VTYPE_OID, stGot.astVars[3].uiType);
        EXPECT_EQ(44u, stGot.astVars[3].aucValue.size());
        EXPECT_EQ(stCase.pszLastOid, stGot.astVars[4].strOid);
        EXPECT_EQ(stCase.uiLastType, stGot.astVars[4].uiType);
        int32_t iLast = 0;
        memcpy(&iLast, stGot.astVars[4].aucValue.data(), 4);
        EXPECT_EQ(-6, iLast);
    }
}

TEST_F(NotifyTest, BadInputIsRefusedAndNothingPartialIsSent) {
    SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
    SNMP_NOTIFY_VAR_S stBadInt{SNMP_VTYPE_INTEGER32, 2, "xx"};
    SNMP_NOTIFY_VAR_S stBadOid{SNMP_VTYPE_OID, 6, "xxxxxx"};
    SNMP_NOTIFY_VAR_S stBadType{99, 1, "x"};
    EXPECT_NE(0u, SNMP_AddNotifyVar(hNotify, &stBadInt, 0));
    EXPECT_NE(0u, SNMP_AddNotifyVar(hNotify, &stBadOid, 0));
    EXPECT_NE(0u, SNMP_AddNotifyVar(hNotify, &stBadType, 0));
    EXPECT_NE(0u, SNMP_AddNotifyVar(hNotify, nullptr, 0));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(hNotify));  // reports the refused variable

    hNotify = SNMP_CreateNotifyHandle();
    ASSERT_EQ(0u, AddFive(hNotify, SNMP_VTYPE_INTEGER32, 1));
    EXPECT_NE(0u, SNMP_SendNotify("noSuchNotification", hNotify));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(hNotify));
    EXPECT_NE(0u, SNMP_SendNotify("mteTriggerFired", nullptr));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(nullptr));

    char cByte = 0;
    EXPECT_EQ(-1, recv(m_iRelay, &cByte, 1, MSG_DONTWAIT));
}

TEST_F(NotifyTest, VbListKeepsOrderContextAndTypes) {
    uint32_t uiGauge = 77;
    SNMP_VALUE_S stGauge{&uiGauge, 4, SNMP_VTYPE_GAUGE32};
    MTE_VB_S astVb[2] = {};
    astVb[0].pstNext = &astVb[1];
    astVb[0].stOID = mte_test::Oid("1.3.6.1.2.1.2.2.1.5.1");
    astVb[0].pValue = &stGauge;
    astVb[1].stOID = mte_test::Oid("1.3.6.1.2.1.1.5.0");  // no value fetched
    MTE_VB_LIST_S stList{&astVb[0], &astVb[1]};
    MTE_OID_S stTrap = mte_test::Oid("1.3.6.1.4.1.99999.0.1");
    ASSERT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "ctxA", &stList));
    Parsed stGot;
    ASSERT_TRUE(Receive(&stGot));
    EXPECT_EQ("1.3.6.1.4.1.99999.0.1", stGot.strTrapOid);
    EXPECT_EQ("ctxA", stGot.strContext);
    ASSERT_EQ(2u, stGot.astVars.size());
    EXPECT_EQ("1.3.6.1.2.1.2.2.1.5.1", stGot.astVars[0].strOid);
    EXPECT_EQ(SNMP_VTYPE_GAUGE32, stGot.astVars[0].uiType);
    EXPECT_EQ(SNMP_VTYPE_NULL, stGot.astVars[1].uiType);
    EXPECT_TRUE(stGot.astVars[1].aucValue.empty());

    MTE_VB_LIST_S stEmpty{nullptr, nullptr};
    EXPECT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));
    MTE_OID_S stNoOid{};
    EXPECT_NE(0u, SNMP_SendTrapByVBList(&stNoOid, "", &stEmpty));
}

TEST_F(NotifyTest, NoRelayListeningFailsAtOnce) {
    close(m_iRelay);
    m_iRelay = -1;
    unlink(m_strRelayPath.c_str());
    SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
    ASSERT_EQ(0u, AddFive(hNotify, SNMP_VTYPE_ENUM, -4));
    EXPECT_NE(0u, SNMP_SendNotify("mteTriggerFailure", hNotify));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(hNotify));
    setenv("RUNTIME_DIRECTORY", (m_strDir + "/missing").c_str(), 1);
    MTE_OID_S stTrap = mte_test::Oid("1.3.6.1.4.1.99999.0.1");
    EXPECT_NE(0u, SNMP_SendTrapByVBList(&stTrap, "", nullptr));
}

// The daemon's relay queue: held while the relay is away, delivered in order
// when it is back, refused (and reported) only when full, and sends are
// direct again after it is closed.
TEST_F(NotifyTest, RelayQueueHoldsInOrderAndRefusesOnlyWhenFull) {
    close(m_iRelay);
    unlink(m_strRelayPath.c_str());
    int iFd = SNMP_NotifyRelayOpen();
    ASSERT_GE(iFd, 0);
    MTE_VB_LIST_S stEmpty{nullptr, nullptr};
    for (const char* pszTrap : {"1.3.6.1.4.1.99999.0.1", "1.3.6.1.4.1.99999.0.2"}) {
        MTE_OID_S stTrap = mte_test::Oid(pszTrap);
        ASSERT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));
    }
    uint32_t uiHeld = 0;
    EXPECT_EQ(SNMP_RELAY_LOST, SNMP_NotifyRelayProc(&uiHeld));
    EXPECT_EQ(2u, uiHeld);

    rmdir(m_strDir.c_str());
    SetUp();  // the relay is back; the next try is due within 200 ms
    pollfd stPoll{iFd, POLLIN, 0};
    ASSERT_EQ(1, poll(&stPoll, 1, 2000));
    EXPECT_EQ(SNMP_RELAY_BACK, SNMP_NotifyRelayProc(&uiHeld));
    EXPECT_EQ(0u, uiHeld);
    for (const char* pszTrap : {"1.3.6.1.4.1.99999.0.1", "1.3.6.1.4.1.99999.0.2"}) {
        Parsed stGot;
        ASSERT_TRUE(Receive(&stGot));
        EXPECT_EQ(pszTrap, stGot.strTrapOid);
    }

    MTE_OID_S stTrap = mte_test::Oid("1.3.6.1.4.1.99999.0.3");
    for (uint32_t i = 0; i < SNMP_RELAY_QUEUE_MAX; i++) {
        ASSERT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty)) << i;
    }
    EXPECT_EQ(static_cast<uint32_t>(SNMP_ST_LOCAL_RESOURCE),
              SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));
    close(m_iRelay);
    m_iRelay = -1;
    EXPECT_EQ(SNMP_RELAY_QUEUE_MAX, SNMP_NotifyRelayClose(0));
    EXPECT_NE(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));  // direct again, nobody there
}

}  // namespace
