# Cross-compiles for 64-bit ARM Linux with glibc,
# using Debian's g++-aarch64-linux-gnu:
#   cmake -S . -B build-aarch64 \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
# Take debian-cross.cmake, which this file includes, along with it.
set(ZELCLI_TRIPLE aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
