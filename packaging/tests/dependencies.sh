#!/usr/bin/env bash
# dependencies.sh PACKAGE LIBRARY: the versions that a package says it needs are as new as those
# of the symbols that its library uses, in each library that versions its symbols by its own
# releases.
set -euo pipefail

package=$1
library=$2
depends=$(dpkg-deb -f "$package" Depends)

stated() {
    sed -n "s/.*\b$1 (>= \([0-9.]*\)).*/\1/p" <<<"$depends"
}

# used PREFIX: the newest version of the symbols that the library takes from elsewhere.
used() {
    readelf --version-info --wide "$library" | sed -n '/needs section/,$p' |
        grep -o "Name: $1_[0-9.]*" | sed "s/.*_//" | sort -V | tail -1
}

# at_least PACKAGE VERSION: an empty version is none used.
at_least() {
    [[ -z $2 ]] || dpkg --compare-versions "$(stated "$1")" ge "$2" || {
        echo "dependencies: ${package##*/} uses symbols of $1 $2 and says '$depends'" >&2
        exit 1
    }
}

at_least libc6 "$(used GLIBC)"
at_least libgcc-s1 "$(used GCC)"
# The releases of GCC that brought these versions of libstdc++'s symbols.
case $(used GLIBCXX) in
    3.4.30) at_least libstdc++6 12 ;;
    3.4.29) at_least libstdc++6 11 ;;
    3.4.28 | 3.4.27 | 3.4.26) at_least libstdc++6 9 ;;
    3.4.25 | 3.4.24 | 3.4.23 | 3.4.22) at_least libstdc++6 6 ;;
    "" | 3.4.2? | 3.4.1? | 3.4.? | 3.4) at_least libstdc++6 4.9 ;;
    *)
        echo "dependencies: GLIBCXX_$(used GLIBCXX) is newer than this check knows" >&2
        exit 1
        ;;
esac
echo "dependencies: ${package##*/}: as expected"
