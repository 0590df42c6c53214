#!/usr/bin/env bash
# versions.sh: the version stands in CMakeLists.txt; where it has to be repeated it is the same.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
version=$(sed -n 's/^project(tevalon-base VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
changes=$(sed -n 's/^## \[\([0-9.]*\)\] - [0-9]\{4\}-[0-9][0-9]-[0-9][0-9]$/\1/p' \
    "$root/CHANGELOG.md" | head -1)
recipe=$(find "$root/packaging/yocto" -name '*.bb' -printf '%f ')

[[ -n $version && $changes == "$version" && $recipe == "tevalon-base_$version.bb " ]] || {
    echo "versions: CMakeLists.txt has '$version', CHANGELOG.md '$changes'," \
        "packaging/yocto has '$recipe'" >&2
    exit 1
}
echo "versions: $version everywhere"
