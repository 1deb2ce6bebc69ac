# What `cmake --install` puts where, in the components "library", "development" and "tools".
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE AND NOT CMAKE_CROSSCOMPILING)
  # Debian's place below every prefix, not below /usr alone: packages are made of any build folder.
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of libraries")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The virtual library has the name of the real one, so it stands out of the loader's way.
set(qz_virtual_bindir ${CMAKE_INSTALL_BINDIR}/virtual)  # of DLLs
if(WIN32)
  set(qz_virtual_libdir ${CMAKE_INSTALL_LIBDIR}/virtual)
else()
  set(qz_virtual_libdir ${CMAKE_INSTALL_LIBDIR}/qzhidapi/virtual)
endif()

# All that is installed of what is built, and no more.
add_custom_target(installed)

# qz_install_library(target bindir libdir)
function(qz_install_library target bindir libdir)
  install(TARGETS ${target} EXPORT QzHidAPITargets
    RUNTIME DESTINATION ${bindir} COMPONENT library
    LIBRARY DESTINATION ${libdir} COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${libdir} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  add_dependencies(installed ${target})
endfunction()
if(TARGET QzHidAPI)
  qz_install_library(QzHidAPI ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR})
endif()
set_target_properties(QzHidAPI_virtual PROPERTIES EXPORT_NAME virtual)
qz_install_library(QzHidAPI_virtual ${qz_virtual_bindir} ${qz_virtual_libdir})

install(TARGETS qzhub qzhid RUNTIME COMPONENT tools)
add_dependencies(installed qzhub qzhid)
# Where the tool finds the libraries from its own place once installed.
file(RELATIVE_PATH qz_libdir_from_tools /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH qz_virtual_from_tools /${CMAKE_INSTALL_BINDIR} /${qz_virtual_libdir})
target_compile_definitions(qzhid PRIVATE
  QZHID_LIBRARY_FOLDER="${qz_libdir_from_tools}"
  QZHID_VIRTUAL_LIBRARY_FOLDER="${qz_virtual_from_tools}")
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  # udev looks there below /usr and /usr/local.
  install(FILES packaging/70-qzhidapi.rules DESTINATION lib/udev/rules.d COMPONENT tools)
  # Not in a folder where it would take effect: hubs differ.
  install(FILES packaging/qzhidapi-usbhid.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/qzhidapi
    COMPONENT tools)
endif()
if(NOT WIN32)
  foreach(page IN ITEMS qzhid.1 qzhub.1)
    set(packed ${PROJECT_BINARY_DIR}/install/${page}.gz)
    add_custom_command(OUTPUT ${packed} DEPENDS packaging/man/${page} VERBATIM
      COMMAND sh -c "gzip -9nc \"$1\" > \"$2\"" - ${PROJECT_SOURCE_DIR}/packaging/man/${page} ${packed})
    list(APPEND packed_pages ${packed})
  endforeach()
  add_custom_target(manual_pages ALL DEPENDS ${packed_pages})
  add_dependencies(installed manual_pages)
  install(FILES ${packed_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES packaging/completion/qzhid.bash RENAME qzhid
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
  # Debian's zsh looks for completions of packages in a folder of its own.
  set(zsh_folder site-functions)
  if(EXISTS /etc/debian_version)
    set(zsh_folder vendor-completions)
  endif()
  install(FILES packaging/completion/_qzhid
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder} COMPONENT tools)
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

# The documents link to one another, and to the examples, as they do in the source tree.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  FILES_MATCHING PATTERN *.md PATTERN *.c)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
