# The import library for Microsoft's linker, QzHidAPI.lib, of DLLs that another toolchain links. It is
# made of what the header declares.
set(header ${PROJECT_SOURCE_DIR}/include/QzHidAPI.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
file(STRINGS ${header} declarations REGEX "^QZ_API ")
set(qz_definition ${PROJECT_BINARY_DIR}/QzHidAPI.def)
set(definition_text "LIBRARY QzHidAPI.dll\nEXPORTS\n")
foreach(declaration IN LISTS declarations)
  string(REGEX MATCH "QZ_[A-Za-z0-9_]+\\(" name ${declaration})
  string(REPLACE "(" "\n" name ${name})
  string(APPEND definition_text ${name})
endforeach()
file(CONFIGURE OUTPUT ${qz_definition} CONTENT "${definition_text}")

find_program(QZ_DLLTOOL llvm-dlltool REQUIRED)
set(qz_dlltool_machine i386:x86-64)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "ARM64")
  set(qz_dlltool_machine arm64)
endif()

# qz_install_msvc_import_library(target libdir): makes it beside the other import library.
function(qz_install_msvc_import_library target libdir)
  get_target_property(folder ${target} ARCHIVE_OUTPUT_DIRECTORY)
  set(library ${folder}/QzHidAPI.lib)
  add_custom_command(OUTPUT ${library} DEPENDS ${qz_definition} VERBATIM
    COMMAND ${QZ_DLLTOOL} -m ${qz_dlltool_machine} -d ${qz_definition} -l ${library})
  add_custom_target(${target}_msvc_import_library ALL DEPENDS ${library})
  add_dependencies(installed ${target}_msvc_import_library)
  install(FILES ${library} DESTINATION ${libdir} COMPONENT development)
endfunction()
