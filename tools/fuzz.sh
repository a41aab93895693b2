#!/usr/bin/env bash
# Builds the libFuzzer target of the management dispatcher (tests/channel/fuzz_cfg.cpp) with
# clang, AddressSanitizer and UndefinedBehaviorSanitizer into build-fuzz/,
# apart from the CMake build, and runs it for a bounded time (FUZZ_SECONDS,
# default 60). Exits non-zero on any finding; the crashing input is kept in
# build-fuzz/findings/.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

CXX=${FUZZ_CXX:-clang++-14}
SECONDS_TO_RUN=${FUZZ_SECONDS:-60}
OUT=build-fuzz
mkdir -p "$OUT/obj" "$OUT/corpus" "$OUT/findings"

CXXFLAGS=(-std=c++20 -g -O1 -fno-exceptions -fno-omit-frame-pointer
          -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
          -Iinclude -Iplatform -Itests/fakes)

# The daemon's modules without main, the message library, and the platform
# behind them: pure or local real pieces, fakes for the log, store, agent,
# memory alerts and service manager.
SOURCES=$(ls core/*.cpp channel/*.cpp trigger/*.cpp event/*.cpp run/*.cpp store/*.cpp \
              | grep -v '^core/main.cpp$')
SOURCES+=" platform/linux/rc.cpp platform/linux/timer.cpp platform/linux/queue.cpp"
SOURCES+=" platform/linux/paths.cpp platform/linux/trapswitch.cpp platform/linux/port.cpp"
SOURCES+=" platform/linux/unixsock.cpp"
SOURCES+=" tests/fakes/fake_log.cpp tests/fakes/fake_dbm.cpp tests/fakes/fake_snmp.cpp"
SOURCES+=" tests/fakes/fake_memalert.cpp tests/fakes/fake_service.cpp"
SOURCES+=" tests/channel/fuzz_cfg.cpp"

# Compiles only what changed since the last run (two jobs: the machine is shared).
OBJECTS=()
TO_BUILD=()
for src in $SOURCES; do
    obj="$OUT/obj/$(echo "$src" | tr '/' '_').o"
    OBJECTS+=("$obj")
    if [[ ! -f $obj || $src -nt $obj || -n $(find include platform tests/fakes -newer "$obj" -name '*.h' -print -quit) ]]; then
        TO_BUILD+=("$src")
    fi
done
if ((${#TO_BUILD[@]})); then
    echo "fuzz: compiling ${#TO_BUILD[@]} sources"
    printf '%s\n' "${TO_BUILD[@]}" | xargs -P 2 -I{} sh -c \
        'obj="'"$OUT"'/obj/$(echo "{}" | tr / _).o"; '"$CXX"' '"${CXXFLAGS[*]}"' -c "{}" -o "$obj"'
fi
"$CXX" -fsanitize=fuzzer,address,undefined "${OBJECTS[@]}" -lpthread -o "$OUT/fuzz_cfg"

# Seeds: one well-formed request per message type and operation, so that the
# fuzzer starts inside every handler instead of at the message check.
python3 - "$OUT/corpus" <<'PY'
import os, struct, sys
out = sys.argv[1]
sizes = {1: 28, 2: 4, 3: 4, 4: 1220, 5: 72, 6: 212, 7: 200, 8: 416, 9: 596, 10: 80,
         11: 332, 12: 72, 13: 648, 14: 884, 15: 4}
def record(item):
    rec = bytearray(sizes[item])
    owner_name = {4: (540, 573), 6: (12, 45), 7: (0, 33), 8: (20, 53), 9: (528, 561),
                  11: (8, 41), 13: (516, 549), 14: (528, 561)}
    if item in owner_name:
        o, n = owner_name[item]
        rec[o:o + 1] = b"o"
        rec[n:n + 1] = b"n"
    if item in (4, 9, 13, 14):  # an OID of three sub-identifiers
        rec[0:16] = struct.pack("<IIII", 3, 1, 3, 6)
    if item == 4:
        rec[536:540] = struct.pack("<I", 4)  # createAndGo
        rec[516:520] = struct.pack("<I", 10)
    if item in (5, 12):
        rec[0:5] = struct.pack("<I", 1) + b"o"
    return bytes(rec)
def request(seq, mtype, op, mask, item):
    data = b""
    if item:
        rec = record(item)
        data = struct.pack("<HHI", item, 0, len(rec)) + rec
    return struct.pack("<HBBIIIHH", 0x4D45, 1, 0, seq, mask, len(data), mtype, op) + data
rows = {4: (4, 5), 5: (6, 5), 6: (7, 5), 7: (8, 5), 8: (9, 10), 9: (11, 12), 10: (13, 12),
        11: (14, 12)}
seeds = [request(1, 1, 2, 0, 0), request(2, 2, 1, 0, 2), request(3, 3, 1, 0, 3),
         request(4, 12, 1, 0, 15), request(5, 13, 1, 0, 15), request(6, 14, 2, 0, 0)]
for mtype, (row, key) in rows.items():
    seeds += [request(10 + mtype, mtype, 1, 0xffff, row), request(20 + mtype, mtype, 2, 0, row),
              request(30 + mtype, mtype, 3, 0, key)]
for i, seed in enumerate(seeds):
    with open(os.path.join(out, "seed-%02d" % i), "wb") as f:
        f.write(seed)
PY

echo "fuzz: running fuzz_cfg for ${SECONDS_TO_RUN} s"
ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1} \
UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
"$OUT/fuzz_cfg" -max_total_time="$SECONDS_TO_RUN" -max_len=5120 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$OUT/findings/" "$OUT/corpus"
