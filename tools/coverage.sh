#!/usr/bin/env bash
# Line and branch coverage of the product code (everything compiled except
# tests/, bench/ and the test agent) by the whole test suite. Builds an
# instrumented tree in build-cov/, runs every test, and prints one summary
# line. Not part of the test command: run it by hand before and after a change
# to the tests.
#   tools/coverage.sh            build, test and summarise
#   tools/coverage.sh --report   summarise an earlier run again
#   tools/coverage.sh --files    also print each file's figures
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
dir=build-cov
if [[ ${1:-} != --report && ${1:-} != --files ]]; then
    mkdir -p "$dir"
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DMTE_BUILD_BENCH=OFF \
        -DCMAKE_C_FLAGS=--coverage -DCMAKE_CXX_FLAGS=--coverage \
        -DCMAKE_EXE_LINKER_FLAGS=--coverage >"$dir/configure.log"
    cmake --build "$dir" -j 2 >"$dir/build.log"
    find "$dir" -name '*.gcda' -delete
    ctest --test-dir "$dir" -j 2 --timeout 300 -E package_install ${COV_CTEST_ARGS:-} >"$dir/ctest.log" || {
        grep -E 'tests passed|Failed|\*\*\*' "$dir/ctest.log" | tail -n 20 >&2
        echo "coverage: some tests failed (figures below count what ran)" >&2
    }
fi
summary=$(cat <<'PY'
import json, os, sys
root, mode = sys.argv[1], sys.argv[2]
excluded = ("tests/", "bench/", "tools/testagent/")
lines, branches = {}, {}
dec = json.JSONDecoder()
data = sys.stdin.read()
pos = 0
while True:
    while pos < len(data) and data[pos].isspace():
        pos += 1
    if pos >= len(data):
        break
    doc, pos = dec.raw_decode(data, pos)
    cwd = doc.get("current_working_directory", root)
    for f in doc["files"]:
        path = os.path.normpath(os.path.join(cwd, f["file"]))
        if not path.startswith(root + "/"):
            continue
        rel = path[len(root) + 1:]
        if rel.startswith(excluded) or rel.startswith("build"):
            continue
        for ln in f["lines"]:
            key = (rel, ln["line_number"])
            lines[key] = lines.get(key, False) or ln["count"] > 0
            for i, b in enumerate(x for x in ln["branches"] if not x["throw"]):
                bkey = key + (i,)
                branches[bkey] = branches.get(bkey, False) or b["count"] > 0
def pct(d):
    return 100.0 * sum(d.values()) / max(1, len(d))
if mode == "--files":
    for rel in sorted({k[0] for k in lines}):
        fl = {k: v for k, v in lines.items() if k[0] == rel}
        fb = {k: v for k, v in branches.items() if k[0] == rel}
        print(f"{rel:45s} lines {pct(fl):5.1f}% of {len(fl):5d}  branches {pct(fb):5.1f}% of {len(fb):5d}")
print(f"coverage: lines {pct(lines):.1f}% ({sum(lines.values())}/{len(lines)}), "
      f"branches {pct(branches):.1f}% ({sum(branches.values())}/{len(branches)}), "
      f"{len({k[0] for k in lines})} product files")
PY
)
find "$PWD/$dir" -name '*.gcda' -print0 |
    (cd "$dir" && xargs -0 -r -n 50 gcov -t --json-format -b 2>/dev/null) |
    python3 -c "$summary" "$PWD" "${1:-}"
