# All objects are built with the chosen sanitizers, so that no fault is missed between two libraries.
if(QZ_SANITIZE)
  add_compile_options(-fsanitize=${QZ_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # GCC's warnings about uninitialised memory are not reliable for instrumented code.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  add_link_options(-fsanitize=${QZ_SANITIZE})
endif()
if(QZ_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
