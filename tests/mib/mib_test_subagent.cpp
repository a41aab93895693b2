// A minimal AgentX subagent for the bridge's end-to-end tests: connects to the
// master socket given as its argument, registers the Event MIB handler and
// serves until SIGTERM. eventmibd's socket comes from RUNTIME_DIRECTORY.
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <csignal>
#include <cstdio>

#include "mib_bridge.h"

namespace {
volatile sig_atomic_t g_iStop = 0;
void OnSignal(int) {
    g_iStop = 1;
}
}  // namespace

int main(int iArgc, char** ppszArgv) {
    if (iArgc != 3) {
        fprintf(stderr, "usage: %s MASTER_SOCKET PERSIST_DIR\n", ppszArgv[0]);
        return 2;
    }
    signal(SIGTERM, OnSignal);
    signal(SIGINT, OnSignal);
    signal(SIGPIPE, SIG_IGN);
    snmp_enable_stderrlog();
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, ppszArgv[1]);
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, ppszArgv[2]);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
    init_agent("mib-test-subagent");
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
    if (EMA_MIB_Register() != 0) {
        fprintf(stderr, "registration refused\n");
        return 1;
    }
    init_snmp("mib-test-subagent");
    while (!g_iStop) {
        agent_check_and_process(1);
    }
    EMA_MIB_Unregister();
    snmp_shutdown("mib-test-subagent");
    return 0;
}
