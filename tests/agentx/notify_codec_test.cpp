// The notification datagram both ways: the daemon's client functions encode,
// the bridge's decoder reads what they sent (caught on a socket at the
// bridge's path): every value type in order with the context, refusals that
// send nothing, and the relay queue. Hand-built broken datagrams are refused
// whole, for the right reason, without leaving anything allocated.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "agx_notify.h"
#include "plat_paths.h"
#include "plat_snmp.h"
#include "stack.h"

namespace {

using mte_test::NotifyDatagram;

const std::vector<uint32_t> TRAP = {1, 3, 6, 1, 4, 1, 99999, 0, 1};
const std::vector<uint32_t> NAME = {1, 3, 6, 1, 4, 1, 99999, 1, 1};
const std::string TRAP_OID_VAR = ".1.3.6.1.6.3.1.1.4.1.0 = OID: ";  // snmpTrapOID.0

// "name = type: value" of one decoded binding, as the SNMP tools print it
// with numeric names.
std::string VarText(const netsnmp_variable_list* pstVar) {
    netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OID_OUTPUT_FORMAT,
                       NETSNMP_OID_OUTPUT_NUMERIC);
    char acBuf[512];
    snprint_variable(acBuf, sizeof(acBuf), pstVar->name, pstVar->name_length, pstVar);
    return acBuf;
}

// The decode result; on success the context and the bindings as text
// (snmpTrapOID.0 first).
uint32_t Decode(const std::vector<unsigned char>& aucBytes, std::vector<std::string>* pastrVars,
                std::string* pstrContext = nullptr) {
    AGX_NOTIFY_S stNotify;
    uint32_t uiRet = AGX_DecodeNotify(aucBytes.data(), aucBytes.size(), &stNotify);
    if (uiRet != AGX_DECODE_OK) {
        EXPECT_EQ(stNotify.pstVars, nullptr);
        return uiRet;
    }
    pastrVars->clear();
    for (netsnmp_variable_list* pstVar = stNotify.pstVars; pstVar != nullptr;
         pstVar = pstVar->next_variable) {
        pastrVars->push_back(VarText(pstVar));
    }
    if (pstrContext != nullptr) {
        *pstrContext = stNotify.szContext;
    }
    snmp_free_varbind(stNotify.pstVars);
    return uiRet;
}

TEST(NotifyDecode, BrokenDatagramsAreRefusedForTheirReason) {
    std::vector<unsigned char> aucZeros(129 * 4, 0);
    std::vector<uint32_t> auiLong(129, 1);
    auto fnOne = [&](uint32_t uiType, uint32_t uiLen, uint16_t usCount = 1) {
        return NotifyDatagram().Header(TRAP, "", usCount).Var(NAME, uiType, aucZeros.data(), uiLen);
    };
    auto fnPatched = [&](size_t uiAt, unsigned char ucByte) {
        NotifyDatagram stDg = fnOne(SNMP_VTYPE_INTEGER, 4);
        stDg.Bytes()[uiAt] = ucByte;
        return stDg;
    };
    std::vector<std::string> astrVars;
    ASSERT_EQ(Decode(fnOne(SNMP_VTYPE_INTEGER, 4).Bytes(), &astrVars), AGX_DECODE_OK);
    std::vector<std::pair<NotifyDatagram, uint32_t>> astCases = {
        {fnOne(SNMP_VTYPE_INTEGER, 4).U16(0), AGX_DECODE_LONG},  // trailing bytes
        {fnPatched(0, 0), AGX_DECODE_MAGIC},
        {fnPatched(4, 2), AGX_DECODE_VERSION},
        {fnOne(SNMP_VTYPE_INTEGER, 4, 2), AGX_DECODE_SHORT},  // more variables announced
        {fnOne(SNMP_VTYPE_INTEGER, 4, 0), AGX_DECODE_LONG},   // fewer
        {NotifyDatagram().Header({}, "", 0), AGX_DECODE_OID_LENGTH},
        {NotifyDatagram().Header(auiLong, "", 0), AGX_DECODE_OID_LENGTH},
        {NotifyDatagram().Header(TRAP, "", 1).Var(auiLong, 2, aucZeros.data(), 4),
         AGX_DECODE_OID_LENGTH},
        {NotifyDatagram().Header(TRAP, std::string(33, 'c'), 0), AGX_DECODE_CONTEXT},
        {NotifyDatagram().Header(TRAP, std::string("a\0b", 3), 0), AGX_DECODE_CONTEXT},
        {fnOne(9, 4), AGX_DECODE_TYPE},
        {fnOne(15, 4), AGX_DECODE_TYPE},
        {fnOne(0xffffffffu, 4), AGX_DECODE_TYPE},
        {fnOne(SNMP_VTYPE_INTEGER, 3), AGX_DECODE_VALUE_LENGTH},
        {fnOne(SNMP_VTYPE_GAUGE32, 8), AGX_DECODE_VALUE_LENGTH},
        {fnOne(SNMP_VTYPE_COUNTER64, 4), AGX_DECODE_VALUE_LENGTH},
        {fnOne(SNMP_VTYPE_OID, 6), AGX_DECODE_VALUE_LENGTH},
        {fnOne(SNMP_VTYPE_OID, 129 * 4), AGX_DECODE_VALUE_LENGTH},
        {fnOne(SNMP_VTYPE_IPADDRESS, 16), AGX_DECODE_VALUE_LENGTH},
        {fnOne(SNMP_VTYPE_NULL, 1), AGX_DECODE_VALUE_LENGTH},
        // A string longer than the datagram.
        {NotifyDatagram().Header(TRAP, "", 1).Oid(NAME).U32(SNMP_VTYPE_OCTET_STRING).U32(100),
         AGX_DECODE_SHORT},
    };
    for (size_t i = 0; i < astCases.size(); i++) {
        EXPECT_EQ(Decode(astCases[i].first.Bytes(), &astrVars), astCases[i].second) << "case " << i;
    }
    // Every cut of a good datagram ends inside a field.
    std::vector<unsigned char> aucGood = fnOne(SNMP_VTYPE_INTEGER, 4).Bytes();
    for (size_t uiCut = 0; uiCut < aucGood.size(); uiCut++) {
        std::vector<unsigned char> aucCut(aucGood.begin(), aucGood.begin() + uiCut);
        EXPECT_EQ(Decode(aucCut, &astrVars), AGX_DECODE_SHORT) << "cut at " << uiCut;
    }
}

// Plays the bridge on its socket in a private runtime directory (the
// harness's, no process started).
class NotifyClientTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override { Listen(); }
    void TearDown() override { StopListening(); }
    void Listen() {
        m_iRelay = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_TRUE(mte_test::BindTo(m_iRelay, PLAT_AgentxSocketPath()));
    }
    void StopListening() {
        close(m_iRelay);
        m_iRelay = -1;
        unlink(PLAT_AgentxSocketPath().c_str());
    }
    // The next datagram decoded: its bindings as text, snmpTrapOID.0 first.
    std::vector<std::string> Receive(std::string* pstrContext = nullptr) {
        std::vector<unsigned char> aucBuf(70000);
        pollfd stPoll = {m_iRelay, POLLIN, 0};
        ssize_t lRead = poll(&stPoll, 1, 2000) == 1 ? recv(m_iRelay, aucBuf.data(), 70000, 0) : -1;
        aucBuf.resize(lRead > 0 ? static_cast<size_t>(lRead) : 0);
        std::vector<std::string> astrVars;
        EXPECT_EQ(Decode(aucBuf, &astrVars, pstrContext), AGX_DECODE_OK);
        return astrVars;
    }
    int m_iRelay = -1;
};

TEST_F(NotifyClientTest, BadInputSendsNothingAndEveryTypeArrivesInOrderWithTheContext) {
    SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
    SNMP_NOTIFY_VAR_S astBad[] = {
        {SNMP_VTYPE_INTEGER32, 2, "xx"}, {SNMP_VTYPE_OID, 6, "xxxxxx"}, {99, 1, "x"}};
    for (const auto& stBad : astBad) {
        EXPECT_NE(0u, SNMP_AddNotifyVar(hNotify, &stBad, 0));
    }
    EXPECT_NE(0u, SNMP_AddNotifyVar(hNotify, nullptr, 0));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(hNotify));  // reports the refused variable

    // Five good variables, but no such notification.
    hNotify = SNMP_CreateNotifyHandle();
    SNMP_NOTIFY_VAR_S stGood = {SNMP_VTYPE_OCTET_STRING, 2, "ok"};
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(0u, SNMP_AddNotifyVar(hNotify, &stGood, 0));
    }
    EXPECT_NE(0u, SNMP_SendNotify("noSuchNotification", hNotify));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(hNotify));
    EXPECT_NE(0u, SNMP_SendNotify("mteTriggerFired", nullptr));
    EXPECT_NE(0u, SNMP_DestroyNotifyHandle(nullptr));
    MTE_OID_S stNoOid{};
    MTE_VB_LIST_S stEmpty{nullptr, nullptr};
    EXPECT_NE(0u, SNMP_SendTrapByVBList(&stNoOid, "", &stEmpty));

    // Nothing was sent: the first datagram is the good one. Each value type
    // becomes its SNMP type; a binding without a value is a null.
    int32_t iNeg = -7;
    uint32_t uiBig = 4000000000U;
    uint64_t ullWide = (1ULL << 40) + 3;
    uint32_t auiOid[] = {1, 3, 6, 1, 2};
    char acText[] = "ab", acAddress[] = "\x0a\x01\x02\x03";
    std::pair<SNMP_VALUE_S, const char*> astCases[] = {
        {{&iNeg, 4, SNMP_VTYPE_INTEGER32}, "INTEGER: -7"},
        {{&uiBig, 4, SNMP_VTYPE_COUNTER32}, "Counter32: 4000000000"},
        {{&uiBig, 4, SNMP_VTYPE_GAUGE32}, "Gauge32: 4000000000"},
        {{&uiBig, 4, SNMP_VTYPE_UINTEGER32}, "Gauge32: 4000000000"},
        {{&uiBig, 4, SNMP_VTYPE_TIMETICKS}, "Timeticks: (4000000000) 462 days, 23:06:40.00"},
        {{&ullWide, 8, SNMP_VTYPE_COUNTER64}, "Counter64: 1099511627779"},
        {{acText, 2, SNMP_VTYPE_OCTET_STRING}, "STRING: \"ab\""},
        {{auiOid, sizeof(auiOid), SNMP_VTYPE_OID}, "OID: .1.3.6.1.2"},
        {{acAddress, 4, SNMP_VTYPE_IPADDRESS}, "IpAddress: 10.1.2.3"},
        {{}, "NULL"},  // sent without a value
    };
    MTE_VB_S astVb[std::size(astCases)] = {};
    std::vector<std::string> astrExpected = {TRAP_OID_VAR + ".1.3.6.1.4.1.99999.0.1"};
    for (size_t i = 0; i < std::size(astVb); ++i) {
        std::string strName = "1.3.6.1.4.1.99999.1." + std::to_string(i + 1);
        astVb[i].stOID = mte_test::Oid(strName.c_str());
        astVb[i].pValue = i + 1 < std::size(astVb) ? &astCases[i].first : nullptr;
        astVb[i].pstNext = i + 1 < std::size(astVb) ? &astVb[i + 1] : nullptr;
        astrExpected.push_back("." + strName + " = " + astCases[i].second);
    }
    MTE_VB_LIST_S stList{&astVb[0], &astVb[std::size(astVb) - 1]};
    MTE_OID_S stTrap = mte_test::Oid("1.3.6.1.4.1.99999.0.1");
    ASSERT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "ctxA", &stList));
    std::string strContext;
    EXPECT_EQ(Receive(&strContext), astrExpected);
    EXPECT_EQ(strContext, "ctxA");
    EXPECT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));
    EXPECT_EQ(Receive().size(), 1u);
}

// The daemon's relay queue: held while the relay is away, delivered in order
// when it is back, refused (and reported) only when full, and sends are
// direct again after it is closed, failing at once when nobody listens.
TEST_F(NotifyClientTest, RelayQueueHoldsInOrderAndRefusesOnlyWhenFull) {
    StopListening();
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

    Listen();  // the relay is back; the next try is due within 200 ms
    pollfd stPoll{iFd, POLLIN, 0};
    ASSERT_EQ(1, poll(&stPoll, 1, 2000));
    EXPECT_EQ(SNMP_RELAY_BACK, SNMP_NotifyRelayProc(&uiHeld));
    EXPECT_EQ(0u, uiHeld);
    for (const char* pszTrap : {".1.3.6.1.4.1.99999.0.1", ".1.3.6.1.4.1.99999.0.2"}) {
        EXPECT_EQ(Receive().at(0), TRAP_OID_VAR + pszTrap);
    }

    MTE_OID_S stTrap = mte_test::Oid("1.3.6.1.4.1.99999.0.3");
    for (uint32_t i = 0; i < SNMP_RELAY_QUEUE_MAX; i++) {
        ASSERT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty)) << i;
    }
    EXPECT_EQ(static_cast<uint32_t>(SNMP_ST_LOCAL_RESOURCE),
              SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));
    StopListening();
    EXPECT_EQ(SNMP_RELAY_QUEUE_MAX, SNMP_NotifyRelayClose(0));
    EXPECT_NE(0u, SNMP_SendTrapByVBList(&stTrap, "", &stEmpty));
}

}  // namespace
