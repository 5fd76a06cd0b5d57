# Flags that every target of the tree is built with, and the helpers that add targets.

set(VORNEX_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(VORNEX_WERROR)
  list(APPEND VORNEX_WARNINGS -Werror)
endif()
# No lazy binding: calls between libraries go straight through the table.
add_compile_options(${VORNEX_WARNINGS} -fvisibility=hidden -fvisibility-inlines-hidden -fno-plt)

# Disks and files beyond 2 GiB on 32-bit machines too.
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(VORNEX_SANITIZE)
  add_compile_options(-fsanitize=${VORNEX_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${VORNEX_SANITIZE})
endif()

# Binaries of the build tree stand together, so that one directory is enough to run them.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

# An installed tree finds its own libraries wherever it stands; below /usr the system does.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

# vornex_library(NAME SOURCES...): one of the two shared libraries.
function(vornex_library name)
  add_library(${name} ${ARGN})
  add_library(vornex::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    POSITION_INDEPENDENT_CODE ON)
  # Calls inside a library stay inside it and can be inlined; nobody replaces single functions.
  target_compile_options(${name} PRIVATE -fno-semantic-interposition)
  if(BUILD_SHARED_LIBS)
    set(map ${PROJECT_SOURCE_DIR}/packaging/lib${name}.map)
    set(data ${PROJECT_SOURCE_DIR}/packaging/data.list)
    target_link_options(${name} PRIVATE -Wl,--version-script=${map} -Wl,--dynamic-list=${data})
    set_target_properties(${name} PROPERTIES LINK_DEPENDS "${map};${data}")
  endif()
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/libvornex>)
endfunction()
