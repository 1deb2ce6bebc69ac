# Makes faults harder to exploit, in everything that is built. windows.cmake has control-flow guard and
# the flags of Windows files.
# The Zig toolchain has no runtime for stack protectors on Windows.
if(NOT WIN32 OR CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fstack-protector-strong)
  add_link_options(-fstack-protector-strong)  # for its runtime, if that is a library of its own
endif()
if(NOT WIN32)
  include(CheckPIESupported)
  check_pie_supported()
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  # The length checks need an optimiser, and would hide what a sanitizer finds.
  if(NOT QZ_SANITIZE)
    add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  endif()
endif()
