#!/usr/bin/env bash
# The project's main command (see README.md): installs what the build needs,
# builds the tree, and runs the whole stack on loopback in a temporary
# directory: a private snmpd (its own Event MIB modules not initialised),
# mte-testagent (a table whose values the demo moves), eventmib-agentx (the
# Event MIB served to snmpd over AgentX, port status, notification relay),
# eventmibd, and snmptrapd as the receiver. An SNMP manager (net-snmp's
# snmpset, SNMPv3) configures a threshold trigger and an event (a notification
# with an objects list, and a set action) through snmpd, with numeric OIDs:
# the IETF MIB files are not installed. The demo moves the watched value
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
BRIDGE=$BUILD/agentx/eventmib-agentx
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

# The agent: SNMPv3 users "demo" (the daemon samples and sets through it) and
# "manager" (the demo's SNMP manager) may read and write every context;
# notifications go to snmptrapd.
cat >"$D/etc/snmpd.conf" <<EOF
agentAddress udp:$AGENT
master agentx
agentXSocket $D/run/agentx.sock
agentXPerms 0660 0770
rocommunity public 127.0.0.1
createUser demo SHA "demoauthpass" AES "demoprivpass"
createUser manager SHA "managerauthpass" AES "managerprivpass"
group demogroup usm demo
group demogroup usm manager
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
# manager <snmpget|snmpset|snmpbulkwalk> <args...>: net-snmp's tools as the
# SNMP manager, SNMPv3 user "manager", numeric OIDs.
manager() {
    local tool=$1
    shift
    env SNMPCONFPATH="$D/etc" SNMP_PERSISTENT_DIR="$D/tools-persist" MIBS= \
        "$tool" -v3 -u manager -l authPriv -a SHA -A managerauthpass -x AES -X managerprivpass \
        -On -t 3 -r 0 "$@"
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

# ---------------------------------------------------------------- Event MIB
# The Event MIB (RFC 2981) as eventmib-agentx serves it through snmpd.
MTE=1.3.6.1.2.1.88.1  # mteObjects
SAMPLE_MIN=$MTE.1.1.0 # mteResourceSampleMinimum
TRIGGER=$MTE.2.2.1    # mteTriggerEntry
THRESHOLD=$MTE.2.6.1  # mteTriggerThresholdEntry
OBJECTS=$MTE.3.1.1    # mteObjectsEntry
EVENT=$MTE.4.2.1      # mteEventEntry
NOTIFY=$MTE.4.3.1     # mteEventNotificationEntry
SETACT=$MTE.4.4.1     # mteEventSetEntry

# A string as index sub-identifiers, one per character.
chars() {
    local s=$1 i c
    for ((i = 0; i < ${#s}; i++)); do
        printf -v c '%d' "'${s:i:1}"
        printf '.%s' "$c"
    done
}
# mteOwner (length first), then an IMPLIED trigger or event name.
named_index() { printf '.%d%s%s' "${#1}" "$(chars "$1")" "$(chars "$2")"; }
# mteOwner and mteObjectsName (both length first), then mteObjectsIndex.
objects_index() { printf '.%d%s.%d%s.%d' "${#1}" "$(chars "$1")" "${#2}" "$(chars "$2")" "$3"; }

bridge_answers() { manager snmpget "$AGENT" "$SAMPLE_MIN" | grep -q 'INTEGER: '; }

# pdu <what it does>, then vb for each varbind, then send_pdu: one snmpset
# request, printed varbind by varbind with the object's name.
PDU=()
pdu() {
    PDU=()
    say "-- snmpset: $*"
}
vb() { # <object name> <OID> <type> <value> [what the value means]
    local shown=$4
    [[ $shown == *' '* ]] && shown="\"$shown\""
    PDU+=("$2" "$3" "$4")
    printf '     %-35s %s %s %s%s\n' "$1" "$2" "$3" "$shown" "${5:+  ($5)}"
}
send_pdu() {
    local out
    if out=$(manager snmpset "$AGENT" "${PDU[@]}" 2>&1); then
        say "   -> noError"
    else
        printf '%s\n' "$out" | sed 's/^/   | /'
        die "snmpset refused"
    fi
}

# show_table <table> <entry OID> <named|objects> <column names from column 1>:
# a table as a manager sees it. snmptable would print this view, but it needs
# the MIB files, which are not installed; so the entry is walked with
# snmpbulkwalk -On and the answers are grouped by row index, the columns as
# headers (names without the table's prefix, enumerations and BITS named as
# the MIB names them), split into parts of at most 100 characters as
# snmptable does.
show_table() {
    local table=$1 entry=$2 kind=$3
    shift 3
    printf '   %s\n' "$table"
    manager snmpbulkwalk -Cr20 "$AGENT" "$entry" | awk -v pfx=".$entry" -v kind="$kind" -v cols="$*" '
        function str(a, from, to,   s, i) {
            s = ""
            for (i = from; i <= to; i++) s = s sprintf("%c", a[i])
            return s
        }
        function decode(a, n,   ol, nl) {
            ol = a[2]
            if (kind == "named") return "\"" str(a, 3, 2 + ol) "\",\"" str(a, 3 + ol, n) "\""
            nl = a[3 + ol]
            return "\"" str(a, 3, 2 + ol) "\",\"" str(a, 4 + ol, 3 + ol + nl) "\"," a[n]
        }
        function en(v, list,   e, m) {
            m = split(list, e, " ")
            return (v ~ /^[0-9]+$/ && v >= 1 && v <= m) ? e[v] "(" v ")" : v
        }
        function octet(type, v,   h) {  # the first octet of a BITS value
            if (type == "Hex-STRING") {
                h = toupper(v)
                return (index(hex, substr(h, 1, 1)) - 1) * 16 + index(hex, substr(h, 2, 1)) - 1
            }
            return (substr(v, 1, 1) in ord) ? ord[substr(v, 1, 1)] : 0
        }
        function bits(type, v, list,   e, m, x, i, out) {
            m = split(list, e, " ")
            x = octet(type, v)
            out = ""
            for (i = 1; i <= m; i++)
                if (int(x / 2 ^ (8 - i)) % 2) out = out (out == "" ? "" : ",") e[i]
            return out == "" ? "{}" : out
        }
        function meaning(name, type, v) {
            if (name ~ /EntryStatus$/) return en(v, "active notInService notReady createAndGo createAndWait destroy")
            if (name ~ /(Wildcard|Enabled)$/) return en(v, "true false")
            if (name == "SampleType") return en(v, "absoluteValue deltaValue")
            if (name == "Startup") return en(v, "rising falling risingOrFalling")
            if (name == "Test") return bits(type, v, "existence boolean threshold")
            if (name == "Actions") return bits(type, v, "notification set")
            return v
        }
        BEGIN {
            split(cols, cname, " ")
            hex = "0123456789ABCDEF"
            for (i = 32; i < 127; i++) ord[sprintf("%c", i)] = i
        }
        index($0, pfx ".") == 1 {
            eq = index($0, " = ")
            n = split(substr($0, length(pfx) + 2, eq - length(pfx) - 2), a, ".")
            val = substr($0, eq + 3)
            type = ""
            if (match(val, /^[A-Za-z0-9-]+: /)) {
                type = substr(val, 1, RLENGTH - 2)
                val = substr(val, RLENGTH + 1)
            } else if (val == "\"\"") val = ""
            if (val ~ /^".*"$/) val = substr(val, 2, length(val) - 2)
            if (type == "Hex-STRING") sub(/ +$/, "", val)
            c = a[1]
            row = decode(a, n)
            if (!(row in seen)) { seen[row] = 1; rows[++nrows] = row }
            if (!(c in cseen)) { cseen[c] = 1; cl[++ncl] = c }
            cell[row, c] = meaning(cname[c], type, val)
        }
        END {
            if (nrows == 0) { print "      (no rows)"; exit }
            head = "index"
            iw = length(head)
            for (r = 1; r <= nrows; r++) if (length(rows[r]) > iw) iw = length(rows[r])
            for (k = 1; k <= ncl; k++) {
                c = cl[k]
                w[c] = length(cname[c])
                for (r = 1; r <= nrows; r++) if (length(cell[rows[r], c]) > w[c]) w[c] = length(cell[rows[r], c])
            }
            k = 1
            while (k <= ncl) {
                width = 6 + iw; last = k
                while (last <= ncl && (last == k || width + 2 + w[cl[last]] <= 100)) { width += 2 + w[cl[last]]; last++ }
                line = sprintf("      %-" iw "s", head)
                for (j = k; j < last; j++) line = line sprintf("  %-" w[cl[j]] "s", cname[cl[j]])
                sub(/ +$/, "", line)
                print line
                for (r = 1; r <= nrows; r++) {
                    line = sprintf("      %-" iw "s", rows[r])
                    for (j = k; j < last; j++) line = line sprintf("  %-" w[cl[j]] "s", cell[rows[r], cl[j]])
                    sub(/ +$/, "", line)
                    print line
                }
                k = last
                if (k <= ncl) print ""
            }
        }'
}

# Every Event MIB table this configuration uses, walked through snmpd.
show_tables() {
    show_table "mteTriggerTable ($TRIGGER, columns without the prefix mteTrigger)" "$TRIGGER" named \
        Owner Name Comment Test SampleType ValueID ValueIDWildcard TargetTag ContextName \
        ContextNameWildcard Frequency ObjectsOwner Objects Enabled EntryStatus
    show_table "mteTriggerThresholdTable ($THRESHOLD, without mteTriggerThreshold)" "$THRESHOLD" named \
        Startup Rising Falling DeltaRising DeltaFalling ObjectsOwner Objects RisingEventOwner \
        RisingEvent FallingEventOwner FallingEvent DeltaRisingEventOwner DeltaRisingEvent \
        DeltaFallingEventOwner DeltaFallingEvent
    show_table "mteObjectsTable ($OBJECTS, without mteObjects)" "$OBJECTS" objects \
        Name Index ID IDWildcard EntryStatus
    show_table "mteEventTable ($EVENT, without mteEvent)" "$EVENT" named \
        Name Comment Actions Enabled EntryStatus
    show_table "mteEventNotificationTable ($NOTIFY, without mteEventNotification)" "$NOTIFY" named \
        Notification ObjectsOwner Objects
    show_table "mteEventSetTable ($SETACT, without mteEventSet)" "$SETACT" named \
        Object ObjectWildcard Value TargetTag ContextName ContextNameWildcard
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
step "2. the watched rows, and the configuration by an SNMP manager (snmpset through snmpd)"
tagent add - 1 20 0 port-1 >/dev/null
tagent add alarms 1 0 0 alarm-flag-of-port-1 >/dev/null
say "mte-testagent rows: $TABLE.1.1 = 20 (the watched value, default context)"
say "                    $TABLE.1.1 = 0 in context \"alarms\" (the alarm flag of row 1)"
wait_for 10 bridge_answers || die "snmpd does not answer for the Event MIB ($SAMPLE_MIN)"
say "Each PDU is one 'snmpset -v3 -u manager -l authPriv ... -On $AGENT OID TYPE VALUE ...'"
say "to snmpd, which passes it over AgentX to eventmib-agentx, which asks eventmibd."
say "Numeric OIDs: the MIB files are not installed. Index of owner \"demo\", trigger or"
say "event name \"load\"/\"alarm\": length and characters of the owner, then the name's characters."
LOAD=$(named_index demo load)
ALARM=$(named_index demo alarm)
ROWINFO=$(objects_index demo rowinfo 1)

pdu "sample as often as every second"
vb mteResourceSampleMinimum.0 "$SAMPLE_MIN" i 1
send_pdu

pdu "objects list (demo, rowinfo, 1): the name (column 3) of the row that fired; createAndGo"
vb mteObjectsEntryStatus "$OBJECTS.5$ROWINFO" i 4 createAndGo
vb mteObjectsID "$OBJECTS.3$ROWINFO" o "$TABLE.3"
vb mteObjectsIDWildcard "$OBJECTS.4$ROWINFO" i 1 true
send_pdu

pdu "event (demo, alarm) with its notification and set rows, createAndGo in one PDU"
vb mteEventEntryStatus "$EVENT.5$ALARM" i 4 createAndGo
vb mteEventComment "$EVENT.2$ALARM" s "raise the alarm"
vb mteEventActions "$EVENT.3$ALARM" x C0 "notification, set"
vb mteEventNotification "$NOTIFY.1$ALARM" o 1.3.6.1.4.1.99999.0.1
vb mteEventNotificationObjectsOwner "$NOTIFY.2$ALARM" s demo
vb mteEventNotificationObjects "$NOTIFY.3$ALARM" s rowinfo
vb mteEventSetObject "$SETACT.1$ALARM" o "$TABLE.1" "the alarm flag"
vb mteEventSetObjectWildcard "$SETACT.2$ALARM" i 1 "true: of the row that fired"
vb mteEventSetValue "$SETACT.3$ALARM" i 1
vb mteEventSetContextName "$SETACT.5$ALARM" s alarms
send_pdu

pdu "trigger (demo, load): createAndWait"
vb mteTriggerEntryStatus "$TRIGGER.15$LOAD" i 5 createAndWait
send_pdu
pdu "trigger (demo, load): column 1 of every row, every second, threshold test"
vb mteTriggerComment "$TRIGGER.3$LOAD" s "load of every row"
vb mteTriggerTest "$TRIGGER.4$LOAD" x 20 threshold
vb mteTriggerSampleType "$TRIGGER.5$LOAD" i 1 absoluteValue
vb mteTriggerValueID "$TRIGGER.6$LOAD" o "$TABLE.1"
vb mteTriggerValueIDWildcard "$TRIGGER.7$LOAD" i 1 true
vb mteTriggerFrequency "$TRIGGER.11$LOAD" u 1
send_pdu
# The change between samples is held against the delta thresholds as well:
# they are kept out of reach (both 0 would alarm on every unchanged sample).
pdu "its threshold row: rising at 100 runs the event, falling at 10; deltas out of reach"
vb mteTriggerThresholdStartup "$THRESHOLD.1$LOAD" i 1 rising
vb mteTriggerThresholdRising "$THRESHOLD.2$LOAD" i 100
vb mteTriggerThresholdFalling "$THRESHOLD.3$LOAD" i 10
vb mteTriggerThresholdDeltaRising "$THRESHOLD.4$LOAD" i 1000000
vb mteTriggerThresholdDeltaFalling "$THRESHOLD.5$LOAD" i -1000000
vb mteTriggerThresholdRisingEventOwner "$THRESHOLD.8$LOAD" s demo
vb mteTriggerThresholdRisingEvent "$THRESHOLD.9$LOAD" s alarm
send_pdu
pdu "trigger (demo, load): active"
vb mteTriggerEntryStatus "$TRIGGER.15$LOAD" i 1 active
send_pdu

step "2b. the configuration as a manager reads it back (snmpbulkwalk -On through snmpd)"
show_tables | tee "$D/tables-before.txt"

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
manager snmpget -n alarms "$AGENT" "$TABLE.1.1" | sed 's/^/   /' || die "snmpget failed"

# ---------------------------------------------------------------- restart
step "6. restart eventmibd: the configuration comes back from its store"
stop_pid "$DAEMON_PID" SIGRTMIN+1 10
say "stopped with SIGRTMIN+1, exit status $STOP_STATUS"
DAEMON_PID=
start_daemon
say "started again, pid $DAEMON_PID"
say "the tables read through snmpd again (snmpbulkwalk -On):"
show_tables | tee "$D/tables-after.txt"
if diff -u "$D/tables-before.txt" "$D/tables-after.txt" >"$D/tables.diff"; then
    say "-> the same as before the restart"
else
    sed 's/^/   | /' "$D/tables.diff"
    die "the configuration read after the restart differs"
fi
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
