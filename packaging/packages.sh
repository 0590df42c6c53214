#!/usr/bin/env bash
# packages.sh [--quick]: makes the Debian packages of each architecture, twice, and tests them. What
# they need is installed and unpacked by `./run package`, which calls this. --quick: armhf's once; what
# makes two builds differ does so on either architecture.
set -euo pipefail

packaging=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$packaging/.." && pwd)
build=$root/build
tests=$packaging/tests
work=$build/package-tests
elsewhere=$build/package-again/another-folder/tevalon-base
is_quick=false
[[ ${1:-} != --quick ]] || is_quick=true

say() { printf 'package: %s\n' "$*" >&2; }

# quietly COMMAND...: shows what it writes only where it fails; then stops.
quietly() {
    local log=$build/package.$BASHPID.log
    "$@" >"$log" 2>&1 || {
        cat "$log" >&2
        say "failed: $*"
        exit 1
    }
    rm "$log"
}

# Times in packages are the day of the newest entry in CHANGELOG.md.
release_time() {
    date -u -d "$(sed -n 's/^## \[[0-9.]*\] - //p' "$root/CHANGELOG.md" | head -1)" +%s
}

# What is delivered has the script of tevalon-trace's page. A machine that cannot have it tests the
# packages without.
page_options=()
look_for_registry() {
    ! timeout 30 npm ping >/dev/null 2>&1 && ! timeout 30 npm ping >/dev/null 2>&1 || return 0
    say "LEFT OUT: the page of tevalon-trace: npm's registry is out of reach"
    page_options=(-DTEVALON_BASE_REQUIRE_TRACE_PAGE=OFF)
    export TEVALON_PACKAGES_WITHOUT_PAGE=1
}

# make_packages SOURCE ARCHITECTURE BUILD. CPack writes the umask into a package's outermost layer.
make_packages() {
    local source=$1 architecture=$2 folder=$3
    env -C "$source" cmake --preset "package-$architecture" -B "$folder" "${page_options[@]}" &&
        cmake --build "$folder" --parallel "$(nproc)" &&
        rm -f "$folder"/*.deb &&
        (umask 022 && cd "$folder" && SOURCE_DATE_EPOCH=$(release_time) cpack)
}

# Another folder, another depth, another time, other habits of the one who builds.
copy_elsewhere() {
    rm -rf "$build/package-again"
    mkdir -p "$elsewhere/build"
    tar -C "$root" --exclude=./build --exclude=./.git -c . | tar -C "$elsewhere" -x
    cp -al "$build/armhf-packages" "$elsewhere/build/armhf-packages"
}

make_packages_elsewhere() (
    umask 027
    export TZ=Asia/Tokyo LC_ALL=C.UTF-8
    make_packages "$elsewhere" "$1" "$elsewhere/build/of/$1"
)

compare_builds() {
    local architecture=$1 first=$build/package-$1 second=$elsewhere/build/of/$1 file compared=0
    while read -r file; do
        cmp "$first/$file" "$second/$file" || {
            say "not the same from two builds: $file ($architecture)"
            exit 1
        }
        ((++compared))
    done < <(cd "$first" && ls -- *.deb libtevalon-base.so.*.* libtevalon-base.a \
        platform/zor_debug/libzor-debug.so)
    # Seven packages, three libraries.
    ((compared == 10)) || {
        say "$compared files of two builds compared, not 10"
        exit 1
    }
    say "$architecture: libraries and packages of two builds are the same"
}

build_packages() {
    say "building and packing for $1"
    quietly make_packages "$root" "$1" "$build/package-$1"
    if [[ $1 == armhf && $is_quick == true ]]; then
        return
    fi
    quietly make_packages_elsewhere "$1"
    compare_builds "$1"
}

# Nothing of this is going to Debian, whose bug tracker the tag is about.
check_with_lintian() {
    lintian --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$@"
}

test_packages() {
    local architecture=$1 folder=$build/package-$1 machine=$work/$1/machine name library
    quietly check_with_lintian "$folder"/*.deb
    say "$architecture: lintian has nothing to say"
    "$tests/installation.sh" "$folder" "$architecture" "$machine"
    for name in libtevalon-base1=libtevalon-base.so.1 libzor-debug=libzor-debug.so; do
        library=$(find "$machine" -name "${name#*=}")
        "$tests/dependencies.sh" "$folder/${name%=*}"_*.deb "$(realpath "$library")"
    done
    "$tests/dependencies.sh" "$folder"/libtevalon-base-dev_*.deb \
        "$(find "$machine" -name libtevalon-record.so)"
}

test_installations() {
    local odd="$work/opt/an odd-prefix_1.2+x"
    quietly cmake --install "$build/package-amd64" --prefix "$odd"
    "$tests/links.sh" "$root"
    "$tests/links.sh" "$odd/share/doc/tevalon-base"
    "$tests/consumer.sh" "$odd" "$work/consumer-odd" all
    "$tests/consumer.sh" "$work/amd64/machine/usr" "$work/consumer-amd64" some
    "$tests/consumer.sh" "$work/armhf/machine/usr" "$work/consumer-armhf" armhf
    "$tests/explored.sh" "$work/amd64/machine/usr" "$work/explored"
    "$tests/kit.sh" "$work/amd64/machine/usr" "$work/kit" all
    "$tests/kit.sh" "$work/armhf/machine/usr" "$work/kit-armhf" armhf
    "$tests/getting_started.sh" "$work/amd64/machine/usr" "$work/getting-started"
    "$tests/platform_library.sh" "$build/package-amd64" "$work/platform"
    "$tests/recipe.sh" "$build/package-amd64" "$work/recipe"
}

collect() {
    rm -rf "$build/packages"
    mkdir -p "$build/packages"
    # One documentation for all architectures, and no matter from which build.
    quietly cmp "$build"/package-{amd64,armhf}/libtevalon-base-doc_*_all.deb
    cp "$build"/package-amd64/*.deb "$build/packages"
    cp "$build"/package-armhf/*_armhf.deb "$build/packages"
    (cd "$build/packages" && stat -c '%8s bytes  build/packages/%n' -- *.deb)
}

"$tests/versions.sh"
rm -rf "$work"
mkdir -p "$work"
look_for_registry
copy_elsewhere
build_packages amd64
# The tests of one architecture wait more than they work: the other is built beside them.
build_packages armhf &
trap 'jobs -p | xargs -r kill' EXIT
test_packages amd64
wait $!
test_packages armhf
test_installations
collect
say "all packages made and tested"
