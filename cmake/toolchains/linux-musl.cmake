# Compiles for Linux with musl as the C library: clang, musl's headers from
# Debian's musl-dev and LLVM's libc++ headers from libc++-dev, and no header
# of the build machine's glibc. Debian ships no C++ runtime built for musl,
# so nothing links: the compiler is checked by building a static library, and
# the only target worth building is the static zelcli library itself.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_HOST_SYSTEM_PROCESSOR})
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_SYSTEM_PROCESSOR}-linux-musl)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

execute_process(COMMAND clang++ -print-resource-dir OUTPUT_VARIABLE clang_headers
                OUTPUT_STRIP_TRAILING_WHITESPACE)
# In the order clang itself searches them. libc++ has to be told the C
# library, which it cannot tell from musl's headers.
set(CMAKE_CXX_FLAGS_INIT "-nostdinc -nostdinc++ -isystem /usr/include/c++/v1 \
-isystem ${clang_headers}/include -isystem /usr/include/${CMAKE_SYSTEM_PROCESSOR}-linux-musl \
-D_LIBCPP_HAS_MUSL_LIBC")
