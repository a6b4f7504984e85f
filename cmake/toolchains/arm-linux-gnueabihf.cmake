# Cross-compiles for 32-bit ARM Linux with glibc, hard-float ABI, using
# Debian's g++-arm-linux-gnueabihf:
#   cmake -S . -B build-arm \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ZELCLI_ARM_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${ZELCLI_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ZELCLI_ARM_TRIPLE}-g++)

# The cross compiler's own root, then Debian's multiarch tree, where armhf
# development packages (apt-get install libfoo-dev:armhf) put their files.
set(CMAKE_LIBRARY_ARCHITECTURE ${ZELCLI_ARM_TRIPLE})
set(CMAKE_FIND_ROOT_PATH /usr/${ZELCLI_ARM_TRIPLE} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR}
    /usr/lib/${ZELCLI_ARM_TRIPLE}/pkgconfig:/usr/share/pkgconfig)
# Multiarch headers live in /usr/include next to the build machine's. Searched
# after the cross compiler's own, they can add headers but never replace the
# target's C library ones; listed as implicit, CMake never puts it in front.
set(CMAKE_CXX_FLAGS_INIT "-idirafter /usr/include")
set(CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES /usr/include)

# Lets ctest run target programs under user-mode emulation when it is there.
# The programs load the C and C++ runtimes they were linked with, those of the
# cross compiler, even where Debian's armhf C library (another build of it)
# came in with multiarch packages.
find_program(ZELCLI_QEMU_ARM qemu-arm)
if(ZELCLI_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZELCLI_QEMU_ARM} -L /usr/${ZELCLI_ARM_TRIPLE}
      -E LD_LIBRARY_PATH=/usr/${ZELCLI_ARM_TRIPLE}/lib)
endif()
