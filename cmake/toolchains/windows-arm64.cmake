# Windows on ARM64, with the Zig toolchain.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ARM64)
set(target aarch64-windows-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/zig.cmake)

set(CMAKE_RC_COMPILER ${QZ_ZIG})
set(CMAKE_RC_COMPILE_OBJECT
  "<CMAKE_RC_COMPILER> rc /:target arm64 /:output-format coff <DEFINES> <INCLUDES> /fo <OBJECT> -- <SOURCE>")

# Zig builds its C++ library for the optimisation level of the link, and removes unused code only if it
# writes no debug information: otherwise the DLL is more than twice the size.
add_link_options(-Os -s)
