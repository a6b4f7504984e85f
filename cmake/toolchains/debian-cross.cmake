# The part shared by the toolchain files beside it, for Debian's cross
# compilers (g++-TRIPLE). Each of those sets ZELCLI_TRIPLE and
# CMAKE_SYSTEM_PROCESSOR, then includes this file; a toolchain file of your
# own for another of Debian's triples can do the same.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ZELCLI_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ZELCLI_TRIPLE}-g++)

# The cross compiler's own root, then Debian's multiarch tree, where the
# development packages of another architecture (apt-get install
# libfoo-dev:armhf) put their files.
set(CMAKE_LIBRARY_ARCHITECTURE ${ZELCLI_TRIPLE})
set(CMAKE_FIND_ROOT_PATH /usr/${ZELCLI_TRIPLE} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${ZELCLI_TRIPLE}/pkgconfig:/usr/share/pkgconfig)
# Multiarch headers live in /usr/include next to the build machine's. Searched
# after the cross compiler's own, they can add headers but never replace the
# target's C library ones; listed as implicit, CMake never puts it in front.
set(CMAKE_CXX_FLAGS_INIT "-idirafter /usr/include")
set(CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES /usr/include)

# Lets ctest run target programs under user-mode emulation (Debian's
# qemu-user) when it is there. The programs load the C and C++ runtimes they
# were linked with, those of the cross compiler, even where Debian's C library
# for that architecture (another build of it) came in with multiarch packages.
find_program(ZELCLI_QEMU qemu-${CMAKE_SYSTEM_PROCESSOR})
if(ZELCLI_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZELCLI_QEMU} -L /usr/${ZELCLI_TRIPLE}
      -E LD_LIBRARY_PATH=/usr/${ZELCLI_TRIPLE}/lib)
endif()
