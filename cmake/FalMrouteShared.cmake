# libFalMroute.so, the library chip agents load, and its installation.
#
# The shared library is made of the FalMroute archive and of the platform
# stand-ins (platform/), taken whole: a chip agent gets one copy of the
# framework (the event loop, clocks, trace handles, type registrations) and
# of the platform types its hooks take, inside the library that uses them,
# with nothing to link beside it but abseil. Everything is compiled with
# hidden visibility; what chip agents are offered carries FALMROUTE_EXPORT
# (platform/vex/Export.h), so the exported symbols are what the installed
# headers declare, and nothing of the simulator, the kernel chip or the
# tools is in it.
#
# Installed (cmake --install, under the prefix):
#   lib/libFalMroute.so.1.0.0, its soname link libFalMroute.so.1 and the
#       development link libFalMroute.so;
#   include/FalMroute/{platform,model,sync,async,recovery}/...: the headers a
#       chip agent includes, relative to include/FalMroute as in this tree
#       ("model/MrouteSmHelper.h");
#   lib/cmake/FalMroute/: the package for find_package(FalMroute CONFIG),
#       giving the target FalMroute::FalMroute;
#   lib/pkgconfig/falmroute.pc: the same for pkg-config;
#   share/doc/FalMroute/: the guide for chip-agent authors (docs/).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

add_library(FalMrouteShared SHARED)
add_library(FalMroute::FalMroute ALIAS FalMrouteShared)
set_target_properties(FalMrouteShared PROPERTIES
  OUTPUT_NAME FalMroute
  EXPORT_NAME FalMroute
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
# Made of the objects themselves, not of the archives: a module that nothing
# references still comes along, and every module registers its types when
# the library is loaded.
foreach(lib FalMroute ${FALMROUTE_PLATFORM})
  get_target_property(type ${lib} TYPE)
  if(NOT type STREQUAL "INTERFACE_LIBRARY")
    target_sources(FalMrouteShared PRIVATE $<TARGET_OBJECTS:${lib}>)
  endif()
endforeach()
target_link_libraries(FalMrouteShared
  PUBLIC absl::btree absl::flat_hash_map absl::flat_hash_set absl::inlined_vector absl::hash)
target_link_options(FalMrouteShared PRIVATE "LINKER:--no-undefined")
target_compile_features(FalMrouteShared INTERFACE cxx_std_20)
target_include_directories(FalMrouteShared INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/FalMroute>)
if(RAPIDJSON_INCLUDE_DIRS)
  target_include_directories(FalMrouteShared SYSTEM INTERFACE $<BUILD_INTERFACE:${RAPIDJSON_INCLUDE_DIRS}>)
endif()

if(FALMROUTE_TESTS)
  set(falmroute_archives $<TARGET_FILE:FalMroute>)
  foreach(lib ${FALMROUTE_PLATFORM})
    get_target_property(type ${lib} TYPE)
    if(NOT type STREQUAL "INTERFACE_LIBRARY")
      list(APPEND falmroute_archives $<TARGET_FILE:${lib}>)
    endif()
  endforeach()
  add_test(NAME exported_surface
    COMMAND ${PROJECT_SOURCE_DIR}/cmake/check-exports ${PROJECT_BINARY_DIR} $<TARGET_FILE:FalMrouteShared>
            ${falmroute_archives})
endif()

install(TARGETS FalMrouteShared EXPORT FalMrouteTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

# The headers: those of the platform and of the library, but for the ones
# only the library's own sources include (its trace macros and the default
# of a required hook).
set(FALMROUTE_PRIVATE_HEADERS
  model/RequiredHook.h
  sync/FalMrouteTrace.h
  async/AsyncMrouteTrace.h)
set(falmroute_exclude)
foreach(h ${FALMROUTE_PRIVATE_HEADERS})
  string(REPLACE "." "\\." h ${h})
  list(APPEND falmroute_exclude REGEX "/${h}$" EXCLUDE)
endforeach()
foreach(dir platform model sync async recovery)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/FalMroute
    FILES_MATCHING PATTERN "*.h" ${falmroute_exclude}
    PATTERN demo EXCLUDE)
endforeach()

set(falmroute_cmakedir ${CMAKE_INSTALL_LIBDIR}/cmake/FalMroute)
install(EXPORT FalMrouteTargets NAMESPACE FalMroute:: DESTINATION ${falmroute_cmakedir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/FalMrouteConfig.cmake.in
  ${PROJECT_BINARY_DIR}/FalMrouteConfig.cmake
  INSTALL_DESTINATION ${falmroute_cmakedir})
# Agents built against 1.x load any later 1.y.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/FalMrouteConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/FalMrouteConfig.cmake ${PROJECT_BINARY_DIR}/FalMrouteConfigVersion.cmake
  DESTINATION ${falmroute_cmakedir})

# pkg-config: the prefix is found from where the file lies, so an
# installation moved, or made with cmake --install --prefix, stays right.
file(RELATIVE_PATH falmroute_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" falmroute_pc_to_prefix "${falmroute_pc_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/falmroute.pc.in ${PROJECT_BINARY_DIR}/falmroute.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/falmroute.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
