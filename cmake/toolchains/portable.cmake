# Linux on the processor in CMAKE_SYSTEM_PROCESSOR, with the Zig toolchain: files that need no C library
# newer than this one, and have the C++ runtime in them. The toolchain files include this.
set(QZ_OLDEST_GLIBC 2.17)
set(CMAKE_SYSTEM_NAME Linux)
set(target ${CMAKE_SYSTEM_PROCESSOR}-linux-gnu.${QZ_OLDEST_GLIBC})
include(${CMAKE_CURRENT_LIST_DIR}/zig.cmake)

# Zig builds its C++ library for the optimisation level of the link: this one, also in trials by CMake.
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-O2 -s -Wl,--gc-sections)
