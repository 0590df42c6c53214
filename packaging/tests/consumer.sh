#!/usr/bin/env bash
# consumer.sh PREFIX WORK all|some|armhf: builds tests/consumer against the installation below
# PREFIX, runs what comes out, and compares all that it writes. `all` is every way there is; `some`
# has each compiler, standard, way to find the package and way to link once; `armhf` builds for
# that architecture and runs under emulation. `all` takes PREFIX for one that the loader does not
# search by itself.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source=$root/tests/consumer
armhf_libraries=$root/build/armhf-packages/usr/lib/arm-linux-gnueabihf

combinations() {
    case $1 in
        all) printf '%s\n' {g++,clang++}\ {17,20}\ {cmake,pkg-config}\ {shared,static} ;;
        some) printf '%s\n' "g++ 17 cmake static" "clang++ 20 pkg-config shared" ;;
        armhf)
            printf '%s\n' "arm-linux-gnueabihf-g++ 17 cmake shared" \
                "arm-linux-gnueabihf-g++ 20 pkg-config static"
            ;;
    esac
}

build_with_cmake() {
    local compiler=$1 standard=$2 linkage=$3 folder=$4 settings=()
    if [[ $compiler == arm-* ]]; then
        # The unpacked packages are no whole sysroot: the linker is told of them.
        settings+=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armhf.cmake"
            -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$armhf_libraries")
    else
        settings+=(-DCMAKE_CXX_COMPILER="$compiler")
    fi
    [[ $linkage == shared ]] || settings+=(-DCONSUMER_STATIC=ON)
    cmake -S "$source" -B "$folder" -G Ninja "${settings[@]}" \
        -DCMAKE_CXX_STANDARD="$standard" -DCMAKE_CXX_STANDARD_REQUIRED=ON \
        -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" \
        -Dtevalon-base_DIR="$libdir/cmake/tevalon-base" &&
        cmake --build "$folder"
}

build_with_pkg_config() {
    local compiler=$1 standard=$2 linkage=$3 folder=$4 asked=(tevalon-base) quoted flags
    [[ $linkage == shared ]] || asked=(--static tevalon-base-static)
    quoted=$(PKG_CONFIG_LIBDIR=$libdir/pkgconfig pkg-config --cflags --libs "${asked[@]}") || return
    # pkg-config escapes what a shell would take apart: the prefix may hold a space.
    eval "flags=($quoted)"
    [[ $compiler != arm-* ]] || flags+=("-L$armhf_libraries" "-Wl,-rpath-link,$armhf_libraries")
    mkdir -p "$folder" &&
        "$compiler" -std=c++"$standard" -Wall -Wextra -Wpedantic -Werror "$source/consumer.cpp" \
            "${flags[@]}" -o "$folder/consumer"
}

# The compiler refuses a log statement whose format does not fit, says so once, and has nothing
# against one that fits.
checks_formats() {
    local folder=$1 complaints
    cmake --build "$folder" --target right_formats &&
        ! cmake --build "$folder" --target wrong_formats >"$folder/formats.log" 2>&1 || return
    cat "$folder/formats.log"
    complaints=$(grep -c 'formats\.cpp:.*-W\(error[=,]\(-W\)\?\)\?format' "$folder/formats.log")
    [[ $complaints == 1 ]]
}

# A client that does not need the debug-output library itself starts where neither the loader nor
# the environment knows the prefix.
starts_without_help() {
    local folder=$1
    cmake --build "$folder" --target hub_client &&
        ! readelf -d "$folder/hub_client" | grep 'NEEDED.*libzor-debug' &&
        env -u LD_LIBRARY_PATH ZOR_DEBUG=off "$folder/hub_client"
}

links_shared_library() {
    readelf -d "$1" | grep -q 'NEEDED.*\[libtevalon-base\.so\.1\]'
}

run_consumer() {
    local compiler=$1 folder=$2 emulator=()
    if [[ $compiler == arm-* ]]; then
        emulator=(qemu-arm -L /usr/arm-linux-gnueabihf
            -E LD_LIBRARY_PATH="$libdir:$armhf_libraries")
    else
        emulator=(env LD_LIBRARY_PATH="$libdir")
    fi
    "${emulator[@]}" "$folder/consumer" >"$folder/output.txt" 2>"$folder/log.txt" &&
        diff -u "$source/expected_output.txt" "$folder/output.txt" &&
        # The client's own lines: the library's have tags of its own.
        grep -v -e '^\[EventDispatcher\]' -e '^\[B-LOG\]' "$folder/log.txt" |
        diff -u "$source/expected_log.txt" -
}

check() {
    local compiler=$1 standard=$2 way=$3 linkage=$4
    local folder=$work/$compiler-$standard-$way-$linkage
    "build_with_${way/-/_}" "$compiler" "$standard" "$linkage" "$folder" || return
    if [[ $way-$linkage == cmake-shared ]]; then
        checks_formats "$folder" || return
        [[ $kind != all ]] || starts_without_help "$folder" || return
    fi
    if [[ $linkage == shared ]]; then
        links_shared_library "$folder/consumer" || return
    else
        ! links_shared_library "$folder/consumer" || return
    fi
    run_consumer "$compiler" "$folder"
}

# Its own process, so that several run at once.
if [[ $1 == --check ]]; then
    libdir=$2 work=$3 kind=$4
    shift 4
    log=$work/$1-$2-$3-$4.log
    if check "$@" >"$log" 2>&1; then
        echo "consumer: C++$2 with $1, found by $3, $4: as expected"
        exit 0
    fi
    cat "$log" >&2
    echo "consumer: C++$2 with $1, found by $3, $4: FAILED" >&2
    exit 1
fi

mkdir -p "$2"
work=$(cd "$2" && pwd)
libdir=$(find "$(cd "$1" && pwd)" -name libtevalon-base.so -printf '%h')
[[ -n $libdir ]] || {
    echo "consumer: no libtevalon-base.so below $1" >&2
    exit 1
}
combinations "$3" | xargs -P "$(nproc)" -L 1 "${BASH_SOURCE[0]}" --check "$libdir" "$work" "$3"
