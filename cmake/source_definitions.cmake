# What single sources of the library are told, wherever they are compiled: such properties hold in
# one directory.
set_source_files_properties(${PROJECT_SOURCE_DIR}/src/Z/utility/zversion.cpp PROPERTIES
  COMPILE_DEFINITIONS ZFC_PROJECT_VERSION="${PROJECT_VERSION}")
# Where zfc_setup() looks: from the library's folder, and at the place of the installation.
set_source_files_properties(${PROJECT_SOURCE_DIR}/src/Z/utility/zsetup.cpp PROPERTIES
  COMPILE_DEFINITIONS
  "ZFC_DATA_FROM_LIBRARY=\"${zfc_lib_to_qcsdir}\";ZFC_DATA_INSTALLED=\"${zfc_qcsdir}\"")
