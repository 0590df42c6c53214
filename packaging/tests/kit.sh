#!/usr/bin/env bash
# kit.sh PREFIX WORK all|armhf: builds examples/tested_module, away from this tree, against the
# installation below PREFIX, and runs its tests: with each compiler, the shared and the static
# library, and under both sanitizers; or for armhf, under emulation.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
libdir=$(find "$(cd "$1" && pwd)" -name libtevalon-base.so -printf '%h')
armhf_libraries=$root/build/armhf-packages/usr/lib/arm-linux-gnueabihf
rm -rf "$2"
mkdir -p "$2"
work=$(cd "$2" && pwd)
kind=$3
cp -r "$root/examples/tested_module" "$work/client"

fail() {
    cat "$work"/*.log >&2
    echo "kit: $*: FAILED" >&2
    exit 1
}

# build FOLDER [SETTING...]
build() {
    local folder=$1
    shift
    cmake -S "$work/client" -B "$folder" -G Ninja -Dtevalon-base_DIR="$libdir/cmake/tevalon-base" \
        "$@" >"$work/configure.log" 2>&1 || fail "configuring $folder"
    cmake --build "$folder" >"$work/build.log" 2>&1 || fail "building $folder"
}

# run FOLDER LAUNCHER...: some tests, and all of them good.
run() {
    local folder=$1
    shift
    ZOR_DEBUG=off "$@" "$folder/signal_monitor_test" >"$work/run.log" 2>&1 || fail "running $folder"
    grep -q '\[  PASSED  \] 5 tests' "$work/run.log" || fail "finding the tests of $folder"
}

if [[ $kind == armhf ]]; then
    for static in OFF ON; do
        # The unpacked packages are no whole sysroot: the linker is told of them.
        build "$work/armhf-$static" -DTESTED_MODULE_STATIC=$static \
            -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armhf.cmake" \
            -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$armhf_libraries"
        run "$work/armhf-$static" qemu-arm -L /usr/arm-linux-gnueabihf \
            -E LD_LIBRARY_PATH="$libdir:$armhf_libraries"
    done
    echo "kit: the example's module on armhf, shared and static: as expected"
    exit 0
fi

# combination COMPILER STATIC SANITIZER
combination() {
    local folder=$work/$1-$2-$3 flags="-Wall -Wextra -Wpedantic -Werror"
    # What the sanitizers have in the standard headers draws warnings from GCC.
    [[ $3 == none ]] || flags="-g -fsanitize=$3"
    build "$folder" -DCMAKE_CXX_COMPILER="$1" -DCMAKE_CXX_FLAGS="$flags" -DTESTED_MODULE_STATIC="$2"
    run "$folder" env LD_LIBRARY_PATH="$libdir" setarch "$(uname -m)" -R
}
for sanitizer in none address,undefined thread; do
    combination g++ OFF $sanitizer
    combination g++ ON $sanitizer
    combination clang++ OFF $sanitizer
done
combination clang++ ON none
ctest --test-dir "$work/g++-ON-none" >"$work/ctest.log" 2>&1 || fail "running them by ctest"
grep -q '100% tests passed, 0 tests failed out of 5' "$work/ctest.log" || fail "finding them by ctest"
# A test that holds something wrong fails, and shows the log.
sed -i 's/EXPECT_THAT(log, LoggedTimes(1, Text("no signal")))/EXPECT_THAT(log, LoggedNoError())/' \
    "$work/client/signal_monitor_test.cpp"
cmake --build "$work/g++-OFF-none" >"$work/build.log" 2>&1 || fail "building what fails"
! LD_LIBRARY_PATH=$libdir "$work/g++-OFF-none/signal_monitor_test" >"$work/failure.log" 2>&1 ||
    fail "failing"
grep -q '(error) "\[monitor\]signal_monitor.cpp:[0-9]*:check:no signal\\n"' "$work/failure.log" ||
    fail "showing the log"
echo "kit: the example's module, with two compilers, shared and static, sanitized: as expected"
