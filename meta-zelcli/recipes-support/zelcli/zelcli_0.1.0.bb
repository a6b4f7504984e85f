SUMMARY = "Interactive command line for embedded Linux hosts"
DESCRIPTION = "zelcli gives a host program an interactive command line on a \
text terminal: line editing, a history of the last 20 lines, Tab completion \
of command names and argc/argv dispatch, through standard input and output \
only."
HOMEPAGE = "https://git.c-seed-8922eda5.example/zelcli"
SECTION = "libs"

LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=49c7dcffaff1d042e4b3b0e8b7274f5c"

SRC_URI = "file://run-ptest"

# The source is the checkout this layer lives in, built as it stands: adding
# the layer builds the tree it came with and fetches nothing, online or
# offline. A product that builds a release instead clears EXTERNALSRC and
# names the release's commit, as the layer's README shows.
inherit cmake ptest externalsrc
EXTERNALSRC ?= "${@os.path.abspath(os.path.join(d.getVar('FILE_DIRNAME'), '../../..'))}"

PACKAGECONFIG ??= "${@bb.utils.contains('PTEST_ENABLED', '1', 'tests', '', d)}"
PACKAGECONFIG[examples] = "-DZELCLI_BUILD_EXAMPLES=ON,-DZELCLI_BUILD_EXAMPLES=OFF"
# A cross build without an emulator builds only the in-process tests, which
# the ptest runs on the target.
PACKAGECONFIG[tests] = "-DZELCLI_BUILD_TESTS=ON,-DZELCLI_BUILD_TESTS=OFF,googletest"

do_install_ptest() {
	install -m 0755 ${B}/tests/zelcli_tests ${D}${PTEST_PATH}/
}

PACKAGES =+ "${PN}-examples"
FILES:${PN}-examples = "${bindir}/minimal_shell ${bindir}/device_shell"
