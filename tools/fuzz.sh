#!/usr/bin/env bash
# Builds the two libFuzzer targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer in a CMake tree of their own (build-fuzz/,
# option MTE_FUZZ) and runs each for a bounded time from seed corpora:
#   fuzz_cfg            the management dispatcher (tests/channel/fuzz_cfg.cpp)
#   fuzz_agentx_notify  the bridge's datagram decoder (tests/agentx/fuzz_agentx_notify.cpp)
# FUZZ_SECONDS (default 60) is shared: two thirds to the dispatcher, the rest
# to the decoder. Exits non-zero on any finding; the crashing input is kept in
# build-fuzz/findings/<target>/.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

CXX=${FUZZ_CXX:-clang++-14}
CC=${FUZZ_CC:-${CXX/clang++/clang}}
SECONDS_TO_RUN=${FUZZ_SECONDS:-60}
OUT=build-fuzz
mkdir -p "$OUT"

LAUNCHER=()
if command -v ccache >/dev/null; then
    LAUNCHER=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
echo "fuzz: configure and build $OUT"
cmake -S . -B "$OUT" -DMTE_FUZZ=ON -DMTE_BUILD_TESTS=OFF -DMTE_BUILD_BENCH=OFF \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_C_COMPILER="$CC" "${LAUNCHER[@]}" \
    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" >"$OUT/configure.log" 2>&1 || {
    cat "$OUT/configure.log"
    exit 1
}
# Two jobs: the machine is shared.
cmake --build "$OUT" -j 2 --target fuzz_cfg fuzz_agentx_notify

# Dispatcher seeds: one well-formed request per message type and operation,
# so that the fuzzer starts inside every handler instead of at the message
# check.
mkdir -p "$OUT/corpus/fuzz_cfg" "$OUT/corpus/fuzz_agentx_notify"
python3 - "$OUT/corpus/fuzz_cfg" <<'PY'
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

# Decoder seeds: well-formed datagrams, one with a binding of every type code
# and a context, one as the built-in notifications send it, one with no
# binding; the layout is plat_notify_dgram.h's.
python3 - "$OUT/corpus/fuzz_agentx_notify" <<'PY'
import os, struct, sys
out = sys.argv[1]
def oid(subs):
    return struct.pack("<I", len(subs)) + b"".join(struct.pack("<I", s) for s in subs)
def datagram(trap, context, variables):
    data = struct.pack("<IHH", 0x4E45544D, 1, len(variables)) + oid(trap)
    data += struct.pack("<H", len(context)) + context
    for name, vtype, value in variables:
        data += oid(name) + struct.pack("<II", vtype, len(value)) + value
    return data
name = [1, 3, 6, 1, 4, 1, 99999, 1, 1]
u32 = struct.pack("<I", 7)
values = [(0, u32), (1, u32), (2, u32), (3, u32), (4, u32), (5, u32), (6, u32), (7, u32),
          (8, struct.pack("<Q", 1 << 40)), (10, b"text"), (11, oid([1, 3, 6])[4:]),
          (11, b""), (12, bytes([127, 0, 0, 1])), (13, b"\x9f\x78\x04\x00\x00\x00\x07"),
          (14, b"")]
hot = [1, 3, 6, 1, 2, 1, 88, 2, 1]
seeds = [
    datagram([1, 3, 6, 1, 4, 1, 99999, 0, 1], b"ctx", [(name, t, v) for t, v in values]),
    datagram([1, 3, 6, 1, 2, 1, 88, 2, 0, 1], b"",
             [(hot + [1, 0], 10, b"trig"), (hot + [2, 0], 10, b""), (hot + [3, 0], 10, b"ctx"),
              (hot + [4, 0], 11, oid([1, 3, 6, 1])[4:]), (hot + [5, 0], 1, u32)]),
    datagram([1, 3, 6, 1, 4, 1, 99999, 0, 2], b"", []),
]
for i, seed in enumerate(seeds):
    with open(os.path.join(out, "seed-%02d" % i), "wb") as f:
        f.write(seed)
PY

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

# run_fuzzer <target> <seconds> <max input length>
run_fuzzer() {
    local target=$1 seconds=$2 max_len=$3
    mkdir -p "$OUT/findings/$target"
    echo "fuzz: running $target for $seconds s"
    "$OUT/$target" -max_total_time="$seconds" -max_len="$max_len" -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$OUT/findings/$target/" "$OUT/corpus/$target"
}

CFG_SECONDS=$(((SECONDS_TO_RUN * 2 + 2) / 3))
NOTIFY_SECONDS=$((SECONDS_TO_RUN - CFG_SECONDS))
((NOTIFY_SECONDS > 0)) || NOTIFY_SECONDS=1
failed=0
run_fuzzer fuzz_cfg "$CFG_SECONDS" 5120 || failed=1
run_fuzzer fuzz_agentx_notify "$NOTIFY_SECONDS" 65000 || failed=1
exit "$failed"
