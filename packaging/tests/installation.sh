#!/usr/bin/env bash
# installation.sh PACKAGES ARCHITECTURE ROOT: installs the packages with dpkg into a folder that
# stands for a machine's root, where this machine's own packages count as installed. Leaves them
# installed there.
set -euo pipefail

packages=$1
architecture=$2
mkdir -p "$3"
machine=$(cd "$3" && pwd)
state=$machine/var/lib/dpkg

say() { echo "installation: $*"; }

fail() {
    # The machine's packages are known here, their files are not.
    [[ ! -s $machine.log ]] || grep -v ': files list file for package ' "$machine.log" >&2 || true
    say "$*: FAILED" >&2
    exit 1
}

run_dpkg() {
    PATH=$PATH:/usr/sbin:/sbin fakeroot dpkg --root="$machine" --force-not-root "${options[@]}" \
        "$@" >"$machine.log" 2>&1
}

# archives PATTERN: the files of the packages whose names match.
archives() {
    find "$packages" -maxdepth 1 \( -name "$1_*_$architecture.deb" -o -name "$1_*_all.deb" \) | sort
}

options=()
mkdir -p "$state"/{info,updates,triggers}
if [[ $architecture == "$(dpkg --print-architecture)" ]]; then
    cp /var/lib/dpkg/status "$state/status"
else
    # Nothing of that architecture is installed here, so dependencies are not looked at.
    touch "$state/status"
    options=(--force-architecture --force-depends)
fi

mapfile -t image < <(archives libtevalon-base1)
mapfile -t all < <(archives '*')
((${#image[@]} == 1 && ${#all[@]} == 7)) || fail "finding the packages in $packages"

run_dpkg -i "${image[@]}" || fail "installing the runtime package alone, as an image does"
[[ -z $(find "$machine/usr" -name 'libzor*') ]] || fail "leaving the substitute out"
run_dpkg -i "${all[@]}" || fail "installing all packages"
while read -r library; do
    id=$(readelf -n "$library" | sed -n 's/.*Build ID: //p')
    [[ -f $machine/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug ]] ||
        fail "finding the debug information of $library"
done < <(find "$machine/usr/lib" -name 'lib*.so*' -type f -not -path '*/tevalon-base/*')
recorder=$(echo "$machine"/usr/lib/*/tevalon-base/libtevalon-record.so)
[[ -f $recorder ]] || fail "finding the recorder"
! readelf -S "$recorder" | grep -q '\.debug_info' || fail "finding no debug information in it"
# Written in Python, the same for every architecture.
recording=$(dirname "$0")/../../tests/tevalon_trace/killed_on_arm.recording
"$machine/usr/bin/tevalon-trace" --text "$recording" >"$machine.txt" && [[ -s $machine.txt ]] ||
    fail "showing a recording with the installed tool"
if [[ -z ${TEVALON_PACKAGES_WITHOUT_PAGE:-} ]]; then
    "$machine/usr/bin/tevalon-trace" --html -o "$machine.html" "$recording" ||
        fail "writing a page with the installed tool"
    grep -q "This script has these within" "$machine.html" || fail "finding the licences in the page"
    [[ -s $machine/usr/share/tevalon-base/page/page.licences ]] ||
        fail "finding them beside the script"
fi
# It finds its modules and its catalogue, and lnav its format.
explained=$("$machine/usr/bin/tevalon-explain" --summary <<<"[B-LOG] utils.cpp:177:rmDir(): dirPath is NULL.")
[[ $explained == "Most likely wrong: null argument; rmDir() returned -1"* ]] ||
    fail "running tevalon-explain: $explained"
format=$(readlink "$machine/etc/lnav/formats/tevalon_base/tevalon_base_log.json") &&
    [[ -f $machine$format ]] || fail "finding lnav's format"
! find "$machine/usr/lib" -type f -name 'lib*.so*' -exec readelf -d {} + |
    grep 'R\(UN\)\?PATH' || fail "finding no run path in the libraries"
# As on a machine of its own: there the scripts' folder has the libraries' absolute paths in it.
library=$(find "$machine/usr/lib" -name 'libtevalon-base.so.*.*.*')
loaded_from=$machine.auto-load
rm -rf "$loaded_from"
mkdir -p "$loaded_from${machine%/*}"
ln -s "$machine/usr/share/gdb/auto-load" "$loaded_from$machine"
shown=$(gdb-multiarch -nx -q -batch -iex 'set auto-load safe-path /' \
    -iex "set auto-load scripts-directory $loaded_from" \
    -iex "set debug-file-directory $machine/usr/lib/debug" "$library" \
    -ex 'python print(gdb.lookup_type("tevalon::base::activity::Activity"))' \
    -ex 'tevalon state' 2>&1) || true
[[ $shown == *'tevalon::base::activity::Activity'*'There is no process and no core.'* ]] ||
    fail "having gdb load its commands and the debug information: $shown"
run_dpkg --verify libtevalon-base1 libtevalon-base-dev libzor-debug || fail "verifying the files"
mapfile -t names < <(for file in "${all[@]}"; do dpkg-deb -f "$file" Package; done)
run_dpkg --purge "${names[@]}" || fail "removing the packages"
[[ -z $(find "$machine/usr" "$machine/etc" -not -type d 2>/dev/null) ]] || fail "removing every file"
run_dpkg -i "${all[@]}" || fail "installing all packages again"
say "$architecture: the runtime package alone, all of them, none, and all of them again: as expected"
