#!/usr/bin/env bash
# platform_library.sh BUILD WORK: a set's image has the platform's libzor-debug.so and not the
# substitute. Installs the components of such an image, and builds and runs tests/consumer against
# them in each way that an integrator has to name the platform's library.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source=$root/tests/consumer
build=$1
mkdir -p "$2"
work=$(cd "$2" && pwd)
prefix=$work/image
platform=$work/platform/lib

say() { echo "platform library: $*"; }

fail() {
    [[ ! -s $work/log ]] || cat "$work/log" >&2
    say "$*: FAILED" >&2
    exit 1
}

install_image() {
    local component
    for component in runtime development; do
        cmake --install "$build" --prefix "$prefix" --component "$component" || return
    done
    libdir=$(find "$prefix" -name libtevalon-base.so -printf '%h')
    [[ -z $(find "$prefix" -name 'libzor*' -o -name 'zor_debug_control.h' -o -name 'zor-*') ]]
}

# Like many a platform's, it has no SONAME.
build_platform_library() {
    mkdir -p "$platform"
    gcc -shared -fPIC -I "$prefix/include/tevalon" "$source/platform_zor_debug.c" \
        -o "$platform/libzor-debug.so"
}

configure() {
    cmake -S "$source" -B "$work/$1" -G Ninja -Dtevalon-base_DIR="$libdir/cmake/tevalon-base" "${@:2}"
}

# Every line of the client went through the platform's library, found at run time by its name.
runs_with_platform() {
    local program=$1
    readelf -d "$program" | grep -q 'NEEDED.*\[libzor-debug\.so\]' &&
        LD_LIBRARY_PATH=$platform:$libdir "$program" 2>"$work/consumer.log" \
            >"$work/consumer.output" &&
        diff -u "$source/expected_output.txt" "$work/consumer.output" &&
        sed 's/^/platform: /' "$source/expected_log.txt" |
        diff -u - <(grep -v -e '^platform: \[EventDispatcher\]' -e '^platform: \[B-LOG\]' \
            "$work/consumer.log")
}

named_by_the_cache_variable() {
    configure named -DTEVALON_BASE_ZOR_DEBUG_LIBRARY="$platform/libzor-debug.so" "$@" &&
        cmake --build "$work/named" && runs_with_platform "$work/named/consumer"
}

named_for_the_static_library() {
    named_by_the_cache_variable -DCONSUMER_STATIC=ON
}

found_where_libraries_are_searched() {
    configure searched -DCMAKE_PREFIX_PATH="${platform%/lib}" &&
        cmake --build "$work/searched" && runs_with_platform "$work/searched/consumer"
}

named_to_pkg_config() {
    local quoted flags
    quoted=$(PKG_CONFIG_LIBDIR=$libdir/pkgconfig pkg-config --cflags --libs tevalon-base) &&
        eval "flags=($quoted)" &&
        g++ -std=c++17 "$source/consumer.cpp" "${flags[@]}" -L"$platform" -o "$work/consumer" &&
        runs_with_platform "$work/consumer"
}

missing_it_is_said_clearly() {
    ! configure missing >"$work/missing.log" 2>&1 &&
        tr -s ' \n' ' ' <"$work/missing.log" |
        grep -q "The platform's libzor-debug.so was not found. Name it with -DTEVALON_BASE_ZOR_DEBUG_LIBRARY=FILE, or install the substitute."
}

install_desk() {
    desk=$work/desk
    cmake --install "$build" --prefix "$desk"
}

named_although_the_substitute_is_installed() {
    libdir=${libdir/#$prefix/$desk} named_by_the_cache_variable --fresh &&
        ! grep -q "$desk/[^ ]*libzor-debug" "$work/named/build.ninja"
}

swapped_in_at_load_time() {
    cmake -S "$source" -B "$work/swapped" -G Ninja -DCMAKE_PREFIX_PATH="$desk" \
        -DCMAKE_SKIP_RPATH=ON &&
        cmake --build "$work/swapped" && runs_with_platform "$work/swapped/consumer"
}

install_image >"$work/log" 2>&1 || fail "installing without the substitute"
install_desk >"$work/log" 2>&1 || fail "installing with the substitute"
build_platform_library >"$work/log" 2>&1 || fail "building the platform's library"
for way in named_by_the_cache_variable named_for_the_static_library \
    found_where_libraries_are_searched named_to_pkg_config missing_it_is_said_clearly \
    named_although_the_substitute_is_installed swapped_in_at_load_time; do
    "$way" >"$work/log" 2>&1 || fail "${way//_/ }"
    say "${way//_/ }: as expected"
done
