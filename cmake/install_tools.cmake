# The tools with their manual pages and completions, and the rule that lets a user open hubs.
if(NOT WIN32)
  foreach(page IN ITEMS qzhid.1 qzhub.1)
    set(packed ${PROJECT_BINARY_DIR}/install/${page}.gz)
    add_custom_command(OUTPUT ${packed} DEPENDS packaging/man/${page} VERBATIM
      COMMAND sh -c "gzip -9nc \"$1\" > \"$2\"" - ${PROJECT_SOURCE_DIR}/packaging/man/${page} ${packed})
    list(APPEND qz_packed_pages ${packed})
  endforeach()
  add_custom_target(manual_pages ALL DEPENDS ${qz_packed_pages})
  add_dependencies(installed manual_pages)
endif()

# qz_install_texts(layout zsh_folder [EXCLUDE_FROM_ALL]): manual pages and completions.
function(qz_install_texts layout zsh_folder)
  set(component COMPONENT ${layout}tools ${ARGN})
  install(FILES ${qz_packed_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 ${component})
  foreach(tool IN ITEMS qzhid qzhub)
    install(FILES packaging/completion/${tool}.bash RENAME ${tool}
      DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions ${component})
  endforeach()
  install(FILES packaging/completion/_qzhid packaging/completion/_qzhub
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder} ${component})
endfunction()

# qz_install_tools(layout libdir [EXCLUDE_FROM_ALL])
function(qz_install_tools layout libdir)
  set(component COMPONENT ${layout}tools ${ARGN})
  install(TARGETS qzhub qzhid RUNTIME ${component})
  add_dependencies(installed qzhub qzhid)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    # udev finds it there under /usr and /usr/local.
    install(FILES packaging/70-qzhidapi.rules DESTINATION lib/udev/rules.d ${component})
    # Not in a folder where it would take effect, because hubs differ.
    install(FILES packaging/qzhidapi-usbhid.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/qzhidapi
      ${component})
  endif()
  if(WIN32)
    return()
  endif()
  # Wireshark looks for dissectors of packages there.
  install(FILES packaging/wireshark/qzhid.lua DESTINATION ${libdir}/wireshark/plugins ${component})
  # Debian's zsh looks for completions of packages in a folder of its own.
  if(EXISTS /etc/debian_version AND NOT layout)
    qz_install_texts("${layout}" vendor-completions ${ARGN})
  else()
    qz_install_texts("${layout}" site-functions ${ARGN})
  endif()
endfunction()
