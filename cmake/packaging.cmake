# Debian packages, made by `cpack -G DEB` in a build configured with
# -DCMAKE_INSTALL_PREFIX=/usr (so that the library lands in the multiarch
# directory):
#   libzelcli0      the shared library, named after its SONAME
#   libzelcli-dev   headers, zelcli.pc and the CMake package
# A cross build packages for the target's Debian architecture.

# The changelog's newest entry gives the package version, whose upstream part
# is the project's (release_files.cmake checks it).
file(STRINGS packaging/changelog newest LIMIT_COUNT 1)
string(REGEX MATCH "-([0-9]+)\\)" revision "${newest}")
set(ZELCLI_DEB_REVISION ${CMAKE_MATCH_1})
set(ZELCLI_DEB_VERSION ${PROJECT_VERSION}-${ZELCLI_DEB_REVISION})
set(ZELCLI_RUNTIME_PACKAGE libzelcli${PROJECT_VERSION_MAJOR})

# Only a Debian machine can make the packages: elsewhere configure says so and
# the rest of the build goes on without them, unless the packages are what
# the build is for (the presets deb and deb-arm).
option(ZELCLI_DEB_REQUIRED "Fail at configure time if the Debian packages cannot be made" OFF)
if(ZELCLI_DEB_REQUIRED)
  set(unavailable FATAL_ERROR)
else()
  set(unavailable STATUS)
endif()
if(CMAKE_CROSSCOMPILING)
  find_program(ZELCLI_DPKG_TOOL dpkg-architecture)
  set(ZELCLI_DPKG_ARGUMENTS -qDEB_HOST_ARCH -t "${CMAKE_LIBRARY_ARCHITECTURE}")
else()
  find_program(ZELCLI_DPKG_TOOL dpkg)
  set(ZELCLI_DPKG_ARGUMENTS --print-architecture)
endif()
if(NOT ZELCLI_DPKG_TOOL)
  message(${unavailable} "Debian packages not available: no dpkg on this machine")
  return()
endif()
execute_process(COMMAND ${ZELCLI_DPKG_TOOL} ${ZELCLI_DPKG_ARGUMENTS}
  OUTPUT_VARIABLE ZELCLI_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT ZELCLI_DEB_ARCH)
  message(${unavailable} "Debian packages not available: dpkg knows no Debian architecture for "
                 "'${CMAKE_LIBRARY_ARCHITECTURE}'")
  return()
endif()

# Debian wants each package's changelog, compressed reproducibly.
set(ZELCLI_DEB_CHANGELOG ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz)
execute_process(
  COMMAND gzip -9nc ${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog
  OUTPUT_FILE ${ZELCLI_DEB_CHANGELOG} COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/changelog)
# And each package's machine-readable copyright file.
install(FILES ${ZELCLI_DEB_CHANGELOG} packaging/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${ZELCLI_RUNTIME_PACKAGE}
  COMPONENT runtime EXCLUDE_FROM_ALL)
install(FILES ${ZELCLI_DEB_CHANGELOG} packaging/copyright
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libzelcli-dev
  COMPONENT development EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelcli)
set(CPACK_PACKAGE_VENDOR zelcli)
set(CPACK_PACKAGE_CONTACT
    "zelcli maintainers <maintainers@users.noreply.c-seed-8922eda5.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZELCLI_DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${ZELCLI_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${ZELCLI_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Both packages take their first line from the project's description.
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${ZELCLI_ABOUT}

This package contains the shared library.")
# dpkg-shlibdeps works out the C and C++ runtimes and their versions; the
# shlibs file lets packages built against this one depend on it in turn.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# dpkg runs ldconfig once after all packages of a run are in, not per package.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/packaging/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzelcli-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${ZELCLI_RUNTIME_PACKAGE} (= ${ZELCLI_DEB_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${ZELCLI_ABOUT}

This package contains the headers, the pkg-config file and the CMake package
(find_package(zelcli), target zelcli::zelcli).")

# dpkg-shlibdeps looks for the target's libraries in its multiarch directory.
set(ZELCLI_CPACK_ENV ${CMAKE_CURRENT_BINARY_DIR}/zelcli_cpack_env.cmake)
file(WRITE ${ZELCLI_CPACK_ENV} "set(ENV{DEB_HOST_ARCH} ${ZELCLI_DEB_ARCH})\n")
set(CPACK_PROJECT_CONFIG_FILE ${ZELCLI_CPACK_ENV})

include(CPack)
