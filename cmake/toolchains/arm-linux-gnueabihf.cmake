# Cross-compiles for 32-bit ARM Linux (hard-float ABI) with glibc,
# using Debian's g++-arm-linux-gnueabihf:
#   cmake -S . -B build-arm \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
# Take debian-cross.cmake, which this file includes, along with it.
set(ZELCLI_TRIPLE arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
