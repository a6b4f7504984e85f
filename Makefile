# The names people and CI type; each runs CMake presets (CMakePresets.json),
# where everything is said. `cmake --workflow --preset NAME` runs the same.
#   make demo        build and start the device shell in this terminal
#   make demo-board  boot an emulated ARM board with the device shell on its
#                    serial console, started by BusyBox init, in this terminal
#   make packages    install the Debian packages make check needs (as root)
#   make check       build everything and run every test (what CI runs):
#                    each check-NAME below, in order
#   make check-NAME  one stage: the workflow preset NAME
#   make deb         the Debian packages for amd64 and armhf, in build/deb*
#   make dist        the release archive of HEAD and its Buildroot hash file,
#                    in build/release/dist
#   make bench       measure against readline, libedit and the terminal floor;
#                    rewrites docs/bench.md
#   make format      lay the sources out with clang-format
# CI also runs check-yocto YOCTO=FOLDER and check-buildroot BUILDROOT=FOLDER,
# with the archives of Yocto's and Buildroot's releases kept in FOLDER.

STAGES := native static portable arm board aarch64 riscv64 mips musl asan tsan fuzz packages \
  bench-smoke
export CMAKE_BUILD_PARALLEL_LEVEL ?= $(shell nproc)
MAKEFLAGS += --no-print-directory

.PHONY: demo demo-board packages check $(addprefix check-,$(STAGES)) deb dist bench format \
  check-yocto check-buildroot

demo:
	@scripts/ensure-packages.sh demo
	cmake --preset release >/dev/null && cmake --build --preset release
	build/release/examples/device_shell

demo-board:
	@scripts/ensure-packages.sh demo-board
	cmake --preset arm >/dev/null && cmake --build --preset arm --target demo-board

packages:
	@scripts/ensure-packages.sh check

check: packages
	@for stage in $(STAGES); do $(MAKE) check-$$stage || exit 1; done

$(addprefix check-,$(STAGES)): check-%:
	@echo "== $@"
	cmake --workflow --preset $*

deb:
	@scripts/ensure-packages.sh deb
	cmake --workflow --preset deb && cmake --workflow --preset deb-arm

dist:
	cmake --preset release >/dev/null && cmake --build --preset release --target dist

bench: packages
	cmake --workflow --preset bench

format:
	cmake --preset native >/dev/null && cmake --build --preset native --target format

# YOCTO and BUILDROOT name the folders of the releases' archives.
check-yocto:
	@scripts/ensure-packages.sh yocto
	YOCTO=$(abspath $(YOCTO)) cmake --workflow --preset yocto

check-buildroot:
	@scripts/ensure-packages.sh buildroot
	BUILDROOT=$(abspath $(BUILDROOT)) cmake --workflow --preset buildroot
