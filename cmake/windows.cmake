# What every program and library for Windows is built with.
if(NOT WIN32)
  return()
endif()
enable_language(RC)
if(MSVC)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
  add_link_options(/DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA /guard:cf)
  add_compile_options(/guard:cf)
else()
  # Formatting stays inside the program: the C runtimes of the systems differ in it.
  add_compile_definitions(__USE_MINGW_ANSI_STDIO=1)
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-static -Wl,--gc-sections -Wl,--dynamicbase -Wl,--nxcompat
    -Wl,--high-entropy-va)
endif()
