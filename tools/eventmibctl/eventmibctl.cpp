// eventmibctl: command-line client of eventmibd's management socket, for
// operators, tests and demos. One request per command (walks send one
// get-next per row), every reply checked and matched by its sequence number,
// every socket operation bounded by a time-out. docs/eventmibctl.md is the
// manual.
#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "ctl_tables.h"
#include "mte_msg.h"
#include "mte_msg.h"
#include "mte_trapflag.h"
#include "plat_paths.h"
#include "plat_unixsock.h"
#include "plat_trapswitch.h"

namespace {

constexpr int EXIT_FAILED = 1;  // a request failed or was refused
constexpr int EXIT_USAGE = 2;   // the command line or a scenario line is wrong

using Args = std::vector<std::string>;

class CtlClient {
  public:
    CtlClient(std::string strPath, int iTimeoutSec) : m_strPath(std::move(strPath)) {
        m_iTimeoutSec = iTimeoutSec;
    }
    ~CtlClient() {
        if (m_iFd >= 0) {
            close(m_iFd);
        }
    }
    CtlClient(const CtlClient&) = delete;
    CtlClient& operator=(const CtlClient&) = delete;

    // Sends one request and waits for its reply; false (with a message on
    // stderr) when the daemon cannot be reached or answers nonsense.
    bool Exchange(uint16_t usType, uint16_t usOp, uint32_t uiMask, uint16_t usItem,
                  const void* pValue, MTE_MSG_REPLY_S* pstReply) {
        if (!Connect()) {
            return false;
        }
        uint8_t aucRequest[MTE_MSG_MAX_LEN];
        uint32_t uiSeq = ++m_uiSequence;
        uint32_t uiLen = MTE_MSG_BuildRequest(uiSeq, usType, usOp, uiMask, usItem, pValue,
                                              aucRequest, sizeof(aucRequest));
        if (send(m_iFd, aucRequest, uiLen, MSG_NOSIGNAL) != static_cast<ssize_t>(uiLen)) {
            return Fail("send");
        }
        ssize_t lLen = recv(m_iFd, m_aucReply, sizeof(m_aucReply), 0);
        if (lLen <= 0) {
            if (lLen == 0) {
                errno = ECONNRESET;
            }
            return Fail("receive");
        }
        uint32_t uiCheck = MTE_MSG_ParseReply(m_aucReply, static_cast<uint32_t>(lLen), pstReply);
        if (uiCheck != MTE_OK) {
            fprintf(stderr, "eventmibctl: malformed reply: %s\n", MTE_MSG_ResultName(uiCheck));
            return false;
        }
        if (pstReply->uiSequence != uiSeq) {
            fprintf(stderr, "eventmibctl: reply %u does not match request %u\n",
                    pstReply->uiSequence, uiSeq);
            return false;
        }
        return true;
    }

  private:
    bool Connect() {
        if (m_iFd >= 0) {
            return true;
        }
        sockaddr_un stAddr;
        if (!PLAT_UnixAddress(m_strPath, &stAddr)) {
            fprintf(stderr, "eventmibctl: socket path empty or too long: %s\n", m_strPath.c_str());
            return false;
        }
        m_iFd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (m_iFd < 0) {
            return Fail("create a socket for");
        }
        // The time-outs bound connect (a full backlog), send and receive.
        timeval stTimeout = {m_iTimeoutSec, 0};
        setsockopt(m_iFd, SOL_SOCKET, SO_RCVTIMEO, &stTimeout, sizeof(stTimeout));
        setsockopt(m_iFd, SOL_SOCKET, SO_SNDTIMEO, &stTimeout, sizeof(stTimeout));
        if (connect(m_iFd, reinterpret_cast<sockaddr*>(&stAddr), sizeof(stAddr)) != 0) {
            return Fail("connect to");
        }
        return true;
    }

    bool Fail(const char* pszWhat) {
        int iErr = errno;
        fprintf(stderr, "eventmibctl: cannot %s eventmibd at %s: %s\n", pszWhat, m_strPath.c_str(),
                iErr == EAGAIN ? "timed out" : strerror(iErr));
        if (m_iFd >= 0) {
            close(m_iFd);
            m_iFd = -1;
        }
        return false;
    }

    std::string m_strPath;
    int m_iTimeoutSec;
    int m_iFd = -1;
    uint32_t m_uiSequence = 0;
    uint8_t m_aucReply[MTE_MSG_MAX_LEN];
};

int Usage(const std::string& strWhy) {
    if (!strWhy.empty()) {
        fprintf(stderr, "eventmibctl: %s\n", strWhy.c_str());
    }
    fprintf(stderr,
            "usage: eventmibctl [-s SOCKET] [-t SECONDS] COMMAND...\n"
            "       eventmibctl [-s SOCKET] [-t SECONDS] -f FILE   (one command per line)\n"
            "commands:\n"
            "  get TABLE owner=O name=N [index=I]\n"
            "  get-next TABLE [owner=O name=N [index=I]]\n"
            "  walk TABLE\n"
            "  set TABLE owner=O name=N [index=I] COLUMN=VALUE... [force=true]\n"
            "  get scalars\n"
            "  set scalars sample-minimum=N | instance-maximum=N\n"
            "  debug get | debug enable BITS | debug disable BITS\n"
            "  trap-switch on | off | get\n"
            "tables: trigger delta existence boolean threshold objects event notification set\n");
    return EXIT_USAGE;
}

// Prints a refusal: the code by name and, for a set, the column blamed.
int Refused(const char* pszWhat, const CTL_TABLE_S* pstTable, const MTE_MSG_REPLY_S& stReply) {
    fprintf(stderr, "eventmibctl: %s: %s (0x%08x)", pszWhat, MTE_MSG_ResultName(stReply.uiResult),
            stReply.uiResult);
    if (pstTable != nullptr && stReply.uiFailedColumn != 0 &&
        stReply.uiFailedColumn != 0xFFFFFFFF) {
        fprintf(stderr, ", failed column %u (%s)", stReply.uiFailedColumn,
                CTL_ColumnName(*pstTable, stReply.uiFailedColumn).c_str());
    }
    fprintf(stderr, "\n");
    return EXIT_FAILED;
}

void PrintRow(const CTL_TABLE_S& stTable, const uint8_t* pucRow) {
    size_t uiWidth = 0;
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        uiWidth = std::max(uiWidth, strlen(stTable.pstColumns[i].pszName));
    }
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        const CTL_COLUMN_S& c = stTable.pstColumns[i];
        printf("%-*s  %s\n", static_cast<int>(uiWidth), c.pszName,
               CTL_FormatValue(c, pucRow).c_str());
    }
}

void PrintRows(const CTL_TABLE_S& stTable, const std::vector<std::vector<uint8_t>>& vecRows) {
    std::vector<std::vector<std::string>> vecCells;
    std::vector<size_t> vecWidths(stTable.uiColumnCount);
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        vecWidths[i] = strlen(stTable.pstColumns[i].pszName);
    }
    for (const auto& vecRow : vecRows) {
        std::vector<std::string> vecLine;
        for (size_t i = 0; i < stTable.uiColumnCount; i++) {
            std::string strCell = CTL_FormatValue(stTable.pstColumns[i], vecRow.data());
            if (strCell.empty()) {
                strCell = "-";
            }
            vecWidths[i] = std::max(vecWidths[i], strCell.size());
            vecLine.push_back(strCell);
        }
        vecCells.push_back(vecLine);
    }
    auto printLine = [&](auto cell) {
        std::string strLine;
        for (size_t i = 0; i < stTable.uiColumnCount; i++) {
            std::string strCell = cell(i);
            strLine += strCell;
            if (i + 1 < stTable.uiColumnCount) {
                strLine += std::string(vecWidths[i] - strCell.size() + 2, ' ');
            }
        }
        printf("%s\n", strLine.c_str());
    };
    printLine([&](size_t i) { return std::string(stTable.pstColumns[i].pszName); });
    for (const auto& vecLine : vecCells) {
        printLine([&](size_t i) { return vecLine[i]; });
    }
}

// Fills a row record from owner=, name=, index= and the column assignments.
bool BuildRow(const CTL_TABLE_S& stTable, const Args& args, size_t uiFirst, bool bIndexOnly,
              std::vector<uint8_t>* pvecRow, uint32_t* puiMask) {
    pvecRow->assign(stTable.uiRowSize, 0);
    *puiMask = 0;
    for (size_t i = uiFirst; i < args.size(); i++) {
        std::string strError;
        const std::string& strArg = args[i];
        if (bIndexOnly && strArg.rfind("owner=", 0) != 0 && strArg.rfind("name=", 0) != 0 &&
            strArg.rfind("index=", 0) != 0) {
            fprintf(stderr, "eventmibctl: only owner=, name= and index= are allowed here: %s\n",
                    strArg.c_str());
            return false;
        }
        if (!CTL_ApplyAssignment(stTable, strArg, pvecRow->data(), puiMask, &strError)) {
            fprintf(stderr, "eventmibctl: %s\n", strError.c_str());
            return false;
        }
    }
    return true;
}

std::string RowLabel(const CTL_TABLE_S& stTable, const std::vector<uint8_t>& vecRow) {
    std::string strLabel = stTable.pszName;
    for (size_t i = 0; i < stTable.uiColumnCount; i++) {
        const CTL_COLUMN_S& c = stTable.pstColumns[i];
        if (c.eKind == CTL_KIND_E::OWNER) {
            strLabel += " " + CTL_FormatValue(c, vecRow.data());
        } else if (c.eKind == CTL_KIND_E::NAME || c.eKind == CTL_KIND_E::INDEX) {
            strLabel += "/" + CTL_FormatValue(c, vecRow.data());
        }
    }
    return strLabel;
}

int CmdTable(CtlClient& client, const std::string& strCmd, const CTL_TABLE_S& stTable,
             const Args& args) {
    std::vector<uint8_t> vecRow;
    uint32_t uiMask;
    MTE_MSG_REPLY_S stReply;
    if (strCmd == "walk") {
        if (args.size() > 2) {
            return Usage("walk takes only a table");
        }
        std::vector<std::vector<uint8_t>> vecRows;
        std::vector<uint8_t> vecKey(MTE_MSG_ItemSize(stTable.usKeyItem), 0);
        for (;;) {
            if (!client.Exchange(stTable.usMsgType, MTE_MSG_OP_GET_NEXT, 0, stTable.usKeyItem,
                                 vecKey.data(), &stReply)) {
                return EXIT_FAILED;
            }
            if (stReply.uiResult == MTE_ERR_NO_SUCH_ROW ||
                stReply.uiResult == MTE_ERR_TABLE_EMPTY) {
                break;
            }
            if (stReply.uiResult != MTE_OK || stReply.usItem != stTable.usRowItem) {
                return Refused("walk", &stTable, stReply);
            }
            vecRows.emplace_back(stReply.pucData, stReply.pucData + stReply.uiDataSize);
            vecRows.back().resize(stTable.uiRowSize, 0);
            CTL_KeyFromIndex(stTable, vecRows.back().data(), vecKey.data());
        }
        if (vecRows.empty()) {
            printf("(no rows in %s)\n", stTable.pszName);
        } else {
            PrintRows(stTable, vecRows);
        }
        return 0;
    }
    if (strCmd == "get" || strCmd == "get-next") {
        if (!BuildRow(stTable, args, 2, true, &vecRow, &uiMask)) {
            return EXIT_USAGE;
        }
        bool bNext = strCmd == "get-next";
        std::vector<uint8_t> vecKey(MTE_MSG_ItemSize(stTable.usKeyItem), 0);
        CTL_KeyFromIndex(stTable, vecRow.data(), vecKey.data());
        if (!client.Exchange(stTable.usMsgType, bNext ? MTE_MSG_OP_GET_NEXT : MTE_MSG_OP_GET, 0,
                             bNext ? stTable.usKeyItem : stTable.usRowItem,
                             bNext ? vecKey.data() : vecRow.data(), &stReply)) {
            return EXIT_FAILED;
        }
        if (stReply.uiResult != MTE_OK || stReply.usItem != stTable.usRowItem) {
            return Refused((strCmd + " " + RowLabel(stTable, vecRow)).c_str(), nullptr, stReply);
        }
        std::vector<uint8_t> vecOut(stReply.pucData, stReply.pucData + stReply.uiDataSize);
        vecOut.resize(stTable.uiRowSize, 0);
        PrintRow(stTable, vecOut.data());
        return 0;
    }
    if (strCmd == "set") {
        if (!BuildRow(stTable, args, 2, false, &vecRow, &uiMask)) {
            return EXIT_USAGE;
        }
        if (!client.Exchange(stTable.usMsgType, MTE_MSG_OP_SET, uiMask, stTable.usRowItem,
                             vecRow.data(), &stReply)) {
            return EXIT_FAILED;
        }
        if (stReply.uiResult != MTE_OK) {
            return Refused(("set " + RowLabel(stTable, vecRow)).c_str(), &stTable, stReply);
        }
        return 0;
    }
    return Usage("unknown command '" + strCmd + "'");
}

int CmdScalars(CtlClient& client, const std::string& strCmd, const Args& args) {
    MTE_MSG_REPLY_S stReply;
    if (strCmd == "get" || strCmd == "walk") {
        if (!client.Exchange(MTE_MSG_TYPE_SCALARS, MTE_MSG_OP_GET, 0, 0, nullptr, &stReply)) {
            return EXIT_FAILED;
        }
        if (stReply.uiResult != MTE_OK || stReply.usItem != MTE_ITEM_SCALARS) {
            return Refused("get scalars", nullptr, stReply);
        }
        MTE_SCALAR_S stScalars;
        memcpy(&stScalars, stReply.pucData, sizeof(stScalars));
        printf("sample-minimum            %u\n", stScalars.uiSampleMinimum);
        printf("instance-maximum          %u\n", stScalars.uiSampleInstanceMaximum);
        printf("instances                 %u\n", stScalars.uiSampleInstances);
        printf("instances-high            %u\n", stScalars.uiSampleInstancesHigh);
        printf("instance-lacks            %u\n", stScalars.uiSampleInstanceLacks);
        printf("trigger-failures          %u\n", stScalars.uiTriggerFailures);
        printf("event-failures            %u\n", stScalars.uiEventFailures);
        // The engine counters are an extension: a daemon without them
        // refuses the type, and then there is nothing more to print.
        if (client.Exchange(MTE_MSG_TYPE_ENGINE_COUNTERS, MTE_MSG_OP_GET, 0, 0, nullptr,
                            &stReply) &&
            stReply.uiResult == MTE_OK && stReply.usItem == MTE_ITEM_ENGINE_COUNTERS) {
            MTE_ENGINE_COUNTERS_S stCounters;
            memcpy(&stCounters, stReply.pucData, sizeof(stCounters));
            printf("samples-missed            %u\n", stCounters.uiSamplesMissed);
            printf("notification-drops        %u\n", stCounters.uiNotificationDrops);
        }
        return 0;
    }
    if (strCmd != "set" || args.size() < 3) {
        return Usage("scalars: use 'get scalars' or 'set scalars NAME=VALUE'");
    }
    for (size_t i = 2; i < args.size(); i++) {
        size_t uiEq = args[i].find('=');
        std::string strName = args[i].substr(0, uiEq);
        int64_t llValue;
        if (uiEq == std::string::npos ||
            !CTL_ParseNumber(args[i].substr(uiEq + 1), 0, UINT32_MAX, &llValue)) {
            return Usage("bad scalar assignment '" + args[i] + "'");
        }
        uint32_t uiValue = static_cast<uint32_t>(llValue);
        uint16_t usType, usItem;
        if (strName == "sample-minimum") {
            usType = MTE_MSG_TYPE_SAMPLE_MIN;
            usItem = MTE_ITEM_SAMPLE_MIN;
        } else if (strName == "instance-maximum") {
            usType = MTE_MSG_TYPE_INSTANCE_MAX;
            usItem = MTE_ITEM_INSTANCE_MAX;
        } else {
            return Usage("unknown scalar '" + strName + "' (sample-minimum or instance-maximum)");
        }
        if (!client.Exchange(usType, MTE_MSG_OP_SET, 0, usItem, &uiValue, &stReply)) {
            return EXIT_FAILED;
        }
        if (stReply.uiResult != MTE_OK) {
            return Refused(("set scalars " + strName).c_str(), nullptr, stReply);
        }
    }
    return 0;
}

bool ParseDebugBits(const std::string& strText, uint32_t* puiBits) {
    struct {
        const char* pszName;
        uint32_t uiBit;
    } const astNames[] = {{"err", 0x2}, {"warning", 0x4}, {"info", 0x8}, {"all", 0xffffffff}};
    *puiBits = 0;
    size_t uiPos = 0;
    while (uiPos <= strText.size()) {
        size_t uiComma = strText.find(',', uiPos);
        std::string strWord = strText.substr(
            uiPos, uiComma == std::string::npos ? std::string::npos : uiComma - uiPos);
        bool bFound = false;
        for (const auto& stName : astNames) {
            if (strWord == stName.pszName) {
                *puiBits |= stName.uiBit;
                bFound = true;
            }
        }
        int64_t llValue;
        if (!bFound && CTL_ParseNumber(strWord, 0, UINT32_MAX, &llValue)) {
            *puiBits |= static_cast<uint32_t>(llValue);
            bFound = true;
        }
        if (!bFound) {
            return false;
        }
        if (uiComma == std::string::npos) {
            break;
        }
        uiPos = uiComma + 1;
    }
    return true;
}

int CmdDebug(CtlClient& client, const Args& args) {
    MTE_MSG_REPLY_S stReply;
    if (args.size() == 2 && args[1] == "get") {
        if (!client.Exchange(MTE_MSG_TYPE_DBG_GET, MTE_MSG_OP_GET, 0, 0, nullptr, &stReply)) {
            return EXIT_FAILED;
        }
        if (stReply.uiResult != MTE_OK || stReply.usItem != MTE_ITEM_DBG_SWITCH) {
            return Refused("debug get", nullptr, stReply);
        }
        uint32_t uiSwitch;
        memcpy(&uiSwitch, stReply.pucData, sizeof(uiSwitch));
        printf("0x%08x%s%s%s\n", uiSwitch, (uiSwitch & 0x2) ? " err" : "",
               (uiSwitch & 0x4) ? " warning" : "", (uiSwitch & 0x8) ? " info" : "");
        return 0;
    }
    uint32_t uiBits;
    if (args.size() != 3 || (args[1] != "enable" && args[1] != "disable") ||
        !ParseDebugBits(args[2], &uiBits)) {
        return Usage(
            "debug: use 'debug get', 'debug enable BITS' or 'debug disable BITS' "
            "(BITS: err,warning,info,all or a number)");
    }
    uint16_t usType = args[1] == "enable" ? MTE_MSG_TYPE_DBG_ENABLE : MTE_MSG_TYPE_DBG_DISABLE;
    if (!client.Exchange(usType, MTE_MSG_OP_SET, 0, MTE_ITEM_DBG_SWITCH, &uiBits, &stReply)) {
        return EXIT_FAILED;
    }
    return stReply.uiResult == MTE_OK ? 0 : Refused(("debug " + args[1]).c_str(), nullptr, stReply);
}

int CmdTrapSwitch(const Args& args) {
    if (args.size() == 2 && (args[1] == "on" || args[1] == "off")) {
        uint64_t ulState = args[1] == "on" ? SNMP_TRAPSWITCH_ON : SNMP_TRAPSWITCH_OFF;
        if (SNMP_TrapSwitch_Write(MTE_TRAPSWITCH_MODULE, ulState) != 0) {
            fprintf(stderr, "eventmibctl: cannot write the trap switch %s: %s\n",
                    PLAT_TrapSwitchPath().c_str(), strerror(errno));
            return EXIT_FAILED;
        }
        return 0;
    }
    if (args.size() == 2 && args[1] == "get") {
        SNMP_TRAPSWITCH_S stRecord = {};
        stRecord.ulState = SNMP_TRAPSWITCH_ON;
        if (SNMP_TrapSwitch_Get(MTE_TRAPSWITCH_MODULE, &stRecord) != 0) {
            fprintf(stderr, "eventmibctl: cannot read the trap switch %s\n",
                    PLAT_TrapSwitchPath().c_str());
            return EXIT_FAILED;
        }
        printf("%s\n", stRecord.ulState == SNMP_TRAPSWITCH_OFF ? "off" : "on");
        return 0;
    }
    return Usage("trap-switch: use 'trap-switch on', 'off' or 'get'");
}

int RunCommand(CtlClient& client, const Args& args) {
    if (args.empty()) {
        return Usage("no command");
    }
    const std::string& strCmd = args[0];
    if (strCmd == "debug") {
        return CmdDebug(client, args);
    }
    if (strCmd == "trap-switch") {
        return CmdTrapSwitch(args);
    }
    if (strCmd == "help") {
        Usage("");
        return 0;
    }
    if (args.size() < 2) {
        return Usage("'" + strCmd + "' needs a table");
    }
    if (args[1] == "scalars") {
        return CmdScalars(client, strCmd, args);
    }
    const CTL_TABLE_S* pstTable = CTL_FindTable(args[1]);
    if (pstTable == nullptr) {
        return Usage("unknown table '" + args[1] + "'");
    }
    return CmdTable(client, strCmd, *pstTable, args);
}

// Splits a scenario line into words: blanks separate, "..." or '...' quote,
// '#' outside quotes starts a comment. False on an unterminated quote.
bool SplitLine(const std::string& strLine, Args* pArgs) {
    pArgs->clear();
    std::string strWord;
    bool bInWord = false;
    char cQuote = 0;
    for (char c : strLine) {
        if (cQuote != 0) {
            if (c == cQuote) {
                cQuote = 0;
            } else {
                strWord += c;
            }
        } else if (c == '"' || c == '\'') {
            cQuote = c;
            bInWord = true;
        } else if (c == '#') {
            break;
        } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            if (bInWord) {
                pArgs->push_back(strWord);
                strWord.clear();
                bInWord = false;
            }
        } else {
            strWord += c;
            bInWord = true;
        }
    }
    if (cQuote != 0) {
        return false;
    }
    if (bInWord) {
        pArgs->push_back(strWord);
    }
    return true;
}

// Runs every line of the file; each failure is reported with its line and
// the run goes on, so one call shows every problem of a scenario.
int RunFile(CtlClient& client, const std::string& strFile) {
    std::ifstream stFile;
    std::istream* pIn = &std::cin;
    if (strFile != "-") {
        stFile.open(strFile);
        if (!stFile) {
            fprintf(stderr, "eventmibctl: cannot open %s: %s\n", strFile.c_str(), strerror(errno));
            return EXIT_FAILED;
        }
        pIn = &stFile;
    }
    int iResult = 0;
    std::string strLine;
    for (unsigned uiLine = 1; std::getline(*pIn, strLine); uiLine++) {
        Args args;
        if (!SplitLine(strLine, &args)) {
            fprintf(stderr, "eventmibctl: %s:%u: unterminated quote\n", strFile.c_str(), uiLine);
            iResult = EXIT_FAILED;
            continue;
        }
        if (args.empty()) {
            continue;
        }
        fflush(stdout);
        int iRet = RunCommand(client, args);
        if (iRet != 0) {
            fprintf(stderr, "eventmibctl: %s:%u: failed: %s\n", strFile.c_str(), uiLine,
                    strLine.c_str());
            iResult = EXIT_FAILED;
        }
    }
    return iResult;
}

}  // namespace

int main(int argc, char** argv) {
    std::string strSocket;
    std::string strFile;
    int iTimeout = 5;
    int iOpt;
    while ((iOpt = getopt(argc, argv, "+s:t:f:h")) != -1) {
        int64_t llValue;
        switch (iOpt) {
            case 's':
                strSocket = optarg;
                break;
            case 't':
                if (!CTL_ParseNumber(optarg, 1, 3600, &llValue)) {
                    return Usage("bad time-out '" + std::string(optarg) + "'");
                }
                iTimeout = static_cast<int>(llValue);
                break;
            case 'f':
                strFile = optarg;
                break;
            case 'h':
                Usage("");
                return 0;
            default:
                return Usage("");
        }
    }
    if (strSocket.empty()) {
        strSocket = PLAT_MgmtSocketPath();
    }
    CtlClient client(strSocket, iTimeout);
    if (!strFile.empty()) {
        if (optind != argc) {
            return Usage("-f takes no command");
        }
        return RunFile(client, strFile);
    }
    return RunCommand(client, Args(argv + optind, argv + argc));
}
