# What cpack makes: for Windows, an archive with everything that is installed and an installer of the same
# files; of portable builds, an archive for any Linux.
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGE_VENDOR "The QzHidAPI authors")
set(CPACK_PACKAGE_CONTACT "${CPACK_PACKAGE_VENDOR}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/set_epoch.cmake)
set(CPACK_QZ_SOURCE_DATE_EPOCH "${QZ_SOURCE_DATE_EPOCH}")
# Independent of the umask.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" architecture)
  string(REPLACE amd64 x64 architecture ${architecture})
  set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-windows-${architecture})
  if(NOT CMAKE_HOST_WIN32)  # its tools are for Linux
    set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/windows/installer.cmake)
    string(REPLACE arm64 Arm64 CPACK_QZ_PROCESSOR ${architecture})  # as installers name it
  endif()
  include(CPack)
  return()
endif()

# Debian's own tools make its packages (packaging/debian/make.sh). They cannot find out what files for
# other processors need. A test compares this with what the files need.
if(QZ_OLDEST_GLIBC)
  string(REPLACE aarch64 arm64 architecture ${CMAKE_SYSTEM_PROCESSOR})
  string(REPLACE x86_64 x64 architecture ${architecture})
  file(WRITE ${PROJECT_BINARY_DIR}/install/portable.conf
    "processor=${CMAKE_SYSTEM_PROCESSOR}\narchitecture=${architecture}\nlibraries='libc6 (>= ${QZ_OLDEST_GLIBC})'\n")
  include(cmake/package_rpm.cmake)
  set(CPACK_GENERATOR TGZ)
  set(CPACK_COMPONENTS_ALL archive_library archive_development archive_tools archive_licence)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_PACKAGING_INSTALL_PREFIX /)
  set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-linux-${architecture})
  include(CPack)
endif()
# The licences of what is linked into the files go into each Debian package that has some.
qz_install_licences(${CMAKE_INSTALL_DATADIR}/doc/libqzhidapi${PROJECT_VERSION_MAJOR}/licences debian_library
  EXCLUDE_FROM_ALL)
qz_install_licences(${CMAKE_INSTALL_DATADIR}/doc/qzhidapi-tools/licences debian_tools EXCLUDE_FROM_ALL)
