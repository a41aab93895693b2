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
const std::string TRAP_OID_VAR = ".1.3.6.1.6.3.1.1.4.1.0 " + std::to_string(ASN_OBJECT_ID) + " ";

std::string OidText(const oid* pulOid, size_t uiLen) {
    std::string str;
    for (size_t i = 0; i < uiLen; i++) {
        str += "." + std::to_string(pulOid[i]);
    }
    return str;
}

// "name type value" of one decoded binding.
std::string VarText(const netsnmp_variable_list* pstVar) {
    std::string strValue;
    switch (pstVar->type) {
        case ASN_INTEGER:
        case ASN_COUNTER:
        case ASN_GAUGE:
        case ASN_TIMETICKS:
            strValue = std::to_string(*pstVar->val.integer);
            break;
        case ASN_COUNTER64:
            strValue = std::to_string(pstVar->val.counter64->high) + ":" +
                       std::to_string(pstVar->val.counter64->low);
            break;
        case ASN_OBJECT_ID:
            strValue = OidText(pstVar->val.objid, pstVar->val_len / sizeof(oid));
            break;
        case ASN_NULL:
            break;
        default:
            strValue.assign(reinterpret_cast<const char*>(pstVar->val.string), pstVar->val_len);
    }
    return OidText(pstVar->name, pstVar->name_length) + " " + std::to_string(pstVar->type) + " " +
           strValue;
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
    int32_t iValue = 1;
    auto fnGood = [&]() {
        NotifyDatagram stDg;
        stDg.Header(TRAP, "", 1).Var(NAME, SNMP_VTYPE_INTEGER, &iValue, 4);
        return stDg;
    };
    std::vector<std::string> astrVars;
    ASSERT_EQ(Decode(fnGood().Bytes(), &astrVars), AGX_DECODE_OK);
    std::vector<uint32_t> auiLong(129, 1);
    std::vector<std::pair<NotifyDatagram, uint32_t>> astCases;
    astCases.emplace_back(fnGood().U16(0), AGX_DECODE_LONG);  // trailing bytes
    astCases.emplace_back(fnGood(), AGX_DECODE_MAGIC);
    astCases.back().first.Bytes()[0] ^= 0xff;
    astCases.emplace_back(fnGood(), AGX_DECODE_VERSION);
    astCases.back().first.Bytes()[4] = 2;
    for (uint16_t usCount : {2, 0}) {  // above, then below the variables there are
        NotifyDatagram stDg;
        stDg.Header(TRAP, "", usCount).Var(NAME, SNMP_VTYPE_INTEGER, &iValue, 4);
        astCases.emplace_back(stDg, usCount == 2 ? AGX_DECODE_SHORT : AGX_DECODE_LONG);
    }
    astCases.emplace_back(NotifyDatagram().Header({}, "", 0), AGX_DECODE_OID_LENGTH);
    astCases.emplace_back(NotifyDatagram().Header(auiLong, "", 0), AGX_DECODE_OID_LENGTH);
    astCases.emplace_back(NotifyDatagram().Header(TRAP, "", 1).Var(auiLong, 2, &iValue, 4),
                          AGX_DECODE_OID_LENGTH);
    astCases.emplace_back(NotifyDatagram().Header(TRAP, std::string(33, 'c'), 0),
                          AGX_DECODE_CONTEXT);
    astCases.emplace_back(NotifyDatagram().Header(TRAP, std::string("a\0b", 3), 0),
                          AGX_DECODE_CONTEXT);
    for (uint32_t uiType : {9u, 15u, 0xffffffffu}) {
        astCases.emplace_back(NotifyDatagram().Header(TRAP, "", 1).Var(NAME, uiType, &iValue, 4),
                              AGX_DECODE_TYPE);
    }
    const std::pair<uint32_t, uint32_t> astBadLengths[] = {
        {SNMP_VTYPE_INTEGER, 3},  {SNMP_VTYPE_GAUGE32, 8},    {SNMP_VTYPE_COUNTER64, 4},
        {SNMP_VTYPE_OID, 6},      {SNMP_VTYPE_IPADDRESS, 16}, {SNMP_VTYPE_NULL, 1},
        {SNMP_VTYPE_OID, 129 * 4}};
    std::vector<unsigned char> aucZeros(129 * 4, 0);
    for (const auto& [uiType, uiLen] : astBadLengths) {
        astCases.emplace_back(
            NotifyDatagram().Header(TRAP, "", 1).Var(NAME, uiType, aucZeros.data(), uiLen),
            AGX_DECODE_VALUE_LENGTH);
    }
    // A string longer than the datagram.
    NotifyDatagram stLongString;
    stLongString.Header(TRAP, "", 1).Oid(NAME).U32(SNMP_VTYPE_OCTET_STRING).U32(100).Raw("ab", 2);
    astCases.emplace_back(stLongString, AGX_DECODE_SHORT);
    for (size_t i = 0; i < astCases.size(); i++) {
        EXPECT_EQ(Decode(astCases[i].first.Bytes(), &astrVars), astCases[i].second) << "case " << i;
    }
    // Every cut of a good datagram ends inside a field.
    std::vector<unsigned char> aucGood = fnGood().Bytes();
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
        if (m_iRelay >= 0) {
            close(m_iRelay);
            m_iRelay = -1;
        }
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

TEST_F(NotifyClientTest, BadInputIsRefusedAndNothingPartialIsSent) {
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

    char cByte = 0;
    EXPECT_EQ(-1, recv(m_iRelay, &cByte, 1, MSG_DONTWAIT));
}

// Each value type becomes its SNMP type; a binding without a value is a null.
TEST_F(NotifyClientTest, EveryTypeArrivesInOrderWithTheContext) {
    int32_t iNeg = -7;
    uint32_t uiBig = 4000000000U;
    uint64_t ullWide = (1ULL << 40) + 3;
    uint32_t auiOid[] = {1, 3, 6, 1, 2};
    char acText[] = "ab", acAddress[] = "\x0a\x01\x02\x03";
    SNMP_VALUE_S astValues[] = {
        {&iNeg, 4, SNMP_VTYPE_INTEGER32},     {&uiBig, 4, SNMP_VTYPE_COUNTER32},
        {&uiBig, 4, SNMP_VTYPE_GAUGE32},      {&uiBig, 4, SNMP_VTYPE_UINTEGER32},
        {&uiBig, 4, SNMP_VTYPE_TIMETICKS},    {&ullWide, 8, SNMP_VTYPE_COUNTER64},
        {acText, 2, SNMP_VTYPE_OCTET_STRING}, {auiOid, sizeof(auiOid), SNMP_VTYPE_OID},
        {acAddress, 4, SNMP_VTYPE_IPADDRESS},
    };
    auto T = [](u_char ucType, const std::string& strValue) {
        return std::to_string(ucType) + " " + strValue;
    };
    const std::string astrTyped[] = {T(ASN_INTEGER, "-7"),           T(ASN_COUNTER, "4000000000"),
                                     T(ASN_GAUGE, "4000000000"),     T(ASN_GAUGE, "4000000000"),
                                     T(ASN_TIMETICKS, "4000000000"), T(ASN_COUNTER64, "256:3"),
                                     T(ASN_OCTET_STR, "ab"),         T(ASN_OBJECT_ID, ".1.3.6.1.2"),
                                     T(ASN_IPADDRESS, acAddress),    T(ASN_NULL, "")};
    MTE_VB_S astVb[std::size(astrTyped)] = {};
    std::vector<std::string> astrExpected = {TRAP_OID_VAR + ".1.3.6.1.4.1.99999.0.1"};
    for (size_t i = 0; i < std::size(astVb); ++i) {
        std::string strName = "1.3.6.1.4.1.99999.1." + std::to_string(i + 1);
        astVb[i].stOID = mte_test::Oid(strName.c_str());
        astVb[i].pValue = i < std::size(astValues) ? &astValues[i] : nullptr;
        astVb[i].pstNext = i + 1 < std::size(astVb) ? &astVb[i + 1] : nullptr;
        astrExpected.push_back("." + strName + " " + astrTyped[i]);
    }
    MTE_VB_LIST_S stList{&astVb[0], &astVb[std::size(astVb) - 1]};
    MTE_OID_S stTrap = mte_test::Oid("1.3.6.1.4.1.99999.0.1");
    ASSERT_EQ(0u, SNMP_SendTrapByVBList(&stTrap, "ctxA", &stList));
    std::string strContext;
    EXPECT_EQ(Receive(&strContext), astrExpected);
    EXPECT_EQ(strContext, "ctxA");
    MTE_VB_LIST_S stEmpty{nullptr, nullptr};
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
