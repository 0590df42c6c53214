#!/usr/bin/env bash
# abi.sh check|renew BUILD ARCHITECTURE: compares what the built libraries export, and the layout
# behind it, with what is recorded here for that architecture, and how they are linked; or records
# anew.
set -euo pipefail

abi=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$abi")
way=$1
build=$2
architecture=$3

# exported LIBRARY: a line for each exported symbol: its kind, as far as it is the same on every
# architecture, its name and its version.
exported() {
    nm --dynamic --defined-only --with-symbol-versions "$1" | cut -d' ' -f2- |
        sed -E 's/^[TW] /function /; s/^[BDRV] /data /; s/^u /unique /; s/^A /version /' |
        LC_ALL=C sort -k 2
}

describe() {
    abidw --suppressions "$abi/suppressions.ini" --headers-dir "$root/pubinc" --drop-private-types \
        --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs "$1"
}

check_symbols() {
    local library=$1 recorded=$2
    exported "$library" | diff --unified=0 --label recorded --label built "$recorded" - |
        { grep -v '^@@' || true; } | c++filt >&2 || {
        echo "abi: ${library##*/} exports other symbols than ${recorded##*/} says ($architecture)." >&2
        return 1
    }
}

# abidiff's status is a set of bits: 1 and 2 are its own failures, 4 is any change, 8 one that
# breaks programs that are installed.
check_description() {
    local recorded=$abi/tevalon-base.$architecture.abi built=$build/tevalon-base.abi status=0
    describe "$1" >"$built"
    abidiff --suppressions "$abi/suppressions.ini" "$recorded" "$built" >&2 || status=$?
    ((status == 0)) && return 0
    echo "abi: libtevalon-base.so differs from what is recorded ($architecture, see above)." >&2
    return 1
}

# How a shared library of ours is linked: loaded for good and bound at once, with nothing writable
# or executable that need not be.
check_linking() {
    local library=$1 headers expected
    headers=$(readelf --wide --dynamic --program-headers "$library")
    for expected in 'FLAGS_1.*NOW' 'FLAGS_1.*NODELETE' GNU_RELRO 'GNU_STACK.* RW '; do
        grep -q "$expected" <<<"$headers" || {
            echo "abi: ${library##*/} is not linked as it has to be: no '$expected' ($architecture)." >&2
            return 1
        }
    done
    ! grep TEXTREL <<<"$headers" || {
        echo "abi: ${library##*/} has text relocations ($architecture)." >&2
        return 1
    }
}

base=$build/libtevalon-base.so
zor_debug=$build/platform/zor_debug/libzor-debug.so
case $way in
    check)
        same=true
        check_symbols "$base" "$abi/tevalon-base.$architecture.symbols" || same=false
        check_symbols "$zor_debug" "$abi/zor-debug.symbols" || same=false
        check_description "$base" || same=false
        check_linking "$base" || same=false
        check_linking "$zor_debug" || same=false
        $same
        ;;
    renew)
        exported "$base" >"$abi/tevalon-base.$architecture.symbols"
        exported "$zor_debug" >"$abi/zor-debug.symbols"
        describe "$base" >"$abi/tevalon-base.$architecture.abi"
        ;;
    *)
        echo "usage: abi.sh check|renew BUILD ARCHITECTURE" >&2
        exit 2
        ;;
esac
