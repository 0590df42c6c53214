#!/usr/bin/env bash
# getting_started.sh PREFIX WORK: does what docs/getting-started.md tells, away from this tree, with
# the installation below PREFIX for the one that it has its reader make; its commands as they stand.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
page=$root/docs/getting-started.md
prefix=$(cd "$1" && pwd)
rm -rf "$2"
mkdir -p "$2/home"
work=$(cd "$2" && pwd)
ln -s "$prefix" "$work/home/tevalon"
cp -r "$root/examples/getting_started" "$work/project"

fail() {
    cat "$work"/*.log >&2
    echo "getting started: $*: FAILED" >&2
    exit 1
}

# commands NUMBER: the page's block of commands of that number; the first one builds the library.
commands() {
    awk -v number="$1" '
        /^```sh$/ { inside = ++count == number; next }
        /^```/ { inside = 0 }
        inside' "$page"
}

for number in 2 3; do
    commands "$number" >"$work/commands.sh"
    [[ -s $work/commands.sh ]] || fail "finding the page's commands"
    env -C "$work/project" HOME="$work/home" bash -ec "$(<"$work/commands.sh")" \
        >"$work/$number.log" 2>&1 || fail "running the page's commands"
done
grep -qx 'asked for channel 3, the tuner replied 3' "$work/2.log" || fail "asking the tuner"
grep -q '100% tests passed' "$work/3.log" || fail "testing the tuner"
grep -q 'TwoRemotesAtOnce .* exhausted at 1' "$work/3.log" || fail "exploring the tuner"

# Without the reply that the page has its reader take out, the wait is found that never ends.
sed -i '/event->replyResult(m_shown)/d' "$work/project/tuner.cpp"
cmake --build "$work/project/build" --target tuner_scenarios >"$work/4.log" 2>&1 ||
    fail "building it without the reply"
! "$work/project/build/tuner_scenarios" --no-races >"$work/5.log" 2>&1 ||
    fail "finding the wait that never ends"
grep -q '::tune$' "$work/5.log" || fail "naming the wait that never ends"
echo "getting started: the page's project is built, tested and explored as it says"
