#!/usr/bin/env bash
# explored.sh PREFIX WORK: builds examples/explored_modules, away from this tree, against the
# installation below PREFIX, and has the modules explored: those that are right, and those whose
# deadlock has to be found and told.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
libdir=$(find "$(cd "$1" && pwd)" -name libtevalon-base.so -printf '%h')
rm -rf "$2"
mkdir -p "$2"
work=$(cd "$2" && pwd)

fail() {
    cat "$work"/*.log >&2
    echo "explored: $*: FAILED" >&2
    exit 1
}

cp -r "$root/examples/explored_modules" "$work/client"
for compiler in g++ clang++; do
    folder=$work/$compiler
    cmake -S "$work/client" -B "$folder" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" \
        -Dtevalon-base_DIR="$libdir/cmake/tevalon-base" >"$work/configure.log" 2>&1 ||
        fail "configuring with $compiler"
    cmake --build "$folder" >"$work/build.log" 2>&1 || fail "building with $compiler"
    LD_LIBRARY_PATH=$libdir "$folder/modules_scenarios" --no-races >"$work/story.log" 2>&1 ||
        fail "exploring with $compiler"
    for part in 'ChannelChangeAndTitle .* exhausted at 2' 'client::Tuner::title' \
        'client::Guide::onChannelChanged' 'client::Tuner::onChannelAsked'; do
        grep -q "$part" "$work/story.log" || fail "finding '$part' in the story, with $compiler"
    done
done
echo "explored: the example's modules, and the deadlock of two of them: as expected"
