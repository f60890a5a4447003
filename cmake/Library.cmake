# SPDX-License-Identifier: Apache-2.0
# The library, static and shared, from the same objects, and how others find it.

set(objects $<TARGET_OBJECTS:reflyze_objects> ${house_objects})
add_library(reflyze_static STATIC ${objects})
set(library_targets reflyze_static)
if(REFLYZE_SHARED)
  add_library(reflyze_shared SHARED ${objects})
  reflyze_own(reflyze_shared)
  reflyze_shows(reflyze_shared ${PROJECT_SOURCE_DIR}/lib/reflyze.map)
  # Calls from one of its functions to another stay inside.
  target_link_options(reflyze_shared PRIVATE -Wl,-Bsymbolic-functions)
  if(NOT REFLYZE_SANITIZE)  # whose functions are in the program
    target_link_options(reflyze_shared PRIVATE -Wl,--no-undefined)
  endif()
  string(REGEX MATCH "^[0-9]+" soversion ${REFLYZE_LIBRARY_VERSION})
  set_target_properties(reflyze_shared PROPERTIES VERSION ${REFLYZE_LIBRARY_VERSION} SOVERSION ${soversion})
  list(APPEND library_targets reflyze_shared)
endif()
foreach(target ${library_targets})
  string(REPLACE reflyze_ "" name ${target})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME reflyze EXPORT_NAME ${name}
                        ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR} LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  target_compile_features(${target} INTERFACE cxx_std_17)
  target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${REFLYZE_HEADERS_DIR}>
                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  add_library(reflyze::${name} ALIAS ${target})
endforeach()
if(REFLYZE_SANITIZE)
  target_link_options(reflyze_static INTERFACE $<BUILD_INTERFACE:-fsanitize=${REFLYZE_SANITIZE}>)
endif()
if(REFLYZE_SHARED AND BUILD_SHARED_LIBS)
  add_library(reflyze::reflyze ALIAS reflyze_shared)
else()
  add_library(reflyze::reflyze ALIAS reflyze_static)
endif()

if(NOT REFLYZE_INSTALL)
  return()
endif()
include(CMakePackageConfigHelpers)
install(DIRECTORY ${REFLYZE_HEADERS_DIR}/reflyze DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/reflyze)
foreach(target ${library_targets})
  get_target_property(name ${target} EXPORT_NAME)
  install(TARGETS ${target} EXPORT reflyze_${name}_export
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT reflyze_${name}_export NAMESPACE reflyze:: FILE reflyze-${name}.cmake DESTINATION ${package_dir})
endforeach()
configure_package_config_file(cmake/reflyze-config.cmake.in ${PROJECT_BINARY_DIR}/cmake/reflyze-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/reflyze-config-version.cmake
                                 VERSION ${REFLYZE_LIBRARY_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/reflyze-config.cmake
        ${PROJECT_BINARY_DIR}/cmake/reflyze-config-version.cmake DESTINATION ${package_dir})
# From the file's own folder, so that what is installed may stand anywhere.
file(RELATIVE_PATH prefix_from_pc "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
file(RELATIVE_PATH libdir_from_prefix "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH includedir_from_prefix "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
configure_file(cmake/reflyze.pc.in ${PROJECT_BINARY_DIR}/cmake/reflyze.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/reflyze.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
