// The Event MIB end to end: net-snmp's command-line tools -> a private snmpd
// -> AgentX -> the bridge (a small test subagent) -> the real eventmibd over
// its management socket. Every command runs under timeout(1); every wait is
// bounded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "stack.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kMte = "1.3.6.1.2.1.88";
const std::string kTrigger = "1.3.6.1.2.1.88.1.2.2.1";
const std::string kBoolean = "1.3.6.1.2.1.88.1.2.5.1";
const std::string kObjects = "1.3.6.1.2.1.88.1.3.1.1";
const std::string kEvent = "1.3.6.1.2.1.88.1.4.2.1";
const std::string kNotify = "1.3.6.1.2.1.88.1.4.3.1";
const std::string kSampleMin = "1.3.6.1.2.1.88.1.1.1.0";

// ".len.c.c..." of an owner, then the IMPLIED name.
std::string NamedIndex(const std::string& strOwner, const std::string& strName) {
    std::string str = "." + std::to_string(strOwner.size());
    for (unsigned char uc : strOwner) {
        str += "." + std::to_string(uc);
    }
    for (unsigned char uc : strName) {
        str += "." + std::to_string(uc);
    }
    return str;
}

std::string ObjectsIndex(const std::string& strOwner, const std::string& strName,
                         uint32_t uiIndex) {
    return NamedIndex(strOwner, "") + NamedIndex(strName, "") + "." + std::to_string(uiIndex);
}

// Sub-identifiers in SNMP's order.
std::vector<uint32_t> ParseOid(const std::string& strOid) {
    MTE_OID_S stOid = mte_test::Oid(strOid.c_str() + (strOid[0] == '.'));
    return std::vector<uint32_t>(stOid.auiOid, stOid.auiOid + stOid.uiLen);
}

using mte_test::ToolRun;

// snmpd, the bridge as it runs in production (in the daemon's runtime
// directory, attached to the private master) and the daemon.
class MibBridgeTest : public ::testing::Test, protected mte_test::Stack {
  protected:
    void SetUp() override {
        MTE_START_STACK(*this, mte_test::SNMPD);
        m_astrBridgeArgs = {"-f", "-i", "1", "-x", m_stSnmpd.AgentxSocketPath()};
        MTE_START_STACK(*this, mte_test::DAEMON | mte_test::BRIDGE);
        // The bridge answers once it has registered with the master.
        ASSERT_TRUE(mte_test::WaitUntil(
            [&] { return Get(kSampleMin).strOut.find("INTEGER") != std::string::npos; }, 10000))
            << Get(kSampleMin).strOut << mte_test::ReadFile(BridgeLog());
    }

    // The OIDs of a walk, in the order received.
    std::vector<std::string> WalkOids(const std::string& strTool, const std::string& strOid) {
        std::vector<std::string> astrOids;
        std::stringstream stIn(Snmp(strTool + " -v2c -c public", strOid).strOut);
        for (std::string strLine; std::getline(stIn, strLine);) {
            if (!strLine.empty() && strLine[0] == '.') {
                astrOids.push_back(strLine.substr(0, strLine.find(' ')));
            }
        }
        return astrOids;
    }

    static std::string Trig(int iColumn, const std::string& strOwner, const std::string& strName) {
        return kTrigger + "." + std::to_string(iColumn) + NamedIndex(strOwner, strName);
    }
};

// The bridge keeps the rows a walk fetched for a few seconds; a write through
// it must still show in the very next read, one past it once they expire.
// Rows of every index shape are made in one PDU, sub-rows before the
// activation of the row that needs them.
TEST_F(MibBridgeTest, WriteThroughTheBridgeShowsInTheNextWalkAtOnce) {
    ASSERT_EQ(Set(kSampleMin + " i 7").iExit, 0);
    EXPECT_THAT(Get(kSampleMin + " 1.3.6.1.2.1.88.1.1.5.0").strOut,
                AllOf(HasSubstr("INTEGER: 7"), HasSubstr("Counter32")));
    ASSERT_EQ(Set(kSampleMin + " i 1").iExit, 0);

    const std::string strComment = Trig(3, "c", "w");
    auto Comments = [&] { return Walk(kTrigger + ".3").strOut; };
    ASSERT_EQ(Set(Trig(15, "c", "w") + " i 5 " + strComment + " s one").iExit, 0);
    EXPECT_THAT(Comments(), HasSubstr(strComment + " = STRING: \"one\""));
    ASSERT_EQ(Set(strComment + " s two").iExit, 0);
    EXPECT_THAT(Comments(), HasSubstr(strComment + " = STRING: \"two\""));
    // A change made past the bridge shows once the kept answers expire (5 s).
    ASSERT_EQ(Ctl("set trigger owner=c name=w comment=three").iExit, 0);
    usleep(5300 * 1000);
    EXPECT_THAT(Comments(), HasSubstr(strComment + " = STRING: \"three\""));
    ASSERT_EQ(Set(Trig(15, "c", "w") + " i 6").iExit, 0);
    EXPECT_THAT(Comments(), Not(HasSubstr(strComment)));

    ToolRun stRun = Set(Trig(15, "aa", "x") + " i 4 " + Trig(6, "aa", "x") +
                        " o 1.3.6.1.2.1.1.3.0 " + Trig(4, "aa", "x") + " x 80 " +
                        Trig(11, "aa", "x") + " u 60 " + Trig(3, "aa", "x") + " s go");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    ToolRun stGet = Get(Trig(15, "aa", "x") + " " + Trig(4, "aa", "x") + " " + Trig(11, "aa", "x") +
                        " " + Trig(3, "aa", "x"));
    EXPECT_THAT(stGet.strOut, AllOf(HasSubstr("INTEGER: 1"), HasSubstr("Hex-STRING: 80"),
                                    HasSubstr("Gauge32: 60"), HasSubstr("STRING: \"go\"")));
    // Objects indexes above 2^31 are read as GETNEXT shows them.
    for (uint32_t uiIndex : {1u, 2147483648u, 4294967295u}) {
        std::string strObj = ObjectsIndex("aa", "objs", uiIndex);
        stRun = Set(kObjects + ".5" + strObj + " i 4 " + kObjects + ".3" + strObj +
                    " o 1.3.6.1.2.1.1.5.0");
        ASSERT_EQ(stRun.iExit, 0) << uiIndex << ": " << stRun.strOut;
        EXPECT_THAT(Get(kObjects + ".3" + strObj).strOut, HasSubstr("OID: .1.3.6.1.2.1.1.5.0"));
    }
    std::string strIdx = NamedIndex("aa", "withbool");
    stRun = Set(Trig(15, "aa", "withbool") + " i 4 " + Trig(6, "aa", "withbool") +
                " o 1.3.6.1.2.1.1.3.0 " + Trig(4, "aa", "withbool") + " x 40 " + kBoolean + ".1" +
                strIdx + " i 5 " + kBoolean + ".2" + strIdx + " i 42");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    stGet = Get(Trig(15, "aa", "withbool") + " " + kBoolean + ".1" + strIdx + " " + kBoolean +
                ".2" + strIdx);
    EXPECT_THAT(stGet.strOut, AllOf(HasSubstr(Trig(15, "aa", "withbool") + " = INTEGER: 1"),
                                    HasSubstr(kBoolean + ".1" + strIdx + " = INTEGER: 5"),
                                    HasSubstr("INTEGER: 42")));
    std::string strEv = NamedIndex("aa", "evgo");
    stRun = Set(kEvent + ".5" + strEv + " i 4 " + kEvent + ".3" + strEv + " x 80 " + kNotify +
                ".1" + strEv + " o 1.3.6.1.4.1.99.0.2");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    stGet = Get(kEvent + ".5" + strEv + " " + kNotify + ".1" + strEv);
    EXPECT_THAT(stGet.strOut,
                AllOf(HasSubstr("INTEGER: 1"), HasSubstr("OID: .1.3.6.1.4.1.99.0.2")));
}

// Walks are strictly increasing, list exactly the daemon's rows, and a
// get-next from any name answers the first object of the walk after it: the
// bridge's passes from names between tables or rows; every shape of index
// suffix is MibMapTest.LowerBoundKeyNeverSkipsARowAfterTheSuffix's.
TEST_F(MibBridgeTest, WalksAndGetNextsFollowTheDaemonsOrder) {
    // In index order (owner length first), made in the reverse order.
    const std::vector<std::pair<std::string, std::string>> astRows = {
        {"b", "q"},   {"b", "t"},           {"b", "t22"}, {"aa", "q"}, {"aa", "qq"},
        {"aa", "xy"}, {"ab", "longername"}, {"ab", "q"},  {"ab", "z"}};
    std::string strRows;
    std::vector<std::string> astrStatus;
    for (auto it = astRows.rbegin(); it != astRows.rend(); ++it) {
        strRows += Trig(15, it->first, it->second) + " i 5 ";
        astrStatus.insert(astrStatus.begin(), "." + Trig(15, it->first, it->second));
    }
    std::string strObj = ObjectsIndex("aa", "o", 3);
    strRows += kObjects + ".5" + strObj + " i 4 " + kObjects + ".3" + strObj + " o 1.3.6.1";
    ToolRun stRun = Set(strRows);
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;

    std::vector<std::string> astrWalk = WalkOids("snmpwalk", kMte);
    ASSERT_GT(astrWalk.size(), 20u);
    for (size_t i = 1; i < astrWalk.size(); ++i) {
        EXPECT_LT(ParseOid(astrWalk[i - 1]), ParseOid(astrWalk[i]))
            << astrWalk[i - 1] << " then " << astrWalk[i];
    }
    EXPECT_EQ(WalkOids("snmpbulkwalk -Cr7", kMte), astrWalk);
    EXPECT_EQ(WalkOids("snmpbulkwalk", kTrigger + ".15"), astrStatus);

    const std::vector<std::string> astrStarts = {
        kMte,
        "1.3.6.1.2.1.88.1.2.2",
        kTrigger + ".15.2.97.98.108",   // inside an index, not a row
        kTrigger + ".3.2.97.97.300",    // a name character above 255
        kTrigger + ".3.2.97.97.113.0",  // one sub-identifier past a row
        kTrigger + ".15.4294967295",
        "1.3.6.1.2.1.88.1.2.3",           // the delta table
        kObjects + ".3.2.97.97.1.111.2",  // index just before the row
        "1.3.6.1.2.1.88.1.4.1.0",
    };
    for (const auto& strStart : astrStarts) {
        auto it = std::find_if(astrWalk.begin(), astrWalk.end(), [&](const std::string& strOid) {
            return ParseOid(strOid) > ParseOid(strStart);
        });
        stRun = Snmp("snmpgetnext -v2c -c public", strStart);
        std::string strGot = stRun.strOut.substr(0, stRun.strOut.find(' '));
        if (it == astrWalk.end()) {
            EXPECT_GT(ParseOid(strGot), ParseOid("1.3.6.1.2.1.88.1.4.4.1.6.255"))
                << strStart << ": " << stRun.strOut;
        } else {
            EXPECT_EQ(strGot, *it) << strStart << ": " << stRun.strOut;
        }
    }
}

// One refusal of each origin (the bridge's value checks, its column map, the
// daemon's codes and failed column); mib_map_test has the irregular columns
// and the value and code tables. A PDU whose second row fails takes back the
// row it created.
TEST_F(MibBridgeTest, RefusalsCarryTheirErrorAndIndex) {
    const std::string strDup = kEvent + ".5" + NamedIndex("ab", "dup");
    ASSERT_EQ(Set(Trig(15, "ab", "bad") + " i 5 " + strDup + " i 5").iExit, 0);
    struct Case {
        std::string strArgs;
        std::string strError;
        std::string strFailed;
    };
    const std::vector<Case> aCases = {
        {kSampleMin + " i 0", "wrongValue", kSampleMin},
        // mteTriggerFailures is read-only.
        {"1.3.6.1.2.1.88.1.2.1.0 u 5", "notWritable", "1.3.6.1.2.1.88.1.2.1.0"},
        {Trig(3, "ab", "bad") + " i 1", "wrongType", Trig(3, "ab", "bad")},
        {Trig(15, "ab", "bad") + " i 3", "wrongValue", Trig(15, "ab", "bad")},
        {Trig(14, "ab", "bad") + " i 1", "notWritable", Trig(14, "ab", "bad")},
        {Trig(15, "ab", "bad") + " i 4", "inconsistentValue", Trig(15, "ab", "bad")},
        // mteObjectsIndex is 1..4294967295.
        {kObjects + ".5" + ObjectsIndex("ab", "o", 0) + " i 4", "noCreation",
         kObjects + ".5" + ObjectsIndex("ab", "o", 0)},
        // Activation without a value identifier: the daemon blames that column.
        {Trig(3, "ab", "bad") + " s c " + Trig(15, "ab", "bad") + " i 1", "inconsistentValue",
         Trig(15, "ab", "bad")},
        {Trig(15, "ab", "undo") + " i 5 " + strDup + " i 5", "inconsistentValue", strDup},
    };
    for (const auto& stCase : aCases) {
        ToolRun stRun = Set(stCase.strArgs);
        EXPECT_THAT(stRun.strOut, HasSubstr(stCase.strError)) << stCase.strArgs;
        EXPECT_THAT(stRun.strOut, HasSubstr("Failed object: ." + stCase.strFailed + "\n"))
            << stCase.strArgs << "\n"
            << stRun.strOut;
    }
    EXPECT_THAT(Get(Trig(15, "ab", "undo")).strOut, HasSubstr("No Such Instance"));
    // The frequency under the sample minimum: the error points at the frequency.
    ASSERT_EQ(Set(kSampleMin + " i 60").iExit, 0);
    ToolRun stRun =
        Set(Trig(3, "ab", "slow") + " s c " + Trig(15, "ab", "slow") + " i 4 " +
            Trig(6, "ab", "slow") + " o 1.3.6.1.2.1.1.3.0 " + Trig(11, "ab", "slow") + " u 10");
    EXPECT_THAT(stRun.strOut, HasSubstr("inconsistentValue"));
    EXPECT_THAT(stRun.strOut, HasSubstr("Failed object: ." + Trig(11, "ab", "slow") + "\n"));
    EXPECT_THAT(Get(Trig(15, "ab", "slow")).strOut, HasSubstr("No Such Instance"));
}

// A daemon that takes requests but does not answer: each PDU gets genErr
// within about one time-out, whatever its varbinds; a SET refused that way is
// never applied later; answers resume once the daemon runs. A daemon that has
// exited: genErr at once, and its rows are back with it.
TEST_F(MibBridgeTest, HungOrStoppedDaemonGivesGenErrAndAppliesNothingLate) {
    ASSERT_EQ(Set(Trig(15, "b", "keep") + " i 5").iExit, 0);
    std::string strThree = kSampleMin + " " + Trig(15, "b", "x") + " " + Trig(3, "b", "y");
    const std::pair<std::string, std::string> astRuns[] = {
        {"snmpget -v2c -c public -Cf", strThree},
        {"snmpgetnext -v2c -c public -Cf", strThree},
        {"snmpbulkget -v2c -c public -Cr5", strThree},
        {"snmpset -v2c -c private", Trig(15, "b", "late") + " i 5"},
    };
    ASSERT_TRUE(m_stDaemon.Signal(SIGSTOP));
    for (const auto& [strTool, strArgs] : astRuns) {
        int64_t llStart = mte_test::MonoMs();
        ToolRun stRun = Snmp(strTool, strArgs);
        EXPECT_THAT(stRun.strOut, HasSubstr("genError"));
        EXPECT_LT(mte_test::MonoMs() - llStart, 1600) << strTool << ": " << stRun.strOut;
    }
    ASSERT_TRUE(m_stDaemon.Signal(SIGCONT));
    EXPECT_TRUE(mte_test::WaitUntil(
        [&] { return Get(kSampleMin).strOut.find("INTEGER") != std::string::npos; }, 5000));
    EXPECT_THAT(Get(Trig(15, "b", "late")).strOut, HasSubstr("No Such Instance"));

    ASSERT_EQ(m_stDaemon.Stop(), 0);
    int64_t llStart = mte_test::MonoMs();
    EXPECT_THAT(Get(kSampleMin).strOut, HasSubstr("genError"));
    EXPECT_LT(mte_test::MonoMs() - llStart, 5000);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    EXPECT_THAT(Get(Trig(15, "b", "keep")).strOut, HasSubstr("INTEGER: 2"));
}

}  // namespace
