# Convenience entry points; everything real is in CMake.
#   make demo    build and start the device shell in this terminal
#   make check   build everything and run every test (what CI runs)
#   make format  reformat the sources with clang-format

BUILD ?= build
JOBS ?= 2
CHECK_PACKAGES := cmake g++ make pkg-config libgtest-dev libvterm-dev clang-format clang-tidy \
  g++-arm-linux-gnueabihf
SOURCES := $(shell git ls-files '*.cc' '*.h' 2>/dev/null || find cli examples tests -name '*.cc' -o -name '*.h')
ARM_TOOLCHAIN := cmake/toolchains/arm-linux-gnueabihf.cmake

.PHONY: demo check format format-check sizes

demo:
	@scripts/ensure-packages.sh cmake g++ make
	cmake -S . -B $(BUILD)/demo -DCMAKE_BUILD_TYPE=Release >/dev/null
	cmake --build $(BUILD)/demo -j$(JOBS)
	$(BUILD)/demo/examples/device_shell

check:
	@scripts/ensure-packages.sh $(CHECK_PACKAGES)
	$(MAKE) format-check
	@echo "== native build and tests (optimised, NDEBUG, warnings as errors)"
	cmake -S . -B $(BUILD)/check -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DZELCLI_BUILD_TESTS=ON -DZELCLI_WERROR=ON -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
	cmake --build $(BUILD)/check -j$(JOBS)
	clang-tidy -p $(BUILD)/check --quiet cli/*.cc examples/*.cc
	cd $(BUILD)/check && ctest --output-on-failure
	@echo "== static library, installed and built against"
	cmake -S . -B $(BUILD)/static -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBUILD_SHARED_LIBS=OFF -DZELCLI_WERROR=ON >/dev/null
	cmake --build $(BUILD)/static -j$(JOBS)
	tests/install/install_test.sh $(BUILD)/static . g++
	@echo "== 32-bit ARM cross build"
	cmake -S . -B $(BUILD)/arm -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELCLI_WERROR=ON >/dev/null
	cmake --build $(BUILD)/arm -j$(JOBS)
	$(MAKE) sizes

# Stripped size of the shared library of each build.
sizes:
	@strip -o $(BUILD)/check/libzelcli.stripped $(BUILD)/check/libzelcli.so
	@arm-linux-gnueabihf-strip -o $(BUILD)/arm/libzelcli.stripped $(BUILD)/arm/libzelcli.so
	@echo "libzelcli.so stripped, x86-64: $$(stat -c %s $(BUILD)/check/libzelcli.stripped) bytes"
	@echo "libzelcli.so stripped, 32-bit ARM: $$(stat -c %s $(BUILD)/arm/libzelcli.stripped) bytes"

format:
	clang-format -i $(SOURCES)

format-check:
	clang-format --dry-run --Werror $(SOURCES)
