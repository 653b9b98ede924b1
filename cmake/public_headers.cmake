# The headers that callers include and `cmake --install` copies: those at the top of src/Z.
file(GLOB zfc_public_headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/Z/*.h)
