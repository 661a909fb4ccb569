# Uniform helpers for the project's libraries, so warnings, include layout and install
# rules are written once.
set(ZOR_WARNINGS -Wall -Wextra -Wshadow -Wmissing-declarations -Woverloaded-virtual)

# Where the host stand-in's libraries are installed: a directory of their own, since
# names such as libmatrix.so or libgdb.so would collide with other software in lib/.
set(ZOR_HOST_LIBDIR ${CMAKE_INSTALL_LIBDIR}/zorTerrain)

# zor_host_library(NAME SOURCES... HEADERS... [DEPENDS targets...])
# A stand-in for one closed library of the engine: shared, like the engine's own, so
# the plug-in and the host see one copy of every process-wide object. HEADERS are the
# public ones, installed; the others stay in the source tree.
function(zor_host_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  add_library(zorTerrain::${name} ALIAS ${name})
  target_compile_options(${name} PRIVATE ${ZOR_WARNINGS})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/host>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
  install(TARGETS ${name} EXPORT zorTerrainTargets LIBRARY DESTINATION ${ZOR_HOST_LIBDIR})
  install(FILES ${ARG_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${name})
endfunction()

# zor_element_sources(FILES...)
# Files that destroy MetaFlight elements. Elements are the format's public structs:
# concrete, with virtual operations and a public destructor that is not virtual, so that
# their layout is what code compiled against them expects. Each is destroyed as its own
# class (a shared_ptr made from its concrete type, or a member), never through a base
# pointer; clang's warning about destroying such classes is off for these files alone.
function(zor_element_sources)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    set_source_files_properties(${ARGN} PROPERTIES
      COMPILE_OPTIONS -Wno-delete-non-abstract-non-virtual-dtor)
  endif()
endfunction()
