# The rest of what a package holds: the manual of files, locks, errors and C functions, the guides
# with the examples, and the target that takes an installation away again.

# One page tells of several functions; each name leads to it.
file(GLOB zfc_function_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.3)
install(FILES ${zfc_function_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3
        COMPONENT development)
foreach(page IN LISTS zfc_function_pages)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page})
  get_filename_component(page_name ${page} NAME)
  file(STRINGS ${page} names REGEX "^\\.Nm [A-Za-z0-9_]+")
  foreach(line IN LISTS names)
    string(REGEX REPLACE "^\\.Nm ([A-Za-z0-9_]+).*" "\\1" name "${line}")
    set(link ${PROJECT_BINARY_DIR}/man3/${name}.3)
    if(NOT "${name}.3" STREQUAL page_name)
      file(CONFIGURE OUTPUT ${link} CONTENT ".so man3/${page_name}\n")
      install(FILES ${link} DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
    endif()
  endforeach()
endforeach()

foreach(section 5 7)
  file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
          COMPONENT documentation)
endforeach()

set(zfc_doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/zfc)
install(DIRECTORY docs/ DESTINATION ${zfc_doc_dir}/docs COMPONENT documentation
        FILES_MATCHING PATTERN *.md PATTERN *.svg
        PATTERN man EXCLUDE PATTERN models EXCLUDE PATTERN site EXCLUDE)
file(GLOB guides CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/*.md)
install(FILES ${guides} DESTINATION ${zfc_doc_dir} COMPONENT documentation)
install(DIRECTORY examples DESTINATION ${zfc_doc_dir} COMPONENT documentation)

# Takes away what the last `cmake --install` of this build laid down, and of each component that was
# installed by itself. DESTDIR counts as it did there.
if(CMAKE_SOURCE_DIR STREQUAL PROJECT_SOURCE_DIR)
  set(zfc_own_directories
    ${CMAKE_INSTALL_INCLUDEDIR}/Z ${package_dir} ${zfc_doc_dir} ${CMAKE_INSTALL_DATADIR}/zfc)
  add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} "-DOWN=${zfc_own_directories}"
            -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
    VERBATIM)
endif()
