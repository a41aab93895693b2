// SNMP client against a private snmpd over SNMPv3 (authPriv), the daemon's
// usual setting: reads, walks, contexts, the exception and error-status
// mapping, and a stopped agent.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "plat_snmp.h"
#include "stack.h"

namespace {

using mte_test::Oid;
using mte_test::OidText;

// Each test is a process of its own (as ctest runs them): the client reads
// its configuration at its first request.
class SnmpClientTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { MTE_START_STACK(*this, mte_test::SNMPD | mte_test::CLIENT_V3); }
};

// Values with their types, exceptions and errors with their status; nothing
// here waits for a time-out, an unknown context least of all. Numbers arrive
// in host order: IntegerSetsAndTheirErrors reads back -42.
TEST_F(SnmpClientTest, TypesExceptionsAndErrorsAreMapped) {
    struct {
        const char* pszContext;
        const char* pszOid;
        bool bNext;
        uint32_t uiStatus;
        uint32_t uiType = 0;
        uint32_t uiLen = 0;  // 0: any non-zero length
    } astCases[] = {
        {"", "1.3.6.1.2.1.1.1.0", false, SNMP_ST_OK, SNMP_VTYPE_OCTET_STRING, 0},  // sysDescr
        {"", "1.3.6.1.2.1.1.2.0", false, SNMP_ST_OK, SNMP_VTYPE_OID, 0},           // sysObjectID
        {"", "1.3.6.1.2.1.1.3.0", false, SNMP_ST_OK, SNMP_VTYPE_TIMETICKS, 4},     // sysUpTime
        {"", "1.3.6.1.2.1.2.1.0", false, SNMP_ST_OK, SNMP_VTYPE_INTEGER, 4},       // ifNumber
        {"", "1.3.6.1.2.1.11.1.0", false, SNMP_ST_OK, SNMP_VTYPE_COUNTER32, 4},    // snmpInPkts
        {"", "1.3.6.1.2.1.31.1.1.1.6.1", false, SNMP_ST_OK, SNMP_VTYPE_COUNTER64, 8},
        {"", "1.3.6.1.2.1.1.5.1", false, SNMP_ST_NO_SUCH_INSTANCE},  // sysName.1
        {"", "1.3.6.1.4.1.99999.1.0", false, SNMP_ST_NO_SUCH_OBJECT},
        {"ctxB", "1.3.6.1.2.1.1.5.0", false, SNMP_ST_NO_SUCH_OBJECT},  // not shown in ctxB
        {"", "2.99", true, SNMP_ST_END_OF_MIB_VIEW},
        {"ctxA", "1.3.6.1.2.1.1.9.1.4.9999", true, SNMP_ST_END_OF_MIB_VIEW},
        {"noSuchContext", "1.3.6.1.2.1.1.5.0", false, SNMP_ST_UNKNOWN_CONTEXT},
        {"noSuchContext", "1.3.6.1.2.1.1", true, SNMP_ST_UNKNOWN_CONTEXT},
    };
    for (const auto& stCase : astCases) {
        SCOPED_TRACE(std::string(stCase.pszContext) + " " + stCase.pszOid);
        MTE_OID_S stOid = Oid(stCase.pszOid);
        uint32_t uiStatus = 0;
        int64_t llStart = mte_test::MonoMs();
        SNMP_VALUE_S* pstValue =
            stCase.bNext ? SNMP_GetNextInstanceValue("owner", stCase.pszContext, &stOid, &uiStatus)
                         : SNMP_GetInstanceValue("owner", stCase.pszContext, &stOid, &uiStatus);
        EXPECT_EQ(stCase.uiStatus, uiStatus);
        EXPECT_EQ(stCase.uiStatus == SNMP_ST_OK, pstValue != nullptr);
        if (pstValue != nullptr) {
            EXPECT_EQ(stCase.uiType, pstValue->uiType);
            EXPECT_NE(nullptr, pstValue->pData);
            EXPECT_TRUE(stCase.uiLen == 0 ? pstValue->uiLen > 0 : pstValue->uiLen == stCase.uiLen);
        }
        SNMP_FreeInstanceValue(pstValue);
        EXPECT_LT(mte_test::MonoMs() - llStart, 900);
    }
    MTE_OID_S stEmpty{};
    uint32_t uiStatus = 0;
    EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "", &stEmpty, &uiStatus));
    EXPECT_EQ(SNMP_ST_CLIENT_ERROR, uiStatus);
    EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "", nullptr, &uiStatus));
}

// Every answer of a walk as "status oid type bytes", its end included: the
// get-nexts from the root until one fails or leaves the subtree, each after
// the one before.
std::vector<std::string> Answers(const char* pszContext, const char* pszRoot) {
    const MTE_OID_S stRoot = Oid(pszRoot);
    std::vector<std::string> astrSeen;
    MTE_OID_S stLast{};
    MTE_OID_S stNext = stRoot;
    for (int i = 0; i < 2000; i++) {
        uint32_t uiStatus = 0;
        SNMP_VALUE_S* pstValue = SNMP_GetNextInstanceValue("owner", pszContext, &stNext, &uiStatus);
        std::string strValue =
            pstValue == nullptr
                ? ""
                : " " + std::to_string(pstValue->uiType) + " " +
                      std::string(static_cast<char*>(pstValue->pData), pstValue->uiLen);
        SNMP_FreeInstanceValue(pstValue);
        if (uiStatus == SNMP_ST_OK && !astrSeen.empty()) {
            EXPECT_TRUE(std::lexicographical_compare(stLast.auiOid, stLast.auiOid + stLast.uiLen,
                                                     stNext.auiOid, stNext.auiOid + stNext.uiLen))
                << OidText(stNext) << " after " << OidText(stLast);
        }
        astrSeen.push_back(std::to_string(uiStatus) + " " + OidText(stNext) + strValue);
        if (uiStatus != SNMP_ST_OK || !mte_test::IsUnder(stNext, stRoot)) {
            return astrSeen;
        }
        stLast = stNext;
    }
    ADD_FAILURE() << "walk of " << pszRoot << " does not end";
    return astrSeen;
}

// Packets snmpd has received (snmpInPkts).
long InPackets(void) {
    MTE_OID_S stOid = Oid("1.3.6.1.2.1.11.1.0");
    uint32_t uiStatus = 0;
    SNMP_VALUE_S* pstValue = SNMP_GetInstanceValue("owner", "", &stOid, &uiStatus);
    uint32_t uiValue = pstValue != nullptr ? *static_cast<uint32_t*>(pstValue->pData) : 0;
    SNMP_FreeInstanceValue(pstValue);
    return uiValue;
}

// The walks of one sampling cycle answered from GETBULK read-ahead give what
// plain GETNEXTs give, in far fewer requests; one walk moves through several
// contexts and subtrees as a walk over contexts does.
TEST_F(SnmpClientTest, ReadAheadAnswersAsGetNextsDo) {
    struct {
        const char* pszContext;
        const char* pszRoot;
    } astCases[] = {
        {"", "1.3.6.1.6.3.16.1"},         // the agent's access tables: many GETBULKs
        {"", "1.3.6.1.2.1.1.9"},          // sysORTable: ends inside a response
        {"ctxA", "1.3.6.1.2.1.1.9"},      // ends at the end of the context's view
        {"ctxB", "1.3.6.1.2.1.2.2.1.2"},  // ifDescr in another context
        {"ctxB", "1.3.6.1.2.1.1"},        // empty in that context
        {"", "1.3.6.1.4.1.99999"},        // empty subtree
        {"", "2.99"},                     // after the agent's last object
    };
    // Packets the agent received for each walk (the read of the counter included).
    std::vector<std::vector<std::string>> aastrPlain;
    std::vector<long> alPlainPackets;
    for (const auto& stCase : astCases) {
        long lBefore = InPackets();
        aastrPlain.push_back(Answers(stCase.pszContext, stCase.pszRoot));
        alPlainPackets.push_back(InPackets() - lBefore);
    }
    int iWalk = 0;
    std::vector<long> alAheadPackets;
    for (size_t i = 0; i < std::size(astCases); i++) {
        long lBefore = InPackets();
        SNMP_SetWalk(&iWalk);
        EXPECT_EQ(aastrPlain[i], Answers(astCases[i].pszContext, astCases[i].pszRoot))
            << astCases[i].pszContext << " " << astCases[i].pszRoot;
        SNMP_SetWalk(nullptr);
        alAheadPackets.push_back(InPackets() - lBefore);
    }
    SNMP_EndWalk(&iWalk);
    // The agent's proxy contexts answer a GETBULK with one varbind: only the
    // default context's walk shows the saving.
    EXPECT_GT(aastrPlain[0].size(), 50u);
    EXPECT_LT(alAheadPackets[0] * 5, alPlainPackets[0])
        << alAheadPackets[0] << " against " << alPlainPackets[0];
}

TEST_F(SnmpClientTest, ContextNamesInStrcmpOrder) {
    std::vector<std::string> astrSeen;
    char szContext[MTE_NAME_SIZE] = "";
    uint32_t uiStatus = SNMP_ST_OK;
    for (int i = 0; i < 100; i++) {
        uiStatus = SNMP_GetNextContextName(sizeof(szContext), szContext);
        if (uiStatus != SNMP_ST_OK) {
            break;
        }
        astrSeen.emplace_back(szContext);
    }
    EXPECT_EQ(SNMP_ST_NO_MORE_CONTEXTS, uiStatus);
    EXPECT_STREQ("", szContext);
    EXPECT_EQ((std::vector<std::string>{"ctxA", "ctxAB", "ctxB"}), astrSeen);

    struct {
        const char* pszFrom;
        const char* pszNext;
        uint32_t uiStatus;
    } astCases[] = {
        {"ctxA", "ctxAB", SNMP_ST_OK},         {"ctx", "ctxA", SNMP_ST_OK},
        {"ctxAA", "ctxAB", SNMP_ST_OK},        {"ctxB", "", SNMP_ST_NO_MORE_CONTEXTS},
        {"zzz", "", SNMP_ST_NO_MORE_CONTEXTS},
    };
    for (const auto& stCase : astCases) {
        snprintf(szContext, sizeof(szContext), "%s", stCase.pszFrom);
        EXPECT_EQ(stCase.uiStatus, SNMP_GetNextContextName(sizeof(szContext), szContext));
        EXPECT_STREQ(stCase.pszNext, szContext) << "after " << stCase.pszFrom;
    }
    // A buffer too small for the next name skips it.
    char szSmall[5] = "ctxA";
    EXPECT_EQ(SNMP_ST_OK, SNMP_GetNextContextName(sizeof(szSmall), szSmall));
    EXPECT_STREQ("ctxB", szSmall);
}

// Each set shows in the next read, made ahead as a sampling cycle reads: what
// was read ahead is not kept beyond its cycle.
TEST_F(SnmpClientTest, IntegerSetsAndTheirErrors) {
    MTE_OID_S stWritable = Oid(MTE_TEST_WRITABLE_INTEGER);
    int iWalk = 0;
    for (int32_t iValue : {-42, 12}) {
        ASSERT_EQ(SNMP_ST_OK, SNMP_SetIntegerValueByOID("owner", "", &stWritable, iValue));
        SNMP_SetWalk(&iWalk);
        MTE_OID_S stCursor = Oid("1.3.6.1.4.1.8072.9999");
        uint32_t uiStatus = 0;
        SNMP_VALUE_S* pstValue = SNMP_GetNextInstanceValue("owner", "", &stCursor, &uiStatus);
        SNMP_SetWalk(nullptr);
        SNMP_EndWalk(&iWalk);
        ASSERT_NE(nullptr, pstValue);
        EXPECT_EQ(MTE_TEST_WRITABLE_INTEGER, OidText(stCursor));
        EXPECT_EQ(iValue, *static_cast<int32_t*>(pstValue->pData));
        SNMP_FreeInstanceValue(pstValue);
    }

    struct {
        const char* pszContext;
        const char* pszOid;
        uint32_t uiStatus;
    } astCases[] = {
        {"", "1.3.6.1.2.1.1.1.0", SNMP_ST_NOT_WRITABLE},  // sysDescr is read-only
        {"", "1.3.6.1.2.1.1.4.0", SNMP_ST_WRONG_TYPE},    // sysContact is a string
        {"", "1.3.6.1.4.1.99999.1.0", SNMP_ST_NOT_WRITABLE},
        {"noSuchContext", "1.3.6.1.2.1.1.4.0", SNMP_ST_UNKNOWN_CONTEXT},
    };
    for (const auto& stCase : astCases) {
        MTE_OID_S stOid = Oid(stCase.pszOid);
        EXPECT_EQ(stCase.uiStatus, SNMP_SetIntegerValueByOID("owner", stCase.pszContext, &stOid, 1))
            << stCase.pszContext << " " << stCase.pszOid;
    }
}

// Last in this file: it stops the agent. Run alone (as ctest runs each test)
// its requests are the process's first, made while no agent answers: every
// call reports a time-out within the bound and none hangs.
TEST_F(SnmpClientTest, StoppedAgentTimesOutWithinBoundAndIsFoundAgain) {
    m_stSnmpd.Stop();
    MTE_OID_S stOid = Oid("1.3.6.1.2.1.1.5.0");
    uint32_t uiStatus = 0;
    char szContext[MTE_NAME_SIZE] = "ctxA";
    const std::function<uint32_t()> afnCalls[] = {
        [&] {
            EXPECT_EQ(nullptr, SNMP_GetInstanceValue("owner", "", &stOid, &uiStatus));
            return uiStatus;
        },
        [&] { return SNMP_GetNextContextName(sizeof(szContext), szContext); },
        [&] { return SNMP_SetIntegerValueByOID("owner", "ctxA", &stOid, 1); },
    };
    for (const auto& fnCall : afnCalls) {
        int64_t llStart = mte_test::MonoMs();
        EXPECT_EQ(SNMP_ST_TIMEOUT, fnCall());
        EXPECT_LT(mte_test::MonoMs() - llStart, 5000);
    }
    EXPECT_STREQ("", szContext);

    // Back on the same port, the client recovers by itself.
    std::string strError;
    ASSERT_TRUE(m_stSnmpd.Start(&strError)) << strError;
    bool bRecovered = false;
    for (int i = 0; i < 3 && !bRecovered; i++) {
        SNMP_FreeInstanceValue(SNMP_GetInstanceValue("owner", "", &stOid, &uiStatus));
        bRecovered = (uiStatus == SNMP_ST_OK);
    }
    EXPECT_TRUE(bRecovered) << std::hex << uiStatus;
}

}  // namespace
