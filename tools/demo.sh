#!/usr/bin/env bash
# The project's main command (see README.md): installs what the build needs,
# builds the tree, and shows the daemon's life as an operator sees it: start
# with its own state and runtime directories, its log lines, an orderly stop
# with SIGRTMIN+1 and the exit status; then a start that cannot succeed, with
# its trace and exit status 255.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

step() { printf '\n==== %s\n' "$*"; }

step "packages"
bash tools/install-deps.sh

step "build"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j 2 --target eventmibd
DAEMON=build/eventmibd

DEMO_DIR=$(mktemp -d /tmp/eventmibd-demo.XXXXXX)
DAEMON_PID=
cleanup() {
    if [[ -n $DAEMON_PID ]] && kill -0 "$DAEMON_PID" 2>/dev/null; then
        kill -KILL "$DAEMON_PID" 2>/dev/null || true
    fi
    rm -rf "$DEMO_DIR"
}
trap cleanup EXIT

# start_daemon <state dir> <runtime dir> <log file>
start_daemon() {
    STATE_DIRECTORY=$1 RUNTIME_DIRECTORY=$2 "$DAEMON" 2>"$3" &
    DAEMON_PID=$!
}

# The stop signal is blocked (and read through its signalfd) from early in
# the start-up on; sending it before would kill the process. Waits at most
# five seconds for that, or for the process to end.
wait_stop_signal_blocked() {
    local rtmin1_bit=$((1 << 34)) # SIGRTMIN+1 is signal 35: bit 34 of SigBlk
    local deadline=$((SECONDS + 5)) blocked
    while ((SECONDS < deadline)) && kill -0 "$DAEMON_PID" 2>/dev/null; do
        blocked=$(awk '/^SigBlk:/ {print $2}' "/proc/$DAEMON_PID/status" 2>/dev/null || true)
        if [[ -n $blocked ]] && (((16#$blocked & rtmin1_bit) != 0)); then
            return 0
        fi
        sleep 0.05
    done
    return 1
}

# wait_exit <seconds>: sets EXIT_STATUS once the daemon has ended, or
# returns 1 if it is still running after that long.
wait_exit() {
    local deadline=$((SECONDS + $1))
    while kill -0 "$DAEMON_PID" 2>/dev/null; do
        if ((SECONDS >= deadline)); then
            return 1
        fi
        sleep 0.05
    done
    EXIT_STATUS=0
    wait "$DAEMON_PID" || EXIT_STATUS=$?
    DAEMON_PID=
}

show_log() {
    echo "-- log lines (standard error):"
    if [[ -s $1 ]]; then sed 's/^/   /' "$1"; else echo "   (none)"; fi
}

step "1. start eventmibd with its own state and runtime directories"
mkdir -p "$DEMO_DIR/state" "$DEMO_DIR/run"
echo "STATE_DIRECTORY=$DEMO_DIR/state RUNTIME_DIRECTORY=$DEMO_DIR/run $DAEMON"
start_daemon "$DEMO_DIR/state" "$DEMO_DIR/run" "$DEMO_DIR/daemon.log"
if ! wait_stop_signal_blocked; then
    echo "eventmibd did not come up"
    show_log "$DEMO_DIR/daemon.log"
    exit 1
fi
sleep 0.5
echo "running as pid $DAEMON_PID"
echo "-- state directory:"; ls -l "$DEMO_DIR/state" | sed 's/^/   /'
echo "-- runtime directory:"; ls -l "$DEMO_DIR/run" | sed 's/^/   /'
show_log "$DEMO_DIR/daemon.log"

step "2. orderly stop with SIGRTMIN+1"
kill -s SIGRTMIN+1 "$DAEMON_PID"
if ! wait_exit 10; then
    echo "eventmibd still running 10 s after SIGRTMIN+1"
    exit 1
fi
echo "exit status: $EXIT_STATUS (0 = normal stop)"
show_log "$DEMO_DIR/daemon.log"
if ((EXIT_STATUS != 0)); then
    exit 1
fi

step "3. a start that cannot succeed: the runtime directory is a regular file"
echo "not a directory" >"$DEMO_DIR/not-a-dir"
start_daemon "$DEMO_DIR/state" "$DEMO_DIR/not-a-dir" "$DEMO_DIR/failed.log"
if wait_exit 5; then
    echo "exit status: $EXIT_STATUS (255 = start-up failed)"
else
    echo "eventmibd started anyway: this build has no management channel yet; stopping it"
    kill -s SIGRTMIN+1 "$DAEMON_PID"
    wait_exit 10 || true
    echo "exit status: ${EXIT_STATUS:-?}"
fi
show_log "$DEMO_DIR/failed.log"
