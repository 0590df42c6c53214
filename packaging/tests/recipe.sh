#!/usr/bin/env bash
# recipe.sh BUILD WORK: holds the FILES of the Yocto recipe against what is really installed: by the
# build in the folder BUILD, which has the substitute, and by one with the recipe's options that
# links a platform's library instead.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
recipe=$(find "$root/packaging/yocto" -name '*.bb')
build=$1
mkdir -p "$2"
work=$(cd "$2" && pwd)

build_for_platform() {
    local options
    mapfile -t options < <(sed -n '/^EXTRA_OECMAKE/,/^"/s/^ *\(-D[^ ]*\).*/\1/p' "$recipe")
    ((${#options[@]} > 0)) &&
        gcc -shared -fPIC -I "$root/platform/zor_debug/include" \
            "$root/tests/consumer/platform_zor_debug.c" -o "$work/libzor-debug.so" &&
        cmake -S "$root" -B "$work/build" -G Ninja "${options[@]}" \
            -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_CXX_FLAGS=-O0 \
            -DTEVALON_BASE_BUILD_ZOR_DEBUG=OFF \
            -DTEVALON_BASE_ZOR_DEBUG_LIBRARY="$work/libzor-debug.so" &&
        cmake --build "$work/build"
}

install_into() {
    env DESTDIR="$work/$1" cmake --install "$2" --prefix /usr
}

{
    install_into with-substitute "$build" && build_for_platform && install_into image "$work/build"
} >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
}
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[^=]*=//p' "$build/CMakeCache.txt")
"$here/recipe.py" "$recipe" "$work/with-substitute" "$libdir"
"$here/recipe.py" "$recipe" "$work/image" lib absent
