# What `cmake --install` installs and where, in the components "library", "development", "tools" and
# "licence". Portable builds also have it in the layouts of the archive for any Linux and of RPM packages,
# which `cmake --install` leaves alone: in components whose names begin with "archive_" and "rpm_".
include(CMakePackageConfigHelpers)
include(cmake/documents.cmake)

# Builds everything that is installed, and nothing else.
add_custom_target(installed)
if(WIN32 AND NOT MSVC)
  include(cmake/msvc_import_library.cmake)
endif()
include(cmake/licences.cmake)
if(QZ_BUILD_TOOLS)
  include(cmake/install_tools.cmake)
endif()

# qz_install_library(target layout bindir libdir [EXCLUDE_FROM_ALL])
function(qz_install_library target layout bindir libdir)
  install(TARGETS ${target} EXPORT ${layout}QzHidAPITargets
    RUNTIME DESTINATION ${bindir} COMPONENT ${layout}library ${ARGN}
    LIBRARY DESTINATION ${libdir} COMPONENT ${layout}library NAMELINK_COMPONENT ${layout}development ${ARGN}
    ARCHIVE DESTINATION ${libdir} COMPONENT ${layout}development ${ARGN}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  add_dependencies(installed ${target})
  if(WIN32 AND NOT MSVC)
    qz_install_msvc_import_library(${target} ${libdir})
  endif()
endfunction()

# qz_install_development(layout libdir virtual_libdir [EXCLUDE_FROM_ALL]): header, CMake and pkg-config
# files, and documents.
function(qz_install_development layout libdir virtual_libdir)
  set(component COMPONENT ${layout}development ${ARGN})
  set(folder ${PROJECT_BINARY_DIR}/install)
  set(config_folder ${libdir}/cmake/QzHidAPI)
  write_basic_package_version_file(${folder}/QzHidAPIConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES cmake/QzHidAPIConfig.cmake ${folder}/QzHidAPIConfigVersion.cmake
    DESTINATION ${config_folder} ${component})
  install(EXPORT ${layout}QzHidAPITargets FILE QzHidAPITargets.cmake NAMESPACE QzHidAPI::
    DESTINATION ${config_folder} ${component})

  file(RELATIVE_PATH prefix_from_pc /${libdir}/pkgconfig /)
  string(REGEX REPLACE "/$" "" prefix_from_pc ${prefix_from_pc})
  configure_file(cmake/qzhidapi.pc.in ${folder}/${layout}qzhidapi.pc @ONLY)
  install(FILES ${folder}/${layout}qzhidapi.pc RENAME qzhidapi.pc
    DESTINATION ${libdir}/pkgconfig ${component})
  install(FILES include/QzHidAPI.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${component})
  qz_install_documents(${component})
endfunction()

# qz_install(layout libdir virtual_libdir [EXCLUDE_FROM_ALL]): everything, with the libraries in these
# folders.
function(qz_install layout libdir virtual_libdir)
  if(TARGET QzHidAPI)
    qz_install_library(QzHidAPI "${layout}" ${CMAKE_INSTALL_BINDIR} ${libdir} ${ARGN})
  endif()
  if(TARGET QzHidAPI_virtual)
    qz_install_library(QzHidAPI_virtual "${layout}" ${qz_virtual_bindir} ${virtual_libdir} ${ARGN})
  endif()
  qz_install_development("${layout}" ${libdir} ${virtual_libdir} ${ARGN})
  if(QZ_BUILD_TOOLS)
    qz_install_tools("${layout}" ${libdir} ${ARGN})
  endif()
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT ${layout}licence ${ARGN})
  qz_install_licences(${CMAKE_INSTALL_DOCDIR}/licences ${layout}licence ${ARGN})
endfunction()

qz_install("" ${CMAKE_INSTALL_LIBDIR} ${qz_virtual_libdir})
if(QZ_OLDEST_GLIBC)
  qz_install(archive_ lib lib/qzhidapi/virtual EXCLUDE_FROM_ALL)
  qz_install(rpm_ lib64 lib64/qzhidapi/virtual EXCLUDE_FROM_ALL)
  configure_file(packaging/install.sh.in ${PROJECT_BINARY_DIR}/install/install.sh @ONLY)
  install(PROGRAMS ${PROJECT_BINARY_DIR}/install/install.sh DESTINATION . COMPONENT archive_licence
    EXCLUDE_FROM_ALL)
endif()
