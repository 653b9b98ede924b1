# What `cmake --install` lays down: the shared library, public headers, codeset data, the CMake
# package, the pkg-config file and the manual. Components are runtime, development, tools and
# documentation; without one all of these are installed. The static library is asked for by name:
#   cmake --install BUILD --component static
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/public_headers.cmake)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zfc)

install(FILES ${zfc_public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Z)
install(DIRECTORY data/qcs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zfc/qcs
        COMPONENT runtime PATTERN .gitkeep EXCLUDE)

install(TARGETS zfc EXPORT zfc-targets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT zfc-targets NAMESPACE zfc:: DESTINATION ${package_dir})
install(TARGETS zfc_static EXPORT zfc-static-targets COMPONENT static EXCLUDE_FROM_ALL)
install(EXPORT zfc-static-targets NAMESPACE zfc:: DESTINATION ${package_dir}
        COMPONENT static EXCLUDE_FROM_ALL)

# The object of zfc::app, in an archive of its own.
install(TARGETS zfc_app EXPORT zfc-targets)

configure_package_config_file(cmake/zfc-config.cmake.in zfc-config.cmake
  INSTALL_DESTINATION ${package_dir}
  PATH_VARS CMAKE_INSTALL_DATADIR)
write_basic_package_version_file(zfc-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zfc-config.cmake ${PROJECT_BINARY_DIR}/zfc-config-version.cmake
        DESTINATION ${package_dir})

# Manual pages of the tools that are built.
foreach(tool zprop zlock)
  if(TARGET ${tool})
    install(FILES docs/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endif()
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/packages.cmake)

# The pkg-config file finds its prefix from where it lies, so an installed tree can be moved.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(cmake/zfc-app.pc.in zfc-app.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zfc-app.pc DESTINATION ${pc_dir})
set(pc_tag_flag)
if(NOT ZFC_TAG STREQUAL "")
  set(pc_tag_flag " -DZFC_TAG=${zfc_tag}")
endif()
configure_file(cmake/zfc.pc.in zfc.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zfc.pc DESTINATION ${pc_dir})

include(${CMAKE_CURRENT_LIST_DIR}/debugging.cmake)
