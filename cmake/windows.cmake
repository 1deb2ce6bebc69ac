# The options of every program and library for Windows.
if(NOT WIN32)
  return()
endif()
enable_language(RC)
if(MSVC)
  add_compile_definitions(_CRT_SECURE_NO_WARNINGS)  # the standard functions are used on purpose
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
  add_link_options(/DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA /guard:cf)
  add_compile_options(/guard:cf)
else()
  # Formatting is done inside the program, because the C runtimes of the systems differ in it.
  add_compile_definitions(__USE_MINGW_ANSI_STDIO=1)
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-static -Wl,--gc-sections -Wl,--dynamicbase -Wl,--nxcompat
    -Wl,--high-entropy-va)
endif()
