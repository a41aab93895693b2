// The bridge's decoder against the client's encoder (datagrams made by the
// real notification functions and caught on a socket at the bridge's path),
// and against broken datagrams: every one is refused whole, for the right
// reason, without leaving anything allocated.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "stack.h"
#include "agx_notify.h"
#include "plat_paths.h"
#include "plat_snmp.h"

namespace {

using mte_test::NotifyDatagram;

const std::vector<uint32_t> TRAP = {1, 3, 6, 1, 4, 1, 99999, 0, 1};
const std::vector<uint32_t> NAME = {1, 3, 6, 1, 4, 1, 99999, 1, 1};

std::string OidText(const oid* pulOid, size_t uiLen) {
    std::string str;
    for (size_t i = 0; i < uiLen; i++) {
        str += "." + std::to_string(pulOid[i]);
    }
    return str;
}

std::vector<netsnmp_variable_list*> VarsOf(const AGX_NOTIFY_S& stNotify) {
    std::vector<netsnmp_variable_list*> apstVars;
    for (netsnmp_variable_list* pstVar = stNotify.pstVars; pstVar != nullptr;
         pstVar = pstVar->next_variable) {
        apstVars.push_back(pstVar);
    }
    return apstVars;
}

uint32_t Decode(const std::vector<unsigned char>& aucBytes) {
    AGX_NOTIFY_S stNotify;
    uint32_t uiRet = AGX_DecodeNotify(aucBytes.data(), aucBytes.size(), &stNotify);
    if (uiRet == AGX_DECODE_OK) {
        snmp_free_varbind(stNotify.pstVars);
    } else {
        EXPECT_EQ(stNotify.pstVars, nullptr);
    }
    return uiRet;
}

TEST(AgentxDecode, EveryTypeBecomesItsSnmpType) {
    int32_t iNeg = -7;
    uint32_t uiBig = 4000000000U;
    uint64_t ullWide = (1ULL << 40) + 3;
    uint32_t auiOidValue[] = {1, 3, 6, 1, 2};
    unsigned char aucIp[] = {10, 1, 2, 3};
    NotifyDatagram stDg;
    stDg.Header(TRAP, "ctx1", 9)
        .Var(NAME, SNMP_VTYPE_INTEGER32, &iNeg, 4)
        .Var(NAME, SNMP_VTYPE_COUNTER32, &uiBig, 4)
        .Var(NAME, SNMP_VTYPE_UINTEGER32, &uiBig, 4)
        .Var(NAME, SNMP_VTYPE_TIMETICKS, &uiBig, 4)
        .Var(NAME, SNMP_VTYPE_COUNTER64, &ullWide, 8)
        .Var(NAME, SNMP_VTYPE_OCTET_STRING, "ab", 2)
        .Var(NAME, SNMP_VTYPE_OID, auiOidValue, sizeof(auiOidValue))
        .Var(NAME, SNMP_VTYPE_IPADDRESS, aucIp, 4)
        .Var(NAME, SNMP_VTYPE_NULL, nullptr, 0);
    AGX_NOTIFY_S stNotify;
    ASSERT_EQ(AGX_DecodeNotify(stDg.Bytes().data(), stDg.Bytes().size(), &stNotify), AGX_DECODE_OK);
    EXPECT_STREQ(stNotify.szContext, "ctx1");
    auto apstVars = VarsOf(stNotify);
    ASSERT_EQ(apstVars.size(), 10u);
    EXPECT_EQ(OidText(apstVars[0]->name, apstVars[0]->name_length), ".1.3.6.1.6.3.1.1.4.1.0");
    EXPECT_EQ(OidText(apstVars[0]->val.objid, apstVars[0]->val_len / sizeof(oid)),
              ".1.3.6.1.4.1.99999.0.1");
    const u_char aucTypes[] = {ASN_INTEGER,   ASN_COUNTER,   ASN_GAUGE,
                               ASN_TIMETICKS, ASN_COUNTER64, ASN_OCTET_STR,
                               ASN_OBJECT_ID, ASN_IPADDRESS, ASN_NULL};
    for (size_t i = 0; i < 9; i++) {
        EXPECT_EQ(apstVars[i + 1]->type, aucTypes[i]) << "variable " << i;
        EXPECT_EQ(OidText(apstVars[i + 1]->name, apstVars[i + 1]->name_length),
                  ".1.3.6.1.4.1.99999.1.1");
    }
    EXPECT_EQ(*apstVars[1]->val.integer, -7);
    EXPECT_EQ(*apstVars[2]->val.integer, 4000000000L);
    EXPECT_EQ(apstVars[5]->val.counter64->high, 256u);
    EXPECT_EQ(apstVars[5]->val.counter64->low, 3u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(apstVars[6]->val.string), apstVars[6]->val_len),
              "ab");
    EXPECT_EQ(OidText(apstVars[7]->val.objid, apstVars[7]->val_len / sizeof(oid)), ".1.3.6.1.2");
    EXPECT_EQ(memcmp(apstVars[8]->val.string, aucIp, 4), 0);
    snmp_free_varbind(stNotify.pstVars);
}

TEST(AgentxDecode, BrokenDatagramsAreRefusedForTheirReason) {
    int32_t iValue = 1;
    auto fnGood = [&]() {
        NotifyDatagram stDg;
        stDg.Header(TRAP, "", 1).Var(NAME, SNMP_VTYPE_INTEGER, &iValue, 4);
        return stDg;
    };
    ASSERT_EQ(Decode(fnGood().Bytes()), AGX_DECODE_OK);
    std::vector<uint32_t> auiLong(129, 1);
    struct Case {
        const char* pszWhat;
        std::vector<unsigned char> aucBytes;
        uint32_t uiExpected;
    };
    std::vector<Case> astCases;
    auto fnAdd = [&](const char* psz, const NotifyDatagram& stDg, uint32_t ui) {
        astCases.push_back({psz, stDg.Bytes(), ui});
    };
    NotifyDatagram stTrailing = fnGood();
    stTrailing.U16(0);
    fnAdd("trailing bytes", stTrailing, AGX_DECODE_LONG);
    NotifyDatagram stMagic = fnGood();
    stMagic.Bytes()[0] ^= 0xff;
    fnAdd("magic", stMagic, AGX_DECODE_MAGIC);
    NotifyDatagram stVersion = fnGood();
    stVersion.Bytes()[4] = 2;
    fnAdd("version", stVersion, AGX_DECODE_VERSION);
    NotifyDatagram stCountHigh;
    stCountHigh.Header(TRAP, "", 2).Var(NAME, SNMP_VTYPE_INTEGER, &iValue, 4);
    fnAdd("count above the variables", stCountHigh, AGX_DECODE_SHORT);
    NotifyDatagram stCountLow;
    stCountLow.Header(TRAP, "", 0).Var(NAME, SNMP_VTYPE_INTEGER, &iValue, 4);
    fnAdd("count below the variables", stCountLow, AGX_DECODE_LONG);
    fnAdd("empty trap OID", NotifyDatagram().Header({}, "", 0), AGX_DECODE_OID_LENGTH);
    fnAdd("trap OID of 129", NotifyDatagram().Header(auiLong, "", 0), AGX_DECODE_OID_LENGTH);
    NotifyDatagram stNameLong;
    stNameLong.Header(TRAP, "", 1).Var(auiLong, SNMP_VTYPE_INTEGER, &iValue, 4);
    fnAdd("binding name of 129", stNameLong, AGX_DECODE_OID_LENGTH);
    fnAdd("context of 33", NotifyDatagram().Header(TRAP, std::string(33, 'c'), 0),
          AGX_DECODE_CONTEXT);
    fnAdd("context with NUL", NotifyDatagram().Header(TRAP, std::string("a\0b", 3), 0),
          AGX_DECODE_CONTEXT);
    for (uint32_t uiType : {9u, 15u, 0xffffffffu}) {
        NotifyDatagram stType;
        stType.Header(TRAP, "", 1).Var(NAME, uiType, &iValue, 4);
        fnAdd("type", stType, AGX_DECODE_TYPE);
    }
    const std::pair<uint32_t, uint32_t> astBadLengths[] = {
        {SNMP_VTYPE_INTEGER, 3},  {SNMP_VTYPE_GAUGE32, 8},    {SNMP_VTYPE_COUNTER64, 4},
        {SNMP_VTYPE_OID, 6},      {SNMP_VTYPE_IPADDRESS, 16}, {SNMP_VTYPE_NULL, 1},
        {SNMP_VTYPE_OID, 129 * 4}};
    std::vector<unsigned char> aucZeros(129 * 4, 0);
    for (const auto& [uiType, uiLen] : astBadLengths) {
        NotifyDatagram stLen;
        stLen.Header(TRAP, "", 1).Var(NAME, uiType, aucZeros.data(), uiLen);
        fnAdd("value length", stLen, AGX_DECODE_VALUE_LENGTH);
    }
    NotifyDatagram stValueLong;
    stValueLong.Header(TRAP, "", 1).Oid(NAME).U32(SNMP_VTYPE_OCTET_STRING).U32(100).Raw("ab", 2);
    fnAdd("string longer than the datagram", stValueLong, AGX_DECODE_SHORT);
    for (const auto& stCase : astCases) {
        EXPECT_EQ(Decode(stCase.aucBytes), stCase.uiExpected) << stCase.pszWhat;
    }
    // Every cut of a good datagram ends inside a field.
    std::vector<unsigned char> aucGood = fnGood().Bytes();
    for (size_t uiCut = 0; uiCut < aucGood.size(); uiCut++) {
        std::vector<unsigned char> aucCut(aucGood.begin(), aucGood.begin() + uiCut);
        EXPECT_EQ(Decode(aucCut), AGX_DECODE_SHORT) << "cut at " << uiCut;
    }
}

// The client's datagrams, caught where the bridge would be, decode to the
// notification the daemon meant.
class AgentxClientRoundTrip : public ::testing::Test {
  protected:
    void SetUp() override {
        char szDir[] = "/tmp/mte-agxrt.XXXXXX";
        ASSERT_NE(mkdtemp(szDir), nullptr);
        m_strDir = szDir;
        setenv("RUNTIME_DIRECTORY", m_strDir.c_str(), 1);
        m_iFd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un stAddr{};
        stAddr.sun_family = AF_UNIX;
        std::string strPath = PLAT_AgentxSocketPath();
        memcpy(stAddr.sun_path, strPath.c_str(), strPath.size() + 1);
        ASSERT_EQ(bind(m_iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)), 0);
    }
    void TearDown() override {
        close(m_iFd);
        unsetenv("RUNTIME_DIRECTORY");
        std::error_code stEc;
        std::filesystem::remove_all(m_strDir, stEc);
    }
    std::vector<unsigned char> Receive() {
        std::vector<unsigned char> aucBuf(70000);
        pollfd stPoll = {m_iFd, POLLIN, 0};
        if (poll(&stPoll, 1, 2000) != 1) {
            return {};
        }
        ssize_t lRead = recv(m_iFd, aucBuf.data(), aucBuf.size(), 0);
        aucBuf.resize(lRead > 0 ? static_cast<size_t>(lRead) : 0);
        return aucBuf;
    }
    std::string m_strDir;
    int m_iFd = -1;
};

TEST_F(AgentxClientRoundTrip, BuiltinAndListNotifications) {
    SNMP_NOTIFY_HANDLE hNotify = SNMP_CreateNotifyHandle();
    uint32_t auiHot[] = {1, 3, 6, 1, 4, 1, 99999, 1, 1, 1, 1, 7};
    int32_t iReason = -6;
    SNMP_NOTIFY_VAR_S astVars[] = {{SNMP_VTYPE_OCTET_STRING, 4, "trig"},
                                   {SNMP_VTYPE_OCTET_STRING, 0, ""},
                                   {SNMP_VTYPE_OCTET_STRING, 3, "ctx"},
                                   {SNMP_VTYPE_OID, sizeof(auiHot), auiHot},
                                   {SNMP_VTYPE_ENUM, 4, &iReason}};
    for (const auto& stVar : astVars) {
        ASSERT_EQ(SNMP_AddNotifyVar(hNotify, &stVar, 0), 0u);
    }
    ASSERT_EQ(SNMP_SendNotify("mteTriggerFailure", hNotify), 0u);
    EXPECT_EQ(SNMP_DestroyNotifyHandle(hNotify), 0u);
    std::vector<unsigned char> aucBytes = Receive();
    AGX_NOTIFY_S stNotify;
    ASSERT_EQ(AGX_DecodeNotify(aucBytes.data(), aucBytes.size(), &stNotify), AGX_DECODE_OK);
    auto apstVars = VarsOf(stNotify);
    ASSERT_EQ(apstVars.size(), 6u);
    EXPECT_EQ(OidText(apstVars[0]->val.objid, apstVars[0]->val_len / sizeof(oid)),
              ".1.3.6.1.2.1.88.2.0.4");
    EXPECT_EQ(OidText(apstVars[5]->name, apstVars[5]->name_length), ".1.3.6.1.2.1.88.2.1.6.0");
    EXPECT_EQ(apstVars[5]->type, ASN_INTEGER);
    EXPECT_EQ(*apstVars[5]->val.integer, -6);
    EXPECT_EQ(apstVars[2]->val_len, 0u);
    EXPECT_EQ(OidText(apstVars[4]->val.objid, apstVars[4]->val_len / sizeof(oid)),
              ".1.3.6.1.4.1.99999.1.1.1.1.7");
    snmp_free_varbind(stNotify.pstVars);

    // A configured notification in a context, with a binding that has no value.
    MTE_OID_S stTrap{};
    stTrap.uiLen = 9;
    memcpy(stTrap.auiOid, TRAP.data(), 9 * 4);
    static MTE_VB_S s_astVb[2];
    memset(s_astVb, 0, sizeof(s_astVb));
    uint32_t uiGauge = 12;
    SNMP_VALUE_S stValue = {&uiGauge, 4, SNMP_VTYPE_GAUGE32};
    s_astVb[0].pstNext = &s_astVb[1];
    s_astVb[0].stOID = stTrap;
    s_astVb[0].pValue = &stValue;
    s_astVb[1].stOID = stTrap;
    MTE_VB_LIST_S stList = {&s_astVb[0], &s_astVb[1]};
    ASSERT_EQ(SNMP_SendTrapByVBList(&stTrap, "ctxT1", &stList), 0u);
    aucBytes = Receive();
    ASSERT_EQ(AGX_DecodeNotify(aucBytes.data(), aucBytes.size(), &stNotify), AGX_DECODE_OK);
    EXPECT_STREQ(stNotify.szContext, "ctxT1");
    apstVars = VarsOf(stNotify);
    ASSERT_EQ(apstVars.size(), 3u);
    EXPECT_EQ(apstVars[1]->type, ASN_GAUGE);
    EXPECT_EQ(*apstVars[1]->val.integer, 12);
    EXPECT_EQ(apstVars[2]->type, ASN_NULL);
    snmp_free_varbind(stNotify.pstVars);
}

}  // namespace
