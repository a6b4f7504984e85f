# Convenience entry points; everything real is in CMake.
#   make demo    build and start the device shell in this terminal
#   make demo-board  boot an emulated ARM board with the device shell on its
#                serial console, started by BusyBox init, in this terminal
#   make check   build everything and run every test (what CI runs)
#   make deb     build the Debian packages for amd64 and armhf into build/deb*
#   make dist    write the release tarball of HEAD and its Buildroot hash file
#                into build/dist
#   make bench   measure zelcli against readline, libedit and the terminal floor,
#                update docs/bench.md
#   make format  reformat the sources with clang-format
#   make symbols rewrite cmake/zelcli.symbols from the built library, when the
#                exported interface is meant to change
# make check runs, in order: check-native check-static check-arm check-cross
# check-musl check-asan check-tsan check-fuzz check-portable check-board
# check-packages bench-smoke;
# each can be run on its own once the packages are there. CI then runs
# check-yocto with Yocto's tools (YOCTO=FOLDER) and check-buildroot with a
# Buildroot release (BUILDROOT=TARBALL).
# FUZZ_SECONDS sets how long check-fuzz runs each fuzz target.

BUILD ?= build
DIST ?= $(BUILD)/dist
VERSION := ${shell sed -n 's/^project(zelcli VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt}
JOBS ?= 2
CHECK_PACKAGES := cmake g++ make pkg-config libgtest-dev python3 clang-format clang-tidy \
  g++-arm-linux-gnueabihf qemu-user libgtest-dev:armhf clang \
  libclang-rt-14-dev valgrind libreadline-dev libedit-dev strace python3-matplotlib \
  dpkg-dev libstdc++6:armhf doxygen lintian qemu-system-arm googletest \
  g++-aarch64-linux-gnu g++-riscv64-linux-gnu g++-mips-linux-gnu musl-dev libc++-dev
SOURCES := $(shell git ls-files '*.cc' '*.h' '*.c' 2>/dev/null || find cli examples tests bench -name '*.cc' -o -name '*.h' -o -name '*.c')
ARM_TOOLCHAIN := cmake/toolchains/arm-linux-gnueabihf.cmake
# The other CPU families check-cross builds for, each with the toolchain file
# of its triple, and GoogleTest built from Debian's sources, since Debian has
# no GoogleTest package for some of them.
CROSS_TRIPLES := aarch64-linux-gnu riscv64-linux-gnu mips-linux-gnu
BUILDROOT_PACKAGES := make gcc g++ patch perl rsync cpio bc file unzip bzip2 xz-utils \
  g++-arm-linux-gnueabihf qemu-user python3-magic python3-flake8
# bitbake needs the en_US.UTF-8 locale, which locales-all brings ready-made.
YOCTO_PACKAGES := git python3 gawk chrpath cpio locales-all
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := session
TEST_BUILD := -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELCLI_BUILD_TESTS=ON -DZELCLI_BUILD_EXAMPLES=ON \
  -DZELCLI_WERROR=ON

.PHONY: demo demo-board check packages deb check-native check-static check-arm check-cross \
  $(addprefix check-cross-,$(CROSS_TRIPLES)) check-musl check-asan check-tsan \
  check-fuzz check-portable check-yocto check-board check-packages check-buildroot dist bench \
  bench-smoke bench-build format format-check symbols arm-static-shell

demo-board:
	@scripts/ensure-packages.sh cmake make g++-arm-linux-gnueabihf qemu-system-arm python3
	$(MAKE) arm-static-shell
	/usr/bin/python3 scripts/board.py $(BUILD)/armhf-debs $(BUILD)/demo-board \
	  $(BUILD)/arm-static/examples/device_shell

demo:
	@scripts/ensure-packages.sh cmake g++ make
	cmake -S . -B $(BUILD)/demo -DCMAKE_BUILD_TYPE=Release -DZELCLI_BUILD_EXAMPLES=ON >/dev/null
	cmake --build $(BUILD)/demo -j$(JOBS)
	$(BUILD)/demo/examples/device_shell

check: packages
	$(MAKE) format-check
	$(MAKE) check-native check-static check-arm check-cross check-musl check-asan check-tsan \
	  check-fuzz check-portable check-board check-packages bench-smoke

packages:
	@scripts/ensure-packages.sh $(CHECK_PACKAGES)

check-native:
	@echo "== native build and tests (optimised, NDEBUG, warnings as errors), API reference, guide"
	cmake -S . -B $(BUILD)/check $(TEST_BUILD) -DZELCLI_BUILD_DOCS=ON \
	  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
	cmake --build $(BUILD)/check -j$(JOBS)
	clang-tidy -p $(BUILD)/check --quiet cli/*.cc examples/*.cc
	cd $(BUILD)/check && ctest --output-on-failure
	@strip -o $(BUILD)/check/libzelcli.stripped $(BUILD)/check/libzelcli.so
	@echo "libzelcli.so stripped, x86-64: $$(stat -c %s $(BUILD)/check/libzelcli.stripped) bytes"
	@echo "API reference: $$(ls $(BUILD)/check/docs/html/*.html | wc -l) pages in $(BUILD)/check/docs/html"

check-static:
	@echo "== static library, built without dpkg, installed and built against"
	tests/install/install_test.sh . -DBUILD_SHARED_LIBS=OFF -DZELCLI_WERROR=ON

check-arm:
	@echo "== 32-bit ARM: cross build, whole suite under qemu-arm"
	cmake -S . -B $(BUILD)/arm -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) $(TEST_BUILD) >/dev/null
	cmake --build $(BUILD)/arm -j$(JOBS)
	cd $(BUILD)/arm && ctest --output-on-failure
	@arm-linux-gnueabihf-strip -o $(BUILD)/arm/libzelcli.stripped $(BUILD)/arm/libzelcli.so
	@echo "libzelcli.so stripped, 32-bit ARM: $$(stat -c %s $(BUILD)/arm/libzelcli.stripped) bytes"

check-cross: $(addprefix check-cross-,$(CROSS_TRIPLES))

$(addprefix check-cross-,$(CROSS_TRIPLES)): check-cross-%:
	@echo "== $*: cross build, GoogleTest from Debian's sources, whole suite under qemu-user"
	cmake -S /usr/src/googletest -B $(BUILD)/$*/googletest -DCMAKE_BUILD_TYPE=Release \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchains/$*.cmake -DBUILD_GMOCK=OFF \
	  -DCMAKE_INSTALL_PREFIX=$(abspath $(BUILD)/$*/googletest/installed) >/dev/null
	cmake --build $(BUILD)/$*/googletest -j$(JOBS) >/dev/null
	cmake --install $(BUILD)/$*/googletest >/dev/null
	cmake -S . -B $(BUILD)/$* -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/$*.cmake $(TEST_BUILD) \
	  -DCMAKE_PREFIX_PATH=$(abspath $(BUILD)/$*/googletest/installed) >/dev/null
	cmake --build $(BUILD)/$* -j$(JOBS)
	cd $(BUILD)/$* && ctest --output-on-failure

# Debian has no C++ runtime for musl, so this compiles the library and stops
# short of linking anything.
check-musl:
	@echo "== the library against musl's headers and libc++'s, warnings as errors"
	cmake -S . -B $(BUILD)/musl -DCMAKE_TOOLCHAIN_FILE=tests/musl/toolchain.cmake \
	  -DBUILD_SHARED_LIBS=OFF -DZELCLI_WERROR=ON >/dev/null
	cmake --build $(BUILD)/musl --target zelcli

check-asan:
	@echo "== AddressSanitizer and UndefinedBehaviorSanitizer, whole suite"
	cmake -S . -B $(BUILD)/asan $(TEST_BUILD) -DZELCLI_SANITIZE=address,undefined >/dev/null
	cmake --build $(BUILD)/asan -j$(JOBS)
	cd $(BUILD)/asan && ctest --output-on-failure

check-tsan:
	@echo "== ThreadSanitizer: StopRead() from another thread"
	cmake -S . -B $(BUILD)/tsan $(TEST_BUILD) -DZELCLI_SANITIZE=thread >/dev/null
	cmake --build $(BUILD)/tsan -j$(JOBS)
	cd $(BUILD)/tsan && ctest --output-on-failure -R StopRead

check-fuzz:
	@echo "== libFuzzer: each target for $(FUZZ_SECONDS) s from the seed corpus"
	cmake -S . -B $(BUILD)/fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBUILD_SHARED_LIBS=OFF -DZELCLI_BUILD_FUZZERS=ON \
	  -DZELCLI_WERROR=ON -DZELCLI_SANITIZE=fuzzer-no-link,address,undefined >/dev/null
	cmake --build $(BUILD)/fuzz -j$(JOBS)
	@for target in $(FUZZ_TARGETS); do \
	  mkdir -p $(BUILD)/fuzz/corpus-$$target && \
	  $(BUILD)/fuzz/fuzz/$${target}_fuzzer -max_total_time=$(FUZZ_SECONDS) -timeout=10 -print_final_stats=1 \
	    -artifact_prefix=$(BUILD)/fuzz/$$target- $(BUILD)/fuzz/corpus-$$target \
	    fuzz/corpus/$$target 2>$(BUILD)/fuzz/$$target.log || \
	    { tail -40 $(BUILD)/fuzz/$$target.log; exit 1; }; \
	  echo "$$target: $$(grep -o 'cov: [0-9]* ft: [0-9]*' $(BUILD)/fuzz/$$target.log | tail -1)," \
	    "$$(grep number_of_executed_units $(BUILD)/fuzz/$$target.log | grep -o '[0-9]*$$') runs"; \
	done

# Packages are built as Debian builds its own, -O2 with NDEBUG (CPack strips
# the debug information), with the /usr prefix; a cross build is told the
# multiarch library directory, which CMake only works out natively. The armhf
# C++ runtime must be installed for dpkg-shlibdeps to find its package.
deb:
	@command -v dpkg-deb >/dev/null || \
	  { echo "make deb: Debian packages not available: this machine has no dpkg" >&2; exit 1; }
	@scripts/ensure-packages.sh cmake g++ make dpkg-dev g++-arm-linux-gnueabihf libstdc++6:armhf
	cmake -S . -B $(BUILD)/deb -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
	cmake --build $(BUILD)/deb -j$(JOBS)
	cd $(BUILD)/deb && cpack >/dev/null
	cmake -S . -B $(BUILD)/deb-arm -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
	  -DCMAKE_INSTALL_LIBDIR=lib/arm-linux-gnueabihf >/dev/null
	cmake --build $(BUILD)/deb-arm -j$(JOBS)
	cd $(BUILD)/deb-arm && cpack >/dev/null
	@ls -l $(BUILD)/deb/*.deb $(BUILD)/deb-arm/*.deb

# Built and installed where dpkg is missing, and cross-built into a sysroot as
# Buildroot and Yocto build; the sysroot's Debian armhf packages are kept in
# $(BUILD)/armhf-debs between runs.
check-portable:
	@echo "== the README's quick start; without dpkg; cross-built into a sysroot, staged and built against"
	tests/install/readme_test.sh .
	tests/install/install_test.sh .
	tests/install/sysroot_test.sh . $(BUILD)/armhf-debs

# The meta-zelcli layer in a Yocto build of each series whose bitbake, OE-Core
# and meta-oe archives are in the folder YOCTO, with real bitbake, offline, in
# $(BUILD)/yocto; not part of make check, which needs nothing from outside the
# project. The recipe's run-ptest runs on the board (check-board).
check-yocto:
	@test -n "$(YOCTO)" || { echo "make check-yocto YOCTO=FOLDER-OF-ARCHIVES" >&2; exit 1; }
	@scripts/ensure-packages.sh $(YOCTO_PACKAGES)
	@echo "== Yocto: the layer in a build of each series, with bitbake"
	tests/yocto/layer_test.sh $(YOCTO) . $(BUILD)/yocto

# The device shell on the serial console of an emulated ARM board (Debian's
# armmp kernel under qemu-system-arm, BusyBox init), shared and linked
# statically; the board's Debian packages are kept in $(BUILD)/armhf-debs.
check-board:
	@echo "== ARM board: the device shell on the serial console, started by BusyBox init"
	cmake -S . -B $(BUILD)/check $(TEST_BUILD) >/dev/null
	cmake --build $(BUILD)/check -j$(JOBS) --target device_shell
	cmake -S . -B $(BUILD)/arm -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) $(TEST_BUILD) >/dev/null
	cmake --build $(BUILD)/arm -j$(JOBS) --target device_shell zelcli_tests
	$(MAKE) arm-static-shell
	arm-linux-gnueabihf-gcc -static -O2 -Wall -Werror -o $(BUILD)/arm-static/hangup tests/board/hangup.c
	/usr/bin/python3 tests/board/board_test.py $(BUILD)/check/examples/device_shell $(BUILD)/arm \
	  $(BUILD)/arm-static $(BUILD)/arm-static/hangup $(BUILD)/armhf-debs $(BUILD)/board

# The device shell for 32-bit ARM with everything linked in, as the board
# runs it.
arm-static-shell:
	cmake -S . -B $(BUILD)/arm-static -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) $(TEST_BUILD) \
	  -DBUILD_SHARED_LIBS=OFF -DCMAKE_EXE_LINKER_FLAGS=-static >/dev/null
	cmake --build $(BUILD)/arm-static -j$(JOBS) --target device_shell

check-packages: deb
	@echo "== Debian packages: linted, unpacked into a private root, built against"
	tests/package/package_test.sh $(BUILD)/deb $(BUILD)/deb-arm .

# A release of the commit checked out: $(DIST)/zelcli-VERSION.tar.gz, the
# same bytes each time for one commit, and $(DIST)/zelcli.hash, the hash file
# that a package of Buildroot's own tree needs for it.
dist:
	@mkdir -p $(DIST)
	git archive --format=tar --prefix=zelcli-$(VERSION)/ HEAD | gzip -9n >$(DIST)/zelcli-$(VERSION).tar.gz
	{ echo "# Locally calculated"; \
	  echo "sha256  $$(sha256sum <$(DIST)/zelcli-$(VERSION).tar.gz | cut -d' ' -f1)  zelcli-$(VERSION).tar.gz"; \
	  echo "sha256  $$(git show HEAD:LICENSE | sha256sum | cut -d' ' -f1)  LICENSE"; } >$(DIST)/zelcli.hash
	@cat $(DIST)/zelcli.hash

# The buildroot/ tree's package built by the Buildroot release in the tarball
# BUILDROOT for 32-bit ARM, in $(BUILD)/buildroot: from this checkout as
# BR2_EXTERNAL (shared and static), and from make dist's release as a package
# of Buildroot's own tree would download it. Not part of make check, which
# needs nothing from outside the project.
check-buildroot: dist
	@test -n "$(BUILDROOT)" || { echo "make check-buildroot BUILDROOT=buildroot-VERSION.tar.xz" >&2; exit 1; }
	@scripts/ensure-packages.sh $(BUILDROOT_PACKAGES)
	@echo "== Buildroot: the zelcli package for 32-bit ARM, from the checkout and from a release"
	tests/buildroot/buildroot_test.sh $(BUILDROOT) . $(DIST) $(BUILD)/buildroot

# The hosts on x86-64, optimised as a product would ship them, and the library
# for 32-bit ARM built for size, whose footprint the benchmark reports.
bench-build:
	cmake -S . -B $(BUILD)/bench -DCMAKE_BUILD_TYPE=Release -DZELCLI_BUILD_BENCH=ON \
	  -DZELCLI_BUILD_EXAMPLES=ON -DZELCLI_WERROR=ON >/dev/null
	cmake --build $(BUILD)/bench -j$(JOBS)
	cmake -S . -B $(BUILD)/arm-size -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) \
	  -DCMAKE_BUILD_TYPE=MinSizeRel >/dev/null
	cmake --build $(BUILD)/arm-size -j$(JOBS)

bench: packages bench-build
	/usr/bin/python3 bench/bench.py $(BUILD)/bench $(BUILD)/arm-size --docs docs/bench.md

# A few hundred keys through every host and tool; checks the device shell's
# system calls per byte read, never a time.
bench-smoke: bench-build
	@echo "== benchmark smoke run"
	/usr/bin/python3 bench/bench.py $(BUILD)/bench $(BUILD)/arm-size --smoke \
	  --out $(BUILD)/bench/smoke-results

format:
	clang-format -i $(SOURCES)

symbols:
	cmake -S . -B $(BUILD)/check $(TEST_BUILD) >/dev/null
	cmake --build $(BUILD)/check -j$(JOBS) --target zelcli
	nm -D --defined-only -C $(BUILD)/check/libzelcli.so | cut -d' ' -f3- | LC_ALL=C sort -u \
	  >cmake/zelcli.symbols

format-check:
	clang-format --dry-run --Werror $(SOURCES)
