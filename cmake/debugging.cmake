# The printers of gdb, where it finds them by itself: below its auto-load folder under the path of
# the library, which is known when it is installed; and at one place for whoever loads them by hand.
file(CREATE_LINK ${PROJECT_SOURCE_DIR}/tools/gdb/zfc.py
     ${PROJECT_BINARY_DIR}/src/libzfc.so.${zfc_tag}-gdb.py SYMBOLIC)
cmake_path(IS_ABSOLUTE CMAKE_INSTALL_LIBDIR zfc_libdir_is_absolute)
set(zfc_installed_libdir "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}")
if(zfc_libdir_is_absolute)
  set(zfc_installed_libdir "${CMAKE_INSTALL_LIBDIR}")
endif()
set(zfc_gdb_autoload "${CMAKE_INSTALL_DATADIR}/gdb/auto-load${zfc_installed_libdir}")
install(FILES tools/gdb/zfc.py RENAME libzfc.so.${zfc_tag}-gdb.py
        DESTINATION "${zfc_gdb_autoload}")
install(FILES tools/gdb/zfc_objects.py DESTINATION "${zfc_gdb_autoload}")
install(FILES tools/gdb/zfc.py tools/gdb/zfc_objects.py
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zfc/gdb)
