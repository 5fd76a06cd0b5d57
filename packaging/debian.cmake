# Debian packages: libvornex5, libvornex-dev and vornex (cpack -G DEB, or ./run packages).
set(VORNEX_MAINTAINER "libvornex maintainers <maintainers@libvornex.invalid>" CACHE STRING
    "Name and address that packages are signed with")

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development program)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CONTACT "${VORNEX_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SOURCE libvornex)
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvornex5)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS libsasl2-modules)
# Libraries that are loaded when they are needed are in no list of the linker's.
get_property(late_libraries GLOBAL PROPERTY VORNEX_LATE_LIBRARIES)
foreach(library ${late_libraries})
  execute_process(COMMAND dpkg-query --search ${library}
    OUTPUT_VARIABLE owner RESULT_VARIABLE failed ERROR_QUIET)
  if(NOT failed AND owner MATCHES "^([^:]+):")
    list(APPEND late_packages ${CMAKE_MATCH_1})
  else()
    message(STATUS "No package has ${library}: Debian packages made here would not depend on it")
  endif()
endforeach()
list(JOIN late_packages ", " CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Linux platform services for C++, shared libraries
Libraries that tell programs what machine they run on and let them report
about it: operating system, processor, disks, PCI devices, kernel modules,
the system log, mail, dates, strict number conversion, and a regular
expression engine.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvornex-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "cmake, pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Linux platform services for C++, development files
Headers of libvornex and of the base layer libvorn, what CMake and
pkg-config need to find them, the manual page and example programs.")

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME vornex)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS pci.ids)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "tells what machine this is, from a shell
A program that puts the services of libvornex in a person's hands: a report
of the machine as text, as JSON or for Prometheus, versions of drivers,
partitions of disks and images, log lines, mail and regular expressions.")

# Exactly the libraries that were built with it.
set(own_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvornex5 ${own_version}")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "libvornex5 ${own_version}")

# Every package has its copyright and its changelog.
find_program(GZIP gzip REQUIRED)
configure_file(changelog.in changelog @ONLY)
add_custom_command(OUTPUT changelog.Debian.gz DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog
  COMMAND ${GZIP} -9nc ${CMAKE_CURRENT_BINARY_DIR}/changelog > changelog.Debian.gz)
add_custom_target(debian_changelog ALL DEPENDS changelog.Debian.gz)
foreach(package runtime:libvornex5 development:libvornex-dev program:vornex)
  string(REGEX MATCH "^([a-z]+):(.*)" package ${package})
  install(FILES copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CMAKE_MATCH_2} COMPONENT ${CMAKE_MATCH_1}
    EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
