# Read by cpack for each kind of package: what the archive for any Linux differs in.
if(CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_COMPONENTS_ALL archive_library archive_development archive_tools archive_licence)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_PACKAGING_INSTALL_PREFIX /)
  set(CPACK_PACKAGE_FILE_NAME ${CPACK_ARCHIVE_FILE_NAME})
endif()
