# Uniform helpers for the project's libraries, so warnings, include layout and install
# rules are written once.
set(ZOR_WARNINGS -Wall -Wextra -Wshadow -Wmissing-declarations -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # MetaFlight elements have virtual operations and no virtual destructor, keeping the
  # layout engine code compiled against them expects: each is owned through a shared_ptr
  # made from its concrete type, which deletes it as that type.
  list(APPEND ZOR_WARNINGS -Wno-delete-non-abstract-non-virtual-dtor)
endif()

# zor_host_library(NAME SOURCES... [DEPENDS targets...])
# A stand-in for one closed library of the engine: shared, like the engine's own, so
# the plug-in and the host see one copy of every process-wide object.
function(zor_host_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  add_library(zorTerrain::${name} ALIAS ${name})
  target_compile_options(${name} PRIVATE ${ZOR_WARNINGS})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/host>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 0)
  install(TARGETS ${name} EXPORT zorTerrainTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  file(GLOB headers ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${name})
endfunction()
