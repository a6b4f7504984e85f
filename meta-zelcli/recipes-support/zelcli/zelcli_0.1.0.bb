SUMMARY = "Interactive command line for embedded Linux hosts"
DESCRIPTION = "zelcli gives a host program an interactive command line on a \
text terminal: line editing, a history of the last 20 lines, Tab completion \
of command names and argc/argv dispatch, through standard input and output \
only."
SECTION = "libs"

LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=49c7dcffaff1d042e4b3b0e8b7274f5c"

SRC_URI = "git://git.c-seed-8922eda5.example/zelcli.git;protocol=https;branch=main \
           file://run-ptest \
"
# This layer lives in the tree it builds and so cannot name its own commit: a
# product pins SRCREV to a release's commit, or builds a checkout with
# externalsrc.
SRCREV ?= "${AUTOREV}"
PV .= "+git"

S = "${WORKDIR}/git"

inherit cmake pkgconfig ptest

PACKAGECONFIG ??= ""
PACKAGECONFIG[examples] = "-DZELCLI_BUILD_EXAMPLES=ON,-DZELCLI_BUILD_EXAMPLES=OFF"

# A cross build without an emulator builds only the in-process tests, which
# run on the target.
EXTRA_OECMAKE += "${@bb.utils.contains('PTEST_ENABLED', '1', '-DZELCLI_BUILD_TESTS=ON', '', d)}"
DEPENDS += "${@bb.utils.contains('PTEST_ENABLED', '1', 'googletest', '', d)}"

do_install_ptest() {
	install -m 0755 ${B}/tests/zelcli_tests ${D}${PTEST_PATH}/
}

PACKAGES =+ "${PN}-examples"
FILES:${PN}-examples = "${bindir}/minimal_shell ${bindir}/device_shell"
