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

    ToolRun Tool(const std::string& strTool, const std::string& strArgs) {
        return Snmp(strTool + " -v2c -c public", strArgs);
    }

    // The OIDs of a walk, in the order received.
    std::vector<std::string> WalkOids(const std::string& strTool, const std::string& strOid) {
        std::vector<std::string> astrOids;
        std::stringstream stIn(Tool(strTool, strOid).strOut);
        for (std::string strLine; std::getline(stIn, strLine);) {
            if (!strLine.empty() && strLine[0] == '.') {
                astrOids.push_back(strLine.substr(0, strLine.find(' ')));
            }
        }
        return astrOids;
    }

    // The trigger rows as eventmibctl walks them over the daemon's socket
    // (after the line of column names).
    std::vector<std::string> DaemonTriggerIndexes() {
        std::vector<std::string> astrRows;
        std::istringstream stIn(Ctl("walk trigger").strOut);
        std::string strOwner, strName;
        for (std::string strLine; std::getline(stIn, strLine);) {
            if (std::istringstream(strLine) >> strOwner >> strName && strOwner != "owner") {
                astrRows.push_back(NamedIndex(strOwner, strName));
            }
        }
        return astrRows;
    }

    static std::string Trig(int iColumn, const std::string& strOwner, const std::string& strName) {
        return kTrigger + "." + std::to_string(iColumn) + NamedIndex(strOwner, strName);
    }
};

TEST_F(MibBridgeTest, ScalarsReadAndWrite) {
    ToolRun stRun = Set(kSampleMin + " i 7");
    EXPECT_EQ(stRun.iExit, 0) << stRun.strOut;
    EXPECT_THAT(Get(kSampleMin).strOut, HasSubstr("INTEGER: 7"));
    EXPECT_THAT(Set(kSampleMin + " i 0").strOut, HasSubstr("wrongValue"));
    // mteTriggerFailures is read-only.
    EXPECT_THAT(Set("1.3.6.1.2.1.88.1.2.1.0 u 5").strOut, HasSubstr("notWritable"));
    EXPECT_THAT(Get("1.3.6.1.2.1.88.1.1.5.0").strOut, HasSubstr("Counter32"));
    EXPECT_EQ(Set(kSampleMin + " i 1").iExit, 0);
}

// The bridge keeps the rows a walk fetched for a few seconds; a write through
// it must still show in the very next read, one past it once they expire.
TEST_F(MibBridgeTest, WriteThroughTheBridgeShowsInTheNextWalkAtOnce) {
    const std::string strComment = Trig(3, "c", "w");
    auto Comments = [&] { return Tool("snmpwalk", kTrigger + ".3").strOut; };
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
}

TEST_F(MibBridgeTest, CreateAndGoInOnePduWithColumnsSubRowsAndLargeIndexes) {
    ToolRun stRun = Set(Trig(15, "aa", "x") + " i 4 " + Trig(6, "aa", "x") +
                        " o 1.3.6.1.2.1.1.3.0 " + Trig(4, "aa", "x") + " x 80 " +
                        Trig(11, "aa", "x") + " u 60 " + Trig(3, "aa", "x") + " s go");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    ToolRun stGet = Get(Trig(15, "aa", "x") + " " + Trig(4, "aa", "x") + " " + Trig(11, "aa", "x") +
                        " " + Trig(3, "aa", "x"));
    EXPECT_THAT(stGet.strOut, AllOf(HasSubstr("INTEGER: 1"), HasSubstr("Hex-STRING: 80"),
                                    HasSubstr("Gauge32: 60"), HasSubstr("STRING: \"go\"")));
    EXPECT_THAT(Get(Trig(3, "aa", "nope")).strOut, HasSubstr("No Such Instance"));
    // Objects and event rows, with their own index shapes; objects indexes
    // above 2^31 are read as GETNEXT shows them.
    for (uint32_t uiIndex : {1u, 2147483648u, 3000000000u, 4294967295u}) {
        std::string strObj = ObjectsIndex("aa", "objs", uiIndex);
        stRun = Set(kObjects + ".5" + strObj + " i 4 " + kObjects + ".3" + strObj +
                    " o 1.3.6.1.2.1.1.5.0");
        ASSERT_EQ(stRun.iExit, 0) << uiIndex << ": " << stRun.strOut;
        EXPECT_THAT(Get(kObjects + ".3" + strObj).strOut, HasSubstr("OID: .1.3.6.1.2.1.1.5.0"));
    }
    std::string strEv = NamedIndex("aa", "ev");
    stRun = Set(kEvent + ".5" + strEv + " i 5 " + kEvent + ".3" + strEv + " x 80 " + kEvent + ".2" +
                strEv + " s note");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    stRun = Set(kNotify + ".1" + strEv + " o 1.3.6.1.4.1.99.0.1 " + kNotify + ".2" + strEv +
                " s aa " + kNotify + ".3" + strEv + " s objs");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    ToolRun stNotify = Tool("snmpwalk", kNotify);
    EXPECT_THAT(stNotify.strOut, HasSubstr(kNotify + ".2" + strEv + " = STRING: \"aa\""));
    EXPECT_THAT(stNotify.strOut, HasSubstr(kNotify + ".3" + strEv + " = STRING: \"objs\""));
    EXPECT_EQ(Set(kEvent + ".5" + strEv + " i 1").iExit, 0);

    // A trigger made active in the same PDU as its test rows, and an event
    // with its notification: the sub-rows are written before the activation.
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

    strEv = NamedIndex("aa", "evgo");
    stRun = Set(kEvent + ".5" + strEv + " i 4 " + kEvent + ".3" + strEv + " x 80 " + kNotify +
                ".1" + strEv + " o 1.3.6.1.4.1.99.0.2");
    ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    stGet = Get(kEvent + ".5" + strEv + " " + kNotify + ".1" + strEv);
    EXPECT_THAT(stGet.strOut, HasSubstr("INTEGER: 1"));
    EXPECT_THAT(stGet.strOut, HasSubstr("OID: .1.3.6.1.4.1.99.0.2"));
}

TEST_F(MibBridgeTest, WalksAreStrictlyIncreasingAndShowExactlyTheDaemonsRows) {
    for (const auto& [strOwner, strName] : std::vector<std::pair<std::string, std::string>>{
             {"ab", "longername"}, {"ab", "z"}, {"aa", "xy"}, {"b", "t"}, {"b", "t22"}}) {
        ToolRun stRun = Set(Trig(15, strOwner, strName) + " i 5");
        ASSERT_EQ(stRun.iExit, 0) << stRun.strOut;
    }
    std::vector<std::string> astrWalk = WalkOids("snmpwalk", kMte);
    ASSERT_GT(astrWalk.size(), 20u);
    for (size_t i = 1; i < astrWalk.size(); ++i) {
        EXPECT_LT(ParseOid(astrWalk[i - 1]), ParseOid(astrWalk[i]))
            << astrWalk[i - 1] << " then " << astrWalk[i];
    }
    EXPECT_EQ(WalkOids("snmpbulkwalk -Cr7", kMte), astrWalk);
    // Column 15 of the trigger table lists exactly the daemon's rows, in order.
    std::vector<std::string> astrStatus;
    for (const auto& strOid : WalkOids("snmpbulkwalk", kTrigger + ".15")) {
        astrStatus.push_back(strOid.substr(kTrigger.size() + 4));
    }
    std::vector<std::string> astrDaemon = DaemonTriggerIndexes();
    EXPECT_EQ(astrStatus, astrDaemon);
    EXPECT_GE(astrDaemon.size(), 5u);
    // A get-next from inside an index (not a row) lands on the next row.
    ToolRun stNext = Tool("snmpgetnext", kTrigger + ".15.2.97.98.108");
    EXPECT_THAT(stNext.strOut, HasSubstr(Trig(15, "ab", "longername")));
}

// A get-next from any name (cut indexes, characters above 255, lengths out of
// range, names between tables) answers the first object of the full walk that
// follows it.
TEST_F(MibBridgeTest, GetNextFromArbitraryNamesFollowsTheWalk) {
    for (const auto& [strOwner, strName] : std::vector<std::pair<std::string, std::string>>{
             {"b", "q"}, {"aa", "q"}, {"aa", "qq"}, {"ab", "q"}}) {
        ASSERT_EQ(Set(Trig(15, strOwner, strName) + " i 5").iExit, 0);
    }
    std::string strObj = ObjectsIndex("aa", "o", 3);
    ASSERT_EQ(
        Set(kObjects + ".5" + strObj + " i 4 " + kObjects + ".3" + strObj + " o 1.3.6.1").iExit, 0);
    std::vector<std::string> astrWalk = WalkOids("snmpwalk", kMte);
    const std::vector<std::string> astrStarts = {
        kMte,
        "1.3.6.1.2.1.88.1.1.5.0",
        "1.3.6.1.2.1.88.1.2.2",
        kTrigger + ".3.2.97",           // owner cut short
        kTrigger + ".3.2.97.97.300",    // a name character above 255
        kTrigger + ".3.2.97.97.113.0",  // one sub-identifier past a row
        kTrigger + ".3.40",             // owner longer than 32
        kTrigger + ".3.1.98.113.113.113",
        kTrigger + ".15.4294967295",
        "1.3.6.1.2.1.88.1.2.3",           // the delta table
        kObjects + ".3.2.97.97",          // objects: owner without name
        kObjects + ".3.2.97.97.1.111",    // name without index
        kObjects + ".3.2.97.97.1.111.2",  // index just before the row
        kObjects + ".3.2.97.97.1.111.3",  // the row itself
        kObjects + ".3.2.97.97.50",       // name longer than 32
        "1.3.6.1.2.1.88.1.4.1.0",
    };
    for (const auto& strStart : astrStarts) {
        auto it = std::find_if(astrWalk.begin(), astrWalk.end(), [&](const std::string& strOid) {
            return ParseOid(strOid) > ParseOid(strStart);
        });
        std::string strExpected = it == astrWalk.end() ? "" : *it;
        ToolRun stRun = Tool("snmpgetnext", strStart);
        std::string strGot = stRun.strOut.substr(0, stRun.strOut.find(' '));
        if (strExpected.empty()) {
            EXPECT_EQ(ParseOid(strGot) > ParseOid("1.3.6.1.2.1.88.1.4.4.1.6.255"), true)
                << strStart << ": " << stRun.strOut;
        } else {
            EXPECT_EQ(strGot, strExpected) << strStart << ": " << stRun.strOut;
        }
    }
}

// One refusal of each origin (the bridge's value checks, its column map, the
// daemon's codes and failed column); every value check, code and column is
// mib_map_test's.
TEST_F(MibBridgeTest, RefusalsCarryTheirErrorAndIndex) {
    ASSERT_EQ(Set(Trig(15, "ab", "bad") + " i 5").iExit, 0);
    struct Case {
        std::string strArgs;
        std::string strError;
        std::string strFailed;
    };
    const std::vector<Case> aCases = {
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
    };
    for (const auto& stCase : aCases) {
        ToolRun stRun = Set(stCase.strArgs);
        EXPECT_THAT(stRun.strOut, HasSubstr(stCase.strError)) << stCase.strArgs;
        EXPECT_THAT(stRun.strOut, HasSubstr("Failed object: ." + stCase.strFailed + "\n"))
            << stCase.strArgs << "\n"
            << stRun.strOut;
    }
    // The frequency under the sample minimum: the error points at the frequency.
    ASSERT_EQ(Set(kSampleMin + " i 60").iExit, 0);
    ToolRun stRun =
        Set(Trig(3, "ab", "slow") + " s c " + Trig(15, "ab", "slow") + " i 4 " +
            Trig(6, "ab", "slow") + " o 1.3.6.1.2.1.1.3.0 " + Trig(11, "ab", "slow") + " u 10");
    EXPECT_THAT(stRun.strOut, HasSubstr("inconsistentValue"));
    EXPECT_THAT(stRun.strOut, HasSubstr("Failed object: ." + Trig(11, "ab", "slow") + "\n"));
    ASSERT_EQ(Set(kSampleMin + " i 1").iExit, 0);
    EXPECT_THAT(Get(Trig(15, "ab", "slow")).strOut, HasSubstr("No Such Instance"));
}

// A PDU whose second row fails: the row it created first is destroyed again.
TEST_F(MibBridgeTest, AFailedPduTakesBackTheRowsItCreated) {
    std::string strEv = NamedIndex("ab", "dup");
    ASSERT_EQ(Set(kEvent + ".5" + strEv + " i 5").iExit, 0);
    ToolRun stRun = Set(Trig(15, "ab", "undo") + " i 5 " + kEvent + ".5" + strEv + " i 5");
    EXPECT_THAT(stRun.strOut, HasSubstr("inconsistentValue"));
    EXPECT_THAT(stRun.strOut, HasSubstr("Failed object: ." + kEvent + ".5" + strEv + "\n"));
    EXPECT_THAT(Get(Trig(15, "ab", "undo")).strOut, HasSubstr("No Such Instance"));
}

// A daemon that takes requests but does not answer: each PDU gets genErr
// within about one time-out, whatever its varbinds; a SET refused that way is
// never applied later; answers resume once the daemon runs.
TEST_F(MibBridgeTest, HungDaemonBoundsEveryPduAndAppliesNothingLate) {
    std::string strThree = kSampleMin + " " + Trig(15, "b", "x") + " " + Trig(3, "b", "y");
    const std::pair<std::string, std::string> astRuns[] = {
        {"snmpget -Cf", strThree},
        {"snmpgetnext -Cf", strThree},
        {"snmpbulkget -Cr5", strThree},
        {"snmpset", Trig(15, "b", "late") + " i 5"},
    };
    ASSERT_TRUE(m_stDaemon.Signal(SIGSTOP));
    for (const auto& stRunCase : astRuns) {
        int64_t llStart = mte_test::MonoMs();
        ToolRun stRun = stRunCase.first == "snmpset" ? Set(stRunCase.second)
                                                     : Tool(stRunCase.first, stRunCase.second);
        int64_t llTook = mte_test::MonoMs() - llStart;
        EXPECT_THAT(stRun.strOut, HasSubstr("genError"));
        EXPECT_LT(llTook, 1600) << stRunCase.first << ": " << stRun.strOut;
    }
    ASSERT_TRUE(m_stDaemon.Signal(SIGCONT));
    EXPECT_TRUE(mte_test::WaitUntil(
        [&] { return Get(kSampleMin).strOut.find("INTEGER") != std::string::npos; }, 5000));
    EXPECT_THAT(Get(Trig(15, "b", "late")).strOut, HasSubstr("No Such Instance"));
}

// A daemon that has exited: genErr at once, and its rows are back with it.
TEST_F(MibBridgeTest, ZDaemonAwayGivesGenErrAndComesBack) {
    ASSERT_EQ(Set(Trig(15, "b", "keep") + " i 5").iExit, 0);
    ASSERT_EQ(m_stDaemon.Stop(), 0);
    int64_t llStart = mte_test::MonoMs();
    EXPECT_THAT(Get(kSampleMin).strOut, HasSubstr("genError"));
    EXPECT_LT(mte_test::MonoMs() - llStart, 5000);
    ASSERT_TRUE(StartDaemon()) << m_stDaemon.Stderr();
    EXPECT_THAT(Get(Trig(15, "b", "keep")).strOut, HasSubstr("INTEGER: 2"));
}

}  // namespace
