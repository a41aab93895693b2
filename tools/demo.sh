#!/usr/bin/env bash
# The project's main command (see README.md): installs what the build needs,
# builds the tree, and runs the whole stack on loopback in a temporary
# directory: a private snmpd (its own Event MIB modules not initialised),
# mte-testagent (a table whose values the demo moves), eventmib-agentx (port
# status and notification relay), eventmibd, and snmptrapd as the receiver.
# It configures a threshold trigger and an event (a notification with an
# objects list, and a set action) with eventmibctl, moves the watched value
# across the thresholds, shows the notifications as snmptrapd logged them and
# the value the set action wrote, restarts the daemon to show that the
# configuration comes back, and stops everything in order. Every wait is
# bounded; whatever was started is stopped on exit.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

step() { printf '\n==== %s\n' "$*"; }
say() { printf '   %s\n' "$*"; }
die() {
    printf '\nDEMO FAILED: %s\n' "$*" >&2
    exit 1
}

step "packages"
bash tools/install-deps.sh

step "build"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j 2 --target eventmibd eventmibctl eventmib-agentx mte-testagent
BUILD=$PWD/build
DAEMON=$BUILD/eventmibd
CTL_BIN=$BUILD/tools/eventmibctl/eventmibctl
BRIDGE=$BUILD/platform/agentx/eventmib-agentx
TESTAGENT=$BUILD/tools/testagent/mte-testagent
for tool in /usr/sbin/snmpd /usr/sbin/snmptrapd /usr/bin/snmpget; do
    [[ -x $tool ]] || die "$tool is missing (packages snmpd, snmptrapd, snmp)"
done

D=$(mktemp -d /tmp/eventmibd-demo.XXXXXX)
SNMPD_PID= TRAPD_PID= TESTAGENT_PID= BRIDGE_PID= DAEMON_PID=

# stop_pid <pid> <signal> <seconds>: signal, wait, then SIGKILL; the exit
# status in STOP_STATUS.
stop_pid() {
    local pid=$1 sig=$2 deadline=$((SECONDS + $3))
    STOP_STATUS=
    [[ -n $pid ]] && kill -0 "$pid" 2>/dev/null || return 0
    kill -s "$sig" "$pid" 2>/dev/null || true
    while kill -0 "$pid" 2>/dev/null && ((SECONDS < deadline)); do sleep 0.05; done
    if kill -0 "$pid" 2>/dev/null; then
        kill -KILL "$pid" 2>/dev/null || true
    fi
    STOP_STATUS=0
    wait "$pid" 2>/dev/null || STOP_STATUS=$?
}

cleanup() {
    stop_pid "$DAEMON_PID" SIGRTMIN+1 5
    stop_pid "$BRIDGE_PID" TERM 3
    stop_pid "$TESTAGENT_PID" TERM 3
    stop_pid "$TRAPD_PID" TERM 3
    stop_pid "$SNMPD_PID" TERM 3
    if [[ -n ${KEEP_DEMO_DIR:-} ]]; then
        echo "(files kept in $D)"
    else
        rm -rf "$D"
    fi
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# wait_for <seconds> <command...>: polls the command every 0.1 s.
wait_for() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < deadline)) || return 1
        sleep 0.1
    done
}

# A UDP port on 127.0.0.1 that no socket holds now.
free_udp_port() {
    local port hex
    for _ in $(seq 50); do
        port=$((20000 + RANDOM % 40000))
        hex=$(printf ':%04X ' "$port")
        if ! grep -qi "$hex" /proc/net/udp /proc/net/udp6 2>/dev/null; then
            echo "$port"
            return 0
        fi
    done
    return 1
}

mkdir -p "$D"/{etc,persist,run,rt,state,client,client-persist,agentx-etc,agentx-persist}
PORT=$(free_udp_port) || die "no free UDP port"
TRAPPORT=$(free_udp_port) || die "no free UDP port"
while [[ $TRAPPORT == "$PORT" ]]; do TRAPPORT=$(free_udp_port); done
AGENT=127.0.0.1:$PORT
TABLE=1.3.6.1.4.1.99999.1.1.1 # mte-testagent's entry: .1 Integer32 (rw), .2 Gauge32, .3 string

# The agent: SNMPv3 user "demo" may read and write every context (the
# daemon samples through it); notifications go to snmptrapd.
cat >"$D/etc/snmpd.conf" <<EOF
agentAddress udp:$AGENT
master agentx
agentXSocket $D/run/agentx.sock
agentXPerms 0660 0770
rocommunity public 127.0.0.1
createUser demo SHA "demoauthpass" AES "demoprivpass"
group demogroup usm demo
view all included .1
access demogroup "" usm priv prefix all all none
trap2sink 127.0.0.1:$TRAPPORT public
dontLogTCPWrappersConnects yes
EOF
echo "mibs :" >"$D/etc/snmp.conf"
echo "disableAuthorization yes" >"$D/etc/snmptrapd.conf"
# The daemon's SNMP client: its own files on SNMPCONFPATH.
cat >"$D/client/snmp.conf" <<EOF
mibs :
defVersion 3
defSecurityName demo
defSecurityLevel authPriv
defAuthType SHA
defAuthPassphrase demoauthpass
defPrivType AES
defPrivPassphrase demoprivpass
EOF
printf 'agentAddress udp:%s\nagentTimeout 1000\nagentRetries 1\n' "$AGENT" >"$D/client/eventmibd.conf"

AGENT_ENV=(SNMPCONFPATH="$D/etc:$D/persist" SNMP_PERSISTENT_DIR="$D/persist" MIBS=)
SUB_ENV=(RUNTIME_DIRECTORY="$D/rt" SNMPCONFPATH="$D/agentx-etc" SNMP_PERSISTENT_DIR="$D/agentx-persist" MIBS=)
DAEMON_ENV=(STATE_DIRECTORY="$D/state" RUNTIME_DIRECTORY="$D/rt" SNMPCONFPATH="$D/client"
            SNMP_PERSISTENT_DIR="$D/client-persist" MIBS=)
NO_AGENT_EVENT_MIB=-mteScalars,mteTrigger,mteTriggerTable,mteTriggerDeltaTable,mteTriggerExistenceTable,mteTriggerBooleanTable,mteTriggerThresholdTable,mteTriggerConf,mteEvent,mteEventTable,mteEventSetTable,mteEventNotificationTable,mteEventConf,mteObjects,mteObjectsTable,mteObjectsConf

ctl() { env STATE_DIRECTORY="$D/state" RUNTIME_DIRECTORY="$D/rt" "$CTL_BIN" -t 5 "$@"; }
tagent() { "$TESTAGENT" -C "$D/testagent.sock" "$@"; }
v3get() {
    env SNMPCONFPATH="$D/etc" SNMP_PERSISTENT_DIR="$D/tools-persist" MIBS= \
        snmpget -v3 -u demo -l authPriv -a SHA -A demoauthpass -x AES -X demoprivpass \
        -On -t 2 -r 1 "$@"
}
snmpd_answers() {
    env SNMPCONFPATH="$D/etc" SNMP_PERSISTENT_DIR="$D/tools-persist" MIBS= \
        snmpget -v2c -c public -t 0.3 -r 0 "$AGENT" 1.3.6.1.2.1.1.3.0
}
show_file() { # <file> <indent label>
    if [[ -s $1 ]]; then sed 's/^/   | /' "$1"; else say "(empty)"; fi
}

start_daemon() {
    env "${DAEMON_ENV[@]}" "$DAEMON" 2>>"$D/eventmibd.log" &
    DAEMON_PID=$!
    wait_for 10 ctl get scalars || {
        show_file "$D/eventmibd.log"
        die "eventmibd does not answer on $D/rt/eventmibd.sock"
    }
}

# ---------------------------------------------------------------- traps
TRAPS_SHOWN=0
# Prints the notifications snmptrapd logged since the last call, one block
# each, with the Event MIB's names for the OIDs.
show_new_traps() {
    local total
    total=$(grep -c 'OID: ' "$D/traps.log" || true)
    awk -v skip="$TRAPS_SHOWN" '
        BEGIN {
            name[".1.3.6.1.2.1.88.2.0.1"] = "mteTriggerFired"
            name[".1.3.6.1.2.1.88.2.0.2"] = "mteTriggerRising"
            name[".1.3.6.1.2.1.88.2.0.3"] = "mteTriggerFalling"
            name[".1.3.6.1.2.1.88.2.0.4"] = "mteTriggerFailure"
            name[".1.3.6.1.2.1.88.2.0.5"] = "mteEventSetFailure"
            name[".1.3.6.1.2.1.88.2.1.1.0"] = "mteHotTrigger"
            name[".1.3.6.1.2.1.88.2.1.2.0"] = "mteHotTargetName"
            name[".1.3.6.1.2.1.88.2.1.3.0"] = "mteHotContextName"
            name[".1.3.6.1.2.1.88.2.1.4.0"] = "mteHotOID"
            name[".1.3.6.1.2.1.88.2.1.5.0"] = "mteHotValue"
            name[".1.3.6.1.2.1.88.2.1.6.0"] = "mteFailedReason"
            name[".1.3.6.1.4.1.99999.0.1"] = "demoAlarm (configured notification)"
        }
        /OID: / {
            if (++seen <= skip) next
            n = split($0, field, "\t")
            for (i = 1; i <= n; i++) {
                if (field[i] !~ /^\./ || index(field[i], " = ") == 0) continue
                oid = substr(field[i], 1, index(field[i], " = ") - 1)
                val = substr(field[i], index(field[i], " = ") + 3)
                if (oid == ".1.3.6.1.2.1.1.3.0") continue
                if (oid == ".1.3.6.1.6.3.1.1.4.1.0") {
                    t = substr(val, 6)
                    printf "   notification %s\n", (t in name) ? name[t] : t
                    continue
                }
                printf "       %-24s %s\n", (oid in name) ? name[oid] : oid, val
            }
        }' "$D/traps.log"
    TRAPS_SHOWN=$total
}
trap_count() { grep -c "$1" "$D/traps.log" || true; }
# wait_trap <seconds> <pattern> <count>: until the log holds count lines.
wait_trap() {
    local deadline=$((SECONDS + $1))
    while (($(trap_count "$2") < $3)); do
        ((SECONDS < deadline)) || return 1
        sleep 0.1
    done
}

# ---------------------------------------------------------------- start
step "1. start the stack on 127.0.0.1 (files under $D)"
env "${AGENT_ENV[@]}" /usr/sbin/snmpd -f -I "$NO_AGENT_EVENT_MIB" -Lf "$D/snmpd.log" \
    -p "$D/snmpd.pid" >"$D/snmpd.out" 2>&1 &
SNMPD_PID=$!
wait_for 10 snmpd_answers || die "snmpd does not answer on $AGENT (see $D/snmpd.log)"
say "snmpd           pid $SNMPD_PID, udp:$AGENT, AgentX master $D/run/agentx.sock"

env "${AGENT_ENV[@]}" /usr/sbin/snmptrapd -f -C -c "$D/etc/snmptrapd.conf" -On -Lf "$D/traps.log" \
    -p "$D/snmptrapd.pid" "udp:127.0.0.1:$TRAPPORT" >"$D/snmptrapd.out" 2>&1 &
TRAPD_PID=$!
wait_for 5 test -s "$D/traps.log" || die "snmptrapd did not start"
say "snmptrapd       pid $TRAPD_PID, udp:127.0.0.1:$TRAPPORT (the agent's trap2sink)"

env "${SUB_ENV[@]}" "$TESTAGENT" -c "$D/testagent.sock" -x "$D/run/agentx.sock" -n alarms \
    >"$D/testagent.log" 2>&1 &
TESTAGENT_PID=$!
wait_for 10 bash -c "\"$TESTAGENT\" -C \"$D/testagent.sock\" ping | grep -q 'ok connected'" ||
    die "mte-testagent did not connect"
say "mte-testagent   pid $TESTAGENT_PID, serves $TABLE in the default context and in \"alarms\""

env "${SUB_ENV[@]}" "$BRIDGE" -f -v -x "$D/run/agentx.sock" >"$D/agentx.log" 2>&1 &
BRIDGE_PID=$!
wait_for 10 test -S "$D/rt/eventmib-agentx.sock" || die "eventmib-agentx did not start"
say "eventmib-agentx pid $BRIDGE_PID, $D/rt/eventmib-agentx.sock"

start_daemon
say "eventmibd       pid $DAEMON_PID, $D/rt/eventmibd.sock"

# ---------------------------------------------------------------- configure
step "2. the watched rows and the configuration (eventmibctl -f)"
tagent add - 1 20 0 port-1 >/dev/null
tagent add alarms 1 0 0 alarm-flag-of-port-1 >/dev/null
say "mte-testagent rows: $TABLE.1.1 = 20 (the watched value, default context)"
say "                    $TABLE.1.1 = 0 in context \"alarms\" (the alarm flag of row 1)"
cat >"$D/scenario.ctl" <<EOF
# sample as often as every second
set scalars sample-minimum=1
# objects list sent with the alarm: the row's name (column 3) of the instance that fired
set objects owner=demo name=rowinfo index=1 id=$TABLE.3 wildcard=true status=createAndGo
# the event: a notification carrying that list, and a set of the alarm flag
# (column 1 of the same row, in context "alarms") to 1
set event owner=demo name=alarm actions=notification,set status=createAndWait
set notification owner=demo name=alarm notification=1.3.6.1.4.1.99999.0.1 objectsowner=demo objects=rowinfo
set set owner=demo name=alarm object=$TABLE.1 objectwildcard=true context=alarms value=1
set event owner=demo name=alarm status=active
# the trigger: column 1 of every row, every second, rising at 100, falling at 10;
# the change between samples is also held against the delta thresholds: keep
# them out of reach (both 0 would alarm on every unchanged sample)
set trigger owner=demo name=load valueid=$TABLE.1 wildcard=true frequency=1 test=threshold sampletype=absolute status=createAndWait
set threshold owner=demo name=load startup=rising rising=100 falling=10 deltarising=1000000 deltafalling=-1000000 risingeventowner=demo risingevent=alarm
set trigger owner=demo name=load status=active
EOF
show_file "$D/scenario.ctl"
ctl -f "$D/scenario.ctl" || die "the configuration was refused"
say "accepted."
ctl walk trigger | sed 's/^/   /'

# ---------------------------------------------------------------- move the value
step "3. move the watched value across the thresholds"
sleep 2
say "mte-testagent: set row 1 to 150 (above rising=100)"
tagent set - 1 int 150 >/dev/null
wait_trap 10 '88.2.0.2' 1 || die "no mteTriggerRising arrived"
wait_trap 10 '99999.0.1' 1 || die "the configured notification did not arrive"
sleep 0.5
say "mte-testagent: set row 1 to 5 (below falling=10)"
tagent set - 1 int 5 >/dev/null
wait_trap 10 '88.2.0.3' 1 || die "no mteTriggerFalling arrived"
say "mte-testagent: set row 1 to 120 (above rising again)"
tagent set - 1 int 120 >/dev/null
wait_trap 10 '88.2.0.2' 2 || die "no second mteTriggerRising arrived"
wait_trap 10 '99999.0.1' 2 || true

step "4. what snmptrapd received"
show_new_traps

step "5. the set action: read the alarm flag back with snmpget (context \"alarms\")"
v3get -n alarms "$AGENT" "$TABLE.1.1" | sed 's/^/   /' || die "snmpget failed"

# ---------------------------------------------------------------- restart
step "6. restart eventmibd: the configuration comes back from its store"
stop_pid "$DAEMON_PID" SIGRTMIN+1 10
say "stopped with SIGRTMIN+1, exit status $STOP_STATUS"
DAEMON_PID=
start_daemon
say "started again, pid $DAEMON_PID"
for table in trigger threshold event objects; do
    say "-- eventmibctl walk $table"
    ctl walk "$table" | sed 's/^/   /'
done
say "the restarted daemon samples at once; its first sample of 120 is at or above"
say "rising, which the startup setting (rising) reports again"
wait_trap 10 '88.2.0.2' 3 || die "no mteTriggerRising after the restart"
say "mte-testagent: set row 1 to 3, then 200"
tagent set - 1 int 3 >/dev/null
wait_trap 10 '88.2.0.3' 2 || die "no mteTriggerFalling after the restart"
tagent set - 1 int 200 >/dev/null
wait_trap 10 '88.2.0.2' 4 || die "no second mteTriggerRising after the restart"
wait_trap 5 '99999.0.1' 4 || true
show_new_traps

# ---------------------------------------------------------------- stop
step "7. stop everything in order"
stop_pid "$DAEMON_PID" SIGRTMIN+1 10
say "eventmibd stopped (SIGRTMIN+1), exit status $STOP_STATUS (0 = normal stop)"
DAEMON_PID=
stop_pid "$BRIDGE_PID" TERM 3 && BRIDGE_PID= && say "eventmib-agentx stopped"
stop_pid "$TESTAGENT_PID" TERM 3 && TESTAGENT_PID= && say "mte-testagent stopped"
stop_pid "$TRAPD_PID" TERM 3 && TRAPD_PID= && say "snmptrapd stopped"
stop_pid "$SNMPD_PID" TERM 3 && SNMPD_PID= && say "snmpd stopped"
say "-- eventmibd's log (standard error):"
show_file "$D/eventmibd.log"
printf '\nDemo complete.\n'
