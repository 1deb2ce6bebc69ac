# The texts of the licences of what is linked or compiled into programs and libraries, from where the
# compiler or the headers come from. packaging/artefacts makes sure that none is missing in what ships.
set(qz_licences "")  # NAME=FILE

macro(qz_add_licence name file)
  if(EXISTS ${file})  # systems other than Debian keep theirs elsewhere
    list(APPEND qz_licences ${name}=${file})
  endif()
endmacro()

if(QZ_BUILD_VIRTUAL_LIBRARY OR QZ_BUILD_TOOLS)
  qz_add_licence(nlohmann-json /usr/share/doc/nlohmann-json3-dev/copyright)
endif()
if(QZ_BUILD_TOOLS)
  qz_add_licence(CLI11 /usr/share/doc/libcli11-dev/copyright)
endif()
if(QZ_ZIG)
  cmake_path(GET QZ_UNWINDER_FOLDER PARENT_PATH zig)
  qz_add_licence(Zig ${zig}/LICENSE)
  foreach(library IN ITEMS libcxx libcxxabi libunwind)
    qz_add_licence(${library} ${zig}/${library}/LICENSE.TXT)
  endforeach()
  if(WIN32)
    qz_add_licence(mingw-w64 ${zig}/libc/mingw/COPYING)
  endif()
elseif(MINGW)
  qz_add_licence(mingw-w64 /usr/share/doc/mingw-w64-x86-64-dev/copyright)
  qz_add_licence(GCC-runtime /usr/share/doc/g++-mingw-w64-x86-64-posix/copyright)
endif()

# qz_install_licences(folder component [EXCLUDE_FROM_ALL])
function(qz_install_licences folder component)
  foreach(licence IN LISTS qz_licences)
    string(REGEX MATCH "^([^=]+)=(.*)$" matched ${licence})
    install(FILES ${CMAKE_MATCH_2} RENAME ${CMAKE_MATCH_1}.txt DESTINATION ${folder}
      COMPONENT ${component} ${ARGN})
  endforeach()
endfunction()
