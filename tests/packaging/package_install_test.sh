#!/usr/bin/env bash
# The Debian package as an operator gets it: built with CPack from the build
# tree, inspected (contents, control fields, lintian, units, man pages),
# installed into a throwaway root with dpkg, and the installed eventmibd run
# from there to its ready report and stopped with its stop signal. The
# eventmibctl examples of its man page are run, as printed, against it.
# Usage: package_install_test.sh BUILD_DIR
# Exit 77 (skipped) with the reason printed when a tool is missing.
set -euo pipefail

BUILD=$(cd "$1" && pwd)
export PATH=$PATH:/usr/sbin:/sbin
export LC_ALL=C.UTF-8

for tool in cpack dpkg dpkg-deb lintian systemd-analyze mandoc man perl timeout; do
    if ! command -v "$tool" >/dev/null; then
        echo "SKIP: $tool is not installed (tools/install-deps.sh installs it)"
        exit 77
    fi
done

TMP=$(mktemp -d /tmp/mte-pkg.XXXXXX)
DAEMON_PID=
LISTENER_PID=
cleanup() {
    [[ -n $DAEMON_PID ]] && kill -KILL "$DAEMON_PID" 2>/dev/null
    [[ -n $LISTENER_PID ]] && kill -KILL "$LISTENER_PID" 2>/dev/null
    rm -rf "$TMP"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*"
    exit 1
}
step() { printf '\n== %s\n' "$*"; }

step "build the package"
timeout 120 cpack --config "$BUILD/CPackConfig.cmake" -B "$TMP/out" >"$TMP/cpack.log" 2>&1 ||
    { cat "$TMP/cpack.log"; fail "cpack"; }
DEB=$(echo "$TMP"/out/eventmibd_*_*.deb)
[[ -f $DEB ]] || fail "no eventmibd_<version>_<arch>.deb in $TMP/out"
echo "$(basename "$DEB")"

step "contents (dpkg-deb -c)"
dpkg-deb -c "$DEB" | awk '{print $1, $2, $6}' | tee "$TMP/contents"
for path in usr/sbin/eventmibd usr/sbin/eventmib-agentx usr/sbin/eventmibctl \
    lib/systemd/system/eventmibd.service lib/systemd/system/eventmib-agentx.service \
    usr/share/man/man8/eventmibd.8.gz usr/share/man/man8/eventmib-agentx.8.gz \
    usr/share/man/man8/eventmibctl.8.gz usr/share/doc/eventmibd/copyright \
    usr/share/doc/eventmibd/changelog.gz usr/share/doc/eventmibd/examples/snmpd-eventmib.conf; do
    grep -q " \./$path\$" "$TMP/contents" || fail "$path is not in the package"
done
# The operator's configuration is never touched: nothing under /etc, no
# maintainer scripts.
! grep -q ' \./etc/' "$TMP/contents" || fail "the package installs under /etc"
dpkg-deb --ctrl-tarfile "$DEB" | tar -t | sed 's|^\./||' | grep -v -x -e '' -e control -e md5sums &&
    fail "the package has maintainer scripts"

step "control fields"
dpkg-deb -f "$DEB" Package Version Architecture Depends Recommends | tee "$TMP/fields"
for dep in libsnmp40 libsqlite3-0 libsystemd0 libtcmalloc-minimal4; do
    grep -q "^Depends:.*\b$dep\b" "$TMP/fields" || fail "Depends lacks $dep"
done
grep -q '^Recommends: snmpd$' "$TMP/fields" || fail "snmpd is not recommended"

step "lintian"
lintian_status=0
timeout 120 lintian --fail-on error "$DEB" >"$TMP/lintian.log" 2>&1 || lintian_status=$?
grep -v 'running with root privileges' "$TMP/lintian.log" || true
[[ $lintian_status -eq 0 ]] || fail "lintian reports errors (status $lintian_status)"

step "install into a throwaway root"
ROOT=$TMP/root
if [[ $(id -u) -eq 0 ]]; then
    mkdir -p "$ROOT/var/lib/dpkg/info" "$ROOT/var/lib/dpkg/updates" "$ROOT/var/log"
    touch "$ROOT/var/lib/dpkg/status" "$ROOT/var/lib/dpkg/available"
    # The libraries are the host's: the root's own package database has
    # none of them.
    dpkg --root="$ROOT" --force-depends -i "$DEB" >"$TMP/dpkg.log" 2>&1 ||
        { cat "$TMP/dpkg.log"; fail "dpkg -i"; }
    dpkg --root="$ROOT" -s eventmibd | grep -q '^Status: install ok installed$' ||
        fail "dpkg does not show eventmibd installed"
    echo "dpkg --root: installed"
else
    # dpkg --root needs root to give the files their owners; unpack instead.
    dpkg-deb -x "$DEB" "$ROOT"
    echo "not root: unpacked with dpkg-deb -x"
fi

step "units (systemd-analyze)"
# The units name /usr/sbin: verify copies that name the throwaway root's
# programs, so that the check that ExecStart= is executable sees them.
mkdir "$TMP/units"
for unit in eventmibd eventmib-agentx; do
    sed "s|/usr/sbin/|$ROOT/usr/sbin/|" "$ROOT/lib/systemd/system/$unit.service" >"$TMP/units/$unit.service"
done
MANPATH=$ROOT/usr/share/man timeout 60 systemd-analyze verify \
    "$TMP/units/eventmibd.service" "$TMP/units/eventmib-agentx.service" 2>&1 | tee "$TMP/verify.log"
[[ ! -s $TMP/verify.log ]] || fail "systemd-analyze verify complains"
EXPOSURE=$(timeout 60 systemd-analyze security --offline=true --no-pager "$TMP/units/eventmibd.service" 2>&1 |
    sed -n 's/.*Overall exposure level for eventmibd.service: \([0-9.]*\).*/\1/p')
echo "eventmibd.service exposure: ${EXPOSURE:-?}"
awk -v e="${EXPOSURE:-99}" 'BEGIN { exit !(e <= 2.0) }' || fail "exposure ${EXPOSURE:-?} is above 2.0"

step "man pages"
for page in eventmibd eventmib-agentx eventmibctl; do
    file=$ROOT/usr/share/man/man8/$page.8.gz
    mandoc -T lint "$file" || fail "mandoc -T lint $page.8"
    warnings=$(MANWIDTH=80 man --warnings -l "$file" 2>&1 >/dev/null)
    [[ -z $warnings ]] || fail "man --warnings $page.8: $warnings"
done
echo "no warnings"

step "run the installed eventmibd to its ready report"
mkdir -p "$TMP/state" "$TMP/run"
NOTIFY=$TMP/notify.sock
# The test's end of NOTIFY_SOCKET: prints every datagram, ends at READY=1.
perl -MIO::Socket::UNIX -e '
    my $s = IO::Socket::UNIX->new(Type => SOCK_DGRAM(), Local => $ARGV[0]) or die "bind: $!";
    $| = 1;
    while (defined $s->recv(my $m, 4096)) { print "$m\n"; exit 0 if $m =~ /^READY=1$/m; }' \
    "$NOTIFY" >"$TMP/notify.log" 2>&1 &
LISTENER_PID=$!
for _ in $(seq 50); do [[ -S $NOTIFY ]] && break; sleep 0.1; done
[[ -S $NOTIFY ]] || fail "the notify socket was not bound"

STATE_DIRECTORY=$TMP/state RUNTIME_DIRECTORY=$TMP/run NOTIFY_SOCKET=$NOTIFY \
    "$ROOT/usr/sbin/eventmibd" 2>"$TMP/daemon.log" &
DAEMON_PID=$!
for _ in $(seq 200); do kill -0 "$LISTENER_PID" 2>/dev/null || break; sleep 0.1; done
wait "$LISTENER_PID" || true
LISTENER_PID=
grep -q '^READY=1$' "$TMP/notify.log" || { cat "$TMP/daemon.log"; fail "no READY=1 within 20 s"; }
echo "READY=1 received"

step "eventmibctl examples of its man page, as printed"
zcat "$ROOT/usr/share/man/man8/eventmibctl.8.gz" | sed -n '/^\.EX/,/^\.EE/p' |
    grep '^eventmibctl ' | sed 's/\\-/-/g' >"$TMP/examples"
[[ -s $TMP/examples ]] || fail "no examples found"
while read -r -a argv; do
    echo "\$ ${argv[*]}"
    STATE_DIRECTORY=$TMP/state RUNTIME_DIRECTORY=$TMP/run \
        timeout 20 "$ROOT/usr/sbin/eventmibctl" "${argv[@]:1}" ||
        fail "example failed: ${argv[*]}"
done <"$TMP/examples"

step "stop with SIGRTMIN+1"
kill -s RTMIN+1 "$DAEMON_PID"
for _ in $(seq 300); do kill -0 "$DAEMON_PID" 2>/dev/null || break; sleep 0.1; done
kill -0 "$DAEMON_PID" 2>/dev/null && fail "eventmibd still runs 30 s after SIGRTMIN+1"
status=0
wait "$DAEMON_PID" || status=$?
DAEMON_PID=
[[ $status -eq 0 ]] || { cat "$TMP/daemon.log"; fail "eventmibd exited with status $status"; }
echo "exit status 0"
