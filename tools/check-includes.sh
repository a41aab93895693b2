#!/usr/bin/env bash
# Fails when a product source includes a header of a higher layer, or reaches
# into another folder's private header. The layers and the reasons behind
# them are in docs/architecture.md; run by ctest as check_includes.
#
# Layers, lowest first:
#   0 records and platform   include/mte_types.h, platform/
#   1 shared                 the other headers of include/ (the message library,
#                            conversions, diagnostics, the store, ...), and the
#                            programs beside the daemon (agentx/, tools/)
#   2 tables                 trigger/, event/ (the tables and the actions' rows)
#   3 engine and actions     run/, event/mte_notify.cpp, event/mte_set.cpp
#   4 spine                  core/, channel/, store/
# A header's layer is that of the lowest layer allowed to include it; a
# source's is its folder's. A header in a folder other than include/ and
# platform/ is private to that folder.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

LAYER_NAMES=("records and platform" "shared" "tables" "engine and actions" "spine")

# Headers of include/ above the shared layer; any other include/ header is shared.
declare -A HEADER_LAYER=(
    [mte_types.h]=0
    [mte_trigger.h]=2 [mte_trigger_run.h]=2 [mte_bool.h]=2 [mte_exist.h]=2 [mte_thres.h]=2
    [mte_delta.h]=2 [mte_event.h]=2 [mte_obj.h]=2 [mte_notify.h]=2 [mte_set.h]=2
    [mte_scalar.h]=2
    [mte_run.h]=3 [mte_timer.h]=3 [mte_trap.h]=3
    [mte_core.h]=4 [mte_cfg.h]=4 [mte_tarn.h]=4
)

# Sources whose layer is not their folder's.
declare -A FILE_LAYER=(
    [channel/mte_msg.cpp]=1   # the message library, linked by every client
    [event/mte_notify.cpp]=3  # the notification action
    [event/mte_set.cpp]=3     # the set action
)

# Upward includes that a change under way removes ("file header"). An entry
# that no longer occurs fails the check too, so the list only shrinks.
ALLOWED=(
)

folder_layer() {
    case $1 in
        platform/*) echo 0 ;;
        include/*) header_layer "${1#include/}" ;;
        agentx/* | tools/*) echo 1 ;;
        trigger/* | event/*) echo 2 ;;
        run/*) echo 3 ;;
        core/* | channel/* | store/*) echo 4 ;;
    esac
}

header_layer() {
    echo "${HEADER_LAYER[$1]:-1}"
}

file_layer() {
    echo "${FILE_LAYER[$1]:-$(folder_layer "$1")}"
}

declare -A SEEN_ALLOWED=()
failures=0
fail() {
    echo "check-includes: $*"
    failures=$((failures + 1))
}

while IFS= read -r file; do
    dir=$(dirname "$file")
    from=$(file_layer "$file")
    while IFS= read -r name; do
        if [[ $name == */* ]]; then
            fail "$file includes \"$name\": a path into another folder"
            continue
        fi
        if [[ $dir != include && $dir != platform && -f $dir/$name ]]; then
            continue  # the folder's own private header
        elif [[ -f include/$name ]]; then
            to=$(header_layer "$name")
        elif [[ -f platform/$name ]]; then
            to=0
        else
            fail "$file includes \"$name\", found in neither its folder, include/ nor platform/"
            continue
        fi
        if ((to <= from)); then
            continue
        fi
        for entry in "${ALLOWED[@]}"; do
            if [[ $entry == "$file $name" ]]; then
                SEEN_ALLOWED[$entry]=1
                continue 2
            fi
        done
        fail "$file (${LAYER_NAMES[from]}) includes $name (${LAYER_NAMES[to]}): an upward include"
    done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$file")
done < <(find include platform agentx tools trigger event run core channel store \
    -name '*.h' -o -name '*.cpp' | sort)

for entry in "${ALLOWED[@]}"; do
    if [[ -z ${SEEN_ALLOWED[$entry]:-} ]]; then
        fail "the exception \"$entry\" no longer occurs: remove it from tools/check-includes.sh"
    fi
done

if ((failures)); then
    echo "check-includes: $failures problem(s); the rules are in docs/architecture.md"
    exit 1
fi
echo "check-includes: every include points downward"
