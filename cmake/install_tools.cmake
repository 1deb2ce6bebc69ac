# The tools with their manual pages and completions, and the rule that lets a user open hubs.
install(TARGETS qzhub qzhid RUNTIME COMPONENT tools)
add_dependencies(installed qzhub qzhid)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  # udev finds it there under /usr and /usr/local.
  install(FILES packaging/70-qzhidapi.rules DESTINATION lib/udev/rules.d COMPONENT tools)
  # Not in a folder where it would take effect, because hubs differ.
  install(FILES packaging/qzhidapi-usbhid.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/qzhidapi
    COMPONENT tools)
endif()
if(WIN32)
  return()
endif()
# Wireshark looks for dissectors of packages there.
install(FILES packaging/wireshark/qzhid.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins
  COMPONENT tools)

foreach(page IN ITEMS qzhid.1 qzhub.1)
  set(packed ${PROJECT_BINARY_DIR}/install/${page}.gz)
  add_custom_command(OUTPUT ${packed} DEPENDS packaging/man/${page} VERBATIM
    COMMAND sh -c "gzip -9nc \"$1\" > \"$2\"" - ${PROJECT_SOURCE_DIR}/packaging/man/${page} ${packed})
  list(APPEND packed_pages ${packed})
endforeach()
add_custom_target(manual_pages ALL DEPENDS ${packed_pages})
add_dependencies(installed manual_pages)
install(FILES ${packed_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
foreach(tool IN ITEMS qzhid qzhub)
  install(FILES packaging/completion/${tool}.bash RENAME ${tool}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endforeach()
# Debian's zsh looks for completions of packages in a folder of its own.
set(zsh_folder site-functions)
if(EXISTS /etc/debian_version)
  set(zsh_folder vendor-completions)
endif()
install(FILES packaging/completion/_qzhid packaging/completion/_qzhub
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder} COMPONENT tools)
