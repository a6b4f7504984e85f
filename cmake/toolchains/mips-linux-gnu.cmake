# Cross-compiles for 32-bit big-endian MIPS Linux with glibc,
# using Debian's g++-mips-linux-gnu:
#   cmake -S . -B build-mips \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/mips-linux-gnu.cmake
# Take debian-cross.cmake, which this file includes, along with it.
set(ZELCLI_TRIPLE mips-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR mips)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
