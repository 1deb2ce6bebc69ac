# What `cmake --install` installs and where, in the components "library", "development" and "tools".
include(CMakePackageConfigHelpers)

# Builds everything that is installed, and nothing else.
add_custom_target(installed)

if(WIN32 AND NOT MSVC)
  include(cmake/msvc_import_library.cmake)
endif()

# qz_install_library(target bindir libdir)
function(qz_install_library target bindir libdir)
  install(TARGETS ${target} EXPORT QzHidAPITargets
    RUNTIME DESTINATION ${bindir} COMPONENT library
    LIBRARY DESTINATION ${libdir} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${libdir} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  add_dependencies(installed ${target})
  if(WIN32 AND NOT MSVC)
    qz_install_msvc_import_library(${target} ${libdir})
  endif()
endfunction()
if(TARGET QzHidAPI)
  qz_install_library(QzHidAPI ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR})
endif()
if(TARGET QzHidAPI_virtual)
  qz_install_library(QzHidAPI_virtual ${qz_virtual_bindir} ${qz_virtual_libdir})
endif()
if(QZ_BUILD_TOOLS)
  include(cmake/install_tools.cmake)
endif()

set(folder ${PROJECT_BINARY_DIR}/install)
set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/QzHidAPI)
write_basic_package_version_file(${folder}/QzHidAPIConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES cmake/QzHidAPIConfig.cmake ${folder}/QzHidAPIConfigVersion.cmake
  DESTINATION ${config_folder} COMPONENT development)
install(EXPORT QzHidAPITargets NAMESPACE QzHidAPI:: DESTINATION ${config_folder}
  COMPONENT development)

file(RELATIVE_PATH qz_prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" qz_prefix_from_pc ${qz_prefix_from_pc})
configure_file(cmake/qzhidapi.pc.in ${folder}/qzhidapi.pc @ONLY)
install(FILES ${folder}/qzhidapi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
install(FILES include/QzHidAPI.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# The links between documents and to the examples work as in the source tree.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  FILES_MATCHING PATTERN *.md PATTERN *.json PATTERN *.png PATTERN *.c)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
