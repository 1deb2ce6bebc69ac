# What cpack makes: a Debian package for each component on Linux; for Windows, an archive with everything
# and an installer of the same files. Portable builds make an archive for any Linux, too.
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

set(CPACK_GENERATOR DEB)
if(QZ_OLDEST_GLIBC)
  set(CPACK_GENERATOR DEB TGZ)
  string(REPLACE aarch64 arm64 architecture ${CMAKE_SYSTEM_PROCESSOR})
  string(REPLACE x86_64 x64 architecture ${architecture})
  set(CPACK_ARCHIVE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION}-linux-${architecture})
  # Debian's own packages for x64 are those of the preset "release".
  if(architecture STREQUAL "x64")
    set(CPACK_GENERATOR TGZ)
  endif()
  set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package_archive.cmake)
endif()
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(QZ_OLDEST_GLIBC)
  # A test compares this with what the files need. dpkg-shlibdeps cannot read files for other processors.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libc6 (>= ${QZ_OLDEST_GLIBC})")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS})
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own

# qz_debian_package(component name section summary text)
macro(qz_debian_package component name section summary text)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${text}")
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} RENAME copyright
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endmacro()

set(library_package libqzhidapi${PROJECT_VERSION_MAJOR})
qz_debian_package(library ${library_package} libs "service library for USB hub controllers"
  "Finds USB hub controllers through their vendor HID interface, updates their firmware and reaches I2C peripherals, flash and GPIO lines behind them. Also contains the same library on virtual hubs, for tests without hardware.")
qz_debian_package(development libqzhidapi-dev libdevel
  "service library for USB hub controllers: development files"
  "Header, CMake and pkg-config files, documents and examples.")
qz_debian_package(tools qzhidapi-tools utils "tools for USB hub controllers"
  "Programs that service hubs and serve virtual hubs, and the udev rule that lets the user at the computer open hubs.")
qz_install_licences(${CMAKE_INSTALL_DATADIR}/doc/${library_package}/licences library EXCLUDE_FROM_ALL)
qz_install_licences(${CMAKE_INSTALL_DATADIR}/doc/qzhidapi-tools/licences tools EXCLUDE_FROM_ALL)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_TOOLS_DEPENDS library)  # hosts load it at run time

# A program that was built with this version runs with all later versions of the same soname.
set(shlibs ${PROJECT_BINARY_DIR}/install/shlibs)
file(WRITE ${shlibs}
  "libQzHidAPI ${PROJECT_VERSION_MAJOR} ${library_package} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${shlibs})
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/postinst)
include(CPack)
