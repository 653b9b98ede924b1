# The headers that callers include and `cmake --install` copies. A header of src/Z is private when
# its name has an underscore; three C headers are named after what they declare and are public.
function(zfc_public_headers result)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/Z/*.h)
  set(public)
  foreach(header IN LISTS headers)
    cmake_path(GET header FILENAME name)
    if(NOT name MATCHES "_" OR name MATCHES "^(zproperties_c|zinet_pton|zinet_ntop)\\.h$")
      list(APPEND public ${header})
    endif()
  endforeach()
  set(${result} ${public} PARENT_SCOPE)
endfunction()
