SUMMARY = "Base utilities of a television set's web-browser engine"
SECTION = "libs"
LICENSE = "CLOSED"

inherit cmake pkgconfig externalsrc

# The repository that this layer lies in. A layer of yours that holds a copy of this recipe names
# its own source instead.
EXTERNALSRC ?= "${@os.path.normpath(os.path.join(d.getVar('THISDIR'), '../../../..'))}"

DEPENDS = "util-linux-libuuid"

# Without the substitute, the platform's own libzor-debug.so is linked: ZOR_DEBUG_RECIPE names the
# recipe that brings it.
ZOR_DEBUG_RECIPE ?= "virtual/libzor-debug"
PACKAGECONFIG ??= ""
PACKAGECONFIG[substitute] = "-DTEVALON_BASE_BUILD_ZOR_DEBUG=ON,-DTEVALON_BASE_BUILD_ZOR_DEBUG=OFF -DTEVALON_BASE_ZOR_DEBUG_LIBRARY=${STAGING_LIBDIR}/libzor-debug.so,,"
DEPENDS += "${@bb.utils.contains('PACKAGECONFIG', 'substitute', '', d.getVar('ZOR_DEBUG_RECIPE'), d)}"

EXTRA_OECMAKE = " \
    -DTEVALON_BASE_BUILD_STATIC=ON \
    -DTEVALON_BASE_BUILD_TESTS=OFF \
    -DTEVALON_BASE_BUILD_EXAMPLES=OFF \
    -DTEVALON_BASE_BUILD_BENCHMARKS=OFF \
"

PACKAGE_BEFORE_PN = "zor-debug zor-debug-dev ${PN}-tools"

# The substitute's library has no version in its name; it is not a link for developers.
FILES:zor-debug = "${libdir}/libzor-debug.so"
FILES:zor-debug-dev = " \
    ${includedir}/tevalon/zor_debug/zor_debug_control.h \
    ${libdir}/cmake/tevalon-base/zor-debug-targets*.cmake \
"
FILES:${PN} = "${libdir}/libtevalon-base.so.*"
# For an image in which something is looked for: recordings, the library to be preloaded, and what
# explains logs, in Python.
FILES:${PN}-tools = " \
    ${bindir}/tevalon-explain \
    ${bindir}/tevalon-trace \
    ${datadir}/bash-completion \
    ${datadir}/tevalon-base/lnav \
    ${datadir}/tevalon-base/messages.toml \
    ${datadir}/tevalon-base/page \
    ${datadir}/tevalon-base/tevalon_explain \
    ${datadir}/tevalon-base/tevalon_trace \
    ${libdir}/tevalon-base/libtevalon-record.so \
"
FILES:${PN}-dev = " \
    ${includedir}/tevalon/base \
    ${includedir}/tevalon/testkit \
    ${includedir}/tevalon/zor_debug/zor_debug.h \
    ${libdir}/libtevalon-base.so \
    ${libdir}/cmake/tevalon-base/FindUuid.cmake \
    ${libdir}/cmake/tevalon-base/TevalonExplored.cmake \
    ${libdir}/cmake/tevalon-base/TevalonKit.cmake \
    ${libdir}/cmake/tevalon-base/tevalon-base-config*.cmake \
    ${libdir}/cmake/tevalon-base/tevalon-base-targets*.cmake \
    ${libdir}/cmake/tevalon-base/tevalon-base-static-targets*.cmake \
    ${libdir}/cmake/tevalon-base/tevalon-kit-targets*.cmake \
    ${libdir}/cmake/tevalon-base/tevalon-testkit-targets*.cmake \
    ${libdir}/pkgconfig/tevalon-base.pc \
    ${libdir}/pkgconfig/tevalon-base-static.pc \
    ${datadir}/gdb/auto-load \
    ${datadir}/tevalon-base/gdb \
"
# The last, and what goes with it, only for 64-bit systems, and where it is asked for.
FILES:${PN}-staticdev = " \
    ${libdir}/libtevalon-base.a \
    ${libdir}/libtevalon-kit.a \
    ${libdir}/libtevalon-testkit.a \
"
FILES:${PN}-doc = "${docdir}/tevalon-base ${mandir}/man1/tevalon-explain.1 ${mandir}/man1/tevalon-trace.1"

INSANE_SKIP:zor-debug = "dev-so"
# tevalon-trace --html needs npm and esbuild where it is built, which builds without a network do not
# have.
RDEPENDS:${PN}-tools += "python3-modules"
RDEPENDS:zor-debug-dev = "zor-debug (= ${EXTENDPKGV})"
