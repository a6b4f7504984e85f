# Cross-compiles for 64-bit RISC-V Linux with glibc,
# using Debian's g++-riscv64-linux-gnu:
#   cmake -S . -B build-riscv64 \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/riscv64-linux-gnu.cmake
# Take debian-cross.cmake, which this file includes, along with it.
set(ZELCLI_TRIPLE riscv64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR riscv64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
