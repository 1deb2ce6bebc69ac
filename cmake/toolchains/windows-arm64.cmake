# Windows on ARM64, with the Zig toolchain that script/bootstrap installs in the cache folder, or that
# is in the folder in the environment variable QZ_ZIG_FOLDER.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ARM64)

if(DEFINED ENV{QZ_ZIG_FOLDER})
  set(folder $ENV{QZ_ZIG_FOLDER})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(folder $ENV{XDG_CACHE_HOME}/qzhidapi/zig)
else()
  set(folder $ENV{HOME}/.cache/qzhidapi/zig)
endif()
# The program itself. npm's script that calls it would start node for each file.
file(GLOB QZ_ZIG ${folder}/node_modules/@zigc/*/bin/zig)
list(FILTER QZ_ZIG EXCLUDE REGEX "/cli/bin/zig$")
if(NOT QZ_ZIG)
  message(FATAL_ERROR "No Zig toolchain in ${folder}: run script/bootstrap windows-arm64")
endif()

set(CMAKE_C_COMPILER ${QZ_ZIG} cc)
set(CMAKE_CXX_COMPILER ${QZ_ZIG} c++)
set(CMAKE_C_COMPILER_TARGET aarch64-windows-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-windows-gnu)
foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_ARCHIVE_CREATE "${QZ_ZIG} ar qc <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_APPEND "${QZ_ZIG} ar q <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_FINISH "${QZ_ZIG} ranlib <TARGET>")
endforeach()
set(CMAKE_RC_COMPILER ${QZ_ZIG})
set(CMAKE_RC_COMPILE_OBJECT
  "<CMAKE_RC_COMPILER> rc /:target arm64 /:output-format coff <DEFINES> <INCLUDES> /fo <OBJECT> -- <SOURCE>")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Zig builds its C++ library for the optimisation level of the link, and removes unused code only if it
# writes no debug information: otherwise the DLL is more than twice the size.
add_link_options(-Os -s)
# Zig adds checks to code without optimisation, such as CMake's trials of the compiler, but a link with
# these options has no runtime for them.
add_compile_options(-fno-sanitize=undefined)
