# Cross-compiles for 32-bit ARM Linux with glibc, hard-float ABI, using
# Debian's g++-arm-linux-gnueabihf:
#   cmake -S . -B build-arm \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ZELCLI_ARM_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${ZELCLI_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ZELCLI_ARM_TRIPLE}-g++)

# Debian installs the target's libraries and headers under this root.
set(CMAKE_FIND_ROOT_PATH /usr/${ZELCLI_ARM_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Lets ctest run target programs under user-mode emulation when it is there.
find_program(ZELCLI_QEMU_ARM qemu-arm)
if(ZELCLI_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZELCLI_QEMU_ARM} -L /usr/${ZELCLI_ARM_TRIPLE})
endif()
